#include <gtest/gtest.h>

#include <cstring>

#include "MediaFileInfo.h"
#include "Mp4Info.h"
#include "TestFiles.h"
#include "WavBuilder.h"
#include "WavInfo.h"

namespace {

WavSpec OneSecond() {
    WavSpec s;
    s.dataBytes = 176400;
    return s;
}

TEST(Facade, StrlwrLowersInPlace) {
    char text[] = "Song.MP3";
    EXPECT_EQ(strlwr(text), text);
    EXPECT_STREQ(text, "song.mp3");
    EXPECT_STREQ(strlwr(nullptr), "");
    char empty[] = "";
    EXPECT_STREQ(strlwr(empty), "");
}

TEST(Facade, NothingLoadedAnswersZero) {
    MediaFileInfo facade;
    EXPECT_EQ(facade.GetFileInfo(), nullptr);
    EXPECT_EQ(facade.IsAudio(), 0);
    EXPECT_EQ(facade.IsVideo(), 0);
    EXPECT_EQ(facade.HasId3Info(), 0);
    EXPECT_EQ(facade.SetId3Info(nullptr), 0);
    EXPECT_EQ(facade.m_reader, nullptr);
    for (char c : facade.m_extension) EXPECT_EQ(c, 0);
}

TEST(Facade, NullPathIsABadArgument) {
    MediaFileInfo facade;
    EXPECT_EQ(facade.LoadFile(nullptr), MFI_BAD_ARGUMENT);
}

TEST(Facade, UpperCaseExtensionIsLowered) {
    TempDir dir;
    const std::string p = dir.write("Clip.WAV", BuildWav(OneSecond()));
    MediaFileInfo facade;
    EXPECT_EQ(facade.LoadFile(p.c_str()), MFI_OK);
    EXPECT_STREQ(facade.m_extension, ".wav");
    EXPECT_STREQ(facade.GetFileInfo()->fileType, "WAV");
    EXPECT_STREQ(facade.GetFileInfo()->title, "Clip");
    EXPECT_EQ(facade.IsAudio(), 1);
}

TEST(Facade, AiffExtensionNamesNoReaderAndReadsNothing) {
    MediaFileInfo facade;
    // The file does not exist: an unknown extension never opens it.
    EXPECT_EQ(facade.LoadFile("/x/song.aiff"), MFI_NOT_THIS_FORMAT);
    EXPECT_STREQ(facade.m_extension, ".aiff");
    EXPECT_EQ(facade.m_reader, nullptr);
}

TEST(Facade, ShortBareNameIsItsOwnExtension) {
    MediaFileInfo facade;
    EXPECT_EQ(facade.LoadFile("README"), MFI_NOT_THIS_FORMAT);
    EXPECT_STREQ(facade.m_extension, "readme");
}

TEST(Facade, LongNameWithoutDotIsABadArgument) {
    MediaFileInfo facade;
    EXPECT_EQ(facade.LoadFile("/very/long/path/without/dot"), MFI_BAD_ARGUMENT);
}

TEST(Facade, LeadingDotIsNotAnExtension) {
    MediaFileInfo facade;
    // Position 0 is never examined: ".wav" is a bare name of four characters.
    // No such file: the last reader tried cannot open it.
    EXPECT_EQ(facade.LoadFile(".wav"), MFI_OPEN_FAILED);
    EXPECT_STREQ(facade.m_extension, ".wav");
}

TEST(Facade, ExtensionTooLongForTheFieldIsUnknown) {
    MediaFileInfo facade;
    EXPECT_EQ(facade.LoadFile("/x/a.verylongext"), MFI_NOT_THIS_FORMAT);
    EXPECT_EQ(facade.m_reader, nullptr);
    EXPECT_LT(strlen(facade.m_extension), sizeof facade.m_extension);
}

TEST(Facade, NineCharacterExtensionStillFits) {
    MediaFileInfo facade;
    EXPECT_EQ(facade.LoadFile("/x/a.12345678"), MFI_NOT_THIS_FORMAT);
    EXPECT_STREQ(facade.m_extension, ".12345678");
}

TEST(Facade, MissingWavFileEndsWithTheLastReadersCode) {
    TempDir dir;
    MediaFileInfo facade;
    const int status = facade.LoadFile(dir.file("missing.wav").c_str());
    EXPECT_NE(status, MFI_OK);
}

TEST(Facade, ASecondLoadReleasesTheFirstReader) {
    TempDir dir;
    const std::string a = dir.write("a.wav", BuildWav(OneSecond()));
    const std::string b = dir.write("b.wav", BuildWav(OneSecond()));
    MediaFileInfo facade;
    ASSERT_EQ(facade.LoadFile(a.c_str()), MFI_OK);
    ASSERT_EQ(facade.LoadFile(b.c_str()), MFI_OK);  // the sanitizer run proves nothing leaks
    EXPECT_STREQ(facade.GetFileInfo()->title, "b");
    EXPECT_EQ(facade.LoadFile("/x/a.unknown"), MFI_NOT_THIS_FORMAT);
    EXPECT_EQ(facade.GetFileInfo(), nullptr);
}

TEST(Facade, GarbageNamedWavIsRefusedWithoutCrash) {
    TempDir dir;
    Bytes junk(5000);
    for (size_t i = 0; i < junk.size(); ++i) junk[i] = static_cast<uint8_t>(i * 37 + 11);
    const std::string p = dir.write("junk.wav", junk);
    MediaFileInfo facade;
    EXPECT_NE(facade.LoadFile(p.c_str()), MFI_OK);
}

TEST(Facade, WavNamedMovIsRefusedByMp4AndReadByWav) {
    TempDir dir;
    WavSpec wav = OneSecond();
    wav.writeData = true;
    const std::string p = dir.write("a.mov", BuildWav(wav));
    Mp4Info mp4;
    EXPECT_EQ(mp4.LoadFile(p.c_str()), MFI_NOT_THIS_FORMAT);
    // The extension names the MP4 reader: it fails, LoadOtherType does not
    // try it again, and the WAV reader takes the file.
    MediaFileInfo facade;
    EXPECT_EQ(facade.LoadFile(p.c_str()), MFI_OK);
    EXPECT_STREQ(facade.m_extension, ".mov");
    EXPECT_NE(dynamic_cast<WavInfo*>(facade.m_reader), nullptr);
    EXPECT_STREQ(facade.GetFileInfo()->fileType, "WAV");
    EXPECT_EQ(facade.LoadOtherType(p.c_str()), MFI_OK);
    EXPECT_NE(dynamic_cast<WavInfo*>(facade.m_reader), nullptr);
}

}  // namespace
