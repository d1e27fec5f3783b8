// signing-host verify: rpm_verify on each package, one record per package,
// spread over worker processes when there are several packages.
#include "Commands.h"

#include "CommandLine.h"
#include "CommonOptions.h"
#include "HostLog.h"
#include "LiveOutput.h"
#include "LogRouting.h"
#include "PackageList.h"
#include "PackageVerdict.h"
#include "Plugin.h"
#include "ProgramError.h"
#include "RpmStatusNames.h"
#include "SafeText.h"
#include "VerifyExplainer.h"
#include "VerifyOutput.h"
#include "WorkerPool.h"
#include "rpmutil.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <sys/stat.h>

namespace host {
namespace {

constexpr unsigned long kMaxJobs = 1024;

// One rpm_verify call; the message is copied and freed at once.
PackageVerdict VerifyOne(VerifyFunction verify, const std::string& package, const std::string& key) {
    PackageVerdict verdict;
    verdict.path = package;
    try {
        RPM_RESULT result = verify(package.c_str(), key.c_str());
        verdict.status = static_cast<int>(result.status);
        verdict.statusName = RpmStatusName(result.status);
        verdict.message = result.message != nullptr ? result.message : "";
        std::free(result.message);
    } catch (const std::exception& error) {
        // rpm_verify lets a read failure of the package through.
        verdict.status = -1;
        verdict.statusName = "EXCEPTION";
        verdict.message = error.what();
    }
    return verdict;
}

// The packages named on the command line, then those listed with
// --files-from, then those found with --recursive.
std::vector<std::string> PackagesOf(const CommandLine& line) {
    std::vector<std::string> packages = line.Positionals();
    if (line.Has("--files-from")) {
        std::vector<std::string> listed = PackageList::Read(line.Value("--files-from"), line.Has("-0"));
        packages.insert(packages.end(), listed.begin(), listed.end());
    }
    if (line.Has("--recursive")) {
        std::vector<std::string> found = PackageList::Find(line.Value("--recursive"));
        packages.insert(packages.end(), found.begin(), found.end());
    }
    return packages;
}

size_t JobsOf(const CommandLine& line) {
    if (!line.Has("--jobs")) {
        return WorkerPool::DefaultJobs();
    }
    const std::string value = line.Value("--jobs");
    char* end = nullptr;
    errno = 0;
    unsigned long jobs = std::strtoul(value.c_str(), &end, 10);
    if (value[0] < '0' || value[0] > '9' || *end != '\0' || errno != 0 || jobs == 0 || jobs > kMaxJobs) {
        throw UsageError("--jobs needs a number of worker processes from 1 to " + std::to_string(kMaxJobs) +
                         ", not '" + value + "'");
    }
    return jobs;
}

VerifyOutput::Format FormatOf(const CommandLine& line) {
    if (line.Has("--json") && line.Has("--json-lines")) {
        throw UsageError("--json and --json-lines cannot be given together");
    }
    if (line.Has("--json")) {
        return VerifyOutput::Format::Json;
    }
    return line.Has("--json-lines") ? VerifyOutput::Format::JsonLines : VerifyOutput::Format::Text;
}

} // namespace

int VerifyCommand(const std::vector<std::string>& arguments) {
    CommandLine line(arguments, WithCommonOptions({{"--key", true},
                                                   {"--files-from", true},
                                                   {"--recursive", true},
                                                   {"--jobs", true},
                                                   {"--json-lines", false},
                                                   {"-0", false},
                                                   {"-v", false},
                                                   {"--verbose", false}}));
    if (PrintedHelpOrVersion(line, kVerifyHelp)) {
        return kExitSuccess;
    }
    if (!line.Has("--key")) {
        throw UsageError("the public key is missing: give an armored public key file with --key KEY");
    }
    if (line.Positionals().empty() && !line.Has("--files-from") && !line.Has("--recursive")) {
        throw UsageError("no package given: name at least one package file after the options");
    }
    const std::string key = line.Value("--key");
    struct stat status;
    if (stat(key.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
        throw NotCheckedError("the key file '" + key + "' does not exist or is not a file");
    }
    const VerifyOutput::Format format = FormatOf(line);
    const size_t jobs = JobsOf(line);
    const std::vector<std::string> packages = PackagesOf(line);

    Plugin plugin(ChosenPluginPath(line));
    VerifyFunction verify = plugin.Entry<VerifyFunction>("rpm_verify");

    const bool quiet = line.Has("--quiet");
    LiveOutput live(stderr, LiveOutput::IsTerminal(stderr));
    LogRouting log(line.Value("--log"), [&live, quiet](const std::string& text) {
        if (!quiet) {
            live.LogLine(text);
        }
    });
    VerifyOutput output(stdout, format, line.Has("-0"), plugin.Path(), key);

    // Explanations are made in this process: the key is judged once, and a
    // package is read again only for an error answer or with -v.
    const bool verbose = (line.Has("-v") || line.Has("--verbose")) && format == VerifyOutput::Format::Text;
    VerifyExplainer explainer(verify, key, verbose);
    if (verbose) {
        PrintKeyExplanation(stdout, key, explainer.Key());
    }
    int exitCode = kExitSuccess;
    auto explain = [&](const PackageVerdict& verdict) {
        const ExplainedAnswer explained = explainer.Explain(
            verdict.path, PluginAnswer{verdict.status, verdict.statusName, verdict.message});
        exitCode = CombineExitClasses(exitCode, explained.exitClass);
        if (verbose) {
            PrintExplanation(stdout, explained);
            std::fflush(stdout);
        } else if (format == VerifyOutput::Format::Text) {
            for (const std::string& advice : explained.advice) {
                std::fprintf(stderr, "%s: %s\n", SafeText::Escape(verdict.path).c_str(),
                             SafeText::Escape(advice).c_str());
            }
        }
    };

    size_t done = 0;
    auto counted = [&](size_t index) {
        ++done;
        live.Count(done, packages.size(), index + 1 < packages.size() ? packages[index + 1] : std::string());
        // The log lines were written or handed on; the memory copy is not
        // needed for the next package.
        HostLog::Clear();
    };
    live.Count(0, packages.size(), packages.empty() ? std::string() : packages[0]);
    if (jobs <= 1 || packages.size() <= 1) {
        for (size_t index = 0; index < packages.size(); ++index) {
            PackageVerdict verdict = VerifyOne(verify, packages[index], key);
            live.Above([&] {
                output.Package(index, verdict);
                explain(verdict);
            });
            counted(index);
        }
    } else {
        WorkerPool::Run(
            packages.size(), jobs,
            [] {
                // The main process writes the log: the worker only keeps
                // its lines to send them with each answer.
                HostLog::SetListener(nullptr);
                HostLog::WriteNowhere();
                HostLog::Clear();
            },
            [&](size_t index) {
                PackageVerdict verdict = VerifyOne(verify, packages[index], key);
                verdict.logLines = HostLog::TakeLines();
                return verdict;
            },
            [&](size_t index, PackageVerdict& verdict) {
                verdict.path = packages[index];
                live.Above([&] {
                    for (const std::string& text : verdict.logLines) {
                        HostLog::Write(text);
                    }
                    output.Package(index, verdict);
                    explain(verdict);
                });
                counted(index);
            });
    }
    live.Finish();

    output.Finish(exitCode);
    return exitCode;
}

} // namespace host
