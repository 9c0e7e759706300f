// Memory from which pixels go to a disk.
#ifndef VXCAMKIT_BLOCK_MEMORY_H
#define VXCAMKIT_BLOCK_MEMORY_H

#include <cstddef>

namespace vxcam {

inline constexpr size_t kMemoryBlock = 4096; // of a page, and of what disks take directly

// So many bytes and the rest of the last block, at a block. What is large lies on large pages where
// the system has these: direct writes look up each page. The caller's, for std::free(). Throws
// std::bad_alloc.
void* allocateBlocks(size_t bytes);

} // namespace vxcam

#endif
