#include "MediaFileInfo.h"

#include <cctype>
#include <cstring>
#include <new>

#include "AacInfo.h"
#include "AifInfo.h"
#include "Mp3Info.h"
#include "Mp4Info.h"
#include "WavInfo.h"

const char* strlwr(char* s) {
    if (s == nullptr || *s == '\0') return "";
    for (char* c = s; *c != '\0'; ++c) {
        *c = static_cast<char>(tolower(static_cast<unsigned char>(*c)));
    }
    return s;
}

// One row per reader: the extensions that name it and how to make one.
// The rows stand in the order in which LoadOtherType tries the readers.
struct ReaderKind {
    const char* const* extensions;
    MediaFileInfoBase* (*make)();
};

namespace {

template <class Reader>
MediaFileInfoBase* Make() {
    return new (std::nothrow) Reader();
}

const char* const kMp4Extensions[] = {Mp4Tail, TGPTail, M4vTail, M4aTail, MovTail, nullptr};
const char* const kWavExtensions[] = {WavTail, nullptr};
const char* const kAifExtensions[] = {AifTail, nullptr};
const char* const kAacExtensions[] = {AacTail, nullptr};
const char* const kMp3Extensions[] = {Mp3Tail, nullptr};

// Fallback order: MP4, WAV, AIFF, AAC, MP3.
const ReaderKind kReaders[] = {
    {kMp4Extensions, &Make<Mp4Info>},
    {kWavExtensions, &Make<WavInfo>},
    {kAifExtensions, &Make<AifInfo>},
    {kAacExtensions, &Make<AacInfo>},
    {kMp3Extensions, &Make<Mp3Info>},
};

bool Names(const ReaderKind& kind, const char* extension) {
    for (const char* const* e = kind.extensions; *e != nullptr; ++e) {
        if (strcmp(*e, extension) == 0) return true;
    }
    return false;
}

// Names without a dot may serve as their own extension up to this length.
constexpr size_t kLongestBareName = 9;

// The extension LoadFile goes by: from the last dot, looking no further than
// position 1, lower-cased into extension (kExtensionSize bytes). False when
// the path has none or it is too long for the field.
bool TakeExtension(const char* path, size_t len, size_t dot, char* extension) {
    const size_t extensionLength = len - dot;
    if (extensionLength >= MediaFileInfo::kExtensionSize) return false;
    memcpy(extension, path + dot, extensionLength + 1);
    strlwr(extension);
    return true;
}

const ReaderKind* ReaderNamedBy(const char* extension) {
    const ReaderKind* chosen = nullptr;
    for (const ReaderKind& kind : kReaders) {
        if (Names(kind, extension)) chosen = &kind;
    }
    return chosen;
}

size_t LastDot(const char* path, size_t len) {
    size_t i = len == 0 ? 0 : len - 1;
    while (i > 0 && path[i] != '.') --i;
    return i;
}

}  // namespace

int MediaFileHasReader(const char* path) {
    if (path == nullptr) return 0;
    const size_t len = strlen(path);
    const size_t dot = LastDot(path, len);
    if (dot == 0 && len > kLongestBareName) return 0;
    char extension[MediaFileInfo::kExtensionSize];
    return TakeExtension(path, len, dot, extension) && ReaderNamedBy(extension) != nullptr ? 1 : 0;
}

MediaFileInfo::MediaFileInfo() : m_reader(nullptr) { memset(m_extension, 0, sizeof m_extension); }

MediaFileInfo::~MediaFileInfo() {
    delete m_reader;
    m_reader = nullptr;
}

int MediaFileInfo::TryReader(const ReaderKind& kind, const char* path, int fallback) {
    delete m_reader;
    m_reader = kind.make();
    if (m_reader == nullptr) return fallback;
    return m_reader->LoadFile(path);
}

int MediaFileInfo::LoadFile(const char* path) {
    if (path == nullptr) return MFI_BAD_ARGUMENT;

    // The last dot, looking no further than position 1: a name that starts
    // with its only dot counts as having none.
    const size_t len = strlen(path);
    const size_t dot = LastDot(path, len);
    if (dot == 0 && len > kLongestBareName) return MFI_BAD_ARGUMENT;

    // An extension too long for the field names no reader.
    const ReaderKind* chosen = nullptr;
    if (TakeExtension(path, len, dot, m_extension)) {
        chosen = ReaderNamedBy(m_extension);
    } else {
        memset(m_extension, 0, sizeof m_extension);
    }

    if (chosen == nullptr) {
        delete m_reader;
        m_reader = nullptr;
        return MFI_NOT_THIS_FORMAT;
    }
    if (TryReader(*chosen, path, MFI_NOT_THIS_FORMAT) == MFI_OK) return MFI_OK;
    return LoadOtherType(path);
}

int MediaFileInfo::LoadOtherType(const char* path) {
    int result = MFI_NOT_THIS_FORMAT;
    for (const ReaderKind& kind : kReaders) {
        if (Names(kind, m_extension)) continue;  // the extension's own reader already failed
        result = TryReader(kind, path, result);
        if (result == MFI_OK) return MFI_OK;
    }
    return result;
}

int MediaFileInfo::HasId3Info() { return m_reader == nullptr ? 0 : m_reader->HasId3Info(); }

int MediaFileInfo::IsVideo() { return m_reader == nullptr ? 0 : m_reader->IsVideo(); }

int MediaFileInfo::IsAudio() { return m_reader == nullptr ? 0 : m_reader->IsAudio(); }

int MediaFileInfo::SetId3Info(MediaFileInfo_st* info) {
    return m_reader == nullptr ? 0 : m_reader->SetId3Info(info);
}

MediaFileInfo_st* MediaFileInfo::GetFileInfo() {
    return m_reader == nullptr ? nullptr : m_reader->GetFileInfo();
}
