#pragma once

// One answer to "is this test running under valgrind?", for the tests whose
// measure means little there: valgrind runs threads one at a time, keeps
// its own heap beside ours, and reserves far more address space than a
// native run.

#include <fstream>
#include <string>

inline bool UnderValgrind() {
    // Valgrind maps its preload objects into every process it runs; the
    // environment variable can be changed by the test, the map cannot.
    std::ifstream maps("/proc/self/maps");
    std::string line;
    while (std::getline(maps, line)) {
        if (line.find("vgpreload") != std::string::npos) return true;
    }
    return false;
}
