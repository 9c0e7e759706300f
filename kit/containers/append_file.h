// A file that grows at its end, as fast as the disk takes it.
#ifndef VXCAMKIT_APPEND_FILE_H
#define VXCAMKIT_APPEND_FILE_H

#include "files/direct_writer.h"
#include "files/writer_lock.h"

#include <vxcamkit/file_bytes.h>

#include <cstdint>
#include <memory>
#include <string>

namespace vxcam {

// Large pieces go past the system's memory where the file system can do that.
//
// Threads: one. Owns: the file's descriptors. Errors: throw Error{File}.
class AppendFile
{
public:
    // Makes the file; one that exists is replaced with `force`, unless it is being written.
    AppendFile(const std::string& path, bool force);
    ~AppendFile(); // what was not flushed is lost
    AppendFile(const AppendFile&) = delete;
    AppendFile& operator=(const AppendFile&) = delete;

    void append(const void* bytes, size_t count);
    void append(const std::string& text) { append(text.data(), text.size()); }
    // Other bytes at a place that was flushed before.
    void rewrite(uint64_t at, const void* bytes, size_t count);
    // Whoever reads the file from now on has all of it. Behind its end, zeros up to a multiple of
    // `block`, which the next piece takes the place of.
    void flush(size_t block = 1);
    // Bytes that were flushed; how many there are, at most `count`.
    size_t read(uint64_t at, void* bytes, size_t count) const;
    void sync();
    // What lies behind is gone, and was perhaps never there.
    void cut(uint64_t size);

    uint64_t size() const { return written_ + staged_; }
    const std::string& path() const { return path_; }

private:
    void writeStaged();

    const std::string path_;
    WriterLock file_;
    std::unique_ptr<DirectWriter> writer_;
    uint64_t written_ = 0; // a multiple of the blocks of disks
    FileBytes stage_;      // what comes behind that
    size_t staged_ = 0;
    size_t shown_ = 0; // of it, that readers have
};

} // namespace vxcam

#endif
