// What a tag edit changes: record fields, ID3v2 frames, and the values that
// do not read back as they were given.
#include "Difference.h"

#include <cstdio>
#include <cstring>
#include <map>

#include "Id3Info.h"
#include "RecordFields.h"
#include "Text.h"

namespace fileinfo {

namespace {

// The record field each tag field is read into, and the ID3v2 frames that hold it.
struct FieldHome {
    TagField field;
    const char* recordField;
    const char* frames[2];  // the ID3v2.3 id and the ID3v2.2 id
};

const FieldHome kHomes[] = {
    {TagField::Title, "title", {"TIT2", "TT2"}},       {TagField::Artist, "artist", {"TPE1", "TP1"}},
    {TagField::Album, "album", {"TALB", "TAL"}},       {TagField::Genre, "genre", {"TCON", "TCO"}},
    {TagField::Year, "year", {"TYER", "TYE"}},         {TagField::Comment, "comment", {"COMM", "COM"}},
    {TagField::Composer, "composer", {"TCOM", "TCM"}}, {TagField::Lyrics, "lyrics", {"USLT", "USLT"}},
    {TagField::Track, "trackNumber", {"TRCK", "TRK"}},
};

const FieldHome& HomeOf(TagField field) {
    for (const FieldHome& home : kHomes)
        if (home.field == field) return home;
    return kHomes[0];
}

bool IsSetRecordField(const TagEdits& edits, const std::string& name) {
    for (const TagEdit& e : edits.edits())
        if (name == HomeOf(e.field).recordField || name == TagFieldName(e.field)) return true;
    return false;
}

bool IsSetFrame(const TagEdits& edits, const std::string& id) {
    for (const TagEdit& e : edits.edits()) {
        const FieldHome& home = HomeOf(e.field);
        if (id == home.frames[0] || id == home.frames[1]) return true;
    }
    return false;
}

// Record and frame texts are Latin-1 and may hold the writer's raw one-byte
// values (a genre index, a track): shown as UTF-8 with control bytes as \xNN.
std::string Shown(const std::string& latin1) {
    std::string out;
    for (unsigned char c : latin1) {
        if (c < 0x20 || c == 0x7F) {
            char escaped[8];
            snprintf(escaped, sizeof escaped, "\\x%02X", c);
            out += escaped;
        } else {
            const char one = static_cast<char>(c);
            out += Latin1ToUtf8(&one, 1);
        }
    }
    return out;
}


std::string GivenText(const TagEdit& edit) {
    return edit.field == TagField::Track ? std::to_string(edit.track) : edit.text;
}

std::string ReadBackText(const MediaFileInfo_st& after, TagField field) {
    if (field == TagField::Track) return std::to_string(after.trackNumber);
    for (const TextField& t : kTextFields)
        if (HomeOf(field).recordField == std::string(t.name)) return RecordText(t.get(after));
    return std::string();
}

bool IsTableGenre(const std::string& genre) {
    for (int k = 0; k < Id3Info::kNoGenre; ++k)
        if (genre == Id3Info::m_arrMP3ID3v2Genre[k]) return true;
    return false;
}

// Why a value may come back otherwise, in the terms of the tag formats.
std::string WhyNotReadBack(const TagEdit& edit) {
    switch (edit.field) {
        case TagField::Track:
            if (edit.track > 255) return "a track is stored as one byte";
            return std::string();
        case TagField::Genre:
            if (!IsTableGenre(edit.text)) return "not a genre of the ID3v1 table; stored as no genre";
            return std::string();
        case TagField::Year:
            return "the ID3v1 comment is written over the ID3v1 year";
        case TagField::Comment:
            return "the ID3v1 comment is written over the year and read from its fifth character";
        case TagField::Composer:
            return "the composer is written but never read";
        default:
            return std::string();
    }
}

// ---- readings ----

std::string Number(uint64_t n) { return std::to_string(n); }
std::string Flag(bool b) { return b ? "yes" : "no"; }
std::string Rate(double r) {
    char text[32];
    snprintf(text, sizeof text, "%.3f", r);
    return text;
}

// A reading's track as the fields writer takes it: "N", "N/TOTAL" or "".
std::string TrackText(const media::Tags& tags) {
    if (tags.track == 0 && tags.track_total == 0) return std::string();
    return std::to_string(tags.track) + (tags.track_total != 0 ? "/" + std::to_string(tags.track_total) : "");
}

std::string TagText(const media::Tags& tags, TagField field) {
    switch (field) {
        case TagField::Title: return tags.title;
        case TagField::Artist: return tags.artist;
        case TagField::Album: return tags.album;
        case TagField::Genre: return tags.genre;
        case TagField::Year: return tags.year;
        case TagField::Comment: return tags.comment;
        case TagField::Composer: return tags.composer;
        case TagField::Track: return TrackText(tags);
        case TagField::Lyrics: return std::string();
    }
    return std::string();
}

// The stream fields of a reading, by name, as text: none of them may move.
std::vector<std::pair<const char*, std::string>> StreamFields(const media::Reading& r) {
    return {
        {"type", r.type},
        {"aac_format", r.aac_format},
        {"audio_codec", r.audio_codec},
        {"pcm_format", r.pcm_format},
        {"video_codec", r.video_codec},
        {"duration_ms", Number(r.duration_ms)},
        {"duration_estimated", Flag(r.duration_estimated)},
        {"sample_rate", Number(r.sample_rate)},
        {"channels", Number(r.channels)},
        {"bits_per_sample", Number(r.bits_per_sample)},
        {"audio_bit_rate", Number(r.audio_bit_rate)},
        {"vbr", Flag(r.vbr)},
        {"width", Number(r.width)},
        {"height", Number(r.height)},
        {"frame_rate", Rate(r.frame_rate)},
        {"video_bit_rate", Number(r.video_bit_rate)},
        {"video_peak_bit_rate", Number(r.video_peak_bit_rate)},
        {"profile", r.profile},
        {"profile_id", Number(r.profile_id)},
        {"level", Number(r.level)},
        // Not the file's size, nor the whole file's bit rate (some readers
        // count it from the size): they follow the tag's size. The streams'
        // own rates above must stay.
    };
}

const TagField kReadingTags[] = {TagField::Title,   TagField::Artist,   TagField::Album,
                                 TagField::Genre,   TagField::Year,     TagField::Comment,
                                 TagField::Composer, TagField::Track};

}  // namespace

void CompareReadings(const media::Reading& before, const media::Reading& after, const TagEdits& edits,
                     const std::string& lyricsAfter, Difference& difference) {
    for (const TagField field : kReadingTags) {
        const std::string b = TagText(before.tags, field), a = TagText(after.tags, field);
        if (b != a) difference.fields.push_back({TagFieldName(field), b, a});
    }
    const auto streamsBefore = StreamFields(before), streamsAfter = StreamFields(after);
    for (size_t k = 0; k < streamsBefore.size(); ++k) {
        if (streamsBefore[k].second != streamsAfter[k].second)
            difference.fields.push_back({streamsBefore[k].first, streamsBefore[k].second, streamsAfter[k].second});
    }
    for (const TagEdit& e : edits.edits()) {
        const std::string given = GivenValue(e);
        const std::string back = e.field == TagField::Lyrics ? lyricsAfter : TagText(after.tags, e.field);
        if (given != back) difference.mismatches.push_back({e.field, given, back, std::string()});
    }
}

FrameList ReadFrameList(const std::string& path) {
    FrameList frames;
    Id3Info tag;
    if (tag.LoadFile(path.c_str()) != 1) return frames;
    const int count = tag.m_nFrameCount < Id3Info::kMaxFrames ? tag.m_nFrameCount : Id3Info::kMaxFrames;
    for (int i = 0; i < count; ++i) {
        const ID3FrameItem_st* item = tag.m_arrFrames[i];
        if (item == nullptr || item->pFrameID == nullptr || item->pValue == nullptr) continue;
        frames.emplace_back(item->pFrameID, item->pValue);
    }
    return frames;
}

void CompareRecords(const MediaFileInfo_st& before, const MediaFileInfo_st& after, Difference& difference) {
    for (const NumberField& n : kNumberFields) {
        if (n.get(before) != n.get(after))
            difference.fields.push_back({n.name, std::to_string(n.get(before)), std::to_string(n.get(after))});
    }
    for (const TextField& t : kTextFields) {
        const std::string b = RecordText(t.get(before)), a = RecordText(t.get(after));
        if (b != a) difference.fields.push_back({t.name, Shown(b), Shown(a)});
    }
}

// Frames are matched by id and by their order among the frames of that id.
void CompareFrames(const FrameList& before, const FrameList& after, Difference& difference) {
    std::map<std::string, std::vector<std::string>> afterById;
    for (const auto& frame : after) afterById[frame.first].push_back(frame.second);
    std::map<std::string, size_t> seen;
    for (const auto& frame : before) {
        const size_t k = seen[frame.first]++;
        const std::vector<std::string>& values = afterById[frame.first];
        if (k >= values.size()) {
            difference.frames.push_back({FrameChange::Dropped, frame.first, Shown(frame.second), std::string()});
        } else if (values[k] != frame.second) {
            difference.frames.push_back({FrameChange::Changed, frame.first, Shown(frame.second), Shown(values[k])});
        }
    }
    for (const auto& [id, values] : afterById) {
        for (size_t k = seen[id]; k < values.size(); ++k)
            difference.frames.push_back({FrameChange::Added, id, std::string(), Shown(values[k])});
    }
}

void CompareReadBack(const TagEdits& edits, const MediaFileInfo_st& after, Difference& difference) {
    for (const TagEdit& e : edits.edits()) {
        const std::string given = GivenText(e), back = ReadBackText(after, e.field);
        if (given != back) difference.mismatches.push_back({e.field, Shown(given), Shown(back), WhyNotReadBack(e)});
    }
}

bool Difference::GoesBeyond(const TagEdits& edits) const {
    if (!mismatches.empty()) return true;
    for (const FieldChange& f : fields)
        if (f.field != "fileSize" && !IsSetRecordField(edits, f.field)) return true;
    for (const FrameChange& f : frames)
        if (!IsSetFrame(edits, f.id)) return true;
    return false;
}

std::string DescribeDifference(const Difference& difference) {
    std::string text;
    for (const FieldChange& f : difference.fields)
        text += "  " + f.field + ": \"" + f.before + "\" -> \"" + f.after + "\"\n";
    for (const FrameChange& f : difference.frames) {
        if (f.kind == FrameChange::Dropped) text += "  frame " + f.id + " dropped: \"" + f.before + "\"\n";
        if (f.kind == FrameChange::Changed)
            text += "  frame " + f.id + " changed: \"" + f.before + "\" -> \"" + f.after + "\"\n";
        if (f.kind == FrameChange::Added) text += "  frame " + f.id + " added: \"" + f.after + "\"\n";
    }
    for (const ReadBackMismatch& m : difference.mismatches) {
        text += std::string("  ") + TagFieldName(m.field) + " given as \"" + m.given + "\" reads back as \"" +
                m.readBack + "\"" + (m.why.empty() ? std::string() : " (" + m.why + ")") + "\n";
    }
    return text;
}

}  // namespace fileinfo
