// Host plug-in interface: validating the host's package list and obtaining
// the public key.
#include "signing.h"

#include "ContractTexts.h"
#include "DownloadProcess.h"
#include "Exceptions.h"
#include "KeyDownloadFolder.h"
#include "KeyFileBounds.h"
#include "WeakHostSymbols.h"
#include "rpmutil.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <list>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int kDownloadAttempts = 3;

// The download tools in the order they are preferred, with the command that
// finds each one, its command template (time-out, tries, request, output
// file; LD_LIBRARY_PATH is cleared so that the tool does not pick up the
// host's libraries) and the secure-protocol option logged for each attempt.
struct DownloadTool {
    const char* name;
    const char* probe;
    const char* commandTemplate;
    std::array<const char*, kDownloadAttempts> secureProtocols;
};

constexpr std::array<DownloadTool, 2> kDownloadTools = {{
    {contract::kToolWget,
     contract::kProbeWget,
     contract::kCommandTemplateWget,
     {contract::kWgetSecureProtocol1, contract::kWgetSecureProtocol2, contract::kWgetSecureProtocol3}},
    {contract::kToolCurl,
     contract::kProbeCurl,
     contract::kCommandTemplateCurl,
     {contract::kCurlSecureProtocol1, contract::kCurlSecureProtocol2, contract::kCurlSecureProtocol3}},
}};

constexpr int kDownloadTimeoutSeconds = 3;
constexpr int kDownloadTries = 1;
constexpr size_t kCommandBufferSize = 4096;
constexpr size_t kProbeReadSize = 64;
constexpr size_t kWebServiceBufferSize = 80;

struct FreeDeleter {
    void operator()(void* pointer) const { std::free(pointer); }
};

// The update identifier sent to the key service: the first non-empty
// "VokUpdateId" of the nested "phonehome" environment of a product or of one
// of its components, products in order and each product before its
// components.
std::string FindUpdateId(session_t* session) {
    auto idOf = [](Environment* environment) -> std::string {
        Environment* phonehome =
            castStringToEnvPointer(env_get_string_internal(environment, contract::kEnvironmentPhonehome));
        if (phonehome == nullptr) {
            return std::string();
        }
        return env_get_string_internal(phonehome, contract::kEnvironmentUpdateId);
    };
    if (session == nullptr || session->tsd == nullptr) {
        return std::string();
    }
    for (Product* product : session->tsd->products()) {
        if (product == nullptr) {
            continue;
        }
        std::string id = idOf(&product->environment);
        if (!id.empty()) {
            return id;
        }
        for (Component* component : product->components) {
            if (component == nullptr) {
                continue;
            }
            id = idOf(&component->environment);
            if (!id.empty()) {
                return id;
            }
        }
    }
    return std::string();
}

// The secure-protocol option of the given attempt for the tool the command
// names; empty when it names neither.
const char* SecureProtocolFor(const std::string& command, int attempt) {
    for (const DownloadTool& tool : kDownloadTools) {
        if (command.find(tool.name) != std::string::npos) {
            return tool.secureProtocols[static_cast<size_t>(attempt)];
        }
    }
    return "";
}

// Log lines of the guards around the download. They follow the wording of
// the download's other lines; each names what was refused and why.
constexpr char kLogRefusedCharacter[] =
    "signing_get_public_key: download refused, %s holds a character that is not allowed in the command";
constexpr char kLogRefusedLeadingDash[] =
    "signing_get_public_key: download refused, %s begins with '-' and would be taken as an option";
constexpr char kLogRefusedLength[] =
    "signing_get_public_key: download refused, the command would be longer than %d characters";
constexpr char kLogRefusedNoFolder[] = "signing_get_public_key: download refused, TEMP_FOLDER is empty";
constexpr char kLogRefusedNotAFolder[] =
    "signing_get_public_key: download refused, TEMP_FOLDER [%s] is not a folder";
constexpr char kLogRefusedPrivateFolder[] =
    "signing_get_public_key: download refused, no private folder can be made in [%s]: %s";
constexpr char kLogRefusedOldKey[] =
    "signing_get_public_key: download refused, the earlier key file [%s] cannot be removed: %s";
constexpr char kLogWebServiceDeadline[] =
    "_signing_call_webservice: web service call did not finish within %d seconds";
constexpr char kLogWebServiceTooLarge[] = "_signing_call_webservice: downloaded key is larger than %lu bytes";
constexpr char kLogWebServiceNotAFile[] =
    "_signing_call_webservice: downloaded key [%s] is not a regular file";

// Characters that a URL and an update identifier may hold: the shell takes
// each of them literally, and they are all a key service's address needs.
bool IsRequestCharacter(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || std::strchr("-._~:/?=%+,@", c) != nullptr;
}

// Characters that the temporary folder may hold: those of the file pattern
// that the shell takes literally (the pattern's blank, parentheses, brackets
// and backslash are left out, as each would change the command).
bool IsFolderCharacter(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || std::strchr("+._/-", c) != nullptr;
}

bool AllOf(const std::string& text, bool (*allowed)(char)) {
    for (char c : text) {
        if (c == '\0' || !allowed(c)) {
            return false;
        }
    }
    return true;
}

// Checks one session value that enters the download command; logs the
// refusal. A value that opens an argument must not look like an option.
bool IsAcceptedValue(const char* name, const std::string& value, bool (*allowed)(char), bool opensArgument) {
    if (!AllOf(value, allowed)) {
        print_log(kLogRefusedCharacter, name);
        return false;
    }
    if (opensArgument && !value.empty() && value[0] == '-') {
        print_log(kLogRefusedLeadingDash, name);
        return false;
    }
    return true;
}

// The length of the longest command either tool's template makes, so that
// a cut command is refused before the tool is known.
size_t LongestCommandLength(const std::string& request, const std::string& outFile) {
    size_t longest = 0;
    for (const DownloadTool& tool : kDownloadTools) {
        const int length = std::snprintf(nullptr, 0, tool.commandTemplate, kDownloadTimeoutSeconds,
                                         kDownloadTries, request.c_str(), outFile.c_str());
        if (length < 0) {
            return kCommandBufferSize;
        }
        longest = std::max(longest, static_cast<size_t>(length));
    }
    return longest;
}

// Removes the key file a previous download left, without following a link
// put in its place. False (logged) when something else is in the way.
bool RemoveEarlierKey(const std::string& outFile) {
    if (unlink(outFile.c_str()) == 0 || errno == ENOENT) {
        return true;
    }
    print_log(kLogRefusedOldKey, outFile.c_str(), std::strerror(errno));
    return false;
}

// What the tool left in the output file: a link or anything but a regular
// file is refused, and so is a file larger than any key.
bool IsAcceptedDownload(const std::string& outFile) {
    struct stat status;
    if (lstat(outFile.c_str(), &status) != 0) {
        // Nothing written: the key test that follows finds no file.
        return true;
    }
    if (!S_ISREG(status.st_mode)) {
        print_log(kLogWebServiceNotAFile, outFile.c_str());
        return false;
    }
    if (static_cast<unsigned long long>(status.st_size) > key_file::kMaxSize) {
        print_log(kLogWebServiceTooLarge, key_file::kMaxSize);
        unlink(outFile.c_str());
        return false;
    }
    return true;
}

// Runs the download command once; true when it exited with status 0 and
// left an acceptable key file. Its output is not read: the tool writes the
// key into the output file itself.
bool CallWebService(const std::string& command, const std::string& outFile) {
    std::unique_ptr<char, FreeDeleter> buffer(static_cast<char*>(std::calloc(kWebServiceBufferSize, 1)));
    if (!buffer) {
        print_log(contract::kLogWebServiceNoMemory);
        return false;
    }
    // One byte over the bound is enough to tell a file that is too large.
    DownloadProcess download(command, key_file::kMaxSize + 1);
    const DownloadProcess::End end = download.Run();
    if (end == DownloadProcess::End::NotStarted) {
        print_log(contract::kLogWebServiceNotExecuted);
        return false;
    }
    if (end == DownloadProcess::End::TimedOut) {
        print_log(kLogWebServiceDeadline, DownloadProcess::kDeadlineSeconds);
        unlink(outFile.c_str());
        return false;
    }
    const int status = download.WaitStatus();
    if (!IsAcceptedDownload(outFile)) {
        return false;
    }
    if (status != -1 && WIFSIGNALED(status)) {
        int signal = WTERMSIG(status);
        print_log(contract::kLogWebServiceSignal, signal, strsignal(signal));
        return false;
    }
    if (status != 0) {
        print_log(contract::kLogWebServiceStatus, status);
        return false;
    }
    return true;
}

// The message identifiers of the host's catalogue that a warning appends,
// one row per failure category from kSigningWarningValidate on. Each entry
// carries the list separator in front of it.
struct PrerequisiteMessages {
    const char* shortDescription;
    const char* fullDescription;
};

constexpr std::array<PrerequisiteMessages, 3> kWarningMessages = {{
    {contract::kWarningValidateShortDescription, contract::kWarningValidateFullDescription},
    {contract::kWarningDownloadShortDescription, contract::kWarningDownloadFullDescription},
    {contract::kWarningFileShortDescription, contract::kWarningFileFullDescription},
}};

// A failed package is an error rather than a warning.
constexpr PrerequisiteMessages kPackageFailureMessages = {contract::kErrorCheckShortDescription,
                                                          contract::kErrorCheckFullDescription};

constexpr int kProgressStep = 100;

// Reads a session list value, appends one entry and writes it back.
std::string AppendToSessionList(session_t* session, const char* key, const char* entry) {
    std::string value = env_get_string(session, key) + entry;
    env_set_string(session, key, value.c_str());
    return value;
}

void AppendDescriptions(session_t* session, const PrerequisiteMessages& messages) {
    AppendToSessionList(session, contract::kSessionShortDescription, messages.shortDescription);
    AppendToSessionList(session, contract::kSessionFullDescription, messages.fullDescription);
}

// The products the session knows; none when it carries no installation data.
std::list<Product*>* ProductsOf(session_t* session) {
    if (session == nullptr || session->tsd == nullptr) {
        return nullptr;
    }
    return &session->tsd->products();
}

// Log lines of the plausibility test's bounds.
constexpr char kLogKeyNotAFile[] = "_signing_is_valid_key: public key is not a regular file";
constexpr char kLogKeyTooLarge[] = "_signing_is_valid_key: public key is larger than %lu bytes";
constexpr char kLogKeyTooManyLines[] = "_signing_is_valid_key: public key has more than %lu lines";

// The host's line reader keeps every line as a string of its own, so a key
// file is only handed to it when it is a regular file within the key-file
// bounds. It is opened without blocking, so a FIFO cannot stall the test,
// and is judged by the descriptor, so what is read is what was judged.
bool IsBoundedKeyFile(const std::string& path) {
    const int descriptor = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor == -1) {
        // The host's reader reports what it finds.
        return true;
    }
    struct stat status;
    bool accepted = fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
    if (!accepted) {
        print_log(kLogKeyNotAFile);
    } else if (static_cast<unsigned long long>(status.st_size) > key_file::kMaxSize) {
        print_log(kLogKeyTooLarge, key_file::kMaxSize);
        accepted = false;
    } else {
        unsigned long lines = 0;
        std::array<char, 65536> chunk;
        ssize_t count;
        while (accepted && (count = read(descriptor, chunk.data(), chunk.size())) > 0) {
            lines += static_cast<unsigned long>(std::count(chunk.data(), chunk.data() + count, '\n'));
            if (lines > key_file::kMaxLines) {
                print_log(kLogKeyTooManyLines, key_file::kMaxLines);
                accepted = false;
            }
        }
    }
    close(descriptor);
    return accepted;
}

} // namespace

void _signing_set_optional_prerequisite_status(session_t* session, int category) {
    if (category < kSigningWarningValidate ||
        category >= kSigningWarningValidate + static_cast<int>(kWarningMessages.size())) {
        throw ArgumentException("unknown optional prerequisite category " + std::to_string(category));
    }
    const PrerequisiteMessages& messages =
        kWarningMessages[static_cast<size_t>(category - kSigningWarningValidate)];
    std::string significance =
        env_get_string(session, contract::kSessionSignificance) + contract::kSignificanceWarning;
    print_log(contract::kLogOptionalPrerequisiteStatus, significance.c_str());
    env_set_string(session, contract::kSessionSignificance, significance.c_str());
    AppendDescriptions(session, messages);
}

namespace {

// Log lines of failures that the package-list walk survives: a key lookup
// or a component whose handling threw.
constexpr char kLogKeyLookupFailed[] = "signing_validate_package_list: public key lookup failed: %s";
constexpr char kLogValidationFailed[] = "signing_validate_package_list: validation ended early: %s";
constexpr char kUnknownExceptionText[] = "an exception of unknown type";

// Removes the run's private key folder however the run ends.
struct EndOfRunCleanup {
    EndOfRunCleanup() = default;
    EndOfRunCleanup(const EndOfRunCleanup&) = delete;
    EndOfRunCleanup& operator=(const EndOfRunCleanup&) = delete;
    ~EndOfRunCleanup() { KeyDownloadFolder::EndOfRun(); }
};

// The key location of steps that may throw (host operations, allocation):
// a lookup that throws gives no location, which the run then reports as a
// key that could not be obtained.
std::string ObtainKeyLocation(session_t* session) {
    try {
        std::string keyLocation = _signing_get_public_key(session);
        if (keyLocation.empty() || _signing_is_valid_key(keyLocation) != 0) {
            // Neither a user's key nor a download gave a usable key: the
            // host's local key becomes the user's key, which the second
            // lookup answers.
            std::string localKey =
                expand_operand(session, env_get_string(session, contract::kSessionLocalPublicKey), true);
            env_set_string(session, contract::kSessionSignature, localKey.c_str());
            keyLocation = _signing_get_public_key(session);
        }
        return keyLocation;
    } catch (const std::exception& error) {
        print_log(kLogKeyLookupFailed, error.what());
    } catch (...) {
        print_log(kLogKeyLookupFailed, kUnknownExceptionText);
    }
    return std::string();
}

// The plausibility test of the key; a test that throws (the host's line
// reader, allocation) counts as an invalid key.
bool IsValidKey(const std::string& keyLocation) {
    try {
        return _signing_is_valid_key(keyLocation) == 0;
    } catch (const std::exception& error) {
        print_log(kLogKeyLookupFailed, error.what());
    } catch (...) {
        print_log(kLogKeyLookupFailed, kUnknownExceptionText);
    }
    return false;
}

// Verifies one component; true when it failed. Whatever throws while it is
// handled (the host's operand expansion, file test or type, allocation) is
// the component's failure, logged as an RPM_ERROR result with the
// exception's text, and the walk goes on with the next component.
bool ValidateComponent(session_t* session, const Component& component, const std::string& keyLocation) {
    std::string path;
    try {
        path = expand_operand(session, component.packageFolder, true) + contract::kPackagePathSeparator +
               component.packageFile;
        // The type is only asked when the package file is there.
        if (file_exists(path, false) != 0 && component.type() == contract::kPackageType) {
            RPM_RESULT result = rpm_verify(path.c_str(), keyLocation.c_str());
            print_log(contract::kLogValidationResult, static_cast<int>(result.status), path.c_str(),
                      result.message != nullptr ? result.message : "");
            std::free(result.message);
            return result.status != RPM_SIGNED;
        }
        print_log(contract::kLogValidationNotAvailable, component.name.c_str());
        return false;
    } catch (const std::exception& error) {
        print_log(contract::kLogValidationResult, static_cast<int>(RPM_ERROR), path.c_str(), error.what());
    } catch (...) {
        print_log(contract::kLogValidationResult, static_cast<int>(RPM_ERROR), path.c_str(),
                  kUnknownExceptionText);
    }
    return true;
}

// Verifies every component of every product in order, reporting progress
// before each; failed is set when a component failed.
void WalkComponents(session_t* session, const std::string& keyLocation, bool& failed) {
    std::list<Product*>* products = ProductsOf(session);
    int32_t total = 0;
    if (products != nullptr) {
        for (const Product* product : *products) {
            if (product != nullptr) {
                total += static_cast<int32_t>(product->components.size());
            }
        }
    }
    if (total == 0) {
        total = 1;
    }

    int32_t progress = 0;
    if (products == nullptr) {
        return;
    }
    for (const Product* product : *products) {
        if (product == nullptr) {
            continue;
        }
        for (const Component* component : product->components) {
            if (component == nullptr) {
                continue;
            }
            // Written before the component is handled, so that it reaches
            // 100 with the last one.
            progress += kProgressStep;
            try {
                env_set_string(session, contract::kSessionOperationProgress,
                               inttostr(progress / total).c_str());
            } catch (...) {
                // Progress is only shown; the component is still verified.
            }
            if (ValidateComponent(session, *component, keyLocation)) {
                failed = true;
            }
        }
    }
}

int ValidatePackageList(session_t* session) {
    print_log(contract::kLogValidationStarted);
    env_set_string(session, contract::kSessionOperationProgress, contract::kProgressStart);

    const std::string keyLocation = ObtainKeyLocation(session);
    if (keyLocation.empty()) {
        print_log(contract::kLogValidationNoKeyLocation);
        _signing_set_optional_prerequisite_status(session, kSigningWarningDownload);
        return 1;
    }
    if (!IsValidKey(keyLocation)) {
        print_log(contract::kLogValidationKeyNotValid);
        _signing_set_optional_prerequisite_status(session, kSigningWarningValidate);
        return 1;
    }

    bool failed = false;
    try {
        WalkComponents(session, keyLocation, failed);
    } catch (const std::exception& error) {
        // The host could not give its products: nothing more can be
        // verified, and the run is a failure.
        print_log(kLogValidationFailed, error.what());
        failed = true;
    } catch (...) {
        print_log(kLogValidationFailed, kUnknownExceptionText);
        failed = true;
    }

    if (failed) {
        std::string significance =
            env_get_string(session, contract::kSessionSignificance) + contract::kSignificanceError;
        print_log(contract::kLogValidationSignificance, significance.c_str());
        env_set_string(session, contract::kSessionSignificance, significance.c_str());
        AppendDescriptions(session, kPackageFailureMessages);
    }
    print_log(contract::kLogValidationFinished);
    return failed ? 1 : 0;
}

// text followed by suffix. Built with append, which the standard library
// provides, so that the plug-in exports no string operator of its own.
std::string Joined(const std::string& text, const char* suffix) {
    std::string joined(text);
    joined.append(suffix);
    return joined;
}

} // namespace

extern "C" int signing_validate_package_list(session_t* session) {
    // A private key folder lives until the run ends, however it ends.
    EndOfRunCleanup cleanup;
    // Nothing may leave this C function: a host written in C would end with
    // std::terminate. What the host's own session operations throw outside
    // a component ends the run as a failure.
    try {
        return ValidatePackageList(session);
    } catch (const std::exception& error) {
        try {
            print_log(kLogValidationFailed, error.what());
        } catch (...) {
        }
    } catch (...) {
        try {
            print_log(kLogValidationFailed, kUnknownExceptionText);
        } catch (...) {
        }
    }
    return 1;
}

std::string _signing_get_command(const std::string& url, const std::string& outFile) {
    for (const DownloadTool& tool : kDownloadTools) {
        FILE* pipe = popen(tool.probe, contract::kPipeMode);
        if (pipe == nullptr) {
            print_log(contract::kLogCommandNotValidated);
            return std::string();
        }
        // Only the exit status of `which` matters; its output is drained so
        // that it never blocks on a full pipe.
        char chunk[kProbeReadSize];
        while (read(fileno(pipe), chunk, sizeof(chunk)) > 0) {
        }
        int status = pclose(pipe);
        if (status != -1 && WIFSIGNALED(status)) {
            int signal = WTERMSIG(status);
            print_log(contract::kLogCommandSignal, signal, strsignal(signal));
            return std::string();
        }
        if (status == 0) {
            // The buffer bounds the command; snprintf cuts a longer one.
            std::array<char, kCommandBufferSize> command{};
            std::snprintf(command.data(), command.size(), tool.commandTemplate, kDownloadTimeoutSeconds,
                          kDownloadTries, url.c_str(), outFile.c_str());
            return std::string(command.data());
        }
    }
    return std::string();
}

std::string _signing_get_public_key(session_t* session) {
    std::string defaultUrl = env_get_string(session, contract::kSessionDefaultUrl);
    std::string url = env_get_string(session, contract::kSessionSigningUrl);
    std::string signature = env_get_string(session, contract::kSessionSignature);
    std::string tempFolder = env_get_string(session, contract::kSessionTempFolder);

    if (!signature.empty()) {
        print_log(contract::kLogKeySpecifiedByUser, signature.c_str());
        return signature;
    }
    print_log(contract::kLogKeyWillBeDownloaded);

    const bool overridden = !url.empty();
    const std::string& base = overridden ? url : defaultUrl;
    const std::string updateId = FindUpdateId(session);
    std::string request = Joined(base, contract::kRequestSuffix);
    request += updateId;
    print_log(contract::kLogKeyRequest, request.c_str());

    // Every session value that enters the shell command is checked before
    // the command is made: the command is run by the shell with the
    // installer's rights.
    if (!IsAcceptedValue(overridden ? contract::kSessionSigningUrl : contract::kSessionDefaultUrl, base,
                         IsRequestCharacter, true) ||
        !IsAcceptedValue(contract::kEnvironmentUpdateId, updateId, IsRequestCharacter, false) ||
        !IsAcceptedValue(contract::kSessionTempFolder, tempFolder, IsFolderCharacter, true)) {
        return std::string();
    }
    if (tempFolder.empty()) {
        print_log(kLogRefusedNoFolder);
        return std::string();
    }
    struct stat folderStatus;
    if (stat(tempFolder.c_str(), &folderStatus) != 0 || !S_ISDIR(folderStatus.st_mode)) {
        print_log(kLogRefusedNotAFolder, tempFolder.c_str());
        return std::string();
    }
    // A command longer than the buffer would be cut, perhaps before its
    // output option. A private folder's name is as long as its pattern.
    const std::string longestFolder = KeyDownloadFolder::IsSafe(tempFolder)
                                          ? tempFolder
                                          : Joined(tempFolder, KeyDownloadFolder::kPrivateFolderName);
    if (LongestCommandLength(request, Joined(longestFolder, contract::kPublicKeyFileName)) >=
        kCommandBufferSize) {
        print_log(kLogRefusedLength, static_cast<int>(kCommandBufferSize - 1));
        return std::string();
    }
    std::string folderError;
    const std::string keyFolder = KeyDownloadFolder::For(tempFolder, folderError);
    if (keyFolder.empty()) {
        print_log(kLogRefusedPrivateFolder, tempFolder.c_str(), folderError.c_str());
        return std::string();
    }

    std::string outFile = Joined(keyFolder, contract::kPublicKeyFileName);
    std::string command = _signing_get_command(request, outFile);
    if (command.empty()) {
        return std::string();
    }
    print_log(contract::kLogKeyCommand, command.c_str());

    for (int attempt = 0; attempt < kDownloadAttempts; ++attempt) {
        std::string protocol = SecureProtocolFor(command, attempt);
        // The secure variant is only logged; every attempt runs the plain
        // command.
        std::string secureCommand = command;
        secureCommand.append(contract::kSecureCommandJoint).append(protocol);
        print_log(contract::kLogKeySecureCommand, secureCommand.c_str());
        print_log(contract::kLogKeySecureProtocols, protocol.c_str());
        // Whatever an earlier run or attempt left, a link put there
        // included, goes before the tool writes the file anew.
        if (!RemoveEarlierKey(outFile)) {
            return std::string();
        }
        if (CallWebService(command, outFile)) {
            print_log(contract::kLogKeyObtained, outFile.c_str());
            return outFile;
        }
    }
    return std::string();
}

int _signing_is_valid_key(const std::string& path) {
    if (file_exists(path, false) == 0) {
        return 1;
    }
    if (!IsBoundedKeyFile(path)) {
        return 1;
    }
    std::list<std::string> lines = readContentOfTextFile(path);
    for (const std::string& line : lines) {
        if (line.find(contract::kInvalidKeyMarker) != std::string::npos) {
            print_log(contract::kLogKeyIncorrectValue);
            return 1;
        }
    }
    return 0;
}
