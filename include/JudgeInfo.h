// The device capability filter: walks a device's capability description (a
// property-list text) key by key and decides whether the device can play a
// file described by a MediaFileInfo_st.
#ifndef FILEINFO_JUDGEINFO_H
#define FILEINFO_JUDGEINFO_H

#include <string>

#include "MediaFileInfoDefine.h"

// One key of the capability list and the value element that follows it.
struct FILEINFO_API KEY_VAR_st {
    // Kind of the value: 0 integer, 1 string or empty element, 2 real.
    unsigned int type = 0;
    std::string key;
    // The value's text as written, not converted.
    std::string value;
};

// Our addition to the described API: the record fields a requirement key is
// checked against, separated by blanks ("width height" for
// "MaximumResolution"); null for a key that never refuses a file, known
// or not.
FILEINFO_API const char* FileInfoRequirementFields(const char* key);

// Holds one capability description and walks it forwards from m_pos. It
// finds tags with plain text searches, tracks only the nesting depth of
// <dict> elements and never moves back. An object judges one record: the
// cursor and the depth keep the state the walk left.
class FILEINFO_API FileInfoFilter {
public:
    enum { kFileTypeTagCount = 2, kFileInfoTagCount = 30 };

    static const char* const KEY_BEGIN;  // "<key>"
    static const char* const KEY_END;    // "</key>"
    // The sections of a capability list: "AudioCodecs", "VideoCodecs".
    static const char* const FILE_TYPE_TAG[kFileTypeTagCount];
    // The requirement keys the judgement knows, in the order they are
    // matched; every other key passes.
    static const char* const FILE_INFO_TAG[kFileInfoTagCount];

    FileInfoFilter(std::string text);

    // The next key, or an empty string when the text is exhausted or the
    // walk has left the dictionary it started in.
    std::string GetKey();
    // The value element at the cursor; `key` stays empty.
    KEY_VAR_st GetValue();
    // GetKey and, when it yields a key, GetValue.
    KEY_VAR_st GetNextKeyVar();

    // 1 when the device can play the file, 0 when not (also for a null
    // record or a file type the capability list does not name).
    int AdjudgeFile(MediaFileInfo_st* info);
    // Checks the keys of the type's dictionary after the cursor; called by
    // AdjudgeFile once it has placed the cursor after the type's key.
    int JudgeValue(MediaFileInfo_st* info);

    unsigned int m_pos;
    int m_depth;
    std::string m_text;
};

#endif  // FILEINFO_JUDGEINFO_H
