// Internal to the safe edit: where a file's audio lies, so that an edit can
// prove it did not move a byte of it. MP3 and ADTS: the frames between the
// ID3v2 tags in front and the APE and ID3v1 tags behind; MP4: the contents
// of the top-level mdat boxes; WAV: the data chunk; AIFF: the SSND chunk.
#ifndef FILEINFO_CORE_AUDIOSPANS_H
#define FILEINFO_CORE_AUDIOSPANS_H

#include <cstdint>
#include <vector>

#include "TagWriter.h"

namespace fileinfo {

struct ByteSpan {
    uint64_t offset = 0;
    uint64_t size = 0;
};

// The audio of the file open on `fd`, in file order. 0, or an errno value
// (EINVAL when the file's layout cannot be found).
int FindAudioSpans(int fd, TagFormat format, std::vector<ByteSpan>& spans);

// True when the audio of `a` and of `b` are the same bytes; `error` gets an
// errno when one of them could not be read or laid out. Reads in blocks:
// memory stays flat whatever the files' size.
bool SameAudio(int a, int b, TagFormat format, int& error);

}  // namespace fileinfo

#endif  // FILEINFO_CORE_AUDIOSPANS_H
