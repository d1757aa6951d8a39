// The pieces the WAV and AIFF readers share: 8-bit texts, UTF-8 checks,
// track numbers and four-character names.
#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include "media/Chunks.h"

namespace {

using fileinfo::media::EightBitText;
using fileinfo::media::FourCcName;
using fileinfo::media::ParseTrackText;
using fileinfo::media::ValidUtf8;

std::string Text(const std::string& bytes) {
    return EightBitText(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

bool Utf8(const std::string& bytes) { return ValidUtf8(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()); }

TEST(ChunkText, AsciiIsKept) { EXPECT_EQ(Text("Plain text"), "Plain text"); }

TEST(ChunkText, CutAtTheFirstNul) {
    EXPECT_EQ(Text(std::string("Ab\0cd", 5)), "Ab");
    EXPECT_EQ(Text(std::string("\0cd", 3)), "");
    EXPECT_EQ(Text(""), "");
}

TEST(ChunkText, ValidUtf8IsKept) {
    EXPECT_EQ(Text("Caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x8E\xB5"), "Caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x8E\xB5");
}

TEST(ChunkText, OtherBytesAreLatin1) {
    EXPECT_EQ(Text("Caf\xE9"), "Caf\xC3\xA9");
    EXPECT_EQ(Text("\xFF\x80"), "\xC3\xBF\xC2\x80");
    // One stray byte makes the whole text Latin-1, valid sequences included.
    EXPECT_EQ(Text("\xC3\xA9\xE9"), "\xC3\x83\xC2\xA9\xC3\xA9");
}

TEST(ChunkText, NulCutsBeforeTheUtf8Check) { EXPECT_EQ(Text(std::string("\xC3\xA9\0\xE9", 4)), "\xC3\xA9"); }

TEST(ChunkUtf8, RejectsMalformedSequences) {
    EXPECT_TRUE(Utf8(""));
    EXPECT_TRUE(Utf8("\xF4\x8F\xBF\xBF"));      // U+10FFFF
    EXPECT_FALSE(Utf8("\xF4\x90\x80\x80"));     // above U+10FFFF
    EXPECT_FALSE(Utf8("\xC0\xAF"));             // overlong "/"
    EXPECT_FALSE(Utf8("\xE0\x80\xAF"));         // overlong "/"
    EXPECT_FALSE(Utf8("\xF0\x80\x80\xAF"));     // overlong "/"
    EXPECT_FALSE(Utf8("\xED\xA0\x80"));         // a surrogate
    EXPECT_FALSE(Utf8("\xC3"));                 // cut short
    EXPECT_FALSE(Utf8("\xE2\x82"));             // cut short
    EXPECT_FALSE(Utf8("\x80"));                 // a lone continuation
    EXPECT_FALSE(Utf8("\xF8\x88\x80\x80\x80")); // five bytes
    EXPECT_FALSE(Utf8("\xC3\x28"));             // no continuation
}

TEST(ChunkTrack, NumberAndTotal) {
    uint32_t track = 0, total = 0;
    ParseTrackText("7", track, total);
    EXPECT_EQ(track, 7u);
    EXPECT_EQ(total, 0u);
    ParseTrackText(" 3 / 12", track, total);
    EXPECT_EQ(track, 3u);
    EXPECT_EQ(total, 12u);
}

TEST(ChunkTrack, TextsThatAreNotNumbersLeaveZero) {
    for (const char* text : {"", "one", "/5", "1234567890", "-3"}) {
        uint32_t track = 0, total = 0;
        ParseTrackText(text, track, total);
        EXPECT_EQ(track, 0u) << text;
        EXPECT_EQ(total, 0u) << text;
    }
}

TEST(ChunkTrack, LargestNumberTaken) {
    uint32_t track = 0, total = 0;
    ParseTrackText("999999999/x", track, total);
    EXPECT_EQ(track, 999999999u);
    EXPECT_EQ(total, 0u);
}

TEST(ChunkFourCc, PrintableCodesAreTheirCharacters) {
    EXPECT_EQ(FourCcName(reinterpret_cast<const uint8_t*>("QDM2")), "QDM2");
    EXPECT_EQ(FourCcName(reinterpret_cast<const uint8_t*>("GSM ")), "GSM");
    EXPECT_EQ(FourCcName(reinterpret_cast<const uint8_t*>("    ")), "0x20202020");
    const uint8_t binary[4] = {0x00, 0x01, 0xAB, 0xFF};
    EXPECT_EQ(FourCcName(binary), "0x0001ABFF");
}

}  // namespace
