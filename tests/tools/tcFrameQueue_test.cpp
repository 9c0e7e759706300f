#include "tcFrameQueue.h"

#include "tool_support.h"

namespace {

tsFrame Numbered(int number)
{
    tsFrame frame;
    frame.index = number;
    return frame;
}

} // namespace

TEST(FrameQueue, KeepsTheOrder)
{
    tcFrameQueue queue(3);
    for (int i = 1; i <= 3; ++i) {
        EXPECT_TRUE(queue.Push(Numbered(i)));
    }
    for (int i = 1; i <= 3; ++i) {
        EXPECT_EQ(queue.Pop()->index, i);
    }
}

TEST(FrameQueue, PushWaitsWhileItIsFull)
{
    tcFrameQueue queue(2);
    std::atomic<int> pushed{0};
    std::thread camera([&] {
        for (int i = 1; i <= 5; ++i) {
            queue.Push(Numbered(i));
            ++pushed;
        }
    });
    for (int i = 1; i <= 5; ++i) {
        ASSERT_TRUE(WaitUntil([&] { return pushed == std::min(i + 1, 5); }));
        EXPECT_EQ(pushed, std::min(i + 1, 5)); // two wait inside, the next one outside
        EXPECT_EQ(queue.Pop()->index, i);
    }
    camera.join();
}

TEST(FrameQueue, WhatIsInsideLeavesAfterFinish)
{
    tcFrameQueue queue(2);
    queue.Push(Numbered(1));
    queue.Finish();
    EXPECT_EQ(queue.Pop()->index, 1);
    EXPECT_FALSE(queue.Pop().has_value());
}

TEST(FrameQueue, WhatIsInsideIsDroppedByClose)
{
    tcFrameQueue queue(2);
    queue.Push(Numbered(1));
    queue.Close();
    EXPECT_FALSE(queue.Pop().has_value());
    EXPECT_FALSE(queue.Push(Numbered(2)));
}

TEST(FrameQueue, CloseEndsAllWaiting)
{
    tcFrameQueue full(1), empty(1);
    full.Push(Numbered(1));
    std::thread pusher([&] { EXPECT_FALSE(full.Push(Numbered(2))); });
    std::thread popper([&] { EXPECT_FALSE(empty.Pop().has_value()); });
    full.Close();
    empty.Close();
    pusher.join();
    popper.join();
}

TEST(FrameQueue, FinishEndsThePopThatWaits)
{
    tcFrameQueue queue(1);
    std::thread popper([&] { EXPECT_FALSE(queue.Pop().has_value()); });
    queue.Finish();
    popper.join();
}

TEST(FrameQueue, StorageIsUsedAgain)
{
    tcFrameQueue queue(1);
    tsFrame frame = SmallFrame(10, 10);
    const uint16_t* const storage = frame.pixels16.data();
    queue.Recycle(std::move(frame));
    EXPECT_EQ(queue.Empty().pixels16.data(), storage);
    EXPECT_TRUE(queue.Empty().pixels16.empty());
}
