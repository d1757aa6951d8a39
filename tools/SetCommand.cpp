#include "SetCommand.h"

#include <signal.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <system_error>

#include "SafeEdit.h"

namespace fs = std::filesystem;

namespace {

struct Tally {
    int changed = 0;
    int refused = 0;
    int failed = 0;
    int skipped = 0;
    std::vector<std::string> problems;  // "PATH: reason" of each file refused or failed
};

// Tests stop the tool at a named point of an edit (FILEINFO_TEST_STOP_AT=
// "before-rename", say) to change the file or kill the tool right there.
std::function<void(fileinfo::EditPoint)> TestStopHook() {
    const char* at = getenv("FILEINFO_TEST_STOP_AT");
    if (at == nullptr || *at == '\0') return nullptr;
    const std::string point = at;
    return [point](fileinfo::EditPoint p) {
        if (point == fileinfo::EditPointName(p)) raise(SIGSTOP);
    };
}

std::string Lower(std::string text) {
    for (char& c : text) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return text;
}

// In a folder, only the files the writer takes by their extension are
// edited (MP3 and AAC; with the fields writer MP4 audio too, while WAV and
// AIFF files, which mostly hold no tags, are edited only when named): never
// a backup or a temporary file of an edit, which carry the same extensions.
bool IsEditable(const fs::path& file, fileinfo::EditWriter writer) {
    const std::string extension = Lower(file.extension().string());
    const bool mp4 = extension == ".m4a" || extension == ".m4b" || extension == ".mp4";
    if (extension != ".mp3" && extension != ".aac" && !(mp4 && writer == fileinfo::EditWriter::Fields)) return false;
    const std::string name = file.filename().string();
    return !fileinfo::IsEditTempName(name) && fileinfo::OriginalOfBackup(name).empty();
}

// The files to edit, in order: named files as they are, folders walked
// (sorted, links to folders not followed). Other files are counted skipped.
std::vector<std::string> FilesToEdit(const std::vector<std::string>& paths, fileinfo::EditWriter writer,
                                     Tally& tally) {
    std::vector<std::string> files;
    for (const std::string& path : paths) {
        std::error_code error;
        if (!fs::is_directory(path, error)) {
            files.push_back(path);
            continue;
        }
        std::vector<std::string> found;
        for (fs::recursive_directory_iterator it(path, fs::directory_options::skip_permission_denied, error), end;
             !error && it != end; it.increment(error)) {
            if (!it->is_regular_file(error)) continue;
            if (IsEditable(it->path(), writer)) {
                found.push_back(it->path().string());
            } else {
                ++tally.skipped;
            }
        }
        if (error) std::cerr << "fileinfo: " << path << ": " << error.message() << "\n";
        std::sort(found.begin(), found.end());
        files.insert(files.end(), found.begin(), found.end());
    }
    return files;
}

std::string Reason(const fileinfo::EditResult& result) {
    return result.reason + (result.error != 0 ? std::string(": ") + strerror(result.error) : std::string());
}

void ReportProblem(const std::string& path, const fileinfo::EditResult& result, Tally& tally) {
    ++(result.status == fileinfo::EditStatus::Refused ? tally.refused : tally.failed);
    tally.problems.push_back(path + ": " + Reason(result));
    std::cerr << "fileinfo: " << path << ": " << Reason(result)
              << (result.touched ? "\n" : "; the file is unchanged\n");
    if (result.status == fileinfo::EditStatus::Refused && !result.difference.empty())
        std::cerr << fileinfo::DescribeDifference(result.difference);
}

void ReportDryRun(const std::string& path, const fileinfo::EditResult& result, const fileinfo::TagEdits& edits) {
    std::cout << path << ": would change\n";
    if (result.difference.empty()) std::cout << "  no difference\n";
    std::cout << fileinfo::DescribeDifference(result.difference);
    if (!result.difference.GoesBeyond(edits)) return;
    if (edits.writer() == fileinfo::EditWriter::Library) {
        std::cout << "  more than the fields given changes: needs --force\n";
    } else {
        std::cout << "  more than the fields given changes, or a value does not read back as given: the edit "
                     "would be refused\n";
    }
}

void EditOne(const std::string& path, const fileinfo::TagEdits& edits, const SetCommandOptions& options,
             Tally& tally) {
    fileinfo::EditOptions editOptions;
    editOptions.dryRun = options.dryRun;
    editOptions.force = options.force;
    editOptions.backup = options.backup;
    editOptions.id3v23 = options.id3v23;
    editOptions.onPoint = TestStopHook();
    const fileinfo::EditResult result = fileinfo::EditTags(path, edits, editOptions);
    switch (result.status) {
        case fileinfo::EditStatus::WouldChange:
            ++tally.changed;
            ReportDryRun(path, result, edits);
            return;
        case fileinfo::EditStatus::Changed:
            ++tally.changed;
            if (!result.backupPath.empty())
                std::cerr << "fileinfo: backup of " << path << " kept as " << result.backupPath << "\n";
            if (options.listFile) options.listFile(path);
            return;
        case fileinfo::EditStatus::Refused:
        case fileinfo::EditStatus::Failed:
            ReportProblem(path, result, tally);
            return;
    }
}

// The counts, and, when there was more than one file, the files that were
// not edited again: their messages may have scrolled away.
int Summary(const Tally& tally, bool dryRun) {
    std::cerr << "fileinfo: " << tally.changed << (dryRun ? " would change, " : " changed, ") << tally.refused
              << " refused, " << tally.failed << " failed, " << tally.skipped << " skipped\n";
    if (tally.changed + tally.refused + tally.failed > 1)
        for (const std::string& problem : tally.problems) std::cerr << "  not edited: " << problem << "\n";
    return tally.refused + tally.failed == 0 ? 0 : 1;
}

int Restore(const SetCommandOptions& options) {
    Tally tally;
    for (const std::string& backup : options.paths) {
        const fileinfo::EditResult result = fileinfo::RestoreBackup(backup);
        if (result.status == fileinfo::EditStatus::Changed) {
            ++tally.changed;
            std::cerr << "fileinfo: " << result.path << " restored from " << backup << "\n";
            continue;
        }
        ReportProblem(backup, result, tally);
    }
    return Summary(tally, false);
}

}  // namespace

int RunSetCommand(const SetCommandOptions& options) {
    if (options.restore) return Restore(options);
    fileinfo::TagEdits edits(options.writer);
    std::string error;
    if (!fileinfo::ParseTagEdits(options.assignments, edits, error)) {
        std::cerr << "fileinfo: " << error << "\n";
        return 2;
    }
    Tally tally;
    for (const std::string& file : FilesToEdit(options.paths, options.writer, tally))
        EditOne(file, edits, options, tally);
    return Summary(tally, options.dryRun);
}
