// Internal to the tag writer: the file TagLib edits, as a stream over an
// open descriptor that notices every failed read and write. TagLib's own
// file stream ignores the result of its writes, so a write lost to a full
// disk would go unseen; this one keeps the first error, and the edit asks
// for it before the copy is trusted.
#ifndef FILEINFO_CORE_TAGSTREAM_H
#define FILEINFO_CORE_TAGSTREAM_H

#include <taglib/tiostream.h>

#include <string>

namespace fileinfo {

class TagStream : public TagLib::IOStream {
public:
    // `fd` stays the caller's and must be open for reading and writing;
    // `name` is only for TagLib's messages.
    TagStream(int fd, const std::string& name);

    // The errno of the first call that failed, or 0.
    int error() const { return error_; }

    TagLib::FileName name() const override;
    TagLib::ByteVector readBlock(unsigned long length) override;
    void writeBlock(const TagLib::ByteVector& data) override;
    void insert(const TagLib::ByteVector& data, unsigned long start = 0, unsigned long replace = 0) override;
    void removeBlock(unsigned long start = 0, unsigned long length = 0) override;
    bool readOnly() const override { return false; }
    bool isOpen() const override { return fd_ >= 0; }
    void seek(long offset, Position p = Beginning) override;
    void clear() override {}
    long tell() const override { return position_; }
    long length() override;
    void truncate(long length) override;

private:
    bool ReadAt(long offset, char* data, size_t size);
    bool WriteAt(long offset, const char* data, size_t size);
    // Moves the bytes from `from` to the end of the file to `to`.
    bool MoveTail(long from, long to);
    void Fail(int error);

    int fd_;
    std::string name_;
    long position_ = 0;
    int error_ = 0;
};

}  // namespace fileinfo

#endif  // FILEINFO_CORE_TAGSTREAM_H
