// Reads what every file listed in a text file holds, stream and tags, with
// the readings' own readers alone: the same work as the TagLib program, so
// that the two compare per core.
#include <fstream>
#include <string>

#include "media/Reading.h"

int main(int argc, char** argv) {
    if (argc < 2) return 2;
    std::ifstream list(argv[1]);
    std::string path;
    unsigned long sink = 0;
    while (std::getline(list, path)) {
        fileinfo::media::Reading reading;
        if (fileinfo::media::ReadMediaPath(path, reading) != 0) continue;
        sink += reading.duration_ms + reading.tags.title.size();
    }
    return static_cast<int>(sink & 0);
}
