#include "values/block_memory.h"

#include <sys/mman.h>

#include <cstdlib>
#include <new>

namespace vxcam {

namespace {

constexpr size_t kLargePage = size_t{2} << 20U;

} // namespace

void* allocateBlocks(size_t bytes)
{
    const size_t whole = (bytes + kMemoryBlock - 1) / kMemoryBlock * kMemoryBlock;
    const bool isLarge = whole >= kLargePage;
    void* memory = nullptr;
    if (::posix_memalign(&memory, isLarge ? kLargePage : kMemoryBlock, whole) != 0) {
        throw std::bad_alloc();
    }
    // No page reaches beyond the memory. Where the system has no such pages, it has small ones.
    if (isLarge) ::madvise(memory, whole / kLargePage * kLargePage, MADV_HUGEPAGE);
    return memory;
}

} // namespace vxcam
