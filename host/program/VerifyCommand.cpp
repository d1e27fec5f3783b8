// signing-host verify: rpm_verify on each package, one line per package.
#include "Commands.h"

#include "CommandLine.h"
#include "CommonOptions.h"
#include "LiveOutput.h"
#include "LogRouting.h"
#include "Plugin.h"
#include "ProgramError.h"
#include "RpmStatusNames.h"
#include "VerifyExplainer.h"
#include "rpmutil.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <cstdlib>
#include <sys/stat.h>

namespace host {
namespace {

struct PackageResult {
    std::string path;
    int status;
    std::string statusName;
    std::string message;
};

// One rpm_verify call; the message is copied and freed at once.
PackageResult VerifyOne(VerifyFunction verify, const std::string& package, const std::string& key) {
    try {
        RPM_RESULT result = verify(package.c_str(), key.c_str());
        PackageResult outcome{package, static_cast<int>(result.status), RpmStatusName(result.status),
                              result.message != nullptr ? result.message : ""};
        std::free(result.message);
        return outcome;
    } catch (const std::exception& error) {
        // rpm_verify lets a read failure of the package through.
        return PackageResult{package, -1, "EXCEPTION", error.what()};
    }
}

} // namespace

int VerifyCommand(const std::vector<std::string>& arguments) {
    CommandLine line(arguments, WithCommonOptions({{"--key", true}, {"-v", false}, {"--verbose", false}}));
    if (PrintedHelpOrVersion(line, kVerifyHelp)) {
        return kExitSuccess;
    }
    if (!line.Has("--key")) {
        throw UsageError("the public key is missing: give an armored public key file with --key KEY");
    }
    if (line.Positionals().empty()) {
        throw UsageError("no package given: name at least one package file after the options");
    }
    const std::string key = line.Value("--key");
    struct stat status;
    if (stat(key.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
        throw NotCheckedError("the key file '" + key + "' does not exist or is not a file");
    }

    Plugin plugin(ChosenPluginPath(line));
    VerifyFunction verify = plugin.Entry<VerifyFunction>("rpm_verify");

    const bool json = line.Has("--json");
    LiveOutput live(stderr, false);
    LogRouting log(line.Value("--log"), [&live](const std::string& text) { live.LogLine(text); });

    const bool verbose = line.Has("-v") || line.Has("--verbose");
    VerifyExplainer explainer(verify, key, verbose);
    if (verbose && !json) {
        PrintKeyExplanation(stdout, key, explainer.Key());
    }
    int exitCode = kExitSuccess;

    std::vector<PackageResult> results;
    bool allSigned = true;
    for (const std::string& package : line.Positionals()) {
        PackageResult result = VerifyOne(verify, package, key);
        allSigned = allSigned && result.status == RPM_SIGNED;
        const ExplainedAnswer explained =
            explainer.Explain(package, PluginAnswer{result.status, result.statusName, result.message});
        exitCode = CombineExitClasses(exitCode, explained.exitClass);
        if (!json) {
            if (result.status >= 0) {
                std::printf("%s: %s (%d) %s\n", result.path.c_str(), result.statusName.c_str(), result.status,
                            result.message.c_str());
            } else {
                std::printf("%s: %s %s\n", result.path.c_str(), result.statusName.c_str(),
                            result.message.c_str());
            }
            if (verbose) {
                PrintExplanation(stdout, explained);
            } else {
                for (const std::string& advice : explained.advice) {
                    std::fprintf(stderr, "%s: %s\n", result.path.c_str(), advice.c_str());
                }
            }
            std::fflush(stdout);
        }
        results.push_back(std::move(result));
    }

    if (json) {
        nlohmann::ordered_json document;
        document["command"] = "verify";
        document["plugin"] = plugin.Path();
        document["key"] = key;
        document["allSigned"] = allSigned;
        document["packages"] = nlohmann::ordered_json::array();
        for (const PackageResult& result : results) {
            nlohmann::ordered_json item;
            item["path"] = result.path;
            item["status"] = result.status;
            item["statusName"] = result.statusName;
            item["message"] = result.message;
            document["packages"].push_back(item);
        }
        std::printf("%s\n",
                    document.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace).c_str());
    }
    return exitCode;
}

} // namespace host
