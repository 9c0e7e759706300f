#include "readout/frame_pool.h"

#include <gtest/gtest.h>

#include <set>

using vxcam::FramePool;

TEST(FramePool, GivesSoManyBuffersAndNoMore)
{
    const auto pool = std::make_shared<FramePool>(1000, 3);
    std::set<void*> seen;
    std::vector<std::shared_ptr<void>> held;
    for (int i = 0; i < 3; ++i) {
        held.push_back(pool->claim());
        ASSERT_TRUE(held.back());
        seen.insert(held.back().get());
        EXPECT_EQ(reinterpret_cast<uintptr_t>(held.back().get()) % 4096, 0u);
    }
    EXPECT_EQ(seen.size(), 3u);
    EXPECT_EQ(pool->claim(), nullptr);
    EXPECT_EQ(pool->claimed(), 3);
    void* const freed = held[1].get();
    held[1].reset();
    EXPECT_EQ(pool->claimed(), 2);
    EXPECT_EQ(pool->claim().get(), freed);
}

TEST(FramePool, TellsWhenABufferComesBack)
{
    const auto pool = std::make_shared<FramePool>(10, 1);
    int returned = 0;
    pool->whenReturned([&] { ++returned; });
    pool->claim().reset();
    EXPECT_EQ(returned, 1);
    pool->whenReturned(nullptr);
    pool->claim().reset();
    EXPECT_EQ(returned, 1);
}

TEST(FramePool, LivesAsLongAsABufferIsHeld)
{
    auto pool = std::make_shared<FramePool>(10, 2);
    const std::weak_ptr<FramePool> weak = pool;
    std::shared_ptr<void> buffer = pool->claim();
    pool.reset();
    EXPECT_FALSE(weak.expired());
    static_cast<char*>(buffer.get())[9] = 1;
    buffer.reset();
    EXPECT_TRUE(weak.expired());
}
