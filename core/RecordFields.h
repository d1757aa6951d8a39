// The record's 28 fields by name, in the record's order: one table that
// every front end lists, selects and converts from.
#ifndef FILEINFO_CORE_RECORDFIELDS_H
#define FILEINFO_CORE_RECORDFIELDS_H

#include <cstddef>
#include <string>

#include "MediaFileInfoDefine.h"

namespace fileinfo {

struct NumberField {
    const char* name;
    unsigned long (*get)(const MediaFileInfo_st&);
};

struct TextField {
    const char* name;
    const char* (*get)(const MediaFileInfo_st&);
};

constexpr size_t kNumberFieldCount = 14;
constexpr size_t kTextFieldCount = 14;
extern const NumberField kNumberFields[kNumberFieldCount];
extern const TextField kTextFields[kTextFieldCount];

// A text field's bytes up to its terminator (never past the field), as stored.
std::string RecordText(const char* field);

// A field by name, as "name value" ("name \"text\"" for texts, as UTF-8);
// the bare name when no field has it.
std::string ShowField(const char* name, const MediaFileInfo_st& r);

}  // namespace fileinfo

#endif  // FILEINFO_CORE_RECORDFIELDS_H
