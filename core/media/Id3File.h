// ID3v2 tags read from a file rather than from memory: a tag that holds a
// picture or other large frames is read frame by frame, and only the
// frames a reading shows are read whole.
#ifndef FILEINFO_CORE_MEDIA_ID3FILE_H
#define FILEINFO_CORE_MEDIA_ID3FILE_H

#include <cstdint>

#include "Reading.h"
#include "Source.h"

namespace fileinfo {
namespace media {

// Reads the ID3v2 tag of `size` bytes (as Id3v2TagSize gave it) at
// `offset`, as ParseId3v2 would read it whole. False when there is none.
bool ReadId3v2At(const Source& source, uint64_t offset, uint64_t size, Tags& tags);

}  // namespace media
}  // namespace fileinfo

#endif  // FILEINFO_CORE_MEDIA_ID3FILE_H
