// vxcam list and cameras by their serial number, in private networks.
#include "tcNetworkNamespace.h"
#include "tcSimServer.h"
#include "tool_support.h"

#include <gmock/gmock.h>

using testing::HasSubstr;
using testing::StartsWith;
using tpClock = std::chrono::steady_clock;

namespace {

const std::string gsLonely = "no camera answers on lo 127.0.0.1\n";

// The host's network, which the test's thread and the programs it runs are in, and two networks
// with a simulated camera each.
class Found : public testing::Test
{
protected:
    Found() : host(reason), first(reason), second(reason) {}

    void SetUp() override
    {
        if (!host.Enter()) GTEST_SKIP() << reason;
    }

    void ConnectBoth()
    {
        ASSERT_TRUE(host.Connect("h1", "10.1.0.1/24", first, "c1", "10.1.0.2/24"));
        ASSERT_TRUE(host.Connect("h2", "10.2.0.1/24", second, "c2", "10.2.0.2/24"));
        Start(first, "10.1.0.2", 11, 64);
        Start(second, "10.2.0.2", 4000000022, 32);
    }

    void Start(const tcNetworkNamespace& network, const std::string& address, uint32_t serial,
               uint16_t columns)
    {
        tsSimOptions options;
        options.bind = address;
        options.serial = serial;
        options.columns = columns;
        options.rows = 16;
        options.discovery = true;
        options.heartbeatSeconds = 0.1;
        auto camera = std::make_unique<tcSimServer>(options);
        network.Run([&] { camera->Start(); });
        cameras.push_back(std::move(camera));
    }

    // A line of `vxcam list`.
    std::string Row(const std::string& front, const std::string& address, size_t camera,
                    const std::string& back) const
    {
        const std::string place = address + ":" + std::to_string(cameras[camera]->Port());
        return front + std::string(19 - front.size(), ' ') + place +
               std::string(23 - place.size(), ' ') + back + "\n";
    }

    // The shortest of some runs.
    static double Seconds(const std::vector<std::string>& arguments)
    {
        double shortest = 1e9;
        for (int i = 0; i < 3; ++i) {
            const auto start = tpClock::now();
            tcRun run(arguments);
            EXPECT_EQ(run.Exit(), 0);
            const std::chrono::duration<double> elapsed = tpClock::now() - start;
            shortest = std::min(shortest, elapsed.count());
        }
        return shortest;
    }

    std::string reason;
    tcNetworkNamespace host, first, second;
    std::vector<std::unique_ptr<tcSimServer>> cameras;
};

} // namespace

TEST_F(Found, CamerasOfTwoNetworksAreListedWithTheirInterfaces)
{
    ConnectBoth();
    tcRun run({"list"});
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_EQ(run.Errors(), "");
    EXPECT_EQ(run.Output(),
              Row("serial:11", "10.1.0.2", 0, "value 0x00400010  h1 10.1.0.1") +
                  Row("serial:4000000022", "10.2.0.2", 1, "value 0x00200010  h2 10.2.0.1") +
                  "no camera answers on lo 127.0.0.1\n");
}

TEST_F(Found, DocumentHoldsInterfacesAndCameras)
{
    ConnectBoth();
    tcRun run({"list", "--json"});
    EXPECT_EQ(run.Exit(), 0);
    const nlohmann::json document = run.Document();
    EXPECT_EQ(document["found"], 2);
    EXPECT_EQ(document["interfaces"], nlohmann::json::parse(R"([
        {"name": "lo", "address": "127.0.0.1"}, {"name": "h1", "address": "10.1.0.1"},
        {"name": "h2", "address": "10.2.0.1"}])"));
    EXPECT_EQ(document["cameras"][0], nlohmann::json({{"serial", 11},
                                                      {"port", cameras[0]->Port()},
                                                      {"value", 0x00400010},
                                                      {"places", nlohmann::json::parse(R"([
                                   {"address": "10.1.0.2", "interface": "10.1.0.1"}])")}}));
    EXPECT_EQ(document["cameras"][1]["serial"], 4000000022);
}

TEST_F(Found, CameraThatAnswersOnTwoInterfacesIsListedOnce)
{
    ASSERT_TRUE(host.Connect("h1", "10.1.0.1/24", first, "c1", "10.1.0.2/24"));
    ASSERT_TRUE(host.Connect("h2", "10.2.0.1/24", first, "c2", "10.2.0.2/24"));
    Start(first, "0.0.0.0", 11, 64);
    tcRun run({"list"});
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_EQ(run.Output(), Row("serial:11", "10.1.0.2", 0, "value 0x00400010  h1 10.1.0.1") +
                                Row("", "10.2.0.2", 0, "value 0x00400010  h2 10.2.0.1") + gsLonely);
    tcRun document({"list", "--json"});
    EXPECT_EQ(document.Exit(), 0);
    EXPECT_EQ(document.Document()["found"], 1);
    EXPECT_EQ(document.Document()["cameras"][0]["places"].size(), 2u);
}

TEST_F(Found, CameraOnNoNetworkOfTheHostIsListed)
{
    ASSERT_TRUE(host.Connect("h1", "10.1.0.1/24", first, "c1", "10.1.0.2/24"));
    ASSERT_TRUE(first.Execute("ip addr add 10.9.9.9/32 dev lo"));
    Start(first, "10.9.9.9", 9, 64);
    tcRun run({"list"});
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_EQ(run.Output(), Row("serial:9", "10.9.9.9", 0, "value 0x00400010  another network") +
                                "no camera answers on lo 127.0.0.1, h1 10.1.0.1\n");
    tcRun document({"list", "--json"});
    EXPECT_EQ(document.Exit(), 0);
    EXPECT_EQ(document.Document()["cameras"][0]["places"][0]["interface"], nullptr);
}

TEST_F(Found, SerialNumberOpensTheRightCamera)
{
    ConnectBoth();
    for (const auto& [serial, columns] : {std::pair{"11", 64}, {"4000000022", 32}}) {
        tcRun run({"info", std::string("serial:") + serial, "--json"});
        EXPECT_EQ(run.Exit(), 0) << run.Errors();
        EXPECT_EQ(run.Document()["target"], std::string("serial:") + serial);
        EXPECT_EQ(run.Document()["sensor"]["columns"], columns);
        EXPECT_EQ(run.Document()["serial"], std::stoul(serial));
    }
    tcRun ping({"ping", "serial:11", "-n", "3"});
    EXPECT_EQ(ping.Exit(), 0);
    EXPECT_THAT(ping.Output(), StartsWith("serial:11: 3 round trips"));
}

TEST_F(Found, SerialNumberThatNobodyHasIsNoCamera)
{
    ASSERT_TRUE(host.Connect("h1", "10.1.0.1/24", first, "c1", "10.1.0.2/24"));
    tcRun none({"get", "serial:5", "gain"});
    EXPECT_EQ(none.Exit(), 2);
    EXPECT_EQ(none.Errors(), "vxcam: no camera with serial number 5 answers on lo 127.0.0.1, "
                             "h1 10.1.0.1; none answers at all\n");
    Start(first, "10.1.0.2", 11, 64);
    tcRun others({"get", "serial:5", "gain"});
    EXPECT_EQ(others.Exit(), 2);
    EXPECT_THAT(others.Errors(), HasSubstr("h1 10.1.0.1; found: 11\n"));
}

TEST_F(Found, CameraThatServesSomebodyElseIsSaidToBeThere)
{
    ASSERT_TRUE(host.Connect("h1", "10.1.0.1/24", first, "c1", "10.1.0.2/24"));
    Start(first, "10.1.0.2", 11, 64);
    tcRun busy({"ping", "serial:11", "-n", "1000000"});
    ASSERT_TRUE(WaitUntil([&] { return cameras[0]->Statistics().connected; }));
    tcRun run({"get", "serial:11", "gain"});
    EXPECT_EQ(run.Exit(), 2);
    EXPECT_THAT(run.Errors(), HasSubstr("the camera with serial number 11 is at 10.1.0.2:"));
    EXPECT_THAT(run.Errors(), HasSubstr("or serves somebody else\n"));
}

TEST_F(Found, NoCameraIsALineAndNoError)
{
    ASSERT_TRUE(host.Connect("h1", "10.1.0.1/24", first, "c1", "10.1.0.2/24"));
    tcRun run({"list"});
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_EQ(run.Output(), "no camera answers on lo 127.0.0.1, h1 10.1.0.1\n");
    EXPECT_EQ(run.Errors(), "");
    tcRun document({"list", "--json"});
    EXPECT_EQ(document.Exit(), 0);
    EXPECT_EQ(document.Document()["found"], 0);
}

TEST_F(Found, LookingEndsInHalfASecondWhenNobodyAnswers)
{
    ASSERT_TRUE(host.Connect("h1", "10.1.0.1/24", first, "c1", "10.1.0.2/24"));
    double shortest = 100;
    for (int i = 0; i < 5 && shortest >= 0.7; ++i) { // the machine may be busy
        const double startUp = Seconds({"--version"}), whole = Seconds({"list", "-q"});
        EXPECT_GE(whole, 0.5);
        shortest = std::min(shortest, whole - startUp);
    }
    EXPECT_LT(shortest, 0.7);
}

TEST_F(Found, WithoutAnInterfaceNobodyIsFound)
{
    ASSERT_TRUE(host.Execute("ip link set lo down"));
    tcRun run({"list"});
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_EQ(run.Output(), "no camera answers on no interface with an IPv4 address\n");
}
