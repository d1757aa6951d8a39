// The report's document: its escapes for the script element, the template
// fill, and the compact rows.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "Report.h"

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
}

TEST(ReportData, PathsThatAreNotUtf8StillMakeADocument) {
    ReportData data(nullptr);
    data.Add(Loaded("bad\xFF/name\xFE.mp3", "MP3", "x"));
    ReportHeader header;
    EXPECT_NO_THROW(nlohmann::json::parse(data.Json(header)));
}

}  // namespace
}  // namespace fileinfo
