// The helpers that Id3ReaderTest.cpp and Id3ReaderStateTest.cpp share.
#ifndef FILEINFO_TESTS_ID3READERTESTHELPERS_H
#define FILEINFO_TESTS_ID3READERTESTHELPERS_H

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "Id3Builder.h"
#include "Id3Info.h"
#include "Mutation.h"
#include "TestFiles.h"

namespace Id3ReaderTestHelpers {

// One file on disk for one test.
struct TagFile {
    explicit TagFile(const Bytes& bytes) : path(dir.write("song.mp3", bytes)) {}
    TempDir dir;
    std::string path;
};

inline Bytes V23(std::vector<Id3Frame> frames, size_t padding = 0) {
    Id3v2Fields s;
    s.frames = std::move(frames);
    s.padding = padding;
    return BuildId3v2(s);
}

inline Bytes V22(std::vector<Id3Frame> frames) {
    Id3v2Fields s;
    s.majorVersion = 2;
    s.frames = std::move(frames);
    return BuildId3v2(s);
}

// An ID3v2.3 tag followed by audio, no ID3v1 tag.
inline Bytes TagThenAudio(std::vector<Id3Frame> frames, size_t padding = 0) {
    return Join({V23(std::move(frames), padding), AudioBytes(300)});
}

// A tag object that has loaded a file written from the bytes.
struct Loaded : Id3Info {
    explicit Loaded(const Bytes& bytes) : file(bytes), status(LoadFile(file.path.c_str())) {}
    const ID3Info_st* info() { return GetId3Info(); }
    TagFile file;
    int status;
};

inline std::string Text(const char* s) { return s == nullptr ? std::string("<null>") : std::string(s); }

}  // namespace Id3ReaderTestHelpers

#endif  // FILEINFO_TESTS_ID3READERTESTHELPERS_H
