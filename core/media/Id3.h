// ID3 tags as the readers meet them: version 1 and 1.1 trailers, and
// version 2.2, 2.3 and 2.4 tags (before the audio, behind it, or inside an
// AIFF or WAV chunk). Texts come out as UTF-8.
#ifndef FILEINFO_CORE_MEDIA_ID3_H
#define FILEINFO_CORE_MEDIA_ID3_H

#include <cstddef>
#include <cstdint>

#include "Reading.h"

namespace fileinfo {
namespace media {

// The whole size of an ID3v2 tag (header, body and footer) from its first
// 10 bytes; 0 when they are not an ID3v2 header.
uint64_t Id3v2TagSize(const uint8_t* header, size_t length);

// Reads an ID3v2 tag held whole in `data`; a tag already in `tags` is kept
// where this one has none. False when `data` holds no ID3v2 tag.
bool ParseId3v2(const uint8_t* data, size_t length, Tags& tags);

// Reads a 128-byte ID3v1 trailer ("TAG"...) into the tags that are still
// empty. False when the bytes are not one.
bool ParseId3v1(const uint8_t* data, size_t length, Tags& tags);

// The genre for an ID3v1 genre number, or null for an unknown number.
const char* Id3GenreName(unsigned number);

}  // namespace media
}  // namespace fileinfo

#endif  // FILEINFO_CORE_MEDIA_ID3_H
