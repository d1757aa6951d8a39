// The device verdict on a reading: every requirement key of the device's
// entry for the file's type, with its plain meaning applied to what the
// file holds. The keys are the filter's own (FILE_INFO_TAG); the library's
// verdict on the record is Device::Judge, kept beside this one.
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "JudgeInfo.h"
#include "Verdict.h"

namespace fileinfo {

namespace {

using media::Reading;

// "48 kHz", "44.1 kHz", "22.05 kHz".
std::string Kilohertz(uint64_t hertz) {
    char text[48];
    if (hertz % 1000 == 0) {
        std::snprintf(text, sizeof text, "%" PRIu64 " kHz", hertz / 1000);
    } else {
        std::snprintf(text, sizeof text, "%.3f", static_cast<double>(hertz) / 1000.0);
        std::string trimmed(text);
        while (trimmed.back() == '0') trimmed.pop_back();
        return trimmed + " kHz";
    }
    return text;
}

// 1234567 -> "1,234,567".
std::string Grouped(uint64_t number) {
    std::string digits = std::to_string(number);
    for (int at = static_cast<int>(digits.size()) - 3; at > 0; at -= 3) digits.insert(static_cast<size_t>(at), ",");
    return digits;
}

std::string Kilobits(uint64_t bitsPerSecond) { return Grouped(bitsPerSecond / 1000) + " kbit/s"; }

// H.264 levels are written as level_idc / 10: 30 is "3", 31 is "3.1".
std::string H264Level(uint64_t level) {
    return std::to_string(level / 10) + (level % 10 != 0 ? "." + std::to_string(level % 10) : std::string());
}

std::string ChannelWords(uint32_t channels) {
    if (channels == 1) return "mono";
    if (channels == 2) return "stereo";
    return std::to_string(channels) + " channels";
}

bool IsAac(const Reading& r) {
    return r.audio_codec.compare(0, 3, "AAC") == 0 || r.audio_codec.compare(0, 6, "HE-AAC") == 0;
}

// The number a value gives, or false when it holds none.
bool Number(const std::string& value, long long& out) {
    if (value.empty()) return false;
    char* end = nullptr;
    out = std::strtoll(value.c_str(), &end, 10);
    return end != value.c_str();
}

const char* H264ProfileName(long long id) {
    switch (id) {
        case 66: return "Baseline";
        case 77: return "Main";
        case 88: return "Extended";
        case 100: return "High";
        case 110: return "High 10";
        case 122: return "High 4:2:2";
        case 244: return "High 4:4:4 Predictive";
        default: return nullptr;
    }
}

// A "Profile" value names an H.264 profile by a letter ('B' is 66, the
// Baseline profile's number) or by its number.
long long ProfileNumber(const std::string& value) {
    long long number = 0;
    if (Number(value, number)) return number;
    return value.empty() ? -1 : static_cast<unsigned char>(value[0]);
}

std::string ProfileWords(long long id, const std::string& name) {
    if (!name.empty()) return name;
    const char* known = H264ProfileName(id);
    return known != nullptr ? known : "profile " + std::to_string(id);
}

// One requirement on the reading: the refusal in words, or empty when the
// reading passes.
using Check = std::string (*)(const std::string& value, const Reading& r);

std::string RefusedWhenFalse(const std::string& value, bool holds, const std::string& words) {
    return value == "false" && holds ? words : std::string();
}

std::string CheckMono(const std::string& value, const Reading& r) {
    return RefusedWhenFalse(value, r.channels == 1, "mono sound, and the device plays no mono");
}
std::string CheckStereo(const std::string& value, const Reading& r) {
    return RefusedWhenFalse(value, r.channels == 2, "stereo sound, and the device plays no stereo");
}
std::string CheckMultichannel(const std::string& value, const Reading& r) {
    return RefusedWhenFalse(value, r.channels > 2,
                            ChannelWords(r.channels) + ", and the device plays at most stereo");
}

std::string CheckSampleRate(const std::string& value, const Reading& r) {
    long long limit = 0;
    if (!r.HasAudio() || !Number(value, limit) || static_cast<long long>(r.sample_rate) <= limit) return {};
    return "sample rate " + Kilohertz(r.sample_rate) + " is above the device's " +
           Kilohertz(static_cast<uint64_t>(limit < 0 ? 0 : limit));
}

std::string CheckBitDepth(const std::string& value, const Reading& r) {
    long long limit = 0;
    if (!r.HasAudio() || !Number(value, limit) || static_cast<long long>(r.bits_per_sample) <= limit) return {};
    std::string words = std::to_string(r.bits_per_sample) + "-bit ";
    if (r.pcm_format == "float") words += "floating-point ";
    return words + "samples are deeper than the device's " + std::to_string(limit) + " bits";
}

// The sound's own bit rate: a movie's sound track, or the whole of a sound
// file.
uint64_t SoundBitRate(const Reading& r) { return r.audio_bit_rate != 0 ? r.audio_bit_rate : r.bit_rate; }

std::string CheckDataRate(const std::string& value, const Reading& r) {
    long long limit = 0;
    const uint64_t rate = SoundBitRate(r);
    if (!r.HasAudio() || !Number(value, limit) || static_cast<long long>(rate / 1000) <= limit) return {};
    return "bit rate " + Kilobits(rate) + " is above the device's " + Grouped(limit < 0 ? 0 : limit) + " kbit/s";
}

std::string CheckAac(const std::string&, const Reading& r) {
    if (!r.HasAudio() || IsAac(r)) return {};
    return "the sound is " + r.audio_codec + ", and the device takes only AAC sound here";
}

std::string CheckLc(const std::string& value, const Reading& r) {
    if (!r.HasAudio() || !IsAac(r)) return {};
    const bool lc = r.audio_codec == "AAC LC";
    if (value == "false") return lc ? "AAC LC sound, and the device plays no AAC LC" : std::string();
    return lc ? std::string() : r.audio_codec + " is not AAC LC, the AAC profile the device lists";
}

std::string CheckVariableBitRate(const std::string& value, const Reading& r) {
    return RefusedWhenFalse(value, r.vbr, "a variable bit rate, and the device plays only constant bit rates");
}

std::string CheckProfile(const std::string& value, const Reading& r) {
    if (r.video_codec != "H.264") return {};
    const long long wanted = ProfileNumber(value);
    if (static_cast<long long>(r.profile_id) == wanted) return {};
    return "H.264 " + ProfileWords(r.profile_id, r.profile) + " profile is not the device's " +
           ProfileWords(wanted, std::string());
}

std::string CheckLevel(const std::string& value, const Reading& r) {
    long long limit = 0;
    if (r.video_codec != "H.264" || !Number(value, limit) || static_cast<long long>(r.level) <= limit) return {};
    return "H.264 level " + H264Level(r.level) + " is above the device's " +
           (limit < 0 ? std::to_string(limit) : H264Level(static_cast<uint64_t>(limit)));
}

std::string VideoBitRate(const std::string& value, uint64_t rate, const char* what) {
    long long limit = 0;
    if (!Number(value, limit) || limit <= 0 || static_cast<long long>(rate / 1000) <= limit) return {};
    return std::string(what) + " bit rate " + Kilobits(rate) + " is above the device's " + Grouped(limit) + " kbit/s";
}

std::string CheckPeakBitRate(const std::string& value, const Reading& r) {
    if (!r.HasVideo()) return {};
    return VideoBitRate(value, r.video_peak_bit_rate, "peak video");
}

std::string CheckAverageBitRate(const std::string& value, const Reading& r) {
    if (!r.HasVideo()) return {};
    return VideoBitRate(value, r.video_bit_rate, "average video");
}

std::string CheckResolution(const std::string& value, const Reading& r) {
    long long limit = 0;
    const uint64_t pixels = static_cast<uint64_t>(r.width) * r.height;
    if (!r.HasVideo() || !Number(value, limit) || static_cast<long long>(pixels) <= limit) return {};
    return "picture " + std::to_string(r.width) + "\xC3\x97" + std::to_string(r.height) + " (" + Grouped(pixels) +
           " pixels) is larger than the device's " + Grouped(limit < 0 ? 0 : limit) + " pixels";
}

std::string Bound(const std::string& value, const Reading& r, uint32_t size, bool minimum, const char* what) {
    long long limit = 0;
    if (!r.HasVideo() || !Number(value, limit)) return {};
    if (minimum ? (size != 0 && size < limit) : (size > limit)) {
        return std::string(what) + " " + std::to_string(size) + " is " + (minimum ? "below" : "above") +
               " the device's " + (minimum ? "minimum " : "maximum ") + std::to_string(limit);
    }
    return {};
}

std::string CheckMinimumHeight(const std::string& v, const Reading& r) { return Bound(v, r, r.height, true, "height"); }
std::string CheckMaximumHeight(const std::string& v, const Reading& r) { return Bound(v, r, r.height, false, "height"); }
std::string CheckMinimumWidth(const std::string& v, const Reading& r) { return Bound(v, r, r.width, true, "width"); }
std::string CheckMaximumWidth(const std::string& v, const Reading& r) { return Bound(v, r, r.width, false, "width"); }

std::string CheckProfileLevelId(const std::string& value, const Reading& r) {
    long long limit = 0;
    if (r.video_codec != "MPEG-4 Visual" || !Number(value, limit) || static_cast<long long>(r.profile_id) <= limit) {
        return {};
    }
    return "MPEG-4 Visual profile and level " + std::to_string(r.profile_id) +
           (r.profile.empty() ? std::string() : " (" + r.profile + ")") + " is above the device's " +
           std::to_string(limit);
}

// The plain meaning of every requirement key the filter checks, by the
// filter's own key names. "LC" is read but never refuses in the filter's
// table; on a reading it has its plain meaning, AAC LC. Keys without a
// row here stay unchecked, as in the filter.
struct ReadingCheck {
    const char* key;
    Check check;
};
const ReadingCheck kReadingChecks[] = {
    {"Mono", CheckMono},
    {"Stereo", CheckStereo},
    {"Multichannel", CheckMultichannel},
    {"MaximumSampleRate", CheckSampleRate},
    {"MaximumBitDepth", CheckBitDepth},
    {"MaximumDataRate", CheckDataRate},
    {"AAC", CheckAac},
    {"LC", CheckLc},
    {"VariableBitRate", CheckVariableBitRate},
    {"Profile", CheckProfile},
    {"Level", CheckLevel},
    {"MaximumPeakBitRate", CheckPeakBitRate},
    {"MaximumResolution", CheckResolution},
    {"MinimumHeight", CheckMinimumHeight},
    {"MaximumHeight", CheckMaximumHeight},
    {"MinimumWidth", CheckMinimumWidth},
    {"MaximumWidth", CheckMaximumWidth},
    {"Profile-Level-ID", CheckProfileLevelId},
    {"MaximumAverageBitRate", CheckAverageBitRate},
};

// The check for a key of the filter's table, or null for a key the filter
// does not know or leaves unchecked.
Check CheckFor(const std::string& key) {
    bool known = false;
    for (const char* tag : FileInfoFilter::FILE_INFO_TAG) known |= key == tag;
    if (!known) return nullptr;
    for (const ReadingCheck& row : kReadingChecks) {
        if (key == row.key) return row.check;
    }
    return nullptr;
}

// Sound-only keys: inside a movie's nested sound entry only these apply.
bool JudgesSound(const std::string& key) {
    static const char* const kSoundKeys[] = {"Mono", "Stereo", "Multichannel", "MaximumSampleRate", "MaximumBitDepth",
                                             "MaximumDataRate", "AAC", "LC", "VariableBitRate"};
    for (const char* sound : kSoundKeys) {
        if (key == sound) return true;
    }
    return false;
}

}  // namespace

std::string ReadingLookupType(const Reading& r) {
    if (r.type == "MP3") return r.audio_codec.empty() ? "MP3" : r.audio_codec;  // MP2 is not MP3
    if (r.type == "AAC" || r.type == "WAV") return r.type;
    if (r.type == "AIFF" || r.type == "AIFC") return "AIFF";
    if (r.type.empty()) return {};
    // The MP4 family: a movie by its picture, a sound file by its sound.
    if (r.HasVideo()) {
        if (r.video_codec == "MPEG-4 Visual") return "MPEG-4";
        return r.video_codec;
    }
    if (IsAac(r)) return "AAC";
    if (r.audio_codec == "ALAC") return "AppleLossless";
    if (r.audio_codec == "AMR-NB") return "AMR";
    return r.audio_codec;
}

ReadingVerdict Device::JudgeReading(const Reading& reading) const {
    ReadingVerdict verdict;
    if (!reading.Identified()) {
        verdict.explanation = "the file was not identified";
        return verdict;
    }
    const std::string type = ReadingLookupType(reading);
    const std::string needle = std::string(FileInfoFilter::KEY_BEGIN) + type + FileInfoFilter::KEY_END;
    const size_t at = type.empty() ? std::string::npos : caps_.find(needle);
    if (at == std::string::npos) {
        verdict.explanation = "the device lists no " + (type.empty() ? reading.type : type) + " type";
        return verdict;
    }
    FileInfoFilter walk(caps_);
    walk.m_pos = static_cast<unsigned int>(at + needle.size());
    KEY_VAR_st pair = walk.GetNextKeyVar();  // takes the entry's <dict>: depth 1
    if (!pair.key.empty() && walk.m_depth < 1) {
        verdict.explanation = "the device's " + type + " entry is not a dictionary";
        return verdict;
    }
    // Nested dictionaries below the entry (a movie's "AAC" entry) judge
    // the sound only.
    int soundDepth = 0;
    for (size_t steps = 0; !pair.key.empty() && steps < caps_.size(); ++steps) {
        const int depth = walk.m_depth;
        if (soundDepth != 0 && depth < soundDepth) soundDepth = 0;
        const Check check = CheckFor(pair.key);
        if (check != nullptr && !(soundDepth != 0 && !JudgesSound(pair.key))) {
            const std::string refusal = check(pair.value, reading);
            if (!refusal.empty()) {
                verdict.refusedBy.push_back(pair.key);
                verdict.explanation += (verdict.explanation.empty() ? "" : "; ") + refusal;
            }
        }
        const unsigned int before = walk.m_pos;
        const int depthBefore = walk.m_depth;
        pair = walk.GetNextKeyVar();
        if (walk.m_depth > depthBefore && soundDepth == 0) soundDepth = walk.m_depth;
        if (walk.m_pos == before || walk.m_pos >= caps_.size()) break;
    }
    verdict.playable = verdict.refusedBy.empty();
    return verdict;
}

}  // namespace fileinfo
