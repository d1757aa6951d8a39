#include "sync/Playlist.h"

#include <vector>

namespace fileinfo {
namespace sync {

namespace {

std::string Lower(std::string text) {
    for (char& c : text) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return text;
}

std::string FolderPart(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

std::vector<std::string> Names(const std::string& path) {
    std::vector<std::string> names;
    size_t start = 0;
    while (start <= path.size()) {
        size_t end = path.find('/', start);
        if (end == std::string::npos) end = path.size();
        if (end > start) names.push_back(path.substr(start, end - start));
        start = end + 1;
    }
    return names;
}

}  // namespace

bool IsPlaylistName(const std::string& path) {
    const size_t dot = path.rfind('.');
    if (dot == std::string::npos || path.find('/', dot) != std::string::npos) return false;
    const std::string extension = Lower(path.substr(dot + 1));
    return extension == "m3u" || extension == "m3u8";
}

std::string NormalPath(const std::string& path) {
    std::vector<std::string> kept;
    for (const std::string& name : Names(path)) {
        if (name == ".") continue;
        if (name == "..") {
            if (!kept.empty()) kept.pop_back();
            continue;
        }
        kept.push_back(name);
    }
    std::string out = !path.empty() && path[0] == '/' ? "/" : "";
    for (size_t k = 0; k < kept.size(); ++k) out += (k == 0 ? "" : "/") + kept[k];
    return out;
}

std::string RelativePath(const std::string& fromFolder, const std::string& to) {
    const std::vector<std::string> from = Names(fromFolder), target = Names(to);
    size_t common = 0;
    while (common < from.size() && common + 1 < target.size() && from[common] == target[common]) ++common;
    std::string out;
    for (size_t k = common; k < from.size(); ++k) out += "../";
    for (size_t k = common; k < target.size(); ++k) out += (k == common ? "" : "/") + target[k];
    return out;
}

PlaylistRewrite RewritePlaylist(const std::string& text, const std::string& sourcePath, const std::string& devicePath,
                                const EntryLookup& lookup) {
    PlaylistRewrite out;
    const std::string sourceFolder = FolderPart(sourcePath);
    const std::string deviceFolder = FolderPart(devicePath);
    std::string held;  // the #EXTINF lines of the entry that follows
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        const bool last = end == std::string::npos;
        if (last) end = text.size();
        std::string line = text.substr(start, end - start);
        std::string ending = last ? "" : "\n";
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
            ending = "\r" + ending;
        }
        start = end + 1;
        // A byte order mark before the first line stays where it is.
        std::string bom;
        if (out.text.empty() && held.empty() && line.compare(0, 3, "\xEF\xBB\xBF") == 0) {
            bom = line.substr(0, 3);
            line.erase(0, 3);
        }
        const size_t first = line.find_first_not_of(" \t");
        if (first == std::string::npos || line[first] == '#') {
            if (line.compare(0, 8, "#EXTINF:") == 0) {
                held += bom + line + ending;
            } else {
                out.text += bom + line + ending;
            }
            continue;
        }
        std::string entry = line.substr(first);
        while (!entry.empty() && (entry.back() == ' ' || entry.back() == '\t')) entry.pop_back();
        std::string device;
        EntryFate fate = EntryFate::kOutside;
        if (entry.find("://") == std::string::npos && entry.find('\0') == std::string::npos) {
            for (char& c : entry) if (c == '\\') c = '/';
            const std::string absolute = NormalPath(entry[0] == '/' ? entry : sourceFolder + "/" + entry);
            fate = lookup(absolute, device);
        }
        if (fate == EntryFate::kOnDevice) {
            out.text += held + bom + RelativePath(deviceFolder, device) + ending;
        } else if (fate == EntryFate::kSkipped) {
            ++out.skipped;
        } else {
            ++out.outside;
        }
        held.clear();
    }
    out.text += held;
    return out;
}

}  // namespace sync
}  // namespace fileinfo
