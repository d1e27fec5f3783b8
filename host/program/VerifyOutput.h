// What signing-host verify prints on standard output for each package and
// at the end: escaped text lines (or NUL-ended records), one JSON object per
// line, or one JSON document. The JSON forms follow docs/json-schema.md.
#ifndef HOST_PROGRAM_VERIFYOUTPUT_H
#define HOST_PROGRAM_VERIFYOUTPUT_H

#include "PackageVerdict.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <string>

namespace host {

struct VerifyTotals {
    size_t total = 0;
    size_t signedCount = 0;
    size_t failed = 0;
    size_t unchecked = 0;
};

class VerifyOutput {
public:
    enum class Format { Text, Json, JsonLines };

    // The version of the JSON records' layout; it changes only when a field
    // changes meaning or goes away.
    static constexpr int kSchema = 1;

    // nulRecords: text records end with a NUL byte instead of a line feed
    // and carry the path unescaped.
    VerifyOutput(std::FILE* out, Format format, bool nulRecords, std::string plugin, std::string key);

    // Writes (or, for one document, keeps) the package's record; text and
    // JSON lines are flushed at once.
    void Package(size_t index, const PackageVerdict& verdict);
    // The summary record, or the whole document.
    void Finish(int exitCode);

    const VerifyTotals& Totals() const { return m_Totals; }

    // The JSON object of one package.
    static nlohmann::ordered_json PackageRecord(size_t index, const PackageVerdict& verdict);

private:
    nlohmann::ordered_json SummaryRecord(int exitCode) const;
    void WriteLine(const std::string& text, char end);

    std::FILE* m_Out;
    Format m_Format;
    bool m_NulRecords;
    std::string m_Plugin;
    std::string m_Key;
    VerifyTotals m_Totals;
    nlohmann::ordered_json m_Packages = nlohmann::ordered_json::array();
};

} // namespace host

#endif
