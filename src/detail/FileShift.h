// The ID3 writer's shifting of a file's contents when its tag grows or
// shrinks, block by block through a caller's buffer.
#ifndef FILEINFO_DETAIL_FILESHIFT_H
#define FILEINFO_DETAIL_FILESHIFT_H

#include <cstdio>

namespace fileinfo_detail {

// The size of the caller's buffer and of every block moved.
constexpr long kShiftBlock = 1024;

// Moves what follows `tagSize` bytes `grow` bytes toward the file's end,
// from the end backwards. A status code: 1, or 6, 7, 8 for a short read,
// a short write or a failed seek.
int ShiftTowardEnd(FILE* file, long tagSize, int grow, unsigned char* block);
// Moves what follows `tagSize` bytes `shrink` bytes toward the start. A
// status code as above.
int ShiftTowardStart(FILE* file, long tagSize, int shrink, unsigned char* block);

}  // namespace fileinfo_detail

#endif  // FILEINFO_DETAIL_FILESHIFT_H
