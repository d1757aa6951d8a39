// The walk over a tree built from the input: folders, files of read and
// unread extensions, hidden names, symbolic links (to files, to folders,
// to themselves, dangling), FIFOs and sockets, named as the input says.
// The scan must end, name every entry once in walk order (each folder's
// entries in byte order, below the roots as given), never load a special
// file, and give the same items with one job as with several.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "FrontEnd.h"

namespace {

namespace fs = std::filesystem;

// A name from the input: no slash, no NUL, not "." or "..", not empty.
std::string AnyName(FuzzedDataProvider& in) {
    static const char* const kExtensions[] = {".mp3", ".wav", ".m4a", ".mov", ".aif", ".aac", ".txt", ""};
    std::string name;
    for (const char c : fuzz::AnyText(in, 12)) {
        if (c != '/' && c != '\0') name += c;
    }
    if (name.empty() || name == "." || name == "..") name = "n";
    return name + kExtensions[in.ConsumeIntegralInRange<size_t>(0, 7)];
}

void Build(FuzzedDataProvider& in, const std::string& root) {
    std::vector<std::string> folders = {root};
    const size_t entries = in.ConsumeIntegralInRange<size_t>(0, 24);
    for (size_t k = 0; k < entries && in.remaining_bytes() > 0; ++k) {
        const std::string& folder = folders[in.ConsumeIntegralInRange<size_t>(0, folders.size() - 1)];
        const std::string path = folder + "/" + AnyName(in);
        switch (in.ConsumeIntegralInRange<int>(0, 6)) {
            case 0:
                if (folders.size() < 8 && mkdir(path.c_str(), 0755) == 0) folders.push_back(path);
                break;
            case 1:
            case 2: {
                // Never through a link: nothing outside the tree is written.
                const std::string bytes = fuzz::AnyText(in, 256);
                const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
                if (fd >= 0) {
                    if (write(fd, bytes.data(), bytes.size()) < 0) abort();
                    close(fd);
                }
                break;
            }
            case 3: symlink(folders[in.ConsumeIntegralInRange<size_t>(0, folders.size() - 1)].c_str(), path.c_str()); break;
            case 4: symlink(in.ConsumeBool() ? path.c_str() : (root + "/missing").c_str(), path.c_str()); break;
            case 5: mkfifo(path.c_str(), 0644); break;
            case 6: {
                const int s = socket(AF_UNIX, SOCK_STREAM, 0);
                sockaddr_un address{};
                address.sun_family = AF_UNIX;
                if (path.size() < sizeof address.sun_path) {
                    memcpy(address.sun_path, path.c_str(), path.size() + 1);
                    bind(s, reinterpret_cast<const sockaddr*>(&address), sizeof address);
                }
                close(s);
                break;
            }
        }
    }
}

std::vector<fileinfo::ScanItem> ScanAll(const std::vector<std::string>& roots, unsigned jobs, bool hidden) {
    fileinfo::ScanOptions options;
    options.jobs = jobs;
    options.hidden = hidden;
    fileinfo::Scan scan(roots, options);
    std::vector<fileinfo::ScanItem> items;
    fileinfo::ScanItem item;
    while (scan.Next(item)) {
        items.push_back(item);
        if (items.size() > 10000) fuzz::Broken("the walk does not end");
    }
    return items;
}

// The folder part of a path and its last name.
std::pair<std::string, std::string> Split(const std::string& path) {
    const size_t slash = path.rfind('/');
    return {path.substr(0, slash), path.substr(slash + 1)};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    const std::string root = fuzz::ScratchDir() + "/tree";
    std::error_code ignored;
    fs::remove_all(root, ignored);
    if (mkdir(root.c_str(), 0755) != 0) abort();
    const bool hidden = in.ConsumeBool();
    const unsigned jobs = in.ConsumeIntegralInRange<unsigned>(2, 4);
    Build(in, root);
    // The root, and a path holding a NUL byte, which must not lead the walk
    // back into the folder before it.
    const std::vector<std::string> roots = {root, root + std::string(1, '\0') + fuzz::AnyText(in, 16)};

    const std::vector<fileinfo::ScanItem> one = ScanAll(roots, 1, hidden);
    std::set<std::string> seen;
    for (size_t k = 0; k < one.size(); ++k) {
        const fileinfo::ScanItem& item = one[k];
        if (!item.named && !seen.insert(item.path).second) fuzz::Broken("an entry is named twice", item.path);
        if (!item.named && item.path.compare(0, root.size() + 1, root + "/") != 0) fuzz::Broken("an entry outside the root", item.path);
        if (item.outcome == fileinfo::Outcome::kLoaded) {
            struct stat st;
            if (lstat(item.path.c_str(), &st) == 0 && !S_ISREG(st.st_mode) && !S_ISLNK(st.st_mode))
                fuzz::Broken("a special file was loaded", item.path);
        }
        // Within a folder, entries come in byte order of their names.
        if (k > 0 && !item.named && !one[k - 1].named) {
            const auto a = Split(one[k - 1].path), b = Split(item.path);
            if (a.first == b.first && !(a.second < b.second)) fuzz::Broken("a folder's entries out of order", a.second + " / " + b.second);
        }
    }

    const std::vector<fileinfo::ScanItem> many = ScanAll(roots, jobs, hidden);
    if (many.size() != one.size()) fuzz::Broken("several jobs give other items than one");
    for (size_t k = 0; k < one.size(); ++k) {
        const fileinfo::ScanItem& a = one[k];
        const fileinfo::ScanItem& b = many[k];
        if (a.path != b.path || a.outcome != b.outcome || a.skip != b.skip || a.status != b.status ||
            a.hasRecord != b.hasRecord || memcmp(&a.record, &b.record, sizeof a.record) != 0)
            fuzz::Broken("several jobs give another item than one", a.path);
    }
    return 0;
}
