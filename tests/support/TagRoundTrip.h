// Tag writing as a host does it: load a file, change a copy of the record,
// hand it to SetId3Info, then load the written file with a fresh reader and
// keep what it reads. Works with Mp3Info, AacInfo and the MediaFileInfo
// facade alike.
#ifndef FILEINFO_TESTS_TAGROUNDTRIP_H
#define FILEINFO_TESTS_TAGROUNDTRIP_H

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "MediaFileInfoBase.h"
#include "MediaFileInfoDefine.h"
#include "TestFiles.h"

// The record's tag fields, in record order.
struct Tags {
    const char *title, *artist, *album, *genre, *lyrics, *year, *comment, *composer;
    unsigned track;
};

inline void ExpectTags(const MediaFileInfo_st& f, const Tags& t) {
    EXPECT_STREQ(f.title, t.title);
    EXPECT_STREQ(f.artist, t.artist);
    EXPECT_STREQ(f.album, t.album);
    EXPECT_STREQ(f.genre, t.genre);
    EXPECT_STREQ(f.lyrics, t.lyrics);
    EXPECT_STREQ(f.year, t.year);
    EXPECT_STREQ(f.comment, t.comment);
    EXPECT_STREQ(f.composer, t.composer);
    EXPECT_EQ(f.trackNumber, t.track);
}

// Puts every tag field of `t` into the record, as a host filling it would.
inline void SetTags(MediaFileInfo_st& f, const Tags& t) {
    MediaFileInfoBase::CopyField(f.title, t.title);
    MediaFileInfoBase::CopyField(f.artist, t.artist);
    MediaFileInfoBase::CopyField(f.album, t.album);
    MediaFileInfoBase::CopyField(f.genre, t.genre);
    MediaFileInfoBase::CopyField(f.lyrics, t.lyrics);
    MediaFileInfoBase::CopyField(f.year, t.year);
    MediaFileInfoBase::CopyField(f.comment, t.comment);
    MediaFileInfoBase::CopyField(f.composer, t.composer);
    f.trackNumber = static_cast<unsigned short>(t.track);
}

struct RoundTrip {
    int loadStatus = -1;
    MediaFileInfo_st loaded{};  // the record before the write
    int setStatus = -1;
    int reloadStatus = -1;
    MediaFileInfo_st reloaded{};  // what a fresh reader reads afterwards
    Bytes file;                   // the file after the write
};

// Loads `path` with a Reader, lets `change` edit a copy of its record,
// writes it back and reloads with a fresh Reader.
template <class Reader>
RoundTrip WriteAndReload(const std::string& path, const std::function<void(MediaFileInfo_st&)>& change) {
    RoundTrip out;
    {
        Reader reader;
        out.loadStatus = reader.LoadFile(path.c_str());
        if (reader.GetFileInfo() == nullptr) return out;
        out.loaded = *reader.GetFileInfo();
        MediaFileInfo_st record = out.loaded;
        change(record);
        out.setStatus = reader.SetId3Info(&record);
    }
    Reader fresh;
    out.reloadStatus = fresh.LoadFile(path.c_str());
    if (fresh.GetFileInfo() != nullptr) out.reloaded = *fresh.GetFileInfo();
    out.file = ReadAll(path);
    return out;
}

// The same, with every tag field of the copy replaced by `t`.
template <class Reader>
RoundTrip WriteTagsAndReload(const std::string& path, const Tags& t) {
    return WriteAndReload<Reader>(path, [&t](MediaFileInfo_st& r) { SetTags(r, t); });
}

#endif  // FILEINFO_TESTS_TAGROUNDTRIP_H
