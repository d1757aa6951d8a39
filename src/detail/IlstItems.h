// The item walk of an MP4 metadata list ("ilst"): each item is a header
// (size, four-character name) with one "data" atom inside, whose value
// follows 8 bytes of type and locale.
#ifndef FILEINFO_DETAIL_ILSTITEMS_H
#define FILEINFO_DETAIL_ILSTITEMS_H

#include <cstddef>
#include <functional>

namespace fileinfo_detail {

// Hands every item with a text value to `take`: the item's four name bytes
// (not terminated) and its value as a terminated text. The list announces
// `ilstSize` bytes; the first `readable` of them are at `items`, and the
// rest read as zeroes. A binary value (its first byte 0) is passed over;
// an item without a proper "data" atom, or whose header is not all there,
// ends the walk.
void WalkIlstItems(const unsigned char* items, unsigned int ilstSize, size_t readable,
                   const std::function<void(const char* name, const char* value)>& take);

}  // namespace fileinfo_detail

#endif  // FILEINFO_DETAIL_ILSTITEMS_H
