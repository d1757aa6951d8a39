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

TEST(Facade, StrlwrLowersInPlace) {
    char text[] = "Song.MP3";
    EXPECT_EQ(strlwr(text), text);
    EXPECT_STREQ(text, "song.mp3");
    EXPECT_STREQ(strlwr(nullptr), "");
    char empty[] = "";
    EXPECT_STREQ(strlwr(empty), "");
}

TEST(Facade, NullPathIsABadArgument) {
    MediaFileInfo facade;
    EXPECT_EQ(facade.LoadFile(nullptr), MFI_BAD_ARGUMENT);
}

TEST(Facade, LongNameWithoutDotIsABadArgument) {
    MediaFileInfo facade;
    EXPECT_EQ(facade.LoadFile("/very/long/path/without/dot"), MFI_BAD_ARGUMENT);
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

TEST(Facade, GarbageNamedWavFallsBackToTheLenientAiffReader) {
    TempDir dir;
    Bytes junk(5000);
    for (size_t i = 0; i < junk.size(); ++i) junk[i] = static_cast<uint8_t>(i * 37 + 11);
    const std::string p = dir.write("junk.wav", junk);
    MediaFileInfo facade;
    // The AIFF reader lets any file that is not a FORM through with only its title.
    EXPECT_EQ(facade.LoadFile(p.c_str()), MFI_OK);
    EXPECT_STREQ(facade.GetFileInfo()->fileType, "");
    EXPECT_EQ(facade.IsAudio(), 0);
}

}  // namespace
