// The file of a recording: blocks behind each other, each written once.
#ifndef VXCAMKIT_BLOCK_FILE_H
#define VXCAMKIT_BLOCK_FILE_H

#include "files/direct_writer.h"
#include "files/writer_lock.h"

#include <vxcamkit/file_bytes.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace vxcam {

// Blocks begin and end anywhere in it, and go past the system's memory where the file system can do
// that. What does not fill a block of the disk goes there with what comes behind it, and meanwhile
// through the system's memory, so that readers have all of it.
//
// Threads: one. Owns: the file's descriptors. Errors: throw Error{File}.
class BlockFile
{
public:
    static constexpr size_t kAlignment = DirectWriter::kBlock;

    // Makes the file with its first bytes, fewer than kAlignment. One that exists is replaced with
    // `force`, unless it is being written.
    BlockFile(const std::string& path, bool force, const void* head, size_t count);
    BlockFile(const BlockFile&) = delete;
    BlockFile& operator=(const BlockFile&) = delete;

    // Where in the memory that is written next its bytes begin: those in front are this file's.
    size_t from() const { return tailBytes_; }
    // Bytes up to `end`. When it throws, the file is as it was before.
    void append(FileBytes* bytes, size_t end);
    void sync();

    uint64_t size() const { return written_ + tailBytes_; }
    const std::string& path() const { return path_; }

private:
    const std::string path_;
    WriterLock file_;
    DirectWriter writer_;
    uint64_t written_ = 0; // whole blocks of the disk
    std::array<char, kAlignment> tail_{};
    size_t tailBytes_ = 0; // what comes behind them
};

} // namespace vxcam

#endif
