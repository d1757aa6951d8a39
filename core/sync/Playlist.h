// Playlists on the device: .m3u and .m3u8 files whose entries point at the
// device's copies, as paths relative to the playlist.
#ifndef FILEINFO_CORE_SYNC_PLAYLIST_H
#define FILEINFO_CORE_SYNC_PLAYLIST_H

#include <cstdint>
#include <functional>
#include <string>

namespace fileinfo {
namespace sync {

// The largest playlist read: longer ones are not playlists a player reads.
constexpr uint64_t kMaxPlaylistBytes = 16u << 20;

bool IsPlaylistName(const std::string& path);

// A path with "." and ".." names and doubled slashes worked out, without
// looking at the file system. ".." at the root stays at the root.
std::string NormalPath(const std::string& path);

// The path from the folder `fromFolder` to `to`, both below the device
// folder ("" is the folder itself): "../Album/Song.mp3".
std::string RelativePath(const std::string& fromFolder, const std::string& to);

enum class EntryFate { kOnDevice, kSkipped, kOutside };
// Where the source file `absolutePath` lands: kOnDevice with its device
// path, kSkipped when the sync does not put it there, kOutside when it is
// not one of the sources.
using EntryLookup = std::function<EntryFate(const std::string& absolutePath, std::string& devicePath)>;

struct PlaylistRewrite {
    std::string text;
    uint32_t skipped = 0;  // entries dropped: their files are skipped
    uint32_t outside = 0;  // entries dropped: outside the sources (or URLs)
};

// Rewrites a playlist read from `sourcePath` that goes to `devicePath`.
// Comment lines stay, except the #EXTINF of a dropped entry; the line
// endings stay as they were. Entries may be absolute or relative to the
// playlist, with '/' or '\' between names.
PlaylistRewrite RewritePlaylist(const std::string& text, const std::string& sourcePath, const std::string& devicePath,
                                const EntryLookup& lookup);

}  // namespace sync
}  // namespace fileinfo

#endif  // FILEINFO_CORE_SYNC_PLAYLIST_H
