// Decoders of the codec configurations in MP4 sample descriptions: the
// "esds" descriptors of MPEG-4 audio and visual tracks, the "avcC" record of
// H.264 tracks and the "alac" configuration. Each reads a bounded byte view
// and writes the record fields its configuration names.
#ifndef FILEINFO_DETAIL_MP4CONFIGDECODERS_H
#define FILEINFO_DETAIL_MP4CONFIGDECODERS_H

#include <cstddef>

#include "MediaFileInfoDefine.h"

namespace fileinfo_detail {

// The bytes a decoder may read: `size` of them from `data` on. A byte past
// them reads as zero.
struct ByteView {
    const unsigned char* data;
    size_t size;

    unsigned char operator[](size_t k) const { return k < size ? data[k] : 0; }
    ByteView From(size_t k) const { return {data + k, k < size ? size - k : 0}; }
};

// "esds" of a sound track, from its objectTypeIndication: the audio format
// name. `longLength` says the decoder-specific length is written with three
// continuation bytes (QuickTime's descriptors).
void DecodeEsdsAudio(ByteView objectType, bool longLength, MediaFileInfo_st& record);
// "esds" of a visual track, from its objectTypeIndication: the video format
// name and, for MPEG-4 visual, the profile-and-level digit. `iodsProfile`
// is the movie's "iods" profile, or -1 when there is none.
void DecodeEsdsVideo(ByteView objectType, int iodsProfile, MediaFileInfo_st& record);
// The profile-and-level byte after the visual object sequence start code in
// the decoder info (its first byte is its length); 0 when there is none.
unsigned char FindVisualProfileLevel(ByteView decoderInfo);
// The name of an MPEG-4 visual profile-and-level byte, or null.
const char* VisualProfileName(unsigned char profileLevel);
// "avcC": profile, level, the constrained-baseline file type, video format.
void DecodeAvcConfig(ByteView config, MediaFileInfo_st& record);
// "alac": the audio format and the sample size.
void DecodeAlacConfig(ByteView config, MediaFileInfo_st& record);

}  // namespace fileinfo_detail

#endif  // FILEINFO_DETAIL_MP4CONFIGDECODERS_H
