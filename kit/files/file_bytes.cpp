#include <vxcamkit/file_bytes.h>

#include "values/block_memory.h"

#include <utility>

namespace vxcam {

FileBytes::FileBytes(size_t size) : size_(size), capacity_(room())
{
    if (size == 0) return;
    memory_.reset(static_cast<char*>(allocateBlocks(capacity_)));
}

FileBytes::FileBytes(size_t size, FileBytes spare)
{
    if (spare.capacity_ < size) {
        spare = FileBytes();
        spare = FileBytes(size);
    }
    *this = std::move(spare);
    size_ = size;
}

FileBytes::FileBytes(FileBytes&& other) noexcept
    : memory_(std::move(other.memory_)), size_(std::exchange(other.size_, 0)),
      capacity_(std::exchange(other.capacity_, 0))
{}

FileBytes& FileBytes::operator=(FileBytes&& other) noexcept
{
    memory_ = std::move(other.memory_);
    size_ = std::exchange(other.size_, 0);
    capacity_ = std::exchange(other.capacity_, 0);
    return *this;
}

void FileBytes::shrink(size_t size)
{
    if (size < size_) size_ = size;
}

} // namespace vxcam
