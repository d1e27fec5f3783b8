#include "VerifyExplainer.h"

#include "SafeText.h"

#include <cstdio>
#include <memory>

namespace host {

VerifyExplainer::VerifyExplainer(VerifyFunction verify, const std::string& keyPath, bool verbose)
    : m_Verify(verify), m_KeyPath(keyPath), m_Verbose(verbose) {}

const KeyVerdict& VerifyExplainer::Key() {
    if (!m_Key) {
        if (m_Folder.Path().empty()) {
            m_Folder.Create();
        }
        KeyProbe probe(m_Verify, m_Folder.Path());
        m_Key = std::make_unique<KeyVerdict>(Explanation::JudgeKey(m_KeyPath, probe));
    }
    return *m_Key;
}

ExplainedAnswer VerifyExplainer::Explain(const std::string& packagePath, const PluginAnswer& answer) {
    ExplainedAnswer explained;
    if (!m_Verbose && !Explanation::NeedsReading(answer)) {
        explained.exitClass = Explanation::ExitClass(answer, nullptr, nullptr);
        return explained;
    }
    const KeyVerdict& key = Key();
    PackageFile package = PackageFile::Read(packagePath, &key.file);
    explained.exitClass = Explanation::ExitClass(answer, &package, &key);
    if (m_Verbose) {
        explained.details = Explanation::PackageDetails(package);
    }
    if (answer.status != 0) {
        explained.advice = Explanation::PackageAdvice(package, key, answer);
    }
    return explained;
}

void PrintKeyExplanation(std::FILE* stream, const std::string& keyPath, const KeyVerdict& key) {
    std::fprintf(stream, "Key file %s:\n", SafeText::Escape(keyPath).c_str());
    for (const std::string& line : key.details) {
        std::fprintf(stream, "    %s\n", SafeText::Escape(line).c_str());
    }
    for (const std::string& line : key.advice) {
        std::fprintf(stream, "    advice: %s\n", SafeText::Escape(line).c_str());
    }
}

void PrintExplanation(std::FILE* stream, const ExplainedAnswer& explained) {
    for (const std::string& line : explained.details) {
        std::fprintf(stream, "    %s\n", SafeText::Escape(line).c_str());
    }
    for (const std::string& line : explained.advice) {
        std::fprintf(stream, "    advice: %s\n", SafeText::Escape(line).c_str());
    }
}

} // namespace host
