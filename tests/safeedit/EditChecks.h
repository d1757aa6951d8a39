// What the tag-edit tests check of an edit, in one place: the assignments
// as the writer takes them, the reading's tags with the asked values set,
// that every other tag and every stream field stayed, and
// compare_edit.py's account (mutagen's frames and the audio bytes).
#ifndef FILEINFO_TESTS_SAFEEDIT_EDITCHECKS_H
#define FILEINFO_TESTS_SAFEEDIT_EDITCHECKS_H

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "SafeEdit.h"
#include "media/Reading.h"

// "title" and "New Title" of "title=New Title".
inline std::string FieldOf(const std::string& assignment) { return assignment.substr(0, assignment.find('=')); }
inline std::string ValueOf(const std::string& assignment) { return assignment.substr(assignment.find('=') + 1); }

// The fields writer's edits of FIELD=VALUE assignments, each one valid.
inline fileinfo::TagEdits Edits(const std::vector<std::string>& assignments) {
    fileinfo::TagEdits edits;
    std::string error;
    for (const std::string& a : assignments) EXPECT_TRUE(edits.Add(a, error)) << error;
    return edits;
}

inline fileinfo::media::Reading ReadingOf(const std::string& path) {
    fileinfo::media::Reading reading;
    EXPECT_EQ(fileinfo::media::ReadMediaPath(path, reading), 0) << path;
    return reading;
}

// The reading's tags with one field set as the edit sets it.
inline void Apply(fileinfo::media::Tags& tags, const std::string& assignment) {
    const std::string field = FieldOf(assignment), value = ValueOf(assignment);
    if (field == "title") tags.title = value;
    if (field == "artist") tags.artist = value;
    if (field == "album") tags.album = value;
    if (field == "genre") tags.genre = value;
    if (field == "year") tags.year = value;
    if (field == "comment") tags.comment = value;
    if (field == "composer") tags.composer = value;
    if (field == "track") {
        const size_t slash = value.find('/');
        tags.track = static_cast<uint32_t>(std::stoul(value.substr(0, slash)));
        tags.track_total = slash == std::string::npos ? 0 : static_cast<uint32_t>(std::stoul(value.substr(slash + 1)));
    }
}

inline void ExpectSameTags(const fileinfo::media::Tags& a, const fileinfo::media::Tags& b, const std::string& context) {
    EXPECT_EQ(a.title, b.title) << context;
    EXPECT_EQ(a.artist, b.artist) << context;
    EXPECT_EQ(a.album, b.album) << context;
    EXPECT_EQ(a.genre, b.genre) << context;
    EXPECT_EQ(a.year, b.year) << context;
    EXPECT_EQ(a.comment, b.comment) << context;
    EXPECT_EQ(a.composer, b.composer) << context;
    EXPECT_EQ(a.track, b.track) << context;
    EXPECT_EQ(a.track_total, b.track_total) << context;
}

// Every stream field an edit must not move.
inline void ExpectSameStreams(const fileinfo::media::Reading& a, const fileinfo::media::Reading& b,
                              const std::string& context) {
    EXPECT_EQ(a.type, b.type) << context;
    EXPECT_EQ(a.audio_codec, b.audio_codec) << context;
    EXPECT_EQ(a.pcm_format, b.pcm_format) << context;
    EXPECT_EQ(a.video_codec, b.video_codec) << context;
    EXPECT_EQ(a.duration_ms, b.duration_ms) << context;
    EXPECT_EQ(a.sample_rate, b.sample_rate) << context;
    EXPECT_EQ(a.channels, b.channels) << context;
    EXPECT_EQ(a.bits_per_sample, b.bits_per_sample) << context;
    // Not the whole file's bit_rate: readers count it from the file's size.
    EXPECT_EQ(a.audio_bit_rate, b.audio_bit_rate) << context;
    EXPECT_EQ(a.vbr, b.vbr) << context;
    EXPECT_EQ(a.video_bit_rate, b.video_bit_rate) << context;
    EXPECT_EQ(a.width, b.width) << context;
    EXPECT_EQ(a.height, b.height) << context;
}

// What a command prints on standard output.
inline std::string Output(const std::string& command) {
    std::string out;
    if (FILE* pipe = popen(command.c_str(), "r")) {
        char buffer[4096];
        size_t n;
        while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) out.append(buffer, n);
        pclose(pipe);
    }
    return out;
}

// compare_edit.py's account of a file before and after an edit (the tests'
// own temporary paths, which hold no quote).
inline nlohmann::json CompareEdit(const std::string& before, const std::string& after) {
    return nlohmann::json::parse(Output(std::string(FILEINFO_PYTHON3) + " " + FILEINFO_COMPARE_EDIT + " '" + before +
                                        "' '" + after + "'"),
                                 nullptr, false);
}

#endif  // FILEINFO_TESTS_SAFEEDIT_EDITCHECKS_H
