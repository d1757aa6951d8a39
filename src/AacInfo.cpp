#include "AacInfo.h"

#include <cstdlib>
#include <cstring>

#include "Id3Info.h"
#include "detail/OwnedTags.h"
#include "detail/ReaderLoad.h"

const unsigned int SAMPLE[16] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050,
                                 16000, 12000, 11025, 8000,  7350,  0,     0,     0};

const char* const AacInfo::MPEGVersion[2] = {"MPEG Version 4", "MPEG Version 2"};
const char* const AacInfo::PROFILE[4] = {"MAIN", "LC", "SSR", "LTP"};
const char* const AacInfo::M4 = "MPEG Version 4";
const char* const AacInfo::M2 = "MPEG Version 2";
const char* const AacInfo::APETAGEX = "APETAGEX";
const char* const AacInfo::LYRICSBEGIN = "LYRICSBEGIN";

namespace {

// ADTS: 12 sync bits of ones and a layer field of 0 (the ID and protection
// bits in the same byte may take any value).
constexpr unsigned char kSyncByte = 0xFF;
constexpr unsigned char kSyncMask = 0xF6;
constexpr unsigned char kSyncBits = 0xF0;
constexpr unsigned char kIdBit = 0x08;  // set: MPEG-2, clear: MPEG-4
// Rows of MPEGVersion, by the ID bit.
constexpr int kMpeg4Row = 0;
constexpr int kMpeg2Row = 1;

// ADIF: the magic, then (when flagged) a 9-byte copyright id before the
// fields read here.
const char kAdifMagic[] = "ADIF";
constexpr int kAdifFlagsOffset = 4;
constexpr unsigned char kAdifCopyrightFlag = 0x08;
constexpr unsigned int kAdifCopyrightSize = 9;

// Frames per second are counted as the sample rate over 1024, so
// durations are whole seconds.
constexpr int kSamplesPerFrameShift = 10;
constexpr unsigned int kMsPerSecond = 1000;
constexpr double kBitsPerByte = 8.0;
// The ADIF duration: bytes over bits per second is a count of 8 seconds.
constexpr unsigned int kMsPerEightSeconds = 8000;

unsigned int SampleRateAt(unsigned int index) { return SAMPLE[index & 0x0F]; }

}  // namespace

AacInfo::AacInfo() : m_frameLength(0), m_frameCount(0), m_bufferPos(0), m_totalBytes(0), m_id3(nullptr) {
    m_bufferSize = kBufferSize;
}

AacInfo::~AacInfo() { AacInfo::Destory(); }

void AacInfo::Destory() {
    fileinfo_detail::ReleaseOwnedTags(m_id3);
    MediaFileInfoBase::Destory();
}

int AacInfo::HasId3Info() { return fileinfo_detail::OwnedTagsPresent(m_id3); }

int AacInfo::SetId3Info(MediaFileInfo_st* info) { return fileinfo_detail::WriteOwnedTags(m_id3, info); }

int AacInfo::LoadFile(const char* path) {
    if (path == nullptr) return MFI_BAD_ARGUMENT;
    // Also the path and tag reader of a load that made no record go.
    if (fileinfo_detail::HoldsEarlierLoad(*this) || m_id3 != nullptr) Destory();

    fileinfo_detail::KeepPathCopy(*this, path);
    // Made before the file is opened: tags and size reach the record of a file that will not open.
    m_fileInfo = NewZeroedRecord();
    if (m_fileInfo == nullptr) return MFI_NO_MEMORY;
    LoadTags(path);

    m_file = OpenForReading(path);
    // Measured before the open is checked: a file that will not open is measured by its path.
    fileinfo_detail::MeasureFile(*this, path);
    if (m_file == nullptr) return MFI_OPEN_FAILED;

    int result;
    char* buffer = nullptr;
    if (fseek(m_file, 0, SEEK_SET) != 0) {
        result = MFI_SEEK_FAILED;
    } else if ((buffer = static_cast<char*>(calloc(kBufferAllocation, 1))) == nullptr) {
        result = MFI_NO_MEMORY;
    } else if (fread(buffer, 1, kBufferSize, m_file) == static_cast<size_t>(kBufferSize)) {
        // The skip lands 10 bytes before the end of an ID3v2 tag; the frame
        // search walks over those bytes.
        OverleapID3V2(&buffer);
        result = ReadFrame(reinterpret_cast<unsigned char*>(buffer));
    } else {
        result = MFI_SHORT_FILE;
    }
    if (result != MFI_NO_MEMORY) ApplyTitleFallback();
    free(buffer);
    fileinfo_detail::CloseLoadedFile(*this);
    return result;
}

void AacInfo::LoadTags(const char* path) {
    if (fileinfo_detail::LoadOwnedTags(m_id3, path, m_hasId3)) m_id3->CopyTagsTo(m_fileInfo);
}

int AacInfo::ReadFrame(unsigned char* buffer) {
    if (buffer == nullptr) return MFI_BAD_ARGUMENT;
    int result = MFI_UNREADABLE;
    // A read error leaves the file short of its end for good; the scan
    // stops there instead of reading nothing forever.
    while (m_file != nullptr && !feof(m_file) && !ferror(m_file)) {
        while (m_bufferPos < m_bufferSize) {
            if (m_frameCount == 0 && memcmp(buffer, kAdifMagic, 4) == 0) return ReadAdif(buffer);
            const unsigned char* b = buffer + m_bufferPos;
            if (b[0] != kSyncByte || (b[1] & kSyncMask) != kSyncBits) {
                ++m_bufferPos;
                continue;
            }
            result = GetInfo(buffer + m_bufferPos);
            if (result != MFI_OK) return MFI_NOT_THIS_FORMAT;
            m_bufferPos += m_frameLength;
            if (m_bufferPos > m_bufferSize - kAdtsHeaderSize) RefillAtPosition(buffer);
            m_isAudio = 1;
        }
        m_bufferSize = static_cast<unsigned int>(fread(buffer, 1, kBufferSize, m_file));
        m_bufferPos = 0;
    }
    return result;
}

void AacInfo::RefillAtPosition(unsigned char* buffer) {
    // The next frame may start before the end of the buffer (its header
    // would not fit) or after it: a signed move either way.
    SeekRelative(m_file, m_bufferPos - m_bufferSize);
    if (!feof(m_file)) m_bufferSize = static_cast<unsigned int>(fread(buffer, 1, kBufferSize, m_file));
    m_bufferPos = 0;
}

int AacInfo::GetInfo(unsigned char* header) {
    if (header == nullptr || m_fileInfo == nullptr) return MFI_BAD_ARGUMENT;
    const unsigned char* h = header;
    const unsigned int channels = ((h[2] & 0x01u) << 2) | ((h[3] & 0xC0u) >> 6);
    const bool mpeg2 = (h[1] & kIdBit) != 0;
    const unsigned int sampleRate = SampleRateAt((h[2] & 0x3Cu) >> 2);

    // The first frame alone names the channels and the version and sets
    // the sample rate, even when its length turns out bad.
    if (m_frameCount == 0) {
        const char* channelText = GetChannel(channels);
        if (channelText != nullptr) CopyField(m_fileInfo->channelMode, channelText);
        CopyField(m_fileInfo->audioFormat, MPEGVersion[mpeg2 ? kMpeg2Row : kMpeg4Row]);
        m_fileInfo->sampleRate = sampleRate;
    }

    const unsigned int length = ((h[3] & 0x03u) << 11) | (static_cast<unsigned int>(h[4]) << 3) | (h[5] >> 5);
    if (length == 0 || length >= static_cast<unsigned int>(kBufferSize)) {
        m_frameLength = 1;
        return MFI_NOT_THIS_FORMAT;
    }
    m_frameLength = length;
    m_totalBytes += length;
    m_frameCount += 1;

    // Bit rate from the average frame and whole frames per second; the
    // half is added before the multiplication by 8, so it comes out as
    // 8 * average * k + 4.
    const unsigned int framesPerSecond = m_fileInfo->sampleRate >> kSamplesPerFrameShift;
    const unsigned int average = m_totalBytes / m_frameCount;
    m_fileInfo->bitRate = DoubleToUInt32((average * framesPerSecond + 0.5) * kBitsPerByte);
    if (m_fileInfo->sampleRate != 0) {
        // Whole seconds. Below 1024 Hz not even one frame fills a second:
        // no duration can be counted then.
        m_fileInfo->durationMs = framesPerSecond == 0 ? 0 : (m_frameCount / framesPerSecond) * kMsPerSecond;
    }
    return MFI_OK;
}

int AacInfo::ReadAdif(const unsigned char* buffer) {
    // The length of the whole file, tags included.
    fseek(m_file, 0, SEEK_END);
    const int fileLength = static_cast<int>(ftell(m_file));

    // The copyright-id flag is taken from bit 0x08 of the byte after the
    // magic; with it set, the fields below start 9 bytes later.
    const unsigned int skip = (buffer[kAdifFlagsOffset] & kAdifCopyrightFlag) != 0 ? kAdifCopyrightSize : 0;
    const unsigned char* p = buffer + m_bufferPos + skip;
    // The lowest three bits stay where they are in their byte: or-ed in
    // without a shift.
    const unsigned int bitRate = ((p[4] & 0x0Fu) << 19) | (static_cast<unsigned int>(p[5]) << 11) |
                                 (static_cast<unsigned int>(p[6]) << 3) | (p[7] & 0xE0u);

    // A bit rate of 0 gives no duration.
    if (fileLength != 0 && bitRate != 0) {
        const int eightSeconds = fileLength / static_cast<int>(bitRate);
        // The product wraps like the 32-bit arithmetic it comes from.
        const int ms = static_cast<int>(static_cast<unsigned int>(eightSeconds) * kMsPerEightSeconds);
        m_fileInfo->durationMs = DoubleToUInt32(ms + 0.5);
    }
    m_fileInfo->sampleRate = SampleRateAt(((p[4] & 0x07u) << 1) | ((p[5] & 0x80u) >> 7));
    m_fileInfo->bitRate = DoubleToUInt32(bitRate + 0.5);
    CopyField(m_fileInfo->fileType, AacFileType[0]);
    return MFI_OK;
}
