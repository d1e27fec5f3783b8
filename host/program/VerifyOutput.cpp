#include "VerifyOutput.h"

#include "RecordWrite.h"
#include "SafeText.h"

namespace host {
namespace {

using OrderedJson = nlohmann::ordered_json;

std::string Dumped(const OrderedJson& value, int indent = -1) {
    // Texts that are not UTF-8 (a message naming an odd path) get U+FFFD;
    // paths keep their exact bytes in "path_bytes".
    return value.dump(indent, ' ', false, OrderedJson::error_handler_t::replace);
}

} // namespace

VerifyOutput::VerifyOutput(std::FILE* out, Format format, bool nulRecords, std::string plugin,
                           std::string key)
    : m_Out(out), m_Format(format), m_NulRecords(nulRecords), m_Plugin(std::move(plugin)),
      m_Key(std::move(key)) {}

OrderedJson VerifyOutput::PackageRecord(size_t index, const PackageVerdict& verdict) {
    OrderedJson record;
    record["schema"] = kSchema;
    record["record"] = "package";
    record["index"] = index;
    record["path"] = verdict.path;
    record["path_is_utf8"] = SafeText::IsUtf8(verdict.path);
    record["path_bytes"] = SafeText::Base64(verdict.path);
    record["status"] = verdict.status;
    record["status_name"] = verdict.statusName;
    record["outcome"] = verdict.Outcome();
    record["message"] = verdict.message;
    return record;
}

void VerifyOutput::Package(size_t index, const PackageVerdict& verdict) {
    ++m_Totals.total;
    const std::string outcome = verdict.Outcome();
    if (outcome == "signed") {
        ++m_Totals.signedCount;
    } else if (outcome == "failed") {
        ++m_Totals.failed;
    } else {
        ++m_Totals.unchecked;
    }
    switch (m_Format) {
    case Format::Json:
        m_Packages.push_back(PackageRecord(index, verdict));
        return;
    case Format::JsonLines:
        WriteLine(Dumped(PackageRecord(index, verdict)), '\n');
        return;
    case Format::Text:
        break;
    }
    std::string line = m_NulRecords ? verdict.path : SafeText::Escape(verdict.path);
    line += ": " + verdict.statusName;
    if (verdict.status >= 0) {
        line += " (" + std::to_string(verdict.status) + ")";
    }
    line += " " + SafeText::Escape(verdict.message);
    WriteLine(line, m_NulRecords ? '\0' : '\n');
}

OrderedJson VerifyOutput::SummaryRecord(int exitCode) const {
    OrderedJson record;
    record["schema"] = kSchema;
    record["record"] = "summary";
    record["command"] = "verify";
    record["plugin"] = m_Plugin;
    record["key"] = m_Key;
    record["total"] = m_Totals.total;
    record["signed"] = m_Totals.signedCount;
    record["failed"] = m_Totals.failed;
    record["unchecked"] = m_Totals.unchecked;
    record["all_signed"] = m_Totals.signedCount == m_Totals.total;
    record["exit_code"] = exitCode;
    return record;
}

void VerifyOutput::Finish(int exitCode) {
    if (m_Format == Format::JsonLines) {
        WriteLine(Dumped(SummaryRecord(exitCode)), '\n');
    } else if (m_Format == Format::Json) {
        OrderedJson document;
        document["schema"] = kSchema;
        document["record"] = "document";
        document["packages"] = m_Packages;
        document["summary"] = SummaryRecord(exitCode);
        WriteLine(Dumped(document, 2), '\n');
    }
}

void VerifyOutput::WriteLine(const std::string& text, char end) {
    std::string record = text;
    record += end;
    WriteRecord(m_Out, record);
}

} // namespace host
