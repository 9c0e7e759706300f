#include "tcBufferTurn.h"

#include <algorithm>
#include <cstdint>

bool tcBufferTurn::Set(void* const* buffers, int count, size_t bytes)
{
    if (count < 0 || count > gnMost) return false;
    if (count > 0 && (buffers == nullptr || bytes == 0)) return false;
    std::vector<tsBuffer> sorted;
    sorted.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
        if (buffers[i] == nullptr) return false;
        sorted.push_back({buffers[i], true});
    }
    std::sort(sorted.begin(), sorted.end(), [](const tsBuffer& a, const tsBuffer& b) {
        return reinterpret_cast<uintptr_t>(a.memory) < reinterpret_cast<uintptr_t>(b.memory);
    });
    for (size_t i = 1; i < sorted.size(); ++i) {
        const auto before = reinterpret_cast<uintptr_t>(sorted[i - 1].memory);
        if (reinterpret_cast<uintptr_t>(sorted[i].memory) - before < bytes) return false;
    }
    std::vector<tsBuffer*> turn;
    for (int i = 0; i < count; ++i) {
        turn.push_back(&*std::find_if(sorted.begin(), sorted.end(), [&](const tsBuffer& buffer) {
            return buffer.memory == buffers[i];
        }));
    }
    const std::lock_guard<std::mutex> lock(mMutex);
    maBuffers.swap(sorted); // which leaves the elements where they are
    maFree.swap(turn);
    mnFirst = 0;
    mnFree = maFree.size();
    mnBytes = count > 0 ? bytes : 0;
    return true;
}

size_t tcBufferTurn::Bytes() const
{
    const std::lock_guard<std::mutex> lock(mMutex);
    return mnBytes;
}

void* tcBufferTurn::Take()
{
    const std::lock_guard<std::mutex> lock(mMutex);
    if (mnFree == 0) return nullptr;
    tsBuffer& buffer = *maFree[mnFirst];
    mnFirst = (mnFirst + 1) % maFree.size();
    --mnFree;
    buffer.isFree = false;
    return buffer.memory;
}

bool tcBufferTurn::Return(void* memory)
{
    const std::lock_guard<std::mutex> lock(mMutex);
    const auto found = std::lower_bound(
        maBuffers.begin(), maBuffers.end(), memory, [](const tsBuffer& buffer, const void* wanted) {
            return reinterpret_cast<uintptr_t>(buffer.memory) < reinterpret_cast<uintptr_t>(wanted);
        });
    if (found == maBuffers.end() || found->memory != memory || found->isFree) return false;
    found->isFree = true;
    maFree[(mnFirst + mnFree) % maFree.size()] = &*found;
    ++mnFree;
    return true;
}

void tcBufferTurn::LendAll()
{
    const std::lock_guard<std::mutex> lock(mMutex);
    for (tsBuffer& buffer : maBuffers) {
        buffer.isFree = false;
    }
    mnFree = 0;
}
