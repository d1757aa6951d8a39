// These tests pin filter state (the parser's cursor) that hosts do not see: the
// m_ members and the internal steps that set them. A refactoring that keeps the
// public results may rewrite them. The public results are pinned in
// JudgeTest.cpp.

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

#include "CapsBuilder.h"
#include "JudgeInfo.h"
#include "Mutation.h"
#include "JudgeTestHelpers.h"

using namespace JudgeTestHelpers;

namespace {

// ---- The walk over the capability list -----------------------------------

TEST(CapsJudge, FirstRefusingKeyEndsTheWalk) {
    FileInfoFilter f(DeviceWith("MP3", CapsBuilder()
                                           .limit("MaximumSampleRate", 8000)
                                           .limit("MaximumDataRate", 64)
                                           .str()));
    MediaFileInfo_st r = Mp3();
    EXPECT_EQ(f.AdjudgeFile(&r), 0);
    const size_t refusedAt = f.m_text.find("</integer>") + strlen("</integer>");
    EXPECT_EQ(f.m_pos, refusedAt);
    EXPECT_EQ(f.m_depth, 1);
}

TEST(CapsJudge, FilterIsMeantForOneJudgement) {
    const std::string caps = CapsBuilder()
                                 .key("MP3").dict().limit("MaximumSampleRate", 44100).end()
                                 .key("WAV").dict().limit("MaximumSampleRate", 8000).end()
                                 .str();
    MediaFileInfo_st tooFast = Mp3();
    tooFast.sampleRate = 48000;
    MediaFileInfo_st fine = Mp3();
    fine.sampleRate = 22050;

    FileInfoFilter used(caps);
    EXPECT_EQ(used.AdjudgeFile(&tooFast), 0);
    EXPECT_EQ(used.m_depth, 1);  // left inside the MP3 dictionary
    // The depth carries over: the MP3 dictionary's end no longer ends the
    // walk, which runs on into the WAV limits.
    EXPECT_EQ(used.AdjudgeFile(&fine), 0);
    EXPECT_EQ(Judge(caps, fine), 1);

    // After a walk that ran to the end the depth is back at 0.
    FileInfoFilter again(caps);
    EXPECT_EQ(again.AdjudgeFile(&fine), 1);
    EXPECT_EQ(again.m_depth, 0);
    EXPECT_EQ(again.AdjudgeFile(&tooFast), 0);
}

// ---- Texts that cannot be walked to their end -----------------------------

TEST(CapsJudge, MegabytesOfNestedDictsAreWalkedWithoutRecursion) {
    const int depth = 1 << 20;
    std::string open, close;
    for (int i = 0; i < depth; ++i) open += "<dict>\n";
    for (int i = 0; i < depth; ++i) close += "</dict>\n";
    const std::string refusing = "<key>MP3</key>\n" + open + "<key>MaximumSampleRate</key>\n<integer>8000</integer>\n" + close;
    FileInfoFilter f(refusing);
    MediaFileInfo_st r = Mp3();
    EXPECT_EQ(f.AdjudgeFile(&r), 0);
    EXPECT_EQ(f.m_depth, depth);
    const std::string accepting = "<key>MP3</key>\n" + open + "<key>MaximumSampleRate</key>\n<integer>48000</integer>\n" + close;
    FileInfoFilter g(accepting);
    EXPECT_EQ(g.AdjudgeFile(&r), 1);
    EXPECT_EQ(g.m_depth, 0);
    EXPECT_EQ(Judge("<key>MP3</key>\n" + open, r), 1);
}

// ---- Random and corrupted capability lists --------------------------------

std::string RandomCaps(std::mt19937& rng) {
    static const char* const pieces[] = {
        "<key>", "</key>", "<dict>", "</dict>", "<string>", "</string>", "<integer>", "</integer>",
        "<real>", "</real>", "<true/>", "<false/>", "<", ">", "/", "\n", "MP3", "AAC", "H.264LC",
        "MaximumSampleRate", "Mono", "Level", "Profile", "MaximumResolution", "48000", "-1", "false", "B",
        "<key>MP3</key>", "<key>AAC</key>", "x", "<>", "</>"};
    std::string text;
    const int count = static_cast<int>(rng() % 160);
    for (int i = 0; i < count; ++i) text += pieces[rng() % (sizeof pieces / sizeof pieces[0])];
    return text;
}

std::string Corrupted(const std::string& caps, uint32_t n) {
    const Bytes mutated = Mutate(Bytes(caps.begin(), caps.end()), n);
    return std::string(mutated.begin(), mutated.end());
}

// Calls the three readers in a random order until the text is exhausted:
// the cursor never goes back, and each call ends.
void ExpectForwardOnlyWalk(const std::string& text, std::mt19937& rng) {
    FileInfoFilter f(text);
    unsigned int last = 0;
    for (int call = 0; call < 64; ++call) {
        switch (rng() % 3) {
            case 0: f.GetKey(); break;
            case 1: f.GetValue(); break;
            default: f.GetNextKeyVar(); break;
        }
        ASSERT_GE(f.m_pos, last) << "call " << call;
        ASSERT_LE(f.m_pos, text.size() + 2);
        last = f.m_pos;
    }
}

// Walks pair by pair the way a judgement does: every pair either moves
// the cursor or ends the walk, so the walk has at most one pair per character.
void ExpectPairWalkEnds(const std::string& text) {
    FileInfoFilter f(text);
    for (size_t pairs = 0; pairs <= text.size() + 2; ++pairs) {
        const unsigned int before = f.m_pos;
        const KEY_VAR_st kv = f.GetNextKeyVar();
        ASSERT_GE(f.m_pos, before);
        if (kv.key.empty() || f.m_pos == before) return;
    }
    FAIL() << "the walk did not end";
}

void ExpectVerdicts(const std::string& text) {
    static const char* const types[] = {"MP3", "AAC", "H.264LC", "WAV", ""};
    for (const char* type : types) {
        MediaFileInfo_st r = Movie();
        SetText(r.fileType, type);
        FileInfoFilter f(text);
        const int verdict = f.AdjudgeFile(&r);
        EXPECT_TRUE(verdict == 0 || verdict == 1);
        EXPECT_LE(f.m_pos, text.size() + 2);
    }
}

TEST(CapsJudge, RandomCapabilityListsAreWalkedForwardToAnEnd) {
    std::mt19937 rng(20240607);
    for (int i = 0; i < 300; ++i) {
        const std::string text = RandomCaps(rng);
        SCOPED_TRACE(text);
        ExpectForwardOnlyWalk(text, rng);
        ExpectPairWalkEnds(text);
        ExpectVerdicts(text);
        if (HasFatalFailure()) return;
    }
}

TEST(CapsJudge, CorruptedCapabilityListsAreWalkedForwardToAnEnd) {
    const std::string caps = PlayerCaps();
    ASSERT_FALSE(caps.empty());
    std::mt19937 rng(7);
    for (uint32_t n = 0; n < 300; ++n) {
        const std::string text = Corrupted(caps, n);
        SCOPED_TRACE(n);
        ExpectForwardOnlyWalk(text, rng);
        ExpectPairWalkEnds(text);
        ExpectVerdicts(text);
        if (HasFatalFailure()) return;
    }
}

}  // namespace
