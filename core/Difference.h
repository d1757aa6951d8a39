// Internal to the safe edit: the steps that fill a Difference.
#ifndef FILEINFO_CORE_DIFFERENCE_H
#define FILEINFO_CORE_DIFFERENCE_H

#include <string>
#include <utility>
#include <vector>

#include "SafeEdit.h"
#include "media/Reading.h"

namespace fileinfo {

// The ID3v2 frame list as the library's tag reader keeps it: id and text,
// in file order. Empty when the file holds no readable tag.
using FrameList = std::vector<std::pair<std::string, std::string>>;
FrameList ReadFrameList(const std::string& path);

void CompareRecords(const MediaFileInfo_st& before, const MediaFileInfo_st& after, Difference& difference);
void CompareFrames(const FrameList& before, const FrameList& after, Difference& difference);
// The set values that the record read back after the edit does not hold.
void CompareReadBack(const TagEdits& edits, const MediaFileInfo_st& after, Difference& difference);

// The fields writer's difference, from the readings of the file and of the
// copy: every tag and stream field that changes, and every set value the
// copy's reading does not give back as given. The lyrics, which readings
// do not hold, are compared with `lyricsAfter`.
void CompareReadings(const media::Reading& before, const media::Reading& after, const TagEdits& edits,
                     const std::string& lyricsAfter, Difference& difference);

}  // namespace fileinfo

#endif  // FILEINFO_CORE_DIFFERENCE_H
