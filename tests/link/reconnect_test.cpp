// The connection breaks, and is made anew.
#include "link_support.h"
#include "reconnect_support.h"

#include "tcFillers.h"
#include "tcNetworkNamespace.h"

#include <fstream>

using testing::ElementsAre;

namespace {

constexpr char gsClosed[] =
    "tcVXCamera_Ethernet::MonitorThread socket has been closed on remote end";

std::vector<int> Gaps(const std::vector<tcTimedLog::tsRecord>& records)
{
    std::vector<int> gaps;
    for (size_t i = 1; i < records.size(); ++i) {
        gaps.push_back(static_cast<int>(
            std::chrono::duration_cast<milliseconds>(records[i].time - records[i - 1].time)
                .count()));
    }
    return gaps;
}

} // namespace

TEST_F(Reconnect, FollowsACloseAndLetsMessagesFlowAgain)
{
    Open();
    peer.Close();
    ASSERT_TRUE(peer.Accept());
    Synchronise();
    EXPECT_THAT(Texts(log.Errors()), ElementsAre(gsClosed));
    ASSERT_FALSE(Attempts().empty());
    for (const auto& attempt : Attempts()) {
        EXPECT_EQ("tcVXCamera_Ethernet::MonitorThread reconnecting to 127.0.0.1, " +
                      std::to_string(peer.Port()) + "....",
                  attempt.text);
    }
}

TEST_F(Reconnect, FollowsAReset)
{
    Open();
    peer.Reset();
    ASSERT_TRUE(peer.Accept());
    Synchronise();
    EXPECT_THAT(Texts(log.Errors()), ElementsAre(gsClosed));
}

TEST_F(Reconnect, GoesOnUntilTheCameraAcceptsAgain)
{
    Open();
    peer.SwitchOff();
    peer.Close();
    ASSERT_TRUE(AwaitReconnecting(5));
    EXPECT_THAT(Texts(log.Errors()), ElementsAre(gsClosed));
    peer.SwitchOn();
    ASSERT_TRUE(peer.Accept());
    Synchronise();
}

TEST_F(Reconnect, SendsNothingOfItself)
{
    Open();
    peer.Close();
    ASSERT_TRUE(peer.Accept());
    Synchronise();
    EXPECT_EQ(0, camera->SetTrigger(1));
    const std::string first = peer.ReadMessage();
    EXPECT_EQ(0x58u, IdOf(first));
    EXPECT_EQ(2, first[4]); // numbers go on
}

TEST_F(Reconnect, SetsTheSocketUpAgain)
{
    Open();
    peer.Close();
    ASSERT_TRUE(peer.Accept());
    Synchronise();
    const int descriptor = peer.ClientDescriptor();
    EXPECT_NE(0, IntOption(descriptor, IPPROTO_TCP, TCP_NODELAY));
    EXPECT_NE(0, IntOption(descriptor, SOL_SOCKET, SO_KEEPALIVE));
    EXPECT_EQ(3, IntOption(descriptor, IPPROTO_TCP, TCP_KEEPCNT));
}

TEST_F(Reconnect, LeavesARequestUnderWayToItsAnswerOrItsTimeOut)
{
    Open();
    long exposure = -77;
    auto result =
        std::async(std::launch::async, [&] { return camera->GetExposureTime(&exposure); });
    ASSERT_EQ(0x30u, IdOf(peer.ReadMessage()));
    peer.Close();
    ASSERT_TRUE(peer.Accept());
    EXPECT_EQ(1, camera->numOpsPending());
    ASSERT_TRUE(peer.Send(MessageBytes(0x60, LittleEndian(5, 4))));
    EXPECT_EQ(0, result.get());
    EXPECT_EQ(5, exposure);

    result = std::async(std::launch::async, [&] { return camera->GetExposureTime(&exposure); });
    ASSERT_EQ(0x30u, IdOf(peer.ReadMessage()));
    peer.Close();
    ASSERT_TRUE(peer.Accept());
    Synchronise();
    while (result.wait_for(milliseconds(0)) != std::future_status::ready)
        camera->MonitorStep();
    EXPECT_EQ(eVXTimeout, result.get());
    EXPECT_EQ(5, exposure);
}

TEST_F(Reconnect, TriesAtOnceAndThenAfterPausesThatDoubleFromTenMilliseconds)
{
    Open();
    peer.SwitchOff();
    peer.Close();
    ASSERT_TRUE(AwaitReconnecting(7));
    const auto errors = log.Errors(gsClosed);
    const auto attempts = Attempts();
    ASSERT_EQ(1u, errors.size());
    EXPECT_LT(attempts[0].time - errors[0].time, milliseconds(900));
    const auto gaps = Gaps(attempts);
    int least = 10;
    for (size_t i = 0; i < 6; ++i, least *= 2) {
        EXPECT_GE(gaps[i], least - 1);
    }
    EXPECT_LT(attempts[6].time - attempts[0].time, milliseconds(4500)) << "630 ms, not six seconds";
}

TEST_F(Reconnect, PausesAtMostASecondAndFindsTheCameraWithinOneAndAHalf)
{
    Open();
    peer.SwitchOff();
    peer.Close();
    ASSERT_TRUE(AwaitReconnecting(12)); // the pause has reached its longest
    const auto gaps = Gaps(Attempts());
    EXPECT_GE(*std::min_element(gaps.begin() + 7, gaps.end()), 990);
    EXPECT_LT(*std::min_element(gaps.begin() + 8, gaps.end()), 1900) << "not two seconds";
    peer.SwitchOn();
    EXPECT_TRUE(peer.Accept(milliseconds(5000)));
    Synchronise();
}

TEST_F(Reconnect, IsNotHotWhenTheCameraClosesAtOnce)
{
    Open();
    const auto start = steady_clock::now();
    for (int i = 0; i < 8; ++i) {
        peer.Close();
        ASSERT_TRUE(peer.Accept());
    }
    // 0, 10, 20, ... 640 ms before the attempts
    EXPECT_GE(ElapsedMs(start), 1270 - 8);
    EXPECT_LE(Attempts().size(), 9u);
}

TEST_F(Reconnect, IsAtOnceAgainAfterAConnectionThatLasted)
{
    Open();
    for (int i = 0; i < 8; ++i) { // the next one would come after a second
        peer.Close();
        ASSERT_TRUE(peer.Accept());
    }
    const auto connected = steady_clock::now();
    ASSERT_TRUE(WaitUntil([&] { return ElapsedMs(connected) > 1100; }));
    log.Clear();
    peer.Close();
    ASSERT_TRUE(peer.Accept());
    Synchronise();
    ASSERT_EQ(1u, Attempts().size());
    EXPECT_LT(Attempts()[0].time - log.Errors(gsClosed)[0].time, milliseconds(900));
}

TEST_F(Reconnect, GivesAnAttemptUpAfterASecondWhenPacketsAreDropped)
{
    Open();
    peer.SwitchOff();
    peer.SwitchOn(0);
    auto fillers = std::make_unique<tcFillers>(peer.Port(), 4);
    peer.Close();
    ASSERT_TRUE(AwaitReconnecting(4));
    for (int gap : Gaps(Attempts())) {
        EXPECT_GE(gap, 990);
        EXPECT_LT(gap, Within(1450)); // the attempt's time is part of the pause
    }
    EXPECT_EQ(-1, camera->SetTrigger(1));

    // The camera is back.
    const auto start = steady_clock::now();
    fillers.reset();
    peer.SwitchOff();
    peer.SwitchOn();
    ASSERT_TRUE(peer.Accept());
    EXPECT_LT(ElapsedMs(start), Within(2500)); // of two minutes that the system tries
    Synchronise();
}

TEST_F(Reconnect, FollowsAStalledSend)
{
    peer.LimitReceiveBuffer(4096);
    Open();
    const std::string data(4356, 'd');
    int result = 0, took = 0;
    for (int i = 0; result == 0 && i < 10000; ++i) {
        const auto start = steady_clock::now();
        result = camera->SetTimingData(const_cast<char*>(data.data()), 4356);
        took = ElapsedMs(start);
    }
    EXPECT_EQ(-1, result);
    EXPECT_GE(took, 4900);
    EXPECT_LT(took, 5000 + Within(2000));
    ASSERT_TRUE(peer.Accept());
    Synchronise();
    EXPECT_EQ(0, camera->SetTrigger(1));
    EXPECT_EQ(0x58u, IdOf(peer.ReadMessage()));
}

// With one outgoing port to choose from, which is the camera's, a socket connects to itself.
static bool SetOutgoingPorts(int first, int last)
{
    std::ofstream file("/proc/sys/net/ipv4/ip_local_port_range");
    file << first << ' ' << last << std::flush;
    return file.good();
}

// A socket that connects to a port without a listener, from the same port. Leaves nothing behind.
static bool ConnectsToItself(int port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool connected =
        connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    const linger atOnce{1, 0};
    setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    close(descriptor);
    return connected;
}

TEST(ReconnectSelf, TakesAConnectionWithItselfForAFailedTry)
{
    std::string reason;
    tcNetworkNamespace network(reason);
    if (!network.Enter()) GTEST_SKIP() << reason;
    constexpr int port = 40000;
    if (!SetOutgoingPorts(port, port)) GTEST_SKIP() << "the port range cannot be set";
    ASSERT_TRUE(ConnectsToItself(port));
    ASSERT_TRUE(SetOutgoingPorts(port, port + 999));
    tcTimedLog& log = CameraLog();
    log.Clear();
    tcReceivedMessages::Clear();
    auto peer = std::make_unique<tcScriptedCamera>(port);
    tcVXCamera_Ethernet camera("127.0.0.1", port);
    camera.SetUserDefinedCallback(tcReceivedMessages::Callback);
    auto opened = std::async(std::launch::async, [&] { return camera.Initialize(); });
    ASSERT_TRUE(ShakeHands(*peer));
    ASSERT_NE(0, opened.get());

    ASSERT_TRUE(SetOutgoingPorts(port, port));
    peer->Reset();
    peer.reset();
    // Were it taken for the camera, the attempts would end here.
    ASSERT_TRUE(log.AwaitDebug(1, "tcVXCamera_Ethernet::MonitorThread reconnecting", 5));
    EXPECT_EQ(-1, camera.SetTrigger(1));

    // Such a try must not keep the port from the camera that returns for more than the moment that
    // it takes.
    ASSERT_TRUE(SetOutgoingPorts(port, port + 999));
    const auto listens = [&] {
        try {
            peer = std::make_unique<tcScriptedCamera>(port);
            return true;
        } catch (const std::runtime_error&) {
            return false;
        }
    };
    ASSERT_TRUE(WaitUntil(listens));
    ASSERT_TRUE(peer->Accept());
    ASSERT_TRUE(peer->Send(UserMessage("back")));
    EXPECT_TRUE(tcReceivedMessages::Await(1));
}

struct tsLinkNews {
    std::atomic<int> events{0};
    std::atomic<int64_t> lost{0}; // when that was told
    std::string words;
};

TEST_F(Reconnect, TellsTheLossAtOnceWhileAReadoutExposes)
{
    Open();
    tsLinkNews news;
    camera->SetLinkCallback(
        [](int, const tsLinkRecord* link, void* user) {
            auto& told = *static_cast<tsLinkNews*>(user);
            if (link->Event == eLinkLost) {
                told.words = link->LastWords;
                told.lost = link->Time.Monotonic;
            }
            ++told.events;
        },
        &news);
    camera->SetExposure(60000);
    ASSERT_EQ(0, camera->ReadCCDArea(nullptr, 1, 0));
    int64_t shortest = INT64_MAX;
    for (int round = 1; round <= 3; ++round) { // the machine may be busy once
        if (round == 1) peer.Send(MessageBytes(0x75, std::string("\3\1") + "power fails"));
        const auto broke = steady_clock::now().time_since_epoch();
        peer.Close();
        ASSERT_TRUE(WaitUntil([&] { return news.events == 2 * round; })) << "lost and restored";
        shortest = std::min(shortest, news.lost - std::chrono::nanoseconds(broke).count());
        EXPECT_EQ(round == 1 ? "power fails" : "", news.words);
        EXPECT_EQ(eReadoutLinkLost, camera->ReadoutResult());
        ASSERT_TRUE(peer.Accept());
    }
    EXPECT_LT(shortest, Within(100) * 1000 * 1000); // of a minute
    EXPECT_EQ(1, camera->numOpsPending()) << "what is described waits for the camera";
    EXPECT_EQ(0, camera->AbortRead());
    EXPECT_EQ(0, camera->WaitCompletion(0));
}
