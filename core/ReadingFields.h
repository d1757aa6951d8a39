// The reading's fields by name, in one order: one table that the tool's
// columns, its JSON lines ("media"), the report and the Python package
// list, select and convert from. Names are the JSON keys; tags sit under
// "tags" in JSON and are flat elsewhere ("title").
#ifndef FILEINFO_CORE_READINGFIELDS_H
#define FILEINFO_CORE_READINGFIELDS_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "media/Reading.h"

namespace fileinfo {

enum class ReadingKind : unsigned char { kNumber, kReal, kFlag, kText };

// One field's value. A text the file does not hold, or a tag number of 0
// (no track), is absent; stream numbers are always present, 0 meaning
// "not known" (or no such stream).
struct ReadingValue {
    ReadingKind kind = ReadingKind::kText;
    bool present = true;
    uint64_t number = 0;  // kNumber
    double real = 0;      // kReal
    bool flag = false;    // kFlag
    std::string text;     // kText, UTF-8
};

struct ReadingField {
    const char* name;
    ReadingKind kind;
    bool tag;    // one of the tags: under "tags" in JSON
    bool video;  // describes the picture
    ReadingValue (*get)(const media::Reading&);
};

constexpr size_t kReadingFieldCount = 31;
extern const ReadingField kReadingFields[kReadingFieldCount];

// The field of that name; null when none has it.
const ReadingField* FindReadingField(const std::string& name);

// A real number (a frame rate) in its shortest decimal form of at most
// three decimals: 25, 29.97, 23.976.
std::string RealText(double value);

// A channel count as people read it: "mono", "stereo", "6 ch"; empty for 0.
std::string ChannelsText(uint32_t channels);

// A value as text in its machine form: decimal numbers, true/false, the
// text itself; empty when absent.
std::string ReadingValueText(const ReadingValue& value);

}  // namespace fileinfo

#endif  // FILEINFO_CORE_READINGFIELDS_H
