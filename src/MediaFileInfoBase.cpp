#include "MediaFileInfoBase.h"

#include <sys/stat.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>

#include "detail/ByteOrder.h"
#include "detail/Id3Size.h"

namespace {

// Offsets inside the 10-byte ID3v2 header.
constexpr int kId3SizeOffset = 6;
constexpr int kId3SizeBytes = 4;

constexpr unsigned char kSpace = 32;

// Rows of CHANNEL.
constexpr int kMonoRow = 0;
constexpr int kStereoRow = 1;

}  // namespace

MediaFileInfoBase::MediaFileInfoBase()
    : m_isVideo(0),
      m_isAudio(0),
      m_hasId3(0),
      m_filePath(nullptr),
      m_file(nullptr),
      m_bufferSize(0),
      m_fileInfo(nullptr) {}

MediaFileInfoBase::~MediaFileInfoBase() {
    // Within the base destructor this is the base's own Destory; each reader's
    // destructor has already run its override.
    MediaFileInfoBase::Destory();
}

int MediaFileInfoBase::HasId3Info() { return static_cast<int>(m_hasId3); }

int MediaFileInfoBase::IsVideo() { return static_cast<int>(m_isVideo); }

int MediaFileInfoBase::IsAudio() { return static_cast<int>(m_isAudio); }

void MediaFileInfoBase::Destory() {
    free(m_fileInfo);
    m_fileInfo = nullptr;
    free(m_filePath);
    m_filePath = nullptr;
}

int MediaFileInfoBase::SetId3Info(MediaFileInfo_st* /*info*/) { return 0; }

MediaFileInfo_st* MediaFileInfoBase::GetFileInfo() { return m_fileInfo; }

int MediaFileInfoBase::IsEmptyStr(const char* s) {
    if (s == nullptr) return 1;
    for (; *s != '\0'; ++s) {
        if (static_cast<unsigned char>(*s) != kSpace) return 0;
    }
    return 1;
}

int MediaFileInfoBase::GetFileName(char** out, const char* path) {
    if (path == nullptr || out == nullptr) return 0;

    // Walk back from the last character: remember the last dot, stop at the
    // first slash. No slash means the name starts at the first character
    // (slash position -1); no dot leaves the dot position at 0.
    long dot = 0;
    long slash = -1;
    bool dotSeen = false;
    for (long i = static_cast<long>(strlen(path)) - 1; i >= 0; --i) {
        if (path[i] == '/') {
            slash = i;
            break;
        }
        if (path[i] == '.' && !dotSeen) {
            dot = i;
            dotSeen = true;
        }
    }
    // A slash met before any dot: the last component has no extension, and
    // the name's length would come out zero or negative.
    if (slash >= 0 && !dotSeen) return 0;
    const long size = dot - slash;
    if (size <= 0) return 0;

    char* name = static_cast<char*>(calloc(static_cast<size_t>(size), 1));
    if (name == nullptr) return 0;
    memcpy(name, path + slash + 1, static_cast<size_t>(size - 1));
    *out = name;
    return 1;
}

unsigned int MediaFileInfoBase::ReadWord(unsigned char* p) {
    const unsigned int value = fileinfo_detail::Be32(p);
    if (value == 0xFFFFFFFFu) {
        fputs("ReadWord warning!\n", stdout);
    }
    return value;
}

const char* MediaFileInfoBase::GetChannel(unsigned int channels) {
    if (channels == 0) return nullptr;
    return channels == 1 ? CHANNEL[kMonoRow] : CHANNEL[kStereoRow];
}

int MediaFileInfoBase::GetFileStorageInfo(MediaFileInfo_st** info, const char* path) {
    if (path == nullptr || info == nullptr || *info == nullptr) return MFI_BAD_ARGUMENT;
    struct stat st;
    if (stat(path, &st) != 0) return MFI_SHORT_FILE;
    (*info)->fileSize = static_cast<unsigned int>(st.st_size);
    return MFI_OK;
}

int MediaFileInfoBase::GetFileStorageInfo(MediaFileInfo_st** info, const char* path, FILE* open,
                                          long long* size) {
    if (size != nullptr) *size = -1;
    if (path == nullptr || info == nullptr || *info == nullptr) return MFI_BAD_ARGUMENT;
    struct stat st;
    if (open == nullptr || fstat(fileno(open), &st) != 0) return GetFileStorageInfo(info, path);
    if (size != nullptr) *size = static_cast<long long>(st.st_size);
    (*info)->fileSize = static_cast<unsigned int>(st.st_size);
    return MFI_OK;
}

int MediaFileInfoBase::OverleapID3V2(char** buffer) {
    if (buffer == nullptr || *buffer == nullptr) return MFI_BAD_ARGUMENT;
    const unsigned char* b = reinterpret_cast<const unsigned char*>(*buffer);
    if (b[0] != 'I' || b[1] != 'D' || b[2] != '3') return 0;

    // The tag size, 7 bits a byte; on well-formed tags the 28-bit sync-safe size.
    const unsigned int size = fileinfo_detail::SumSevenBitBytes(0, b + kId3SizeOffset, kId3SizeBytes);

    // The seek goes to `size` itself, without the 10 header bytes.
    fseek(m_file, static_cast<long>(static_cast<int>(size)), SEEK_SET);
    if (m_file != nullptr) fread(*buffer, 1, m_bufferSize, m_file);
    return MFI_OK;
}

void MediaFileInfoBase::CopyField(char* field, const char* text) {
    if (field == nullptr || text == nullptr) return;
    size_t n = strnlen(text, MEDIA_TEXT_SIZE - 1);
    memmove(field, text, n);
    field[n] = '\0';
}

unsigned int MediaFileInfoBase::DoubleToUInt32(double value) {
    // 0x80000000 is what the x86 truncating conversion yields for NaN and
    // for values outside the signed 32-bit range.
    constexpr unsigned int kIndefinite = 0x80000000u;
    constexpr double kTwo31 = 2147483648.0;
    if (std::isnan(value)) return kIndefinite;
    if (value < kTwo31) {
        if (value <= -kTwo31 - 1.0) return kIndefinite;
        return static_cast<unsigned int>(static_cast<int>(value));
    }
    // Values of 2^31 and more: subtract 2^31, convert, set the top bit. What
    // remains of 2^32 and more is itself out of range and converts to
    // 0x80000000, so the top bit is set already.
    const double reduced = value - kTwo31;
    if (reduced >= kTwo31) return kIndefinite;
    return static_cast<unsigned int>(static_cast<int>(reduced)) | 0x80000000u;
}

int MediaFileInfoBase::SeekRelative(FILE* file, unsigned int delta) {
    if (file == nullptr) return -1;
    return fseek(file, static_cast<long>(static_cast<int>(delta)), SEEK_CUR);
}

unsigned int MediaFileInfoBase::ReadBigEndian32(const unsigned char* p) { return fileinfo_detail::Be32(p); }

unsigned int MediaFileInfoBase::ReadHalf(const unsigned char* p) { return fileinfo_detail::Be16(p); }

FILE* MediaFileInfoBase::OpenForReading(const char* path) {
    FILE* file = fopen(path, "rb");
    if (file != nullptr) setvbuf(file, nullptr, _IONBF, 0);
    return file;
}

void MediaFileInfoBase::ApplyTitleFallback() {
    if (m_fileInfo == nullptr || m_fileInfo->title[0] != '\0') return;
    char* name = nullptr;
    if (GetFileName(&name, m_filePath) != 0 && name != nullptr) {
        CopyField(m_fileInfo->title, name);
    }
    free(name);
}

MediaFileInfo_st* MediaFileInfoBase::NewConstructedRecord() {
    // Cleared before construction so that the alignment bytes after
    // `width` hold a defined value too (records are compared bytewise).
    void* memory = calloc(1, sizeof(MediaFileInfo_st));
    if (memory == nullptr) return nullptr;
    MediaFileInfo_st* record = new (memory) MediaFileInfo_st();
    record->fileSize = 0;
    record->frameRate = 0;
    return record;
}

MediaFileInfo_st* MediaFileInfoBase::NewZeroedRecord() {
    return static_cast<MediaFileInfo_st*>(calloc(1, sizeof(MediaFileInfo_st)));
}
