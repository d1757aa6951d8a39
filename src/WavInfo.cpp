#include "WavInfo.h"

#include <cstdlib>
#include <cstring>

#include "detail/ByteOrder.h"
#include "detail/ReaderLoad.h"

const char* const PCM_FORMAT[5] = {"PCM", "MULAW", "IBM_ALAW", "IBM_ADPCM", "UNKNOWN"};
const char* const RiffTag = "RIFF";
const char* const WavTag = "WAVE";

namespace {

// Offsets of the canonical header. The numbers are deliberately taken in
// host order (Host16/Host32), as they lie in the bytes, not with Le16/Le32:
// RIFF is little-endian and so are the hosts served.
constexpr int kRiffIdOffset = 0;
constexpr int kRiffSizeOffset = 4;
constexpr int kFormTypeOffset = 8;
constexpr int kFormatTagOffset = 20;
constexpr int kChannelsOffset = 22;
constexpr int kSampleRateOffset = 24;
constexpr int kBitsPerSampleOffset = 34;

// Bytes of the header counted by the RIFF size that are not sample data.
constexpr unsigned int kHeaderBytesInRiffSize = 36;

// The duration divisor is bits per second, i.e. bytes per eight seconds.
constexpr unsigned int kMsPerEightSeconds = 8000;

// Rows of PCM_FORMAT.
enum PcmFormatRow { kPcmRow, kMulawRow, kIbmAlawRow, kIbmAdpcmRow, kUnknownFormatRow };

const char* FormatName(unsigned int formatTag) {
    switch (formatTag) {
        case 0x001: return PCM_FORMAT[kPcmRow];
        case 0x101: return PCM_FORMAT[kMulawRow];
        case 0x102: return PCM_FORMAT[kIbmAlawRow];
        case 0x103: return PCM_FORMAT[kIbmAdpcmRow];
        default: return PCM_FORMAT[kUnknownFormatRow];
    }
}

}  // namespace

WavInfo::WavInfo() { memset(m_header, 0, sizeof m_header); }

WavInfo::~WavInfo() { WavInfo::Destory(); }

void WavInfo::Destory() { MediaFileInfoBase::Destory(); }

int WavInfo::LoadFile(const char* path) {
    if (path == nullptr) return MFI_BAD_ARGUMENT;
    // A load that failed to open the file left its path copy but no
    // record: release it too, so nothing leaks.
    if (fileinfo_detail::HoldsEarlierLoad(*this)) Destory();

    if (!fileinfo_detail::OpenForLoad(*this, path)) return MFI_OPEN_FAILED;

    int result;
    if (fseek(m_file, 0, SEEK_SET) != 0) {
        result = MFI_SEEK_FAILED;
    } else if ((m_fileInfo = NewConstructedRecord()) == nullptr) {
        result = MFI_NO_MEMORY;
    } else {
        // Constructed, then cleared whole: every field of a WAV record starts 0.
        memset(static_cast<void*>(m_fileInfo), 0, sizeof *m_fileInfo);
        fileinfo_detail::MeasureFile(*this, path);
        result = fread(m_header, 1, kHeaderSize, m_file) == kHeaderSize ? GetInfo()
                                                                         : MFI_UNREADABLE;
        // Also a rejected file keeps its size and its name as title.
        ApplyTitleFallback();
    }
    fileinfo_detail::CloseLoadedFile(*this);
    return result;
}

int WavInfo::GetInfo() {
    if (m_fileInfo == nullptr) return MFI_UNREADABLE;
    if (memcmp(m_header + kRiffIdOffset, RiffTag, 4) != 0 ||
        memcmp(m_header + kFormTypeOffset, WavTag, 4) != 0) {
        return MFI_NOT_THIS_FORMAT;
    }
    const unsigned int riffSize = fileinfo_detail::Host32(m_header + kRiffSizeOffset);
    const unsigned int channels = fileinfo_detail::Host16(m_header + kChannelsOffset);
    const unsigned int sampleRate = fileinfo_detail::Host32(m_header + kSampleRateOffset);
    const unsigned int bitsPerSample = fileinfo_detail::Host16(m_header + kBitsPerSampleOffset);

    CopyField(m_fileInfo->audioFormat, FormatName(fileinfo_detail::Host16(m_header + kFormatTagOffset)));
    // The channel count is deliberately not part of this figure.
    m_fileInfo->bitRate = bitsPerSample * sampleRate;
    if (channels != 0) CopyField(m_fileInfo->channelMode, GetChannel(channels));
    m_fileInfo->sampleRate = sampleRate;

    // Whole multiples of eight seconds: the division truncates first.
    const unsigned int bitsPerSecond = sampleRate * bitsPerSample * channels;
    m_fileInfo->durationMs =
        bitsPerSecond == 0
            ? 0
            : ((riffSize - kHeaderBytesInRiffSize) / bitsPerSecond) * kMsPerEightSeconds;

    CopyField(m_fileInfo->fileType, WavFileType[0]);
    m_isAudio = 1;
    return MFI_OK;
}
