// fileinfo: shows what libFileInfo reads from media files, for people
// (a labelled listing) and for scripts (--json, one JSON object per line).
#include <CLI/CLI.hpp>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "AacInfo.h"
#include "JudgeInfo.h"
#include "MediaFileInfo.h"
#include "Mp3Info.h"
#include "report/ReportCommand.h"

namespace fs = std::filesystem;

namespace {

// The characters a JSON string cannot hold as they are: the quote, the
// backslash and the control characters.
bool NeedsJsonEscape(unsigned char c) { return c < 0x20 || c == '"' || c == '\\'; }

// The longest form one byte of a string can take in a JSON line: \u00xx.
constexpr size_t kLongestEscape = 6;

// Writes the escape of one such character at out and returns its end: the
// short forms where JSON has one, \u00xx (lower-case hex) for the other
// control characters.
char* PutJsonEscape(char* out, unsigned char c) {
    static const char kHex[] = "0123456789abcdef";
    char shortForm = 0;
    switch (c) {
        case '"': shortForm = '"'; break;
        case '\\': shortForm = '\\'; break;
        case '\b': shortForm = 'b'; break;
        case '\f': shortForm = 'f'; break;
        case '\n': shortForm = 'n'; break;
        case '\r': shortForm = 'r'; break;
        case '\t': shortForm = 't'; break;
        default: break;
    }
    *out++ = '\\';
    if (shortForm != 0) {
        *out++ = shortForm;
        return out;
    }
    *out++ = 'u';
    *out++ = '0';
    *out++ = '0';
    *out++ = kHex[c >> 4];
    *out++ = kHex[c & 0xF];
    return out;
}

// Record texts are 8-bit Latin-1; JSON and terminals want UTF-8. Writes the
// text at out and returns its end. With `json`, the characters a JSON
// string cannot hold as they are get their escapes. out has room for two
// bytes per character, kLongestEscape with `json`.
char* PutLatin1AsUtf8(char* out, const char* text, size_t capacity, bool json) {
    for (size_t i = 0; i < capacity && text[i] != '\0'; ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c >= 0x80) {
            *out++ = static_cast<char>(0xC0 | (c >> 6));
            *out++ = static_cast<char>(0x80 | (c & 0x3F));
        } else if (json && NeedsJsonEscape(c)) {
            out = PutJsonEscape(out, c);
        } else {
            *out++ = static_cast<char>(c);
        }
    }
    return out;
}

// Appends a record text as UTF-8, for the listing.
void AppendLatin1AsUtf8(std::string& out, const char* text, size_t capacity) {
    const size_t start = out.size();
    out.resize(start + 2 * capacity);
    out.resize(static_cast<size_t>(PutLatin1AsUtf8(&out[start], text, capacity, false) - out.data()));
}

std::string Latin1ToUtf8(const char* text, size_t capacity) {
    std::string out;
    AppendLatin1AsUtf8(out, text, capacity);
    return out;
}

struct NumberField {
    const char* name;
    unsigned long (*get)(const MediaFileInfo_st&);
};

struct TextField {
    const char* name;
    const char* (*get)(const MediaFileInfo_st&);
};

#define NUMBER_FIELD(f) {#f, [](const MediaFileInfo_st& r) { return static_cast<unsigned long>(r.f); }}
#define TEXT_FIELD(f) {#f, [](const MediaFileInfo_st& r) { return static_cast<const char*>(r.f); }}

// All 28 fields, in the record's order.
const NumberField kNumbers[] = {
    NUMBER_FIELD(isVbr),       NUMBER_FIELD(trackNumber),   NUMBER_FIELD(level),
    NUMBER_FIELD(profile),     NUMBER_FIELD(profileLevelId), NUMBER_FIELD(bitsPerSample),
    NUMBER_FIELD(height),      NUMBER_FIELD(width),         NUMBER_FIELD(fileSize),
    NUMBER_FIELD(frameRate),   NUMBER_FIELD(sampleRate),    NUMBER_FIELD(bitRate),
    NUMBER_FIELD(peakBitRate), NUMBER_FIELD(durationMs),
};
const TextField kTexts[] = {
    TEXT_FIELD(fileType), TEXT_FIELD(audioCodec), TEXT_FIELD(audioFormat), TEXT_FIELD(videoFormat),
    TEXT_FIELD(spareText), TEXT_FIELD(channelMode), TEXT_FIELD(title),      TEXT_FIELD(artist),
    TEXT_FIELD(album),     TEXT_FIELD(genre),       TEXT_FIELD(lyrics),     TEXT_FIELD(year),
    TEXT_FIELD(comment),   TEXT_FIELD(composer),
};

#undef NUMBER_FIELD
#undef TEXT_FIELD

std::string Duration(unsigned long ms) {
    char text[48];
    snprintf(text, sizeof text, "%lu:%02lu.%03lu", ms / 60000, (ms / 1000) % 60, ms % 1000);
    return text;
}

std::string Kbits(unsigned long bitsPerSecond) {
    char text[48];
    snprintf(text, sizeof text, "%.1f kbit/s", bitsPerSecond / 1000.0);
    return text;
}

// What one load produced, kept until it is printed. The path is the
// caller's, which outlives the result.
struct LoadResult {
    std::string_view path;
    int status = MFI_NOT_THIS_FORMAT;
    bool isAudio = false;
    bool isVideo = false;
    bool hasTags = false;
    bool hasRecord = false;
    MediaFileInfo_st record;
};

LoadResult Load(MediaFileInfo& facade, const std::string& path) {
    LoadResult result;
    result.path = path;
    result.status = facade.LoadFile(path.c_str());
    result.isAudio = facade.IsAudio() != 0;
    result.isVideo = facade.IsVideo() != 0;
    result.hasTags = facade.HasId3Info() != 0;
    if (const MediaFileInfo_st* record = facade.GetFileInfo()) {
        result.record = *record;
        result.hasRecord = true;
    }
    return result;
}

void PrintText(const LoadResult& result) {
    std::cout << result.path << "\n";
    std::cout << "  status: " << result.status << " (" << MediaFileStatusText(result.status) << ")\n";
    std::cout << "  audio: " << (result.isAudio ? "yes" : "no") << ", video: " << (result.isVideo ? "yes" : "no")
              << ", tags: " << (result.hasTags ? "yes" : "no") << "\n";
    if (!result.hasRecord) {
        std::cout << "  (no record)\n";
        return;
    }
    const MediaFileInfo_st& r = result.record;
    for (const NumberField& f : kNumbers) {
        const unsigned long v = f.get(r);
        std::cout << "  " << f.name << ": " << v;
        const std::string name = f.name;
        if (name == "durationMs") std::cout << " (" << Duration(v) << ")";
        if (name == "bitRate" || name == "peakBitRate") std::cout << " (" << Kbits(v) << ")";
        std::cout << "\n";
    }
    for (const TextField& f : kTexts) {
        std::cout << "  " << f.name << ": \"" << Latin1ToUtf8(f.get(r), MEDIA_TEXT_SIZE) << "\"\n";
    }
}

// What a directory entry is to the walk: a file to visit, a directory to
// walk, or neither (devices, pipes, sockets, dangling links, and symbolic
// links to directories, which are not followed).
enum class EntryKind : unsigned char { kNeither, kFile, kDirectory };

// Takes the type the directory listing gives; asks the file system only
// when the listing gives none, or for where a symbolic link leads.
EntryKind KindOf(int directory, const dirent& entry) {
    struct stat st;
    unsigned char type = entry.d_type;
    if (type == DT_UNKNOWN) {
        if (fstatat(directory, entry.d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) return EntryKind::kNeither;
        if (S_ISREG(st.st_mode)) return EntryKind::kFile;
        if (S_ISDIR(st.st_mode)) return EntryKind::kDirectory;
        if (!S_ISLNK(st.st_mode)) return EntryKind::kNeither;
        type = DT_LNK;
    }
    switch (type) {
        case DT_REG: return EntryKind::kFile;
        case DT_DIR: return EntryKind::kDirectory;
        case DT_LNK:
            return fstatat(directory, entry.d_name, &st, 0) == 0 && S_ISREG(st.st_mode) ? EntryKind::kFile
                                                                                        : EntryKind::kNeither;
        default: return EntryKind::kNeither;
    }
}

void ReportDirectoryError(const std::string& path, int error) {
    std::cerr << "fileinfo: " << path << ": " << std::generic_category().message(error) << "\n";
}

// Calls visit(path, false) for every regular file below the directory that
// path names, one directory at a time: each directory's entries are sorted
// by name, files are visited as they come and subdirectories walked in
// their place. Memory grows with one directory's size and the depth, never
// with the number of files in the tree; a directory's names share one
// block. path is the walk's one buffer: every level adds its entries' names
// to it in turn and leaves it as it found it. A directory that may not be
// read is passed over in silence.
template <class Visit>
void WalkDirectory(std::string& path, Visit& visit) {
    struct Entry {
        size_t offset;  // of the name in names
        size_t length;
        EntryKind kind;
    };
    std::string names;
    std::vector<Entry> entries;
    DIR* directory = opendir(path.c_str());
    if (directory == nullptr) {
        if (errno != EACCES) ReportDirectoryError(path, errno);
        return;
    }
    for (;;) {
        errno = 0;
        const dirent* entry = readdir(directory);
        if (entry == nullptr) {
            if (errno != 0) ReportDirectoryError(path, errno);
            break;
        }
        if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) continue;
        const EntryKind kind = KindOf(dirfd(directory), *entry);
        if (kind == EntryKind::kNeither) continue;
        const size_t length = strlen(entry->d_name);
        entries.push_back({names.size(), length, kind});
        names.append(entry->d_name, length);
    }
    closedir(directory);

    // All entries share the directory's path as their prefix and a name
    // holds no '/', so ordering by name orders the whole paths the same way,
    // component by component or as plain strings.
    const auto name = [&names](const Entry& e) { return std::string_view(names.data() + e.offset, e.length); };
    std::sort(entries.begin(), entries.end(), [&name](const Entry& a, const Entry& b) { return name(a) < name(b); });

    const size_t given = path.size();
    if (path.empty() || path.back() != '/') path += '/';
    const size_t prefix = path.size();
    for (const Entry& e : entries) {
        path.replace(prefix, std::string::npos, names, e.offset, e.length);
        if (e.kind == EntryKind::kDirectory) {
            WalkDirectory(path, visit);
        } else {
            visit(path, false);
        }
    }
    path.resize(given);
}

// Visits the file named by argument (visit(argument, true)), or every file
// below it when it is a directory. False when the argument names nothing.
template <class Visit>
bool VisitPaths(const std::string& argument, Visit& visit) {
    std::error_code error;
    const fs::file_status st = fs::status(argument, error);
    if (error || !fs::exists(st)) {
        std::cerr << "fileinfo: " << argument << ": no such file or directory\n";
        return false;
    }
    if (fs::is_directory(st)) {
        std::string path = argument;
        WalkDirectory(path, visit);
    } else {
        visit(argument, true);
    }
    return true;
}

// ---- --device: can the device described by a capability text play it? ----

// What a device's capability description says about one loaded file.
struct DeviceVerdict {
    bool playable = false;
    std::string refusedBy;    // the requirement key that refused the file, if one did
    std::string explanation;  // why not, in words; empty when playable
};

bool ReadDeviceCaps(const std::string& path, std::string& text) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    text.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return !in.bad();
}

std::string RecordText(const char* field) { return std::string(field, strnlen(field, MEDIA_TEXT_SIZE)); }

// A record field by name, as "name value" ("name \"text\"" for texts).
std::string ShowField(const char* name, const MediaFileInfo_st& r) {
    for (const NumberField& f : kNumbers)
        if (strcmp(name, f.name) == 0) return std::string(name) + " " + std::to_string(f.get(r));
    for (const TextField& f : kTexts)
        if (strcmp(name, f.name) == 0) return std::string(name) + " \"" + Latin1ToUtf8(f.get(r), MEDIA_TEXT_SIZE) + "\"";
    return name;
}

// The record fields a requirement key is checked against, shown beside it.
std::string CheckedFields(const std::string& key, const MediaFileInfo_st& r) {
    struct KeyFields {
        const char* key;
        const char* field;
        const char* second;
    };
    static const KeyFields kFieldsOfKey[] = {
        {"Mono", "channelMode", nullptr},
        {"Stereo", "channelMode", nullptr},
        {"Multichannel", "channelMode", nullptr},
        {"MaximumSampleRate", "sampleRate", nullptr},
        {"MaximumBitDepth", "bitsPerSample", nullptr},
        {"MaximumDataRate", "bitRate", nullptr},
        {"AAC", "audioCodec", nullptr},
        {"VariableBitRate", "isVbr", nullptr},
        {"Profile", "profile", nullptr},
        {"Level", "level", nullptr},
        {"MaximumPeakBitRate", "peakBitRate", nullptr},
        {"MaximumResolution", "width", "height"},
        {"MinimumHeight", "height", nullptr},
        {"MaximumHeight", "height", nullptr},
        {"MinimumWidth", "width", nullptr},
        {"MaximumWidth", "width", nullptr},
        {"Profile-Level-ID", "profileLevelId", nullptr},
        {"MaximumAverageBitRate", "peakBitRate", nullptr},
    };
    for (const KeyFields& k : kFieldsOfKey) {
        if (key != k.key) continue;
        std::string shown = ShowField(k.field, r);
        if (k.second != nullptr) shown += ", " + ShowField(k.second, r);
        return shown;
    }
    return std::string();
}

// Why the library refused the record. `judged` is the filter that gave the
// verdict: its cursor and depth are where the walk stopped. A fresh filter
// reads the same pairs from the type's key until it stands at that same
// place; the pair it read last is the one the judgement stopped on. The
// verdict itself is always the library's.
void ExplainRefusal(const std::string& caps, const MediaFileInfo_st& record, const FileInfoFilter& judged,
                    DeviceVerdict& verdict) {
    const std::string type = RecordText(record.fileType);
    // AdjudgeFile moves the cursor only once it has found the type's key.
    if (judged.m_pos == 0) {
        verdict.explanation = "the device lists no " + type + " type";
        return;
    }
    const std::string needle = std::string(FileInfoFilter::KEY_BEGIN) + type + FileInfoFilter::KEY_END;
    FileInfoFilter replay(caps);
    replay.m_pos = static_cast<unsigned int>(caps.find(needle) + needle.size());
    KEY_VAR_st pair;
    bool reached = false;
    for (;;) {
        const unsigned int before = replay.m_pos;
        pair = replay.GetNextKeyVar();
        reached = replay.m_pos == judged.m_pos && replay.m_depth == judged.m_depth;
        if (reached || replay.m_pos == before || pair.key.empty()) break;
    }
    if (!reached) {
        verdict.explanation = "refused by the " + type + " entry";
    } else if (judged.m_depth < 1) {
        verdict.explanation = "the device's " + type + " entry is not a dictionary";
    } else {
        verdict.refusedBy = pair.key;
        verdict.explanation = "requirement " + pair.key + " = \"" + pair.value + "\" refuses it";
        const std::string fields = CheckedFields(pair.key, record);
        if (!fields.empty()) verdict.explanation += " (" + fields + ")";
    }
}

DeviceVerdict JudgeOnDevice(const std::string& caps, const LoadResult& result, bool explain) {
    DeviceVerdict verdict;
    if (result.status != MFI_OK || !result.hasRecord) {
        verdict.explanation = "the file did not load";
        return verdict;
    }
    MediaFileInfo_st record = result.record;
    FileInfoFilter judged(caps);  // one filter per judgement: it keeps the walk's state
    verdict.playable = judged.AdjudgeFile(&record) == 1;
    if (!verdict.playable && explain) ExplainRefusal(caps, record, judged, verdict);
    return verdict;
}

void PrintVerdict(const DeviceVerdict& verdict, bool explain) {
    std::cout << "  device: " << (verdict.playable ? "playable" : "not playable");
    if (explain && !verdict.explanation.empty()) std::cout << ": " << verdict.explanation;
    std::cout << "\n";
}

// ---- --json: one compact JSON object per line ----
//
// Written by hand into one reused buffer: a long scan spends its time in
// the library, not in building documents. The form is the compact one of
// common JSON writers: no spaces, keys in a fixed order, numbers in
// decimal, strings in UTF-8 with only the quote, the backslash and the
// control characters escaped. Each line is written into room sized for its
// longest possible form first, so the writing itself never checks room.

template <size_t N>
char* PutLiteral(char* out, const char (&text)[N]) {
    memcpy(out, text, N - 1);
    return out + N - 1;
}

char* PutBytes(char* out, const std::string& bytes) {
    memcpy(out, bytes.data(), bytes.size());
    return out + bytes.size();
}

// The most bytes PutJsonString writes for a text of n bytes.
size_t JsonStringBound(size_t n) { return 2 + kLongestEscape * n; }

// Writes a byte string as a JSON string. Paths and the capability
// description's texts are bytes and need not be UTF-8: each invalid part (a
// byte that cannot start a sequence, or a sequence's start cut short by a
// byte that cannot continue it or by the end) becomes one U+FFFD, and the
// byte that cut it short is read again on its own.
char* PutJsonString(char* out, std::string_view text) {
    const auto* s = reinterpret_cast<const unsigned char*>(text.data());
    const size_t n = text.size();
    *out++ = '"';
    size_t i = 0;
    while (i < n) {
        const unsigned char c = s[i];
        if (c < 0x80) {
            if (NeedsJsonEscape(c)) {
                out = PutJsonEscape(out, c);
            } else {
                *out++ = static_cast<char>(c);
            }
            ++i;
            continue;
        }
        // The continuation bytes a lead byte needs, and the range of the
        // first of them (narrower where the shortest form, the surrogates or
        // the end of Unicode rule values out).
        size_t need = 0;
        unsigned char low = 0x80, high = 0xBF;
        if (c >= 0xC2 && c <= 0xDF) {
            need = 1;
        } else if (c >= 0xE0 && c <= 0xEF) {
            need = 2;
            if (c == 0xE0) low = 0xA0;
            if (c == 0xED) high = 0x9F;
        } else if (c >= 0xF0 && c <= 0xF4) {
            need = 3;
            if (c == 0xF0) low = 0x90;
            if (c == 0xF4) high = 0x8F;
        }
        size_t k = 1;  // the sequence's bytes seen so far
        for (; k <= need && i + k < n; ++k, low = 0x80, high = 0xBF) {
            if (s[i + k] < low || s[i + k] > high) break;
        }
        if (need != 0 && k > need) {
            memcpy(out, s + i, k);  // a whole sequence goes over as it is
            out += k;
        } else {
            out = PutLiteral(out, "\xEF\xBF\xBD");
        }
        i += k;
    }
    *out++ = '"';
    return out;
}

// An unsigned long has at most 20 decimal digits.
constexpr size_t kLongestNumber = 20;

char* PutUnsigned(char* out, unsigned long value) {
    char digits[kLongestNumber];
    char* first = digits + sizeof digits;
    do {
        *--first = static_cast<char>('0' + value % 10);
        value /= 10;
    } while (value != 0);
    const size_t n = static_cast<size_t>(digits + sizeof digits - first);
    memcpy(out, first, n);
    return out + n;
}

char* PutInt(char* out, int value) {
    if (value < 0) *out++ = '-';
    return PutUnsigned(out, value < 0 ? 0ul - static_cast<unsigned long>(value) : static_cast<unsigned long>(value));
}

char* PutBool(char* out, bool value) { return value ? PutLiteral(out, "true") : PutLiteral(out, "false"); }

// A text that is null when empty.
char* PutJsonTextOrNull(char* out, const std::string& text) {
    return text.empty() ? PutLiteral(out, "null") : PutJsonString(out, text);
}

// The record's keys with their punctuation, made once: ,"name": and for the
// first number {"name": instead.
struct RecordKeys {
    std::string numbers[std::size(kNumbers)];
    std::string texts[std::size(kTexts)];
    size_t length = 0;  // all of them together

    RecordKeys() {
        for (size_t k = 0; k < std::size(kNumbers); ++k) numbers[k] = Key(k == 0 ? '{' : ',', kNumbers[k].name);
        for (size_t k = 0; k < std::size(kTexts); ++k) texts[k] = Key(',', kTexts[k].name);
    }
    std::string Key(char before, const char* name) {
        std::string key(1 + JsonStringBound(strlen(name)) + 1, '\0');
        char* end = PutJsonString(&key[1], name);
        key[0] = before;
        *end++ = ':';
        key.resize(static_cast<size_t>(end - key.data()));
        length += key.size();
        return key;
    }
};

const RecordKeys& TheRecordKeys() {
    static const RecordKeys keys;
    return keys;
}

char* PutRecordJson(char* out, const MediaFileInfo_st& r) {
    const RecordKeys& keys = TheRecordKeys();
    for (size_t k = 0; k < std::size(kNumbers); ++k) {
        out = PutBytes(out, keys.numbers[k]);
        out = PutUnsigned(out, kNumbers[k].get(r));
    }
    for (size_t k = 0; k < std::size(kTexts); ++k) {
        out = PutBytes(out, keys.texts[k]);
        *out++ = '"';
        out = PutLatin1AsUtf8(out, kTexts[k].get(r), MEDIA_TEXT_SIZE, true);
        *out++ = '"';
    }
    *out++ = '}';
    return out;
}

// The most bytes PutRecordJson writes.
size_t RecordJsonBound() {
    return TheRecordKeys().length + std::size(kNumbers) * kLongestNumber +
           std::size(kTexts) * (2 + kLongestEscape * MEDIA_TEXT_SIZE) + 1;
}

// Room for the keys, punctuation and values of a line besides the record,
// the path and the verdict's two texts: under 200 bytes, the longest
// status text (30 characters, none escaped) included.
constexpr size_t kLineFrameBound = 512;

// Writes the JSON line of one load, line end included, and returns its end.
// With a verdict, "playable" follows the record, and with `explain`
// "refused_by" and "explanation" too. out has room for JsonLineBound bytes.
char* PutJsonLine(char* out, const LoadResult& result, const DeviceVerdict* verdict, bool explain) {
    out = PutLiteral(out, "{\"path\":");
    out = PutJsonString(out, result.path);
    out = PutLiteral(out, ",\"status\":");
    out = PutInt(out, result.status);
    out = PutLiteral(out, ",\"status_text\":");
    out = PutJsonString(out, MediaFileStatusText(result.status));
    out = PutLiteral(out, ",\"is_audio\":");
    out = PutBool(out, result.isAudio);
    out = PutLiteral(out, ",\"is_video\":");
    out = PutBool(out, result.isVideo);
    out = PutLiteral(out, ",\"has_tags\":");
    out = PutBool(out, result.hasTags);
    out = PutLiteral(out, ",\"record\":");
    out = result.hasRecord ? PutRecordJson(out, result.record) : PutLiteral(out, "null");
    if (verdict != nullptr) {
        out = PutLiteral(out, ",\"playable\":");
        out = PutBool(out, verdict->playable);
        if (explain) {
            out = PutLiteral(out, ",\"refused_by\":");
            out = PutJsonTextOrNull(out, verdict->refusedBy);
            out = PutLiteral(out, ",\"explanation\":");
            out = PutJsonTextOrNull(out, verdict->explanation);
        }
    }
    return PutLiteral(out, "}\n");
}

size_t JsonLineBound(const LoadResult& result, const DeviceVerdict* verdict) {
    size_t bound = kLineFrameBound + JsonStringBound(result.path.size()) + RecordJsonBound();
    if (verdict != nullptr) {
        bound += JsonStringBound(verdict->refusedBy.size()) + JsonStringBound(verdict->explanation.size());
    }
    return bound;
}

// One JSON line at a time, built in a buffer that keeps its size from file
// to file and handed to the output whole.
class JsonLineWriter {
public:
    void Write(const LoadResult& result, const DeviceVerdict* verdict = nullptr, bool explain = false) {
        const size_t bound = JsonLineBound(result, verdict);
        if (line_.size() < bound) line_.resize(std::max(bound, 2 * line_.size()));
        const char* end = PutJsonLine(&line_[0], result, verdict, explain);
        assert(static_cast<size_t>(end - line_.data()) <= bound);
        std::cout.write(line_.data(), end - line_.data());
    }

private:
    std::string line_;  // room for the longest line so far; only its start is used
};

// ---- --set: write tags through the library, then show what it reads back ----

// The tag fields --set knows, and where each goes in the record.
struct SetField {
    const char* name;
    char (MediaFileInfo_st::*text)[MEDIA_TEXT_SIZE];  // null for the track
};

const SetField kSetFields[] = {
    {"title", &MediaFileInfo_st::title},       {"artist", &MediaFileInfo_st::artist},
    {"album", &MediaFileInfo_st::album},       {"genre", &MediaFileInfo_st::genre},
    {"year", &MediaFileInfo_st::year},         {"comment", &MediaFileInfo_st::comment},
    {"composer", &MediaFileInfo_st::composer}, {"lyrics", &MediaFileInfo_st::lyrics},
    {"track", nullptr},
};

// One FIELD=VALUE, checked and ready for the record: texts in the record's
// 8-bit form, the track as a number.
struct TagEdit {
    const SetField* field;
    std::string text;
    unsigned short track = 0;
};

const SetField* FindSetField(const std::string& name) {
    for (const SetField& f : kSetFields)
        if (name == f.name) return &f;
    return nullptr;
}

std::string SetFieldNames() {
    std::string names;
    for (const SetField& f : kSetFields) names += std::string(names.empty() ? "" : ", ") + f.name;
    return names;
}

// A value typed in a UTF-8 terminal becomes the record's Latin-1 text, the
// form the printout converts back from. Bytes that are not UTF-8 are taken
// as Latin-1 already. False when a character has no Latin-1 form.
bool ToLatin1(const std::string& value, std::string& out) {
    std::string latin1;
    for (size_t i = 0; i < value.size(); ++i) {
        const unsigned char c = static_cast<unsigned char>(value[i]);
        if (c < 0x80) {
            latin1 += static_cast<char>(c);
            continue;
        }
        const size_t extra = (c & 0xE0) == 0xC0 ? 1 : (c & 0xF0) == 0xE0 ? 2 : (c & 0xF8) == 0xF0 ? 3 : 0;
        if (extra == 0 || i + extra >= value.size()) {
            out = value;  // not UTF-8
            return true;
        }
        unsigned long code = c & (0x3F >> extra);
        for (size_t k = 1; k <= extra; ++k) {
            const unsigned char next = static_cast<unsigned char>(value[i + k]);
            if ((next & 0xC0) != 0x80) {
                out = value;  // not UTF-8
                return true;
            }
            code = (code << 6) | (next & 0x3F);
        }
        if (code > 0xFF) return false;
        latin1 += static_cast<char>(code);
        i += extra;
    }
    out = latin1;
    return true;
}

// A track number: decimal digits only, 0 to 65535 (the record's 16 bits).
bool ParseTrack(const std::string& value, unsigned short& track) {
    if (value.empty()) return false;
    unsigned long n = 0;
    for (char c : value) {
        if (c < '0' || c > '9') return false;
        n = n * 10 + static_cast<unsigned long>(c - '0');
        if (n > 65535) return false;  // also keeps long digit strings from overflowing
    }
    track = static_cast<unsigned short>(n);
    return true;
}

// Checks every FIELD=VALUE before anything is read or written. On a
// mistake, says what is wrong and returns false.
bool ParseTagEdits(const std::vector<std::string>& assignments, std::vector<TagEdit>& edits, std::string& error) {
    for (const std::string& assignment : assignments) {
        const size_t equals = assignment.find('=');
        const std::string name = assignment.substr(0, equals);
        const SetField* field = FindSetField(name);
        if (equals == std::string::npos || field == nullptr) {
            error = "--set " + assignment + ": expected FIELD=VALUE with FIELD one of " + SetFieldNames();
            return false;
        }
        for (const TagEdit& e : edits) {
            if (e.field == field) {
                error = "--set: " + name + " is given more than once";
                return false;
            }
        }
        const std::string value = assignment.substr(equals + 1);
        TagEdit edit{field, std::string()};
        if (field->text == nullptr) {
            if (!ParseTrack(value, edit.track)) {
                error = "--set track=" + value + ": the track is a decimal number from 0 to 65535";
                return false;
            }
        } else if (!ToLatin1(value, edit.text)) {
            error = "--set " + name + ": \"" + value + "\" has characters that 8-bit (Latin-1) tags cannot hold";
            return false;
        }
        edits.push_back(edit);
    }
    return true;
}

// Texts longer than a record field holds are cut to 127 characters.
void ApplyTagEdits(const std::vector<TagEdit>& edits, MediaFileInfo_st& record) {
    for (const TagEdit& e : edits) {
        if (e.field->text == nullptr) {
            record.trackNumber = e.track;
        } else {
            MediaFileInfoBase::CopyField(record.*(e.field->text), e.text.c_str());
        }
    }
}

bool StoresTags(MediaFileInfoBase* reader) {
    return dynamic_cast<Mp3Info*>(reader) != nullptr || dynamic_cast<AacInfo*>(reader) != nullptr;
}

bool SameContents(const std::string& a, const std::string& b) {
    std::ifstream first(a, std::ios::binary), second(b, std::ios::binary);
    if (!first || !second) return false;
    return std::equal(std::istreambuf_iterator<char>(first), std::istreambuf_iterator<char>(),
                      std::istreambuf_iterator<char>(second), std::istreambuf_iterator<char>());
}

// The record as the library reads it back from the written file, printed
// the same way as a plain listing.
bool PrintReadBack(const std::string& path, bool json) {
    MediaFileInfo facade;
    const LoadResult result = Load(facade, path);
    if (json) {
        JsonLineWriter().Write(result);
    } else {
        PrintText(result);
    }
    return result.status == MFI_OK;
}

// fileinfo --set FIELD=VALUE... PATH: the exit status of the whole run.
// The library rewrites tags in place and may grow the file by more than
// the tag, or leave data duplicated; the original is kept in PATH.bak
// unless --no-backup.
int SetTags(const std::string& path, const std::vector<TagEdit>& edits, bool backup, bool json) {
    std::error_code error;
    if (!fs::is_regular_file(path, error)) {
        std::cerr << "fileinfo: " << path << ": not a regular file; no tags written\n";
        return 1;
    }
    MediaFileInfo facade;
    const int loaded = facade.LoadFile(path.c_str());
    if (loaded != MFI_OK || facade.GetFileInfo() == nullptr) {
        std::cerr << "fileinfo: " << path << ": the file did not load (status " << loaded << ": "
                  << MediaFileStatusText(loaded) << "); no tags written\n";
        return 1;
    }
    MediaFileInfo_st record = *facade.GetFileInfo();
    ApplyTagEdits(edits, record);

    const std::string backupPath = path + ".bak";
    if (backup) {
        // An existing backup may be the only untouched copy: never replaced.
        if (!fs::copy_file(path, backupPath, fs::copy_options::none, error)) {
            std::cerr << "fileinfo: " << backupPath << ": cannot make the backup (" << error.message()
                      << "); no tags written\n";
            return 1;
        }
        std::cerr << "fileinfo: backup of " << path << " written to " << backupPath << "\n";
    }

    const int status = facade.SetId3Info(&record);
    if (status == MFI_UNREADABLE) {
        // Only the MP3 and AAC readers own a tag writer; from them 0 means
        // the record's fields could not be taken.
        if (StoresTags(facade.m_reader)) {
            std::cerr << "fileinfo: " << path << ": the tag writer took none of the fields; nothing was written\n";
        } else {
            const std::string type = RecordText(record.fileType);
            std::cerr << "fileinfo: " << path << ": the format of this file"
                      << (type.empty() ? std::string() : " (" + type + ")") << " stores no tags; nothing was written\n";
        }
        // Nothing was written, so the backup is an identical copy.
        if (backup && SameContents(path, backupPath) && fs::remove(backupPath, error)) {
            std::cerr << "fileinfo: " << backupPath << " removed again\n";
        }
        return 1;
    }
    if (status != MFI_OK) {
        std::cerr << "fileinfo: " << path << ": writing the tags failed (status " << status << ": "
                  << MediaFileStatusText(status) << "); the file may be partly rewritten"
                  << (backup ? "; the original is in " + backupPath : std::string()) << "\n";
        return 1;
    }
    return PrintReadBack(path, json) ? 0 : 1;
}

// Checks the --set arguments (usage errors exit 2), then writes.
int SetTagsCommand(const std::vector<std::string>& assignments, const std::vector<std::string>& paths, bool backup,
                   bool json) {
    std::vector<TagEdit> edits;
    std::string error;
    if (!ParseTagEdits(assignments, edits, error)) {
        std::cerr << "fileinfo: " << error << "\n";
        return 2;
    }
    if (paths.size() != 1) {
        std::cerr << "fileinfo: --set writes into exactly one file; " << paths.size() << " paths given\n";
        return 2;
    }
    return SetTags(paths.front(), edits, backup, json);
}

// The library prints its one warning ("ReadWord warning!") on standard
// output, where it would break the JSON lines and listings of this tool.
// While the tool runs, the process's standard output goes to standard
// error, and the tool's own output to the real standard output through a
// descriptor saved before the switch.
class ToolOutput : public std::streambuf {
public:
    ToolOutput() {
        fflush(stdout);
        fd_ = dup(STDOUT_FILENO);
        if (fd_ < 0 || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
            if (fd_ >= 0) close(fd_);
            fd_ = -1;
            return;  // keep writing where we were
        }
        previous_ = std::cout.rdbuf(this);
    }
    ~ToolOutput() override {
        if (fd_ < 0) return;
        sync();
        std::cout.rdbuf(previous_);
        fflush(stdout);
        dup2(fd_, STDOUT_FILENO);
        close(fd_);
    }
    ToolOutput(const ToolOutput&) = delete;
    ToolOutput& operator=(const ToolOutput&) = delete;

protected:
    int_type overflow(int_type c) override {
        if (c != traits_type::eof()) {
            if (used_ == sizeof buffer_ && !Flush()) return traits_type::eof();
            buffer_[used_++] = static_cast<char>(c);
        }
        return traits_type::not_eof(c);
    }
    std::streamsize xsputn(const char* s, std::streamsize n) override {
        std::streamsize done = 0;
        while (done < n) {
            if (used_ == sizeof buffer_ && !Flush()) return done;
            const size_t room = sizeof buffer_ - used_;
            const size_t take = std::min(room, static_cast<size_t>(n - done));
            memcpy(buffer_ + used_, s + done, take);
            used_ += take;
            done += static_cast<std::streamsize>(take);
        }
        return n;
    }
    int sync() override { return Flush() ? 0 : -1; }

private:
    bool Flush() {
        size_t done = 0;
        while (done < used_) {
            const ssize_t n = write(fd_, buffer_ + done, used_ - done);
            if (n <= 0) return false;
            done += static_cast<size_t>(n);
        }
        used_ = 0;
        return true;
    }

    int fd_ = -1;
    std::streambuf* previous_ = nullptr;
    char buffer_[1 << 16];
    size_t used_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
    ToolOutput output;
    if (argc > 1 && strcmp(argv[1], "report") == 0) return RunReportCommand(argc - 1, argv + 1);
    CLI::App app{"Shows what libFileInfo reads from media files."};
    std::vector<std::string> arguments;
    bool json = false;
    std::string devicePath;
    bool explain = false;
    app.add_flag("--json", json, "print one JSON object per file (JSON Lines)");
    CLI::Option* device =
        app.add_option("--device", devicePath, "capability description of a device: say whether it plays each file");
    app.add_flag("--explain", explain, "with --device: say which requirement refused a file")->needs(device);
    std::vector<std::string> assignments;
    bool noBackup = false;
    CLI::Option* set = app.add_option("--set", assignments,
                                      "FIELD=VALUE: write a tag into one MP3 or AAC file (repeatable; FIELD: " +
                                          SetFieldNames() + ")")
                           ->allow_extra_args(false)
                           ->excludes(device);
    app.add_flag("--no-backup", noBackup, "with --set: do not copy the file to PATH.bak first")->needs(set);
    app.add_option("paths", arguments, "media files or directories (walked recursively)")->required();
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        const int code = app.exit(e);
        return code == 0 ? 0 : 2;
    }
    if (*set) return SetTagsCommand(assignments, arguments, !noBackup, json);

    std::optional<std::string> caps;
    if (*device) {
        caps.emplace();
        if (!ReadDeviceCaps(devicePath, *caps)) {
            std::cerr << "fileinfo: " << devicePath << ": cannot read the capability description\n";
            return 2;
        }
    }

    bool allLoaded = true;
    JsonLineWriter line;
    const auto show = [&](const std::string& path, bool named) {
        MediaFileInfo facade;
        const LoadResult result = Load(facade, path);
        // In a walked directory, a file whose extension names no reader was
        // not even opened: it is not a media file, so it is not listed.
        if (!named && result.status == MFI_NOT_THIS_FORMAT && facade.m_reader == nullptr) return;
        allLoaded &= result.status == MFI_OK;
        const DeviceVerdict verdict = caps ? JudgeOnDevice(*caps, result, explain) : DeviceVerdict();
        if (json) {
            line.Write(result, caps ? &verdict : nullptr, explain);
        } else {
            PrintText(result);
            if (caps) PrintVerdict(verdict, explain);
        }
    };
    for (const std::string& argument : arguments) allLoaded &= VisitPaths(argument, show);
    return allLoaded ? 0 : 1;
}
