// Cameras that reboot, lose their cooling, or complain.
#include "fault_support.h"

using testing::IsEmpty;

namespace {

constexpr int gnQuick = 8000; // ms

} // namespace

TEST_F(Faults, OfACameraThatRebootsCostTheFrameAndTheSettings)
{
    OpenWith({"reboot:packet=21,seconds=0.5"});
    tcImage<uint16_t> image(nRows, nColumns);
    const auto start = steady_clock::now();
    EXPECT_EQ(0, Lose(image));
    EXPECT_LT(ElapsedMs(start), gnQuick);
    EXPECT_GE(WrongRows(image).size(), 44u);
    EXPECT_TRUE(AwaitUnderstanding());
    EXPECT_GE(ElapsedMs(start), 500);
    EXPECT_LT(ElapsedMs(start), 500 + gnQuick);
    long exposure = 0;
    EXPECT_EQ(0, VXGetExposureTime(handle, &exposure));
    EXPECT_EQ(1000, exposure) << "as at power-up";
    EXPECT_EQ(1u, log.Count("MonitorThread socket has been closed on remote end"));
    EXPECT_EQ(1u, Books().FramesFailed);
    EXPECT_EQ(1u, Books().ConnectionsLost);
    EXPECT_EQ(1u, Books().Reconnects);
    Prepare();
    ExpectWhole();
}

TEST_F(Faults, OfACameraThatComesBackLargerKeepFramesInsideTheBuffer)
{
    OpenWith({"reboot-resized:packet=21,seconds=0.1,rows=80,columns=128"});
    tcImage<uint16_t> image(nRows, nColumns);
    EXPECT_EQ(0, Lose(image));
    EXPECT_TRUE(AwaitUnderstanding());
    Prepare();
    image.Mark();
    EXPECT_EQ(0, VXSetCCDArea(handle, 0, 0, 128, 80));
    EXPECT_EQ(0, Read(image));
    EXPECT_THAT(WrongRows(image), IsEmpty()) << "what fits is right";
    tsStatistics books = Books();
    EXPECT_EQ(80u, books.PacketsOutside);
    EXPECT_EQ(80u * 128 - uint64_t{nRows} * nColumns, books.PixelsOutside);
    EXPECT_EQ(1u, log.Count("pixels outside the image of 96 x 64"));

    TVXCameraHardware hardware{};
    int size = sizeof hardware;
    EXPECT_EQ(0, VXGetCameraHardwareInfo(handle, &hardware, &size));
    EXPECT_EQ(80, hardware.Rows);
    EXPECT_EQ(128, hardware.Columns);
    tcImage<uint16_t> larger(80, 128);
    EXPECT_EQ(0, Read(larger));
    EXPECT_EQ(80 + 128 - 1, larger.At(79, 127));
    EXPECT_TRUE(larger.IsUntouchedOutside(0, 0, 80, 128));
    EXPECT_EQ(books.PixelsOutside, Books().PixelsOutside);
}

TEST_F(Faults, OfACameraThatComesBackSmallerLeaveTheRestAlone)
{
    OpenWith({"reboot-resized:packet=21,seconds=0.1,rows=32,columns=48"});
    tcImage<uint16_t> image(nRows, nColumns);
    EXPECT_EQ(0, Lose(image));
    EXPECT_TRUE(AwaitUnderstanding());
    Prepare();
    image.Mark();
    EXPECT_EQ(0, VXSetCCDArea(handle, 0, 0, 48, 32));
    EXPECT_EQ(0, Read(image));
    EXPECT_TRUE(image.IsUntouchedOutside(0, 0, 32, 48));
    EXPECT_EQ(32 + 48 - 1, image.At(31, 47));
    EXPECT_EQ(0u, Books().PixelsOutside);
}

TEST_F(Faults, OfTheCoolerShowInTheTemperaturesOnly)
{
    tsSimOptions options = With({"cooler-failure:id=0x69,time=0.5"});
    options.timeScale = 1000;
    options.heartbeatSeconds = 0.01;
    OpenWith(options);
    EXPECT_EQ(0, VXSetCCDTargetTemp(handle, -20));
    EXPECT_EQ(0, VXSetCooling(handle, 1));
    auto temperature = [&] {
        short tenths = 0;
        EXPECT_EQ(0, VXGetCCDTemp(handle, &tenths));
        return tenths;
    };
    EXPECT_TRUE(WaitUntil([&] { return temperature() == -200; }));
    EXPECT_TRUE(WaitUntil([&] { return temperature() == 200; }));
    int cooling = 0;
    float target = 0;
    EXPECT_EQ(0, VXGetCooling(handle, &cooling));
    EXPECT_EQ(0, VXGetCCDTargetTemp(handle, &target));
    EXPECT_EQ(1, cooling);
    EXPECT_EQ(-20, target);
    EXPECT_GE(Books().HeartBeats, 10u);
    EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST_F(Faults, OfManyWordsAreAllTold)
{
    OpenWith({"error-storm:id=0x60,count=1000,code=7,subcode=3"});
    long exposure = 0;
    EXPECT_LT(Timed([&] { EXPECT_EQ(0, VXGetExposureTime(handle, &exposure)); }), gnQuick);
    EXPECT_TRUE(WaitUntil([&] { return events.Errors().size() == 1000; }));
    EXPECT_EQ(7, events.Errors()[999].code);
    EXPECT_EQ("error 1000 of 1000", events.Errors()[999].text);
    EXPECT_EQ(1u, log.Count("VXCAMERA: 7-3 error 500 of 1000"));
    EXPECT_EQ(1000u, Books().CameraErrors);
    ExpectWhole();
}

TEST_F(Faults, OfTheHeartbeatLeaveTheLastTemperature)
{
    tsSimOptions options = With({"heartbeat-stop:id=0x69,message=3"});
    options.heartbeatSeconds = 0.01;
    options.ambient = 12.5;
    OpenWith(options);
    ASSERT_TRUE(WaitUntil([&] { return Struck() == 1; }));
    ASSERT_TRUE(WaitUntil([&] { return Books().HeartBeats >= 3; }));
    std::this_thread::sleep_for(milliseconds(100)); // ten beats that do not come
    EXPECT_EQ(3u, Books().HeartBeats);
    short tenths = 0;
    EXPECT_EQ(0, VXGetCCDTemp(handle, &tenths));
    EXPECT_EQ(125, tenths);
    EXPECT_THAT(log.Texts(), IsEmpty());
    ExpectWhole();
}
