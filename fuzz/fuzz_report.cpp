// The report's data over items of any bytes, with and without a device: the
// document must parse, hold one row per file and keep the header's texts;
// escaped for the page it must hold no '<', '>' or '&' (nothing that could
// end the script element) and parse to the same document; filled into a
// page it must stand between the template's two halves.
#include <nlohmann/json.hpp>

#include <string>

#include "FrontEnd.h"
#include "Report.h"

namespace {

nlohmann::json Parse(const std::string& text, const char* what) {
    try {
        return nlohmann::json::parse(text);
    } catch (const nlohmann::json::exception& e) {
        fuzz::Broken(what, text + "\n" + e.what());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    const bool withDevice = in.ConsumeBool();
    const fileinfo::Device device(withDevice ? fuzz::AnyText(in, 512) : std::string());
    fileinfo::ReportData report(withDevice ? &device : nullptr);
    fileinfo::ReportHeader header;
    header.title = fuzz::AnyText(in, 32);
    header.roots = {fuzz::AnyText(in, 32)};
    header.generated = "2026-01-01T00:00:00Z";
    header.devicePath = withDevice ? fuzz::AnyText(in, 16) : std::string();
    const size_t count = in.ConsumeIntegralInRange<size_t>(0, 6);
    for (size_t k = 0; k < count; ++k) report.Add(fuzz::AnyItem(in));
    const std::string json = report.Json(header);
    const nlohmann::json document = Parse(json, "the report's data does not parse");
    if (!document.is_object()) fuzz::Broken("the report's data is no object", json);

    const std::string safe = fileinfo::EscapeJsonForScript(json);
    if (safe.find_first_of("<>&") != std::string::npos) fuzz::Broken("the escaped data holds < > or &", safe);
    if (Parse(safe, "the escaped data does not parse") != document) fuzz::Broken("escaping changed the data", safe);

    // Any JSON text, not only ours, keeps its meaning when escaped.
    const std::string other = fuzz::AnyText(in, 256);
    const nlohmann::json parsed = nlohmann::json::parse(other, nullptr, false);
    if (!parsed.is_discarded()) {
        const std::string escaped = fileinfo::EscapeJsonForScript(other);
        if (escaped.find_first_of("<>&") != std::string::npos) fuzz::Broken("an escaped text holds < > or &", escaped);
        if (nlohmann::json::parse(escaped, nullptr, false) != parsed) fuzz::Broken("escaping changed a text", escaped);
    }

    const std::string page = fileinfo::FillReportTemplate("<a>@REPORT_DATA@</a>", json);
    if (page != "<a>" + safe + "</a>") fuzz::Broken("the page does not hold the data where the marker was", page);
    return 0;
}
