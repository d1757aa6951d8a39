// Reader for raw AAC files: one ADIF header at the start, or a stream of
// ADTS frames scanned through a 4608-byte buffer. Tags come from an owned
// ID3 tag reader.
#ifndef FILEINFO_AACINFO_H
#define FILEINFO_AACINFO_H

#include "MediaFileInfoBase.h"

class Id3Info;

// Sampling frequencies of MPEG-4 audio by their 4-bit index; 13 to 15 are
// not assigned and read as 0.
FILEINFO_API extern const unsigned int SAMPLE[16];

class FILEINFO_API AacInfo : public MediaFileInfoBase {
public:
    enum {
        // Bytes read per buffer load; also the bound on an ADTS frame's length.
        kBufferSize = 4608,
        // Zeroed bytes behind the buffer: a header found in its last bytes
        // (7 bytes, or an ADIF header after its 9-byte copyright field) is
        // decoded from there.
        kBufferSlack = 32,
        // What ReadFrame needs to be handed: the buffer and its slack.
        kBufferAllocation = kBufferSize + kBufferSlack,
        kAdtsHeaderSize = 7,
    };

    AacInfo();
    ~AacInfo() override;

    int LoadFile(const char* path) override;
    // Forwarded to the owned tag reader; 0 when there is none.
    int HasId3Info() override;
    int SetId3Info(MediaFileInfo_st* info) override;
    void Destory() override;

    // Scans the file open in m_file for an ADIF header or ADTS frames.
    // `buffer` holds the current m_bufferSize bytes and must be
    // kBufferAllocation bytes long; the scan refills it as it goes.
    int ReadFrame(unsigned char* buffer);
    // Decodes the 7 header bytes of one ADTS frame into the record: 1 when
    // the frame is accepted, 10 for a length out of range, 2 without header
    // or record.
    int GetInfo(unsigned char* header);

    // This reader's version names, by the header's ID bit: clear, set.
    static const char* const MPEGVersion[2];
    // Kept with the reader although nothing reads them: AAC profiles,
    // version names, and the ids of trailing tags that are not looked for.
    static const char* const PROFILE[4];
    static const char* const M4;
    static const char* const M2;
    static const char* const APETAGEX;
    static const char* const LYRICSBEGIN;

    // Scan state. Like the other readers' scan counters these are not reset
    // by a second LoadFile: a reader is meant to be loaded once.
    unsigned int m_frameLength;  // last accepted frame's length; 1 after a rejected one
    unsigned int m_frameCount;   // ADTS frames accepted
    unsigned int m_bufferPos;    // index of the byte now examined
    unsigned int m_totalBytes;   // sum of the accepted frames' lengths
    Id3Info* m_id3;

private:
    void LoadTags(const char* path);
    int ReadAdif(const unsigned char* buffer);
    // Moves the file to the byte at m_bufferPos (which lies past the last
    // whole header in the buffer) and refills the buffer from there.
    void RefillAtPosition(unsigned char* buffer);
};

#endif  // FILEINFO_AACINFO_H
