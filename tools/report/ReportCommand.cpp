#include "ReportCommand.h"

#include <CLI/CLI.hpp>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "AtomicWrite.h"
#include "DeviceLists.h"
#include "Report.h"
#include "Scan.h"
#include "Verdict.h"

namespace {

using fileinfo::Outcome;

}  // namespace

int RunReportCommand(int argc, char** argv) {
    CLI::App app{"Writes one self-contained HTML page about a collection: what it holds and, with --device, what "
                 "the device plays and why not.",
                 "fileinfo report"};
    std::vector<std::string> paths;
    std::string output, devicePath, title = "Collection report", extensions;
    unsigned jobs = 0;
    bool hidden = false;
    app.add_option("paths", paths, "media files or folders (walked recursively)")->required();
    app.add_option("-o,--output", output, "the HTML file to write")->required();
    app.add_option("--device", devicePath, "capability list of a device: say whether it plays each file");
    app.add_option("--title", title, "the page's title");
    app.add_option("-j,--jobs", jobs, "files loaded at once (default: one per core)");
    app.add_option("--ext", extensions, "walk only files with these extensions (mp3,m4a)");
    app.add_flag("--hidden", hidden, "walk hidden files and folders too");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        if (e.get_exit_code() == 0) return app.exit(e);  // --help
        std::cerr << "fileinfo: report: " << e.what() << "\nRun 'fileinfo report --help' for the options.\n";
        return 2;
    }

    fileinfo::Device device("");
    const bool withDevice = !devicePath.empty();
    if (withDevice) {
        std::string error;
        if (!fileinfo::LoadDeviceList(devicePath, device, error)) {
            std::cerr << "fileinfo: " << devicePath << ": " << error << "\n";
            return 2;
        }
    }

    fileinfo::ScanOptions options;
    options.jobs = jobs;
    options.extensions = fileinfo::ExtensionList(extensions);
    options.hidden = hidden;
    fileinfo::ReportData data(withDevice ? &device : nullptr);
    fileinfo::Scan scan(paths, options);
    const bool progress = isatty(STDERR_FILENO) != 0;
    bool allReached = true;
    fileinfo::ScanItem item;
    size_t count = 0;
    while (scan.Next(item)) {
        if (item.outcome == Outcome::kError) {
            if (progress) std::cerr << "\r\033[K";
            std::cerr << "fileinfo: " << item.path << ": " << item.reason << "\n";
            allReached = false;
        }
        data.Add(item);
        if (progress && (++count % 64 == 0)) std::cerr << "\rfileinfo: " << scan.Done() << " of " << scan.Found() << " paths" << std::flush;
    }
    if (progress) std::cerr << "\r\033[K" << std::flush;

    fileinfo::ReportHeader header;
    header.title = title;
    header.roots = paths;
    header.extensions = options.extensions;
    header.hidden = hidden;
    header.devicePath = devicePath;
    const std::string page = fileinfo::MakeReportPage(data.Json(header));
    if (page.empty()) {
        std::cerr << "fileinfo: the report's page template holds no data marker\n";
        return 1;
    }
    std::string error;
    if (!fileinfo::WriteFileAtomically(output, page, error)) {
        std::cerr << "fileinfo: " << output << ": " << error << "\n";
        return 1;
    }
    return allReached ? 0 : 1;
}
