#include "DeviceLists.h"

#include <dirent.h>
#include <dlfcn.h>
#include <sys/stat.h>

#include <climits>
#include <cstdlib>
#include <set>

#include "Verdict.h"

namespace fileinfo {

namespace {

bool IsFile(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

std::string FolderOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string(".") : path.substr(0, slash);
}

// The file this code was loaded from: the program, or the Python module.
std::string ThisObject() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&DeviceListFolders), &info) == 0 || info.dli_fname == nullptr) return "";
    char resolved[PATH_MAX];
    if (realpath(info.dli_fname, resolved) == nullptr) return "";
    return resolved;
}

bool Under(const std::string& path, const std::string& folder) {
    return !folder.empty() && path.size() > folder.size() && path.compare(0, folder.size(), folder) == 0 &&
           path[folder.size()] == '/';
}

}  // namespace

std::vector<std::string> DeviceListFolders() {
    std::vector<std::string> folders;
    if (const char* env = getenv("FILEINFO_DEVICES")) {
        const std::string list = env;
        size_t start = 0;
        while (start <= list.size()) {
            size_t end = list.find(':', start);
            if (end == std::string::npos) end = list.size();
            if (end > start) folders.push_back(list.substr(start, end - start));
            start = end + 1;
        }
    }
    const std::string self = ThisObject();
    // The program lies in <prefix>/bin, the Python module deeper, in
    // <prefix>/lib/python3.X/dist-packages/fileinfo: the nearest ancestor
    // with share/fileinfo/devices is the prefix.
    std::string ancestor = self;
    for (int up = 0; up < 5 && !self.empty(); ++up) {
        ancestor = FolderOf(ancestor);
        if (ancestor.empty() || ancestor == "/") break;
        struct stat st;
        const std::string folder = ancestor + "/share/fileinfo/devices";
        if (stat(folder.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
            folders.push_back(folder);
            break;
        }
    }
    folders.push_back(FILEINFO_INSTALLED_DEVICES_DIR);
    char buildDir[PATH_MAX];
    if (!self.empty() && realpath(FILEINFO_BUILD_DIR, buildDir) != nullptr && Under(self, buildDir))
        folders.push_back(FILEINFO_SOURCE_DEVICES_DIR);
    return folders;
}

std::string FindDeviceList(const std::string& given) {
    if (given.empty() || given.find('/') != std::string::npos || IsFile(given)) return given;
    for (const std::string& folder : DeviceListFolders()) {
        for (const std::string& name : {given, given + ".plist"}) {
            if (IsFile(folder + "/" + name)) return folder + "/" + name;
        }
    }
    return given;
}

std::vector<std::string> DeviceListNames() {
    std::set<std::string> names;
    for (const std::string& folder : DeviceListFolders()) {
        DIR* dir = opendir(folder.c_str());
        if (dir == nullptr) continue;
        while (const dirent* e = readdir(dir)) {
            const std::string name = e->d_name;
            if (name.size() > 6 && name.compare(name.size() - 6, 6, ".plist") == 0 && name[0] != '.')
                names.insert(name.substr(0, name.size() - 6));
        }
        closedir(dir);
    }
    return std::vector<std::string>(names.begin(), names.end());
}

bool LoadDeviceList(const std::string& given, Device& device, std::string& error) {
    const std::string path = FindDeviceList(given);
    if (Device::FromFile(path, device, error)) return true;
    if (path == given && given.find('/') == std::string::npos && !IsFile(given)) {
        std::string names;
        for (const std::string& name : DeviceListNames()) names += (names.empty() ? "" : ", ") + name;
        error += names.empty() ? "; no device lists are installed" : "; device lists by name: " + names;
    }
    return false;
}

}  // namespace fileinfo
