// Where the library's record says something a person would read otherwise
// than the reading of the same file: one table of the compared fields and
// of what "differs" means for each, which every front end uses.
//
// Fields and rules:
//   title, artist, album   texts, after trimming spaces at both ends; a
//                          tag the reading does not find is the empty
//                          text, so a title the record took from the
//                          file's name differs
//   durationMs             by more than 1 % of the reading, and more than 50 ms
//   sampleRate             any difference
//   bitRate                by more than 1 % of the reading, and more than 1 kbit/s
//   channelMode            "Mono" is 1 channel, "Stereo" (and the record's
//                          "Stero") 2, an empty text none
//   bitsPerSample          any difference
//   fileSize               any difference (the record keeps 32 bits)
// Numbers the reading does not know (0) are not compared. Nothing is
// compared for a file the library kept no successful record of, or that
// the reading did not identify.
#ifndef FILEINFO_CORE_RECORDDIFFERS_H
#define FILEINFO_CORE_RECORDDIFFERS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "Scan.h"

namespace fileinfo {

// One side of a difference: a number, a text, or nothing (null).
struct DiffValue {
    bool isNumber = false;
    bool null = false;
    uint64_t number = 0;
    std::string text;  // UTF-8

    // As people read it: the number in decimal, the text, or "none".
    std::string Shown() const;
};

struct RecordDifference {
    const char* field;         // the record's field name: "durationMs"
    const char* readingField;  // the reading's: "duration_ms"
    DiffValue record;
    DiffValue reading;
};

struct RecordDiffRule {
    const char* field;
    const char* readingField;
    const char* label;  // for people: "duration"
    // Fills both sides and says whether they differ.
    bool (*compare)(const MediaFileInfo_st& record, const media::Reading& reading, RecordDifference& out);
};

constexpr size_t kRecordDiffRuleCount = 9;
extern const RecordDiffRule kRecordDiffRules[kRecordDiffRuleCount];

// Whether the item has both a record and a reading to compare.
bool RecordComparable(const ScanItem& item);

// The fields where the record differs from the reading, in the table's
// order; empty when none does or nothing can be compared.
std::vector<RecordDifference> RecordDiffers(const ScanItem& item);

// The label of a record field of the table ("duration"); the name itself
// when the table has no such field.
std::string RecordDiffLabel(const std::string& field);

}  // namespace fileinfo

#endif  // FILEINFO_CORE_RECORDDIFFERS_H
