// The readers behind ReadMedia, one per family of formats. Each is handed
// a file whose first bytes looked like its own; it fills `reading` as far
// as the bytes allow and returns false when they are not its format after
// all (the reading is then thrown away).
#ifndef FILEINFO_CORE_MEDIA_READERS_H
#define FILEINFO_CORE_MEDIA_READERS_H

#include "Reading.h"
#include "Source.h"

namespace fileinfo {
namespace media {

// RIFF/WAVE (and RF64) files: "RIFF" or "RF64", then "WAVE".
bool ReadWav(const Source& source, Reading& reading);
// AIFF and AIFF-C files: "FORM", then "AIFF" or "AIFC".
bool ReadAiff(const Source& source, Reading& reading);
// The ISO base media family and QuickTime: a box at offset 0.
bool ReadMp4(const Source& source, Reading& reading);
// MPEG audio (Layers I to III) and AAC (ADTS, ADIF), with ID3v2 tags in
// front and ID3v1 or ID3v2 tags behind; also the fallback for bytes that
// no other reader's magic matched.
bool ReadMpegAudio(const Source& source, Reading& reading);

}  // namespace media
}  // namespace fileinfo

#endif  // FILEINFO_CORE_MEDIA_READERS_H
