// The helpers that Id3WriterTest.cpp and Id3WriterStateTest.cpp share.
#ifndef FILEINFO_TESTS_ID3WRITERTESTHELPERS_H
#define FILEINFO_TESTS_ID3WRITERTESTHELPERS_H

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "Id3Builder.h"
#include "Id3Info.h"
#include "MediaFileInfoBase.h"
#include "Mutation.h"
#include "TestFiles.h"

namespace Id3WriterTestHelpers {

inline Bytes V23(std::vector<Id3Frame> frames, size_t padding = 0) {
    Id3v2Fields s;
    s.frames = std::move(frames);
    s.padding = padding;
    return BuildId3v2(s);
}

struct Fields {
    std::string title, artist, album, genre, lyrics, year, comment, composer;
    unsigned short track = 0;
};

inline MediaFileInfo_st Record(const Fields& f) {
    MediaFileInfo_st r;
    MediaFileInfoBase::CopyField(r.title, f.title.c_str());
    MediaFileInfoBase::CopyField(r.artist, f.artist.c_str());
    MediaFileInfoBase::CopyField(r.album, f.album.c_str());
    MediaFileInfoBase::CopyField(r.genre, f.genre.c_str());
    MediaFileInfoBase::CopyField(r.lyrics, f.lyrics.c_str());
    MediaFileInfoBase::CopyField(r.year, f.year.c_str());
    MediaFileInfoBase::CopyField(r.comment, f.comment.c_str());
    MediaFileInfoBase::CopyField(r.composer, f.composer.c_str());
    r.trackNumber = f.track;
    return r;
}

// Fields whose texts have the lengths of those frames' texts, track 0: a
// write of them to that tag changes its size only by the title.
inline Fields SameLengths(const std::string& title) {
    Fields f;
    f.title = title;
    f.artist = "Bend";
    f.album = "Alban";
    f.genre = "Rock";
    f.lyrics = "fra";
    f.year = "2002";
    f.comment = "ello";
    return f;
}

// A file on disk and a tag object that has loaded it.
struct Written : Id3Info {
    explicit Written(const Bytes& bytes) : path(dir.write("song.mp3", bytes)) { loadStatus = LoadFile(path.c_str()); }
    int Set(const Fields& f) {
        MediaFileInfo_st r = Record(f);
        return SetId3Info(&r);
    }
    Bytes Now() const { return ReadAll(path); }
    TempDir dir;
    std::string path;
    int loadStatus = 0;
};

inline Bytes Slice(const Bytes& b, size_t from, size_t to) { return Bytes(b.begin() + from, b.begin() + to); }

}  // namespace Id3WriterTestHelpers

#endif  // FILEINFO_TESTS_ID3WRITERTESTHELPERS_H
