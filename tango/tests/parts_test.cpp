// What stands behind a device and needs no Tango.
#include "array_header.h"
#include "asker.h"
#include "frame_ring.h"

#include <vxcamkit/error.h>

#include <gmock/gmock.h>

#include <atomic>
#include <future>

namespace vxcam {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

Frame frameOf(int number, int rows = 3, int columns = 4, int bits = 16)
{
    FrameFacts facts;
    facts.number = number;
    facts.rows = rows;
    facts.columns = columns;
    facts.bits = bits;
    return Frame(facts);
}

template <class Work>
std::string refusal(ErrorKind kind, Work work)
{
    try {
        work();
    } catch (const Error& error) {
        EXPECT_EQ(kind, error.kind());
        return error.what();
    }
    return "nothing was thrown";
}

TEST(Asker, HandsBackWhatTheWorkThrows)
{
    Asker asker;
    int calls = 0;
    asker.run([&] { ++calls; }, milliseconds(5000));
    EXPECT_EQ(1, calls);
    EXPECT_EQ("no", refusal(ErrorKind::Camera, [&] {
                  asker.run([] { throw Error(ErrorKind::Camera, "no"); }, milliseconds(5000));
              }));
}

TEST(Asker, WaitsNoLongerThanItsPatienceAndNotAtAllBehindAnUnansweredQuestion)
{
    std::promise<void> answer;
    std::shared_future<void> answered = answer.get_future().share();
    Asker asker;
    const auto start = steady_clock::now();
    EXPECT_THAT(refusal(ErrorKind::Timeout,
                        [&] { asker.run([answered] { answered.wait(); }, milliseconds(400)); }),
                testing::HasSubstr("has not answered for 400 ms"));
    const auto asked = steady_clock::now();
    EXPECT_GE(asked - start, milliseconds(400));
    EXPECT_THAT(refusal(ErrorKind::Timeout, [&] { asker.run([] {}, milliseconds(400)); }),
                testing::HasSubstr("an earlier question"));
    EXPECT_LT(steady_clock::now() - asked, milliseconds(350));
    answer.set_value();
    bool isAsked = false;
    asker.run([&] { isAsked = true; }, milliseconds(10000));
    EXPECT_TRUE(isAsked);
}

TEST(FrameRing, HoldsTheLatestFramesByTheirIndex)
{
    FrameRing ring(2, 1 << 20);
    EXPECT_EQ(-1, ring.lastIndex());
    EXPECT_FALSE(ring.last());
    EXPECT_EQ("image 0 is not held: none came yet", refusal(ErrorKind::Usage, [&] { ring.at(0); }));
    for (int number = 1; number <= 3; ++number) {
        ring.add(frameOf(number));
    }
    EXPECT_EQ(2, ring.lastIndex());
    EXPECT_EQ(2U, ring.size());
    EXPECT_EQ(2, ring.at(1).facts().number);
    EXPECT_EQ(3, ring.last()->facts().number);
    EXPECT_EQ("image 0 is not held: 1 to 2 are", refusal(ErrorKind::Usage, [&] { ring.at(0); }));
    ring.clear();
    EXPECT_EQ(0U, ring.size());
}

TEST(FrameRing, HoldsNoMoreBytesThanItMayButTheLatestFrame)
{
    FrameRing ring(10, 50); // a frame has 24
    for (int number = 1; number <= 3; ++number) {
        ring.add(frameOf(number));
    }
    EXPECT_EQ(2U, ring.size());
    ring.add(frameOf(4, 100, 100));
    EXPECT_EQ(1U, ring.size());
    EXPECT_EQ(3, ring.lastIndex());
}

TEST(ArrayHeader, SaysWhatTheImageIs)
{
    const ArrayHeader expected{0x59, 0x41, 0x54, 0x44, 2, 0, 64, 0, 2, 0, 0, 0, 1,
                               0,    0,    0,    0,    0, 2, 0,  4, 1, 3, 0, 0, 0,
                               0,    0,    0,    0,    0, 0, 2,  0, 0, 0, 8, 2};
    EXPECT_EQ(expected, arrayHeader(frameOf(1, 3, 260), 2));
    EXPECT_EQ(0, arrayHeader(frameOf(1, 3, 4, 8), 1)[12]);
    EXPECT_EQ(1, arrayHeader(frameOf(1, 3, 4, 8), 1)[4]);
    EXPECT_EQ(2, arrayHeader(frameOf(1, 3, 4, 32), 1)[12]);
}

} // namespace

} // namespace vxcam
