#include <gtest/gtest.h>

#include <map>
#include <string>

#include "sync/Playlist.h"

using namespace fileinfo::sync;

namespace {

// /music/A/one.mp3 lands at "A/one.mp3", /music/B/two.mp3 at "B/two (2).mp3",
// /music/A/bad.mp3 is skipped; everything else is outside.
EntryFate Lookup(const std::string& path, std::string& device) {
    static const std::map<std::string, std::string> onDevice = {{"/music/A/one.mp3", "A/one.mp3"},
                                                                {"/music/B/two.mp3", "B/two (2).mp3"}};
    auto at = onDevice.find(path);
    if (at != onDevice.end()) {
        device = at->second;
        return EntryFate::kOnDevice;
    }
    return path == "/music/A/bad.mp3" ? EntryFate::kSkipped : EntryFate::kOutside;
}

}  // namespace

TEST(Playlist, EntriesPointAtTheDeviceCopiesRelativeToThePlaylist) {
    const PlaylistRewrite r = RewritePlaylist("#EXTM3U\n#EXTINF:10,One\none.mp3\n../B/two.mp3\n/music/A/one.mp3\n",
                                              "/music/A/list.m3u", "A/list.m3u", Lookup);
    EXPECT_EQ(r.text, "#EXTM3U\n#EXTINF:10,One\none.mp3\n../B/two (2).mp3\none.mp3\n");
    EXPECT_EQ(r.skipped, 0u);
    EXPECT_EQ(r.outside, 0u);
}

TEST(Playlist, SkippedAndOutsideEntriesAreDroppedWithTheirExtinfAndCounted) {
    const PlaylistRewrite r = RewritePlaylist(
        "#EXTM3U\n#EXTINF:5,Bad\nbad.mp3\n#EXTINF:7,Elsewhere\n/etc/other.mp3\nhttp://radio/stream\none.mp3\n",
        "/music/A/list.m3u8", "A/list.m3u8", Lookup);
    EXPECT_EQ(r.text, "#EXTM3U\none.mp3\n");
    EXPECT_EQ(r.skipped, 1u);
    EXPECT_EQ(r.outside, 2u);
}

TEST(Playlist, BackslashesAndCrLfLineEndsAreRead) {
    const PlaylistRewrite r = RewritePlaylist("..\\B\\two.mp3\r\none.mp3\r\n", "/music/A/list.m3u", "list.m3u", Lookup);
    EXPECT_EQ(r.text, "B/two (2).mp3\r\nA/one.mp3\r\n");
}

TEST(Playlist, EntryThatClimbsOutOfTheSourcesIsOutside) {
    const PlaylistRewrite r = RewritePlaylist("../../../music/A/one.mp3\n../../etc/passwd\n", "/music/A/list.m3u",
                                              "A/list.m3u", Lookup);
    EXPECT_EQ(r.text, "one.mp3\n");
    EXPECT_EQ(r.outside, 1u);
}

TEST(Playlist, PathsAreWorkedOutWithoutTheFileSystem) {
    EXPECT_EQ(NormalPath("/a/./b/../c//d"), "/a/c/d");
    EXPECT_EQ(NormalPath("/../x"), "/x");
    EXPECT_EQ(RelativePath("A/Disc 2", "B/x.mp3"), "../../B/x.mp3");
    EXPECT_EQ(RelativePath("", "B/x.mp3"), "B/x.mp3");
    EXPECT_EQ(RelativePath("A", "x.mp3"), "../x.mp3");
    EXPECT_TRUE(IsPlaylistName("/a/List.M3U8"));
    EXPECT_FALSE(IsPlaylistName("/a.m3u/list"));
}
