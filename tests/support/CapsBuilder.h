// Device capability descriptions built element by element, one element per
// line as devices write them, and records to judge against them.
#ifndef FILEINFO_TESTS_CAPSBUILDER_H
#define FILEINFO_TESTS_CAPSBUILDER_H

#include <cstring>
#include <string>

#include "JudgeInfo.h"
#include "MediaFileInfoDefine.h"

class CapsBuilder {
public:
    CapsBuilder& key(const std::string& k) { return line("<key>" + k + "</key>"); }
    CapsBuilder& integer(const std::string& text) { return line("<integer>" + text + "</integer>"); }
    CapsBuilder& integer(long long v) { return integer(std::to_string(v)); }
    CapsBuilder& string(const std::string& text) { return line("<string>" + text + "</string>"); }
    CapsBuilder& real(const std::string& text) { return line("<real>" + text + "</real>"); }
    CapsBuilder& boolean(bool b) { return line(b ? "<true/>" : "<false/>"); }
    CapsBuilder& dict() { return line("<dict>"); }
    CapsBuilder& end() { return line("</dict>"); }
    // A requirement key with an integer, string or boolean value.
    CapsBuilder& limit(const std::string& k, long long v) { return key(k).integer(v); }
    CapsBuilder& limit(const std::string& k, const std::string& text) { return key(k).integer(text); }
    CapsBuilder& text(const std::string& k, const std::string& v) { return key(k).string(v); }
    CapsBuilder& flag(const std::string& k, bool b) { return key(k).boolean(b); }
    // Text as it is, without a line end.
    CapsBuilder& raw(const std::string& s) { text_ += s; return *this; }
    CapsBuilder& line(const std::string& s) { text_ += s + "\n"; return *this; }

    const std::string& str() const { return text_; }

private:
    std::string text_;
};

// A whole capability list naming one file type, whose dictionary holds the
// given requirement lines, inside the usual property-list frame.
inline std::string DeviceWith(const std::string& type, const std::string& requirements,
                              const char* section = "AudioCodecs") {
    CapsBuilder b;
    b.line("<?xml version=\"1.0\" encoding=\"UTF-8\"?>").line("<plist version=\"1.0\">").dict();
    b.key(section).dict().key(type).dict().raw(requirements).end().end();
    b.end().line("</plist>");
    return b.str();
}

// A constructed record of the given type, with the fields the constructor
// leaves alone set to 0.
inline MediaFileInfo_st RecordOf(const char* fileType) {
    MediaFileInfo_st r;
    r.fileSize = 0;
    r.frameRate = 0;
    strncpy(r.fileType, fileType, MEDIA_TEXT_SIZE - 1);
    return r;
}

// The verdict of a fresh filter, as a host gets it.
inline int Judge(const std::string& caps, MediaFileInfo_st r) {
    FileInfoFilter filter(caps);
    return filter.AdjudgeFile(&r);
}

#endif  // FILEINFO_TESTS_CAPSBUILDER_H
