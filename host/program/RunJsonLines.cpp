#include "RunJsonLines.h"

#include "RecordWrite.h"
#include "RpmStatusNames.h"
#include "SafeText.h"

namespace host {

using OrderedJson = nlohmann::ordered_json;

OrderedJson RunJsonLines::ComponentRecord(const ComponentOutcome& outcome) {
    OrderedJson item;
    item["product"] = outcome.product;
    item["name"] = outcome.name;
    item["type"] = outcome.type;
    item["path"] = outcome.path;
    item["path_is_utf8"] = SafeText::IsUtf8(outcome.path);
    item["path_bytes"] = SafeText::Base64(outcome.path);
    // Every component has every field: a component that rpm_verify did not
    // answer for has status -1 and empty texts.
    const bool verified = outcome.kind == ComponentOutcome::Kind::Verified;
    switch (outcome.kind) {
    case ComponentOutcome::Kind::Verified:
        item["outcome"] = outcome.status == 0 ? "passed" : "failed";
        break;
    case ComponentOutcome::Kind::NotAvailable:
        item["outcome"] = "not available";
        break;
    case ComponentOutcome::Kind::NotChecked:
        item["outcome"] = "not checked";
        break;
    }
    item["status"] = verified ? outcome.status : -1;
    item["statusName"] = verified ? RpmStatusName(outcome.status) : "";
    item["message"] = verified ? outcome.message : "";
    return item;
}

void RunJsonLines::WriteDone(const RunReport& report) {
    // The first write starts the run; the n-th later one announces the
    // n-th component, so the ones before it are done.
    size_t writes = report.ProgressValues().size();
    WriteUpTo(report, writes >= 2 ? writes - 2 : 0);
}

void RunJsonLines::Finish(const RunReport& report, const std::string& manifest, const std::string& plugin,
                          int result, int exitCode) {
    if (!m_Enabled) {
        return;
    }
    WriteUpTo(report, report.Components().size());
    size_t passed = 0;
    size_t failed = 0;
    size_t notAvailable = 0;
    size_t notChecked = 0;
    for (const ComponentOutcome& outcome : report.Components()) {
        switch (outcome.kind) {
        case ComponentOutcome::Kind::Verified:
            ++(outcome.status == 0 ? passed : failed);
            break;
        case ComponentOutcome::Kind::NotAvailable:
            ++notAvailable;
            break;
        case ComponentOutcome::Kind::NotChecked:
            ++notChecked;
            break;
        }
    }
    OrderedJson summary;
    summary["schema"] = 1;
    summary["record"] = "summary";
    summary["command"] = "run";
    summary["manifest"] = manifest;
    summary["plugin"] = plugin;
    summary["result"] = result;
    summary["total"] = report.Components().size();
    summary["passed"] = passed;
    summary["failed"] = failed;
    summary["not_available"] = notAvailable;
    summary["not_checked"] = notChecked;
    summary["exit_code"] = exitCode;
    WriteLine(summary);
}

void RunJsonLines::WriteUpTo(const RunReport& report, size_t end) {
    if (!m_Enabled) {
        return;
    }
    end = std::min(end, report.Components().size());
    for (; m_Written < end; ++m_Written) {
        OrderedJson record;
        record["schema"] = 1;
        record["record"] = "component";
        record["index"] = m_Written;
        const OrderedJson fields = ComponentRecord(report.Components()[m_Written]);
        for (const auto& field : fields.items()) {
            record[field.key()] = field.value();
        }
        WriteLine(record);
    }
}

void RunJsonLines::WriteLine(const OrderedJson& record) {
    // One write call per record, as verify --json-lines does.
    WriteRecord(m_Out, record.dump(-1, ' ', false, OrderedJson::error_handler_t::replace) + "\n");
}

} // namespace host
