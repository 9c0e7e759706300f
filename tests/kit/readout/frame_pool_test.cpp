#include "readout/frame_pool.h"

#include <vxcamkit/frame.h>

#include <gtest/gtest.h>

#include <set>

using vxcam::FramePool;

TEST(FramePool, HoldsEachOfItsBuffersOnce)
{
    const auto pool = std::make_shared<FramePool>(1000, 3);
    const std::set<void*> buffers(pool->buffers().begin(), pool->buffers().end());
    EXPECT_EQ(buffers.size(), 3u);
    std::vector<std::shared_ptr<void>> held;
    for (void* const buffer : buffers) {
        EXPECT_EQ(reinterpret_cast<uintptr_t>(buffer) % 4096, 0u);
        held.push_back(pool->hold(buffer));
        ASSERT_EQ(held.back().get(), buffer);
        EXPECT_EQ(pool->hold(buffer), nullptr);
    }
    EXPECT_EQ(pool->held(), 3);
    void* const freed = held[1].get();
    held[1].reset();
    EXPECT_EQ(pool->held(), 2);
    EXPECT_EQ(pool->hold(freed).get(), freed);
}

// From there a disk takes them without a copy.
TEST(FramePool, LaysEveryFrameAtABlock)
{
    for (const size_t bytes : {1000, 100'000, 8 << 20, (8 << 20) + 1}) {
        EXPECT_EQ(reinterpret_cast<uintptr_t>(vxcam::allocateFrame(bytes).get()) % 4096, 0u);
        vxcam::FrameFacts facts;
        facts.rows = 1;
        facts.columns = static_cast<int>(bytes / 2);
        const vxcam::Frame frame(facts);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(frame.data()) % 4096, 0u);
        EXPECT_EQ(frame.sum(), 0u);
    }
}

TEST(FramePool, HoldsNothingOfOthers)
{
    const auto pool = std::make_shared<FramePool>(1000, 1);
    int other = 0;
    EXPECT_EQ(pool->hold(&other), nullptr);
    EXPECT_EQ(pool->hold(nullptr), nullptr);
    EXPECT_EQ(pool->held(), 0);
}

TEST(FramePool, TellsTheLastOwnerWhichBufferComesBack)
{
    const auto pool = std::make_shared<FramePool>(10, 1);
    void* const buffer = pool->buffers().front();
    int first = 0, second = 0;
    std::vector<void*> returned;
    pool->onReturn(&first, [&](void* back) { returned.push_back(back); });
    pool->hold(buffer).reset();
    EXPECT_EQ(returned, (std::vector<void*>{buffer}));
    pool->onReturn(&second, [&](void*) { ++second; });
    pool->endReturns(&first);
    pool->hold(buffer).reset();
    EXPECT_EQ(second, 1);
    pool->endReturns(&second);
    pool->hold(buffer).reset();
    EXPECT_EQ(second, 1);
    EXPECT_EQ(returned.size(), 1u);
}

TEST(FramePool, LivesAsLongAsABufferIsHeld)
{
    auto pool = std::make_shared<FramePool>(10, 2);
    const std::weak_ptr<FramePool> weak = pool;
    std::shared_ptr<void> buffer = pool->hold(pool->buffers().back());
    pool.reset();
    EXPECT_FALSE(weak.expired());
    static_cast<char*>(buffer.get())[9] = 1;
    buffer.reset();
    EXPECT_TRUE(weak.expired());
}
