// The explanations of one verify run: the key is judged once, when the
// first answer needs it (verbose output, or an error answer whose exit
// class depends on it), in a private folder removed afterwards.
#ifndef HOST_PROGRAM_VERIFYEXPLAINER_H
#define HOST_PROGRAM_VERIFYEXPLAINER_H

#include "Explanation.h"
#include "KeyProbe.h"
#include "TemporaryFolder.h"

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace host {

struct ExplainedAnswer {
    int exitClass = 0;                // 0, kExitFailure or kExitNotChecked
    std::vector<std::string> details; // the checks (verbose only)
    std::vector<std::string> advice;  // one line per known failure
};

class VerifyExplainer {
public:
    // verbose: every answer gets its checks and the key's description.
    VerifyExplainer(VerifyFunction verify, const std::string& keyPath, bool verbose);

    ExplainedAnswer Explain(const std::string& packagePath, const PluginAnswer& answer);

    // The key's judgement, made on first use.
    const KeyVerdict& Key();

private:
    VerifyFunction m_Verify;
    std::string m_KeyPath;
    bool m_Verbose;
    TemporaryFolder m_Folder;
    std::unique_ptr<KeyVerdict> m_Key;
};

// Prints "Key file PATH:" and the key's description and advice.
void PrintKeyExplanation(std::FILE* stream, const std::string& keyPath, const KeyVerdict& key);

// Prints an explained answer under the verdict line: "    check" and
// "    advice: ..." lines on the stream.
void PrintExplanation(std::FILE* stream, const ExplainedAnswer& explained);

} // namespace host

#endif
