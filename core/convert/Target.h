// What a file the device refuses becomes so that the device plays it,
// worked out from the device's own capability list.
//
// The list is read with the filter's parser (FileInfoFilter) and only the
// keys of its requirement table count, as in both verdicts: one home for
// what each key means. A target is also a text, recorded in the sync's
// manifest beside the device file: the same source judged against the same
// list gives the same text, so a re-sync keeps what it converted, and a
// list that changes a file's target changes the text.
#ifndef FILEINFO_CORE_CONVERT_TARGET_H
#define FILEINFO_CORE_CONVERT_TARGET_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "Verdict.h"
#include "media/Reading.h"

namespace fileinfo {
namespace convert {

// The sample rates a target takes, lowest first.
extern const uint32_t kStandardRates[];
extern const size_t kStandardRateCount;

struct SoundTarget {
    std::string codec;        // "aac", "mp3", "pcm"
    uint32_t sampleRate = 0;  // Hz
    uint32_t channels = 0;
    uint32_t bitsPerSample = 0;  // PCM only
    uint32_t bitRate = 0;        // bit/s; lossy sound only
};

struct PictureTarget {
    std::string codec;  // "h264" or "mpeg4"
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t frameRateMilli = 0;  // frames per 1000 seconds (29970 for 29.97)
    // H.264: profile_idc (66) and level_idc (30); MPEG-4 Visual: the
    // profile_and_level_indication (3 for Simple Profile level 3), level 0.
    uint32_t profile = 0;
    uint32_t level = 0;
    uint32_t bitRate = 0;      // average, bit/s
    uint32_t peakBitRate = 0;  // the rate limit over one second, bit/s
};

struct Target {
    // The capability list's name for what it becomes: "AAC", "MP3", "WAV",
    // "AIFF", "H.264", "MPEG-4".
    std::string type;
    std::string container;  // "m4a", "mp3", "wav", "aiff", "mp4"
    std::string extension;  // ".m4a"
    bool hasSound = false;
    SoundTarget sound;
    bool hasPicture = false;
    PictureTarget picture;
    // A movie whose source has no sound, for a list that names the sound a
    // movie of its type carries: the library's filter refuses a movie
    // without it, so `sound` is a silent track within those limits.
    bool silentSound = false;

    // The stable text recorded in the manifest:
    // "convert/1 type=AAC container=m4a ext=.m4a audio=aac rate=44100 ...".
    std::string Text() const;
    // Reads a Text() back; false for anything else.
    static bool Parse(const std::string& text, Target& target);
    // For people: "AAC LC 44.1 kHz stereo 192 kbit/s in .m4a",
    // "H.264 Baseline 3.0 320x240 25 fps 500 kbit/s + AAC LC ... in .mp4".
    std::string Words() const;
    // The bytes it takes for `durationMs`: bit rates times the duration,
    // and the container's share.
    uint64_t EstimateBytes(uint64_t durationMs) const;
};

// One requirement key of a type's entry and its value as written; `sound`
// for the keys of a movie's nested sound entry ("AAC" under "H.264").
struct EntryKey {
    std::string key;
    std::string value;
    bool sound = false;
};

// The requirement keys of a type's entry, in the list's order; false when
// the list does not name the type or its entry is not a dictionary.
bool EntryKeys(const std::string& caps, const std::string& type, std::vector<EntryKey>& keys);

// Works out the target for a reading the device refuses: the file's own
// type within the limits when the list names it and only limits refused
// it, else AAC LC in .m4a or MP3 (sound) or H.264 or MPEG-4 Visual in .mp4
// (pictures), as the list allows. `refusedBy` are the keys that refused
// the file. False, with the reason in `why`, when there is none.
bool FindTarget(const Device& device, const media::Reading& reading, const std::vector<std::string>& refusedBy,
                Target& target, std::string& why);

}  // namespace convert
}  // namespace fileinfo

#endif  // FILEINFO_CORE_CONVERT_TARGET_H
