// Faults that come and go in a simulated camera, through its items and through vxcam fault.
#include "service_support.h"

#include "faultkinds.h"

using testing::HasSubstr;
using testing::Not;

namespace {

class RunningSim : public testing::Test
{
protected:
    explicit RunningSim(const std::vector<std::string>& more = {}) : mtRun(Arguments(more), How())
    {
        EXPECT_TRUE(WaitUntil([this] { return Lines(mtRun.Output()) > 0; })) << mtRun.Errors();
        const std::string first = mtRun.Output().substr(0, mtRun.Output().find('\n'));
        msCamera = "127.0.0.1:" + first.substr(first.rfind(':') + 1);
        EXPECT_TRUE(WaitUntil([this] { return tcRun({"items", msItems, "list"}).Exit() == 0; }));
    }

    std::vector<std::string> Arguments(const std::vector<std::string>& more) const
    {
        std::vector<std::string> arguments{"--sensor", "64x48",       "--heartbeat",
                                           "0",        "--item-port", std::to_string(mnItemPort)};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    }
    static tcRun::tsHow How()
    {
        tcRun::tsHow how;
        how.program = VXCAMSIM_PROGRAM;
        return how;
    }
    std::string Fault(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), {"fault", msItems});
        return Printed(arguments);
    }
    // The exit code of a frame.
    int Grab() const
    {
        return tcRun({"grab", msCamera, "-e", "0", "--force", "-q", "-o",
                      mtFolder.Path("frame.fits")})
            .Exit();
    }
    bool Said(const std::string& text) const
    {
        return WaitUntil([&] { return mtRun.Output().find(text) != std::string::npos; });
    }

    const uint16_t mnItemPort = FreeTcpPort();
    const std::string msItems = "127.0.0.1:" + std::to_string(mnItemPort);
    tcFolder mtFolder;
    tcRun mtRun;
    std::string msCamera;
};

class SimWithFaults : public RunningSim
{
protected:
    SimWithFaults()
        : RunningSim({"--fault", "missing-packet:times=0,packet=7", "--fault", "refuse"})
    {}
};

} // namespace

TEST_F(RunningSim, HasAFaultWhenItIsInjectedAndNoneWhenItIsLifted)
{
    EXPECT_EQ(Grab(), 0);
    EXPECT_EQ(Fault({"missing-packet:packet=9,times=0"}), "");
    EXPECT_EQ(Grab(), 4);
    EXPECT_TRUE(Said("fault: missing-packet"));
    EXPECT_EQ(Fault({}), "missing-packet      always\n");
    EXPECT_EQ(Fault({"--lift", "missing-packet"}), "");
    EXPECT_EQ(Grab(), 0);
    EXPECT_EQ(Fault({}), "");
    EXPECT_THAT(mtRun.Output(), HasSubstr("fault injected: missing-packet:packet=9,times=0\n"));
    EXPECT_THAT(mtRun.Output(), HasSubstr("fault lifted: missing-packet:packet=9,times=0\n"));
}

TEST_F(RunningSim, TakesSeveralWithTheirOwnNumbers)
{
    Fault({"stall:message=70,seconds=0.25", "late-answer:message=80,seconds=7,times=3",
           "flip-header:message=90,chance=0.5,bit=3"});
    EXPECT_TRUE(Said("fault injected: stall:message=70,seconds=0.25\n"));
    EXPECT_TRUE(Said("fault injected: late-answer:message=80,times=3,seconds=7\n"));
    EXPECT_TRUE(Said("fault injected: flip-header:message=90,chance=0.5,bit=3\n"));
    const auto document = nlohmann::json::parse(Fault({"--json"}));
    EXPECT_EQ(document["target"], msItems);
    EXPECT_EQ(document["faults"], nlohmann::json::parse(R"([
        {"kind": "flip-header", "times": 1}, {"kind": "late-answer", "times": 3},
        {"kind": "stall", "times": 1}])"));
    Fault({"--lift"});
    EXPECT_EQ(Fault({}), "");
}

TEST_F(RunningSim, TakesTheSameAgain)
{
    Fault({"no-answer:message=99"});
    Fault({"no-answer:message=98"});
    EXPECT_TRUE(Said("fault lifted: no-answer:message=99\nfault injected: no-answer:message=98\n"));
    EXPECT_EQ(Fault({}), "no-answer           1 time\n");
}

TEST_F(RunningSim, TakesEveryKind)
{
    for (size_t i = 0; i < gnSimFaultKinds; ++i) {
        const std::string name = NameOf(static_cast<teSimFault>(i));
        Fault({name + ":times=2"});
        EXPECT_TRUE(Said("fault injected: " + name)) << name;
    }
    EXPECT_EQ(Lines(Fault({})), static_cast<long>(gnSimFaultKinds));
}

// By hand: the item of the kind, and before it those of what it is told.
TEST_F(RunningSim, HasItemsForThat)
{
    const auto set = [this](const char* name, const char* value) {
        EXPECT_EQ(Printed({"items", msItems, "set", name, value, "-q"}), "");
    };
    set("with_message", "60");
    set("with_seconds", "0.5");
    set("fault_stall", "2");
    EXPECT_TRUE(Said("fault injected: stall:message=60,times=2,seconds=0.5\n"));
    EXPECT_THAT(Printed({"items", msItems, "get", "with_seconds"}), HasSubstr("= -1"));
    set("fault_stall", "-1");
    EXPECT_TRUE(Said("fault injected: stall:times=0\n"));
    EXPECT_THAT(mtRun.Output(), HasSubstr("fault lifted: stall:message=60,times=2,seconds=0.5\n"));
    set("fault_stall", "0");
    EXPECT_TRUE(Said("fault lifted: stall:times=0\n"));
}

TEST_F(RunningSim, CountsDownAsTheyStrike)
{
    Fault({"missing-packet:times=5"});
    EXPECT_EQ(Fault({}), "missing-packet      5 times\n");
    EXPECT_EQ(Grab(), 4);
    EXPECT_TRUE(WaitUntil([this] { return Fault({}).empty(); })) << "five packets of one frame";
    EXPECT_EQ(Grab(), 0);
}

TEST_F(RunningSim, ComplainsAboutWhatCannotBe)
{
    Printed({"items", msItems, "set", "with_seconds", "1000000", "-q"});
    // Ends with 4 when it sees that the item is put back.
    tcRun({"items", msItems, "set", "fault_stall", "1", "-q"}).Exit();
    EXPECT_TRUE(WaitUntil([this] {
        return mtRun.Errors().find(
                   "vxcamsim: fault_stall: 'seconds' of the fault 'stall' must be") !=
               std::string::npos;
    }));
    EXPECT_TRUE(WaitUntil([this] {
        return Printed({"items", msItems, "get", "fault_stall"}) == "fault_stall = 0\n";
    }));
}

TEST_F(RunningSim, RefusesKindsThatThereAreNotBeforeAnythingIsSent)
{
    ExpectFailure({"fault", msItems, "stall", "stal"}, 1, "stal: there is no fault 'stal'");
    ExpectFailure({"fault", msItems, "stall:speed=1"}, 1, "takes no 'speed'");
    ExpectFailure({"fault", msItems, "close:byte=123456789"}, 1, "byte is too large a number");
    ExpectFailure({"fault", msItems, "--lift", "nothing"}, 1, "there is no fault 'nothing'");
    EXPECT_EQ(Fault({}), "");
}

TEST_F(SimWithFaults, ShowsAndLiftsThoseOfItsOptions)
{
    EXPECT_EQ(Fault({}), "missing-packet      always\nrefuse              1 time\n");
    EXPECT_EQ(Grab(), 4);
    Fault({"--lift", "missing-packet", "stall"});
    EXPECT_EQ(Fault({}), "refuse              1 time\n");
    EXPECT_EQ(Grab(), 0);
}

TEST(FaultVerb, SaysThatAProcessIsNoSimulatedCamera)
{
    tcFixedService other("");
    ExpectFailure({"fault", other.Target(), "stall"}, 4, "is not that of a simulated camera");
    ExpectFailure({"fault", "127.0.0.1:1"}, 2, "Connection refused");
}
