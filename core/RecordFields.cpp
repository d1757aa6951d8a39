#include "RecordFields.h"

#include <cstring>

#include "Text.h"

namespace fileinfo {

#define NUMBER_FIELD(f) {#f, [](const MediaFileInfo_st& r) { return static_cast<unsigned long>(r.f); }}
#define TEXT_FIELD(f) {#f, [](const MediaFileInfo_st& r) { return static_cast<const char*>(r.f); }}

const NumberField kNumberFields[kNumberFieldCount] = {
    NUMBER_FIELD(isVbr),       NUMBER_FIELD(trackNumber),   NUMBER_FIELD(level),
    NUMBER_FIELD(profile),     NUMBER_FIELD(profileLevelId), NUMBER_FIELD(bitsPerSample),
    NUMBER_FIELD(height),      NUMBER_FIELD(width),         NUMBER_FIELD(fileSize),
    NUMBER_FIELD(frameRate),   NUMBER_FIELD(sampleRate),    NUMBER_FIELD(bitRate),
    NUMBER_FIELD(peakBitRate), NUMBER_FIELD(durationMs),
};
const TextField kTextFields[kTextFieldCount] = {
    TEXT_FIELD(fileType), TEXT_FIELD(audioCodec), TEXT_FIELD(audioFormat), TEXT_FIELD(videoFormat),
    TEXT_FIELD(spareText), TEXT_FIELD(channelMode), TEXT_FIELD(title),      TEXT_FIELD(artist),
    TEXT_FIELD(album),     TEXT_FIELD(genre),       TEXT_FIELD(lyrics),     TEXT_FIELD(year),
    TEXT_FIELD(comment),   TEXT_FIELD(composer),
};

#undef NUMBER_FIELD
#undef TEXT_FIELD

std::string RecordText(const char* field) { return std::string(field, strnlen(field, MEDIA_TEXT_SIZE)); }

std::string ShowField(const char* name, const MediaFileInfo_st& r) {
    for (const NumberField& f : kNumberFields)
        if (strcmp(name, f.name) == 0) return std::string(name) + " " + std::to_string(f.get(r));
    for (const TextField& f : kTextFields)
        if (strcmp(name, f.name) == 0) return std::string(name) + " \"" + Latin1ToUtf8(f.get(r), MEDIA_TEXT_SIZE) + "\"";
    return name;
}

}  // namespace fileinfo
