#include "AifInfo.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "detail/ByteOrder.h"
#include "detail/ReaderLoad.h"

namespace {

// The FORM header: "FORM", its size (not used), then the form type, whose
// first three letters must be "AIF" and whose last is 'F' (AIFF) or 'C'
// (AIFC).
constexpr int kFormTypeOffset = 8;
constexpr int kFormVariantOffset = 11;
constexpr unsigned char kFormAiff = 0x46;  // 'F'
constexpr unsigned char kFormAifc = 0x43;  // 'C'
// The first chunk follows the 12-byte FORM header.
constexpr unsigned int kFirstChunkOffset = 12;

// Every chunk: a four-letter id and a 32-bit size counting the data after
// these 8 bytes.
constexpr int kChunkSizeOffset = 4;
constexpr unsigned int kChunkHeaderSize = 8;
constexpr int kChunkDataOffset = 8;

// COMM: channels, sample frames (not used), sample size, 80-bit rate.
constexpr int kChannelsOffset = 8;
constexpr int kSampleSizeOffset = 14;
constexpr int kSampleRateOffset = 16;
// SSND: the offset of the first sample, then the block size.
constexpr int kSoundOffsetOffset = 8;
// FVER: the format version timestamp; the one AIFC version 1 defines.
constexpr int kVersionOffset = 8;
constexpr unsigned int kAifcVersion1 = 0xA2805140u;

// A load of 16 bytes or fewer cannot hold the FORM header and a chunk.
constexpr unsigned int kShortestLoad = 16;
// A chunk starting within the last 100 bytes of the buffer is examined only
// after the file has been moved to it and the buffer refilled.
constexpr unsigned int kRefillMargin = 100;

constexpr unsigned int kMsPerSecond = 1000;
constexpr double kBitsPerByte = 8.0;

// Extended numbers: bias 16383, and 63 more so that the 64-bit significand
// is read as an integer.
constexpr unsigned int kExponentMask = 0x7FFF;
constexpr unsigned int kSpecialExponent = 0x7FFF;  // infinity and NaN
constexpr int kIntegerSignificandBias = 16383 + 63;

bool IsChunk(const unsigned char* chunk, const char* id) { return memcmp(chunk, id, 4) == 0; }

bool IsAiffForm(const unsigned char* b) {
    return memcmp(b, "FORM", 4) == 0 && memcmp(b + kFormTypeOffset, "AIF", 3) == 0 &&
           (b[kFormVariantOffset] == kFormAiff || b[kFormVariantOffset] == kFormAifc);
}

}  // namespace

AifInfo::AifInfo() : m_chunkPos(0) { m_bufferSize = kBufferSize; }

AifInfo::~AifInfo() { AifInfo::Destory(); }

void AifInfo::Destory() { MediaFileInfoBase::Destory(); }

int AifInfo::LoadFile(const char* path) {
    if (path == nullptr) return MFI_BAD_ARGUMENT;
    // The path copy is released even when no record was made by the last
    // load (it failed to open the file), so nothing leaks.
    if (fileinfo_detail::HoldsEarlierLoad(*this)) Destory();

    if (!fileinfo_detail::OpenForLoad(*this, path)) return MFI_OPEN_FAILED;

    // Positioned at the start; the AIFF load has no status for a failed
    // seek, so a stream that cannot seek (a pipe) is read as it comes.
    fseek(m_file, 0, SEEK_SET);
    int result;
    unsigned char* buffer = nullptr;
    if ((buffer = static_cast<unsigned char*>(calloc(kBufferAllocation, 1))) == nullptr ||
               (m_fileInfo = NewZeroedRecord()) == nullptr) {
        result = MFI_NO_MEMORY;
    } else {
        fileinfo_detail::MeasureFile(*this, path);
        m_bufferSize = static_cast<unsigned int>(fread(buffer, 1, kBufferSize, m_file));
        if (m_bufferSize <= kShortestLoad) {
            result = MFI_SHORT_FILE;
        } else {
            result = ReadHeader(buffer);
            ApplyTitleFallback();
        }
    }
    free(buffer);
    fileinfo_detail::CloseLoadedFile(*this);
    return result;
}

int AifInfo::ReadHeader(unsigned char* buffer) {
    if (buffer == nullptr) return MFI_BAD_ARGUMENT;
    // Anything that is not a FORM of type AIFF or AIFC is let through with
    // nothing filled: such a file "loads" with only its name as title.
    if (!IsAiffForm(buffer)) return MFI_OK;

    WalkState state = {0.0, 0, 0};
    m_chunkPos += kFirstChunkOffset;
    // Where the buffer now held starts in the file. The walk only moves
    // forward through a regular file; the check below ends it on a stream
    // whose position stands still (it would otherwise never reach its end).
    const long start = m_file == nullptr ? -1 : ftell(m_file);
    long bufferStart = start < 0 ? -1 : start - static_cast<long>(m_bufferSize);

    while (m_file != nullptr && !feof(m_file) && !ferror(m_file)) {
        // A chunk index past the buffer only arises after a failed read left
        // a buffer shorter than the margin without reaching the file's end
        // (the unsigned margin test then wraps); its bytes are not there.
        if (m_chunkPos > kBufferSize) break;

        const unsigned int size = HandleChunk(buffer + m_chunkPos, buffer + kBufferSize, state);
        if (static_cast<int>(size) <= 0) return MFI_NOT_THIS_FORMAT;

        // The pad byte after a chunk of odd size is not skipped.
        m_chunkPos += size + kChunkHeaderSize;
        if (m_chunkPos < m_bufferSize - kRefillMargin) continue;

        // Move the file to the next chunk: the difference is signed, as the
        // chunk may start up to 100 bytes before the end of this buffer.
        SeekRelative(m_file, m_chunkPos - m_bufferSize);
        m_chunkPos = 0;
        // A stream that reports no position (a pipe) is consumed by every
        // read and so reaches its end; only a known position can stand still.
        const long here = ftell(m_file);
        if (here >= 0 && bufferStart >= 0 && here <= bufferStart) break;
        bufferStart = here;
        if (!feof(m_file)) {
            m_bufferSize = static_cast<unsigned int>(fread(buffer, 1, kBufferSize, m_file));
        }
    }

    SetDuration(state);
    return MFI_OK;
}

unsigned int AifInfo::HandleChunk(unsigned char* chunk, const unsigned char* bufferEnd,
                                  WalkState& state) {
    const unsigned int size = ReadWord(chunk + kChunkSizeOffset);
    if (IsChunk(chunk, "COMM")) {
        ReadCommon(chunk, state);
    } else if (IsChunk(chunk, "FVER")) {
        // Read for completeness only: nothing depends on the version.
        [[maybe_unused]] unsigned int version = kAifcVersion1;
        version = ReadWord(chunk + kVersionOffset);
    } else if (IsChunk(chunk, "NAME")) {
        ReadText(m_fileInfo->title, chunk, size, bufferEnd);
    } else if (IsChunk(chunk, "AUTH")) {
        ReadText(m_fileInfo->artist, chunk, size, bufferEnd);
    } else if (IsChunk(chunk, "ANNO")) {
        ReadText(m_fileInfo->comment, chunk, size, bufferEnd);
    } else if (IsChunk(chunk, "SSND")) {
        // The 8 bytes of offset and block size stay counted as audio.
        const unsigned int offset = ReadWord(chunk + kSoundOffsetOffset);
        state.audioBytes = static_cast<double>(size - offset);
        m_isAudio = 1;
    }
    return size;
}

void AifInfo::ReadCommon(const unsigned char* chunk, WalkState& state) {
    state.channels = ReadHalf(chunk + kChannelsOffset);
    state.sampleSize = ReadHalf(chunk + kSampleSizeOffset);
    ExtFloat_st rate;
    memcpy(&rate, chunk + kSampleRateOffset, sizeof rate);
    const unsigned int sampleRate = DoubleToUInt32(Ext2dbl(rate));

    const char* channelText = GetChannel(state.channels);
    if (channelText != nullptr) CopyField(m_fileInfo->channelMode, channelText);
    m_fileInfo->sampleRate = sampleRate;
    m_fileInfo->bitsPerSample = static_cast<unsigned short>(state.sampleSize);
    m_fileInfo->bitRate = sampleRate * state.sampleSize * state.channels;
    // AIFC files are named AIFF too; their compression type is not read.
    CopyField(m_fileInfo->audioFormat, AIFFORMAT[0]);
    CopyField(m_fileInfo->fileType, AIFTYPE[0]);
}

void AifInfo::ReadText(char* field, const unsigned char* chunk, unsigned int size,
                       const unsigned char* bufferEnd) {
    // The text is not terminated in the file: it ends at its size, at a
    // zero byte, at the field's 127 characters or at the buffer's end.
    char text[MEDIA_TEXT_SIZE] = {};
    const unsigned char* from = chunk + kChunkDataOffset;
    size_t n = size < MEDIA_TEXT_SIZE - 1 ? size : MEDIA_TEXT_SIZE - 1;
    const size_t inBuffer = from < bufferEnd ? static_cast<size_t>(bufferEnd - from) : 0;
    if (n > inBuffer) n = inBuffer;
    memcpy(text, from, n);
    CopyField(field, text);
    m_hasId3 = 1;
}

void AifInfo::SetDuration(const WalkState& state) {
    if (!(state.audioBytes > 0.0) || m_fileInfo->sampleRate == 0) return;
    const unsigned int bitsPerSecond = m_fileInfo->sampleRate * state.sampleSize * state.channels;
    // No channels or no sample size: there is no rate to divide by.
    if (bitsPerSecond == 0) {
        m_fileInfo->durationMs = 0;
        return;
    }
    m_fileInfo->durationMs = DoubleToUInt32(state.audioBytes / static_cast<double>(bitsPerSecond) *
                                            kBitsPerByte * kMsPerSecond);
}

double AifInfo::Ext2dbl(ExtFloat_st value) {
    using fileinfo_detail::Be16;
    using fileinfo_detail::Be32;
    const uint64_t mantissa =
        (static_cast<uint64_t>(Be32(value.mantissa)) << 32) | Be32(value.mantissa + 4);
    // The sign bit is dropped: a negative number reads as its magnitude.
    const unsigned int biased = Be16(value.exponent) & kExponentMask;
    if (biased == kSpecialExponent && mantissa != 0) return 0.0;  // NaN
    // Infinity and denormals take the general path.
    const int exponent = static_cast<int>(biased) - kIntegerSignificandBias;
    // Unsigned to double without losing the rounding of the lowest bit.
    const double significand = (mantissa >> 63) != 0
                                   ? 2.0 * static_cast<double>((mantissa >> 1) | (mantissa & 1))
                                   : static_cast<double>(mantissa);
    return ldexp(significand, exponent);
}
