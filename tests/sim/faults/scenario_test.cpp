// How faults are written, on a command line and in files.
#include "faults.h"

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

namespace {

std::string ErrorOf(const std::function<void()>& action)
{
    try {
        action();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "";
}

std::string FaultError(const std::string& text)
{
    return ErrorOf([&] { ParseSimFault(text); });
}

std::string ScenarioError(const std::string& text)
{
    return ErrorOf([&] { ParseSimScenario(text); });
}

} // namespace

TEST(SimFaultText, GivesKindPositionsAndArguments)
{
    const tsSimFault fault = ParseSimFault(
        "stall:readout=2,frame=3,packet=4,connection=5,id=0x66,byte=6,time=7.5,chance=0.25,times=8,"
        "seconds=9.5");
    EXPECT_EQ(fault.kind, teSimFault::eStall);
    EXPECT_EQ(fault.readout, 2);
    EXPECT_EQ(fault.frame, 3);
    EXPECT_EQ(fault.packet, 4);
    EXPECT_EQ(fault.connection, 5);
    EXPECT_EQ(fault.id, 0x66);
    EXPECT_EQ(fault.byte, 6);
    EXPECT_EQ(fault.time, 7.5);
    EXPECT_EQ(fault.chance, 0.25);
    EXPECT_EQ(fault.times, 8);
    EXPECT_EQ(fault.seconds, 9.5);
}

TEST(SimFaultText, FillsInTheDefaultsOfTheKind)
{
    EXPECT_EQ(ParseSimFault("garbage").bytes, 64);
    EXPECT_EQ(ParseSimFault("close-header").bytes, 6);
    EXPECT_EQ(ParseSimFault("close").times, 1);
    EXPECT_EQ(ParseSimFault("no-last-frame").times, 0);
    EXPECT_EQ(ParseSimFault("close").message, -1);
    EXPECT_EQ(ParseSimFault("close").time, -1);
}

TEST(SimFaultText, SaysWhatIsWrongWithIt)
{
    EXPECT_EQ(FaultError("stal"), "there is no fault 'stal'");
    EXPECT_EQ(FaultError("stall:speed=1"), "the fault 'stall' takes no 'speed'");
    EXPECT_EQ(FaultError("stall:seconds"), "'seconds' is not written NAME=VALUE");
    EXPECT_EQ(FaultError("stall:seconds=soon"), "'soon' for seconds is no number");
    EXPECT_EQ(FaultError("stall:seconds=1,seconds=2"), "'seconds' is given twice");
    EXPECT_EQ(FaultError("stall:seconds=-1"), "'seconds' of the fault 'stall' must be 0 to 86400");
    EXPECT_EQ(FaultError("stall:message=1.5"),
              "'message' of the fault 'stall' must be a whole number");
    EXPECT_EQ(FaultError("stall:seconds=nan"), "'nan' for seconds is no number");
    EXPECT_NE(FaultError("no-answer:packet=1"), "");
    EXPECT_NE(FaultError("missing-packet:message=1"), "");
    EXPECT_NE(FaultError("endless:packet=1"), "");
    EXPECT_NE(FaultError("refuse:time=1"), "");
    EXPECT_NE(FaultError("reboot-resized:rows=16384,columns=16384"), "");
    EXPECT_NE(FaultError("stall:"), "");
    EXPECT_NE(FaultError(""), "");
}

TEST(SimScenario, GivesSeedAndFaults)
{
    const tsSimScenario scenario = ParseSimScenario(
        R"({"seed": 42, "faults": [{"kind": "refuse", "silent": true},
            {"kind": "close-payload", "readout": 1, "packet": 20, "bytes": 100}]})");
    EXPECT_EQ(scenario.seed, 42u);
    ASSERT_EQ(scenario.faults.size(), 2u);
    EXPECT_EQ(scenario.faults[0].kind, teSimFault::eRefuse);
    EXPECT_EQ(scenario.faults[0].silent, 1);
    EXPECT_EQ(scenario.faults[1].kind, teSimFault::eClosePayload);
    EXPECT_EQ(scenario.faults[1].packet, 20);
    EXPECT_EQ(scenario.faults[1].bytes, 100);
    EXPECT_EQ(ParseSimScenario("{}").faults.size(), 0u);
}

TEST(SimScenario, SaysWhichKeyOrLineIsWrong)
{
    EXPECT_NE(ScenarioError("{\n\"seed\": 1,\n\"faults\" []}").find("line 3"), std::string::npos);
    EXPECT_EQ(ScenarioError("[]"), "a scenario must be an object");
    EXPECT_EQ(ScenarioError(R"({"sed": 1})"), "there is no key 'sed'");
    EXPECT_EQ(ScenarioError(R"({"seed": -1})"), "'seed' must be a whole number from 0");
    EXPECT_EQ(ScenarioError(R"({"seed": 1, "seed": 2})"), "the key 'seed' stands twice");
    EXPECT_EQ(ScenarioError(R"({"faults": {}})"), "'faults' must be a list");
    EXPECT_EQ(ScenarioError(R"({"faults": [1]})"), "faults[0]: a fault must be an object");
    EXPECT_EQ(ScenarioError(R"({"faults": [{"seconds": 1}]})"), "faults[0]: 'kind' is missing");
    EXPECT_EQ(ScenarioError(R"({"faults": [{"kind": "close"}, {"kind": "stall", "second": 1}]})"),
              "faults[1]: the fault 'stall' takes no 'second'");
    EXPECT_EQ(ScenarioError(R"({"faults": [{"kind": "stall", "seconds": "1"}]})"),
              "faults[0]: 'seconds' must be a number");
}

TEST(SimScenario, IsReadFromAFileWhoseNameIsInEveryError)
{
    const std::string path = "scenario." + std::to_string(getpid()) + ".json";
    std::ofstream(path) << R"({"faults": [{"kind": "half-open", "time": 2}]})";
    const tsSimScenario scenario = LoadSimScenario(path);
    ASSERT_EQ(scenario.faults.size(), 1u);
    EXPECT_EQ(scenario.faults[0].time, 2);
    std::ofstream(path) << "{\n\n,}";
    const std::string error = ErrorOf([&] { LoadSimScenario(path); });
    EXPECT_EQ(error.find(path + ": "), 0u) << error;
    EXPECT_NE(error.find("line 3"), std::string::npos) << error;
    unlink(path.c_str());
    EXPECT_EQ(ErrorOf([&] { LoadSimScenario(path); }), "cannot read the scenario " + path);
}

TEST(SimFaultText, IsExplainedForEveryKind)
{
    const std::string text = ExplainSimFaults();
    for (int kind = 0; kind <= static_cast<int>(teSimFault::eDiscoveryConflict); ++kind) {
        const std::string name = NameOf(static_cast<teSimFault>(kind));
        EXPECT_NE(text.find("\n  " + name), std::string::npos) << name;
        EXPECT_EQ(ParseSimFault(name).kind, static_cast<teSimFault>(kind)) << name;
    }
}

// The table in the document says of every kind what the program says of it.
TEST(SimFaultText, AgreesWithTheDocument)
{
    std::ifstream file(VXSIM_DOCUMENT);
    std::stringstream document;
    document << file.rdbuf();
    for (int kind = 0; kind <= static_cast<int>(teSimFault::eDiscoveryConflict); ++kind) {
        const std::string name = NameOf(static_cast<teSimFault>(kind));
        EXPECT_NE(document.str().find("\n| `" + name + "` |"), std::string::npos) << name;
    }
}
