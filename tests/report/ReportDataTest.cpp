// The report's document: its escapes for the script element, the template
// fill, and the compact rows.
#include <gtest/gtest.h>

#include <algorithm>

#include <nlohmann/json.hpp>

#include "Report.h"
#include "Text.h"

namespace fileinfo {
namespace {

TEST(ReportEscape, NothingCanEndTheScriptElement) {
    const std::string json = nlohmann::json("</script><script>alert(1)</script> & <!-- \u2028\u2029").dump();
    const std::string safe = EscapeJsonForScript(json);
    EXPECT_EQ(safe.find('<'), std::string::npos);
    EXPECT_EQ(safe.find('>'), std::string::npos);
    EXPECT_EQ(safe.find('&'), std::string::npos);
    EXPECT_EQ(safe.find("\xE2\x80\xA8"), std::string::npos);
    EXPECT_EQ(safe.find("\xE2\x80\xA9"), std::string::npos);
    // The escapes mean the same text.
    EXPECT_EQ(nlohmann::json::parse(safe), nlohmann::json::parse(json));
}

TEST(ReportEscape, OtherTextIsKept) {
    const std::string json = nlohmann::json("Caf\xC3\xA9 \xE2\x80\x94 \xE2\x82\xAC 5").dump();
    EXPECT_EQ(EscapeJsonForScript(json), json);
}

TEST(ReportTemplate, TheMarkerIsReplacedOnce) {
    EXPECT_EQ(FillReportTemplate("<p>@REPORT_DATA@</p>", "{\"a\":\"<b>\"}"), "<p>{\"a\":\"\\u003cb\\u003e\"}</p>");
    EXPECT_EQ(FillReportTemplate("<p></p>", "{}"), "");
    EXPECT_EQ(FillReportTemplate("@REPORT_DATA@@REPORT_DATA@", "{}"), "");
}

TEST(ReportTemplate, TheEmbeddedPageHoldsTheData) {
    const std::string page = MakeReportPage("{\"files\":[]}");
    ASSERT_FALSE(page.empty());
    EXPECT_NE(page.find("<script type=\"application/json\" id=\"report-data\">{\"files\":[]}</script>"),
              std::string::npos);
}

// A loaded file whose record and reading agree. `title` is Latin-1 in the
// record; the reading holds it as UTF-8.
ScanItem Loaded(const std::string& path, const char* type, const char* title) {
    ScanItem item;
    item.path = path;
    item.status = MFI_OK;
    item.isAudio = true;
    item.hasRecord = true;
    snprintf(item.record.fileType, MEDIA_TEXT_SIZE, "%s", type);
    snprintf(item.record.title, MEDIA_TEXT_SIZE, "%s", title);
    item.record.durationMs = 61000;
    item.record.fileSize = 1234;
    item.reading.type = type;
    item.reading.audio_codec = type;
    item.reading.duration_ms = 61000;
    item.reading.size = 1234;
    item.reading.tags.title = Latin1ToUtf8(title, MEDIA_TEXT_SIZE);
    return item;
}

TEST(ReportData, RowsFollowTheColumns) {
    ReportData data(nullptr);
    data.Add(Loaded("music/a/one.mp3", "MP3", "one"));
    data.Add(Loaded("music/a/two.mp3", "MP3", "</script>\xE9"));
    data.Add(Loaded("music/b/07 - Song.mp3", "MP3", "Song"));
    ScanItem skipped;
    skipped.path = "music/cover.jpg";
    skipped.outcome = Outcome::kSkipped;
    skipped.reason = "extension .jpg is not read";
    data.Add(skipped);
    ScanItem error;
    error.path = "gone";
    error.outcome = Outcome::kError;
    error.reason = "No such file or directory";
    data.Add(error);
    ReportHeader header;
    header.title = "T";
    header.generated = "2026-01-01T00:00:00Z";
    const nlohmann::json doc = nlohmann::json::parse(data.Json(header));
    EXPECT_EQ(data.Files(), 3u);
    const auto& columns = doc["columns"];
    auto col = [&](const char* name) {
        for (size_t k = 0; k < columns.size(); ++k)
            if (columns[k] == name) return k;
        ADD_FAILURE() << name;
        return size_t(0);
    };
    ASSERT_EQ(doc["files"].size(), 3u);
    EXPECT_EQ(doc["files"][2][col("title")], 5);  // "Song" from the name's 5th character
    const auto& one = doc["files"][0];
    const auto& two = doc["files"][1];
    EXPECT_EQ(one.size(), columns.size());
    EXPECT_EQ(doc["dirs"][one[col("dir")].get<size_t>() - 1], "music/a");
    EXPECT_EQ(two[col("dir")], 0);  // the same folder as the row before
    EXPECT_EQ(one[col("name")], "one.mp3");
    EXPECT_EQ(one[col("title")], 0);  // the file's own name
    EXPECT_EQ(two[col("title")], "</script>\xC3\xA9");  // Latin-1 read as such
    const auto& format = doc["formats"][one[col("format")].get<size_t>()];
    EXPECT_EQ(format[0], MFI_OK);
    EXPECT_EQ(format[1], 1 | 8);  // audio, with a record
    EXPECT_EQ(doc["strings"][format[2].get<size_t>()], "MP3");
    EXPECT_EQ(one[col("format")], two[col("format")]);  // the same kind of file
    EXPECT_EQ(one[col("duration")], 61000);
    EXPECT_EQ(one[col("size")], 1234);
    EXPECT_EQ(doc["skipped"].size(), 1u);
    EXPECT_EQ(doc["skipped"][0][1], "cover.jpg");
    EXPECT_EQ(doc["errors"][0][0], "gone");
    EXPECT_EQ(doc["device"], nullptr);
    EXPECT_EQ(doc["statusTexts"]["1"], MediaFileStatusText(1));
    // Every record agrees with its reading.
    EXPECT_EQ(doc["differs"]["count"], 0);
    EXPECT_EQ(doc["differs"]["files"], nlohmann::json::parse("[[],[],[],[],[],[],[],[],[]]"));
}

TEST(ReportData, RowsCarryTheReadingWhereTheRecordDiffers) {
    ReportData data(nullptr);
    ScanItem wav = Loaded("music/long.wav", "WAV", "long");
    wav.reading.tags.title.clear();  // the record's title is the file's name
    wav.reading.duration_ms = 15000;
    wav.record.durationMs = 8000;
    wav.reading.size = 5368709120ull;  // 5 GiB; the record keeps the low 32 bits
    wav.record.fileSize = 1073741824u;
    data.Add(Loaded("music/same.mp3", "MP3", "same"));
    data.Add(wav);
    ReportHeader header;
    header.generated = "2026-01-01T00:00:00Z";
    const nlohmann::json doc = nlohmann::json::parse(data.Json(header));
    const auto& columns = doc["columns"];
    const auto col = [&](const char* name) {
        return static_cast<size_t>(std::find(columns.begin(), columns.end(), name) - columns.begin());
    };
    EXPECT_EQ(doc["files"][1][col("duration")], 15000);
    EXPECT_EQ(doc["files"][1][col("size")], 5368709120ull);
    EXPECT_EQ(doc["files"][1][col("title")], "");
    EXPECT_EQ(doc["differs"]["count"], 1);
    EXPECT_EQ(doc["differs"]["fields"][0], nlohmann::json::parse(R"({"field":"title","label":"title","count":1})"));
    EXPECT_EQ(doc["differs"]["fields"][3],
              nlohmann::json::parse(R"({"field":"durationMs","label":"duration","count":1})"));
    EXPECT_EQ(doc["differs"]["fields"][1]["count"], 0);
    EXPECT_EQ(doc["differs"]["fields"].size(), 9u);
    // By field: the title taken from the file's name is the row alone.
    EXPECT_EQ(doc["differs"]["files"],
              nlohmann::json::parse(R"([[1], [], [], [[1, 8000, 15000]], [], [], [], [], [[1, 1073741824, 5368709120]]])"));
}

TEST(ReportData, ThePageListsTheFirstFiveHundredFilesOfAFieldAndCountsThemAll) {
    ReportData data(nullptr);
    for (int k = 0; k < 600; ++k) {
        ScanItem item = Loaded("music/" + std::to_string(k) + ".wav", "WAV", "x");
        item.reading.duration_ms = 15000;
        item.record.durationMs = 8000;
        data.Add(item);
    }
    ReportHeader header;
    header.generated = "2026-01-01T00:00:00Z";
    const nlohmann::json doc = nlohmann::json::parse(data.Json(header));
    EXPECT_EQ(doc["differs"]["count"], 600);
    EXPECT_EQ(doc["differs"]["fields"][3]["count"], 600);
    ASSERT_EQ(doc["differs"]["files"][3].size(), 500u);
    EXPECT_EQ(doc["differs"]["files"][3][499], nlohmann::json::parse("[499, 8000, 15000]"));
}

TEST(ReportData, PathsThatAreNotUtf8StillMakeADocument) {
    ReportData data(nullptr);
    data.Add(Loaded("bad\xFF/name\xFE.mp3", "MP3", "x"));
    ReportHeader header;
    EXPECT_NO_THROW(nlohmann::json::parse(data.Json(header)));
}

}  // namespace
}  // namespace fileinfo
