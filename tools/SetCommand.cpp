#include "SetCommand.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <system_error>

#include "AacInfo.h"
#include "JsonLine.h"
#include "MediaFileInfo.h"
#include "Mp3Info.h"
#include "RecordFields.h"
#include "Scan.h"
#include "Text.h"
#include "Views.h"

namespace fs = std::filesystem;

namespace fileinfo {

namespace {

// ---- --set: write tags through the library, then show what it reads back ----

// The tag fields --set knows, and where each goes in the record.
struct SetField {
    const char* name;
    char (MediaFileInfo_st::*text)[MEDIA_TEXT_SIZE];  // null for the track
};

const SetField kSetFields[] = {
    {"title", &MediaFileInfo_st::title},       {"artist", &MediaFileInfo_st::artist},
    {"album", &MediaFileInfo_st::album},       {"genre", &MediaFileInfo_st::genre},
    {"year", &MediaFileInfo_st::year},         {"comment", &MediaFileInfo_st::comment},
    {"composer", &MediaFileInfo_st::composer}, {"lyrics", &MediaFileInfo_st::lyrics},
    {"track", nullptr},
};

// One FIELD=VALUE, checked and ready for the record: texts in the record's
// 8-bit form, the track as a number.
struct TagEdit {
    const SetField* field;
    std::string text;
    unsigned short track = 0;
};

const SetField* FindSetField(const std::string& name) {
    for (const SetField& f : kSetFields)
        if (name == f.name) return &f;
    return nullptr;
}

std::string SetFieldNames() {
    std::string names;
    for (const SetField& f : kSetFields) names += std::string(names.empty() ? "" : ", ") + f.name;
    return names;
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

// Checks every FIELD=VALUE before anything is read or written. On a
// mistake, says what is wrong and returns false.
bool ParseTagEdits(const std::vector<std::string>& assignments, std::vector<TagEdit>& edits, std::string& error) {
    for (const std::string& assignment : assignments) {
        const size_t equals = assignment.find('=');
        const std::string name = assignment.substr(0, equals);
        const SetField* field = FindSetField(name);
        if (equals == std::string::npos || field == nullptr) {
            error = "--set " + assignment + ": expected FIELD=VALUE with FIELD one of " + SetFieldNames();
            return false;
        }
        for (const TagEdit& e : edits) {
            if (e.field == field) {
                error = "--set: " + name + " is given more than once";
                return false;
            }
        }
        const std::string value = assignment.substr(equals + 1);
        TagEdit edit{field, std::string()};
        if (field->text == nullptr) {
            if (!ParseTrack(value, edit.track)) {
                error = "--set track=" + value + ": the track is a decimal number from 0 to 65535";
                return false;
            }
        } else if (!Utf8ToLatin1(value, edit.text)) {
            error = "--set " + name + ": \"" + value + "\" has characters that 8-bit (Latin-1) tags cannot hold";
            return false;
        }
        edits.push_back(edit);
    }
    return true;
}

// Texts longer than a record field holds are cut to 127 characters.
void ApplyTagEdits(const std::vector<TagEdit>& edits, MediaFileInfo_st& record) {
    for (const TagEdit& e : edits) {
        if (e.field->text == nullptr) {
            record.trackNumber = e.track;
        } else {
            MediaFileInfoBase::CopyField(record.*(e.field->text), e.text.c_str());
        }
    }
}

bool StoresTags(MediaFileInfoBase* reader) {
    return dynamic_cast<Mp3Info*>(reader) != nullptr || dynamic_cast<AacInfo*>(reader) != nullptr;
}

bool SameContents(const std::string& a, const std::string& b) {
    std::ifstream first(a, std::ios::binary), second(b, std::ios::binary);
    if (!first || !second) return false;
    return std::equal(std::istreambuf_iterator<char>(first), std::istreambuf_iterator<char>(),
                      std::istreambuf_iterator<char>(second), std::istreambuf_iterator<char>());
}

// The record as the library reads it back from the written file, printed
// the same way as a plain listing.
bool PrintReadBack(const std::string& path, bool json) {
    ScanItem item;
    item.path = path;
    LoadInto(path, item);
    const FileView file{item, nullptr};
    if (json) {
        JsonLineWriter().Write(std::cout, file, false);
    } else {
        WriteListing(std::cout, file, false, false, {});
    }
    return item.status == MFI_OK;
}

// fileinfo --set FIELD=VALUE... PATH: the exit status of the whole run.
// The library rewrites tags in place and may grow the file by more than
// the tag, or leave data duplicated; the original is kept in PATH.bak
// unless --no-backup.
int SetTags(const std::string& path, const std::vector<TagEdit>& edits, bool backup, bool json) {
    std::error_code error;
    if (!fs::is_regular_file(path, error)) {
        std::cerr << "fileinfo: " << path << ": not a regular file; no tags written\n";
        return 1;
    }
    MediaFileInfo facade;
    const int loaded = facade.LoadFile(path.c_str());
    if (loaded != MFI_OK || facade.GetFileInfo() == nullptr) {
        std::cerr << "fileinfo: " << path << ": the file did not load (status " << loaded << ": "
                  << MediaFileStatusText(loaded) << "); no tags written\n";
        return 1;
    }
    MediaFileInfo_st record = *facade.GetFileInfo();
    ApplyTagEdits(edits, record);

    const std::string backupPath = path + ".bak";
    if (backup) {
        // An existing backup may be the only untouched copy: never replaced.
        if (!fs::copy_file(path, backupPath, fs::copy_options::none, error)) {
            std::cerr << "fileinfo: " << backupPath << ": cannot make the backup (" << error.message()
                      << "); no tags written\n";
            return 1;
        }
        std::cerr << "fileinfo: backup of " << path << " written to " << backupPath << "\n";
    }

    const int status = facade.SetId3Info(&record);
    if (status == MFI_UNREADABLE) {
        // Only the MP3 and AAC readers own a tag writer; from them 0 means
        // the record's fields could not be taken.
        if (StoresTags(facade.m_reader)) {
            std::cerr << "fileinfo: " << path << ": the tag writer took none of the fields; nothing was written\n";
        } else {
            const std::string type = RecordText(record.fileType);
            std::cerr << "fileinfo: " << path << ": the format of this file"
                      << (type.empty() ? std::string() : " (" + type + ")") << " stores no tags; nothing was written\n";
        }
        // Nothing was written, so the backup is an identical copy.
        if (backup && SameContents(path, backupPath) && fs::remove(backupPath, error)) {
            std::cerr << "fileinfo: " << backupPath << " removed again\n";
        }
        return 1;
    }
    if (status != MFI_OK) {
        std::cerr << "fileinfo: " << path << ": writing the tags failed (status " << status << ": "
                  << MediaFileStatusText(status) << "); the file may be partly rewritten"
                  << (backup ? "; the original is in " + backupPath : std::string()) << "\n";
        return 1;
    }
    return PrintReadBack(path, json) ? 0 : 1;
}

}  // namespace

int RunSetCommand(const std::vector<std::string>& assignments, const std::vector<std::string>& paths, bool backup,
                   bool json) {
    std::vector<TagEdit> edits;
    std::string error;
    if (!ParseTagEdits(assignments, edits, error)) {
        std::cerr << "fileinfo: " << error << "\n";
        return 2;
    }
    if (paths.size() != 1) {
        std::cerr << "fileinfo: --set writes into exactly one file; " << paths.size() << " paths given\n";
        return 2;
    }
    return SetTags(paths.front(), edits, backup, json);
}

}  // namespace fileinfo
