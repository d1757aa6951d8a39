// The helpers that JudgeTest.cpp and JudgeStateTest.cpp share.
#ifndef FILEINFO_TESTS_JUDGETESTHELPERS_H
#define FILEINFO_TESTS_JUDGETESTHELPERS_H

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

#include "CapsBuilder.h"
#include "JudgeInfo.h"
#include "Mutation.h"

namespace JudgeTestHelpers {

inline void SetText(char* field, const char* text) { strncpy(field, text, MEDIA_TEXT_SIZE - 1); }

// A two-channel MP3 record well inside every limit used below.
inline MediaFileInfo_st Mp3() {
    MediaFileInfo_st r = RecordOf("MP3");
    r.sampleRate = 44100;
    r.bitRate = 128000;
    SetText(r.channelMode, "Stero");
    return r;
}

// A baseline H.264 movie with AAC sound.
inline MediaFileInfo_st Movie() {
    MediaFileInfo_st r = RecordOf("H.264LC");
    SetText(r.audioCodec, "AAC");
    SetText(r.channelMode, "Stero");
    r.profile = 66;
    r.level = 30;
    r.width = 320;
    r.height = 240;
    r.sampleRate = 44100;
    r.bitRate = 128000;
    r.peakBitRate = 700000;
    return r;
}

inline std::string ReadText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline std::string PlayerCaps() { return ReadText(std::string(FILEINFO_EXAMPLES_DIR) + "/../devices/player-caps.plist"); }

}  // namespace JudgeTestHelpers

#endif  // FILEINFO_TESTS_JUDGETESTHELPERS_H
