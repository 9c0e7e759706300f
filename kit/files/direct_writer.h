// Writes past the system's memory.
#ifndef VXCAMKIT_DIRECT_WRITER_H
#define VXCAMKIT_DIRECT_WRITER_H

#include <vxcamkit/file_bytes.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace vxcam {

// Places of a file that lie at whole blocks of the disk, where memory and file system are made for
// that; all others through the system's memory.
//
// Threads: one. Owns: a descriptor of its own. Errors: throws Error{File}.
class DirectWriter
{
public:
    static constexpr size_t kBlock = FileBytes::kAlignment;

    // `descriptor` is one to write the file with; it stays the caller's.
    DirectWriter(std::string path, int descriptor);
    ~DirectWriter();
    DirectWriter(const DirectWriter&) = delete;
    DirectWriter& operator=(const DirectWriter&) = delete;

    void write(uint64_t at, const char* bytes, size_t count);
    // Through the system's memory.
    void writePlainly(uint64_t at, const char* bytes, size_t count);

private:
    void writeWith(int descriptor, uint64_t at, const char* bytes, size_t count);

    const std::string path_;
    const int plain_;
    int direct_ = -1; // -1 where the file system cannot
};

} // namespace vxcam

#endif
