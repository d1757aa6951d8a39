#include "Report.h"

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>

#include "FileInfoVersion.h"
#include "RecordFields.h"
#include "ReportTemplate.h"
#include "Text.h"

namespace fileinfo {

namespace {

using nlohmann::json;

// Where the document goes in the template: the whole content of the
// <script type="application/json"> element.
constexpr std::string_view kDataMarker = "@REPORT_DATA@";

// The file columns, in the order of each row's values. Kept small, as a
// collection has tens of thousands of rows:
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
//   verdict   with a device: 0 playable, else the index of why not in
//             "strings"
// A failed load's system reason, rare, is in "reasons" as [row, string].
const char* const kColumns[] = {"dir", "name", "format", "duration", "kbps", "size", "title", "artist"};
const char* const kDeviceColumns[] = {"verdict", "refusedBy"};

std::string Text(const char* field) { return Latin1ToUtf8(field, MEDIA_TEXT_SIZE); }

// JSON of a byte string that need not be UTF-8 (paths): invalid bytes
// become U+FFFD rather than stopping the report.
std::string Quote(const std::string& bytes) {
    return json(bytes).dump(-1, ' ', false, json::error_handler_t::replace);
}

std::string Stem(const std::string& name) {
    const size_t dot = name.rfind('.');
    return dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
}

// "H264 Main@L2.1 + AAC": the video format, then the audio codec (or the
// audio format when the reader names no codec).
std::string Codec(const MediaFileInfo_st& r) {
    const std::string video = Text(r.videoFormat);
    std::string audio = Text(r.audioCodec);
    if (audio.empty()) audio = Text(r.audioFormat);
    if (video.empty()) return audio;
    return audio.empty() ? video : video + " + " + audio;
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
    static const MediaFileInfo_st kEmpty{};
    const MediaFileInfo_st& r = item.hasRecord ? item.record : kEmpty;
    const int flags = (item.isAudio ? 1 : 0) | (item.isVideo ? 2 : 0) | (item.hasTags ? 4 : 0) | (item.hasRecord ? 8 : 0);
    // The type as the summary and the table name it (ADTS streams: "AAC").
    const std::string type = TypeLabel(item);
    if (item.isVideo && std::find(videoTypes_.begin(), videoTypes_.end(), type) == videoTypes_.end()) {
        videoTypes_.push_back(type);
    }
    const std::string title = Text(r.title);
    const std::string stem = Stem(name);
    const bool inName = !title.empty() && stem.size() >= title.size() &&
                        stem.compare(stem.size() - title.size(), title.size(), title) == 0;
    const std::string format = "[" + std::to_string(item.status) + "," + std::to_string(flags) + "," +
                               std::to_string(Intern(type)) + "," + std::to_string(Intern(Codec(r))) + "," +
                               std::to_string(Intern(Text(r.channelMode))) + "," + std::to_string(r.sampleRate) +
                               "," + std::to_string(r.width) + "," + std::to_string(r.height) + "]";
    auto known = formatIndex_.find(format);
    if (known == formatIndex_.end()) {
        known = formatIndex_.emplace(format, formatIndex_.size()).first;
        formats_ += format + ",";
    }
    std::string row = "[" + std::to_string(folder == lastFolder_ ? 0 : folder + 1) + "," + Quote(name) + "," +
                      std::to_string(known->second) + "," + std::to_string(r.durationMs) + "," +
                      std::to_string((r.bitRate + 500) / 1000) + "," + std::to_string(r.fileSize) + "," +
                      (inName ? std::to_string(stem.size() - title.size()) : json(title).dump()) + "," +
                      std::to_string(Intern(Text(r.artist)));
    lastFolder_ = folder;
    if (device_ != nullptr) {
        const DeviceVerdict verdict = device_->Judge(item);
        row += "," + std::to_string(verdict.playable ? 0 : Intern(verdict.explanation)) + "," +
               std::to_string(Intern(verdict.refusedBy));
    }
    if (!item.reason.empty()) {
        reasons_ += "[" + std::to_string(fileCount_) + "," + std::to_string(Intern(item.reason)) + "],";
    }
    files_ += row + "],";
    ++fileCount_;
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
            ",\"reasons\":" + list(reasons_) + "}";
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
