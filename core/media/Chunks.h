// Pieces shared by the readers of chunked containers (RIFF/WAVE and
// IFF/AIFF): cheap bounded reads of chunk headers, the check that four
// bytes can be a chunk id, and the 8-bit texts their tag chunks hold.
#ifndef FILEINFO_CORE_MEDIA_CHUNKS_H
#define FILEINFO_CORE_MEDIA_CHUNKS_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "Source.h"

namespace fileinfo {
namespace media {

// At most this many chunks are looked at in one file (or one list), so a
// file of a million empty chunks costs no more than a sensible one.
constexpr unsigned kMaxChunks = 4096;
// An ID3 chunk is read whole only up to this size; the frames beyond it
// (cover art, as a rule) are not needed for the texts.
constexpr size_t kMaxId3ChunkBytes = 4u << 20;
// A list of text chunks (RIFF LIST/INFO) is read up to this size.
constexpr size_t kMaxTextListBytes = 1u << 20;

// Exactly `length` bytes at `offset`: from the head the source read once
// when they lie inside it, else with one positioned read. False when the
// range runs past the end of the file.
bool ReadSmall(const Source& source, uint64_t offset, void* out, size_t length);

// The four bytes at `id` are the chunk id `name` ("fmt ", "COMM", ...).
inline bool ChunkIdIs(const uint8_t* id, const char* name) { return std::memcmp(id, name, 4) == 0; }

// Four printable ASCII characters, as every chunk id is. Used to tell a
// writer's missing pad byte from a real chunk boundary.
bool PlausibleChunkId(const uint8_t* id);

// Where the chunk after one whose body starts at `body` with `size` bytes
// begins: the body is padded to an even length, but some writers leave the
// pad byte out. When the byte after an odd body is not zero (as a pad byte
// is written) and begins a chunk id, the next chunk starts there. 0 when
// the body runs past `end` (there is no next chunk to find).
uint64_t NextChunk(const Source& source, uint64_t body, uint64_t size, uint64_t end);

// An 8-bit text of a tag chunk as UTF-8: cut at its first NUL, taken as
// UTF-8 when it is valid UTF-8, else as Latin-1 (one byte, one character).
std::string EightBitText(const uint8_t* data, size_t length);

// True when the bytes are well-formed UTF-8 (no overlong forms, no
// surrogates, nothing above U+10FFFF).
bool ValidUtf8(const uint8_t* data, size_t length);

// A track text "7" or "7/12": the number, and the total when one follows a
// slash. Numbers of more than 9 digits are not taken (0 stays).
void ParseTrackText(const std::string& text, uint32_t& track, uint32_t& total);

// A four-character code as text for a name: its characters when they are
// printable (trailing spaces dropped), else "0x" and eight hex digits.
std::string FourCcName(const uint8_t* code);

}  // namespace media
}  // namespace fileinfo

#endif  // FILEINFO_CORE_MEDIA_CHUNKS_H
