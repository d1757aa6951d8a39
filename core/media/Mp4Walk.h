// The pieces of the MP4-family reader and what they share: the state of one
// walk over the boxes, what a track's boxes told, and the parsers that the
// walk's table hands each kind of box to.
#ifndef FILEINFO_CORE_MEDIA_MP4WALK_H
#define FILEINFO_CORE_MEDIA_MP4WALK_H

#include <cstdint>
#include <string>
#include <vector>

#include "Mp4Box.h"
#include "Reading.h"
#include "Source.h"

namespace fileinfo {
namespace media {

// What the first of a track's sample entries (stsd) says.
struct SampleEntry {
    uint32_t type = 0;  // the entry's box type: 'mp4a', 'avc1', ...
    std::string codec;  // "AAC LC", "H.264", ...; empty when not known
    std::string pcm_format;
    uint32_t sample_rate = 0;
    uint32_t channels = 0;
    uint32_t bits_per_sample = 0;
    uint32_t width = 0;
    uint32_t height = 0;
    std::string profile;
    uint32_t profile_id = 0;
    uint32_t level = 0;
    // MPEG audio (object types 0x69, 0x6B): the layer, and so the codec,
    // is in the first frame's header.
    bool layer_from_first_frame = false;
};

// Where one of a track's sample boxes lies in the walked bytes.
struct TableBox {
    uint32_t type = 0;  // 0: the track has none
    uint64_t body = 0;
    uint64_t end = 0;
};

// What one track's boxes told, gathered while its "trak" is walked.
struct Mp4Track {
    uint32_t handler = 0;     // 'soun', 'vide', ...
    uint32_t time_scale = 0;  // mdhd
    uint64_t duration = 0;    // mdhd, in time_scale units
    SampleEntry entry;        // read from the first entry of stsd once the walk is done
    TableBox entries;         // stsd
    TableBox times;           // stts
    TableBox sizes;           // stsz or stz2
    TableBox chunk_offsets;   // stco or co64
};

// One walk over a file's boxes, and the reading it fills.
struct Mp4Walk {
    Mp4Walk(const Source& s, Reading& r) : source(s), reading(r) {}

    const Source& source;  // the file: chunk offsets point into it
    Reading& reading;

    bool has_ftyp = false;
    bool has_moov = false;
    bool inflated = false;  // a compressed movie header was inflated: never a second
    uint32_t movie_time_scale = 0;
    uint64_t movie_duration = 0;
    uint64_t fragment_duration = 0;  // mehd: a fragmented movie's whole duration, in the movie's scale
    uint64_t longest_track_ms = 0;
    bool has_audio = false;
    bool has_video = false;
    bool genre_from_text = false;  // ©gen was read: it wins over a "gnre" number

    // The track being walked; null outside a "trak".
    Mp4Track* track = nullptr;

    unsigned boxes = 0;  // every box visited, against kMaxBoxes
};

// Limits that keep a hostile file from making a walk deep or long.
constexpr unsigned kMaxDepth = 16;
constexpr unsigned kMaxBoxes = 100000;
// The most a compressed movie header may inflate to.
constexpr uint64_t kMaxMovieBytes = 64u << 20;
// The largest movie header read into memory whole.
constexpr uint64_t kMovieReadWhole = 64u << 10;

// One box met by the walk, with where it sits.
struct BoxVisit {
    const BoxBytes& bytes;
    Box box;
    uint32_t parent;  // the parent's type; 0 at the top
    unsigned depth;   // 0 at the top
};

// Hands every child of [begin, end) to its parser from the walk's table.
void WalkChildren(Mp4Walk& walk, const BoxBytes& bytes, uint64_t begin, uint64_t end, uint32_t parent,
                  unsigned depth);

// Mp4SampleEntry.cpp: the first entry of "stsd", by the track's handler.
void ReadSoundEntry(const BoxBytes& bytes, const Box& entry, SampleEntry& out);
void ReadVisualEntry(const BoxBytes& bytes, const Box& entry, SampleEntry& out);
// MPEG audio from the first 4 bytes of a frame: the codec ("MP1", "MP2"
// or "MP3"), the rate and the channels. False when they are no frame header.
struct MpegAudioHeader {
    std::string codec;
    uint32_t sample_rate = 0;
    uint32_t channels = 0;
};
bool ReadMpegAudioHeader(const uint8_t* header, MpegAudioHeader& out);

// Mp4Tables.cpp: what a track's sample tables add up to.
struct SampleTotals {
    uint64_t samples = 0;         // counted by stts
    uint64_t times = 0;           // the sum of stts durations, in the track's time scale
    uint64_t bytes = 0;           // the sum of stsz sizes
    uint64_t peak_bytes = 0;      // the most bytes that fall in one second of the track
    bool has_first_chunk = false;
    uint64_t first_chunk = 0;     // the file offset of the first chunk
};
SampleTotals ReadSampleTables(const BoxBytes& bytes, const Mp4Track& track, bool peak);

// Mp4Items.cpp: the items of an "ilst" into the tags still empty, and the
// texts of old QuickTime user data ("\xA9nam" and the like straight in "udta").
void ReadItems(const BoxBytes& bytes, const Box& ilst, Mp4Walk& walk);
void ReadQuickTimeText(const BoxBytes& bytes, const Box& box, Mp4Walk& walk);

// Mp4Compressed.cpp: a "cmov" inflated whole into `movie`; false when its
// method is not zlib or the data does not inflate.
bool InflateMovie(const BoxBytes& bytes, const Box& cmov, std::vector<uint8_t>& movie);

// Mp4Brands.cpp: the type a "ftyp" names ("MP4", "M4A", "M4V", "MOV", "3GP");
// empty for the brands of still images.
std::string TypeFromBrands(const uint8_t* ftypBody, size_t length);

}  // namespace media
}  // namespace fileinfo

#endif  // FILEINFO_CORE_MEDIA_MP4WALK_H
