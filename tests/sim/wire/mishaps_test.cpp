// Faults of the connection and of the camera as a whole.
#include "RawClient.h"

#include <cstring>

namespace {

double SecondsSince(std::chrono::steady_clock::time_point begin)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

tpBytes FirstBytes(size_t count)
{
    tpBytes bytes = Joined(tcFaultyCamera::Healthy());
    bytes.resize(count);
    return bytes;
}

struct tsEnding {
    const char* name;
    const char* fault;
    size_t bytes; // that still arrive
    teEnd end;
};

void PrintTo(const tsEnding& one, std::ostream* out)
{
    *out << one.fault;
}

class SimFaultOfConnection : public testing::TestWithParam<tsEnding>
{};

constexpr size_t gnPackets = tcFaultyCamera::nAnswerBytes;
constexpr size_t gnPacket = tcFaultyCamera::nPacketBytes;

} // namespace

TEST_P(SimFaultOfConnection, EndsItWhereItIsToldTo)
{
    tcFaultyCamera camera({GetParam().fault});
    camera.Ask();
    const tsRead read = camera.Read(10000);
    EXPECT_EQ(read.end, GetParam().end);
    if (GetParam().end == teEnd::eClosed) {
        EXPECT_EQ(read.bytes, FirstBytes(GetParam().bytes));
    }
    EXPECT_EQ(camera.Server().Statistics().bytesSent, GetParam().bytes);
    camera.Connect(); // and the next connection is whole
    EXPECT_TRUE(camera.Echoes());
}

INSTANTIATE_TEST_SUITE_P(
    All, SimFaultOfConnection,
    testing::Values(tsEnding{"InFrontOfAMessage", "close:message=2", 16, teEnd::eClosed},
                    tsEnding{"AtAByte", "close:byte=50", 50, teEnd::eClosed},
                    tsEnding{"InAHeader", "close-header:message=2", 22, teEnd::eClosed},
                    tsEnding{"InTheHeaderOfAPacket", "close-header:packet=2,bytes=1",
                             gnPackets + gnPacket + 1, teEnd::eClosed},
                    tsEnding{"InAPayload", "close-payload:packet=3", gnPackets + 2 * gnPacket + 28,
                             teEnd::eClosed},
                    tsEnding{"BehindTheFirstPayloadByte", "close-payload:message=1,bytes=1", 13,
                             teEnd::eClosed},
                    tsEnding{"ByAReset", "reset:message=2,bytes=5", 21, teEnd::eReset},
                    tsEnding{"ByAResetAtAByte", "reset:byte=60", 60, teEnd::eReset}),
    [](const auto& one) { return std::string(one.param.name); });

TEST(SimFaults, CloseAConnectionOnWhichNothingIsSent)
{
    for (const char* fault : {"close:time=0.05", "reset:time=0.05"}) {
        const auto begin = std::chrono::steady_clock::now();
        tcFaultyCamera camera({fault});
        const tsRead read = camera.Read(1);
        EXPECT_NE(read.end, teEnd::eNothing);
        EXPECT_EQ(read.end == teEnd::eReset, fault[0] == 'r');
        EXPECT_GE(SecondsSince(begin), 0.04);
        EXPECT_EQ(camera.Server().Statistics().faults, 1u);
    }
}

TEST(SimFaults, LeaveAConnectionHalfOpen)
{
    tcFaultyCamera camera({"half-open:packet=2"});
    camera.Ask();
    const size_t sent = gnPackets + gnPacket;
    EXPECT_EQ(camera.Read(sent).bytes, FirstBytes(sent));
    const uint64_t before = camera.Server().Statistics().bytesReceived;
    camera.Client().SendCommand(cmdGetGPIO);
    EXPECT_TRUE(Eventually([&] { // it still reads
        return camera.Server().Statistics().bytesReceived == before + 12;
    }));
    const tsRead more = camera.Read(1, 50);
    EXPECT_TRUE(more.bytes.empty());
    EXPECT_EQ(more.end, teEnd::eNothing);
    camera.Connect();
    EXPECT_TRUE(camera.Echoes());
}

TEST(SimFaults, StallAConnectionAndGoOn)
{
    tcFaultyCamera camera({"stall:packet=2,seconds=0.15"});
    const auto begin = std::chrono::steady_clock::now();
    camera.Ask();
    const size_t before = gnPackets + gnPacket;
    EXPECT_EQ(camera.Read(before).bytes.size(), before);
    const size_t rest = tcFaultyCamera::nHealthyBytes - before;
    tpBytes all = FirstBytes(tcFaultyCamera::nHealthyBytes);
    all.erase(all.begin(), all.begin() + static_cast<ptrdiff_t>(before));
    EXPECT_EQ(camera.Read(rest).bytes, all);
    EXPECT_GE(SecondsSince(begin), 0.15);
    EXPECT_TRUE(camera.Echoes());
}

TEST(SimFaults, StallInTheMiddleOfAMessage)
{
    tcFaultyCamera camera({"stall:byte=20,seconds=3"});
    const auto begin = std::chrono::steady_clock::now();
    camera.Ask();
    EXPECT_EQ(camera.Read(20).bytes.size(), 20u);
    const double first = SecondsSince(begin);
    EXPECT_EQ(camera.Read(tcFaultyCamera::nHealthyBytes - 20).bytes.size(),
              tcFaultyCamera::nHealthyBytes - 20);
    EXPECT_GE(SecondsSince(begin), 3.0);
    EXPECT_LT(first, 2.9) << "the 20 bytes came at once";
}

TEST(SimFaults, LetAConnectionDrip)
{
    tcFaultyCamera camera({"drip:rate=1000"});
    const auto begin = std::chrono::steady_clock::now();
    camera.Ask();
    EXPECT_EQ(camera.Read(tcFaultyCamera::nHealthyBytes).bytes,
              FirstBytes(tcFaultyCamera::nHealthyBytes));
    EXPECT_GE(SecondsSince(begin), 0.8 * tcFaultyCamera::nHealthyBytes / 1000.0);
}

TEST(SimFaults, LetAConnectionDripForAWhile)
{
    tcFaultyCamera camera({"drip:rate=10,seconds=0.2"});
    const auto begin = std::chrono::steady_clock::now();
    camera.Ask();
    camera.Read(tcFaultyCamera::nHealthyBytes);
    EXPECT_GE(SecondsSince(begin), 0.2);
    EXPECT_LT(SecondsSince(begin), 10) << "not the 20 s of the whole";
}

TEST(SimFaults, StopReadingForAWhile)
{
    tcFaultyCamera camera({"stop-reading:message=1,seconds=0.2"});
    const auto begin = std::chrono::steady_clock::now();
    camera.Client().SendCommand(cmdGetGPIO);
    camera.Read(16);
    camera.Client().SendCommand(cmdGetGPIO); // one read may have been under way
    camera.Read(16);
    camera.Client().SendCommand(cmdGetGPIO);
    EXPECT_EQ(camera.Read(16).bytes.size(), 16u);
    EXPECT_GE(SecondsSince(begin), 0.2);
}

TEST(SimFaults, StopReadingForGoodSoThatTheOtherSideCannotSend)
{
    tcFaultyCamera camera({"stop-reading:time=0"});
    ASSERT_TRUE(Eventually([&] { return camera.Server().Statistics().faults == 1; }));
    const tpBytes bytes(65536);
    size_t taken = 0;
    for (;;) {
        pollfd state{camera.Client().Descriptor(), POLLOUT, 0};
        if (poll(&state, 1, 100) == 0) break;
        const ssize_t sent = send(camera.Client().Descriptor(), bytes.data(), bytes.size(),
                                  MSG_NOSIGNAL | MSG_DONTWAIT);
        ASSERT_GT(sent, 0);
        taken += static_cast<size_t>(sent);
        ASSERT_LT(taken, size_t{64} * 1024 * 1024);
    }
    EXPECT_LE(camera.Server().Statistics().bytesReceived, 65536u);
}

TEST(SimFaults, RefuseASecondClientWithoutAWord)
{
    tcFaultyCamera camera({"refuse:silent=1"});
    EXPECT_TRUE(camera.Echoes());
    tcSimTestClient second(camera.Port());
    const tsRead silent = ReadBytes(second.Descriptor(), 1000);
    EXPECT_TRUE(silent.bytes.empty());
    EXPECT_NE(silent.end, teEnd::eNothing);
    tcSimTestClient third(camera.Port());
    EXPECT_EQ(third.Receive().id, ansCameraError.id) << "once only";
    EXPECT_EQ(camera.Server().Statistics().refused, 2u);
    EXPECT_TRUE(camera.Echoes());
}

TEST(SimFaults, RefuseAClientThoughTheCameraIsFree)
{
    tcFaultyCamera camera({"refuse:connection=1", "refuse:connection=2,silent=1"});
    EXPECT_EQ(camera.Client().Receive().id, ansCameraError.id);
    camera.Connect();
    EXPECT_TRUE(camera.Read(1).bytes.empty());
    camera.Connect();
    EXPECT_TRUE(camera.Echoes());
    EXPECT_EQ(camera.Server().Statistics().connections, 1u);
}

TEST(SimFaults, RebootTheCamera)
{
    tcFaultyCamera camera({"reboot:id=0x1234,seconds=0.8"});
    camera.Client().SendCommand(cmdSetExposure, {1234});
    const auto asked = camera.Client().Ask<tsWordMsg>(cmdGetExposureTime);
    EXPECT_EQ(asked.Value, 1234u);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(camera.Echoes());
    camera.Connect();
    EXPECT_FALSE(camera.Client().Connected()) << "refused meanwhile";
    ASSERT_TRUE(Eventually([&] {
        camera.Connect();
        return camera.Client().Connected();
    }));
    EXPECT_GE(SecondsSince(begin), 0.8);
    const auto after = camera.Client().Ask<tsWordMsg>(cmdGetExposureTime);
    EXPECT_EQ(after.Value, 1000u) << "as at power-up";
    camera.Client().SendCommand(cmdSetExposure, {0});
    camera.Client().SendCommand(cmdReadCCDArea, {0, 0, 0, 0, 1, 0});
    EXPECT_TRUE(camera.Client().ReceiveFrame().complete);
}

TEST(SimFaults, RebootTheCameraWithAnotherSensor)
{
    tcFaultyCamera camera({"reboot-resized:packet=2,seconds=0.02,rows=6,columns=10"});
    camera.Ask();
    EXPECT_EQ(camera.Read(10000).end, teEnd::eReset);
    ASSERT_TRUE(Eventually([&] {
        camera.Connect();
        return camera.Client().Connected();
    }));
    const auto hardware = camera.Client().Ask<TVXCameraHardware>(cmdGetCameraHardwareInfo);
    EXPECT_EQ(hardware.Rows, 6);
    EXPECT_EQ(hardware.Columns, 10);
    camera.Client().SendCommand(cmdSetExposure, {0});
    camera.Client().SendCommand(cmdReadCCDArea, {0, 0, 0, 0, 1, 0});
    const tsArrivedFrame frame = camera.Client().ReceiveFrame();
    EXPECT_EQ(frame.rows, 6u);
    EXPECT_EQ(frame.pixels.size(), 60u);
}

TEST(SimFaults, StopWhileTheCameraReboots)
{
    tcFaultyCamera camera({"reboot:time=0,seconds=100"});
    ASSERT_TRUE(Eventually([&] { return camera.Server().Statistics().faults == 1; }));
    camera.Server().Stop();
    camera.Server().Start();
    tcSimTestClient client(camera.Server().Port());
    EXPECT_TRUE(client.Connected());
}

TEST(SimFaults, LetTheCoolerFail)
{
    tsSimOptions options = tcFaultyCamera::Options({"cooler-failure:id=0x1234"});
    options.timeScale = 1e5;
    options.heartbeatSeconds = 0.01;
    tcFaultyCamera camera(options);
    camera.Client().SendCommand(cmdSetCooling, {1});
    camera.Client().SendCommand(cmdSetCCDTargetTemp, {-200});
    auto temperature = [&] {
        const auto beat = camera.Client().Await(ansHeartBeat.id).As<tsHeartBeatData>();
        return static_cast<int16_t>(beat.CCDTemp);
    };
    EXPECT_TRUE(Eventually([&] { return temperature() == -200; }));
    camera.Client().Settle();
    EXPECT_TRUE(Eventually([&] { return temperature() == 200; })) << "back to ambient";
    EXPECT_EQ(camera.Client().Ask<tsWordMsg>(cmdGetCoolParam).Value, 1u) << "without a word";
}

TEST(SimFaults, SendAStormOfErrors)
{
    tcFaultyCamera camera({"error-storm:message=2,count=1000,code=7,subcode=3"});
    camera.Ask();
    for (int i = 0; i < 1000; ++i) {
        const tsReceived message = camera.Client().Await(ansCameraError.id);
        ASSERT_EQ(message.id, ansCameraError.id) << i;
        ASSERT_EQ(message.payload[0], 7);
        ASSERT_EQ(message.payload[1], 3);
    }
    EXPECT_TRUE(Eventually([&] { return camera.Server().Statistics().framesComplete == 1; }));
    for (const tsReceived& message : camera.Client().Settle()) {
        EXPECT_NE(message.id, ansCameraError.id);
    }
    EXPECT_EQ(camera.Server().Statistics().cameraErrors, 1000u);
}

TEST(SimFaults, StopTheHeartbeats)
{
    tsSimOptions options =
        tcFaultyCamera::Options({"heartbeat-stop:id=0x69,message=3,seconds=0.2"});
    options.heartbeatSeconds = 0.01;
    const auto begin = std::chrono::steady_clock::now();
    tcFaultyCamera camera(options);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(camera.Client().Await(ansHeartBeat.id).id, ansHeartBeat.id);
    }
    EXPECT_GE(SecondsSince(begin), 0.2);
}

TEST(SimFaults, LetDiscoveryContradictItself)
{
    tsSimOptions options =
        tcFaultyCamera::Options({"discovery-conflict:port=0x0102,serial=0x03040506"});
    options.discovery = true;
    options.discoveryPort = 0;
    options.serial = 5;
    tcFaultyCamera camera(options);
    const int seeker = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(camera.Server().DiscoveryPort());
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const uint8_t request[8] = {0xCD, 0x0C, 0xCD, 0x0C, 0xCD, 0xAC, 0xED, 0xBE};
    sendto(seeker, request, sizeof request, 0, reinterpret_cast<sockaddr*>(&address),
           sizeof address);
    const tsRead first = ReadBytes(seeker, 24), second = ReadBytes(seeker, 24);
    close(seeker);
    ASSERT_EQ(first.bytes.size(), 24u);
    ASSERT_EQ(second.bytes.size(), 24u);
    EXPECT_EQ(WordAt(first.bytes, 8), camera.Port());
    EXPECT_EQ(WordAt(first.bytes, 16), 5);
    EXPECT_EQ(WordAt(second.bytes, 8), 0x0102);
    EXPECT_EQ(WordAt(second.bytes, 16), 0x0506);
    EXPECT_EQ(WordAt(second.bytes, 18), 0x0304);
}
