// Key files are judged before they are read: only a regular file within the
// key-file bounds (4 MiB, 131072 lines) reaches the host's line reader or
// the certificate store. A FIFO, /dev/zero and 64 MiB of line feeds each
// get a refusal; each case runs in a child process with a time limit (and,
// outside AddressSanitizer, a memory limit), so that a regression shows as
// a failure instead of a hung or exhausted machine.
#include "CertificateManager.h"
#include "Exceptions.h"
#include "HostSession.h"
#include "rpmutil.h"
#include "signing.h"

#include "Fixtures.h"
#include "PluginLogLines.h"
#include "PluginSessionTest.h"
#include "Sanitizer.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

using host::HostLog;
using testsupport::SignedLine;
using testsupport::UserKeyLine;

namespace {

using Lines = std::vector<std::string>;

// What a child process reported: how it ended and what it wrote.
struct ChildOutcome {
    bool finished;    // exited by itself within the time limit
    int exitCode;     // when finished
    std::string text; // written by the child to its pipe
};

// Runs work in a child process that is killed after the given seconds. The
// child's address space is limited to 1 GiB outside AddressSanitizer.
ChildOutcome RunInChild(const std::function<std::string()>& work, int seconds) {
    int channel[2];
    if (pipe(channel) != 0) {
        return ChildOutcome{false, -1, "pipe failed"};
    }
    const pid_t child = fork();
    if (child == 0) {
        close(channel[0]);
        if (!testsupport::kSanitized) {
            rlimit memory{1UL << 30, 1UL << 30};
            setrlimit(RLIMIT_AS, &memory);
        }
        std::string text;
        try {
            text = work();
        } catch (const std::exception& error) {
            text = std::string("exception: ") + error.what();
        }
        if (write(channel[1], text.data(), text.size()) < 0) {
            _exit(2);
        }
        _exit(0);
    }
    close(channel[1]);
    fcntl(channel[0], F_SETFL, O_NONBLOCK);
    ChildOutcome outcome{false, -1, std::string()};
    for (int tick = 0; tick < seconds * 20; ++tick) {
        char buffer[4096];
        ssize_t count;
        while ((count = read(channel[0], buffer, sizeof(buffer))) > 0) {
            outcome.text.append(buffer, static_cast<size_t>(count));
        }
        int status = 0;
        if (waitpid(child, &status, WNOHANG) == child) {
            while ((count = read(channel[0], buffer, sizeof(buffer))) > 0) {
                outcome.text.append(buffer, static_cast<size_t>(count));
            }
            outcome.finished = WIFEXITED(status);
            outcome.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            close(channel[0]);
            return outcome;
        }
        usleep(50000);
    }
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    close(channel[0]);
    return outcome;
}

std::string Joined(const Lines& lines) {
    std::string text;
    for (const std::string& line : lines) {
        text += line + "\n";
    }
    return text;
}

// The plausibility test's answer and log, as the child reports them.
std::string ValidityOf(const std::string& path) {
    HostLog::WriteNowhere();
    HostLog::Clear();
    const int answer = _signing_is_valid_key(path);
    return std::to_string(answer) + "\n" + Joined(HostLog::Lines());
}

const char kNotAFile[] = "_signing_is_valid_key: public key is not a regular file";

std::string WriteLineFeeds(const std::string& path, size_t count) {
    testsupport::WriteFile(path, std::string(count, '\n'));
    return path;
}

} // namespace

// ------------------------------------------------------ plausibility test

TEST(KeyFileBounds, FifoKeyIsRefusedWithoutWaitingForAWriter) {
    testsupport::TempDir folder;
    const std::string fifo = folder.File("key.asc");
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));

    ChildOutcome outcome = RunInChild([&] { return ValidityOf(fifo); }, 10);

    ASSERT_TRUE(outcome.finished) << "the plausibility test blocked on a FIFO";
    EXPECT_EQ(outcome.text, std::string("1\n") + kNotAFile + "\n");
}

TEST(KeyFileBounds, DevZeroKeyIsRefusedBeforeItIsRead) {
    ChildOutcome outcome = RunInChild([] { return ValidityOf("/dev/zero"); }, 10);

    ASSERT_TRUE(outcome.finished) << "exit " << outcome.exitCode;
    EXPECT_EQ(outcome.text, std::string("1\n") + kNotAFile + "\n");
}

TEST(KeyFileBounds, KeyLargerThanFourMebibytesIsRefused) {
    testsupport::TempDir folder;
    const std::string big = folder.File("big.asc");
    testsupport::WriteFile(big, std::string(4UL * 1024 * 1024 + 1, 'A'));
    const std::string fits = folder.File("fits.asc");
    testsupport::WriteFile(fits, std::string(4UL * 1024 * 1024, 'A'));

    EXPECT_EQ(ValidityOf(big), "1\n_signing_is_valid_key: public key is larger than 4194304 bytes\n");
    EXPECT_EQ(ValidityOf(fits), "0\n");
    HostLog::WriteToStandardError();
}

TEST(KeyFileBounds, KeyWithMoreLinesThanAnyKeyIsRefused) {
    testsupport::TempDir folder;
    EXPECT_EQ(ValidityOf(WriteLineFeeds(folder.File("many.asc"), 131073)),
              "1\n_signing_is_valid_key: public key has more than 131072 lines\n");
    EXPECT_EQ(ValidityOf(WriteLineFeeds(folder.File("enough.asc"), 131072)), "0\n");
    HostLog::WriteToStandardError();
}

namespace {

class KeyFileBoundsRunTest : public testsupport::PluginSessionTest {};

} // namespace

TEST_F(KeyFileBoundsRunTest, SixtyFourMebibytesOfLineFeedsAsTheUserKeyFallBackToTheLocalKey) {
    const std::string key = testsupport::Fixture("keys/rsa2048.asc");
    REQUIRE_FIXTURE(key);
    const std::string feeds = WriteLineFeeds(m_Work.File("feeds.asc"), 64UL * 1024 * 1024);
    m_Session.SetValue("signature", feeds);
    m_Session.SetValue("SIGNING_LOCAL_PUBLIC_KEY", key);
    Product& product = m_Session.Installation().AddProduct("product");
    m_Session.Installation().AddComponent(product, "rpm", "good", testsupport::Fixture("rpm"),
                                          "signed-rsa2048-sha256.rpm");

    ChildOutcome outcome = RunInChild(
        [&] {
            HostLog::Clear();
            const int returned = signing_validate_package_list(&m_Session);
            return std::to_string(returned) + "\n" + Joined(HostLog::Lines());
        },
        60);

    ASSERT_TRUE(outcome.finished) << "exit " << outcome.exitCode;
    EXPECT_EQ(outcome.text,
              "0\n" +
                  Joined({"signing_validate_package_list: started", UserKeyLine(feeds),
                          "_signing_is_valid_key: public key is larger than 4194304 bytes", UserKeyLine(key),
                          SignedLine(testsupport::Fixture("rpm") + "/signed-rsa2048-sha256.rpm"),
                          "signing_validate_package_list: finished"}));
}

// ------------------------------------------------------ certificate store

namespace {

// The text the store's loader throws for a key path; empty when it loads.
std::string LoadError(const std::string& path) {
    CertificateManager store;
    store.SetPgpPublicKeyFilePath(path);
    try {
        store.LoadPgpPublicKey();
    } catch (const std::exception& error) {
        return error.what();
    }
    return std::string();
}

} // namespace

TEST(KeyFileBoundsStore, FifoDeviceAndOversizedKeysAreRefusedBeforeReading) {
    testsupport::TempDir folder;
    const std::string fifo = folder.File("key.fifo");
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    const std::string big = folder.File("big.asc");
    testsupport::WriteFile(big, std::string(4UL * 1024 * 1024 + 1, '\n'));

    ChildOutcome outcome = RunInChild(
        [&] { return LoadError(fifo) + "\n" + LoadError("/dev/zero") + "\n" + LoadError(big) + "\n"; }, 10);

    ASSERT_TRUE(outcome.finished) << "exit " << outcome.exitCode;
    EXPECT_EQ(outcome.text, "File operation error: Key file " + fifo + " is not a regular file\n" +
                                "File operation error: Key file /dev/zero is not a regular file\n" +
                                "File operation error: Key file " + big + " is larger than 4194304 bytes\n");
}

TEST(KeyFileBoundsStore, FifoKeyMakesRpmVerifyAnErrorNotAHang) {
    const std::string package = testsupport::Fixture("rpm/signed-rsa2048-sha256.rpm");
    REQUIRE_FIXTURE(package);
    testsupport::TempDir folder;
    const std::string fifo = folder.File("key.fifo");
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));

    ChildOutcome outcome = RunInChild(
        [&] {
            RPM_RESULT result = rpm_verify(package.c_str(), fifo.c_str());
            std::string text = std::to_string(result.status) + " " + result.message;
            std::free(result.message);
            return text;
        },
        10);

    ASSERT_TRUE(outcome.finished) << "exit " << outcome.exitCode;
    EXPECT_EQ(outcome.text, "5 Internal error occured while verifying " + package);
}
