#include "Mp4Info.h"

#include "detail/FormatTypeRows.h"
#include "detail/IlstItems.h"
#include "detail/Inflate.h"
#include "detail/Mp4ConfigDecoders.h"
#include "detail/Mp4LoopMark.h"
#include "detail/ReaderLoad.h"
#include "detail/TempFileClaim.h"

#include <sys/stat.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

// Handler results.
constexpr int kWalkOn = 0;
constexpr int kWalkFinished = 1;
constexpr int kWalkFailed = -1;

// Every atom: a 32-bit big-endian size (header included), then its type.
constexpr unsigned int kAtomTypeOffset = 4;
constexpr unsigned int kAtomHeaderSize = 8;
constexpr unsigned int kFourCc = 4;
// "skip-or-4": where a size of 0 still moves the walk on.
constexpr unsigned int kZeroSizeStep = 4;
// "ftyp": a zero size outside "ftyp" moves the first search on byte-wise.
constexpr unsigned int kByteStep = 1;

constexpr unsigned int kFtypMajorBrandOffset = 8;
constexpr unsigned int kMoovChildTypeOffset = 12;
// Version-0 "mvhd" and "mdhd".
constexpr unsigned int kTimeScaleOffset = 20;
constexpr unsigned int kDurationOffset = 24;
constexpr unsigned int kMsPerSecond = 1000;
constexpr unsigned int kIodsVisualProfileOffset = 19;
// "hdlr": handler type, then the component manufacturer; QuickTime's
// ("appl") has a counted name, so its first character sits one byte later.
constexpr unsigned int kHdlrTypeOffset = 16;
constexpr unsigned int kHdlrManufacturerOffset = 20;
constexpr unsigned int kHdlrNameOffset = 32;
constexpr unsigned int kHdlrCountedNameOffset = 33;
// "meta" is a full atom: header, then version and flags.
constexpr unsigned int kMetaHeaderSize = 12;

// "stsd", from the atom's start: the first sample entry begins at +16.
constexpr unsigned int kEntryTypeOffset = 20;
constexpr unsigned int kSoundChannelsOffset = 40;
constexpr unsigned int kVisualWidthOffset = 48;
constexpr unsigned int kVisualHeightOffset = 50;
// Type field of the first child of an 86-byte visual sample entry.
constexpr unsigned int kVisualChildTypeOffset = 106;
// "esds" in a version-1 QuickTime sound entry's "wave" atom, and the child
// directly after a version-0 sound entry.
constexpr unsigned int kSoundV1EsdsTypeOffset = 104;
constexpr unsigned int kSoundV0ChildTypeOffset = 56;
// "alac" inside the "wave" atom of a version-1 sound entry.
constexpr unsigned int kSoundV1AlacTypeOffset = 92;

// "stsz": sample size at +12, sample count at +16, entries from +20.
constexpr unsigned int kStszFieldsOffset = 12;
constexpr unsigned int kStszCountOffset = 16;
constexpr unsigned int kFieldsCountOffset = 4;
constexpr unsigned int kFieldsEntriesOffset = 8;
constexpr unsigned int kWordSize = 4;
// Where the table is taken to run out of the buffer, and where the file
// read resumes: two entries on from the entry that ran out.
constexpr unsigned int kEntryEndBias = 24;
constexpr unsigned int kSideReadBias = 28;
constexpr unsigned int kBitsPerByte = 8;

// Decoder configuration children, offsets from the child's type field. An
// ES descriptor written with four-byte lengths has a zero ES_ID low byte
// and flags at +14 and its DecoderConfigDescriptor tag with three 0x80
// continuation bytes at +16.
constexpr unsigned int kChildSizeBack = 4;
constexpr unsigned int kFormTestOffset = 14;
constexpr unsigned int kDecoderConfigOffset = 16;
constexpr unsigned int kLongFormMarker = 0x04808080u;
constexpr unsigned int kShortFormAvgBitRateOffset = 24;
constexpr unsigned int kShortFormObjectTypeOffset = 15;
constexpr unsigned int kLongFormObjectTypeOffset = 21;
constexpr unsigned int kConfigPayloadOffset = 4;
constexpr unsigned int kAlacShortConfigOffset = 8;

// A 51-byte "esds" is QuickTime's: its decoder-specific length has the
// four-byte form.
constexpr int kAppleEsdsSize = 51;

// Compressed movie header: "dcom" names the method, "cmvd" holds the data
// after its size, type and uncompressed-size field.
constexpr unsigned int kCmovScanTail = 12;
constexpr unsigned int kDcomAtomStep = 8;
constexpr unsigned int kCmvdHeaderSize = 12;
const char* const kTempFilePath = "/temp.bin";

// The "©day" item: the year is its first four characters.
constexpr unsigned int kYearLength = 4;

unsigned int AtomSize(unsigned char* atom) { return MediaFileInfoBase::ReadWord(atom); }

bool IsType(const unsigned char* atom, const char* type) {
    return memcmp(atom + kAtomTypeOffset, type, kFourCc) == 0;
}

bool Same4(const void* bytes, const char* text) { return memcmp(bytes, text, kFourCc) == 0; }

// Whether the descriptors after a configuration child's type field are
// written with four-byte lengths.
bool IsLongForm(unsigned char* childType) {
    return MediaFileInfoBase::ReadHalf(childType + kFormTestOffset) == 0 &&
           MediaFileInfoBase::ReadWord(childType + kDecoderConfigOffset) == kLongFormMarker;
}

// The decimal value of a text as the 32-bit C library reads it: leading
// blanks and a sign accepted, saturated at the 32-bit int range.
unsigned int DecimalValue(const char* text) {
    long long value = strtoll(text, nullptr, 10);
    if (value > INT32_MAX) value = INT32_MAX;
    if (value < INT32_MIN) value = INT32_MIN;
    return static_cast<unsigned int>(static_cast<int>(value));
}

}  // namespace

Mp4Info::Mp4Info()
    : m_hasIods(0),
      m_moovOpen(0),
      m_isQuickTime(0),
      m_useTempFile(0),
      m_cursor(0),
      m_trackSeconds(0),
      m_visualProfile(0),
      m_movieEnd(0),
      m_trackTimeScale(0),
      m_loadHandler(&Mp4Info::LoadFtyp),
      m_buffer(nullptr),
      m_fileEnd(-1) {
    memset(m_handlerType, 0, sizeof m_handlerType);
    memset(m_handlerName, 0, sizeof m_handlerName);
    memset(m_videoEntryType, 0, sizeof m_videoEntryType);
    memset(m_audioEntryType, 0, sizeof m_audioEntryType);
    memset(m_tempPath, 0, sizeof m_tempPath);
    m_bufferSize = kReadSize;
}

Mp4Info::~Mp4Info() { Mp4Info::Destory(); }

void Mp4Info::Destory() {
    m_isQuickTime = 0;
    m_hasIods = 0;
    m_moovOpen = 0;
    MediaFileInfoBase::Destory();
    // Only the very file this reader inflated into is removed: the path may
    // by now name a file of another load, or nothing.
    fileinfo_detail::RemoveClaimedTempFile(this, m_useTempFile != 0 ? m_tempPath : nullptr);
    // Deleted once: a later Destory must not remove a file another load has
    // written meanwhile.
    m_useTempFile = 0;
}

MediaFileInfo_st* Mp4Info::GetFileInfo() { return m_fileInfo; }

int Mp4Info::LoadFile(const char* path) {
    if (path == nullptr) return MFI_BAD_ARGUMENT;
    // Only a record calls for Destory: a load that failed before making one
    // left just its path copy, which the new copy replaces.
    if (m_fileInfo != nullptr) Destory();

    if (!fileinfo_detail::OpenForLoad(*this, path)) return MFI_OPEN_FAILED;
    if (fseek(m_file, 0, SEEK_SET) != 0) {
        fileinfo_detail::CloseLoadedFile(*this);
        return MFI_SEEK_FAILED;
    }

    // Zeroed whole, guard included: bytes past what a read brought in are
    // zeroes until a read overwrites them.
    unsigned char* buffer = static_cast<unsigned char*>(calloc(kBufferAllocation, 1));
    m_fileInfo = NewConstructedRecord();
    int result;
    if (buffer == nullptr || m_fileInfo == nullptr) {
        result = MFI_NO_MEMORY;
    } else {
        // Measured with the whole size kept, for the reads that follow.
        GetFileStorageInfo(&m_fileInfo, path, m_file, &m_fileEnd);
        m_bufferSize = static_cast<unsigned int>(fread(buffer, 1, ReadableAhead(kReadSize), m_file));
        if (m_bufferSize < kReadSize) {
            result = MFI_SHORT_FILE;
        } else {
            ApplyTitleFallback();
            result = ReadFrame(buffer);
        }
    }
    free(buffer);
    m_buffer = nullptr;
    // By now this may be the temporary file of an inflated movie header.
    fileinfo_detail::CloseLoadedFile(*this);
    m_fileEnd = -1;
    // Done with the temporary file: the next load, here or in another
    // process, may take it.
    fileinfo_detail::ReleaseTempFileLock(this);
    return result;
}

int Mp4Info::ReadFrame(unsigned char* buffer) {
    if (buffer == nullptr) return MFI_BAD_ARGUMENT;
    m_buffer = buffer;
    fileinfo_detail::LoopMark loop(*this);

    for (;;) {
        if (m_bufferSize <= kAtomHeaderSize || m_cursor >= m_bufferSize - kAtomHeaderSize) break;
        // A state met before: the walk would never end (e.g. a zero size
        // under LoadTrakStruct, which does not move the cursor). End it as
        // if the data had run out.
        if (loop.Repeats()) break;

        const int step = (this->*m_loadHandler)(buffer + m_cursor);
        if (step == kWalkFinished) return MFI_OK;
        if (step == kWalkFailed) return MFI_NOT_THIS_FORMAT;

        // The whole "moov" has been walked.
        if (m_movieEnd > 0 && static_cast<double>(m_cursor) >= m_movieEnd && m_moovOpen != 0) break;

        // Unsigned on purpose: with fewer than 200 valid bytes this never
        // refills, and the walk runs to the end of what it has.
        if (m_cursor <= m_bufferSize - kRefillMargin) continue;

        // Refill from the current atom on, so that every handler finds at
        // least the margin's worth of bytes after its atom.
        if (SeekRelative(m_file, m_cursor - m_bufferSize) != 0) continue;
        if (feof(m_file)) {
            if (m_cursor > m_bufferSize) return MFI_NOT_THIS_FORMAT;
            continue;
        }
        const size_t got = fread(buffer, 1, ReadableAhead(kReadSize), m_file);
        if (got == 0) return MFI_NOT_THIS_FORMAT;
        if (m_moovOpen != 0) m_movieEnd -= m_cursor;
        m_cursor = 0;
        m_bufferSize = static_cast<unsigned int>(got);
    }
    return (m_isVideo != 0 || m_isAudio != 0) ? MFI_OK : MFI_NOT_THIS_FORMAT;
}

size_t Mp4Info::Readable(const unsigned char* p, size_t fallback) const {
    const uintptr_t at = reinterpret_cast<uintptr_t>(p);
    const uintptr_t start = reinterpret_cast<uintptr_t>(m_buffer);
    if (m_buffer != nullptr && at >= start && at < start + kBufferAllocation) {
        return start + kBufferAllocation - at;
    }
    return fallback;
}

long long Mp4Info::BytesLeftInFile() const {
    if (m_file == nullptr) return 0;
    struct stat st;
    const long position = ftell(m_file);
    if (position < 0 || fstat(fileno(m_file), &st) != 0) return 0;
    const long long left = static_cast<long long>(st.st_size) - position;
    return left > 0 ? left : 0;
}

// A read that comes up short makes stdio ask the file once more, only to
// learn that it has ended. Asking for no more than the file still holds
// spares that call; the read brings the same bytes. The walk never looks
// at the stream's end-of-file flag after a read (only after a seek, which
// clears it), so the flag a short read would have set is not missed.
size_t Mp4Info::ReadableAhead(size_t want) const {
    if (m_file == nullptr || m_fileEnd < 0) return want;
    const long at = ftell(m_file);
    if (at < 0 || at >= m_fileEnd) return want;
    const long long left = m_fileEnd - at;
    return left < static_cast<long long>(want) ? static_cast<size_t>(left) : want;
}

// ---- The walk -------------------------------------------------------------
//
// Each handler is a table: the atom types it reacts to, the action that does
// the type's work and moves the cursor, and the handler that takes the next
// atom (none: unchanged). The last row's type is null: any other atom.
// The next handler is set only when the action goes on.

template <size_t N>
int Mp4Info::Dispatch(unsigned char* atom, const AtomRule (&rules)[N]) {
    const AtomRule* rule = &rules[N - 1];
    for (const AtomRule& r : rules) {
        if (r.type != nullptr && IsType(atom, r.type)) {
            rule = &r;
            break;
        }
    }
    const int result = (this->*rule->action)(atom);
    if (result == kWalkOn && rule->next != nullptr) m_loadHandler = rule->next;
    return result;
}

int Mp4Info::LoadFtyp(unsigned char* atom) {
    static const AtomRule kRules[] = {
        {"ftyp", &Mp4Info::ReadFtyp, &Mp4Info::LoadMoov},
        {"moov", &Mp4Info::Stay, &Mp4Info::LoadMoov},
        {nullptr, &Mp4Info::SkipOrStepByte, &Mp4Info::LoadMoov},
    };
    return Dispatch(atom, kRules);
}

int Mp4Info::LoadMoov(unsigned char* atom) {
    static const AtomRule kRules[] = {
        {"moov", &Mp4Info::ReadMoov, nullptr},
        {nullptr, &Mp4Info::SkipOrFail, nullptr},
    };
    return Dispatch(atom, kRules);
}

int Mp4Info::LoadMvhd(unsigned char* atom) {
    static const AtomRule kRules[] = {
        {"mvhd", &Mp4Info::ReadMvhd, &Mp4Info::LoadTrak},
        {nullptr, &Mp4Info::StepByte, nullptr},  // searched for byte by byte
    };
    return Dispatch(atom, kRules);
}

int Mp4Info::LoadTrak(unsigned char* atom) {
    static const AtomRule kRules[] = {
        {"trak", &Mp4Info::Enter, &Mp4Info::LoadTrakStruct},
        {"iods", &Mp4Info::ReadIods, nullptr},
        {"free", &Mp4Info::Finish, nullptr},
        {"mdat", &Mp4Info::Finish, nullptr},
        {nullptr, &Mp4Info::SkipOr4, nullptr},
    };
    return Dispatch(atom, kRules);
}

int Mp4Info::LoadTrakStruct(unsigned char* atom) {
    static const AtomRule kRules[] = {
        {"trak", &Mp4Info::Stay, &Mp4Info::LoadTrak},
        {"mdia", &Mp4Info::Enter, &Mp4Info::LoadMdiaStruct},
        // A zero size leaves the cursor where it is; the walker notices the
        // repetition and ends the walk.
        {nullptr, &Mp4Info::Skip, nullptr},
    };
    return Dispatch(atom, kRules);
}

int Mp4Info::LoadMdiaStruct(unsigned char* atom) {
    static const AtomRule kRules[] = {
        {"trak", &Mp4Info::Stay, &Mp4Info::LoadTrak},
        {"hdlr", &Mp4Info::ReadHdlr, nullptr},
        {"mdhd", &Mp4Info::ReadMdhd, nullptr},
        {"minf", &Mp4Info::Enter, &Mp4Info::LoadMinfStruct},
        {nullptr, &Mp4Info::SkipOr4, nullptr},
    };
    return Dispatch(atom, kRules);
}

int Mp4Info::LoadMinfStruct(unsigned char* atom) {
    static const AtomRule kRules[] = {
        {"trak", &Mp4Info::Stay, &Mp4Info::LoadTrak},
        {"stbl", &Mp4Info::EnterStbl, &Mp4Info::LoadStblStruct},
        {nullptr, &Mp4Info::SkipOr4, nullptr},
    };
    return Dispatch(atom, kRules);
}

int Mp4Info::LoadStblStruct(unsigned char* atom) {
    // After the last table of a track, the atoms that follow (the next
    // "trak", a "udta") come here too: no container ends are tracked.
    static const AtomRule kRules[] = {
        {"trak", &Mp4Info::Stay, &Mp4Info::LoadTrak},
        {"stsd", &Mp4Info::ReadStsd, nullptr},
        {"stsz", &Mp4Info::ReadStsz, nullptr},
        {"udta", &Mp4Info::Enter, &Mp4Info::LoadMeta},
        {nullptr, &Mp4Info::SkipOr4, nullptr},
    };
    return Dispatch(atom, kRules);
}

int Mp4Info::LoadMeta(unsigned char* atom) {
    static const AtomRule kRules[] = {
        {"meta", &Mp4Info::EnterMeta, &Mp4Info::LoadMetaStruct},
        {"trak", &Mp4Info::Enter, &Mp4Info::LoadTrakStruct},
        {nullptr, &Mp4Info::SkipOr4, nullptr},
    };
    return Dispatch(atom, kRules);
}

int Mp4Info::LoadMetaStruct(unsigned char* atom) {
    static const AtomRule kRules[] = {
        {"ilst", &Mp4Info::ReadIlst, nullptr},
        {"udta", &Mp4Info::Enter, &Mp4Info::LoadMeta},
        {"trak", &Mp4Info::Enter, &Mp4Info::LoadTrakStruct},
        {nullptr, &Mp4Info::SkipOrFail, nullptr},  // "hdlr" and anything else
    };
    return Dispatch(atom, kRules);
}

// ---- Actions: how the cursor moves ----------------------------------------------

int Mp4Info::Stay(unsigned char*) { return kWalkOn; }  // the next handler takes this atom

int Mp4Info::Enter(unsigned char*) {
    m_cursor += kAtomHeaderSize;
    return kWalkOn;
}

int Mp4Info::EnterMeta(unsigned char*) {
    m_cursor += kMetaHeaderSize;
    return kWalkOn;
}

int Mp4Info::Skip(unsigned char* atom) {
    m_cursor += AtomSize(atom);
    return kWalkOn;
}

int Mp4Info::SkipOr4(unsigned char* atom) {
    const unsigned int size = AtomSize(atom);
    m_cursor += size == 0 ? kZeroSizeStep : size;
    return kWalkOn;
}

int Mp4Info::SkipOrFail(unsigned char* atom) {
    const unsigned int size = AtomSize(atom);
    if (size == 0) return kWalkFailed;
    m_cursor += size;
    return kWalkOn;
}

int Mp4Info::SkipOrStepByte(unsigned char* atom) {
    // Not a movie's first atom: look further, byte by byte past a zero size.
    const unsigned int size = AtomSize(atom);
    m_cursor += size == 0 ? kByteStep : size;
    return kWalkOn;
}

int Mp4Info::StepByte(unsigned char*) {
    m_cursor += kByteStep;
    return kWalkOn;
}

int Mp4Info::Finish(unsigned char*) { return kWalkFinished; }

// ---- Actions: what each atom kind holds -----------------------------------------

int Mp4Info::ReadFtyp(unsigned char* atom) {
    m_isQuickTime = memcmp(atom + kFtypMajorBrandOffset, "qt", 2) == 0 ? 1 : 0;
    return SkipOrFail(atom);
}

int Mp4Info::ReadMoov(unsigned char* atom) {
    if (Same4(atom + kMoovChildTypeOffset, "cmov")) return InflateMovieHeader(atom);
    // Positions are unsigned 32-bit: the end is their sum, then widened.
    m_movieEnd = static_cast<double>(AtomSize(atom) + m_cursor);
    m_cursor += kAtomHeaderSize;
    m_loadHandler = &Mp4Info::LoadMvhd;
    m_moovOpen = 1;
    return kWalkOn;
}

int Mp4Info::InflateMovieHeader(unsigned char* atom) {
    if (m_file == nullptr) return kWalkFailed;

    // Find "dcom" (which must say "zlib") and "cmvd". Counted signed, so an
    // atom in the last 12 bytes of the buffer finds nothing.
    const long long scanEnd =
        static_cast<long long>(m_bufferSize) - static_cast<long long>(m_cursor) - kCmovScanTail;
    long long i = 0;
    int compressedLength = 0;
    bool found = false;
    for (; i < scanEnd; ++i) {
        if (Same4(atom + i, "dcom")) {
            if (!Same4(atom + i + kFourCc, "zlib")) return kWalkFailed;
            i += kDcomAtomStep;
        }
        if (Same4(atom + i + kFourCc, "cmvd")) {
            // The atom's own size, header included, as a signed count.
            compressedLength = static_cast<int>(ReadWord(atom + i));
            i += kCmvdHeaderSize;
            found = true;
            break;
        }
    }
    if (!found || compressedLength < 1) return kWalkFailed;

    strcpy(m_tempPath, kTempFilePath);
    // Opened "wb+" as every load shares it: created or emptied, but only
    // once this load holds it alone.
    FILE* temp = fileinfo_detail::OpenClaimedTempFile(this, m_tempPath);
    if (temp == nullptr) return kWalkFailed;

    // To the first compressed byte.
    const unsigned int toData = m_cursor + static_cast<unsigned int>(i) - m_bufferSize;
    const fileinfo_detail::InflateResult inflated =
        fileinfo_detail::InflateInto(m_file, temp, toData, compressedLength, &m_movieEnd);
    if (inflated == fileinfo_detail::InflateResult::kNotStarted) {
        fclose(temp);  // the flag stays clear: the file is not ours to delete
        return kWalkFailed;
    }
    const int result = inflated == fileinfo_detail::InflateResult::kFailed ? kWalkFailed : kWalkOn;

    // From here on the inflated "moov" is the file walked, from its start:
    // a cursor at the buffer's end makes the walker refill at once.
    fclose(m_file);
    m_file = temp;
    m_fileEnd = -1;
    fseek(m_file, 0, SEEK_SET);
    m_cursor = m_bufferSize;
    m_loadHandler = &Mp4Info::LoadMoov;
    m_useTempFile = 1;
    return result;
}

int Mp4Info::ReadMvhd(unsigned char* atom) {
    const unsigned int timeScale = ReadWord(atom + kTimeScaleOffset);
    const unsigned int duration = ReadWord(atom + kDurationOffset);
    // Whole seconds only.
    if (m_fileInfo != nullptr) {
        m_fileInfo->durationMs = timeScale == 0 ? 0 : (duration / timeScale) * kMsPerSecond;
    }
    return SkipOrFail(atom);
}

int Mp4Info::ReadIods(unsigned char* atom) {
    m_visualProfile = atom[kIodsVisualProfileOffset];
    m_hasIods = 1;
    return SkipOr4(atom);
}

int Mp4Info::ReadHdlr(unsigned char* atom) {
    memcpy(m_handlerType, atom + kHdlrTypeOffset, kFourCc);
    const unsigned int nameOffset =
        Same4(atom + kHdlrManufacturerOffset, "appl") ? kHdlrCountedNameOffset : kHdlrNameOffset;
    memcpy(m_handlerName, atom + nameOffset, kFourCc);
    return SkipOr4(atom);
}

int Mp4Info::ReadMdhd(unsigned char* atom) {
    m_trackTimeScale = ReadWord(atom + kTimeScaleOffset);
    const unsigned int duration = ReadWord(atom + kDurationOffset);
    if (m_trackTimeScale != 0 && duration != 0) {
        m_trackSeconds = static_cast<double>(duration) / m_trackTimeScale;
    }
    return SkipOr4(atom);
}

int Mp4Info::EnterStbl(unsigned char* atom) {
    // A new track's bit rate is measured afresh.
    if (m_fileInfo != nullptr) {
        if (Same4(m_handlerType, "vide")) {
            m_fileInfo->peakBitRate = 0;
        } else if (Same4(m_handlerType, "soun")) {
            m_fileInfo->bitRate = 0;
        }
    }
    return Enter(atom);
}

// Both table readers look at the atom under the cursor: they run before it moves.
int Mp4Info::ReadStsd(unsigned char* atom) {
    const int result = ReadSampleDescription(atom);
    SkipOr4(atom);
    return result;
}

int Mp4Info::ReadStsz(unsigned char* atom) {
    ReadSampleSizes(atom);
    return SkipOr4(atom);
}

int Mp4Info::ReadIlst(unsigned char* atom) {
    const unsigned int size = AtomSize(atom);
    if (size == 0) return kWalkFailed;
    // A list that cannot be re-read is passed over.
    GetMp4MusicInfo(atom + kAtomHeaderSize, size);
    m_cursor += size;
    return kWalkOn;
}

int Mp4Info::ReadSampleDescription(unsigned char* stsd) {
    if (m_fileInfo == nullptr) return kWalkOn;
    if (Same4(m_handlerType, "vide")) {
        memcpy(m_videoEntryType, stsd + kEntryTypeOffset, kFourCc);
        GetType(m_videoEntryType);
        m_fileInfo->width = static_cast<unsigned short>(ReadHalf(stsd + kVisualWidthOffset));
        m_fileInfo->height = static_cast<unsigned short>(ReadHalf(stsd + kVisualHeightOffset));
        ReadBitRate(stsd + kVisualChildTypeOffset);
        return kWalkOn;
    }
    if (!Same4(m_handlerType, "soun")) return kWalkOn;

    memcpy(m_audioEntryType, stsd + kEntryTypeOffset, kFourCc);
    GetType(m_audioEntryType);
    // The track's time scale, not the sample entry's rate field.
    m_fileInfo->sampleRate = m_trackTimeScale;
    CopyField(m_fileInfo->channelMode, GetChannel(ReadHalf(stsd + kSoundChannelsOffset)));
    // Two places the configuration can sit; the second answer counts.
    if (Same4(m_audioEntryType, "mp4a")) {
        if (ReadBitRate(stsd + kSoundV1EsdsTypeOffset) == -1) {
            return ReadBitRate(stsd + kSoundV0ChildTypeOffset);
        }
    } else if (Same4(m_audioEntryType, "alac")) {
        if (ReadBitRate(stsd + kSoundV0ChildTypeOffset) == -1) {
            return ReadBitRate(stsd + kSoundV1AlacTypeOffset);
        }
    }
    return kWalkOn;
}

void Mp4Info::ReadSampleSizes(unsigned char* stsz) {
    if (m_fileInfo == nullptr) return;
    // In this reader peakBitRate holds the video track's rate, bitRate the sound track's.
    if (Same4(m_handlerType, "vide")) {
        if (m_fileInfo->peakBitRate == 0) {
            m_fileInfo->peakBitRate = GetBitRate(stsz + kStszFieldsOffset);
        } else if (m_fileInfo->durationMs != 0) {
            // Integer division first: below one frame per millisecond this is 0.
            m_fileInfo->frameRate =
                (ReadWord(stsz + kStszCountOffset) / m_fileInfo->durationMs) * kMsPerSecond;
        }
        m_isVideo = 1;
    } else if (Same4(m_handlerType, "soun")) {
        if (m_fileInfo->bitRate == 0) m_fileInfo->bitRate = GetBitRate(stsz + kStszFieldsOffset);
        m_isAudio = 1;
    }
}

// ---- Sample descriptions ---------------------------------------------------

char* Mp4Info::GetType(char* entryType) {
    if (entryType == nullptr || m_fileInfo == nullptr) return nullptr;
    MediaFileInfo_st* r = m_fileInfo;
    const struct {
        const char* entry;
        char* field;
        const char* name;
    } kinds[] = {
        {"mp4v", r->fileType, FormatType[kFormatMpeg4]},   {"s263", r->fileType, FormatType[kFormatH263]},
        {"avc1", r->fileType, FormatType[kFormatH264]},   {"samr", r->audioCodec, FormatType[kFormatAmr]},
        {"sawb", r->audioCodec, FormatType[kFormatAmrWb]}, {"alac", r->fileType, FormatType[kFormatAppleLossless]},
    };
    for (const auto& kind : kinds) {
        if (Same4(entryType, kind.entry)) {
            CopyField(kind.field, kind.name);
            return kind.field;
        }
    }
    if (Same4(entryType, "mp4a")) {
        // A video track walked before keeps its codec as the file's type.
        if (r->fileType[0] == '\0') CopyField(r->fileType, FormatType[kFormatAac]);
        CopyField(r->audioCodec, FormatType[kFormatAac]);
        return r->audioCodec;
    }
    CopyField(r->fileType, FormatType[kFormatUnknown]);
    return r->fileType;
}

void Mp4Info::StoreAverageBitRate(unsigned int bitRate) {
    if (m_fileInfo == nullptr) return;
    if (m_fileInfo->bitRate == 0 && Same4(m_handlerType, "soun")) {
        m_fileInfo->bitRate = bitRate;
    } else if (m_fileInfo->peakBitRate == 0 && Same4(m_handlerType, "vide")) {
        m_fileInfo->peakBitRate = bitRate;
    }
}

int Mp4Info::ReadBitRate(unsigned char* p) {
    if (p == nullptr) return -1;
    const bool video = Same4(m_handlerType, "vide");
    const bool sound = Same4(m_handlerType, "soun");

    if (Same4(p, "esds")) {
        unsigned char* objectType = p + kLongFormObjectTypeOffset;
        if (!IsLongForm(p)) {
            StoreAverageBitRate(ReadWord(p + kShortFormAvgBitRateOffset));
            objectType = p + kShortFormObjectTypeOffset;
        }
        if (Same4(m_videoEntryType, "mp4v") && video) return GetMp4vType(objectType);
        if ((Same4(m_audioEntryType, "mp4a") || Same4(m_audioEntryType, "alac")) && sound) {
            return GetMp4aType(objectType, static_cast<int>(ReadWord(p - kChildSizeBack)));
        }
        return -1;
    }
    if (Same4(p, "avcc") || (Same4(p, "avcC") && video)) return GetAvcType(p + kConfigPayloadOffset);
    if (Same4(p, "alac")) {
        if (IsLongForm(p)) return GetAlacType(p + kLongFormObjectTypeOffset);
        StoreAverageBitRate(ReadWord(p + kShortFormAvgBitRateOffset));
        return GetAlacType(p + kAlacShortConfigOffset);
    }
    return -1;
}

int Mp4Info::GetMp4aType(unsigned char* objectType, int esdsSize) {
    if (objectType == nullptr || m_fileInfo == nullptr) return -1;
    const bool longLength = Same4(m_handlerName, "Appl") || esdsSize == kAppleEsdsSize;
    fileinfo_detail::DecodeEsdsAudio({objectType, Readable(objectType, SIZE_MAX)}, longLength, *m_fileInfo);
    return 0;
}

int Mp4Info::GetMp4vType(unsigned char* objectType) {
    if (objectType == nullptr || m_fileInfo == nullptr) return -1;
    // An "iods" names the profile for the whole movie.
    const int iodsProfile = m_hasIods != 0 ? m_visualProfile : -1;
    fileinfo_detail::DecodeEsdsVideo({objectType, Readable(objectType, SIZE_MAX)}, iodsProfile, *m_fileInfo);
    return 0;
}

unsigned char Mp4Info::GetProfileLevel(unsigned char* decoderInfo) {
    if (decoderInfo == nullptr) return 0;
    return fileinfo_detail::FindVisualProfileLevel({decoderInfo, Readable(decoderInfo, SIZE_MAX)});
}

char* Mp4Info::GetProfileName(unsigned char profileLevel) {
    return const_cast<char*>(fileinfo_detail::VisualProfileName(profileLevel));
}

int Mp4Info::GetAvcType(unsigned char* avcConfig) {
    if (avcConfig == nullptr || m_fileInfo == nullptr) return -1;
    fileinfo_detail::DecodeAvcConfig({avcConfig, Readable(avcConfig, SIZE_MAX)}, *m_fileInfo);
    return 0;
}

int Mp4Info::GetAlacType(unsigned char* alacConfig) {
    if (alacConfig == nullptr || m_fileInfo == nullptr) return -1;
    fileinfo_detail::DecodeAlacConfig({alacConfig, Readable(alacConfig, SIZE_MAX)}, *m_fileInfo);
    return 0;
}

unsigned int Mp4Info::GetBitRate(unsigned char* s) {
    if (s == nullptr || m_fileInfo == nullptr || m_fileInfo->durationMs == 0) return 0;
    const unsigned int sampleSize = ReadWord(s);
    const unsigned int count = ReadWord(s + kFieldsCountOffset);
    // Without a usable "mdhd" there is no time to divide by.
    if (m_trackSeconds == 0) return 0;

    if (Same4(m_handlerType, "vide")) m_fileInfo->frameRate = DoubleToUInt32(count / m_trackSeconds);
    if (sampleSize != 0) {
        return DoubleToUInt32(sampleSize / m_trackSeconds * count * kBitsPerByte);
    }

    // Entries while they lie in the buffer...
    unsigned int sum = 0;
    const size_t readable = Readable(s, SIZE_MAX);
    unsigned int i = 0;
    for (; i < count; ++i) {
        if (m_cursor + kWordSize * i + kEntryEndBias > m_bufferSize - kWordSize) break;
        const size_t at = kFieldsEntriesOffset + static_cast<size_t>(kWordSize) * i;
        if (at + kWordSize > readable) break;
        sum += ReadWord(s + at);
    }
    // ...then the rest from the file. The read resumes two entries on, so
    // entries i and i+1 are left out and the word after the table is summed
    // (at least one word is, even when the table ran out at its last entry).
    if (i < count && m_file != nullptr) {
        const long remembered = ftell(m_file);
        const unsigned long long rest = static_cast<unsigned long long>(count) - i - 1;
        if (SeekRelative(m_file, m_cursor + kWordSize * i - m_bufferSize + kSideReadBias) == 0 &&
            !feof(m_file)) {
            sum += SumSizesFromFile(rest == 0 ? 1 : rest);
        }
        fseek(m_file, remembered, SEEK_SET);
    }
    return DoubleToUInt32(sum / m_trackSeconds * kBitsPerByte);
}

unsigned int Mp4Info::SumSizesFromFile(unsigned long long words) {
    // Read in pieces: a table's claimed length can be far more than the
    // file holds, and whatever lies past the file's end sums as zero.
    unsigned char piece[kReadSize];
    unsigned long long bytesLeft = words * kWordSize;
    unsigned int sum = 0;
    while (bytesLeft > 0) {
        const size_t want = bytesLeft < sizeof piece ? static_cast<size_t>(bytesLeft) : sizeof piece;
        const size_t got = fread(piece, 1, want, m_file);
        // A word cut by the file's end reads with zeroes for its missing bytes.
        memset(piece + got, 0, want - got);
        for (size_t k = 0; k < got; k += kWordSize) sum += ReadWord(piece + k);
        if (got < want) break;
        bytesLeft -= got;
    }
    return sum;
}

// ---- Metadata items ----------------------------------------------------------

int Mp4Info::GetMp4MusicInfo(unsigned char* items, unsigned int ilstSize) {
    if (items == nullptr) return -1;
    const unsigned char* walk = items;
    size_t region = Readable(items, ilstSize);
    unsigned char* copy = nullptr;
    long remembered = 0;

    // Unsigned 32-bit sum, as the positions are.
    const bool reread = ilstSize != 0 && m_cursor + ilstSize > m_bufferSize;
    if (reread) {
        // The list runs out of the buffer: read it again whole, from the
        // "ilst" header on (so its first pass meets "ilst" as an item name
        // and stops: a list that crosses the buffer yields no items).
        if (m_file == nullptr) return -1;
        remembered = ftell(m_file);
        if (SeekRelative(m_file, m_cursor - m_bufferSize) == 0 && !feof(m_file)) {
            if (static_cast<long long>(ilstSize) > BytesLeftInFile()) {
                // The read would come up short: the file ends inside the list.
                fseek(m_file, 0, SEEK_END);
                return -1;
            }
            copy = static_cast<unsigned char*>(calloc(ilstSize, 1));
            if (copy == nullptr) {
                fseek(m_file, remembered, SEEK_SET);
                return -1;
            }
            if (fread(copy, 1, ilstSize, m_file) != ilstSize) {
                free(copy);
                return -1;
            }
            walk = copy;
            region = ilstSize;
        } else {
            // Nothing read: the copy would be zeroes, which hold no item.
            region = 0;
        }
    }

    fileinfo_detail::WalkIlstItems(walk, ilstSize, region, [this](const char* name, const char* value) {
        SaveMp4Id3Info(name, value);
    });

    if (reread) {
        free(copy);
        fseek(m_file, remembered, SEEK_SET);
    }
    return 1;
}

// The first eight are item names after their 0xA9 prefix.
const char* const Mp4Info::ILST_TAG[10] = {"nam", "cmt", "day", "ART", "trk",
                                           "alb", "wrt", "com", "gnre", "trkn"};

void Mp4Info::SaveMp4Id3Info(const char* itemName, const char* value) {
    if (itemName == nullptr || value == nullptr || m_fileInfo == nullptr) return;
    MediaFileInfo_st* r = m_fileInfo;
    // Rows 0-7 follow a 0xA9 byte (any first byte passes); rows 8-9 are whole names.
    enum { kNam, kCmt, kDay, kArt, kTrk, kAlb, kWrt, kCom, kGnre, kTrkn, kNone };
    int tag = kNone;
    for (int k = kNam; k <= kCom && tag == kNone; ++k) {
        if (memcmp(itemName + 1, ILST_TAG[k], 3) == 0) tag = k;
    }
    if (tag == kNone && Same4(itemName, ILST_TAG[kGnre])) tag = kGnre;
    if (tag == kNone && Same4(itemName, ILST_TAG[kTrkn])) tag = kTrkn;

    switch (tag) {
        case kNam: CopyField(r->title, value); break;
        case kCmt: CopyField(r->comment, value); break;
        case kDay: {
            char year[kYearLength + 1] = {0};
            strncpy(year, value, kYearLength);
            CopyField(r->year, year);
            break;
        }
        case kArt: CopyField(r->artist, value); break;
        case kTrk:
        case kTrkn: r->trackNumber = static_cast<unsigned short>(DecimalValue(value)); break;
        case kAlb: CopyField(r->album, value); break;
        case kWrt:
        case kCom: CopyField(r->composer, value); break;
        case kGnre: CopyField(r->genre, value); break;
        default: return;  // not a tag this record holds
    }
    m_hasId3 = 1;
}
