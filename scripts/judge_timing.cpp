// Times FileInfoFilter::AdjudgeFile on capability texts of 1, 4 and 16 MB
// in shapes chosen to make a careless walk slow: deep nesting, very many
// pairs, tags spanning the whole text, unterminated elements, near misses
// of the type's key. A linear walk shows the same time per megabyte at
// every size. Built and run by scripts/measure_judge.sh; not a test.
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>

#include "JudgeInfo.h"

namespace {

const std::string kType = "<key>MP3</key>\n";

std::string Repeat(const std::string& unit, size_t bytes) {
    std::string text;
    text.reserve(bytes + unit.size());
    while (text.size() < bytes) text += unit;
    return text;
}

struct Shape {
    const char* name;
    std::function<std::string(size_t)> make;
};

const Shape kShapes[] = {
    {"nested <dict> never closed", [](size_t n) { return kType + Repeat("<dict>\n", n); }},
    {"nested <dict> then closed",
     [](size_t n) {
         const std::string open = Repeat("<dict>\n", n / 2);
         std::string close;
         for (size_t i = 0; i < open.size() / 7; ++i) close += "</dict>\n";
         return kType + open + "<key>Level</key>\n<integer>1</integer>\n" + close;
     }},
    {"<dict></dict> pairs in one dict", [](size_t n) { return kType + "<dict>\n" + Repeat("<dict></dict>\n", n); }},
    {"unknown keys", [](size_t n) { return kType + "<dict>\n" + Repeat("<key>Note</key>\n<integer>1</integer>\n", n) + "</dict>\n"; }},
    {"known keys that pass",
     [](size_t n) {
         return kType + "<dict>\n" + Repeat("<key>MaximumSampleRate</key>\n<integer>48000</integer>\n", n) + "</dict>\n";
     }},
    {"empty elements as pseudo-keys", [](size_t n) { return kType + "<dict>\n" + Repeat("<a/>\n", n); }},
    {"'<' everywhere, one '>' at the end", [](size_t n) { return kType + "<dict>\n" + std::string(n, '<') + ">"; }},
    {"'>' everywhere, one '<' at the end", [](size_t n) { return kType + "<dict>\n" + std::string(n, '>') + "<"; }},
    {"keys with unterminated strings",
     [](size_t n) { return kType + "<dict>\n" + Repeat("<key>a</key>\n<string>\n", n); }},
    {"keys with strings closed at the end",
     [](size_t n) { return kType + "<dict>\n" + Repeat("<key>a</key>\n<string>\n", n) + "</string>\n</dict>\n"; }},
    {"unterminated <key> tags", [](size_t n) { return kType + "<dict>\n" + Repeat("<key>\n", n); }},
    {"near misses of the type's key", [](size_t n) { return Repeat("<key>MP3</ke", n) + kType + "<dict>\n</dict>\n"; }},
    {"one key spanning the text", [](size_t n) { return kType + "<dict>\n<key>" + std::string(n, 'x') + "</key>\n<integer>1</integer>\n</dict>\n"; }},
};

}  // namespace

int main() {
    MediaFileInfo_st record;
    record.fileSize = 0;
    record.frameRate = 0;
    strcpy(record.fileType, "MP3");
    record.sampleRate = 44100;

    printf("%-38s %6s %10s %10s %7s %12s\n", "shape", "MB", "ms", "ns/byte", "verdict", "final cursor");
    for (const Shape& shape : kShapes) {
        for (size_t mb : {1, 4, 16}) {
            const std::string text = shape.make(mb << 20);
            double best = 1e30;
            int verdict = -1;
            unsigned int cursor = 0;
            for (int run = 0; run < 3; ++run) {
                FileInfoFilter filter(text);
                const auto start = std::chrono::steady_clock::now();
                verdict = filter.AdjudgeFile(&record);
                const auto stop = std::chrono::steady_clock::now();
                cursor = filter.m_pos;
                best = std::min(best, std::chrono::duration<double, std::milli>(stop - start).count());
            }
            printf("%-38s %6zu %10.2f %10.2f %7d %12u\n", shape.name, mb, best, best * 1e6 / text.size(), verdict,
                   cursor);
        }
    }
    return 0;
}
