#include "tool_support.h"

#include <gmock/gmock.h>

using testing::HasSubstr;
using testing::StartsWith;

namespace {

// A camera that is spoken for by the test once the program watches it.
class Watch : public testing::Test
{
protected:
    std::string Target() const { return "127.0.0.1:" + std::to_string(camera.Port()); }

    // Answers what an opening asks until the program says that it watches.
    void Open(const tcRun& run)
    {
        ASSERT_TRUE(camera.Accept());
        ASSERT_TRUE(WaitUntil([&] {
            Answer();
            return run.Output().find("watching ") != std::string::npos;
        }));
    }
    // One message, if there is one.
    void Answer()
    {
        const uint32_t id = IdOf(camera.ReadMessage(std::chrono::milliseconds(20)));
        if (id == 0x34) camera.Send(HardwareAnswer(4, 8));
        if (id == 0x30) camera.Send(MessageBytes(0x60, LittleEndian(5, 4)));
    }

    tcScriptedCamera camera;
};

std::vector<nlohmann::json> JsonLines(const std::string& text)
{
    std::vector<nlohmann::json> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(nlohmann::json::parse(line));
    }
    return lines;
}

} // namespace

TEST_F(Watch, TellsHeartbeatsWithTheirInterval)
{
    tcRun run({"watch", "sim", "--count", "3", "--json", "--sim-sensor", "64x32"});
    EXPECT_EQ(run.Exit(), 0);
    const std::vector<nlohmann::json> lines = JsonLines(run.Output());
    ASSERT_EQ(lines.size(), 4u);
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(lines[i]["event"], "heartbeat");
        EXPECT_EQ(lines[i]["ccd_c"], 20.0);
        EXPECT_EQ(lines[i]["board_c"], 25.0);
        EXPECT_EQ(lines[i]["time"].get<std::string>().size(), 24u);
    }
    EXPECT_FALSE(lines[0].contains("interval_s"));
    EXPECT_NEAR(lines[1]["interval_s"], 0.2, 0.19);
    EXPECT_EQ(lines[3]["event"], "end");
    EXPECT_EQ(lines[3]["heartbeats"], 3);
    EXPECT_EQ(lines[3]["breaks"], 0);
    EXPECT_GE(lines[3]["bytes_received"], 3 * (12 + 6));
    EXPECT_EQ(lines[3]["messages_bad"], 0);
}

TEST_F(Watch, EndsAfterItsTime)
{
    const auto start = std::chrono::steady_clock::now();
    tcRun run({"watch", "--for", "300ms", "--sim-sensor", "64x32"});
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
    EXPECT_THAT(run.Output(), StartsWith("watching simulated camera\n"));
    EXPECT_THAT(run.Output(), HasSubstr("Z  heartbeat  sensor 20.0 C, board 25.0 C\n"));
    EXPECT_THAT(run.Output(), HasSubstr(" 0 errors, 0 messages, connection broken 0 times, "));
}

TEST_F(Watch, TellsErrorsAndMessages)
{
    tcRun run({"watch", Target(), "-n", "3"});
    Open(run);
    camera.Send(MessageBytes(0x75, std::string("\7\3shutter\nstuck") + '\0'));
    camera.Send(MessageBytes(0xC5, std::string("\1\2\xFF", 3)));
    camera.Send(MessageBytes(0xC6, ""));
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_THAT(run.Output(), HasSubstr("Z  error      7-3: shutter\\nstuck\n"));
    EXPECT_THAT(run.Output(), HasSubstr("Z  message    id 0xc5, 3 bytes: 0x0102ff\n"));
    EXPECT_THAT(run.Output(), HasSubstr("Z  message    id 0xc6, 0 bytes\n"));
    EXPECT_THAT(run.Output(), HasSubstr(" 0 heartbeats, 1 errors, 2 messages, connection "
                                        "broken 0 times, "));
}

TEST_F(Watch, TellsWhenTheConnectionBreaksAndReturns)
{
    tcRun run({"watch", Target(), "-n", "2"});
    Open(run);
    camera.SwitchOff();
    camera.Reset();
    EXPECT_TRUE(WaitUntil([&] {
        return run.Output().find("connection is broken, or the camera") != std::string::npos;
    })) << run.Output();
    camera.SwitchOn();
    ASSERT_TRUE(camera.Accept());
    EXPECT_TRUE(WaitUntil([&] {
        Answer();
        return run.Output().find("connection is back") != std::string::npos;
    })) << run.Output();
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_THAT(run.Output(), HasSubstr("connection broken 1 times, "));
}

TEST_F(Watch, CtrlCEndsIt)
{
    for (const char* form : {"--json", "-v"}) {
        tcRun run({"watch", "sim", "--sim-sensor", "64x32", form});
        ASSERT_TRUE(WaitUntil([&] { return Lines(run.Output()) > 1; }));
        run.Signal(SIGINT);
        EXPECT_EQ(run.Exit(), 130);
        EXPECT_EQ(run.Errors(), "vxcam: interrupted\n");
        EXPECT_THAT(run.Output(),
                    HasSubstr(form[2] == 'j' ? "{\"event\":\"end\"" : " heartbeats,"));
    }
}

TEST_F(Watch, NeedsACamera)
{
    camera.SwitchOff();
    tcRun run({"watch", Target()});
    EXPECT_EQ(run.Exit(), 2);
    tcRun soon({"watch", Target(), "--for", "soon"});
    EXPECT_EQ(soon.Exit(), 1);
}
