#include "PackageList.h"

#include "ProgramError.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>

namespace host {
namespace {

struct FileCloser {
    void operator()(std::FILE* file) const {
        if (file != stdin) {
            std::fclose(file);
        }
    }
};

bool EndsWith(const std::string& text, const std::string& suffix) {
    return text.size() >= suffix.size() &&
           text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

} // namespace

std::vector<std::string> PackageList::Read(const std::string& source, bool nulSeparated) {
    const bool fromInput = source == "-";
    std::unique_ptr<std::FILE, FileCloser> file(fromInput ? stdin : std::fopen(source.c_str(), "rb"));
    const std::string shown = fromInput ? std::string("standard input") : "'" + source + "'";
    if (!file) {
        throw SetupError("cannot open the package list " + shown + ": " + std::strerror(errno));
    }
    const char separator = nulSeparated ? '\0' : '\n';
    std::vector<std::string> paths;
    std::string current;
    char buffer[65536];
    size_t got;
    while ((got = std::fread(buffer, 1, sizeof buffer, file.get())) > 0) {
        for (size_t index = 0; index < got; ++index) {
            if (buffer[index] != separator) {
                current += buffer[index];
            } else if (!current.empty()) {
                paths.push_back(std::move(current));
                current.clear();
            }
        }
    }
    if (std::ferror(file.get())) {
        throw SetupError("cannot read the package list " + shown + ": " + std::strerror(errno));
    }
    if (!current.empty()) {
        paths.push_back(std::move(current));
    }
    return paths;
}

std::vector<std::string> PackageList::Find(const std::string& folder) {
    namespace fs = std::filesystem;
    std::error_code error;
    if (!fs::is_directory(folder, error)) {
        throw SetupError("'" + folder + "' is not a folder that can be searched for packages");
    }
    std::vector<std::string> paths;
    fs::recursive_directory_iterator walk(folder, error);
    const fs::recursive_directory_iterator end;
    while (!error && walk != end) {
        const std::string path = walk->path().string();
        std::error_code typeError;
        if (EndsWith(path, ".rpm") && walk->is_regular_file(typeError)) {
            paths.push_back(path);
        }
        walk.increment(error);
    }
    if (error) {
        throw SetupError("cannot search '" + folder + "' for packages: " + error.message());
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

} // namespace host
