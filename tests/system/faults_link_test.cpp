// Connections that break, stall, or say nothing any more.
#include "fault_support.h"

using testing::IsEmpty;

namespace {

constexpr int gnQuick = 8000; // ms; less than what images wait by themselves

struct tsBreak {
    const char* name;
    const char* fault;
};

void PrintTo(const tsBreak& one, std::ostream* out)
{
    *out << one.fault;
}

} // namespace

class LinkBreaks : public Faults, public testing::WithParamInterface<tsBreak>
{};

TEST_P(LinkBreaks, CostTheFrameAndAreMadeGood)
{
    OpenWith({GetParam().fault});
    tcImage<uint16_t> image(nRows, nColumns);
    int result = -1;
    const int ms = Timed([&] { result = Lose(image); });
    EXPECT_EQ(0, result) << "nothing is pending any more";
    EXPECT_GE(ms, nImageTimeout - 100);
    EXPECT_LT(ms, gnQuick);
    EXPECT_EQ(1u, log.Count("MonitorThread socket has been closed on remote end"));
    EXPECT_EQ(1u, log.Count("tcVXCamera::MonitorStack Timing Out ID 6"));
    // A reset may destroy what is still on its way.
    EXPECT_GE(WrongRows(image).size(), 44u);
    EXPECT_LT(Timed([&] { EXPECT_TRUE(AwaitUnderstanding()); }), gnQuick);
    const tsStatistics books = ExpectWhole();
    EXPECT_EQ(1u, books.FramesFailed);
    EXPECT_EQ(0u, books.FramesPending);
    EXPECT_EQ(1u, books.ConnectionsLost);
    EXPECT_EQ(1u, books.Reconnects);
    EXPECT_EQ(2u, sim->Statistics().connections);
}

INSTANTIATE_TEST_SUITE_P(All, LinkBreaks,
                         testing::Values(tsBreak{"BetweenMessages", "close:packet=21"},
                                         tsBreak{"InAHeader", "close-header:packet=21"},
                                         tsBreak{"InAPayload", "close-payload:packet=21"},
                                         tsBreak{"ByAReset", "reset:packet=21"},
                                         tsBreak{"ByAResetInAHeader", "reset:packet=21,bytes=5"}),
                         [](const auto& one) { return std::string(one.param.name); });

TEST_F(Faults, OfALinkThatIsHalfOpenEndRequestsByTheirTimeOuts)
{
    OpenWith({"half-open:packet=21"});
    tcImage<uint16_t> image(nRows, nColumns);
    int result = -1;
    int ms = Timed([&] { result = Lose(image); });
    EXPECT_EQ(0, result);
    EXPECT_GE(ms, nImageTimeout - 100);
    EXPECT_LT(ms, gnQuick);
    tsLinkTestCmd test{};
    test.Count = 1;
    ms = Timed([&] { result = VXEngineeringCommand(handle, 103, &test); });
    EXPECT_EQ(-2, result);
    EXPECT_GE(ms, 2800);
    EXPECT_LT(ms, 9000);
    EXPECT_EQ(1u, log.Count("tcVXCamera::MonitorStack Timing Out ID d"));
    const tsStatistics books = Books();
    EXPECT_EQ(1u, books.FramesFailed);
    EXPECT_EQ(1u, books.RequestsTimedOut);
    EXPECT_EQ(0u, books.ConnectionsLost);
    EXPECT_LT(Timed([&] { EXPECT_EQ(0, VXCloseCamera(handle)); }), Within(1000));
    handle = -1;
}

TEST_F(Faults, OfAShortStallCostTimeOnly)
{
    OpenWith({"stall:packet=21,seconds=0.3"});
    const int ms = Timed([&] { ExpectWhole(); });
    EXPECT_GE(ms, 300);
    EXPECT_LT(ms, gnQuick);
    EXPECT_THAT(log.Texts(), IsEmpty());
    EXPECT_EQ(0u, Books().PacketsMissing);
}

TEST_F(Faults, OfAStallLongerThanTheTimeOutCostTheFrame)
{
    OpenWith({"stall:packet=21,seconds=8"});
    tcImage<uint16_t> image(nRows, nColumns);
    int result = -1;
    const int ms = Timed([&] { result = Lose(image); });
    EXPECT_EQ(0, result);
    EXPECT_GE(ms, nImageTimeout - 100);
    EXPECT_LT(ms, 7900) << "not as long as the stall";
    EXPECT_EQ(44u, WrongRows(image).size());
    EXPECT_EQ(1u, Books().FramesFailed);
    // The rest comes when the stall is over, and is no frame that anybody asked for.
    ASSERT_TRUE(WaitUntil([&] { return Books().PacketsReceived == nRows; }));
    EXPECT_EQ(44u, WrongRows(image).size()) << "the buffer was given back";
    EXPECT_EQ(1u, Books().FramesUnasked);
    ExpectWhole();
}

TEST_F(Faults, OfALinkThatDripsCostTimeOnly)
{
    OpenWith({"drip:packet=1,rate=40000"});
    const int ms = Timed([&] { ExpectWhole(); });
    EXPECT_GE(ms, 280) << "14 KB at 40 KB/s";
    EXPECT_LT(ms, gnQuick);
    EXPECT_THAT(log.Texts(), IsEmpty());
}

// The link gives up after 5 s without progress, and connects anew when the camera reads again.
TEST_F(Faults, OfACameraThatDoesNotReadEndSendingInBoundedTime)
{
    OpenWith({"stop-reading:id=0x60,seconds=6"});
    long exposure = 0;
    EXPECT_EQ(0, VXGetExposureTime(handle, &exposure));
    std::vector<char> data(static_cast<size_t>(VXGetTimingDataSize()));
    int result = 0, longest = 0;
    const auto start = steady_clock::now();
    while (result == 0 && ElapsedMs(start) < gnPatienceMs) {
        longest = std::max(longest, Timed([&] {
                               result = VXSetTimingData(handle, data.data(), VXGetTimingDataSize());
                           }));
    }
    EXPECT_EQ(-1, result);
    EXPECT_GE(longest, 4900);
    EXPECT_LT(longest, 9000);
    EXPECT_TRUE(AwaitUnderstanding());
    EXPECT_GE(Books().Reconnects, 1u);
    Prepare();
    ExpectWhole();
}

TEST_F(Faults, OfCamerasThatRefuseAreTriedAgain)
{
    OpenWith({"close:id=0x60", "refuse:connection=2", "refuse:connection=3,silent=1"});
    std::thread asking([this] {
        long exposure = 0;
        EXPECT_EQ(-2, VXGetExposureTime(handle, &exposure));
    });
    EXPECT_TRUE(WaitUntil([&] { return Books().Reconnects >= 3; }));
    EXPECT_EQ(-2, VXWaitCompletion(handle, 20));
    asking.join();
    EXPECT_LT(Timed([&] { EXPECT_TRUE(AwaitUnderstanding()); }), gnQuick);
    EXPECT_EQ(3u, log.Count("MonitorThread socket has been closed on remote end"));
    EXPECT_EQ(1u, log.Count("VXCAMERA: 2-2 the camera is in use by another client"));
    const tsStatistics books = Books();
    EXPECT_EQ(3u, books.ConnectionsLost);
    EXPECT_EQ(1u, books.CameraErrors);
    EXPECT_EQ(1u, books.RequestsTimedOut);
    ExpectWhole();
}

TEST_F(Faults, OfACameraThatRefusesWithoutAWordFailTheOpening)
{
    OpenWith({"refuse:silent=1,times=0"});
    int other = 0;
    const int ms = Timed([&] { other = VXOpenENetCamera("127.0.0.1", port); });
    EXPECT_EQ(-1, other);
    EXPECT_LT(ms, 15000);
    ExpectWhole();
}
