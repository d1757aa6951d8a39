#include "JudgeInfo.h"

#include "detail/FormatTypeRows.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <utility>

const char* const FileInfoFilter::KEY_BEGIN = "<key>";
const char* const FileInfoFilter::KEY_END = "</key>";

const char* const FileInfoFilter::FILE_TYPE_TAG[kFileTypeTagCount] = {"AudioCodecs", "VideoCodecs"};

namespace {

// Kinds of value in KEY_VAR_st::type.
constexpr unsigned int kTypeInteger = 0;
constexpr unsigned int kTypeString = 1;
constexpr unsigned int kTypeReal = 2;

// The value elements GetValue reads up to their closing tag.
struct ScalarElement {
    const char* name;
    const char* closing;
    unsigned int type;
};
const ScalarElement kScalarElements[] = {
    {"string", "</string>", kTypeString},
    {"integer", "</integer>", kTypeInteger},
    {"real", "</real>", kTypeReal},
};

const char* const kDictName = "dict";
const char* const kDictEndName = "/dict";
const char* const kKeyName = "key";
const char* const kFalseText = "false";

// The cursor is 32 bits wide. Matches that start beyond this position count
// as absent, so that no cursor move (at most the matched text plus two
// characters, a needle being at most 5 + 127 + 6 characters) can wrap
// around and go backwards in a text of 4 GB or more. Shorter texts are
// unaffected. It also bounds m_depth: every change of the depth moves the
// cursor past a <dict> or </dict> of six or more characters, so the depth
// stays far inside int within this many characters.
constexpr size_t kLastMatchPosition = UINT_MAX - 256;

size_t Within(size_t found) { return found <= kLastMatchPosition ? found : std::string::npos; }

size_t Find(const std::string& text, char c, size_t from) { return Within(text.find(c, from)); }
size_t Find(const std::string& text, const char* s, size_t from) { return Within(text.find(s, from)); }
size_t Find(const std::string& text, const std::string& s, size_t from) { return Within(text.find(s, from)); }

// The tag at or after `from`: the first '<' and the first '>', searched
// independently. False when either is missing or the '<' comes after the
// '>'; otherwise the name lies between *open and *close.
bool LocateTag(const std::string& text, size_t from, size_t* open, size_t* close) {
    *open = Find(text, '<', from);
    if (*open == std::string::npos) return false;
    *close = Find(text, '>', from);
    return *close != std::string::npos && *open < *close;
}

bool NameIs(const std::string& text, size_t open, size_t close, const char* name) {
    return text.compare(open + 1, close - open - 1, name) == 0;
}

std::string Name(const std::string& text, size_t open, size_t close) {
    return text.substr(open + 1, close - open - 1);
}

// A cursor position; every position passed here is at most
// kLastMatchPosition plus a few characters, so it fits.
unsigned int Cursor(size_t position) { return static_cast<unsigned int>(position); }

// Decimal text to int the way atoi reads it: leading white space, an
// optional sign, then digits up to the first other character; text without
// digits gives 0. atoi leaves text outside int's range undefined; here it
// saturates at INT_MAX or INT_MIN, which is what atoi gives where long is
// 32 bits wide (its strtol saturates there).
int Number(const std::string& value) {
    const long n = strtol(value.c_str(), nullptr, 10);
    if (n > INT_MAX) return INT_MAX;
    if (n < INT_MIN) return INT_MIN;
    return static_cast<int>(n);
}

// The number compared as unsigned 32-bit, as most limits are.
unsigned int Limit(const std::string& value) { return static_cast<unsigned int>(Number(value)); }

// Record texts may come from a caller: never read past their 128 bytes.
bool FieldIs(const char* field, const char* text) { return strncmp(field, text, MEDIA_TEXT_SIZE) == 0; }

// "Mono", "Stereo", "Multichannel": a device that says false for a channel
// layout refuses files recorded with exactly that text. Two-channel records
// say "Stero", so "Stereo" never matches them.
bool RefusesChannels(const KEY_VAR_st& pair, const MediaFileInfo_st& r) {
    return pair.value == kFalseText && FieldIs(r.channelMode, pair.key.c_str());
}

// A maximum in kilobits per second against a figure in bits per second;
// a limit of 0 means none.
bool RefusesKilobits(const KEY_VAR_st& pair, unsigned int bitsPerSecond) {
    const unsigned int limit = Limit(pair.value);
    return limit > 0 && bitsPerSecond / 1000 > limit;
}

// The picture size in pixels against the low 16 bits of the number, both as
// signed 32-bit: the product is formed in 32 bits, so pictures of 2^31
// pixels and more come out negative and pass.
bool RefusesResolution(const KEY_VAR_st& pair, const MediaFileInfo_st& r) {
    const int pixels = static_cast<int>(static_cast<unsigned int>(r.height) * r.width);
    const int limit = static_cast<unsigned short>(Number(pair.value));
    return pixels > limit;
}

// "Profile" names the profile by the code of its first character, taken as
// a signed 8-bit value ("B" is 66, baseline); an empty value gives the
// terminator, 0.
bool RefusesProfile(const KEY_VAR_st& pair, const MediaFileInfo_st& r) {
    const int code = static_cast<signed char>(pair.value.c_str()[0]);
    return static_cast<unsigned int>(r.profile) != static_cast<unsigned int>(code);
}

bool RefusesSampleRate(const KEY_VAR_st& pair, const MediaFileInfo_st& r) {
    return r.sampleRate > Limit(pair.value);
}

bool RefusesBitDepth(const KEY_VAR_st& pair, const MediaFileInfo_st& r) {
    return r.bitsPerSample > Limit(pair.value);
}

bool RefusesDataRate(const KEY_VAR_st& pair, const MediaFileInfo_st& r) {
    return r.bitRate / 1000 > Limit(pair.value);
}

// Whatever the value says, the file's sound must be AAC.
bool RefusesOtherThanAac(const KEY_VAR_st&, const MediaFileInfo_st& r) {
    return !FieldIs(r.audioCodec, FormatType[kFormatAac]);
}

bool RefusesVariableBitRate(const KEY_VAR_st& pair, const MediaFileInfo_st& r) {
    return pair.value == kFalseText && r.isVbr == 1;
}

// Signed: a negative level refuses every file.
bool RefusesLevel(const KEY_VAR_st& pair, const MediaFileInfo_st& r) {
    return static_cast<int>(r.level) > Number(pair.value);
}

// "MaximumPeakBitRate" and "MaximumAverageBitRate" both limit the peak
// figure: the average is not kept apart.
bool RefusesPeakBitRate(const KEY_VAR_st& pair, const MediaFileInfo_st& r) {
    return RefusesKilobits(pair, r.peakBitRate);
}

bool RefusesMinimumHeight(const KEY_VAR_st& pair, const MediaFileInfo_st& r) {
    return r.height != 0 && r.height < Limit(pair.value);
}

bool RefusesMaximumHeight(const KEY_VAR_st& pair, const MediaFileInfo_st& r) {
    return r.height > Limit(pair.value);
}

bool RefusesMinimumWidth(const KEY_VAR_st& pair, const MediaFileInfo_st& r) {
    return r.width != 0 && r.width < Limit(pair.value);
}

bool RefusesMaximumWidth(const KEY_VAR_st& pair, const MediaFileInfo_st& r) {
    return r.width > Limit(pair.value);
}

bool RefusesProfileLevelId(const KEY_VAR_st& pair, const MediaFileInfo_st& r) {
    return r.profileLevelId > Limit(pair.value);
}

// The requirement keys, one row each in the order they are matched: the
// key, the record fields it judges and its check. A key without a check is
// read but never refuses a file; a key not in the table passes too. The
// rows make both FILE_INFO_TAG and the judgement's table below.
#define FILEINFO_REQUIREMENT_KEYS(ROW)                                          \
    ROW("Mono", "channelMode", RefusesChannels)                                 \
    ROW("Stereo", "channelMode", RefusesChannels)                               \
    ROW("Multichannel", "channelMode", RefusesChannels)                         \
    ROW("AppleDRM", "", nullptr)                                                \
    ROW("MaximumSampleRate", "sampleRate", RefusesSampleRate)                   \
    ROW("MaximumBitDepth", "bitsPerSample", RefusesBitDepth)                    \
    ROW("MaximumDataRate", "bitRate", RefusesDataRate)                          \
    ROW("AAC", "audioCodec", RefusesOtherThanAac)                               \
    ROW("LC", "", nullptr)                                                      \
    ROW("VariableBitRate", "isVbr", RefusesVariableBitRate)                     \
    ROW("PerceptualNoiseSubsitution", "", nullptr)                              \
    ROW("MaximumBitDepthUntruncated", "", nullptr)                              \
    ROW("Type1", "", nullptr)                                                   \
    ROW("Type2", "", nullptr)                                                   \
    ROW("Type3", "", nullptr)                                                   \
    ROW("Type4", "", nullptr)                                                   \
    ROW("AppleVideoDRM", "", nullptr)                                           \
    ROW("MaximumEncryptionPercentage", "", nullptr)                             \
    ROW("Profile", "profile", RefusesProfile)                                   \
    ROW("Level", "level", RefusesLevel)                                         \
    ROW("ComplexityLevel", "", nullptr)                                         \
    ROW("MaximumPeakBitRate", "peakBitRate", RefusesPeakBitRate)                \
    ROW("MaximumResolution", "height width", RefusesResolution)                 \
    ROW("MinimumHeight", "height", RefusesMinimumHeight)                        \
    ROW("MaximumHeight", "height", RefusesMaximumHeight)                        \
    ROW("MinimumWidth", "width", RefusesMinimumWidth)                           \
    ROW("MaximumWidth", "width", RefusesMaximumWidth)                           \
    ROW("Profile-Level-ID", "profileLevelId", RefusesProfileLevelId)            \
    ROW("MaximumAverageBitRate", "peakBitRate", RefusesPeakBitRate)             \
    ROW("MaximumBufferSize", "", nullptr)

struct Requirement {
    const char* key;
    const char* fields;  // the record fields the check reads
    bool (*refuses)(const KEY_VAR_st& pair, const MediaFileInfo_st& r);
};

#define FILEINFO_REQUIREMENT_ROW(key, fields, check) {key, fields, check},
constexpr Requirement kRequirements[] = {FILEINFO_REQUIREMENT_KEYS(FILEINFO_REQUIREMENT_ROW)};
#undef FILEINFO_REQUIREMENT_ROW

static_assert(sizeof kRequirements / sizeof kRequirements[0] == FileInfoFilter::kFileInfoTagCount,
              "one requirement row for each FILE_INFO_TAG row");

// Whether one key and its value refuse the record.
bool Refuses(const KEY_VAR_st& pair, const MediaFileInfo_st& r) {
    for (const Requirement& requirement : kRequirements) {
        if (pair.key == requirement.key) return requirement.refuses != nullptr && requirement.refuses(pair, r);
    }
    return false;
}

}  // namespace

#define FILEINFO_REQUIREMENT_KEY(key, fields, check) key,
const char* const FileInfoFilter::FILE_INFO_TAG[kFileInfoTagCount] = {
    FILEINFO_REQUIREMENT_KEYS(FILEINFO_REQUIREMENT_KEY)};
#undef FILEINFO_REQUIREMENT_KEY
static_assert(sizeof FileInfoFilter::FILE_INFO_TAG / sizeof FileInfoFilter::FILE_INFO_TAG[0] ==
                  sizeof kRequirements / sizeof kRequirements[0],
              "FILE_INFO_TAG and the requirement table are the same rows");
#undef FILEINFO_REQUIREMENT_KEYS

// Cost: every search starts at the cursor. When a tag is located, both
// searched characters lie at or before its '>'; a tag the cursor moves past
// (a <dict>, a </dict>, a key, an empty element, a closed value) thus cost
// no more than the distance moved, and a found closing tag lies just before
// the cursor's new place. A tag the cursor does not move past is located
// again by the next read at most, and a pair that moves nothing ends the
// walk (see JudgeValue); a failed search ends it within two pairs. So each
// character is searched a bounded number of times: a judgement is linear in
// the text's length (the needle search costs at most its 139 characters per
// position).

FileInfoFilter::FileInfoFilter(std::string text) : m_pos(0), m_depth(0), m_text(std::move(text)) {}

std::string FileInfoFilter::GetKey() {
    // A <dict> or </dict> is stepped over and the search begins again at the
    // new cursor: the loop stands for GetKey calling itself, so any nesting
    // depth costs no stack.
    for (;;) {
        size_t open, close;
        if (!LocateTag(m_text, m_pos, &open, &close)) return std::string();
        if (NameIs(m_text, open, close, kDictName)) {
            m_pos = Cursor(close + 1);
            ++m_depth;
            continue;
        }
        if (NameIs(m_text, open, close, kDictEndName)) {
            m_pos = Cursor(close + 1);
            --m_depth;
            if (m_depth != 0) continue;
            return std::string();  // the walk has left the dictionary it began in
        }
        if (NameIs(m_text, open, close, kKeyName)) {
            const size_t end = Find(m_text, KEY_END, close + 1);
            if (end == std::string::npos) return kKeyName;  // unterminated: the tag's name
            m_pos = Cursor(end + strlen(KEY_END));
            return m_text.substr(close + 1, end - close - 1);
        }
        // Not a key: the tag's name stands for one, the cursor stays.
        return Name(m_text, open, close);
    }
}

KEY_VAR_st FileInfoFilter::GetValue() {
    KEY_VAR_st result;
    size_t open, close;
    if (!LocateTag(m_text, m_pos, &open, &close)) return result;

    if (m_text[close - 1] == '/') {
        // An empty element such as <false/>: its name is the value. The
        // cursor lands one character past the line end that follows it.
        result.type = kTypeString;
        result.value = m_text.substr(open + 1, close - open - 2);
        m_pos = Cursor(close + 2);
        return result;
    }

    const size_t content = close + 1;
    for (const ScalarElement& element : kScalarElements) {
        if (!NameIs(m_text, open, close, element.name)) continue;
        result.type = element.type;
        const size_t end = Find(m_text, element.closing, content);
        if (end != std::string::npos) {
            result.value = m_text.substr(content, end - content);
            m_pos = Cursor(end + strlen(element.closing));
        }
        return result;
    }

    if (NameIs(m_text, open, close, kDictName)) {
        // The keys inside are walked by the following GetKey calls.
        m_pos = Cursor(content);
        ++m_depth;
    }
    return result;
}

KEY_VAR_st FileInfoFilter::GetNextKeyVar() {
    KEY_VAR_st result;
    result.key = GetKey();
    if (result.key.empty()) return result;
    KEY_VAR_st value = GetValue();
    result.type = value.type;
    result.value = std::move(value.value);
    return result;
}

int FileInfoFilter::AdjudgeFile(MediaFileInfo_st* info) {
    if (info == nullptr) return 0;
    std::string needle = KEY_BEGIN;
    needle.append(info->fileType, strnlen(info->fileType, MEDIA_TEXT_SIZE));
    needle += KEY_END;
    // The first occurrence counts, wherever it lies in the text.
    const size_t at = Find(m_text, needle, 0);
    if (at == std::string::npos) return 0;  // a type the device does not name
    m_pos = Cursor(at + needle.size());
    return JudgeValue(info);
}

int FileInfoFilter::JudgeValue(MediaFileInfo_st* info) {
    if (info == nullptr) return 0;
    for (;;) {
        const unsigned int posBefore = m_pos;
        const int depthBefore = m_depth;
        // The first read consumes the type's <dict> and brings the depth to 1.
        const KEY_VAR_st pair = GetNextKeyVar();
        if (pair.key.empty() || m_pos >= m_text.size()) return 1;
        if (m_depth < 1) return 0;  // the type's value is not a dictionary
        if (Refuses(pair, *info)) return 0;
        // A read that moved nothing (an unknown tag, an unterminated element)
        // would yield this same pair from this same state for ever, and it
        // has just passed: nothing can refuse the file any more.
        if (m_pos == posBefore && m_depth == depthBefore) return 1;
    }
}
