#include <vxcamkit/file_bytes.h>

#include <new>
#include <utility>

namespace vxcam {

FileBytes::FileBytes(size_t size)
    : size_(size), room_((size + kAlignment - 1) / kAlignment * kAlignment)
{
    if (room_ == 0) return;
    memory_.reset(static_cast<char*>(std::aligned_alloc(kAlignment, room_)));
    if (!memory_) throw std::bad_alloc();
}

FileBytes::FileBytes(FileBytes&& other) noexcept
    : memory_(std::move(other.memory_)), size_(std::exchange(other.size_, 0)),
      room_(std::exchange(other.room_, 0))
{}

FileBytes& FileBytes::operator=(FileBytes&& other) noexcept
{
    memory_ = std::move(other.memory_);
    size_ = std::exchange(other.size_, 0);
    room_ = std::exchange(other.room_, 0);
    return *this;
}

void FileBytes::shrink(size_t size)
{
    if (size < size_) size_ = size;
}

} // namespace vxcam
