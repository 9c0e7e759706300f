// Connections: who is served, what is not understood, how it ends.
#include "SimClient.h"
#include "tcSimServer.h"

#include <mutex>
#include <stdexcept>
#include <system_error>

namespace {

tsSimOptions Options()
{
    tsSimOptions options;
    options.columns = 64;
    options.rows = 32;
    options.heartbeatSeconds = 0;
    return options;
}

std::string TextOf(const tsReceived& message)
{
    return std::string(message.payload.begin() + 2, message.payload.end() - 1);
}

} // namespace

TEST(SimServer, ListensOnAFreePortAndCanBeStartedAgain)
{
    tcSimServer server(Options());
    EXPECT_EQ(server.Port(), 0);
    for (int i = 0; i < 3; ++i) {
        const uint16_t port = server.Start();
        EXPECT_NE(port, 0);
        EXPECT_EQ(server.Port(), port);
        tcSimTestClient client(port);
        client.SendCommand(cmdGetExposureTime);
        EXPECT_EQ(client.Receive().id, ansExposure.id);
        EXPECT_THROW(server.Start(), std::runtime_error);
        server.Stop();
        server.Stop();
        EXPECT_EQ(server.Port(), 0);
        EXPECT_EQ(client.Receive().id, 0u);
        EXPECT_TRUE(client.mbEnded) << "closed in order";
        tcSimTestClient late(port);
        EXPECT_FALSE(late.Connected());
    }
}

TEST(SimServer, SaysWhichOptionIsImpossible)
{
    auto refused = [](void (*change)(tsSimOptions&)) {
        tsSimOptions options = Options();
        change(options);
        try {
            tcSimServer server(options);
        } catch (const std::runtime_error& error) {
            return std::string(error.what());
        }
        return std::string();
    };
    EXPECT_NE(refused([](tsSimOptions& o) { o.columns = 0; }).find("sensor"), std::string::npos);
    EXPECT_NE(refused([](tsSimOptions& o) { o.rows = 16385; }).find("sensor"), std::string::npos);
    EXPECT_NE(refused([](tsSimOptions& o) { o.rows = o.columns = 16384; }).find("pixels"),
              std::string::npos);
    EXPECT_NE(refused([](tsSimOptions& o) { o.timeScale = 0; }).find("time scale"),
              std::string::npos);
    EXPECT_NE(refused([](tsSimOptions& o) { o.lineRate = -1; }).find("line rate"),
              std::string::npos);
    EXPECT_NE(refused([](tsSimOptions& o) { o.heartbeatSeconds = -1; }).find("heartbeat"),
              std::string::npos);
    EXPECT_NE(refused([](tsSimOptions& o) { o.bind = "nowhere"; }).find("nowhere"),
              std::string::npos);
    EXPECT_NE(refused([](tsSimOptions& o) { o.ambient = 101; }).find("ambient"), std::string::npos);
    EXPECT_EQ(refused([](tsSimOptions&) {}), "");
}

TEST(SimServer, TellsWhenItsPortIsTaken)
{
    tcSimServer first(Options());
    tsSimOptions same = Options();
    same.port = first.Start();
    tcSimServer second(same);
    try {
        second.Start();
        FAIL();
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::address_in_use);
    }
    first.Stop();
    EXPECT_EQ(second.Start(), same.port) << "and can try again";
}

TEST(SimServer, SendsHeartbeatsInTenthsOfADegree)
{
    tsSimOptions options = Options();
    options.heartbeatSeconds = 0.005;
    options.ambient = -3.5;
    tcSimServer server(options);
    tcSimTestClient client(server.Start());
    for (int i = 0; i < 3; ++i) {
        const tsReceived message = client.Receive();
        ASSERT_EQ(message.id, ansHeartBeat.id);
        EXPECT_EQ(message.sequence, i);
        const auto heartbeat = message.As<tsHeartBeatData>();
        EXPECT_EQ(static_cast<int16_t>(heartbeat.CCDTemp), -35);
        EXPECT_EQ(static_cast<int16_t>(heartbeat.BoardTemp), 15);
    }
    EXPECT_GE(server.Statistics().heartbeats, 3u);
}

TEST(SimServer, BeatsEverySecondByDefault)
{
    tsSimOptions options = Options();
    options.heartbeatSeconds = tsSimOptions().heartbeatSeconds;
    tcSimServer server(options);
    const auto begin = std::chrono::steady_clock::now();
    tcSimTestClient client(server.Start());
    EXPECT_EQ(client.Receive().id, ansHeartBeat.id);
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
    EXPECT_NEAR(taken.count(), 1.0, 0.5);
}

TEST(SimServer, SendsTheNoOpsAskedForAndNoMore)
{
    tcSimServer server(Options());
    tcSimTestClient client(server.Start());
    client.SendCommand(cmdEnableNoOps, {4, 2});
    for (int i = 0; i < 4; ++i) {
        const tsReceived message = client.Receive();
        EXPECT_EQ(message.id, ansIgnored68.id);
        EXPECT_TRUE(message.payload.empty());
    }
    EXPECT_EQ(client.Receive(30).id, 0u);
    client.SendCommand(cmdEnableNoOps, {1000000, 1});
    EXPECT_EQ(client.Receive().id, ansIgnored68.id);
    client.SendCommand(cmdEnableNoOps, {0, 0});
    client.Settle();
    EXPECT_EQ(client.Receive(30).id, 0u);
}

TEST(SimServer, IgnoresAMessageOfAnotherVersionWithAnError)
{
    tcSimServer server(Options());
    tcSimTestClient client(server.Start());
    const uint32_t exposure = 5;
    std::vector<uint8_t> payload(4);
    std::memcpy(payload.data(), &exposure, 4);
    for (uint8_t version : {0, 2, 4, 255}) {
        client.Send(cmdSetExposure.id, payload, version);
        const tsReceived message = client.Receive();
        EXPECT_EQ(message.id, ansCameraError.id);
        EXPECT_EQ(message.payload[0], 1);
        EXPECT_EQ(message.payload[1], 1);
        EXPECT_NE(TextOf(message).find("version " + std::to_string(version)), std::string::npos);
    }
    EXPECT_EQ(client.Ask<tsWordMsg>(cmdGetExposureTime).Value, 1000u);
    EXPECT_EQ(server.Statistics().protocolErrors, 4u);
}

TEST(SimServer, IgnoresUnknownIdsWithAnError)
{
    tcSimServer server(Options());
    tcSimTestClient client(server.Start());
    for (uint32_t id : {0x00u, 0x26u, 0x60u, 0x66u, 0xBFu}) {
        client.Send(id, {1, 2});
        const tsReceived message = client.Receive();
        EXPECT_EQ(message.id, ansCameraError.id) << id;
        EXPECT_EQ(message.payload[1], 3) << id;
    }
}

TEST(SimServer, FindsTheNextMessageAfterGarbage)
{
    tcSimServer server(Options());
    tcSimTestClient client(server.Start());
    client.SendBytes("garbage P\xfa", 11);
    const std::vector<uint8_t> tooLong{0xFF, 0xFF, 0, 0, 0, 0, 3, 0x20, 0, 0};
    client.SendBytes(tooLong.data(), tooLong.size());
    client.SendCommand(cmdGetExposureTime);
    const tsReceived error = client.Receive();
    EXPECT_EQ(error.id, ansCameraError.id);
    EXPECT_EQ(error.payload[1], 4);
    EXPECT_EQ(client.Receive().id, ansExposure.id);
    EXPECT_TRUE(Eventually([&] { return server.Statistics().skippedBytes == 21; }));
}

TEST(SimServer, RefusesASecondClientWithATextAndCloses)
{
    tcSimServer server(Options());
    tcSimTestClient first(server.Start());
    first.Settle();
    for (int i = 0; i < 3; ++i) {
        tcSimTestClient second(server.Port());
        second.SendCommand(cmdGetCameraHardwareInfo); // unread by the camera
        second.Send(0xC0, std::vector<uint8_t>(10000));
        const tsReceived message = second.Receive();
        ASSERT_EQ(message.id, ansCameraError.id);
        EXPECT_EQ(message.version, 3);
        EXPECT_EQ(message.payload[0], 2);
        EXPECT_EQ(message.payload[1], 2);
        EXPECT_EQ(TextOf(message), "the camera is in use by another client");
        EXPECT_EQ(second.Receive().id, 0u);
        EXPECT_TRUE(second.mbEnded) << "in order, not by a reset";
    }
    first.SendCommand(cmdGetExposureTime);
    EXPECT_EQ(first.Receive().id, ansExposure.id) << "the first is not disturbed";
    EXPECT_EQ(server.Statistics().refused, 3u);
    EXPECT_EQ(server.Statistics().connections, 1u);
}

TEST(SimServer, IsFreeAtOnceWhenTheClientHasLeft)
{
    tcSimServer server(Options());
    const uint16_t port = server.Start();
    for (uint32_t i = 1; i <= 50; ++i) {
        tcSimTestClient client(port);
        EXPECT_EQ(client.Ask<tsWordMsg>(cmdGetExposureTime).Value, i == 1 ? 1000u : i - 1);
        client.SendCommand(cmdSetExposure, {i}); // and leaves without waiting
    }
    EXPECT_EQ(server.Statistics().refused, 0u);
}

TEST(SimServer, IsFreeAtOnceAfterAResetInTheMiddleOfAFrame)
{
    tsSimOptions options = Options();
    options.lineRate = 50;
    tcSimServer server(options);
    const uint16_t port = server.Start();
    for (int i = 0; i < 10; ++i) {
        tcSimTestClient client(port);
        client.SendCommand(cmdSetExposure, {0});
        client.SendCommand(cmdReadCCDArea, {0, 0, 0, 0, 1, 0});
        ASSERT_EQ(client.Await(ansPixels16.id).id, ansPixels16.id);
        const linger reset{1, 0};
        setsockopt(client.Descriptor(), SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    }
    EXPECT_TRUE(Eventually([&] { return !server.Statistics().connected; }));
    EXPECT_EQ(server.Statistics().refused, 0u);
    EXPECT_EQ(server.Statistics().framesAborted, 10u);
    EXPECT_TRUE(server.Frames().back().aborted);
}

TEST(SimServer, StopsInTheMiddleOfEverything)
{
    for (int round = 0; round < 10; ++round) {
        tsSimOptions options = Options();
        options.columns = options.rows = 512;
        tcSimServer server(options);
        tcSimTestClient client(server.Start());
        tcSimTestClient refused(server.Port());
        client.SendCommand(cmdSetExposure, {static_cast<uint32_t>(round % 3)});
        client.SendCommand(cmdReadCCDArea, {0, 0, 0, 0, 0, 0});
        if (round % 2) client.Await(ansPixels16.id);
        server.Stop();
        EXPECT_FALSE(server.Statistics().connected);
    }
}

TEST(SimServer, DoesNotHoardAnswersNobodyReads)
{
    tcSimServer server(Options());
    tcSimTestClient client(server.Start());
    const std::vector<uint8_t> frame =
        tcSimTestClient::Frame(0xC0, std::vector<uint8_t>(16000).data(), 16000);
    size_t sent = 0; // until neither side of the connection takes any more
    for (pollfd state{client.Descriptor(), POLLOUT, 0};
         sent < (size_t{1} << 30) && poll(&state, 1, 300) == 1;) {
        const ssize_t bytes = send(client.Descriptor(), frame.data() + sent % frame.size(),
                                   frame.size() - sent % frame.size(), MSG_DONTWAIT);
        if (bytes > 0) sent += static_cast<size_t>(bytes);
    }
    EXPECT_LT(sent, size_t{1} << 27);
    for (size_t i = 0; i < sent / frame.size(); ++i) {
        ASSERT_EQ(client.Receive().payload.size(), 16000u) << "and none is lost";
    }
}

TEST(SimServer, RaisesEvents)
{
    std::mutex mutex;
    std::vector<tsSimEvent> events;
    tsSimOptions options = Options();
    options.trace = true;
    options.events = [&](const tsSimEvent& event) {
        std::lock_guard<std::mutex> lock(mutex);
        events.push_back(event);
    };
    tcSimServer server(options);
    auto count = [&](teSimEvent kind, const std::string& part) {
        std::lock_guard<std::mutex> lock(mutex);
        return std::count_if(events.begin(), events.end(), [&](const tsSimEvent& event) {
            return event.event == kind && event.text.find(part) != std::string::npos;
        });
    };
    {
        tcSimTestClient client(server.Start());
        client.SendCommand(cmdSetExposure, {0});
        client.SendCommand(cmdReadCCDArea, {0, 0, 0, 0, 1, 0});
        ASSERT_TRUE(client.ReceiveFrame().complete);
        tcSimTestClient second(server.Port());
        EXPECT_EQ(second.Receive().id, ansCameraError.id);
        client.SendCommand(cmdSetGain, {99});
        client.Settle();
    }
    EXPECT_TRUE(Eventually([&] { return count(teSimEvent::eDisconnected, "client") == 1; }));
    EXPECT_EQ(count(teSimEvent::eListening, "listening on 127.0.0.1:"), 1);
    EXPECT_EQ(count(teSimEvent::eConnected, "127.0.0.1:"), 1);
    EXPECT_EQ(count(teSimEvent::eRefused, "in use"), 1);
    EXPECT_EQ(count(teSimEvent::eReadout, "ReadCCDArea"), 1);
    EXPECT_EQ(count(teSimEvent::eFrame, "sum " + std::to_string(server.Frames().at(0).pixelSum)),
              1);
    EXPECT_EQ(count(teSimEvent::eError, "gain 99"), 1);
    EXPECT_EQ(count(teSimEvent::eTrace, "SetGain"), 1);
}
