#include "tool_support.h"

#include <gmock/gmock.h>

using testing::HasSubstr;
using testing::Not;

TEST(Info, TellsWhatTheCameraIs)
{
    tcRun run({"info", "--sim-sensor", "64x32"});
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_EQ(run.Errors(), "");
    for (const char* line :
         {"target            simulated camera\n", "sensor            64 x 32 pixels\n",
          "serial number     1\n", "version           1.0\n", "library           3.0.7\n",
          "ccd-temp          20C\n", "gain-config       0,1,7\n", "cooling           off\n",
          "network-config    0x0100007f,0x000000ff,"}) {
        EXPECT_THAT(run.Output(), HasSubstr(line));
    }
}

TEST(Info, DocumentHoldsTheSame)
{
    tcRun run({"info", "sim", "--json", "--sim-sensor", "64x32"});
    EXPECT_EQ(run.Exit(), 0);
    const nlohmann::json document = run.Document();
    EXPECT_EQ(document["sensor"], nlohmann::json({{"columns", 64}, {"rows", 32}}));
    EXPECT_EQ(document["name"], "vxcamsim");
    EXPECT_EQ(document["serial"], 1);
    EXPECT_EQ(document["bits"], 16);
    EXPECT_EQ(document["library"], "3.0.7");
    EXPECT_EQ(document["properties"]["ccd-temp"], 20.0);
    EXPECT_EQ(document["properties"]["gain-config"]["third"], 7);
}

// Complains about the question for the gain, has another layout of its hardware information, and
// sends no heartbeat.
TEST(Info, CameraThatKnowsLessTellsLess)
{
    std::map<uint32_t, std::string> answers;
    for (const auto& [question, answer] : std::map<uint32_t, uint32_t>{{0x16, 0x8C},
                                                                       {0x2B, 0x84},
                                                                       {0x31, 0x61},
                                                                       {0x3E, 0x73},
                                                                       {0x41, 0x76},
                                                                       {0x4E, 0x7B},
                                                                       {0x52, 0x7C},
                                                                       {0x5F, 0x87}}) {
        answers[question] = MessageBytes(answer, std::string(24, '\0'));
    }
    answers[0x2B] = MessageBytes(0x75, std::string("\1\3what?") + '\0') + answers[0x2B];
    tcActor camera(answers);
    tcRun run({"info", camera.Target()});
    EXPECT_EQ(run.Exit(), 0) << run.Errors();
    EXPECT_THAT(run.Output(), HasSubstr("cooling           off\n"));
    EXPECT_THAT(run.Output(), HasSubstr("gain-config       the camera reports error 1-3: what?\n"));
    EXPECT_THAT(run.Output(), HasSubstr("readout-noise     0,0\n"));
    EXPECT_THAT(run.Output(), HasSubstr("ccd-temp          none\n"));
    EXPECT_THAT(run.Output(), Not(HasSubstr("serial number")));
}

TEST(Info, CameraThatIsNotThereIsNoCamera)
{
    tcScriptedCamera closed;
    closed.SwitchOff();
    tcRun run({"info", "127.0.0.1:" + std::to_string(closed.Port()), "--json"});
    EXPECT_EQ(run.Exit(), 2);
    EXPECT_EQ(run.Document()["error"]["exit_code"], 2);
}
