// Hostile files that announce far more data than they hold: a load must
// cost no more memory than the file itself plus a small constant, and give
// the results it gives for the honest file. Each load runs in a child
// process whose peak resident memory is compared with that of the honest
// file's load.
#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <functional>

#include "AiffBuilder.h"
#include "ByteWriter.h"
#include "Id3Builder.h"
#include "Id3Info.h"
#include "MediaFileInfo.h"
#include "Mp3Builder.h"
#include "Mp4Builder.h"
#include "TestFiles.h"
#include "UnderValgrind.h"

namespace {

// What a load in the child reported, and the child's peak memory.
struct ChildLoad {
    int status = -1;
    char title[MEDIA_TEXT_SIZE] = {};
    long peakKb = 0;
};

// Runs `load` in a child process and returns what it reported with the
// child's peak memory.
ChildLoad RunInChild(const std::function<void(ChildLoad&)>& load) {
    ChildLoad out;
    int fds[2];
    if (pipe(fds) != 0) return out;
    const pid_t pid = fork();
    if (pid == 0) {
        close(fds[0]);
        ChildLoad mine;
        memset(static_cast<void*>(&mine), 0, sizeof mine);  // padding included: it crosses the pipe
        mine.status = -1;
        load(mine);
        const ssize_t ignored = write(fds[1], &mine, sizeof mine);
        (void)ignored;
        _exit(0);
    }
    close(fds[1]);
    if (read(fds[0], &out, sizeof out) != static_cast<ssize_t>(sizeof out)) out.status = -1;
    close(fds[0]);
    struct rusage usage;
    int waitStatus = 0;
    if (wait4(pid, &waitStatus, 0, &usage) == pid) out.peakKb = usage.ru_maxrss;
    return out;
}

// A load through the facade: its status and the record's title.
ChildLoad LoadInChild(const std::string& path) {
    return RunInChild([&path](ChildLoad& out) {
        MediaFileInfo media;
        out.status = media.LoadFile(path.c_str());
        if (const MediaFileInfo_st* r = media.GetFileInfo()) memcpy(out.title, r->title, sizeof out.title);
    });
}

// A load of the tags alone: the tag reader's status and its title.
ChildLoad LoadTagsInChild(const std::string& path) {
    return RunInChild([&path](ChildLoad& out) {
        Id3Info tags;
        out.status = tags.LoadFile(path.c_str());
        const ID3Info_st* fields = tags.GetId3Info();
        if (fields != nullptr && fields->pTitle != nullptr) {
            strncpy(out.title, fields->pTitle, sizeof out.title - 1);
        }
    });
}

// Peak memory means little under the sanitizers and valgrind, which keep
// their own shadow and quarantine: there only the results are compared.
bool MemoryIsMeasurable() {
#if defined(__SANITIZE_ADDRESS__)
    return false;
#else
    return !UnderValgrind();
#endif
}

// A few megabytes: allocator and page-cache noise, far below the hundreds of
// megabytes the hostile sizes announce.
constexpr long kSlackKb = 8 * 1024;

void ExpectBounded(const ChildLoad& hostile, const ChildLoad& honest) {
    ASSERT_NE(hostile.status, -1) << "the child did not report";
    if (MemoryIsMeasurable()) {
        EXPECT_LT(hostile.peakKb, honest.peakKb + kSlackKb)
            << "hostile load peaked at " << hostile.peakKb << " KB, honest at " << honest.peakKb << " KB";
    }
}

Bytes Mp3WithTag(bool hugeTagSize) {
    Id3v2Fields tag;
    tag.frames = {TextFrame("TIT2", "Song")};
    tag.padding = 64;
    if (hugeTagSize) {
        tag.overrideSize = true;
        tag.size = 0x0FFFFFFF;  // 256 MB announced
    }
    Id3v1Fields v1;
    v1.title = "Old";
    return Cat({BuildId3v2(tag), Mp3Frames(Mp3Header{}, 417, 40), BuildId3v1(v1)});
}

TEST(Bounds, Id3TagAnnouncingMoreThanTheFileCostsOnlyTheFile) {
    TempDir dir;
    const ChildLoad honest = LoadTagsInChild(dir.write("honest.mp3", Mp3WithTag(false)));
    const ChildLoad hostile = LoadTagsInChild(dir.write("hostile.mp3", Mp3WithTag(true)));
    EXPECT_EQ(honest.status, MFI_OK);
    EXPECT_EQ(hostile.status, MFI_OK);
    EXPECT_STREQ(honest.title, "Song");
    EXPECT_STREQ(hostile.title, "Song");  // the frames that exist are read the same
    ExpectBounded(hostile, honest);
}

// A sound track whose variable sample-size table announces `count` entries
// while the file holds 2000 of them.
Bytes Mp4WithSizeTable(uint32_t count) {
    const std::vector<uint32_t> table(2000, 400);
    const Bytes moov = Moov({Mvhd(600, 6000), SoundTrak(SoundEntry("samr", 1), Stsz(0, count, table))});
    return FastStart(moov, 20000);
}

TEST(Bounds, SampleSizeTableAnnouncingBillionsOfEntriesCostsOnlyTheFile) {
    TempDir dir;
    const ChildLoad honest = LoadInChild(dir.write("honest.m4a", Mp4WithSizeTable(2000)));
    const ChildLoad hostile = LoadInChild(dir.write("hostile.m4a", Mp4WithSizeTable(0xFFFFFFFFu)));
    EXPECT_EQ(honest.status, MFI_OK);
    EXPECT_EQ(hostile.status, MFI_OK);
    ExpectBounded(hostile, honest);
}

// An item list that crosses the read buffer and announces `ilstSize` bytes.
Bytes Mp4WithItemList(uint32_t ilstSize) {
    const Bytes items = TextItem(Copyright("nam"), "Song");
    const Bytes moov = Moov({Mvhd(600, 6000),
                             SoundTrak(SoundEntry("samr", 1), Stsz(400, 10)),
                             Filler("free", 4000), Udta(items)});
    Bytes file = FastStart(moov, 20000);
    const size_t at = OffsetOf(file, "ilst");
    file[at] = static_cast<uint8_t>(ilstSize >> 24);
    file[at + 1] = static_cast<uint8_t>(ilstSize >> 16);
    file[at + 2] = static_cast<uint8_t>(ilstSize >> 8);
    file[at + 3] = static_cast<uint8_t>(ilstSize);
    return file;
}

TEST(Bounds, ItemListAnnouncingGigabytesCostsOnlyTheFile) {
    TempDir dir;
    const ChildLoad honest = LoadInChild(dir.write("honest.m4a", Mp4WithItemList(8 + 8 + 24 + 4)));
    const ChildLoad hostile = LoadInChild(dir.write("hostile.m4a", Mp4WithItemList(0x7FFFFFF0u)));
    EXPECT_NE(hostile.status, -1);
    ExpectBounded(hostile, honest);
}

// An AIFF whose NAME chunk announces 2 GB of text behind a 4 KB file.
Bytes AiffWithName(uint32_t nameSize) {
    ByteWriter w;
    w.str("FORM").be32(4088).str("AIFF");
    w.str("COMM").be32(18).be16(2).be32(0).be16(16).bytes(Ext80(44100.0));
    w.str("NAME").be32(nameSize).str("Song");
    // A last chunk reaching the end of the file, so the walk ends there.
    const uint32_t rest = static_cast<uint32_t>(4096 - w.size() - 8);
    w.str("APPL").be32(rest).fill(rest, 0);
    return w.take();
}

TEST(Bounds, AiffTextChunkAnnouncingGigabytesCostsOnlyTheFile) {
    TempDir dir;
    const ChildLoad honest = LoadInChild(dir.write("honest.aif", AiffWithName(4)));
    const ChildLoad hostile = LoadInChild(dir.write("hostile.aif", AiffWithName(0x7FFFFFF0u)));
    EXPECT_EQ(honest.status, MFI_OK);
    EXPECT_STREQ(honest.title, "Song");
    EXPECT_EQ(hostile.status, MFI_OK);
    ExpectBounded(hostile, honest);
}

}  // namespace
