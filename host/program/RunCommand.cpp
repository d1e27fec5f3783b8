// signing-host run: a session built from a manifest, handed to the plug-in's
// signing_validate_package_list, with live log and progress and a summary.
#include "Commands.h"

#include "CommandLine.h"
#include "CommonOptions.h"
#include "ComponentCheck.h"
#include "HostSession.h"
#include "LiveOutput.h"
#include "LogRouting.h"
#include "Manifest.h"
#include "MessageCatalogue.h"
#include "Plugin.h"
#include "ProgramError.h"
#include "RpmStatusNames.h"
#include "RunJsonLines.h"
#include "RunReport.h"
#include "RunVerdict.h"
#include "SafeText.h"
#include "TemporaryFolder.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>

namespace host {
namespace {

using ValidateFunction = int (*)(session_t*);
using OrderedJson = nlohmann::ordered_json;

// The listeners of one run; removed before the session and the report go.
class SessionListening {
public:
    SessionListening(HostSession& session, RunReport& report, LiveOutput& live, RunJsonLines& stream)
        : m_Session(session) {
        m_Session.SetWriteListener(
            [&report, &live, &stream](const std::string& key, const std::string& value) {
                report.OnSessionWrite(key, value);
                if (key == "operation_progress") {
                    // The first write starts the run; each later one starts the
                    // next component, so the ones before it are done.
                    size_t written = report.ProgressValues().size();
                    live.Progress(value, report.CurrentLabel(), written >= 2 ? written - 2 : 0,
                                  report.Components().size());
                    stream.WriteDone(report);
                }
            });
    }
    ~SessionListening() { m_Session.SetWriteListener(nullptr); }
    SessionListening(const SessionListening&) = delete;
    SessionListening& operator=(const SessionListening&) = delete;

private:
    HostSession& m_Session;
};

struct Prerequisite {
    std::string significance;
    std::string severity;
    std::string shortId;
    std::string fullId;
};

std::vector<Prerequisite> ReadPrerequisites(const HostSession& session) {
    std::vector<std::string> significance = SplitPrerequisiteList(session.Value("SIGNIFICANCE"));
    std::vector<std::string> shortIds = SplitPrerequisiteList(session.Value("SHORT_DESC"));
    std::vector<std::string> fullIds = SplitPrerequisiteList(session.Value("FULL_DESC"));
    size_t count = std::max(significance.size(), std::max(shortIds.size(), fullIds.size()));
    std::vector<Prerequisite> list;
    for (size_t i = 0; i < count; ++i) {
        Prerequisite entry;
        entry.significance = i < significance.size() ? significance[i] : std::string();
        entry.severity =
            entry.significance == "1" ? "error" : (entry.significance == "0" ? "warning" : "entry");
        entry.shortId = i < shortIds.size() ? shortIds[i] : std::string();
        entry.fullId = i < fullIds.size() ? fullIds[i] : std::string();
        list.push_back(entry);
    }
    return list;
}

std::string OutcomeText(const ComponentOutcome& outcome) {
    switch (outcome.kind) {
    case ComponentOutcome::Kind::Verified:
        return RpmStatusName(outcome.status) + " (" + std::to_string(outcome.status) + ") " + outcome.message;
    case ComponentOutcome::Kind::NotAvailable:
        if (file_exists(outcome.path, false) == 0) {
            return "not verified: the package file " + outcome.path + " is missing";
        }
        return "not verified: its type \"" + outcome.type + "\" is not \"rpm\"";
    case ComponentOutcome::Kind::NotChecked:
        break;
    }
    return "not checked: the plug-in stopped before the packages (no valid public key)";
}

const char* OutcomeMark(const ComponentOutcome& outcome) {
    switch (outcome.kind) {
    case ComponentOutcome::Kind::Verified:
        return outcome.status == 0 ? "PASS" : "FAIL";
    case ComponentOutcome::Kind::NotAvailable:
        return "SKIP";
    case ComponentOutcome::Kind::NotChecked:
        break;
    }
    return "----";
}

std::string ResultText(int result, const RunReport& report) {
    if (result == 0) {
        return "every package that was verified is signed";
    }
    if (report.AnyFailed()) {
        return "a package failed the signature check";
    }
    return "no valid public key was obtained, so no package was checked";
}

void PrintSummary(const std::string& manifest, const HostSession& session, const RunReport& report,
                  int result) {
    std::printf("Summary of %s\n", manifest.c_str());
    std::printf("Components:\n");
    if (report.Components().empty()) {
        std::printf("  (none)\n");
    }
    for (const ComponentOutcome& outcome : report.Components()) {
        std::printf("  %s  %s/%s: %s\n", OutcomeMark(outcome), outcome.product.c_str(), outcome.name.c_str(),
                    OutcomeText(outcome).c_str());
    }
    std::printf("Prerequisites (SIGNIFICANCE \"%s\"):\n", session.Value("SIGNIFICANCE").c_str());
    std::vector<Prerequisite> prerequisites = ReadPrerequisites(session);
    if (prerequisites.empty()) {
        std::printf("  none recorded\n");
    }
    for (const Prerequisite& entry : prerequisites) {
        std::printf("  %-8s %s [%s]\n", entry.severity.c_str(),
                    MessageCatalogue::Describe(entry.shortId).c_str(), entry.shortId.c_str());
        std::printf("  %-8s %s [%s]\n", "", MessageCatalogue::Describe(entry.fullId).c_str(),
                    entry.fullId.c_str());
    }
    std::printf("Result: %d - %s\n", result, ResultText(result, report).c_str());
}

OrderedJson Described(const std::string& identifier) {
    OrderedJson item;
    item["id"] = identifier;
    const char* sentence = MessageCatalogue::Find(identifier);
    // Always a text: empty when the catalogue has no sentence for it.
    item["text"] = sentence != nullptr ? sentence : "";
    return item;
}

void PrintJson(const std::string& manifest, const std::string& plugin, const HostSession& session,
               const RunReport& report, int result) {
    OrderedJson document;
    document["schema"] = 1;
    document["command"] = "run";
    document["manifest"] = manifest;
    document["plugin"] = plugin;
    document["result"] = result;
    document["components"] = OrderedJson::array();
    for (const ComponentOutcome& outcome : report.Components()) {
        OrderedJson item = RunJsonLines::ComponentRecord(outcome);
        document["components"].push_back(item);
    }
    document["prerequisites"] = OrderedJson::array();
    for (const Prerequisite& entry : ReadPrerequisites(session)) {
        OrderedJson item;
        item["significance"] = entry.significance;
        item["severity"] = entry.severity;
        item["short"] = Described(entry.shortId);
        item["full"] = Described(entry.fullId);
        document["prerequisites"].push_back(item);
    }
    document["progress"] = report.ProgressValues();
    document["session"] = OrderedJson::object();
    for (const auto& value : session.Values()) {
        document["session"][value.first] = value.second;
    }
    document["log"] = HostLog::Lines();
    std::printf("%s\n", document.dump(2, ' ', false, OrderedJson::error_handler_t::replace).c_str());
}

// run --key: the key file as an absolute path, so that the plug-in finds
// it whatever folder it works in.
std::string KeyOptionPath(const std::string& key) {
    struct stat status;
    if (stat(key.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
        throw NotCheckedError("the key file '" + key + "' does not exist or is not a file");
    }
    std::error_code error;
    const std::filesystem::path absolute = std::filesystem::absolute(key, error);
    return error ? key : absolute.lexically_normal().string();
}

} // namespace

int RunCommand(const std::vector<std::string>& arguments) {
    CommandLine line(arguments,
                     WithCommonOptions({{"--key", true}, {"--strict", false}, {"--json-lines", false}}));
    if (PrintedHelpOrVersion(line, kRunHelp)) {
        return kExitSuccess;
    }
    if (line.Positionals().empty()) {
        throw UsageError("the manifest is missing: give the path of a JSON manifest");
    }
    if (line.Positionals().size() > 1) {
        throw UsageError("only one manifest can be given, but '" + line.Positionals()[1] + "' follows '" +
                         line.Positionals()[0] + "'");
    }
    const std::string manifestPath = line.Positionals()[0];

    // Everything that can fail is checked before the plug-in runs.
    Manifest manifest = Manifest::Load(manifestPath);
    Plugin plugin(ChosenPluginPath(line));
    ValidateFunction validate = plugin.Entry<ValidateFunction>("signing_validate_package_list");
    VerifyFunction verify = plugin.Entry<VerifyFunction>("rpm_verify");

    HostSession session;
    manifest.Apply(session);
    if (line.Has("--key")) {
        session.SetValue("signature", KeyOptionPath(line.Value("--key")));
    }
    const std::vector<ComponentNotice> notices = ComponentCheck::Inspect(session);
    for (const ComponentNotice& notice : notices) {
        std::fprintf(stderr, "signing-host run: warning: %s: %s\n", SafeText::Escape(notice.label).c_str(),
                     SafeText::Escape(notice.problem).c_str());
    }
    TemporaryFolder temporary;
    if (!session.HasValue("TEMP_FOLDER")) {
        session.SetValue("TEMP_FOLDER", temporary.Create());
    }

    if (line.Has("--json") && line.Has("--json-lines")) {
        throw UsageError("--json and --json-lines cannot be given together");
    }
    RunReport report(session);
    LiveOutput live(stderr, LiveOutput::IsTerminal(stderr));
    RunJsonLines stream(stdout, line.Has("--json-lines"));
    int result;
    {
        const bool quiet = line.Has("--quiet");
        LogRouting log(line.Value("--log"), [&report, &live, quiet](const std::string& text) {
            report.OnLogLine(text);
            if (!quiet) {
                live.LogLine(text);
            }
        });
        SessionListening listening(session, report, live, stream);
        try {
            result = validate(&session);
        } catch (const std::exception& error) {
            live.Finish();
            throw SetupError(std::string("signing_validate_package_list ended with an exception: ") +
                             error.what());
        }
        live.Finish();
    }

    const bool strict = line.Has("--strict");
    const RunVerdict verdict = RunJudge::Judge(result, session, report, notices, strict, verify);
    if (line.Has("--json-lines")) {
        stream.Finish(report, manifestPath, plugin.Path(), result, verdict.exitCode);
    } else if (line.Has("--json")) {
        PrintJson(manifestPath, plugin.Path(), session, report, result);
    } else {
        PrintSummary(manifestPath, session, report, result);
        RunJudge::Print(verdict, strict);
    }
    std::fflush(stdout);
    return verdict.exitCode;
}

} // namespace host
