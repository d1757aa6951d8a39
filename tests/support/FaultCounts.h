// What the fault shim wrote at a run's exit (FILEINFO_FAULT_COUNTS): one
// line per kind of call, "write 12", that the fault tests step through.
#ifndef FILEINFO_TESTS_FAULTCOUNTS_H
#define FILEINFO_TESTS_FAULTCOUNTS_H

#include <fstream>
#include <map>
#include <string>

// The calls of each kind; empty when the file is missing.
inline std::map<std::string, long> ReadFaultCounts(const std::string& countsFile) {
    std::map<std::string, long> counts;
    std::ifstream in(countsFile);
    std::string kind;
    long n;
    while (in >> kind >> n) counts[kind] = n;
    return counts;
}

// The calls of every kind together.
inline long TotalCalls(const std::map<std::string, long>& counts) {
    long calls = 0;
    for (const auto& c : counts) calls += c.second;
    return calls;
}

#endif  // FILEINFO_TESTS_FAULTCOUNTS_H
