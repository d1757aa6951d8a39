#include "Mp3Info.h"

#include <cstdlib>
#include <cstring>

#include "Id3Info.h"
#include "detail/ByteOrder.h"
#include "detail/OwnedTags.h"
#include "detail/ReaderLoad.h"

const unsigned int Mp3Info::tabsel[6][16] = {
    {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448, 0},
    {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384, 0},
    {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 0},
    {0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256, 0},
    {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0},
    {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0},
};

const unsigned int Mp3Info::freqs[9] = {44100, 48000, 32000, 22050, 24000, 16000, 11025, 12000, 8000};

const unsigned int Mp3Info::SamplePerFrame[6] = {384, 1152, 1152, 384, 1152, 576};

const char* const Mp3Info::MPEGVersion[4] = {"MPEG Version 2.5", "Unknow", "MPEG Version 2",
                                             "MPEG Version 1"};

namespace {

// Values of the header's 2-bit version field.
constexpr unsigned int kVersionMpeg25 = 0;
constexpr unsigned int kVersionReserved = 1;
constexpr unsigned int kVersionMpeg2 = 2;
constexpr unsigned int kVersionMpeg1 = 3;

// Row offsets into tabsel and SamplePerFrame, and into freqs.
constexpr unsigned int kMpeg1Rows = 0;
constexpr unsigned int kMpeg2Rows = 3;
constexpr unsigned int kTableRows = 6;
constexpr unsigned int kMpeg1Freqs = 0;
constexpr unsigned int kMpeg2Freqs = 3;
constexpr unsigned int kMpeg25Freqs = 6;
constexpr unsigned int kFreqCount = 9;

// Header fields, h being the four bytes big-endian.
constexpr unsigned int kSyncWord = 2047;  // h >> 21: eleven set bits
unsigned int VersionField(unsigned int h) { return (h >> 19) & 3; }
unsigned int LayerField(unsigned int h) { return (h >> 17) & 3; }
unsigned int BitRateIndex(unsigned int h) { return (h >> 12) & 15; }
unsigned int SampleRateField(unsigned int h) { return (h >> 10) & 3; }
unsigned int PaddingBit(unsigned int h) { return (h >> 9) & 1; }
unsigned int ChannelModeField(unsigned int h) { return (h >> 6) & 3; }
bool IsMpeg25(unsigned int h) { return (h & (1u << 20)) == 0; }
bool IsMpeg1Bit(unsigned int h) { return (h & (1u << 19)) != 0; }

constexpr unsigned int kForbiddenBitRate = 15;
constexpr unsigned int kReservedSampleRate = 3;
// GetChannel receives this minus the channel-mode field: 5 to 2, so every
// stream, mono included, is reported with two or more channels.
constexpr unsigned int kChannelBase = 5;

// The header tests of the frame search; free format (bit-rate index 0)
// passes them and is refused by GetInfo.
bool IsCandidate(unsigned int h) {
    return (h >> 21) == kSyncWord && VersionField(h) != kVersionReserved && LayerField(h) != 0 &&
           BitRateIndex(h) < kForbiddenBitRate && SampleRateField(h) < kReservedSampleRate;
}

bool LengthInRange(int length) { return length > 0 && length <= Mp3Info::kMaxFrameLength; }

// Frame-length factors: Layer I counts 4-byte slots.
constexpr unsigned int kLayer1Factor = 12000;
constexpr unsigned int kLayer1SlotBytes = 4;
constexpr unsigned int kLayer23Factor = 144000;

// The last bytes of a buffer that are never taken as the start of a header,
// and the fewest bytes a buffer must hold to be searched at all.
constexpr unsigned int kHeaderTail = 4;
constexpr unsigned int kMinScanBytes = 5;

// The buffer is allocated this much larger than a read and kept zeroed
// beyond it: the VBR header search reads up to 18 bytes from any offset of
// the first frame, which may lie close to the end of the read data.
constexpr size_t kBufferSlack = 32;

// VBR header layouts, offsets from the tag.
constexpr int kXingFlagsOffset = 4;
constexpr int kXingFramesOffset = 8;
constexpr int kXingBytesOffset = 12;
constexpr unsigned int kXingFramesPresent = 1;
constexpr int kVbriFramesOffset = 14;
constexpr int kTagLength = 4;
enum VbrType { kNoVbr = 0, kXing = 1, kInfo = 2, kVbri = 3 };

// The load loop: frames read after the VBR frame, and the count that a
// constant-rate stream must exceed before the rest is estimated.
constexpr int kFramesAfterVbrHeader = 2;
constexpr int kEnoughFrames = 10;

// The end of reading: end of file, and also a read error, after which
// further reads return nothing forever and the scans would never end.
bool AtEnd(FILE* file) { return file == nullptr || feof(file) != 0 || ferror(file) != 0; }

// Counters come from file data (a VBR header's frame count); they wrap as
// 32-bit values do instead of overflowing.
int WrapAdd(int value, int delta) {
    return static_cast<int>(static_cast<unsigned int>(value) + static_cast<unsigned int>(delta));
}

}  // namespace

Mp3Info::Mp3Info()
    : m_frameLength(0),
      m_frameCount(0),
      m_vbrFrameCounter(0),
      m_bufferPos(0),
      m_isVbr(0),
      m_shortStream(0),
      m_versionId(0),
      m_layer(0),
      m_audioStart(0),
      m_vbrBytes(0.0),
      m_lastResult(0),
      m_id3(nullptr) {
    m_bufferSize = kReadSize;
}

Mp3Info::~Mp3Info() { Mp3Info::Destory(); }

void Mp3Info::Destory() {
    fileinfo_detail::ReleaseOwnedTags(m_id3);
    MediaFileInfoBase::Destory();
}

int Mp3Info::HasId3Info() { return fileinfo_detail::OwnedTagsPresent(m_id3); }

int Mp3Info::SetId3Info(MediaFileInfo_st* info) { return fileinfo_detail::WriteOwnedTags(m_id3, info); }

MediaFileInfo_st* Mp3Info::GetFileInfo() { return m_fileInfo; }

int Mp3Info::GetInfo(unsigned int h) {
    if (m_fileInfo == nullptr) {
        if (LengthInRange(m_frameLength)) return MFI_UNREADABLE;
        m_frameLength = 0;
        return MFI_NOT_THIS_FORMAT;
    }
    m_versionId = VersionField(h);
    m_layer = 4 - LayerField(h);

    unsigned int freqIndex = SampleRateField(h);
    if (IsMpeg25(h)) {
        freqIndex += kMpeg25Freqs;
    } else {
        freqIndex += IsMpeg1Bit(h) ? kMpeg1Freqs : kMpeg2Freqs;
    }
    const unsigned int bitRateIndex = BitRateIndex(h);
    if (freqIndex >= kFreqCount || bitRateIndex == 0) {
        // A refused candidate keeps the length of the last accepted frame.
        if (!LengthInRange(m_frameLength)) m_frameLength = 0;
        return MFI_NOT_THIS_FORMAT;
    }

    const bool mpeg1 = m_versionId == kVersionMpeg1;
    const unsigned int sampleRate = freqs[freqIndex];
    // Layer field 0 (layer "4") lies outside the table; no candidate has it.
    const unsigned int row = (mpeg1 ? kMpeg1Rows : kMpeg2Rows) + m_layer - 1;
    const unsigned int kbps = row < kTableRows ? tabsel[row][bitRateIndex] : 0;

    // Written before the length check: a refused candidate leaves its values.
    m_fileInfo->sampleRate = sampleRate;
    m_fileInfo->bitRate = kbps * 1000;
    const char* channels = GetChannel(kChannelBase - ChannelModeField(h));
    if (channels != nullptr) CopyField(m_fileInfo->channelMode, channels);
    CopyField(m_fileInfo->audioFormat, MPEGVersion[m_versionId]);

    const unsigned int padding = PaddingBit(h);
    unsigned int length = 0;
    switch (m_layer) {
        case 1:
            length = (kLayer1Factor * kbps / sampleRate + padding) * kLayer1SlotBytes;
            break;
        case 2:
            length = kLayer23Factor * kbps / sampleRate + padding;
            break;
        case 3:
            // MPEG 2 and 2.5 Layer III frames carry half the samples.
            length = kLayer23Factor * kbps / (sampleRate << (mpeg1 ? 0 : 1)) + padding;
            break;
        default:
            break;
    }
    m_frameLength = static_cast<int>(length);
    if (LengthInRange(m_frameLength)) return MFI_OK;
    m_frameLength = 0;
    return MFI_NOT_THIS_FORMAT;
}

void Mp3Info::Refill(unsigned char* buffer) {
    m_bufferSize = static_cast<unsigned int>(fread(buffer, 1, kReadSize, m_file));
    m_bufferPos = 0;
}

int Mp3Info::ReadFrame(unsigned char* buffer) {
    if (buffer == nullptr) return MFI_BAD_ARGUMENT;
    bool junkSeen = false;
    int result = MFI_UNREADABLE;
    while (!AtEnd(m_file)) {
        while (m_bufferSize >= kMinScanBytes && m_bufferPos < m_bufferSize - kHeaderTail) {
            // Silent read: runs of 0xFF padding are ordinary data here.
            const unsigned int h = fileinfo_detail::Be32(buffer + m_bufferPos);
            if (!IsCandidate(h)) {
                junkSeen = true;
                ++m_bufferPos;
                continue;
            }
            // The previous call's frame was followed by junk: it was a false sync.
            if (junkSeen && m_lastResult == MFI_OK) {
                if (m_isVbr != 0) {
                    --m_vbrFrameCounter;
                } else {
                    m_frameCount = WrapAdd(m_frameCount, -1);
                }
            }
            m_lastResult = 0;
            junkSeen = false;
            result = GetInfo(h);
            if (result == MFI_OK) return PassFrame(buffer);
            ++m_bufferPos;
        }
        // No bytes are carried over: a header straddling the refill is missed.
        Refill(buffer);
    }
    return result;
}

int Mp3Info::PassFrame(unsigned char* buffer) {
    const unsigned int length = static_cast<unsigned int>(m_frameLength);
    if (m_frameCount == 0) {
        // The whole first frame must be in the buffer for the VBR header
        // search: read again from its first byte.
        if (m_bufferPos + length >= m_bufferSize - kHeaderTail) {
            SeekRelative(m_file, m_bufferPos - m_bufferSize);
            if (feof(m_file)) return MFI_OK;
            Refill(buffer);
        }
        if (CheckVbrFormat(buffer + m_bufferPos) != kNoVbr) {
            // Not moved past: the next call accepts this frame again.
            m_isVbr = 1;
            return MFI_OK;
        }
    }
    m_bufferPos += length;
    if (m_bufferPos < m_bufferSize - kHeaderTail) return MFI_OK;

    if (m_frameCount < 2) m_shortStream = 1;
    // Continue at the frame's end: back over the unread tail, or forward
    // when the frame runs past the buffer.
    SeekRelative(m_file, m_bufferPos - m_bufferSize);
    if (feof(m_file)) {
        m_bufferPos = 0;
        return MFI_OK;
    }
    Refill(buffer);
    return MFI_OK;
}

int Mp3Info::CheckVbrFormat(unsigned char* frame) {
    if (frame == nullptr) return kNoVbr;
    for (int i = 0; i < m_frameLength; ++i) {
        const int type = DecodeVbrHeader(frame + i);
        if (type != kNoVbr) return type;
    }
    return kNoVbr;
}

int Mp3Info::DecodeVbrHeader(unsigned char* p) {
    if (p == nullptr) return kNoVbr;
    int type = kNoVbr;
    if (memcmp(p, "Xing", kTagLength) == 0) {
        type = kXing;
    } else if (memcmp(p, "Info", kTagLength) == 0) {
        type = kInfo;
    } else if (memcmp(p, "VBRI", kTagLength) == 0) {
        m_frameCount = static_cast<int>(ReadWord(p + kVbriFramesOffset));
        // Everything from the buffer position to the end of the file counts
        // as audio, measured as file size - file position + buffer position.
        const unsigned int fileSize = m_fileInfo == nullptr ? 0 : m_fileInfo->fileSize;
        const unsigned int filePos =
            m_file == nullptr ? 0 : static_cast<unsigned int>(ftell(m_file));
        m_vbrBytes = static_cast<double>(fileSize - filePos + m_bufferPos);
        return kVbri;
    } else {
        return kNoVbr;
    }
    // "Xing" and "Info" alike: the counts only when the frames flag is set,
    // the byte count then whatever its own flag says.
    if ((ReadWord(p + kXingFlagsOffset) & kXingFramesPresent) == 0) return type;
    m_frameCount = static_cast<int>(ReadWord(p + kXingFramesOffset));
    m_vbrBytes = static_cast<double>(ReadWord(p + kXingBytesOffset));
    return type;
}

int Mp3Info::GetDuration() {
    unsigned int index = kTableRows;  // none
    if (m_versionId == kVersionMpeg1) {
        index = kMpeg1Rows + m_layer - 1;
    } else if (m_versionId == kVersionMpeg25 || m_versionId == kVersionMpeg2) {
        index = kMpeg2Rows + m_layer - 1;
    }
    const unsigned int samplesPerFrame = index < kTableRows ? SamplePerFrame[index] : 0;
    if (m_fileInfo == nullptr || m_fileInfo->sampleRate == 0) return 0;
    // The product is taken as a signed 32-bit value, wrapping as it did.
    const int samples =
        static_cast<int>(static_cast<unsigned int>(m_frameCount) * samplesPerFrame);
    const double ms =
        static_cast<double>(samples) / static_cast<double>(m_fileInfo->sampleRate) * 1000.0;
    return static_cast<int>(DoubleToUInt32(ms));
}

void Mp3Info::CopyTags() { m_id3->CopyTagsTo(m_fileInfo); }

void Mp3Info::ScanFrames(unsigned char* buffer) {
    int last = 0;
    while (!AtEnd(m_file)) {
        m_lastResult = last;
        last = ReadFrame(buffer);
        if (last != MFI_OK) continue;
        m_frameCount = WrapAdd(m_frameCount, 1);
        if (m_isVbr != 0) {
            // The VBR frame is met twice, then one more: header count + 3.
            if (m_vbrFrameCounter == kFramesAfterVbrHeader) return;
            ++m_vbrFrameCounter;
            continue;
        }
        // Each constant-rate frame counts twice.
        m_frameCount = WrapAdd(m_frameCount, 1);
        if (m_frameCount > kEnoughFrames) {
            // Everything from the end of the data read so far to the end of
            // the file is taken as frames of the last length, trailing tags
            // included.
            m_audioStart = static_cast<unsigned int>(ftell(m_file));
            fseek(m_file, 0, SEEK_END);
            const unsigned int fileEnd = static_cast<unsigned int>(ftell(m_file));
            m_frameCount = static_cast<int>((fileEnd - m_audioStart) /
                                                static_cast<unsigned int>(m_frameLength) +
                                            kEnoughFrames);
            return;
        }
    }
}

int Mp3Info::LoadFile(const char* path) {
    if (path == nullptr) return MFI_BAD_ARGUMENT;
    // The scan counters stay: a reader is meant to be loaded once.
    if (fileinfo_detail::HoldsEarlierLoad(*this) || m_id3 != nullptr) Destory();

    fileinfo_detail::KeepPathCopy(*this, path);
    // Made before the file is opened: tags and size reach the record of a file that will not open.
    m_fileInfo = NewConstructedRecord();
    if (m_fileInfo == nullptr) return MFI_NO_MEMORY;
    if (fileinfo_detail::LoadOwnedTags(m_id3, path, m_hasId3)) CopyTags();

    m_file = OpenForReading(path);
    // Measured before the open is checked: a file that will not open is measured by its path.
    fileinfo_detail::MeasureFile(*this, path);
    if (m_file == nullptr) return MFI_OPEN_FAILED;
    // No status for a failed seek here: a stream that cannot seek is read as it comes.
    fseek(m_file, 0, SEEK_SET);

    int result = MFI_NOT_THIS_FORMAT;
    unsigned char* buffer = static_cast<unsigned char*>(calloc(kReadSize + kBufferSlack, 1));
    if (buffer == nullptr) {
        result = MFI_NO_MEMORY;
    } else {
        m_bufferSize = static_cast<unsigned int>(fread(buffer, 1, kReadSize, m_file));
        if (m_bufferSize < kReadSize) {
            result = MFI_SHORT_FILE;
        } else {
            char* text = reinterpret_cast<char*>(buffer);
            OverleapID3V2(&text);
            ScanFrames(buffer);
            if (m_frameCount > kEnoughFrames) {
                FillDurationAndType();
                result = MFI_OK;
            }
        }
        free(buffer);
    }
    fileinfo_detail::CloseLoadedFile(*this);
    return result;
}

void Mp3Info::FillDurationAndType() {
    m_fileInfo->durationMs = static_cast<unsigned int>(GetDuration());
    const unsigned int duration = m_fileInfo->durationMs;
    if (m_isVbr != 0 && m_vbrBytes > 0.0 && duration != 0) {
        m_fileInfo->bitRate =
            DoubleToUInt32(m_vbrBytes / static_cast<double>(duration) * 8.0 * 1000.0);
    }
    CopyField(m_fileInfo->fileType, Mp3FileType[0]);
    ApplyTitleFallback();
    m_isAudio = 1;
}
