// Where the library's record differs from the reading: each field's rule in
// core/RecordDiffers, on constructed items.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "RecordDiffers.h"
#include "Scan.h"

namespace fileinfo {
namespace {

// A loaded MP3 whose record and reading agree: 3 minutes at 44.1 kHz,
// 128 kbit/s, stereo, titled.
ScanItem Agreeing() {
    ScanItem item;
    item.path = "music/song.mp3";
    item.status = MFI_OK;
    item.isAudio = true;
    item.hasRecord = true;
    snprintf(item.record.fileType, MEDIA_TEXT_SIZE, "MP3");
    snprintf(item.record.title, MEDIA_TEXT_SIZE, "Song");
    snprintf(item.record.artist, MEDIA_TEXT_SIZE, "Band");
    snprintf(item.record.channelMode, MEDIA_TEXT_SIZE, "Stero");
    item.record.durationMs = 180000;
    item.record.sampleRate = 44100;
    item.record.bitRate = 128000;
    item.record.fileSize = 2880000;
    item.reading.type = "MP3";
    item.reading.audio_codec = "MP3";
    item.reading.tags.title = "Song";
    item.reading.tags.artist = "Band";
    item.reading.channels = 2;
    item.reading.duration_ms = 180000;
    item.reading.sample_rate = 44100;
    item.reading.bit_rate = 128000;
    item.reading.size = 2880000;
    return item;
}

std::vector<std::string> Fields(const ScanItem& item) {
    std::vector<std::string> fields;
    for (const RecordDifference& d : RecordDiffers(item)) fields.push_back(d.field);
    return fields;
}

TEST(RecordDiffers, AnAgreeingRecordDiffersNowhere) { EXPECT_TRUE(Fields(Agreeing()).empty()); }

TEST(RecordDiffers, TextsAreComparedAfterTrimming) {
    ScanItem item = Agreeing();
    item.reading.tags.title = "  Song ";
    EXPECT_TRUE(Fields(item).empty());
    item.reading.tags.title = "Song (Live)";
    EXPECT_EQ(Fields(item), std::vector<std::string>{"title"});
}

TEST(RecordDiffers, ATitleFromTheFileNameDiffersFromNoTitle) {
    ScanItem item = Agreeing();
    snprintf(item.record.title, MEDIA_TEXT_SIZE, "song");
    item.reading.tags.title.clear();
    const std::vector<RecordDifference> d = RecordDiffers(item);
    ASSERT_EQ(d.size(), 1u);
    EXPECT_EQ(d[0].record.text, "song");
    EXPECT_FALSE(d[0].record.null);
    EXPECT_TRUE(d[0].reading.null);
    EXPECT_EQ(d[0].reading.Shown(), "none");
}

TEST(RecordDiffers, DurationsWithinOnePercentOrFiftyMillisecondsAgree) {
    ScanItem item = Agreeing();
    item.record.durationMs = 180000 + 1800;  // 1 % of the reading
    EXPECT_TRUE(Fields(item).empty());
    item.record.durationMs = 180000 + 1801;
    EXPECT_EQ(Fields(item), std::vector<std::string>{"durationMs"});
    item.reading.duration_ms = 1000;  // short: 50 ms is the wider bound
    item.record.durationMs = 1050;
    EXPECT_TRUE(Fields(item).empty());
    item.record.durationMs = 1051;
    EXPECT_EQ(Fields(item), std::vector<std::string>{"durationMs"});
}

TEST(RecordDiffers, AWavDurationInEightSecondUnitsDiffers) {
    ScanItem item = Agreeing();
    item.reading.duration_ms = 15023;
    item.record.durationMs = 8000;
    const std::vector<RecordDifference> d = RecordDiffers(item);
    ASSERT_EQ(d.size(), 1u);
    EXPECT_STREQ(d[0].field, "durationMs");
    EXPECT_STREQ(d[0].readingField, "duration_ms");
    EXPECT_EQ(d[0].record.number, 8000u);
    EXPECT_EQ(d[0].reading.number, 15023u);
}

TEST(RecordDiffers, StereoInTheRecordDiffersFromOneChannel) {
    ScanItem item = Agreeing();
    item.reading.channels = 1;
    const std::vector<RecordDifference> d = RecordDiffers(item);
    ASSERT_EQ(d.size(), 1u);
    EXPECT_STREQ(d[0].field, "channelMode");
    EXPECT_EQ(d[0].record.text, "Stero");
    EXPECT_TRUE(d[0].reading.isNumber);
    snprintf(item.record.channelMode, MEDIA_TEXT_SIZE, "Mono");
    EXPECT_TRUE(Fields(item).empty());
    item.reading.channels = 6;
    EXPECT_EQ(Fields(item), std::vector<std::string>{"channelMode"});
}

TEST(RecordDiffers, ABitDepthOfZeroDiffersFromTwentyFour) {
    ScanItem item = Agreeing();
    item.reading.bits_per_sample = 24;
    EXPECT_EQ(Fields(item), std::vector<std::string>{"bitsPerSample"});
}

TEST(RecordDiffers, TheRecordsThirtyTwoBitSizeDiffersFromAFiveGibibyteFile) {
    ScanItem item = Agreeing();
    item.reading.size = 5ull << 30;
    item.record.fileSize = static_cast<unsigned int>(item.reading.size);  // the low 32 bits: 1 GiB
    const std::vector<RecordDifference> d = RecordDiffers(item);
    ASSERT_EQ(d.size(), 1u);
    EXPECT_EQ(d[0].record.number, 1ull << 30);
    EXPECT_EQ(d[0].reading.number, 5ull << 30);
}

TEST(RecordDiffers, BitRatesWithinOnePercentAgree) {
    ScanItem item = Agreeing();
    item.reading.bit_rate = 127997;
    EXPECT_TRUE(Fields(item).empty());
    item.reading.bit_rate = 384000;  // far off, as the record of a Layer II file is
    EXPECT_EQ(Fields(item), std::vector<std::string>{"bitRate"});
}

TEST(RecordDiffers, NumbersTheReadingDoesNotKnowAreNotCompared) {
    ScanItem item = Agreeing();
    item.reading.duration_ms = 0;
    item.reading.sample_rate = 0;
    item.reading.bit_rate = 0;
    item.reading.channels = 0;
    EXPECT_TRUE(Fields(item).empty());
}

TEST(RecordDiffers, NothingIsComparedWithoutARecordOrAnIdentifiedReading) {
    ScanItem item = Agreeing();
    item.reading.type.clear();
    item.reading.duration_ms = 1;
    EXPECT_FALSE(RecordComparable(item));
    EXPECT_TRUE(RecordDiffers(item).empty());
    item = Agreeing();
    item.status = MFI_NOT_THIS_FORMAT;
    EXPECT_FALSE(RecordComparable(item));
    item = Agreeing();
    item.readingError = 5;
    EXPECT_FALSE(RecordComparable(item));
}

TEST(RecordDiffers, OneTableNamesEveryComparedField) {
    std::vector<std::string> fields, readingFields;
    for (const RecordDiffRule& r : kRecordDiffRules) {
        fields.push_back(r.field);
        readingFields.push_back(r.readingField);
    }
    EXPECT_EQ(fields, (std::vector<std::string>{"title", "artist", "album", "durationMs", "sampleRate", "bitRate",
                                                "channelMode", "bitsPerSample", "fileSize"}));
    EXPECT_EQ(readingFields, (std::vector<std::string>{"title", "artist", "album", "duration_ms", "sample_rate",
                                                       "bit_rate", "channels", "bits_per_sample", "size"}));
    EXPECT_EQ(RecordDiffLabel("durationMs"), "duration");
}

}  // namespace
}  // namespace fileinfo
