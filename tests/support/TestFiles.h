// A fresh temporary folder per test, removed afterwards, and whole-file I/O.
#ifndef FILEINFO_TESTS_TESTFILES_H
#define FILEINFO_TESTS_TESTFILES_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "ByteWriter.h"

class TempDir {
public:
    // In the system's temporary folder, or in `base`.
    explicit TempDir(const std::filesystem::path& base = std::filesystem::temp_directory_path()) {
        std::string pattern = (base / "fileinfo-test-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
        path_ = pattern;
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    // Path of a file inside the folder.
    std::string file(const std::string& name) const { return (path_ / name).string(); }
    // Writes bytes to a new file in the folder and returns its path.
    std::string write(const std::string& name, const Bytes& bytes) const {
        const std::string p = file(name);
        std::ofstream out(p, std::ios::binary);
        out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        return p;
    }
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

inline Bytes ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

#endif  // FILEINFO_TESTS_TESTFILES_H
