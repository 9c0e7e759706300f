#include <vxcamkit/error.h>
#include <vxcamkit/target.h>

#include <gtest/gtest.h>

using vxcam::Error;
using vxcam::ErrorKind;
using vxcam::Size;
using vxcam::Target;

TEST(Target, IsAHostAndAPort)
{
    const Target target = Target::parse("camera-3.lab:2000");
    EXPECT_EQ(target.kind, Target::Kind::Network);
    EXPECT_EQ(target.host, "camera-3.lab");
    EXPECT_EQ(target.port, 2000);
    EXPECT_EQ(target.text(), "camera-3.lab:2000");
}

TEST(Target, IsASerialNumber)
{
    const Target target = Target::parse("serial:4294967295");
    EXPECT_EQ(target.kind, Target::Kind::Serial);
    EXPECT_EQ(target.serial, 4294967295u);
    EXPECT_EQ(target.text(), "serial:4294967295");
}

TEST(Target, IsTheSimulatedCamera)
{
    const Target plain = Target::parse("sim");
    EXPECT_EQ(plain.kind, Target::Kind::Simulator);
    EXPECT_EQ(plain.simulator.sensor, (Size{2048, 2048}));
    const Target target = Target::parse(
        "sim?sensor=1024x512&seed=3&scale=2.5&heartbeat=0&fault-seed=9&fault=stall:packet=20,"
        "seconds=0.5&fault=reset");
    EXPECT_EQ(target.kind, Target::Kind::Simulator);
    EXPECT_EQ(target.simulator.sensor, (Size{1024, 512}));
    EXPECT_EQ(target.simulator.seed, 3u);
    EXPECT_EQ(target.simulator.timeScale, 2.5);
    EXPECT_EQ(target.simulator.heartbeatSeconds, 0);
    EXPECT_EQ(target.simulator.faultSeed, 9u);
    EXPECT_EQ(target.simulator.faults,
              (std::vector<std::string>{"stall:packet=20,seconds=0.5", "reset"}));
    EXPECT_EQ(target.text(), "sim");
}

TEST(Target, RefusesWhatIsNone)
{
    for (const char* text : {"",
                             ":",
                             "host",
                             "host:",
                             ":2000",
                             "host:0",
                             "host:65536",
                             "host:-1",
                             "host:20x",
                             "host:1:2",
                             "a host:20",
                             "serial:",
                             "serial:-1",
                             "serial:4294967296",
                             "serial:1x",
                             "simu",
                             "sim?",
                             "sim?sensor",
                             "sim?sensor=0x5",
                             "sim?sensor=5",
                             "sim?sensor=5x6x7",
                             "sim?sensor=16385x1",
                             "sim?seed=",
                             "sim?seed=-1",
                             "sim?seed=1&seed=2",
                             "sim?scale=0",
                             "sim?scale=-1",
                             "sim?scale=nan",
                             "sim?scale=inf",
                             "sim?color=red",
                             "sim?fault=",
                             "sim?heartbeat=-1",
                             "sim&seed=1"}) {
        try {
            Target::parse(text);
            ADD_FAILURE() << text;
        } catch (const Error& error) {
            EXPECT_EQ(error.kind(), ErrorKind::Usage) << text;
            EXPECT_NE(std::string(error.what()).find("'" + std::string(text) + "'"),
                      std::string::npos)
                << error.what();
        }
    }
}
