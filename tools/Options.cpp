#include "Options.h"

#include <algorithm>
#include <cstring>
#include <iostream>
#include <memory>
#include <sstream>
#include <vector>

#include "Columns.h"
#include "FileInfoVersion.h"
#include "SafeEdit.h"

namespace fileinfo {

namespace {

// CLI11 lists the options an option needs or excludes in the order of
// their addresses in memory, which differs between the tool and the Python
// module that runs it; sorted by name, --help reads the same from both.
class SortedFormatter : public CLI::Formatter {
public:
    std::string make_option_opts(const CLI::Option* opt) const override {
        std::string text = CLI::Formatter::make_option_opts(opt);
        for (const char* label : {" Excludes:", " Needs:"}) {
            const size_t at = text.find(label);
            if (at == std::string::npos) continue;
            const size_t from = at + strlen(label);
            const size_t end = std::min(text.size(), text.find(" Excludes:", from));
            std::vector<std::string> names;
            std::istringstream words(text.substr(from, end - from));
            for (std::string name; words >> name;) names.push_back(name);
            std::sort(names.begin(), names.end());
            std::string sorted;
            for (const std::string& name : names) sorted += " " + name;
            text.replace(from, end - from, sorted);
        }
        return text;
    }
};

// Edits (insert, delete, replace) that turn a into b.
size_t EditDistance(const std::string& a, const std::string& b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t above = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
            diagonal = above;
        }
    }
    return row[b.size()];
}

// The extensions of --ext (CLI11 has split the list at its commas).
std::vector<std::string> ExtensionList(const std::vector<std::string>& given) {
    std::vector<std::string> extensions;
    for (const std::string& e : given) {
        for (std::string& one : fileinfo::ExtensionList(e)) extensions.push_back(std::move(one));
    }
    return extensions;
}

std::string Lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return static_cast<char>(tolower(c)); });
    return text;
}

// The field nearest to a mistyped one: the same name in other case
// ("durationms"), else one within two edits; empty when none is near.
std::string NearestField(const std::string& given) {
    std::string best;
    size_t bestDistance = 3;
    for (const std::string& name : ColumnNames()) {
        const size_t d = Lower(name) == Lower(given) ? 0 : EditDistance(Lower(given), Lower(name));
        if (d < bestDistance) {
            bestDistance = d;
            best = name;
        }
    }
    return best;
}

void UsageError(const std::string& message) {
    std::cerr << "fileinfo: " << message << "\nRun with --help for more information.\n";
}

// The first argument that looks like an option but names none.
std::string UnknownOption(const CLI::App& app, int argc, char** argv) {
    for (int k = 1; k < argc; ++k) {
        const std::string arg = argv[k];
        if (arg == "--") break;
        if (arg.size() < 2 || arg[0] != '-') continue;
        const std::string name = arg.substr(0, arg.find('='));
        bool known = false;
        for (const CLI::Option* o : app.get_options()) known |= o->check_name(name);
        if (!known) return name;
    }
    return std::string();
}

}  // namespace

std::string VersionText() { return std::string("fileinfo ") + FILEINFO_TOOL_VERSION + " (libFileInfo " + FileInfoVersion() + ")"; }

std::string NearestOption(const CLI::App& app, const std::string& given) {
    std::string best;
    size_t bestDistance = 3;  // further than two edits is no suggestion
    for (const CLI::Option* o : app.get_options()) {
        for (const std::string& name : o->get_lnames()) {
            const size_t d = EditDistance(given, "--" + name);
            if (d < bestDistance) {
                bestDistance = d;
                best = "--" + name;
            }
        }
    }
    return best;
}

void DeclareOptions(CLI::App& app, Options& o) {
    app.formatter(std::make_shared<SortedFormatter>());
    app.set_version_flag("--version", VersionText(), "print the tool's and the library's versions");
    app.add_option("paths", o.paths, "media files or folders (walked recursively); - reads paths from standard input");

    auto* output = "Output";
    app.add_option_function<std::string>(
           "--format",
           [&o](const std::string& name) {
               ParseFormat(name, o.format);
               o.formatNamed = true;
           },
           "list, json, csv, tsv or table (default: table on a terminal, else list)")
        ->check(CLI::IsMember({"list", "json", "csv", "tsv", "table"}))
        ->group(output);
    app.add_flag_callback(
           "--json",
           [&o] {
               o.format = Format::kJson;
               o.formatNamed = true;
           },
           "the same as --format json: one JSON object per line")
        ->group(output);
    app.add_option("--fields", o.fieldLists, "a,b,c: the columns to show: " + ColumnHelp())
        ->allow_extra_args(false)
        ->group(output);
    app.add_flag("--all-fields", o.allFields, "list: keep the video fields of audio files")->group(output);
    app.add_flag("--record", o.record,
                 "show the library's record (its fields, texts and verdict) instead of the reading of each file")
        ->group(output);
    app.add_flag("--summary", o.summary,
                 "add totals after the files (csv, tsv: on standard error, so the rows stay a table)")
        ->group(output);
    app.add_flag("--summary-only", o.summaryOnly, "print the totals alone")->group(output);
    app.add_option("--summary-file", o.summaryFile, "FILE: write the totals into FILE (implies --summary)")
        ->group(output);
    app.add_flag_callback("--progress", [&o] { o.progress = ProgressMode::kAlways; },
                          "show progress on standard error, even when it is no terminal")
        ->group(output);
    app.add_flag_callback("--no-progress", [&o] { o.progress = ProgressMode::kNever; }, "never show progress")
        ->group(output);

    auto* selection = "Selection";
    app.add_option("--from", o.from, "FILE: read paths from FILE, one per line (- for standard input)")
        ->group(selection);
    app.add_flag("-0,--null", o.nul, "the path list is NUL-separated, as find -print0 writes it")->group(selection);
    app.add_option("--ext", o.extensions, "mp3,m4a,...: walk only files with these extensions")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->group(selection);
    app.add_flag("--hidden", o.hidden, "walk hidden files and folders too")->group(selection);
    app.add_flag("--strict", o.strict, "count files no reader identified as failures")->group(selection);
    app.add_option("-j,--jobs", o.jobs, "N: files loaded at once (default: one per core)")
        ->check(CLI::Range(1u, 1024u))
        ->group(selection);

    auto* deviceGroup = "Device";
    CLI::Option* device =
        app.add_option("--device", o.devicePath, "CAPS: say whether the device described in CAPS plays each file")
            ->group(deviceGroup);
    app.add_flag("--explain", o.explain, "with --device: say which requirement refused a file")
        ->needs(device)
        ->group(deviceGroup);
    app.add_option_function<std::string>(
           "--only", [&o](const std::string& v) { o.only = v == "playable" ? Only::kPlayable : Only::kUnplayable; },
           "playable or unplayable: show only those files")
        ->check(CLI::IsMember({"playable", "unplayable"}))
        ->needs(device)
        ->group(deviceGroup);
    app.add_flag("--fail-unplayable", o.failUnplayable, "exit with status 3 when a file is not playable")
        ->needs(device)
        ->group(deviceGroup);

    auto* tags = "Tags";
    CLI::Option* set = app.add_option("--set", o.assignments,
                                      "FIELD=VALUE: write a tag into MP3, AAC, MP4, WAV and AIFF files (repeatable; FIELD: " +
                                          TagFieldNames() + ")")
                           ->allow_extra_args(false)
                           ->excludes(device)
                           ->group(tags);
    app.add_flag("--dry-run", o.dryRun, "with --set: show what the edit would change, change nothing")
        ->needs(set)
        ->group(tags);
    app.add_flag("--force", o.force,
                 "with --set --writer library: write also when more than the fields given changes")
        ->needs(set)
        ->group(tags);
    app.add_flag("--no-backup", o.noBackup, "with --set: keep no backup (song.orig.mp3) of the original")
        ->needs(set)
        ->group(tags);
    app.add_flag("--restore", o.restore, "put the backups given as paths back in place of their originals")
        ->excludes(set)
        ->excludes(device)
        ->group(tags);
    app.add_option("--writer", o.writer,
                   "with --set: fields (the default: only the fields given change) or library (the library's "
                   "writer, as hosts get it)")
        ->check(CLI::IsMember({"fields", "library"}))
        ->needs(set)
        ->group(tags);
    app.add_flag("--id3v2.3", o.id3v23, "with --set: write an ID3v2.4 tag as ID3v2.3, for older players")
        ->needs(set)
        ->group(tags);
}

int ParseCommandLine(CLI::App& app, Options& o, int argc, char** argv) {
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForVersion& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        const std::string unknown = UnknownOption(app, argc, argv);
        if (!unknown.empty()) {
            const std::string nearest = NearestOption(app, unknown);
            UsageError("unknown option " + unknown + (nearest.empty() ? "" : "; did you mean " + nearest + "?"));
        } else {
            UsageError(e.what());
        }
        return kExitUsage;
    }
    for (const std::string& list : o.fieldLists) {
        std::string unknown;
        if (!ParseColumns(list, o.columns, unknown)) {
            const std::string nearest = NearestField(unknown);
            UsageError("--fields: no field is called \"" + unknown + "\"; " +
                       (nearest.empty() ? "the" : "did you mean " + nearest + "? The") + " fields are " +
                       ColumnHelp());
            return kExitUsage;
        }
    }
    o.extensions = ExtensionList(o.extensions);
    // A subcommand (added by the caller) takes its own arguments.
    if (!app.get_subcommands().empty()) return -1;
    if (o.paths.empty() && o.from.empty()) {
        UsageError("no paths given: name files or folders, - or --from FILE");
        return kExitUsage;
    }
    if (o.summary && o.summaryOnly) {
        UsageError("--summary and --summary-only: choose one");
        return kExitUsage;
    }
    return -1;
}

}  // namespace fileinfo
