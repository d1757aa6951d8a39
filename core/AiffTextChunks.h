// Internal to the tag writer: AIFF's text chunks, NAME (title), AUTH
// (artist) and ANNO (comment), rewritten in a file open for reading and
// writing, the safe edit's private copy. Every other chunk keeps its bytes
// and its place; the FORM's size follows.
//
// The reading takes a field from the first chunk of its id whose text is
// not empty, so a value goes into the first chunk of its id, and removing
// a field removes every chunk of its id (a later one would show instead).
// A missing chunk is added, when asked for, after the file's last text
// chunk ("(c) " counted), so that the texts stay together; in a file
// without any, before SSND, where a reader that stops at the sound (a
// stream) still sees it.
//
// Texts are written as UTF-8, which is ASCII for ASCII texts, and an odd
// text ends in a NUL that makes its chunk even (no pad byte). The reading
// takes a chunk's text as UTF-8 whenever it is valid UTF-8, so every value
// reads back exactly as given; an 8-bit Latin-1 byte would not, for some
// texts ("Ã©" in Latin-1 is valid UTF-8 for "é").
//
// The file streams through one bounded block: each byte after a chunk that
// changes size moves once, whatever the file's size.
#ifndef FILEINFO_CORE_AIFFTEXTCHUNKS_H
#define FILEINFO_CORE_AIFFTEXTCHUNKS_H

#include "SafeEdit.h"
#include "TagWriter.h"

namespace fileinfo {

// True for the fields a text chunk holds: title, artist and comment.
bool AiffTextChunkHolds(TagField field);

// Writes the title, artist and comment of `edits` into the text chunks of
// the AIFF or AIFF-C file open on `fd`; other fields are left alone. A
// field without a chunk gets one when `addMissing`, else stays without
// (the ID3 chunk holds it). Refused, with nothing written, when the chunk
// layout cannot be followed (a chunk past the FORM's end, a FORM past the
// file's end, a pad byte that is not zero, too many chunks).
TagWriteResult WriteAiffTextChunks(int fd, const TagEdits& edits, bool addMissing);

}  // namespace fileinfo

#endif  // FILEINFO_CORE_AIFFTEXTCHUNKS_H
