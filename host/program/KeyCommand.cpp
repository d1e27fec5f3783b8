// signing-host key KEYFILE: what the key file holds and whether the plug-in
// can use it; and signing-host explain, which is verify -v.
#include "Commands.h"

#include "CommandLine.h"
#include "CommonOptions.h"
#include "Explanation.h"
#include "LogRouting.h"
#include "Plugin.h"
#include "ProgramError.h"
#include "TemporaryFolder.h"
#include "VerifyExplainer.h"

#include <nlohmann/json.hpp>

#include <cstdio>

namespace host {

int ExplainCommand(const std::vector<std::string>& arguments) {
    std::vector<std::string> verbose = arguments;
    verbose.insert(verbose.begin(), "-v");
    return VerifyCommand(verbose);
}

int KeyCommand(const std::vector<std::string>& arguments) {
    CommandLine line(arguments, WithCommonOptions({}));
    if (PrintedHelpOrVersion(line, kKeyHelp)) {
        return kExitSuccess;
    }
    if (line.Positionals().size() != 1) {
        throw UsageError(line.Positionals().empty()
                             ? "the key file is missing: give the path of a public key file"
                             : "only one key file can be given");
    }
    const std::string keyPath = line.Positionals()[0];
    Plugin plugin(ChosenPluginPath(line));
    VerifyFunction verify = plugin.Entry<VerifyFunction>("rpm_verify");
    // The probes' log lines are the plug-in's own; they go only to --log.
    LogRouting log(line.Value("--log"), [](const std::string&) {});
    TemporaryFolder folder;
    KeyProbe probe(verify, folder.Create());
    const KeyVerdict key = Explanation::JudgeKey(keyPath, probe);

    if (line.Has("--json")) {
        nlohmann::ordered_json document;
        document["command"] = "key";
        document["key"] = keyPath;
        document["usable"] = key.usable;
        document["loaded"] = key.loaded;
        document["checkedKeyId"] = key.checkedKeyId;
        document["keys"] = nlohmann::ordered_json::array();
        for (const KeyBlock& block : key.file.keys) {
            nlohmann::ordered_json item;
            item["keyId"] = block.primary.keyId;
            item["fingerprint"] = block.primary.fingerprint;
            item["algorithm"] = OpenPgpPackets::AlgorithmName(block.primary.algorithm);
            item["bits"] = block.primary.bits;
            item["userIds"] = block.userIds;
            item["subkeys"] = nlohmann::ordered_json::array();
            for (const KeySubkey& subkey : block.subkeys) {
                item["subkeys"].push_back({{"keyId", subkey.key.keyId},
                                           {"algorithm", OpenPgpPackets::AlgorithmName(subkey.key.algorithm)},
                                           {"bits", subkey.key.bits},
                                           {"signs", subkey.canSign}});
            }
            document["keys"].push_back(item);
        }
        document["details"] = key.details;
        document["advice"] = key.advice;
        std::printf("%s\n",
                    document.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace).c_str());
    } else {
        PrintKeyExplanation(stdout, keyPath, key);
    }
    std::fflush(stdout);
    return key.usable ? kExitSuccess : kExitNotChecked;
}

} // namespace host
