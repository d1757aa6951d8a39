// FIELD=VALUE assignments: parsed, checked and put into a record.
#include <cstring>

#include "MediaFileInfoBase.h"
#include "SafeEdit.h"
#include "Text.h"

namespace fileinfo {

namespace {

struct FieldRow {
    TagField field;
    const char* name;
};

const FieldRow kFields[] = {
    {TagField::Title, "title"},       {TagField::Artist, "artist"},   {TagField::Album, "album"},
    {TagField::Genre, "genre"},       {TagField::Year, "year"},       {TagField::Comment, "comment"},
    {TagField::Composer, "composer"}, {TagField::Lyrics, "lyrics"},   {TagField::Track, "track"},
};

bool FindField(const std::string& name, TagField& field) {
    for (const FieldRow& row : kFields) {
        if (name == row.name) {
            field = row.field;
            return true;
        }
    }
    return false;
}

// A track number: decimal digits only, 0 to 65535 (the record's 16 bits,
// and an MP4 track item's).
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

// N or N/TOTAL.
bool ParseTrackOfTotal(const std::string& value, unsigned short& track, unsigned short& total) {
    const size_t slash = value.find('/');
    if (slash == std::string::npos) return ParseTrack(value, track);
    return ParseTrack(value.substr(0, slash), track) && ParseTrack(value.substr(slash + 1), total) && total != 0;
}

// Well-formed UTF-8 (no overlong forms, no surrogates, nothing above
// U+10FFFF) without NUL: what every tag format can be given.
bool IsUtf8Text(const std::string& value) {
    size_t i = 0;
    while (i < value.size()) {
        const unsigned char c = static_cast<unsigned char>(value[i]);
        size_t more = 0;
        unsigned long code = 0;
        if (c == 0) return false;
        if (c < 0x80) {
            ++i;
            continue;
        }
        if (c >= 0xC2 && c <= 0xDF) {
            more = 1;
            code = c & 0x1F;
        } else if (c >= 0xE0 && c <= 0xEF) {
            more = 2;
            code = c & 0x0F;
        } else if (c >= 0xF0 && c <= 0xF4) {
            more = 3;
            code = c & 0x07;
        } else {
            return false;
        }
        if (i + more >= value.size()) return false;  // cut short
        for (size_t k = 1; k <= more; ++k) {
            const unsigned char d = static_cast<unsigned char>(value[i + k]);
            if ((d & 0xC0) != 0x80) return false;
            code = code << 6 | (d & 0x3F);
        }
        if ((more == 2 && code < 0x800) || (more == 3 && code < 0x10000) || code > 0x10FFFF ||
            (code >= 0xD800 && code <= 0xDFFF))
            return false;
        i += more + 1;
    }
    return true;
}

// A text longer than this is a mistake rather than a tag.
constexpr size_t kMaxText = 1 << 20;

char* TextOf(MediaFileInfo_st& r, TagField field) {
    switch (field) {
        case TagField::Title: return r.title;
        case TagField::Artist: return r.artist;
        case TagField::Album: return r.album;
        case TagField::Genre: return r.genre;
        case TagField::Year: return r.year;
        case TagField::Comment: return r.comment;
        case TagField::Composer: return r.composer;
        case TagField::Lyrics: return r.lyrics;
        case TagField::Track: return nullptr;
    }
    return nullptr;
}

}  // namespace

const char* TagFieldName(TagField field) {
    for (const FieldRow& row : kFields)
        if (row.field == field) return row.name;
    return "";
}

std::string TagFieldNames() {
    std::string names;
    for (const FieldRow& row : kFields) names += std::string(names.empty() ? "" : ", ") + row.name;
    return names;
}

bool TagEdits::Add(const std::string& assignment, std::string& error) {
    const size_t equals = assignment.find('=');
    const std::string name = assignment.substr(0, equals);
    TagEdit edit{TagField::Title, std::string()};
    if (equals == std::string::npos || !FindField(name, edit.field)) {
        error = "--set " + assignment + ": expected FIELD=VALUE with FIELD one of " + TagFieldNames();
        return false;
    }
    if (Sets(edit.field)) {
        error = "--set: " + name + " is given more than once";
        return false;
    }
    const std::string value = assignment.substr(equals + 1);
    if (writer_ == EditWriter::Fields) {
        if (edit.field == TagField::Track) {
            if (!ParseTrackOfTotal(value, edit.track, edit.trackTotal)) {
                error = "--set track=" + value + ": the track is N or N/TOTAL, decimal numbers from 0 to 65535";
                return false;
            }
        } else if (!IsUtf8Text(value) || value.size() > kMaxText) {
            error = "--set " + name + ": the value is not UTF-8 text of at most 1 MiB";
            return false;
        } else {
            edit.text = value;
        }
        edits_.push_back(edit);
        return true;
    }
    if (edit.field == TagField::Track) {
        if (!ParseTrack(value, edit.track)) {
            error = "--set track=" + value + ": the track is a decimal number from 0 to 65535";
            return false;
        }
    } else if (!Utf8ToLatin1(value, edit.text)) {
        error = "--set " + name + ": \"" + value + "\" has characters that 8-bit (Latin-1) tags cannot hold";
        return false;
    }
    // A record field holds 127 characters; what is beyond never reaches the tag.
    if (edit.text.size() > MEDIA_TEXT_SIZE - 1) edit.text.resize(MEDIA_TEXT_SIZE - 1);
    edits_.push_back(edit);
    return true;
}

bool TagEdits::Sets(TagField field) const {
    for (const TagEdit& e : edits_)
        if (e.field == field) return true;
    return false;
}

void TagEdits::ApplyTo(MediaFileInfo_st& record) const {
    for (const TagEdit& e : edits_) {
        if (e.field == TagField::Track) {
            record.trackNumber = e.track;
        } else {
            MediaFileInfoBase::CopyField(TextOf(record, e.field), e.text.c_str());
        }
    }
}

std::string GivenValue(const TagEdit& edit) {
    if (edit.field != TagField::Track) return edit.text;
    if (edit.track == 0) return std::string();
    return std::to_string(edit.track) + (edit.trackTotal != 0 ? "/" + std::to_string(edit.trackTotal) : "");
}

const char* EditWriterName(EditWriter writer) {
    return writer == EditWriter::Library ? "library" : "fields";
}

bool ParseEditWriter(const std::string& name, EditWriter& writer) {
    if (name == "fields") writer = EditWriter::Fields;
    else if (name == "library") writer = EditWriter::Library;
    else return false;
    return true;
}

bool ParseTagEdits(const std::vector<std::string>& assignments, TagEdits& edits, std::string& error) {
    for (const std::string& assignment : assignments)
        if (!edits.Add(assignment, error)) return false;
    return true;
}

}  // namespace fileinfo
