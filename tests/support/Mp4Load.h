// Loading built MP4 bytes through Mp4Info, and a bench for calling the
// walker's handlers directly on bytes placed in a walk buffer.
#ifndef FILEINFO_TESTS_MP4LOAD_H
#define FILEINFO_TESTS_MP4LOAD_H

#include <cstdlib>
#include <cstring>
#include <string>

#include "Mp4Info.h"
#include "TestFiles.h"

struct Mp4Result {
    Mp4Result() { memset(static_cast<void*>(&record), 0, sizeof record); }
    int status = -1;
    MediaFileInfo_st record;
    bool audio = false;
    bool video = false;
    bool tags = false;
};

inline Mp4Result LoadMp4(const Bytes& file, const std::string& name = "clip.mp4") {
    TempDir dir;
    const std::string path = dir.write(name, file);
    Mp4Info reader;
    Mp4Result r;
    r.status = reader.LoadFile(path.c_str());
    if (reader.GetFileInfo() != nullptr) r.record = *reader.GetFileInfo();
    r.audio = reader.IsAudio() != 0;
    r.video = reader.IsVideo() != 0;
    r.tags = reader.HasId3Info() != 0;
    return r;
}

// A reader with a record and a zeroed walk buffer of 4096 valid bytes.
class HandlerBench {
public:
    HandlerBench() : buffer(static_cast<unsigned char*>(calloc(Mp4Info::kBufferAllocation, 1))) {
        reader.m_buffer = buffer;
        reader.m_fileInfo = MediaFileInfoBase::NewConstructedRecord();
        reader.m_bufferSize = Mp4Info::kReadSize;
    }
    ~HandlerBench() {
        reader.m_buffer = nullptr;
        free(buffer);
    }
    HandlerBench(const HandlerBench&) = delete;
    HandlerBench& operator=(const HandlerBench&) = delete;

    // Copies bytes into the buffer at `at` and puts the cursor there.
    void Put(const Bytes& bytes, unsigned int at = 0) {
        memcpy(buffer + at, bytes.data(), bytes.size());
        reader.m_cursor = at;
    }
    int Run(Mp4Info::AtomHandler handler) { return (reader.*handler)(buffer + reader.m_cursor); }
    MediaFileInfo_st& record() { return *reader.m_fileInfo; }

    Mp4Info reader;
    unsigned char* buffer;
};

#endif  // FILEINFO_TESTS_MP4LOAD_H
