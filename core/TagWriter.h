// The tag writer for people: it changes the fields asked for and nothing
// else. Frames and items it is not asked about stay as they were (cover
// art, private and user frames, padding where the tag still fits), the
// ID3v2 version stays, an ID3v1 trailer is updated but never added, and the
// audio is never rewritten. TagLib does the formats' work, but for AIFF's
// text chunks, which AiffTextChunks.h writes; both edit the open file
// given, which the safe edit makes a private copy.
#ifndef FILEINFO_CORE_TAGWRITER_H
#define FILEINFO_CORE_TAGWRITER_H

#include <string>

#include "SafeEdit.h"

namespace fileinfo {

// The file families the writer edits, as the reading names the file.
enum class TagFormat {
    None,
    Id3,   // MP3 and ADTS: an ID3v2 tag in front, an ID3v1 trailer if there was one
    Mp4,   // the ISO family: items under moov/udta/meta/ilst
    Wav,   // the "id3 " chunk and the LIST/INFO chunk, where the file has them
    Aiff,  // the "ID3 " chunk and the NAME, AUTH and ANNO text chunks
};

// The family for a reading's container type ("MP3", "AAC" with its ADTS
// form, "M4A", "WAV", ...); None for a type the writer does not edit.
TagFormat TagFormatOf(const std::string& type, const std::string& aacFormat);

struct TagWriteOptions {
    // Write an ID3v2.4 tag as ID3v2.3, for older players.
    bool id3v23 = false;
};

struct TagWriteResult {
    bool written = false;
    std::string reason;  // why not, when not written
    int error = 0;       // errno of a failed read or write, or 0
};

// Writes `edits` (taken as UTF-8) into the file open on `fd` for reading
// and writing. `name` is for messages only.
TagWriteResult WriteTags(int fd, const std::string& name, TagFormat format, const TagEdits& edits,
                         const TagWriteOptions& options);

// The lyrics the file open on `fd` holds (the ID3v2 USLT frame without a
// description, or the MP4 lyrics item), as UTF-8; empty when none. The
// readings do not read lyrics: the edit checks them with this.
std::string ReadLyrics(int fd, const std::string& name, TagFormat format);

}  // namespace fileinfo

#endif  // FILEINFO_CORE_TAGWRITER_H
