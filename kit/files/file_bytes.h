// The content of a file, before it is written.
#ifndef VXCAMKIT_FILE_BYTES_H
#define VXCAMKIT_FILE_BYTES_H

#include <vxcamkit/export.h>

#include <cstddef>
#include <cstdlib>
#include <memory>

namespace vxcam {

// Bytes at an address from which they can go to a disk directly.
//
// Threads: a value that can be moved. Owns: the memory.
class VXCAMKIT_EXPORT FileBytes
{
public:
    static constexpr size_t kAlignment = 4096; // of the address and of the room

    FileBytes() = default;
    // So many bytes, that are still to be filled in. Throws std::bad_alloc.
    explicit FileBytes(size_t size);
    // The same in memory that was used before, if it is large enough: the system takes its time to
    // give fresh memory.
    FileBytes(size_t size, FileBytes spare);
    FileBytes(FileBytes&& other) noexcept;
    FileBytes& operator=(FileBytes&& other) noexcept;

    char* data() { return memory_.get(); }
    const char* data() const { return memory_.get(); }
    size_t size() const { return size_; }
    // size(), and what is left to a whole number of blocks.
    size_t room() const { return (size_ + kAlignment - 1) / kAlignment * kAlignment; }
    void shrink(size_t size); // to that size, which is no larger

private:
    struct Free {
        void operator()(char* memory) const { std::free(memory); }
    };
    std::unique_ptr<char, Free> memory_;
    size_t size_ = 0, capacity_ = 0;
};

} // namespace vxcam

#endif
