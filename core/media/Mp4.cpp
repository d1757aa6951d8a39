// The MP4-family reader: a walk over the boxes that reads the file type,
// the movie header, the first sound and the first picture track, and the
// items, without ever touching the media data. Each kind of box has one
// small parser, found in one table.
#include <new>

#include "Mp4Walk.h"
#include "Readers.h"

namespace fileinfo {
namespace media {

namespace {

using Parser = void (*)(Mp4Walk&, const BoxVisit&);

void WalkBody(Mp4Walk& walk, const BoxVisit& v) {
    WalkChildren(walk, v.bytes, v.box.body, v.box.end, v.box.type, v.depth + 1);
}

void ParseFtyp(Mp4Walk& walk, const BoxVisit& v) {
    if (walk.has_ftyp || v.depth != 0) return;
    std::vector<uint8_t> body;
    if (!v.bytes.ReadRange(v.box.body, v.box.end, 4096, body)) return;
    walk.has_ftyp = true;
    walk.reading.type = TypeFromBrands(body.data(), body.size());
}

// A small movie header is read into memory whole, so that its many small
// boxes cost no read each; a larger one is walked in the file, where the
// tables a reading does not need (composition offsets, sync samples) are
// skipped unread.
void ParseMoov(Mp4Walk& walk, const BoxVisit& v) {
    if (walk.has_moov) return;  // the first movie is the file's
    walk.has_moov = true;
    if (v.depth == 0 && v.box.BodySize() <= kMovieReadWhole) {
        const size_t size = static_cast<size_t>(v.box.BodySize());
        std::unique_ptr<uint8_t[]> body(new uint8_t[size]);
        if (v.bytes.ReadAt(v.box.body, body.get(), size)) {
            const MemoryBoxBytes movie(std::move(body), size);
            WalkChildren(walk, movie, 0, movie.Size(), v.box.type, v.depth + 1);
            return;
        }
    }
    WalkBody(walk, v);
}

// A compressed movie header holds a whole "moov" once inflated.
void ParseCmov(Mp4Walk& walk, const BoxVisit& v) {
    if (walk.inflated || v.parent != FourCc("moov")) return;
    walk.inflated = true;
    std::vector<uint8_t> plain;
    if (!InflateMovie(v.bytes, v.box, plain)) return;
    const MemoryBoxBytes movie(std::move(plain));
    walk.has_moov = false;  // the inflated "moov" is the movie
    WalkChildren(walk, movie, 0, movie.Size(), 0, v.depth + 1);
    walk.has_moov = true;
}

// Version 0: 32-bit times; version 1: 64-bit.
bool ReadTimes(const BoxVisit& v, uint32_t& timeScale, uint64_t& duration) {
    uint8_t b[32];
    if (v.box.BodySize() < 4 || !v.bytes.ReadAt(v.box.body, b, 4)) return false;
    if (b[0] == 1) {
        if (v.box.BodySize() < 32 || !v.bytes.ReadAt(v.box.body, b, 32)) return false;
        timeScale = BigEndian32(b + 20);
        duration = BigEndian64(b + 24);
        // All ones is "unknown" in either width.
        if (duration == UINT64_MAX) duration = 0;
    } else {
        if (v.box.BodySize() < 20 || !v.bytes.ReadAt(v.box.body, b, 20)) return false;
        timeScale = BigEndian32(b + 12);
        duration = BigEndian32(b + 16);
        if (duration == UINT32_MAX) duration = 0;
    }
    return true;
}

void ParseMvhd(Mp4Walk& walk, const BoxVisit& v) {
    if (v.parent != FourCc("moov")) return;
    ReadTimes(v, walk.movie_time_scale, walk.movie_duration);
}

// A non-negative amount as a whole number, saturating where a hostile
// header makes it larger than 64 bits hold.
uint64_t WholeNumber(long double value) {
    if (!(value > 0)) return 0;
    if (value >= 18446744073709551615.0L) return UINT64_MAX;
    return static_cast<uint64_t>(value);
}

uint64_t Milliseconds(uint64_t duration, uint32_t timeScale) {
    if (timeScale == 0) return 0;
    return WholeNumber(static_cast<long double>(duration) * 1000 / timeScale + 0.5L);
}

long double PerSecond(uint64_t amount, uint64_t duration, uint32_t timeScale) {
    if (duration == 0 || timeScale == 0) return 0;
    return static_cast<long double>(amount) * timeScale / duration;
}

// A stream's bit rate, in whole bits per second (the fraction dropped).
uint64_t BitsPerSecond(uint64_t bytes, uint64_t duration, uint32_t timeScale) {
    return WholeNumber(PerSecond(bytes, duration, timeScale) * 8);
}

void TakeSound(Mp4Walk& walk, const Mp4Track& track, const SampleTotals& totals) {
    Reading& r = walk.reading;
    const SampleEntry& e = track.entry;
    r.audio_codec = e.codec;
    if (e.layer_from_first_frame && totals.has_first_chunk) {
        uint8_t header[4];
        MpegAudioHeader frame;
        if (walk.source.ReadAt(totals.first_chunk, header, sizeof header) && ReadMpegAudioHeader(header, frame)) {
            // The frame knows its channels: ISO sound entries often say 2 for any count.
            r.audio_codec = frame.codec;
            r.sample_rate = frame.sample_rate;
            r.channels = frame.channels;
        }
    }
    r.pcm_format = e.pcm_format;
    if (r.sample_rate == 0) r.sample_rate = e.sample_rate;
    if (r.channels == 0) r.channels = e.channels;
    r.bits_per_sample = e.bits_per_sample;
    r.audio_bit_rate = BitsPerSecond(totals.bytes, track.duration ? track.duration : totals.times, track.time_scale);
}

void TakePicture(Mp4Walk& walk, const Mp4Track& track, const SampleTotals& totals) {
    Reading& r = walk.reading;
    const SampleEntry& e = track.entry;
    r.video_codec = e.codec;
    r.width = e.width;
    r.height = e.height;
    r.profile = e.profile;
    r.profile_id = e.profile_id;
    r.level = e.level;
    r.frame_rate = static_cast<double>(PerSecond(totals.samples, totals.times, track.time_scale));
    r.video_bit_rate = BitsPerSecond(totals.bytes, track.duration ? track.duration : totals.times, track.time_scale);
    r.video_peak_bit_rate = totals.peak_bytes > UINT64_MAX / 8 ? UINT64_MAX : totals.peak_bytes * 8;
}

// "stsd": version, flags, entry count, then the entries; the first one
// describes the track. It is read once the track's kind is known, whatever
// the order of the boxes.
void ReadFirstEntry(const BoxBytes& bytes, Mp4Track& track, bool sound) {
    const TableBox& stsd = track.entries;
    if (stsd.type == 0 || stsd.end - stsd.body < 8) return;
    BoxIterator entries(bytes, stsd.body + 8, stsd.end);
    Box entry;
    if (!entries.Next(entry)) return;
    track.entry.type = entry.type;
    if (sound) {
        ReadSoundEntry(bytes, entry, track.entry);
    } else {
        ReadVisualEntry(bytes, entry, track.entry);
    }
}

void ParseTrak(Mp4Walk& walk, const BoxVisit& v) {
    if (v.parent != FourCc("moov") || walk.track != nullptr) return;
    Mp4Track track;
    walk.track = &track;
    WalkBody(walk, v);
    walk.track = nullptr;

    const uint64_t ms = Milliseconds(track.duration, track.time_scale);
    if (ms > walk.longest_track_ms) walk.longest_track_ms = ms;
    const bool sound = track.handler == FourCc("soun") && !walk.has_audio;
    const bool picture = track.handler == FourCc("vide") && !walk.has_video;
    if (!sound && !picture) return;
    ReadFirstEntry(v.bytes, track, sound);
    const SampleTotals totals = ReadSampleTables(v.bytes, track, picture);
    if (sound) {
        walk.has_audio = true;
        TakeSound(walk, track, totals);
    } else {
        walk.has_video = true;
        TakePicture(walk, track, totals);
    }
}

void ParseMdhd(Mp4Walk& walk, const BoxVisit& v) {
    if (walk.track == nullptr || v.parent != FourCc("mdia")) return;
    ReadTimes(v, walk.track->time_scale, walk.track->duration);
}

// The handler type follows the version, the flags and a 4-byte field (zero
// in ISO files, the component type "mhlr" in QuickTime). QuickTime puts a
// second "hdlr" in "minf" for the data reference: only the one in "mdia"
// names the track's kind.
void ParseHdlr(Mp4Walk& walk, const BoxVisit& v) {
    if (walk.track == nullptr || v.parent != FourCc("mdia")) return;
    uint8_t b[12];
    if (v.box.BodySize() < 12 || !v.bytes.ReadAt(v.box.body, b, 12)) return;
    walk.track->handler = BigEndian32(b + 8);
}

void Remember(Mp4Walk& walk, const BoxVisit& v, TableBox Mp4Track::*table) {
    if (walk.track == nullptr || v.parent != FourCc("stbl")) return;
    TableBox& t = walk.track->*table;
    if (t.type != 0) return;
    t.type = v.box.type;
    t.body = v.box.body;
    t.end = v.box.end;
}

void ParseStsd(Mp4Walk& walk, const BoxVisit& v) { Remember(walk, v, &Mp4Track::entries); }
void ParseStts(Mp4Walk& walk, const BoxVisit& v) { Remember(walk, v, &Mp4Track::times); }
void ParseStsz(Mp4Walk& walk, const BoxVisit& v) { Remember(walk, v, &Mp4Track::sizes); }
void ParseStco(Mp4Walk& walk, const BoxVisit& v) { Remember(walk, v, &Mp4Track::chunk_offsets); }

// "meta" is a full box in ISO files (version and flags before its
// children) and a plain container in QuickTime: a child's type right after
// the first 4 bytes tells which.
void ParseMeta(Mp4Walk& walk, const BoxVisit& v) {
    uint8_t b[8];
    if (v.box.BodySize() < 8 || !v.bytes.ReadAt(v.box.body, b, 8)) return;
    const uint32_t second = BigEndian32(b + 4);
    const bool quickTime = second == FourCc("hdlr") || second == FourCc("keys") || second == FourCc("ilst") ||
                           second == FourCc("free");
    const uint64_t begin = v.box.body + (quickTime ? 0 : 4);
    WalkChildren(walk, v.bytes, begin, v.box.end, v.box.type, v.depth + 1);
}

void ParseIlst(Mp4Walk& walk, const BoxVisit& v) {
    if (v.parent != FourCc("meta")) return;
    ReadItems(v.bytes, v.box, walk);
}

void ParseUdtaText(Mp4Walk& walk, const BoxVisit& v) {
    if (v.parent != FourCc("udta")) return;
    ReadQuickTimeText(v.bytes, v.box, walk);
}

// A fragmented movie's header says 0; "mvex" / "mehd" gives the duration
// of all its fragments (version 0: 32 bits, version 1: 64).
void ParseMehd(Mp4Walk& walk, const BoxVisit& v) {
    if (v.parent != FourCc("mvex")) return;
    uint8_t b[12];
    if (v.box.BodySize() < 8 || !v.bytes.ReadAt(v.box.body, b, 8)) return;
    if (b[0] == 1) {
        if (v.box.BodySize() >= 12 && v.bytes.ReadAt(v.box.body, b, 12)) walk.fragment_duration = BigEndian64(b + 4);
    } else {
        walk.fragment_duration = BigEndian32(b + 4);
    }
}

struct BoxParser {
    uint32_t type;
    Parser parse;
};

const BoxParser kParsers[] = {
    // The structure.
    {FourCc("ftyp"), ParseFtyp},
    {FourCc("moov"), ParseMoov},
    {FourCc("cmov"), ParseCmov},
    {FourCc("mvhd"), ParseMvhd},
    {FourCc("mvex"), WalkBody},
    {FourCc("mehd"), ParseMehd},
    // A track and its sample tables.
    {FourCc("trak"), ParseTrak},
    {FourCc("mdia"), WalkBody},
    {FourCc("mdhd"), ParseMdhd},
    {FourCc("hdlr"), ParseHdlr},
    {FourCc("minf"), WalkBody},
    {FourCc("stbl"), WalkBody},
    {FourCc("stsd"), ParseStsd},
    {FourCc("stts"), ParseStts},
    {FourCc("stsz"), ParseStsz},
    {FourCc("stz2"), ParseStsz},
    {FourCc("stco"), ParseStco},
    {FourCc("co64"), ParseStco},
    // The tags: items, and old QuickTime user data.
    {FourCc("udta"), WalkBody},
    {FourCc("meta"), ParseMeta},
    {FourCc("ilst"), ParseIlst},
    {FourCc("\xA9nam"), ParseUdtaText},
    {FourCc("\xA9" "ART"), ParseUdtaText},
    {FourCc("\xA9" "alb"), ParseUdtaText},
    {FourCc("\xA9gen"), ParseUdtaText},
    {FourCc("\xA9" "day"), ParseUdtaText},
    {FourCc("\xA9" "cmt"), ParseUdtaText},
    {FourCc("\xA9wrt"), ParseUdtaText},
};

Parser ParserFor(uint32_t type) {
    for (const BoxParser& p : kParsers) {
        if (p.type == type) return p.parse;
    }
    return nullptr;
}

}  // namespace

void WalkChildren(Mp4Walk& walk, const BoxBytes& bytes, uint64_t begin, uint64_t end, uint32_t parent,
                  unsigned depth) {
    if (depth > kMaxDepth) return;
    BoxIterator children(bytes, begin, end);
    Box box;
    while (walk.boxes < kMaxBoxes && children.Next(box)) {
        ++walk.boxes;
        const Parser parse = ParserFor(box.type);
        if (parse != nullptr) parse(walk, BoxVisit{bytes, box, parent, depth});
        // The movie is all a reading needs: the boxes after it (media
        // data, fragments) are not visited.
        if (depth == 0 && walk.has_moov) return;
    }
}

bool ReadMp4(const Source& source, Reading& reading) {
    Mp4Walk walk(source, reading);
    const FileBoxBytes file(source);
    try {
        WalkChildren(walk, file, 0, file.Size(), 0, 0);
    } catch (const std::bad_alloc&) {
        // Every allocation is bounded, but the bound (an inflated movie
        // header) may still be more than the machine has: keep what was read.
    }
    if (!walk.has_ftyp && !walk.has_moov) return false;
    if (walk.has_ftyp && reading.type.empty()) return false;  // a still image
    // Old QuickTime movies open with "moov", "mdat" or "wide", with no "ftyp".
    if (!walk.has_ftyp) reading.type = "MOV";

    if (walk.movie_duration == 0) walk.movie_duration = walk.fragment_duration;
    const uint64_t movie = Milliseconds(walk.movie_duration, walk.movie_time_scale);
    reading.duration_ms = movie != 0 ? movie : walk.longest_track_ms;
    // The whole file over the whole duration, rounded.
    const long double fileBytesPerSecond = movie != 0
                                               ? PerSecond(reading.size, walk.movie_duration, walk.movie_time_scale)
                                               : PerSecond(reading.size, reading.duration_ms, 1000);
    reading.bit_rate = WholeNumber(fileBytesPerSecond * 8 + 0.5L);
    return true;
}

}  // namespace media
}  // namespace fileinfo
