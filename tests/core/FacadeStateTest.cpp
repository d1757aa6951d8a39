// These tests pin reader and facade state that hosts do not see: the m_ members
// and the internal steps that set them. A refactoring that keeps the public
// results may rewrite them. The public results are pinned in FacadeTest.cpp.

#include <gtest/gtest.h>

#include <cstring>

#include "AifInfo.h"
#include "MediaFileInfo.h"
#include "Id3Builder.h"
#include "Mp3Builder.h"
#include "Mp3Info.h"
#include "Mp4Info.h"
#include "TestFiles.h"
#include "WavBuilder.h"
#include "WavInfo.h"
#include "FacadeTestHelpers.h"

using namespace FacadeTestHelpers;

namespace {

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

TEST(Facade, LeadingDotIsNotAnExtension) {
    MediaFileInfo facade;
    // Position 0 is never examined: ".wav" is a bare name of four characters,
    // which names the WAV reader; the file is missing, so the trial ends with
    // the MP3 reader's code.
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
    // MP3 is the last reader tried; it cannot open the file.
    EXPECT_EQ(status, MFI_OPEN_FAILED);
    EXPECT_NE(dynamic_cast<Mp3Info*>(facade.m_reader), nullptr);
}

// Nine CD-quality frames at the start of a 12 KB file: an MP3 the reader accepts.
Bytes SmallMp3() { return PadTo(Mp3Frames(Mp3Header{}, 417, 9), 3 * 4096); }

TEST(Facade, UpperCaseMp3ExtensionLoadsThroughTheMp3Reader) {
    TempDir dir;
    const std::string p = dir.write("Song.MP3", SmallMp3());
    MediaFileInfo facade;
    EXPECT_EQ(facade.LoadFile(p.c_str()), MFI_OK);
    EXPECT_STREQ(facade.m_extension, ".mp3");
    EXPECT_NE(dynamic_cast<Mp3Info*>(facade.m_reader), nullptr);
    EXPECT_STREQ(facade.GetFileInfo()->fileType, "MP3");
    EXPECT_STREQ(facade.GetFileInfo()->title, "Song");
    EXPECT_EQ(facade.IsAudio(), 1);
}

// A FORM/AIFF header whose first chunk declares size 0: the AIFF reader
// refuses it (10) instead of letting it through as a non-AIFF file.
Bytes BrokenAiffHeader() {
    ByteWriter w;
    w.str("FORM").be32(0).str("AIFF").str("COMM").be32(0);
    return w.take();
}

TEST(Facade, Mp3NamedWavIsTakenByTheLenientAiffReader) {
    // The fallback tries AIFF before MP3, and the AIFF reader accepts every
    // file longer than 16 bytes that is not a FORM file, with only its title.
    TempDir dir;
    const std::string p = dir.write("track.wav", SmallMp3());
    MediaFileInfo facade;
    EXPECT_EQ(facade.LoadFile(p.c_str()), MFI_OK);
    EXPECT_NE(dynamic_cast<AifInfo*>(facade.m_reader), nullptr);
    EXPECT_STREQ(facade.GetFileInfo()->fileType, "");
    EXPECT_STREQ(facade.GetFileInfo()->title, "track");
    EXPECT_EQ(facade.IsAudio(), 0);
}

TEST(Facade, Mp3BehindABrokenAiffHeaderIsFoundByTheLastReader) {
    TempDir dir;
    const std::string p =
        dir.write("track.wav", PadTo(Join({BrokenAiffHeader(), Mp3Frames(Mp3Header{}, 417, 9)}), 3 * 4096));
    MediaFileInfo facade;
    EXPECT_EQ(facade.LoadFile(p.c_str()), MFI_OK);
    EXPECT_NE(dynamic_cast<Mp3Info*>(facade.m_reader), nullptr);
    EXPECT_STREQ(facade.GetFileInfo()->fileType, "MP3");
    EXPECT_EQ(facade.IsAudio(), 1);
}

TEST(Facade, FileNoReaderAcceptsReturnsTheMp3ReadersCode) {
    TempDir dir;
    MediaFileInfo facade;
    // 16 bytes: too short for every reader; the MP3 reader answers last (6).
    const std::string tiny = dir.write("tiny.wav", Bytes(16, 0x20));
    EXPECT_EQ(facade.LoadFile(tiny.c_str()), MFI_SHORT_FILE);
    EXPECT_NE(dynamic_cast<Mp3Info*>(facade.m_reader), nullptr);
    // A FORM/AIFF file whose first chunk has size 0 is refused by the AIFF
    // reader too; without a frame it is not an MP3 either (10).
    ByteWriter w;
    w.str("FORM").be32(4992).str("AIFF").str("COMM").be32(0).fill(5000 - 20, 0x20);
    const std::string junk = dir.write("noise.wav", w.take());
    EXPECT_EQ(facade.LoadFile(junk.c_str()), MFI_NOT_THIS_FORMAT);
    Mp3Info* mp3 = dynamic_cast<Mp3Info*>(facade.m_reader);
    ASSERT_NE(mp3, nullptr);
    EXPECT_EQ(facade.IsAudio(), 0);
    EXPECT_EQ(facade.IsAudio(), mp3->IsAudio());
    EXPECT_EQ(facade.GetFileInfo(), mp3->GetFileInfo());
    EXPECT_EQ(facade.GetFileInfo()->fileSize, 5000u);
}

TEST(Facade, WavNamedMovIsRefusedByMp4AndReadByWav) {
    TempDir dir;
    WavFields wav = OneSecond();
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
