#include "RunVerdict.h"

#include "Explanation.h"
#include "ProgramError.h"
#include "SafeText.h"
#include "VerifyExplainer.h"

#include <cstdio>
#include <memory>

namespace host {
namespace {

// The file name the plug-in gives a downloaded key in TEMP_FOLDER.
constexpr char kDownloadedKey[] = "/PUBLIC_KEY.PUB";

std::string NotVerifiedReason(const ComponentOutcome& outcome, const std::vector<ComponentNotice>& notices,
                              size_t index) {
    std::string reason;
    for (const ComponentNotice& notice : notices) {
        if (notice.index == index) {
            reason += (reason.empty() ? "" : "; ") + notice.problem;
        }
    }
    if (outcome.kind == ComponentOutcome::Kind::NotChecked) {
        return reason.empty() ? "not checked: no valid public key was obtained" : reason;
    }
    if (file_exists(outcome.path, false) == 0) {
        reason +=
            (reason.empty() ? "" : "; ") + std::string("the package file ") + outcome.path + " is missing";
    }
    return reason.empty() ? "the plug-in did not verify it" : reason;
}

const char* Meaning(int exitCode) {
    switch (exitCode) {
    case kExitSuccess:
        return "every package that was verified is signed";
    case kExitFailure:
        return "a package failed its signature or hash check";
    default:
        return "nothing failed, but something could not be checked";
    }
}

} // namespace

RunVerdict RunJudge::Judge(int result, HostSession& session, const RunReport& report,
                           const std::vector<ComponentNotice>& notices, bool strict, VerifyFunction verify) {
    RunVerdict verdict;
    verdict.pluginResult = result;
    std::string keyPath = session.Value("signature");
    if (keyPath.empty()) {
        keyPath = session.Value("TEMP_FOLDER") + kDownloadedKey;
    }
    std::unique_ptr<VerifyExplainer> explainer;
    bool anyVerifiedFailure = false;
    const std::vector<ComponentOutcome>& components = report.Components();
    for (size_t index = 0; index < components.size(); ++index) {
        const ComponentOutcome& outcome = components[index];
        const std::string label = outcome.product + "/" + outcome.name;
        if (outcome.kind == ComponentOutcome::Kind::Verified) {
            if (outcome.status == 0) {
                continue;
            }
            anyVerifiedFailure = true;
            if (!explainer) {
                explainer = std::make_unique<VerifyExplainer>(verify, keyPath, false);
            }
            const ExplainedAnswer explained = explainer->Explain(
                outcome.path, PluginAnswer{outcome.status, std::string(), outcome.message});
            verdict.exitCode = CombineExitClasses(verdict.exitCode, explained.exitClass);
            for (const std::string& advice : explained.advice) {
                verdict.advice.push_back(label);
                verdict.advice.back().append(": ").append(advice);
            }
        } else if (strict && ComponentCheck::IsMeantAsRpm(outcome.type)) {
            verdict.unverified.push_back(label + ": " + NotVerifiedReason(outcome, notices, index));
            verdict.exitCode = CombineExitClasses(verdict.exitCode, kExitNotChecked);
        }
    }
    // The plug-in stopped before the packages: no valid key.
    if (result != 0 && !anyVerifiedFailure) {
        verdict.exitCode = CombineExitClasses(verdict.exitCode, kExitNotChecked);
    }
    return verdict;
}

void RunJudge::Print(const RunVerdict& verdict, bool strict) {
    if (!verdict.advice.empty()) {
        std::printf("Advice:\n");
        for (const std::string& line : verdict.advice) {
            std::printf("  %s\n", SafeText::Escape(line).c_str());
        }
    }
    if (strict) {
        if (verdict.unverified.empty()) {
            std::printf("Strict check: every component of type rpm was verified\n");
        } else {
            std::printf("Strict check: %zu component%s of type rpm %s not verified:\n",
                        verdict.unverified.size(), verdict.unverified.size() == 1 ? "" : "s",
                        verdict.unverified.size() == 1 ? "was" : "were");
            for (const std::string& line : verdict.unverified) {
                std::printf("  FAIL  %s\n", SafeText::Escape(line).c_str());
            }
        }
    }
    // The summary's result line already says it when the two agree.
    if (verdict.exitCode != verdict.pluginResult || !verdict.advice.empty() || strict) {
        std::printf("Exit code: %d - %s\n", verdict.exitCode, Meaning(verdict.exitCode));
    }
}

} // namespace host
