// The plug-in's log lines (the key it uses, its download commands, the
// result for each package), as the key acquisition, package list and host
// program tests expect them byte for byte.
#ifndef SIGNING_TEST_PLUGIN_LOG_LINES_H
#define SIGNING_TEST_PLUGIN_LOG_LINES_H

#include <cstddef>
#include <string>
#include <vector>

namespace testsupport {

const char kDownloadingLine[] = "signing_get_public_key: public key will be downloaded from QEL";

// The secure options logged for each of the three attempts of a tool.
const char kWgetProtocols[3][24] = {"--secure-protocol=SSLv3", "--secure-protocol=SSLv2",
                                    "--secure-protocol=TLSv1"};
const char kCurlProtocols[3][8] = {"--sslv3", "--sslv2", "--tlsv1"};

inline std::string WgetCommand(const std::string& request, const std::string& outFile) {
    return "export LD_LIBRARY_PATH=\"\"; wget --timeout=3 --tries=1 --quiet " + request + " -O " + outFile +
           " 2>/dev/null";
}

inline std::string CurlCommand(const std::string& request, const std::string& outFile) {
    return "export LD_LIBRARY_PATH=\"\"; curl --max-time 3 --retry 1 --location --silent " + request +
           " -o " + outFile + " 2>/dev/null";
}

inline std::string UserKeyLine(const std::string& key) {
    return "signing_get_public_key: public key specified by user " + key;
}

inline std::string RequestLine(const std::string& request) {
    return "signing_get_public_key: request value [" + request + "]";
}

inline std::string CommandValueLine(const std::string& command) {
    return "signing_get_public_key: command value [" + command + "]";
}

inline std::string KeyObtainedLine(const std::string& path) {
    return "signing_get_public_key: public key obtained successfully [" + path + "]";
}

// The two lines that open one download attempt with a secure option.
inline void AppendAttempt(std::vector<std::string>& lines, const std::string& command,
                          const std::string& protocol) {
    lines.push_back("signing_get_public_key: secure command   [" + command + " " + protocol + "]");
    lines.push_back("signing_get_public_key: secure protocols [" + protocol + "]");
}

// The line of a download tool that ended with the raw wait status.
inline std::string CallFailedLine(int status) {
    return "_signing_call_webservice: web service call failed with status " + std::to_string(status);
}

// The log of a download that gives no key: the request and the command,
// then each of the tool's three attempts (its secure options) ended by the
// failure line.
template <size_t N>
std::vector<std::string> FailedDownloadLines(const std::string& request, const std::string& command,
                                             const char (&protocols)[3][N], const std::string& failure) {
    std::vector<std::string> lines{kDownloadingLine, RequestLine(request), CommandValueLine(command)};
    for (const char* protocol : protocols) {
        AppendAttempt(lines, command, protocol);
        lines.push_back(failure);
    }
    return lines;
}

// The result line of one package.
inline std::string ResultLine(int status, const std::string& path, const std::string& message) {
    return "_signing_validate_file: signing validation result " + std::to_string(status) +
           " (0 is success) for " + path + " package [" + message + "]";
}

// The result line of a package that is signed.
inline std::string SignedLine(const std::string& path) {
    return ResultLine(0, path, path + " is signed.");
}

} // namespace testsupport

#endif
