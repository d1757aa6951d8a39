#include "Report.h"

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>

#include "FileInfoVersion.h"
#include "ReadingFields.h"
#include "RecordDiffers.h"
#include "RecordFields.h"
#include "ReportTemplate.h"
#include "Text.h"

namespace fileinfo {

namespace {

using nlohmann::json;

// Where the document goes in the template: the whole content of the
// <script type="application/json"> element.
constexpr std::string_view kDataMarker = "@REPORT_DATA@";

// The file columns, in the order of each row's values, all from the
// reading of the file (what it really holds; the library's record is kept
// only for the status, the tags flag and where it differs). Kept small, as
// a collection has tens of thousands of rows:
//   dir       0 when the file is in the folder of the row before, else the
//             folder's index in "dirs" plus one
//   format    the index in "formats" of what files of one kind share:
//             [status, flags, type, codec, channels, sampleRate, width,
//             height], flags 1 audio, 2 video, 4 tags, 8 a record was read;
//             type, codec and channels as indices in "strings"
//   kbps      the bit rate in kbit/s, rounded
//   title     a text, or a number k: the file's name without its extension
//             from its k-th character on (0: all of it, which is what the
//             library gives a file with no title tag)
//   artist, refusedBy: indices in "strings" (0 is the empty text)
//   verdict   with a device, on the reading: 0 playable, else the index of
//             why not in "strings"; refusedBy is its first refusing key
// A failed load's system reason, rare, is in "reasons" as [row, string].
const char* const kColumns[] = {"dir", "name", "format", "duration", "kbps", "size", "title", "artist"};
const char* const kDeviceColumns[] = {"verdict", "refusedBy"};

// JSON of a byte string that need not be UTF-8 (paths): invalid bytes
// become U+FFFD rather than stopping the report.
std::string Quote(const std::string& bytes) {
    return json(bytes).dump(-1, ' ', false, json::error_handler_t::replace);
}

std::string Stem(const std::string& name) {
    const size_t dot = name.rfind('.');
    return dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
}

// "H.264 + AAC LC": the video codec, then the audio codec.
std::string Codec(const media::Reading& m) {
    if (m.video_codec.empty()) return m.audio_codec;
    return m.audio_codec.empty() ? m.video_codec : m.video_codec + " + " + m.audio_codec;
}

// A side of a difference as JSON: a number, a text or null.
json DiffJson(const DiffValue& v) {
    if (v.null) return nullptr;
    if (v.isNumber) return v.number;
    return v.text;
}

// The device's name, from its capability list's DeviceName string.
std::string DeviceName(const std::string& caps) {
    const std::string key = "<key>DeviceName</key>";
    size_t at = caps.find(key);
    if (at == std::string::npos) return std::string();
    at = caps.find("<string>", at + key.size());
    if (at == std::string::npos) return std::string();
    at += 8;
    const size_t end = caps.find("</string>", at);
    if (end == std::string::npos || end - at > 200) return std::string();
    return caps.substr(at, end - at);
}

std::string UtcNow() {
    char text[32];
    const time_t now = time(nullptr);
    struct tm parts;
    gmtime_r(&now, &parts);
    strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

}  // namespace

ReportData::ReportData(const Device* device) : device_(device) { Intern(std::string()); }

size_t ReportData::Intern(const std::string& text) {
    const auto found = stringIndex_.find(text);
    if (found != stringIndex_.end()) return found->second;
    strings_.push_back(text);
    stringIndex_.emplace(text, strings_.size() - 1);
    return strings_.size() - 1;
}

size_t ReportData::Folder(const std::string& path, std::string& name) {
    const size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? std::string() : path.substr(0, slash);
    name = slash == std::string::npos ? path : path.substr(slash + 1);
    const auto found = folderIndex_.find(folder);
    if (found != folderIndex_.end()) return found->second;
    folders_.push_back(folder);
    folderIndex_.emplace(folder, folders_.size() - 1);
    return folders_.size() - 1;
}

void ReportData::Add(const ScanItem& item) {
    std::string name;
    if (item.outcome == Outcome::kError) {
        errors_ += "[" + Quote(item.path) + "," + std::to_string(Intern(item.reason)) + "],";
        return;
    }
    const size_t folder = Folder(item.path, name);
    if (item.outcome == Outcome::kSkipped) {
        skipped_ += "[" + std::to_string(folder) + "," + Quote(name) + "," + std::to_string(Intern(item.reason)) + "],";
        return;
    }
    statusTexts_.emplace(item.status, MediaFileStatusText(item.status));
    static const media::Reading kUnread;
    const media::Reading& m = item.readingError == 0 ? item.reading : kUnread;
    const int flags = (m.HasAudio() ? 1 : 0) | (m.HasVideo() ? 2 : 0) | (item.hasTags ? 4 : 0) | (item.hasRecord ? 8 : 0);
    const std::string type = m.type;
    const std::string lookup = ReadingLookupType(m);
    if (m.HasVideo() && std::find(videoTypes_.begin(), videoTypes_.end(), lookup) == videoTypes_.end()) {
        videoTypes_.push_back(lookup);
    }
    const std::string& title = m.tags.title;
    const std::string stem = Stem(name);
    const bool inName = !title.empty() && stem.size() >= title.size() &&
                        stem.compare(stem.size() - title.size(), title.size(), title) == 0;
    const std::string format = "[" + std::to_string(item.status) + "," + std::to_string(flags) + "," +
                               std::to_string(Intern(type)) + "," + std::to_string(Intern(Codec(m))) + "," +
                               std::to_string(Intern(ChannelsText(m.channels))) + "," + std::to_string(m.sample_rate) +
                               "," + std::to_string(m.width) + "," + std::to_string(m.height) + "]";
    auto known = formatIndex_.find(format);
    if (known == formatIndex_.end()) {
        known = formatIndex_.emplace(format, formatIndex_.size()).first;
        formats_ += format + ",";
    }
    std::string row = "[" + std::to_string(folder == lastFolder_ ? 0 : folder + 1) + "," + Quote(name) + "," +
                      std::to_string(known->second) + "," + std::to_string(m.duration_ms) + "," +
                      std::to_string((m.bit_rate + 500) / 1000) + "," + std::to_string(m.size) + "," +
                      (inName ? std::to_string(stem.size() - title.size()) : json(title).dump()) + "," +
                      std::to_string(Intern(m.tags.artist));
    lastFolder_ = folder;
    if (device_ != nullptr) {
        const ReadingVerdict verdict = device_->JudgeReading(m);
        std::string why = verdict.explanation;
        if (!verdict.playable && why.empty()) why = "not playable";
        row += "," + std::to_string(verdict.playable ? 0 : Intern(why)) + "," +
               std::to_string(Intern(verdict.refusedBy.empty() ? std::string() : verdict.refusedBy.front()));
    }
    AddDifferences(item, stem);
    if (!item.reason.empty()) {
        reasons_ += "[" + std::to_string(fileCount_) + "," + std::to_string(Intern(item.reason)) + "],";
    }
    files_ += row + "],";
    ++fileCount_;
}

void ReportData::AddDifferences(const ScanItem& item, const std::string& stem) {
    const std::vector<RecordDifference> differences = RecordDiffers(item);
    if (!differences.empty()) ++differingFiles_;
    for (const RecordDifference& d : differences) {
        size_t rule = 0;
        while (rule < kRecordDiffRuleCount && d.field != std::string(kRecordDiffRules[rule].field)) ++rule;
        if (rule == kRecordDiffRuleCount) continue;
        // Every file is counted; the page lists the first ones of a field.
        if (differCounts_[rule]++ >= kDifferFilesListed) continue;
        std::string& entries = differs_[rule];
        // The most common difference, a record title that is the file's name
        // beside the reading's own title (or none), is the row alone: the
        // page has both texts in the row already.
        if (rule == 0 && d.record.text == stem) {
            entries += std::to_string(fileCount_) + ",";
            continue;
        }
        entries += json::array({fileCount_, DiffJson(d.record), DiffJson(d.reading)})
                       .dump(-1, ' ', false, json::error_handler_t::replace) + ",";
    }
}

std::string ReportData::Json(const ReportHeader& header) const {
    const auto list = [](const std::string& rows) {
        return "[" + (rows.empty() ? rows : rows.substr(0, rows.size() - 1)) + "]";
    };
    json columns = json::array();
    for (const char* c : kColumns) columns.push_back(c);
    if (device_ != nullptr)
        for (const char* c : kDeviceColumns) columns.push_back(c);
    json device = nullptr;
    if (device_ != nullptr) {
        json limits = json::array();
        for (const std::string& type : videoTypes_) {
            const long width = device_->Limit(type, "MaximumWidth");
            const long height = device_->Limit(type, "MaximumHeight");
            if (width < 0 && height < 0) continue;
            limits.push_back({{"type", type}, {"maxWidth", width}, {"maxHeight", height}});
        }
        device = {{"path", header.devicePath}, {"name", DeviceName(device_->Text())}, {"limits", limits}};
    }
    json statusTexts = json::object();
    for (const auto& [status, text] : statusTexts_) statusTexts[std::to_string(status)] = text;
    json head = {
        {"format", 1},
        {"title", header.title},
        {"generated", header.generated.empty() ? UtcNow() : header.generated},
        {"tool", std::string("fileinfo ") + FILEINFO_VERSION_STRING},
        {"roots", header.roots},
        {"extensions", header.extensions},
        {"hidden", header.hidden},
        {"device", device},
        {"statusTexts", statusTexts},
        {"columns", columns},
        {"strings", strings_},
        {"dirs", folders_},
    };
    std::string text = head.dump(-1, ' ', false, json::error_handler_t::replace);
    text.pop_back();  // the closing brace: the lists follow
    text += ",\"formats\":" + list(formats_) + ",\"files\":" + list(files_) + ",\"skipped\":" + list(skipped_) + ",\"errors\":" + list(errors_) +
            ",\"reasons\":" + list(reasons_);
    // Where the library's record differs from the reading: how many files,
    // the compared fields with the count of each, and for each field its
    // first files, [row, record, reading], or the row alone where the
    // record's title is the file's name without its extension and the
    // reading's title the row's.
    json fields = json::array();
    for (size_t k = 0; k < kRecordDiffRuleCount; ++k) {
        fields.push_back({{"field", kRecordDiffRules[k].field}, {"label", kRecordDiffRules[k].label},
                          {"count", differCounts_[k]}});
    }
    text += ",\"differs\":{\"count\":" + std::to_string(differingFiles_) + ",\"fields\":" + fields.dump() +
            ",\"files\":[";
    for (size_t k = 0; k < kRecordDiffRuleCount; ++k) text += (k == 0 ? "" : ",") + list(differs_[k]);
    text += "]}}";
    return text;
}

std::string EscapeJsonForScript(std::string_view text) {
    std::string out;
    out.reserve(text.size() + text.size() / 16);
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '<') {
            out += "\\u003c";
        } else if (c == '>') {
            out += "\\u003e";
        } else if (c == '&') {
            out += "\\u0026";
        } else if (c == '\xE2' && i + 2 < text.size() && text[i + 1] == '\x80' &&
                   (text[i + 2] == '\xA8' || text[i + 2] == '\xA9')) {
            out += text[i + 2] == '\xA8' ? "\\u2028" : "\\u2029";
            i += 2;
        } else {
            out += c;
        }
    }
    return out;
}

std::string FillReportTemplate(std::string_view page, std::string_view json) {
    const size_t at = page.find(kDataMarker);
    if (at == std::string_view::npos || page.find(kDataMarker, at + 1) != std::string_view::npos) return std::string();
    std::string out;
    const std::string safe = EscapeJsonForScript(json);
    out.reserve(page.size() + safe.size());
    out.append(page.substr(0, at));
    out += safe;
    out.append(page.substr(at + kDataMarker.size()));
    return out;
}

std::string MakeReportPage(const std::string& json) {
    return FillReportTemplate(std::string_view(kReportTemplate, kReportTemplateSize), json);
}

}  // namespace fileinfo
