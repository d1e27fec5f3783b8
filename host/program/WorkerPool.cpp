#include "WorkerPool.h"

#include "ProgramError.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <poll.h>
#include <sched.h>
#include <string>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace host {
namespace {

constexpr size_t kIdle = SIZE_MAX;

// The counter of the next index to take and, per worker, the index it is
// checking (kIdle between packages): shared by every process of the pool.
class SharedState {
public:
    explicit SharedState(size_t workers) : m_Size(sizeof(std::atomic<size_t>) * (workers + 1)) {
        void* memory = mmap(nullptr, m_Size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) {
            throw SetupError(std::string("cannot share memory with the worker processes: ") +
                             std::strerror(errno));
        }
        m_Slots = static_cast<std::atomic<size_t>*>(memory);
        new (&m_Slots[0]) std::atomic<size_t>(0);
        for (size_t worker = 0; worker < workers; ++worker) {
            new (&m_Slots[worker + 1]) std::atomic<size_t>(kIdle);
        }
    }
    ~SharedState() { munmap(m_Slots, m_Size); }
    SharedState(const SharedState&) = delete;
    SharedState& operator=(const SharedState&) = delete;

    std::atomic<size_t>& Next() { return m_Slots[0]; }
    std::atomic<size_t>& Current(size_t worker) { return m_Slots[worker + 1]; }

private:
    size_t m_Size;
    std::atomic<size_t>* m_Slots;
};

void PutNumber(std::string& out, uint64_t value, int bytes) {
    for (int shift = 0; shift < bytes; ++shift) {
        out += static_cast<char>((value >> (8 * shift)) & 0xFF);
    }
}

void PutText(std::string& out, const std::string& text) {
    PutNumber(out, text.size(), 4);
    out += text;
}

// A message: its length (4 bytes), the index (8), the status (4), the
// status name, the message and the number of log lines with each line,
// every text as its length (4 bytes) and its bytes.
std::string Encode(size_t index, const PackageVerdict& verdict) {
    std::string body;
    PutNumber(body, index, 8);
    PutNumber(body, static_cast<uint32_t>(verdict.status), 4);
    PutText(body, verdict.statusName);
    PutText(body, verdict.message);
    PutNumber(body, verdict.logLines.size(), 4);
    for (const std::string& line : verdict.logLines) {
        PutText(body, line);
    }
    std::string message;
    PutNumber(message, body.size(), 4);
    return message + body;
}

class Decoder {
public:
    explicit Decoder(const std::string& bytes) : m_Bytes(bytes) {}

    uint64_t Number(int bytes) {
        if (m_At + static_cast<size_t>(bytes) > m_Bytes.size()) {
            throw SetupError("a worker process sent a damaged message");
        }
        uint64_t value = 0;
        for (int shift = 0; shift < bytes; ++shift) {
            value |= static_cast<uint64_t>(static_cast<uint8_t>(m_Bytes[m_At++])) << (8 * shift);
        }
        return value;
    }

    std::string Text() {
        uint64_t length = Number(4);
        if (length > m_Bytes.size() - m_At) {
            throw SetupError("a worker process sent a damaged message");
        }
        std::string text = m_Bytes.substr(m_At, length);
        m_At += length;
        return text;
    }

private:
    const std::string& m_Bytes;
    size_t m_At = 0;
};

bool WriteAll(int descriptor, const std::string& bytes) {
    size_t written = 0;
    while (written < bytes.size()) {
        ssize_t result = write(descriptor, bytes.data() + written, bytes.size() - written);
        if (result < 0 && errno == EINTR) {
            continue;
        }
        if (result <= 0) {
            return false;
        }
        written += static_cast<size_t>(result);
    }
    return true;
}

struct Worker {
    pid_t pid = -1;
    int descriptor = -1;
    std::string received;
};

std::string EndText(int waitStatus) {
    if (WIFSIGNALED(waitStatus)) {
        return "ended by signal " + std::to_string(WTERMSIG(waitStatus)) + " (" +
               strsignal(WTERMSIG(waitStatus)) + ")";
    }
    return "ended with exit code " + std::to_string(WEXITSTATUS(waitStatus));
}

} // namespace

size_t WorkerPool::DefaultJobs() {
    cpu_set_t set;
    if (sched_getaffinity(0, sizeof set, &set) == 0 && CPU_COUNT(&set) > 0) {
        return static_cast<size_t>(CPU_COUNT(&set));
    }
    long online = sysconf(_SC_NPROCESSORS_ONLN);
    return online > 0 ? static_cast<size_t>(online) : 1;
}

void WorkerPool::Run(size_t count, size_t jobs, const Setup& setup, const Task& task,
                     const Delivery& deliver) {
    if (count == 0) {
        return;
    }
    jobs = std::max<size_t>(1, std::min(jobs, count));
    SharedState shared(jobs);
    std::vector<Worker> workers(jobs);

    auto start = [&](size_t slot) {
        int pipeEnds[2];
        if (pipe2(pipeEnds, O_CLOEXEC) != 0) {
            throw SetupError(std::string("cannot start a worker process: ") + std::strerror(errno));
        }
        // Nothing buffered may be written twice, once by each process.
        std::fflush(nullptr);
        pid_t pid = fork();
        if (pid < 0) {
            int error = errno;
            close(pipeEnds[0]);
            close(pipeEnds[1]);
            throw SetupError(std::string("cannot start a worker process: ") + std::strerror(error));
        }
        if (pid == 0) {
            // The worker: it ends with _exit, so that nothing of the main
            // process (buffers, destructors, handlers) runs twice.
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            close(pipeEnds[0]);
            for (const Worker& other : workers) {
                if (other.descriptor >= 0) {
                    close(other.descriptor);
                }
            }
            std::signal(SIGINT, SIG_IGN);
            // No exception may unwind into the main process's code, which
            // this process shares up to here.
            try {
                setup();
                while (true) {
                    size_t index = shared.Next().fetch_add(1);
                    if (index >= count) {
                        break;
                    }
                    shared.Current(slot).store(index);
                    PackageVerdict verdict = task(index);
                    if (!WriteAll(pipeEnds[1], Encode(index, verdict))) {
                        _exit(1);
                    }
                    shared.Current(slot).store(kIdle);
                }
            } catch (...) {
                _exit(1);
            }
            _exit(0);
        }
        close(pipeEnds[1]);
        workers[slot].pid = pid;
        workers[slot].descriptor = pipeEnds[0];
        workers[slot].received.clear();
    };

    std::map<size_t, PackageVerdict> waiting;
    size_t nextToDeliver = 0;
    auto received = [&](size_t index, PackageVerdict verdict) {
        waiting.emplace(index, std::move(verdict));
        for (auto found = waiting.find(nextToDeliver); found != waiting.end();
             found = waiting.find(nextToDeliver)) {
            deliver(found->first, found->second);
            waiting.erase(found);
            ++nextToDeliver;
        }
    };

    for (size_t slot = 0; slot < jobs; ++slot) {
        start(slot);
    }

    std::vector<pollfd> polled;
    std::vector<size_t> slots;
    char buffer[65536];
    while (true) {
        polled.clear();
        slots.clear();
        for (size_t slot = 0; slot < jobs; ++slot) {
            if (workers[slot].descriptor >= 0) {
                polled.push_back(pollfd{workers[slot].descriptor, POLLIN, 0});
                slots.push_back(slot);
            }
        }
        if (polled.empty()) {
            break;
        }
        if (poll(polled.data(), polled.size(), -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            throw SetupError(std::string("cannot wait for the worker processes: ") + std::strerror(errno));
        }
        for (size_t item = 0; item < polled.size(); ++item) {
            if (polled[item].revents == 0) {
                continue;
            }
            Worker& worker = workers[slots[item]];
            ssize_t got = read(worker.descriptor, buffer, sizeof buffer);
            if (got < 0 && errno == EINTR) {
                continue;
            }
            if (got > 0) {
                worker.received.append(buffer, static_cast<size_t>(got));
                while (worker.received.size() >= 4) {
                    Decoder header(worker.received);
                    size_t length = header.Number(4);
                    if (worker.received.size() < 4 + length) {
                        break;
                    }
                    std::string body = worker.received.substr(4, length);
                    worker.received.erase(0, 4 + length);
                    Decoder decoder(body);
                    size_t index = decoder.Number(8);
                    PackageVerdict verdict;
                    verdict.status = static_cast<int32_t>(static_cast<uint32_t>(decoder.Number(4)));
                    verdict.statusName = decoder.Text();
                    verdict.message = decoder.Text();
                    for (uint64_t lines = decoder.Number(4); lines > 0; --lines) {
                        verdict.logLines.push_back(decoder.Text());
                    }
                    received(index, std::move(verdict));
                }
                continue;
            }
            // The worker closed its end: it is done, or it died.
            close(worker.descriptor);
            worker.descriptor = -1;
            int waitStatus = 0;
            while (waitpid(worker.pid, &waitStatus, 0) < 0 && errno == EINTR) {
            }
            size_t lost = shared.Current(slots[item]).exchange(kIdle);
            if (lost != kIdle) {
                PackageVerdict verdict;
                verdict.status = -1;
                verdict.statusName = "NO_ANSWER";
                verdict.message = "the worker process checking it " + EndText(waitStatus);
                received(lost, std::move(verdict));
            }
            if (shared.Next().load() < count) {
                start(slots[item]);
            }
        }
    }
}

} // namespace host
