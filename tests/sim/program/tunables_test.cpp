// Values that change while the camera runs.
#include "SimClient.h"
#include "tcSimCooler.h"
#include "tcSimServer.h"

#include <chrono>
#include <mutex>

namespace {

// A camera whose values the test holds.
class Tunables : public testing::Test
{
protected:
    Tunables()
    {
        mtOptions.columns = 40;
        mtOptions.rows = 30;
        mtOptions.heartbeatSeconds = 0;
        mtValues.heartbeatSeconds = 0;
        mtOptions.tunables = [this] {
            const std::lock_guard<std::mutex> guard(mtMutex);
            return mtValues;
        };
    }
    template <class Value>
    void Set(Value tsSimTunables::*member, Value value)
    {
        const std::lock_guard<std::mutex> guard(mtMutex);
        mtValues.*member = value;
    }
    static constexpr uint64_t gnOffsets = 1000u * 40 * 30; // the sum of a frame without anything

    tsSimOptions mtOptions;
    std::mutex mtMutex;
    tsSimTunables mtValues;
};

} // namespace

TEST_F(Tunables, ShowInTheNextFrameOfARunningReadout)
{
    tcSimServer server(mtOptions);
    tcSimTestClient client(server.Start());
    client.SendCommand(cmdSetExposure, {0});
    client.SendCommand(cmdSetImageInterval, {300});
    client.SendCommand(cmdReadCCDArea, {0, 0, 0, 0, 3, 0});
    EXPECT_NE(client.ReceiveFrame().sum, gnOffsets);
    Set(&tsSimTunables::readNoise, 0.0);
    EXPECT_EQ(client.ReceiveFrame().sum, gnOffsets);
    Set(&tsSimTunables::readNoise, 50.0);
    EXPECT_NE(client.ReceiveFrame().sum, gnOffsets);
}

TEST_F(Tunables, ChangeSkyStarsAndHotPixels)
{
    mtOptions.timeScale = 1000;
    mtValues.readNoise = 0;
    tcSimServer server(mtOptions);
    tcSimTestClient client(server.Start());
    const auto frame = [&client] {
        client.SendCommand(cmdReadCCDArea, {0, 0, 0, 0, 1, 0});
        return client.ReceiveFrame().sum;
    };
    client.SendCommand(cmdSetExposure, {1000});
    Set(&tsSimTunables::stars, 0);
    const uint64_t empty = frame();
    Set(&tsSimTunables::sky, 550.0);
    const uint64_t bright = frame();
    EXPECT_NEAR(static_cast<double>(bright - empty), 500.0 * 40 * 30, 20000.0);
    Set(&tsSimTunables::sky, 50.0);
    Set(&tsSimTunables::stars, 300);
    EXPECT_GT(frame(), empty + 100000);
    Set(&tsSimTunables::stars, 0);
    EXPECT_NEAR(static_cast<double>(frame()), static_cast<double>(empty), 5000.0);
}

TEST_F(Tunables, ChangeTheTimeBetweenHeartbeats)
{
    tcSimServer server(mtOptions);
    tcSimTestClient client(server.Start());
    client.Settle();
    EXPECT_EQ(server.Statistics().heartbeats, 0u);
    Set(&tsSimTunables::heartbeatSeconds, 0.01);
    EXPECT_TRUE(Eventually([&] { return server.Statistics().heartbeats > 3; }));
}

TEST_F(Tunables, ChangeTheLineRate)
{
    tcSimServer server(mtOptions);
    tcSimTestClient client(server.Start());
    client.SendCommand(cmdSetExposure, {0});
    Set(&tsSimTunables::lineRate, 100.0);
    const auto start = std::chrono::steady_clock::now();
    client.SendCommand(cmdReadCCDArea, {0, 0, 0, 0, 1, 0});
    EXPECT_TRUE(client.ReceiveFrame().complete);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(250));
}

TEST_F(Tunables, ChangeTheAmbientTemperature)
{
    tcSimServer server(mtOptions);
    tcSimTestClient client(server.Start());
    Set(&tsSimTunables::ambient, 80.0);
    client.SendCommand(cmdSetExposure, {0});
    client.SendCommand(cmdReadCCDArea, {0, 0, 0, 0, 1, 0});
    EXPECT_TRUE(client.ReceiveFrame().complete);
    tcSimCooler cooler(20);
    cooler.SetAmbient(80, 0);
    EXPECT_EQ(cooler.Temperature(0), 20);
    EXPECT_NEAR(cooler.Temperature(1000), 80, 0.01);
    cooler.SetAmbient(80, 5); // the same again changes nothing
    EXPECT_NEAR(cooler.Temperature(1000), 80, 0.01);
}
