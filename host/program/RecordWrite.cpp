#include "RecordWrite.h"

#include <cerrno>
#include <unistd.h>

namespace host {

void WriteRecord(std::FILE* out, const std::string& record) {
    std::fflush(out);
    const int descriptor = fileno(out);
    size_t written = 0;
    while (written < record.size()) {
        ssize_t result = ::write(descriptor, record.data() + written, record.size() - written);
        if (result < 0 && errno == EINTR) {
            continue;
        }
        if (result <= 0) {
            return;
        }
        written += static_cast<size_t>(result);
    }
}

} // namespace host
