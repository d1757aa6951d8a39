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

bool ParseTagEdits(const std::vector<std::string>& assignments, TagEdits& edits, std::string& error) {
    for (const std::string& assignment : assignments)
        if (!edits.Add(assignment, error)) return false;
    return true;
}

}  // namespace fileinfo
