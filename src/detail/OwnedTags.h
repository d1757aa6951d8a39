// The ID3 tags the MP3 and AAC readers own: each keeps an Id3Info that
// loads the same path, lends its texts to the record and writes tags back.
#ifndef FILEINFO_DETAIL_OWNEDTAGS_H
#define FILEINFO_DETAIL_OWNEDTAGS_H

#include "Id3Info.h"

namespace fileinfo_detail {

// Makes the tag reader into `id3` and loads the path's tags. True when the
// record should take them: the tag reader answers 1 only when it read an
// ID3v1 tag, so a file with only an ID3v2 tag gets none of its texts. A tag
// reader that cannot be made clears `hasId3`.
bool LoadOwnedTags(Id3Info*& id3, const char* path, unsigned int& hasId3);

// HasId3Info and SetId3Info of a reader that owns `id3`: forwarded, 0
// without a tag reader.
inline int OwnedTagsPresent(Id3Info* id3) { return id3 == nullptr ? 0 : id3->HasId3Info(); }
inline int WriteOwnedTags(Id3Info* id3, MediaFileInfo_st* info) {
    return id3 == nullptr ? 0 : id3->SetId3Info(info);
}

inline void ReleaseOwnedTags(Id3Info*& id3) {
    delete id3;
    id3 = nullptr;
}

}  // namespace fileinfo_detail

#endif  // FILEINFO_DETAIL_OWNEDTAGS_H
