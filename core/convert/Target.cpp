#include "convert/Target.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>

#include "JudgeInfo.h"

namespace fileinfo {
namespace convert {

const uint32_t kStandardRates[] = {8000, 11025, 12000, 16000, 22050, 24000, 32000, 44100, 48000, 64000, 88200, 96000, 176400, 192000};
const size_t kStandardRateCount = sizeof kStandardRates / sizeof kStandardRates[0];

namespace {

constexpr char kTextVersion[] = "convert/1";

// A "good" lossy bit rate per channel, before the list's limits.
constexpr uint32_t kAacPerChannel = 96000;
constexpr uint32_t kMp3PerChannel = 128000;
// A movie's sound: modest, so that the picture keeps most of the limits.
constexpr uint32_t kMovieSoundPerChannel = 64000;
// Bits per pixel and frame a picture target is given, before the limits.
constexpr double kBitsPerPixel = 0.15;

// The MP3 bit rates, kbit/s: MPEG-1 (32 kHz and above) and MPEG-2/2.5.
const uint32_t kMp3Rates1[] = {32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320};
const uint32_t kMp3Rates2[] = {8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160};

// H.264 levels (level_idc): macroblocks per second, per frame, and the
// Baseline profile's bit rate limit in kbit/s.
struct H264Level {
    uint32_t level;
    uint32_t macroblocksPerSecond;
    uint32_t frameMacroblocks;
    uint32_t kilobits;
};
const H264Level kH264Levels[] = {
    {10, 1485, 99, 64},         {11, 3000, 396, 192},       {12, 6000, 396, 384},        {13, 11880, 396, 768},
    {20, 11880, 396, 2000},     {21, 19800, 792, 4000},     {22, 20250, 1620, 4000},     {30, 40500, 1620, 10000},
    {31, 108000, 3600, 14000},  {32, 216000, 5120, 20000},  {40, 245760, 8192, 20000},   {41, 245760, 8192, 50000},
    {42, 522240, 8704, 50000},  {50, 589824, 22080, 135000}, {51, 983040, 36864, 240000}, {52, 2073600, 36864, 240000},
};

// MPEG-4 Visual Simple Profile levels by their profile_and_level_indication:
// the bit rate limit in kbit/s. 8 is level 0.
struct Mpeg4Level {
    uint32_t indication;
    uint32_t kilobits;
};
const Mpeg4Level kMpeg4SimpleLevels[] = {{8, 64}, {1, 64}, {2, 128}, {3, 384}, {4, 4000}, {5, 8000}};

// The keys whose only complaint is a number or a channel count: a file
// refused by these alone keeps its type.
bool LimitKey(const std::string& key) {
    static const char* const kLimits[] = {"MaximumSampleRate", "MaximumBitDepth", "MaximumDataRate",
                                          "Mono",              "Stereo",          "Multichannel"};
    for (const char* limit : kLimits) {
        if (key == limit) return true;
    }
    return false;
}

bool KnownKey(const std::string& key) {
    for (const char* tag : FileInfoFilter::FILE_INFO_TAG) {
        if (key == tag) return true;
    }
    return false;
}

// The requirement values of one entry, the movie's nested sound apart.
struct Entry {
    std::map<std::string, std::string> own;
    std::map<std::string, std::string> sound;

    // The number a key gives, or -1.
    static long long NumberOf(const std::map<std::string, std::string>& keys, const char* key) {
        const auto at = keys.find(key);
        if (at == keys.end() || at->second.empty()) return -1;
        char* end = nullptr;
        const long long value = std::strtoll(at->second.c_str(), &end, 10);
        return end == at->second.c_str() ? -1 : value;
    }
    static bool IsFalse(const std::map<std::string, std::string>& keys, const char* key) {
        const auto at = keys.find(key);
        return at != keys.end() && at->second == "false";
    }
};

bool ReadEntry(const std::string& caps, const std::string& type, Entry& entry) {
    std::vector<EntryKey> keys;
    if (!EntryKeys(caps, type, keys)) return false;
    for (const EntryKey& k : keys) (k.sound ? entry.sound : entry.own).emplace(k.key, k.value);
    return true;
}

// The highest standard rate not above `limit` (or the source's own rate
// when it is standard and allowed); 0 when there is none.
uint32_t ChooseRate(uint32_t source, long long limit, uint32_t lowest, uint32_t highest) {
    uint64_t ceiling = source != 0 ? source : 44100;
    if (limit > 0) ceiling = std::min<uint64_t>(ceiling, static_cast<uint64_t>(limit));
    ceiling = std::min<uint64_t>(ceiling, highest);
    uint32_t chosen = 0;
    for (size_t k = 0; k < kStandardRateCount; ++k) {
        if (kStandardRates[k] >= lowest && kStandardRates[k] <= ceiling) chosen = kStandardRates[k];
    }
    // A source below every standard rate is raised to the lowest one the
    // list allows.
    if (chosen == 0 && (limit < 0 || limit >= lowest)) chosen = lowest;
    return chosen;
}

// Channels within Mono, Stereo and Multichannel; 0 when none is allowed.
uint32_t ChooseChannels(uint32_t source, const std::map<std::string, std::string>& keys, uint32_t most) {
    uint32_t channels = source == 0 ? 2 : std::min(source, most);
    if (channels > 2 && Entry::IsFalse(keys, "Multichannel")) channels = 2;
    if (channels == 2 && Entry::IsFalse(keys, "Stereo")) channels = 1;
    if (channels == 1 && Entry::IsFalse(keys, "Mono")) channels = Entry::IsFalse(keys, "Stereo") ? 0 : 2;
    return channels;
}

uint32_t LossyRate(uint32_t perChannel, uint32_t channels, uint32_t sampleRate, long long limitKilobits) {
    // Low sample rates hold fewer bits worth spending.
    uint64_t rate = static_cast<uint64_t>(std::min<uint64_t>(perChannel, sampleRate * 2ull)) * channels;
    if (limitKilobits > 0) rate = std::min<uint64_t>(rate, static_cast<uint64_t>(limitKilobits) * 1000);
    return static_cast<uint32_t>(std::min<uint64_t>(rate, 512000));
}

// The highest MP3 bit rate not above `rate`.
uint32_t Mp3Rate(uint32_t rate, uint32_t sampleRate) {
    const bool mpeg1 = sampleRate >= 32000;
    const uint32_t* table = mpeg1 ? kMp3Rates1 : kMp3Rates2;
    uint32_t chosen = table[0];
    for (size_t k = 0; k < 14; ++k) {
        if (table[k] * 1000 <= rate) chosen = table[k];
    }
    return chosen * 1000;
}

bool AacTarget(const std::map<std::string, std::string>& keys, const media::Reading& r, uint32_t perChannel,
               SoundTarget& sound, std::string& why) {
    if (Entry::IsFalse(keys, "LC")) {
        why = "the device plays no AAC LC";
        return false;
    }
    sound.codec = "aac";
    sound.channels = ChooseChannels(r.channels, keys, 2);
    sound.sampleRate = ChooseRate(r.sample_rate, Entry::NumberOf(keys, "MaximumSampleRate"), 8000, 96000);
    if (sound.channels == 0 || sound.sampleRate == 0) {
        why = "the device's AAC entry allows no channels or sample rate";
        return false;
    }
    sound.bitRate = LossyRate(perChannel, sound.channels, sound.sampleRate, Entry::NumberOf(keys, "MaximumDataRate"));
    return true;
}

bool Mp3Target(const std::map<std::string, std::string>& keys, const media::Reading& r, SoundTarget& sound,
               std::string& why) {
    sound.codec = "mp3";
    sound.channels = ChooseChannels(r.channels, keys, 2);
    sound.sampleRate = ChooseRate(r.sample_rate, Entry::NumberOf(keys, "MaximumSampleRate"), 8000, 48000);
    if (sound.channels == 0 || sound.sampleRate == 0) {
        why = "the device's MP3 entry allows no channels or sample rate";
        return false;
    }
    const uint32_t good =
        LossyRate(kMp3PerChannel, sound.channels, sound.sampleRate, Entry::NumberOf(keys, "MaximumDataRate"));
    sound.bitRate = Mp3Rate(good, sound.sampleRate);
    return true;
}

// PCM within the limits, the data rate included: the rate is lowered until
// it fits. False when nothing fits.
bool PcmTarget(const std::map<std::string, std::string>& keys, const media::Reading& r, SoundTarget& sound) {
    sound.codec = "pcm";
    sound.channels = ChooseChannels(r.channels, keys, 2);
    const long long depthLimit = Entry::NumberOf(keys, "MaximumBitDepth");
    uint32_t bits = r.bits_per_sample == 0 ? 16 : std::min<uint32_t>(r.bits_per_sample, 24);
    if (r.pcm_format == "float") bits = std::min<uint32_t>(bits, 24);
    if (depthLimit > 0) bits = static_cast<uint32_t>(std::min<long long>(bits, depthLimit));
    bits = bits >= 24 ? 24 : bits >= 16 ? 16 : bits >= 8 ? 8 : 0;
    if (sound.channels == 0 || bits == 0) return false;
    sound.bitsPerSample = bits;
    long long rateLimit = Entry::NumberOf(keys, "MaximumSampleRate");
    const long long dataLimit = Entry::NumberOf(keys, "MaximumDataRate");
    if (dataLimit > 0) {
        const long long fits = dataLimit * 1000 / (static_cast<long long>(bits) * sound.channels);
        rateLimit = rateLimit > 0 ? std::min(rateLimit, fits) : fits;
    }
    sound.sampleRate = ChooseRate(r.sample_rate, rateLimit, 8000, 192000);
    return sound.sampleRate != 0;
}

// The first of AAC (LC, in .m4a) and MP3 the list names.
bool LossySoundTarget(const std::string& caps, const media::Reading& r, Target& target, std::string& why) {
    Entry entry;
    if (ReadEntry(caps, "AAC", entry)) {
        std::string aacWhy;
        if (AacTarget(entry.own, r, kAacPerChannel, target.sound, aacWhy)) {
            target.type = "AAC";
            target.container = "m4a";
            target.extension = ".m4a";
            target.hasSound = true;
            return true;
        }
        why = aacWhy;
    }
    Entry mp3;
    if (ReadEntry(caps, "MP3", mp3)) {
        target.sound = SoundTarget();
        if (Mp3Target(mp3.own, r, target.sound, why)) {
            target.type = "MP3";
            target.container = "mp3";
            target.extension = ".mp3";
            target.hasSound = true;
            return true;
        }
    }
    if (why.empty()) why = "the device lists neither AAC nor MP3";
    return false;
}

bool SoundTargetFor(const std::string& caps, const media::Reading& r, const std::vector<std::string>& refusedBy,
                    Target& target, std::string& why) {
    const std::string own = ReadingLookupType(r);
    const bool onlyLimits =
        !refusedBy.empty() && std::all_of(refusedBy.begin(), refusedBy.end(), [](const std::string& k) { return LimitKey(k); });
    Entry entry;
    if (onlyLimits && ReadEntry(caps, own, entry)) {
        if ((own == "WAV" || own == "AIFF") && r.audio_codec == "PCM" && PcmTarget(entry.own, r, target.sound)) {
            target.type = own;
            target.container = own == "WAV" ? "wav" : "aiff";
            target.extension = own == "WAV" ? ".wav" : ".aif";
            target.hasSound = true;
            return true;
        }
        if (own == "MP3" && Mp3Target(entry.own, r, target.sound, why)) {
            target.type = own;
            target.container = "mp3";
            target.extension = ".mp3";
            target.hasSound = true;
            return true;
        }
        target.sound = SoundTarget();
        why.clear();
    }
    return LossySoundTarget(caps, r, target, why);
}

const H264Level* LevelOf(uint32_t level) {
    for (const H264Level& l : kH264Levels) {
        if (l.level == level) return &l;
    }
    return nullptr;
}

// In 64 bits: a size near 2^32 must not wrap to no macroblocks at all.
uint64_t Macroblocks(uint32_t width, uint32_t height) {
    return ((uint64_t{width} + 15) / 16) * ((uint64_t{height} + 15) / 16);
}

uint32_t EvenDown(double value) {
    const uint32_t whole = value < 2 ? 2 : static_cast<uint32_t>(value);
    return whole - whole % 2;
}

// The picture within the limits, keeping the aspect ratio, with even sizes.
bool FitPicture(const media::Reading& r, const std::map<std::string, std::string>& keys, uint32_t frameMacroblocks,
                PictureTarget& picture, std::string& why) {
    const double width = r.width, height = r.height;
    if (r.width == 0 || r.height == 0) {
        why = "the picture's size is not known";
        return false;
    }
    double scale = 1;
    const long long maxW = Entry::NumberOf(keys, "MaximumWidth"), maxH = Entry::NumberOf(keys, "MaximumHeight");
    const long long minW = Entry::NumberOf(keys, "MinimumWidth"), minH = Entry::NumberOf(keys, "MinimumHeight");
    const long long pixels = Entry::NumberOf(keys, "MaximumResolution");
    if (maxW > 0) scale = std::min(scale, maxW / width);
    if (maxH > 0) scale = std::min(scale, maxH / height);
    if (pixels > 0) scale = std::min(scale, std::sqrt(pixels / (width * height)));
    for (int tries = 0; tries < 200; ++tries) {
        picture.width = EvenDown(width * scale);
        picture.height = EvenDown(height * scale);
        if (frameMacroblocks == 0 || Macroblocks(picture.width, picture.height) <= frameMacroblocks) break;
        scale *= 0.97;
    }
    if ((minW > 0 && picture.width < minW) || (minH > 0 && picture.height < minH) ||
        (maxW > 0 && picture.width > maxW) || (maxH > 0 && picture.height > maxH) ||
        (frameMacroblocks != 0 && Macroblocks(picture.width, picture.height) > frameMacroblocks)) {
        why = "no picture size keeps the aspect ratio within the device's limits";
        return false;
    }
    return true;
}

// The average and peak video rates: a picture's worth, within the list's
// and the level's limits. The peak is held under half the limit because a
// rate limit over a one-second buffer can let one second carry twice it.
void VideoRates(const std::map<std::string, std::string>& keys, uint32_t levelKilobits, PictureTarget& picture) {
    uint64_t limit = levelKilobits != 0 ? levelKilobits * 1000ull : 0;
    for (const char* key : {"MaximumPeakBitRate", "MaximumAverageBitRate"}) {
        const long long value = Entry::NumberOf(keys, key);
        if (value > 0) limit = limit == 0 ? value * 1000ull : std::min<uint64_t>(limit, value * 1000ull);
    }
    if (limit == 0) limit = 8000000;
    const double good = kBitsPerPixel * picture.width * picture.height * picture.frameRateMilli / 1000.0;
    picture.peakBitRate = static_cast<uint32_t>(std::min<uint64_t>(limit * 45 / 100, 0xFFFFFFFFu));
    picture.bitRate = static_cast<uint32_t>(std::min<double>(good, picture.peakBitRate));
    picture.bitRate = std::max<uint32_t>(picture.bitRate, std::min<uint32_t>(picture.peakBitRate, 32000));
}

uint32_t FrameRateMilli(const media::Reading& r) {
    const double rate = r.frame_rate > 0 && r.frame_rate < 1000 ? r.frame_rate : 25;
    return static_cast<uint32_t>(std::lround(rate * 1000));
}

// The H.264 profile a "Profile" value names: a letter ('B' Baseline, 'M'
// Main, 'H' High) or profile_idc itself.
uint32_t H264Profile(const std::string& value) {
    char* end = nullptr;
    const long number = std::strtol(value.c_str(), &end, 10);
    if (end != value.c_str() && number > 0) return static_cast<uint32_t>(number);
    if (value.empty()) return 66;
    switch (value[0]) {
        case 'M': return 77;
        case 'H': return 100;
        case 'B': return 66;
        default: return static_cast<unsigned char>(value[0]);
    }
}

bool H264Target(const std::string& caps, const media::Reading& r, Target& target, std::string& why) {
    Entry entry;
    if (!ReadEntry(caps, "H.264", entry)) return false;
    PictureTarget& p = target.picture;
    p.codec = "h264";
    p.profile = H264Profile(entry.own.count("Profile") != 0 ? entry.own["Profile"] : std::string());
    if (p.profile != 66 && p.profile != 77 && p.profile != 100) {
        why = "the device's H.264 profile " + std::to_string(p.profile) + " is not one the converter makes";
        return false;
    }
    const long long level = Entry::NumberOf(entry.own, "Level");
    const H264Level* l = LevelOf(level > 0 ? static_cast<uint32_t>(level) : 30);
    if (l == nullptr) {
        // The highest known level not above the list's.
        for (const H264Level& known : kH264Levels) {
            if (static_cast<long long>(known.level) <= level) l = &known;
        }
    }
    if (l == nullptr) {
        why = "the device's H.264 level is below every level";
        return false;
    }
    p.level = l->level;
    if (!FitPicture(r, entry.own, l->frameMacroblocks, p, why)) return false;
    p.frameRateMilli = FrameRateMilli(r);
    const uint64_t most = 1000ull * l->macroblocksPerSecond / Macroblocks(p.width, p.height);
    if (p.frameRateMilli > most) p.frameRateMilli = static_cast<uint32_t>(most);
    VideoRates(entry.own, l->kilobits, p);
    target.type = "H.264";
    return true;
}

bool Mpeg4Target(const std::string& caps, const media::Reading& r, Target& target, std::string& why) {
    Entry entry;
    if (!ReadEntry(caps, "MPEG-4", entry)) return false;
    PictureTarget& p = target.picture;
    p.codec = "mpeg4";
    const long long limit = Entry::NumberOf(entry.own, "Profile-Level-ID");
    // The highest Simple Profile level whose indication is not above the
    // list's (level 0's indication, 8, is above levels 1 to 5).
    const Mpeg4Level* chosen = nullptr;
    for (const Mpeg4Level& l : kMpeg4SimpleLevels) {
        if (limit < 0 ? l.indication == 3 : static_cast<long long>(l.indication) <= limit) {
            if (chosen == nullptr || (l.indication != 8 && (chosen->indication == 8 || l.indication > chosen->indication))) {
                chosen = &l;
            }
        }
    }
    if (chosen == nullptr) {
        why = "no MPEG-4 Visual Simple Profile level is within the device's Profile-Level-ID";
        return false;
    }
    p.profile = chosen->indication;
    if (!FitPicture(r, entry.own, 0, p, why)) return false;
    p.frameRateMilli = FrameRateMilli(r);
    VideoRates(entry.own, chosen->kilobits, p);
    target.type = "MPEG-4";
    return true;
}

bool PictureTargetFor(const std::string& caps, const media::Reading& r, Target& target, std::string& why) {
    std::string h264Why;
    bool made = H264Target(caps, r, target, h264Why);
    if (!made) {
        target.picture = PictureTarget();
        made = Mpeg4Target(caps, r, target, why);
    }
    if (!made) {
        if (why.empty()) why = h264Why;
        if (why.empty()) why = "the device lists neither H.264 nor MPEG-4";
        return false;
    }
    target.hasPicture = true;
    target.container = "mp4";
    target.extension = ".mp4";
    Entry entry;
    ReadEntry(caps, target.type, entry);
    if (r.HasAudio()) {
        if (!AacTarget(entry.sound, r, kMovieSoundPerChannel, target.sound, why)) return false;
        target.hasSound = true;
    } else if (entry.own.count("AAC") != 0 || entry.sound.count("AAC") != 0) {
        // The list's AAC key (the nested entry's own name, read as the
        // first of its keys) asks every movie of the type for AAC sound; a
        // source without sound gets a silent mono track within its limits.
        media::Reading silence;
        silence.sample_rate = 44100;
        silence.channels = 1;
        if (!AacTarget(entry.sound, silence, kMovieSoundPerChannel, target.sound, why)) return false;
        target.hasSound = true;
        target.silentSound = true;
    }
    return true;
}

std::string Kilohertz(uint32_t hertz) {
    char text[32];
    std::snprintf(text, sizeof text, "%g kHz", hertz / 1000.0);
    return text;
}

std::string ChannelWords(uint32_t channels) {
    return channels == 1 ? "mono" : channels == 2 ? "stereo" : std::to_string(channels) + " channels";
}

std::string H264ProfileWord(uint32_t profile) {
    return profile == 66 ? "Baseline" : profile == 77 ? "Main" : profile == 100 ? "High" : std::to_string(profile);
}

bool ParseNumber(const std::string& text, uint32_t& out) {
    if (text.empty() || text.size() > 10) return false;
    uint64_t value = 0;
    for (const char c : text) {
        if (c < '0' || c > '9') return false;
        value = value * 10 + static_cast<uint64_t>(c - '0');
    }
    if (value > 0xFFFFFFFFu) return false;
    out = static_cast<uint32_t>(value);
    return true;
}

bool Word(const std::string& text) {
    if (text.empty() || text.size() > 16) return false;
    for (const char c : text) {
        if (!isalnum(static_cast<unsigned char>(c)) && c != '.' && c != '-') return false;
    }
    return true;
}

}  // namespace

bool EntryKeys(const std::string& caps, const std::string& type, std::vector<EntryKey>& keys) {
    keys.clear();
    if (type.empty()) return false;
    const std::string needle = std::string(FileInfoFilter::KEY_BEGIN) + type + FileInfoFilter::KEY_END;
    // The first occurrence counts, as in the filter's own lookup.
    const size_t at = caps.find(needle);
    if (at == std::string::npos) return false;
    FileInfoFilter walk(caps);
    walk.m_pos = static_cast<unsigned int>(at + needle.size());
    KEY_VAR_st pair = walk.GetNextKeyVar();  // takes the entry's <dict>: depth 1
    if (walk.m_depth < 1) return false;
    int soundDepth = 0;
    for (size_t steps = 0; !pair.key.empty() && steps < caps.size(); ++steps) {
        if (soundDepth != 0 && walk.m_depth < soundDepth) soundDepth = 0;
        if (KnownKey(pair.key)) keys.push_back(EntryKey{pair.key, pair.value, soundDepth != 0});
        const unsigned int before = walk.m_pos;
        const int depthBefore = walk.m_depth;
        pair = walk.GetNextKeyVar();
        if (walk.m_depth > depthBefore && soundDepth == 0) soundDepth = walk.m_depth;
        if (walk.m_pos == before || walk.m_pos >= caps.size()) break;
    }
    return true;
}

bool FindTarget(const Device& device, const media::Reading& reading, const std::vector<std::string>& refusedBy,
                Target& target, std::string& why) {
    target = Target();
    why.clear();
    if (!reading.Identified()) {
        why = "the file was not identified";
        return false;
    }
    bool found = false;
    if (reading.HasVideo()) {
        found = PictureTargetFor(device.Text(), reading, target, why);
    } else if (!reading.HasAudio()) {
        why = "the file holds no sound";
        return false;
    } else {
        found = SoundTargetFor(device.Text(), reading, refusedBy, target, why);
    }
    // A target is recorded as its text: one the text cannot hold (a picture
    // wider than 16384, more than 8 channels, as a hostile file or list can
    // ask) is none the converter makes.
    Target recorded;
    if (found && !Target::Parse(target.Text(), recorded)) {
        why = "the file would become " + target.Words() + ", more than a conversion makes";
        target = Target();
        return false;
    }
    return found;
}

std::string Target::Text() const {
    std::ostringstream out;
    out << kTextVersion << " type=" << type << " container=" << container << " ext=" << extension;
    if (hasPicture) {
        out << " video=" << picture.codec << " size=" << picture.width << "x" << picture.height
            << " fps=" << picture.frameRateMilli << " profile=" << picture.profile << " level=" << picture.level
            << " vrate=" << picture.bitRate << " vpeak=" << picture.peakBitRate;
    }
    if (hasSound) {
        out << " audio=" << sound.codec << " rate=" << sound.sampleRate << " channels=" << sound.channels;
        if (sound.bitsPerSample != 0) out << " bits=" << sound.bitsPerSample;
        if (sound.bitRate != 0) out << " arate=" << sound.bitRate;
        if (silentSound) out << " silence=1";
    }
    return out.str();
}

bool Target::Parse(const std::string& text, Target& target) {
    target = Target();
    std::istringstream in(text);
    std::string word;
    if (!(in >> word) || word != kTextVersion) return false;
    while (in >> word) {
        const size_t eq = word.find('=');
        if (eq == std::string::npos) return false;
        const std::string key = word.substr(0, eq), value = word.substr(eq + 1);
        bool ok = true;
        if (key == "type") {
            ok = Word(value), target.type = value;
        } else if (key == "container") {
            ok = Word(value), target.container = value;
        } else if (key == "ext") {
            ok = Word(value) && value[0] == '.', target.extension = value;
        } else if (key == "video") {
            ok = value == "h264" || value == "mpeg4", target.picture.codec = value, target.hasPicture = true;
        } else if (key == "size") {
            const size_t x = value.find('x');
            ok = x != std::string::npos && ParseNumber(value.substr(0, x), target.picture.width) &&
                 ParseNumber(value.substr(x + 1), target.picture.height);
        } else if (key == "fps") {
            ok = ParseNumber(value, target.picture.frameRateMilli);
        } else if (key == "profile") {
            ok = ParseNumber(value, target.picture.profile);
        } else if (key == "level") {
            ok = ParseNumber(value, target.picture.level);
        } else if (key == "vrate") {
            ok = ParseNumber(value, target.picture.bitRate);
        } else if (key == "vpeak") {
            ok = ParseNumber(value, target.picture.peakBitRate);
        } else if (key == "audio") {
            ok = value == "aac" || value == "mp3" || value == "pcm", target.sound.codec = value, target.hasSound = true;
        } else if (key == "rate") {
            ok = ParseNumber(value, target.sound.sampleRate);
        } else if (key == "channels") {
            ok = ParseNumber(value, target.sound.channels);
        } else if (key == "bits") {
            ok = ParseNumber(value, target.sound.bitsPerSample);
        } else if (key == "arate") {
            ok = ParseNumber(value, target.sound.bitRate);
        } else if (key == "silence") {
            ok = value == "1", target.silentSound = true;
        } else {
            ok = false;
        }
        if (!ok) return false;
    }
    static const char* const kContainers[] = {"m4a", "mp3", "wav", "aiff", "mp4"};
    const bool container = std::any_of(std::begin(kContainers), std::end(kContainers),
                                       [&](const char* c) { return target.container == c; });
    if (!container || target.type.empty() || target.extension.empty() || (!target.hasSound && !target.hasPicture)) {
        return false;
    }
    if (target.hasSound && (target.sound.sampleRate == 0 || target.sound.channels == 0 || target.sound.channels > 8)) {
        return false;
    }
    if (target.silentSound && (!target.hasSound || !target.hasPicture || target.sound.codec != "aac")) return false;
    if (target.hasPicture && (target.picture.width == 0 || target.picture.height == 0 ||
                              target.picture.width > 16384 || target.picture.height > 16384 ||
                              target.picture.frameRateMilli == 0)) {
        return false;
    }
    return true;
}

std::string Target::Words() const {
    std::string words;
    if (hasPicture) {
        const PictureTarget& p = picture;
        char fps[32];
        std::snprintf(fps, sizeof fps, "%g fps", p.frameRateMilli / 1000.0);
        if (p.codec == "h264") {
            words = "H.264 " + H264ProfileWord(p.profile) + " " + std::to_string(p.level / 10) + "." +
                    std::to_string(p.level % 10);
        } else {
            words = "MPEG-4 Visual Simple (" + std::to_string(p.profile) + ")";
        }
        words += " " + std::to_string(p.width) + "x" + std::to_string(p.height) + " " + fps + " " +
                 std::to_string(p.bitRate / 1000) + " kbit/s";
    }
    if (hasSound) {
        std::string s = sound.codec == "aac" ? "AAC LC" : sound.codec == "mp3" ? "MP3" : "PCM";
        if (silentSound) s = "silent " + s;
        s += " " + Kilohertz(sound.sampleRate) + " " + ChannelWords(sound.channels);
        if (sound.bitsPerSample != 0) s += " " + std::to_string(sound.bitsPerSample) + "-bit";
        if (sound.bitRate != 0) s += " " + std::to_string(sound.bitRate / 1000) + " kbit/s";
        words += (words.empty() ? "" : " + ") + s;
    }
    return words + " in " + extension;
}

uint64_t Target::EstimateBytes(uint64_t durationMs) const {
    uint64_t bitsPerSecond = 0;
    if (hasPicture) bitsPerSecond += picture.bitRate;
    if (hasSound) {
        bitsPerSecond += sound.bitRate != 0 ? sound.bitRate
                                            : static_cast<uint64_t>(sound.sampleRate) * sound.channels * sound.bitsPerSample;
    }
    const uint64_t media = bitsPerSecond * durationMs / 8000;
    // The container: headers and tags, and the MP4 sample tables (about 1 %).
    const bool mp4 = container == "m4a" || container == "mp4";
    return media + (mp4 ? 4096 + media / 100 : 1024);
}

}  // namespace convert
}  // namespace fileinfo
