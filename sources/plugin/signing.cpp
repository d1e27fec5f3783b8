// Host plug-in interface: validating the host's package list and obtaining
// the public key.
#include "signing.h"

#include "ContractTexts.h"
#include "Exceptions.h"
#include "WeakHostSymbols.h"
#include "rpmutil.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <list>
#include <memory>
#include <string>
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

// Runs the download command once; true when it exited with status 0. Its
// output is not read: the tool writes the key into the output file itself.
bool CallWebService(const std::string& command) {
    std::unique_ptr<char, FreeDeleter> buffer(static_cast<char*>(std::calloc(kWebServiceBufferSize, 1)));
    if (!buffer) {
        print_log(contract::kLogWebServiceNoMemory);
        return false;
    }
    FILE* pipe = popen(command.c_str(), contract::kPipeMode);
    if (pipe == nullptr) {
        print_log(contract::kLogWebServiceNotExecuted);
        return false;
    }
    int status = pclose(pipe);
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

extern "C" int signing_validate_package_list(session_t* session) {
    print_log(contract::kLogValidationStarted);
    env_set_string(session, contract::kSessionOperationProgress, contract::kProgressStart);

    std::string keyLocation = _signing_get_public_key(session);
    if (keyLocation.empty() || _signing_is_valid_key(keyLocation) != 0) {
        // Neither a user's key nor a download gave a usable key: the host's
        // local key becomes the user's key, which the second lookup answers.
        std::string localKey =
            expand_operand(session, env_get_string(session, contract::kSessionLocalPublicKey), true);
        env_set_string(session, contract::kSessionSignature, localKey.c_str());
        keyLocation = _signing_get_public_key(session);
    }
    if (keyLocation.empty()) {
        print_log(contract::kLogValidationNoKeyLocation);
        _signing_set_optional_prerequisite_status(session, kSigningWarningDownload);
        return 1;
    }
    if (_signing_is_valid_key(keyLocation) != 0) {
        print_log(contract::kLogValidationKeyNotValid);
        _signing_set_optional_prerequisite_status(session, kSigningWarningValidate);
        return 1;
    }

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
    bool failed = false;
    if (products != nullptr) {
        for (const Product* product : *products) {
            if (product == nullptr) {
                continue;
            }
            for (const Component* component : product->components) {
                if (component == nullptr) {
                    continue;
                }
                // Written before the component is handled, so that it
                // reaches 100 with the last one.
                progress += kProgressStep;
                env_set_string(session, contract::kSessionOperationProgress,
                               inttostr(progress / total).c_str());

                std::string path = expand_operand(session, component->packageFolder, true) +
                                   contract::kPackagePathSeparator + component->packageFile;
                // The type is only asked when the package file is there.
                if (file_exists(path, false) != 0 && component->type() == contract::kPackageType) {
                    RPM_RESULT result = rpm_verify(path.c_str(), keyLocation.c_str());
                    print_log(contract::kLogValidationResult, static_cast<int>(result.status), path.c_str(),
                              result.message != nullptr ? result.message : "");
                    std::free(result.message);
                    if (result.status != RPM_SIGNED) {
                        failed = true;
                    }
                } else {
                    print_log(contract::kLogValidationNotAvailable, component->name.c_str());
                }
            }
        }
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

    std::string request = (url.empty() ? defaultUrl : url) + contract::kRequestSuffix;
    request += FindUpdateId(session);
    print_log(contract::kLogKeyRequest, request.c_str());

    std::string outFile = tempFolder + contract::kPublicKeyFileName;
    std::string command = _signing_get_command(request, outFile);
    if (command.empty()) {
        return std::string();
    }
    print_log(contract::kLogKeyCommand, command.c_str());

    for (int attempt = 0; attempt < kDownloadAttempts; ++attempt) {
        std::string protocol = SecureProtocolFor(command, attempt);
        // The secure variant is only logged; every attempt runs the plain
        // command.
        std::string secureCommand = command + contract::kSecureCommandJoint + protocol;
        print_log(contract::kLogKeySecureCommand, secureCommand.c_str());
        print_log(contract::kLogKeySecureProtocols, protocol.c_str());
        if (CallWebService(command)) {
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
    std::list<std::string> lines = readContentOfTextFile(path);
    for (const std::string& line : lines) {
        if (line.find(contract::kInvalidKeyMarker) != std::string::npos) {
            print_log(contract::kLogKeyIncorrectValue);
            return 1;
        }
    }
    return 0;
}
