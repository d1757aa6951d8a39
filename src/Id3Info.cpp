// Placeholder so that the MP3 and AAC readers link while the tag reader and
// writer are built; it reads and writes no tags.
#include "Id3Info.h"

#include <cstdlib>
#include <cstring>

const char* const ID3V1TAG[1] = {"TAG"};
const char* const ID3V2Ver2_TAG[16] = {};
const char* const ID3V2_TAG[74] = {};
const char* Id3Info::m_arrMP3ID3v2Genre[Id3Info::kGenreCount] = {};

Id3Info::Id3Info() : m_nTagSize(0), m_nFrameCount(0), m_nVersion(3), m_bHasV1(0), m_pID3Info(nullptr) {
    memset(m_arrFrames, 0, sizeof m_arrFrames);
}
Id3Info::~Id3Info() { Id3Info::Destory(); }
int Id3Info::LoadFile(const char* path) {
    if (m_filePath == nullptr && path != nullptr) m_filePath = strdup(path);
    return 0;
}
void Id3Info::Destory() { MediaFileInfoBase::Destory(); }
ID3Info_st* Id3Info::GetId3Info() { return m_pID3Info; }
void Id3Info::UninitID3Info() {}
int Id3Info::ReadId3v1Information(unsigned char*) { return 0; }
int Id3Info::ReadId3v2Information(unsigned char*, int) { return 0; }
int Id3Info::ReadId3v2Ver2Information(unsigned char*, int) { return 0; }
void Id3Info::GetAnsiFromUnicode(char**) {}
int Id3Info::SaveId3Info(const char*, const char*) { return 1; }
int Id3Info::RecordId3v2Info(const char*, const char*) { return 1; }
int Id3Info::SetId3Info(MediaFileInfo_st*) { return 0; }
int Id3Info::InitID3Info(MediaFileInfo_st*) { return 0; }
int Id3Info::WriteId3v1Information(unsigned char*) { return 0; }
int Id3Info::WriteId3v2Information() { return 0; }
int Id3Info::MoveFile(int) { return 0; }
int Id3Info::WriteId3v2InfoToFile() { return 0; }
