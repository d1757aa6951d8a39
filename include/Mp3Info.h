// Reader for MPEG-1/2/2.5 audio files, Layers I to III: finds the frames
// in a buffered scan, takes a "Xing", "Info" or "VBRI" header from the first
// frame, estimates the frame count from the file size and reads the tags
// through an owned Id3Info.
#ifndef FILEINFO_MP3INFO_H
#define FILEINFO_MP3INFO_H

#include "MediaFileInfoBase.h"

class Id3Info;

class Mp3Info : public MediaFileInfoBase {
public:
    // Bytes read from the file per buffer.
    enum { kReadSize = 4096 };
    // Longest frame accepted, padding included.
    enum { kMaxFrameLength = 1280 };

    // Bit rates in kbit/s by row * 16 + bit-rate index: rows 0-2 are MPEG 1
    // Layers I-III, rows 3-5 MPEG 2 and 2.5 Layers I-III. Index 0 (free
    // format) and 15 (forbidden) hold 0.
    static const unsigned int tabsel[6][16];
    // Sample rates in Hz: MPEG 1, MPEG 2, MPEG 2.5, three each.
    static const unsigned int freqs[9];
    // Samples per frame: MPEG 1 Layers I-III, MPEG 2 and 2.5 Layers I-III.
    static const unsigned int SamplePerFrame[6];
    // Version names by the header's 2-bit version field.
    static const char* const MPEGVersion[4];

    Mp3Info();
    ~Mp3Info() override;

    int LoadFile(const char* path) override;
    int HasId3Info() override;
    void Destory() override;
    int SetId3Info(MediaFileInfo_st* info) override;
    MediaFileInfo_st* GetFileInfo() override;

    // Decodes one candidate frame header into the reader and the record:
    // 1 accepted, 10 rejected.
    int GetInfo(unsigned int h);
    // Finds the next accepted frame from m_bufferPos on, refilling the
    // buffer as needed, and moves past it: 1 on a frame, 2 for a null
    // buffer, else (end of file) the last GetInfo result or 0.
    int ReadFrame(unsigned char* buffer);
    // Looks for a VBR header at every offset of the first frame: 0 or the
    // type DecodeVbrHeader found.
    int CheckVbrFormat(unsigned char* frame);
    // 0 none, 1 "Xing", 2 "Info", 3 "VBRI" at p.
    int DecodeVbrHeader(unsigned char* p);
    // Playing time in milliseconds from the frame count.
    int GetDuration();

    int m_frameLength;
    int m_frameCount;
    int m_vbrFrameCounter;
    unsigned int m_bufferPos;
    int m_isVbr;
    int m_shortStream;
    unsigned int m_versionId;
    unsigned int m_layer;
    unsigned int m_audioStart;
    double m_vbrBytes;
    int m_lastResult;
    Id3Info* m_id3;

private:
    // Reads up to kReadSize bytes at the file position into the buffer.
    void Refill(unsigned char* buffer);
    // Steps past the frame ReadFrame accepted at m_bufferPos, looking for a
    // VBR header in the first one; always 1.
    int PassFrame(unsigned char* buffer);
    // Copies the owned tag reader's fields into the record.
    void CopyTags();
    // Counts frames until a VBR header or enough constant-rate frames.
    void ScanFrames(unsigned char* buffer);
    // Duration, VBR bit rate, file type and title of an accepted file.
    void FillDurationAndType();
};

#endif  // FILEINFO_MP3INFO_H
