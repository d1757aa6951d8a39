// The frame scan of ID3v2.2 and ID3v2.3 tags: the recognised frames of a
// tag body, with their reduced texts, handed to the tag reader.
#ifndef FILEINFO_DETAIL_ID3FRAMESCAN_H
#define FILEINFO_DETAIL_ID3FRAMESCAN_H

#include "Id3Info.h"

namespace fileinfo_detail {

// The tag body as read: `size` bytes are announced, the first `avail` are
// in memory and the rest read as zero bytes (what a short read leaves in a
// zeroed buffer of the announced size).
struct TagBody {
    const unsigned char* bytes;
    int size;
    int avail;

    unsigned char At(long k) const { return k >= 0 && k < avail ? bytes[k] : 0; }
};

// Walks the body of an ID3v2.3 tag (v23) or an ID3v2.2 tag byte by byte,
// looking every position up in ID3V2_TAG or ID3V2Ver2_TAG. Each known
// frame sets the tag's m_hasId3, and its text goes through
// GetAnsiFromUnicode to SaveId3Info. 1 when the walk reached the end, 10
// when a damaged frame size ended it.
int ScanId3v2Frames(Id3Info& tag, const TagBody& body, bool v23);

}  // namespace fileinfo_detail

#endif  // FILEINFO_DETAIL_ID3FRAMESCAN_H
