// Names a FAT file system takes. A player's storage is usually FAT (vfat,
// exFAT): long names are UTF-16, at most 255 units, and a few characters
// are refused outright. Names are compared without regard to case there, so
// two sources whose names differ only in case would land on one file.
#ifndef FILEINFO_CORE_SYNC_FATNAMES_H
#define FILEINFO_CORE_SYNC_FATNAMES_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace fileinfo {
namespace sync {

// The most UTF-16 units of one long name.
constexpr size_t kFatNameUnits = 255;
// The most UTF-16 units of a path below the sync's folder, separators
// included: what a host that writes the same device can still open when the
// device is mounted at a drive's root ("X:\" and the end take the rest).
constexpr size_t kFatPathUnits = 255 - 4;
// The largest file: sizes are 32-bit.
constexpr uint64_t kFatMaxFileSize = 0xFFFFFFFFull;

// One name as FAT takes it: the refused characters ("*:<>?\| and controls)
// become "_", bytes that are no UTF-8 become "_", trailing dots and spaces
// go, and a name longer than 255 UTF-16 units is cut before its extension,
// on a character's boundary. A name left empty becomes "_".
std::string FatName(const std::string& name);

// The UTF-16 units of a UTF-8 text (bytes that are no UTF-8 count one each).
size_t Utf16Units(const std::string& text);

// The key under which FAT sees two names as one: case folded (ASCII and
// Latin-1 letters).
std::string FatFoldKey(const std::string& name);

// The name with " (N)" before its extension, shortened as needed to stay
// within 255 UTF-16 units: "Song.mp3" and 2 give "Song (2).mp3".
std::string NumberedName(const std::string& name, unsigned n);

}  // namespace sync
}  // namespace fileinfo

#endif  // FILEINFO_CORE_SYNC_FATNAMES_H
