// What a file really holds, read from its bytes by our own readers: the
// container, its streams, their numbers and the tags. It stands beside the
// library's record and never replaces it: the record is what hosts of the
// library see, quirks and all; a reading is what a person is shown.
//
// Every reader trusts no size it has not checked against the file: reads
// are bounded, texts are copied only within what was read, and hostile
// bytes end a reading early rather than trap.
#ifndef FILEINFO_CORE_MEDIA_READING_H
#define FILEINFO_CORE_MEDIA_READING_H

#include <cstdint>
#include <string>

namespace fileinfo {
namespace media {

// Descriptive tags as UTF-8. An empty text, or a zero number, is a tag the
// file does not hold: nothing is made up (no title from the file's name).
struct Tags {
    std::string title;
    std::string artist;
    std::string album;
    std::string genre;  // as text: ID3 "(17)" and MP4 "gnre" 18 are "Rock"
    std::string year;
    std::string comment;
    std::string composer;
    uint32_t track = 0;
    uint32_t track_total = 0;

    bool Empty() const;
};

struct Reading {
    // The container found from the bytes, whatever the name says: "MP3",
    // "AAC" (ADTS or ADIF), "WAV", "AIFF", "AIFC", "MP4", "M4A", "M4V",
    // "MOV", "3GP"; empty when no reader recognised the file.
    std::string type;
    // For AAC: "ADTS" or "ADIF". Empty otherwise.
    std::string aac_format;

    // "MP3", "MP2", "MP1", "AAC LC", "AAC Main", "AAC LTP", "HE-AAC",
    // "HE-AACv2", "ALAC", "PCM", "AMR-NB", "AMR-WB", "AC-3", ...; empty
    // when there is no sound.
    std::string audio_codec;
    // PCM only: "integer" or "float" samples.
    std::string pcm_format;
    // "H.264", "MPEG-4 Visual", "H.263", "MPEG-2 Video", "MPEG-1 Video",
    // "MJPEG", ...; empty when there is no picture.
    std::string video_codec;

    uint64_t duration_ms = 0;
    // True when the duration was worked out from the file's size rather
    // than counted from a header or a frame table.
    bool duration_estimated = false;

    // The sound: the first audio stream of the file.
    uint32_t sample_rate = 0;      // Hz
    uint32_t channels = 0;         // a count; 0 when unknown
    uint32_t bits_per_sample = 0;  // PCM and lossless; 0 otherwise
    uint64_t bit_rate = 0;         // average, bit/s, of the whole file's streams
    uint64_t audio_bit_rate = 0;   // average, bit/s, of the sound alone
    bool vbr = false;              // the sound's bit rate varies (MP3 with a VBR header or
                                   // frames of several rates)

    // The picture: the first video stream of the file.
    uint32_t width = 0;
    uint32_t height = 0;
    double frame_rate = 0;          // frames per second
    uint64_t video_bit_rate = 0;    // average, bit/s
    uint64_t video_peak_bit_rate = 0;  // the highest bit rate over one second, bit/s
    // H.264: "Baseline", "Constrained Baseline", "Main", "Extended", "High",
    // "High 10", "High 4:2:2", "High 4:4:4 Predictive"; H.265: "Main",
    // "Main 10", "Main Still Picture", "Format Range Extensions", ...;
    // MPEG-4 Visual: "Simple Profile", "Advanced Simple Profile", ...
    std::string profile;
    // H.264: profile_idc (66, 77, 100, ...); H.265: general_profile_idc
    // (1 for Main); MPEG-4 Visual: the profile_and_level_indication byte (3
    // for Simple Profile level 3).
    uint32_t profile_id = 0;
    // H.264: level_idc (30 for level 3.0); H.265: general_level_idc, 30
    // times the level (93 for level 3.1); MPEG-4 Visual: the level number.
    uint32_t level = 0;

    uint64_t size = 0;  // the file's size in bytes
    Tags tags;

    bool Identified() const { return !type.empty(); }
    bool HasAudio() const { return !audio_codec.empty(); }
    bool HasVideo() const { return !video_codec.empty(); }
};

// Reads the open file `fd` from its beginning with positioned reads (the
// descriptor's offset is not moved). Returns 0, with `reading` filled as
// far as the bytes allow (an unidentified file has an empty type), or an
// errno value when the file could not be read at all.
int ReadMedia(int fd, Reading& reading);

// Opens `path` (without blocking, regular files only) and reads it.
// Returns 0 or an errno value (EINVAL for a path that holds a NUL byte,
// which no system call could be given).
int ReadMediaPath(const std::string& path, Reading& reading);

}  // namespace media
}  // namespace fileinfo

#endif  // FILEINFO_CORE_MEDIA_READING_H
