// Scan-speed benchmark: over one tree of media files, in one process and one
// run, measures (a) loading every file through the MediaFileInfo facade and
// reading its record, and (b) the I/O floor: open, fstat, read the first
// 4096 and the last 128 bytes, close. Reports files per second for both and
// their ratio, per format and overall, with the page cache warm.
//
//   fileinfo-bench [--rounds N] [--min-seconds S] TREE
//   fileinfo-bench --tag-write DIR [--megabytes N]   (tag rewrite vs copy)
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "MediaFileInfo.h"

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

constexpr size_t kHeadBytes = 4096;
constexpr size_t kTailBytes = 128;

struct Options {
    std::string tree;
    int rounds = 5;
    double minSeconds = 0.5;
    std::string tagWriteDir;
    unsigned megabytes = 100;
};

std::string Extension(const fs::path& p) {
    std::string e = p.extension().string();
    for (char& c : e) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return e.empty() ? "(none)" : e;
}

// How many times the readers open a file of this kind: the MP3 and AAC
// readers open it once for the tags and once for the stream.
int OpensRequired(const std::string& extension) {
    return extension == ".mp3" || extension == ".aac" ? 2 : 1;
}

// The I/O floor for one file; returns a byte so the reads are not optimised away.
unsigned char FloorOnce(const char* path) {
    unsigned char head[kHeadBytes];
    unsigned char tail[kTailBytes];
    const int fd = open(path, O_RDONLY);
    if (fd < 0) return 0;
    struct stat st;
    unsigned char sink = 0;
    if (fstat(fd, &st) == 0) {
        if (pread(fd, head, sizeof head, 0) > 0) sink ^= head[0];
        if (st.st_size > static_cast<off_t>(kTailBytes) &&
            pread(fd, tail, sizeof tail, st.st_size - static_cast<off_t>(kTailBytes)) > 0) {
            sink ^= tail[0];
        }
    }
    close(fd);
    return sink;
}

unsigned LoadOnce(const char* path) {
    MediaFileInfo media;
    const int status = media.LoadFile(path);
    const MediaFileInfo_st* r = media.GetFileInfo();
    return static_cast<unsigned>(status) + (r != nullptr ? r->durationMs + r->bitRate : 0);
}

// Files per second of one pass of fn over all files, repeated until at
// least minSeconds have passed.
template <class Fn>
double Rate(const std::vector<std::string>& files, const Options& o, Fn fn, unsigned& sink) {
    size_t done = 0;
    const auto start = Clock::now();
    double elapsed = 0;
    do {
        for (const std::string& f : files) sink += fn(f.c_str());
        done += files.size();
        elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    } while (elapsed < o.minSeconds);
    return done / elapsed;
}

struct Rates {
    double load = 0;
    double floor = 0;
};

// The best load and floor rates of `rounds` rounds. Each round measures the
// loads and then the floor, so that both see the machine in the same state:
// on a shared machine the speed drifts from second to second.
Rates BestRates(const std::vector<std::string>& files, const Options& o, unsigned& sink) {
    Rates best;
    for (int round = 0; round < o.rounds; ++round) {
        best.load = std::max(best.load, Rate(files, o, LoadOnce, sink));
        best.floor = std::max(best.floor, Rate(files, o, FloorOnce, sink));
    }
    return best;
}

long PeakRssKb() {
    struct rusage u;
    getrusage(RUSAGE_SELF, &u);
    return u.ru_maxrss;
}

int ScanTree(const Options& o) {
    std::map<std::string, std::vector<std::string>> byFormat;
    std::vector<std::string> all;
    for (const auto& entry : fs::recursive_directory_iterator(o.tree)) {
        if (!entry.is_regular_file()) continue;
        byFormat[Extension(entry.path())].push_back(entry.path().string());
        all.push_back(entry.path().string());
    }
    if (all.empty()) {
        fprintf(stderr, "fileinfo-bench: no files under %s\n", o.tree.c_str());
        return 2;
    }
    std::sort(all.begin(), all.end());

    unsigned sink = 0;
    for (const std::string& f : all) sink += FloorOnce(f.c_str()) + LoadOnce(f.c_str());  // warm the cache

    printf("%-8s %7s %14s %14s %14s %8s %8s\n", "format", "files", "load files/s", "floor files/s",
           "floor×opens/s", "ratio", "ratio×op");
    auto row = [](const std::string& name, size_t files, const Rates& r, double floorOpens) {
        printf("%-8s %7zu %14.0f %14.0f %14.0f %8.2f %8.2f\n", name.c_str(), files, r.load, r.floor, floorOpens,
               r.floor / r.load, floorOpens / r.load);
    };
    // Seconds per pass at the floor with every open the readers make.
    double floorOpensSeconds = 0;
    for (const auto& [extension, files] : byFormat) {
        const Rates r = BestRates(files, o, sink);
        const double floorOpens = r.floor / OpensRequired(extension);
        floorOpensSeconds += files.size() / floorOpens;
        row(extension, files.size(), r, floorOpens);
    }
    // For the whole tree, the floor with the readers' opens is what the
    // per-format floors add up to.
    row("all", all.size(), BestRates(all, o, sink), all.size() / floorOpensSeconds);
    printf("peak resident memory: %ld KB (checksum %u)\n", PeakRssKb(), sink & 1);
    return 0;
}

// --- tag rewrite against a plain copy ---------------------------------------

double CopySeconds(const std::string& from, const std::string& to) {
    const auto start = Clock::now();
    fs::copy_file(from, to, fs::copy_options::overwrite_existing);
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// An MP3 of about `megabytes` MB: an ID3v2.3 tag with a title frame, then
// constant-rate MPEG-1 Layer III frames of 417 bytes.
void WriteLargeMp3(const std::string& path, unsigned megabytes, const std::string& title) {
    FILE* f = fopen(path.c_str(), "wb");
    if (f == nullptr) return;
    const unsigned frameSize = static_cast<unsigned>(11 + title.size());
    const unsigned char header[10] = {'I', 'D', '3', 3, 0, 0, 0, 0, static_cast<unsigned char>(frameSize >> 7),
                                      static_cast<unsigned char>(frameSize & 0x7F)};
    fwrite(header, 1, sizeof header, f);
    const unsigned textSize = static_cast<unsigned>(title.size() + 1);
    const unsigned char frame[11] = {'T', 'I', 'T', '2', 0, 0, 0, static_cast<unsigned char>(textSize), 0, 0, 0};
    fwrite(frame, 1, sizeof frame, f);
    fwrite(title.data(), 1, title.size(), f);
    std::vector<unsigned char> mpeg(417, 0);
    mpeg[0] = 0xFF;
    mpeg[1] = 0xFB;
    mpeg[2] = 0x90;
    mpeg[3] = 0x00;
    const size_t frames = static_cast<size_t>(megabytes) * 1024 * 1024 / mpeg.size();
    for (size_t i = 0; i < frames; ++i) fwrite(mpeg.data(), 1, mpeg.size(), f);
    fclose(f);
}

double RewriteSeconds(const std::string& path, const char* newTitle, int& status) {
    MediaFileInfo media;
    status = media.LoadFile(path.c_str());
    if (status != MFI_OK) return 0;
    MediaFileInfo_st record = *media.GetFileInfo();
    MediaFileInfoBase::CopyField(record.title, newTitle);
    const auto start = Clock::now();
    status = media.SetId3Info(&record);
    return std::chrono::duration<double>(Clock::now() - start).count();
}

int TagWrite(const Options& o) {
    const std::string grow = (fs::path(o.tagWriteDir) / "grow.mp3").string();
    const std::string shrink = (fs::path(o.tagWriteDir) / "shrink.mp3").string();
    const std::string copy = (fs::path(o.tagWriteDir) / "copy.mp3").string();
    // The tag shrinks by 4 bytes: the downward move writes at the new tag
    // size less the change, so a change larger than the new tag cannot move.
    WriteLargeMp3(grow, o.megabytes, "short");
    WriteLargeMp3(shrink, o.megabytes, "a considerably longer title than the new one");
    const double mb = static_cast<double>(fs::file_size(grow)) / (1024.0 * 1024.0);
    const double copySeconds = CopySeconds(grow, copy);
    int growStatus = 0, shrinkStatus = 0;
    const double growSeconds = RewriteSeconds(grow, "a title longer than before", growStatus);
    const double shrinkSeconds = RewriteSeconds(shrink, "a considerably longer title than the new", shrinkStatus);
    printf("file: %.1f MB\n", mb);
    printf("plain copy:          %8.1f MB/s\n", mb / copySeconds);
    printf("tag grows (SetId3Info status %d):  %8.1f MB/s\n", growStatus, growSeconds > 0 ? mb / growSeconds : 0);
    printf("tag shrinks (SetId3Info status %d): %8.1f MB/s\n", shrinkStatus,
           shrinkSeconds > 0 ? mb / shrinkSeconds : 0);
    fs::remove(grow);
    fs::remove(shrink);
    fs::remove(copy);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    Options o;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--rounds" && i + 1 < argc) {
            o.rounds = std::max(1, atoi(argv[++i]));
        } else if (a == "--min-seconds" && i + 1 < argc) {
            o.minSeconds = atof(argv[++i]);
        } else if (a == "--tag-write" && i + 1 < argc) {
            o.tagWriteDir = argv[++i];
        } else if (a == "--megabytes" && i + 1 < argc) {
            o.megabytes = static_cast<unsigned>(std::max(1, atoi(argv[++i])));
        } else if (!a.empty() && a[0] != '-') {
            o.tree = a;
        } else {
            fprintf(stderr, "usage: %s [--rounds N] [--min-seconds S] TREE | --tag-write DIR [--megabytes N]\n",
                    argv[0]);
            return 2;
        }
    }
    if (!o.tagWriteDir.empty()) return TagWrite(o);
    if (o.tree.empty()) {
        fprintf(stderr, "usage: %s [--rounds N] [--min-seconds S] TREE\n", argv[0]);
        return 2;
    }
    return ScanTree(o);
}
