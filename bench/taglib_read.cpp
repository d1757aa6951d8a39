// Reads audio properties and tags of every file listed in a text file, the
// way a tagging program would; the peer the benchmark compares against.
#include <taglib/fileref.h>
#include <taglib/tag.h>

#include <fstream>
#include <string>

int main(int argc, char** argv) {
    if (argc < 2) return 2;
    std::ifstream list(argv[1]);
    std::string path;
    unsigned long sink = 0;
    while (std::getline(list, path)) {
        TagLib::FileRef file(path.c_str(), true, TagLib::AudioProperties::Fast);
        if (file.isNull()) continue;
        if (file.audioProperties() != nullptr) sink += file.audioProperties()->lengthInMilliseconds();
        if (file.tag() != nullptr) sink += file.tag()->title().size();
    }
    return static_cast<int>(sink & 0);
}
