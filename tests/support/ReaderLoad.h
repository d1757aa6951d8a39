// Loading a file with one reader and keeping what a test looks at: the
// status, a copy of the record and the reader's answers.
#ifndef FILEINFO_TESTS_READERLOAD_H
#define FILEINFO_TESTS_READERLOAD_H

#include <string>
#include <vector>

#include "MediaFileInfoDefine.h"
#include "Mutation.h"
#include "TestFiles.h"

struct LoadResult {
    int status;
    MediaFileInfo_st record;  // all zero when the load made no record
    int isAudio;
    int hasTags;
};

template <class Reader>
LoadResult LoadWith(Reader& reader, const std::string& path) {
    LoadResult out{};
    out.status = reader.LoadFile(path.c_str());
    if (reader.GetFileInfo() != nullptr) out.record = *reader.GetFileInfo();
    out.isAudio = reader.IsAudio();
    out.hasTags = reader.HasId3Info();
    return out;
}

// The bytes written to a file of the given name in a fresh folder, loaded
// by a fresh reader.
template <class Reader>
LoadResult LoadBytes(const Bytes& bytes, const std::string& name) {
    TempDir dir;
    Reader reader;
    return LoadWith(reader, dir.write(name, bytes));
}

// Loads `count` corrupted copies of `seed`, each with a fresh reader and
// with one reader loaded again and again: every load must give a known
// status and leave every text terminated. Returns the fresh readers'
// statuses.
template <class Reader>
std::vector<int> LoadMutants(const Bytes& seed, uint32_t count, const std::string& fileName) {
    std::vector<int> statuses;
    TempDir dir;
    Reader reused;
    for (uint32_t n = 0; n < count; ++n) {
        const std::string p = dir.write(fileName, Mutate(seed, n));
        Reader reader;
        const int status = reader.LoadFile(p.c_str());
        EXPECT_TRUE(IsKnownStatus(status)) << "mutant " << n << ": " << status;
        ExpectTextsTerminated(reader.GetFileInfo());
        EXPECT_TRUE(IsKnownStatus(reused.LoadFile(p.c_str()))) << "mutant " << n;
        ExpectTextsTerminated(reused.GetFileInfo());
        statuses.push_back(status);
    }
    return statuses;
}

#endif  // FILEINFO_TESTS_READERLOAD_H
