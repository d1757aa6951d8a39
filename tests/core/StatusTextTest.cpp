// The status texts and the version are our additions to the API: every
// front end shows the same words for a status, and the version a host
// reads at run time is the one the build was made from.
#include <gtest/gtest.h>

#include <string>

#include "FileInfoVersion.h"
#include "MediaFileInfoDefine.h"

TEST(StatusText, EveryCodeHasItsOneText) {
    EXPECT_STREQ(MediaFileStatusText(MFI_UNREADABLE), "unreadable as this format");
    EXPECT_STREQ(MediaFileStatusText(MFI_OK), "success");
    EXPECT_STREQ(MediaFileStatusText(MFI_BAD_ARGUMENT), "bad argument");
    EXPECT_STREQ(MediaFileStatusText(MFI_NO_MEMORY), "out of memory");
    EXPECT_STREQ(MediaFileStatusText(MFI_OPEN_FAILED), "cannot open");
    EXPECT_STREQ(MediaFileStatusText(MFI_SHORT_FILE), "cannot stat, or file too short");
    EXPECT_STREQ(MediaFileStatusText(MFI_SHORT_WRITE), "short write");
    EXPECT_STREQ(MediaFileStatusText(MFI_SEEK_FAILED), "seek failed");
    EXPECT_STREQ(MediaFileStatusText(MFI_NOT_THIS_FORMAT), "not a recognised format");
}

TEST(StatusText, CodesOutsideTheListAreUnknown) {
    EXPECT_STREQ(MediaFileStatusText(4), "unknown status");
    EXPECT_STREQ(MediaFileStatusText(9), "unknown status");
    EXPECT_STREQ(MediaFileStatusText(-1), "unknown status");
}

TEST(Version, RunTimeVersionEqualsTheHeaders) {
    EXPECT_STREQ(FileInfoVersion(), FILEINFO_VERSION_STRING);
    EXPECT_EQ(std::to_string(FILEINFO_VERSION_MAJOR) + "." + std::to_string(FILEINFO_VERSION_MINOR) + "." +
                  std::to_string(FILEINFO_VERSION_PATCH),
              FILEINFO_VERSION_STRING);
}
