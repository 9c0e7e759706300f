#include "reach.h"
#include "tcNetworkNamespace.h"
#include "tcService.h"
#include "tcSimServer.h"
#include "tool_support.h"

#include <gmock/gmock.h>

using testing::HasSubstr;
using testing::StartsWith;

namespace {

// What a run finds, which ends with this code.
nlohmann::json Findings(const std::string& target, int code)
{
    tcRun run({"doctor", target, "--json", "--sim-sensor", "64x32"});
    EXPECT_EQ(run.Exit(), code) << run.Errors();
    const nlohmann::json document = run.Document();
    EXPECT_EQ(document.contains("error"), code != 0);
    return document["findings"];
}

std::string Place(const tcScriptedCamera& camera)
{
    return "127.0.0.1:" + std::to_string(camera.Port());
}

// Answers to the link test with the data that came, or others.
std::string LinkAnswer(const std::string& data)
{
    return MessageBytes(0x74, LittleEndian(data.size(), 2) + LittleEndian(data.size(), 2) +
                                  std::string(8, '\0') + data);
}

} // namespace

TEST(Doctor, FindsNothingWrongWithTheSimulatedCamera)
{
    tcRun run({"doctor", "sim", "--sim-sensor", "64x32"});
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_EQ(run.Errors(), "");
    EXPECT_THAT(run.Output(), StartsWith("ok      interfaces      lo 127.0.0.1"));
    EXPECT_THAT(run.Output(), HasSubstr("\nok      discovery       no camera answers\n"));
    EXPECT_THAT(run.Output(), HasSubstr("answers; 64 x 32 pixels, vxcamsim, serial number 1\n"));
    EXPECT_THAT(run.Output(), HasSubstr("vxcam 3.0.7, library 3.0.7, camera 1.0\n"));
    EXPECT_THAT(run.Output(), HasSubstr("64 x 1024 random bytes come back intact, "));
    EXPECT_THAT(run.Output(), HasSubstr("100 round trips, p50 "));
    EXPECT_THAT(run.Output(), HasSubstr("KiB granted (net.core.rmem_max is "));
    EXPECT_THAT(run.Output(), HasSubstr(" received, 0 bad, 0 bytes between them, connection lost 0 "
                                        "times\n"));
    EXPECT_THAT(run.Output(), testing::EndsWith("\nnothing wrong\n"));
}

TEST(Doctor, DocumentHoldsTheFindings)
{
    std::vector<std::string> checks;
    for (const nlohmann::json& finding : Findings("sim", 0)) {
        checks.push_back(finding["check"]);
        EXPECT_EQ(finding["level"], "ok");
        EXPECT_FALSE(finding.contains("advice"));
    }
    EXPECT_THAT(checks,
                testing::ElementsAre("interfaces", "discovery", "camera", "versions", "heartbeat",
                                     "receive buffer", "link", "round trip", "traffic"));
}

TEST(Doctor, NamesARefusedConnection)
{
    tcScriptedCamera camera;
    camera.SwitchOff();
    tcRun run({"doctor", Place(camera)});
    EXPECT_EQ(run.Exit(), 2);
    EXPECT_THAT(run.Output(), HasSubstr("fault   port            " + Place(camera) +
                                        ": connection refused: nothing listens there\n"));
    EXPECT_THAT(run.Output(), HasSubstr("  check the port number (vxcam list tells it)"));
    EXPECT_EQ(run.Errors(),
              "vxcam: port: " + Place(camera) + ": connection refused: nothing listens there\n");
}

TEST(Doctor, NamesAnUnreachableNetwork)
{
    std::string reason;
    tcNetworkNamespace network(reason);
    if (!network.Enter()) GTEST_SKIP() << reason;
    const nlohmann::json last = Findings("192.0.2.1:4000", 2).back();
    EXPECT_EQ(last["check"], "port");
    EXPECT_EQ(last["text"], "192.0.2.1:4000: unreachable: Network is unreachable");
    EXPECT_THAT(last["advice"].get<std::string>(), HasSubstr("no way to it from lo 127.0.0.1"));
}

// Nobody takes the connections that wait, so the next one is not answered.
TEST(Doctor, NamesAPortThatDoesNotAnswer)
{
    tcScriptedCamera camera(0, 0);
    std::vector<int> waiting;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(camera.Port());
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    for (int i = 0; i < 4; ++i) {
        waiting.push_back(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        // Those beyond the backlog go on trying.
        (void)connect(waiting.back(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    }
    const tsReach reach = TryPort(address.sin_addr, camera.Port(), std::chrono::milliseconds(200));
    EXPECT_EQ(reach.outcome, teReach::eTimeout);
    const nlohmann::json last = Findings(Place(camera), 2).back();
    EXPECT_EQ(last["text"], Place(camera) + ": time-out: nobody answers within 3 s");
    for (int descriptor : waiting) {
        close(descriptor);
    }
}

TEST(Doctor, NamesACameraThatServesSomebodyElse)
{
    tsSimOptions options;
    options.columns = options.rows = 64;
    tcSimServer camera(options);
    const std::string target = "127.0.0.1:" + std::to_string(camera.Start());
    tcRun busy({"watch", target});
    ASSERT_TRUE(WaitUntil([&] { return busy.Output().find("watching") != std::string::npos; }));
    const nlohmann::json last = Findings(target, 2).back();
    EXPECT_EQ(last["check"], "camera");
    EXPECT_THAT(last["text"].get<std::string>(), StartsWith(target + ": in use: the camera says "));
    busy.Signal(SIGTERM);
    EXPECT_EQ(busy.Exit(), 143);
    // and finds nothing wrong when it is free, though the system may grant a small buffer
    for (const nlohmann::json& finding : Findings(target, 0)) {
        EXPECT_TRUE(finding["level"] == "ok" || finding["check"] == "receive buffer") << finding;
    }
    EXPECT_EQ(camera.Statistics().refused, 1u); // the first look, and no other
}

TEST(Doctor, NamesANameThatIsNone)
{
    std::string reason;
    tcNetworkNamespace network(reason);
    if (!network.Enter()) GTEST_SKIP() << reason;
    const nlohmann::json last = Findings("no-such-host.invalid:4000", 2).back();
    EXPECT_EQ(last["check"], "name");
    EXPECT_THAT(last["text"].get<std::string>(), HasSubstr("no-such-host.invalid"));
}

TEST(Doctor, NamesASerialNumberThatNobodyHas)
{
    std::string reason;
    tcNetworkNamespace network(reason);
    if (!network.Enter()) GTEST_SKIP() << reason;
    EXPECT_EQ(Findings("serial:5", 2).back()["text"], "no camera with it answers");
}

TEST(Doctor, NamesDamagedData)
{
    tcActor camera({{0x3F, LinkAnswer(std::string(1024, 'x'))}});
    tcRun run({"doctor", camera.Target()});
    EXPECT_EQ(run.Exit(), 4) << run.Output();
    EXPECT_THAT(run.Errors(), HasSubstr("link: 64 of 64 messages come back damaged"));
}

TEST(Doctor, TellsTheReceiveBufferThatWasGranted)
{
    tcScriptedCamera camera;
    EXPECT_EQ(GrantedReceiveBuffer(camera.Port()), 0);
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int bytes = 50000;
    setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(camera.Port());
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(0, connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address));
    EXPECT_EQ(GrantedReceiveBuffer(camera.Port()), bytes);
    EXPECT_GT(MostReceiveBuffer(), 0);
    close(descriptor);
}
