// A camera that is gone without having said so: its host is switched off, or the cable is cut.
#include "link_support.h"

#include "tcNetworkNamespace.h"

#include <map>

namespace {

constexpr char gsAddress[] = "10.77.0.2";

// A camera in another network, which can be taken away.
class tcFarCamera
{
public:
    explicit tcFarCamera(const tcNetworkNamespace& network)
    {
        network.Run([this] { mpPeer = std::make_unique<tcScriptedCamera>(0, 8, gsAddress); });
        mpCamera = std::make_unique<tcVXCamera_Ethernet>(gsAddress, mpPeer->Port());
        mpCamera->SetUserDefinedCallback(tcReceivedMessages::Callback);
        auto opened = std::async(std::launch::async, [this] { return mpCamera->Initialize(); });
        EXPECT_TRUE(ShakeHands(*mpPeer));
        EXPECT_NE(0, opened.get());
    }

    tcVXCamera_Ethernet& Camera() { return *mpCamera; }
    tcScriptedCamera& Peer() { return *mpPeer; }
    uint64_t Losses() const
    {
        tsStatistics figures{};
        mpCamera->GetStatistics(&figures, sizeof figures);
        return figures.ConnectionsLost;
    }

private:
    std::unique_ptr<tcScriptedCamera> mpPeer;
    std::unique_ptr<tcVXCamera_Ethernet> mpCamera;
};

class Vanish : public testing::Test
{
protected:
    Vanish() : host(reason), far(reason)
    {
        CameraLog(0).Clear();
        tcReceivedMessages::Clear();
    }
    bool Prepare()
    {
        return host.Usable() && far.Usable() &&
               host.Connect("vxh", "10.77.0.1/24", far, "vxc", std::string(gsAddress) + "/24") &&
               host.Enter();
    }
    // The far host neither answers nor says that it does not.
    bool TakeAway() const { return far.Execute("ip addr flush dev vxc"); }
    bool BringBack() const
    {
        return far.Execute("ip addr add " + std::string(gsAddress) + "/24 dev vxc");
    }

    std::string reason;
    tcNetworkNamespace host, far;
};

} // namespace

TEST_F(Vanish, CountsAsClosedWithin15SecondsWhateverTheHostDoes)
{
    if (!Prepare()) GTEST_SKIP() << reason;
    tcFarCamera idle(far), asked(far), askedLate(far), askedOften(far);
    const auto start = steady_clock::now();
    ASSERT_TRUE(TakeAway());
    const auto second = [&] { return ElapsedMs(start) / 1000.0; };
    EXPECT_EQ(0, asked.Camera().SetTrigger(1));
    std::map<tcFarCamera*, double> lost;
    double next = 1;
    bool isAskedLate = false;
    EXPECT_TRUE(WaitUntil(
        [&] {
            for (tcFarCamera* camera : {&idle, &asked, &askedLate, &askedOften}) {
                if (camera->Losses() > 0) lost.emplace(camera, second());
            }
            if (second() >= 5.5 && !isAskedLate) {
                isAskedLate = true;
                askedLate.Camera().SetTrigger(1);
            }
            if (second() >= next) {
                askedOften.Camera().SetTrigger(1);
                next += 1;
            }
            return lost.size() == 4;
        },
        milliseconds(15000) + Within(milliseconds(1000))))
        << lost.size();
    for (const auto& [camera, when] : lost) {
        EXPECT_GT(when, 4);
        RecordProperty(camera == &idle        ? "idle"
                       : camera == &asked     ? "asked"
                       : camera == &askedLate ? "askedLate"
                                              : "askedOften",
                       std::to_string(when));
    }
}

// Its side of the connection answers for it.
TEST(Busy, IsNotTakenForVanishedThoughItReadsNothing)
{
    tcScriptedCamera peer;
    tcVXCamera_Ethernet camera("127.0.0.1", peer.Port());
    auto opened = std::async(std::launch::async, [&] { return camera.Initialize(); });
    ASSERT_TRUE(ShakeHands(peer));
    ASSERT_NE(0, opened.get());
    struct {
        tsMsgHeader header;
        char bytes[4000];
    } message{};
    message.header.Length = sizeof message.bytes;
    message.header.MsgId = gnUserId;
    constexpr int count = 200; // more than the camera's side takes unread
    for (int i = 0; i < count; ++i)
        ASSERT_EQ(0, camera.SendMessage(&message.header));
    tsStatistics figures{};
    EXPECT_FALSE(WaitUntil(
        [&] {
            camera.GetStatistics(&figures, sizeof figures);
            return figures.ConnectionsLost > 0;
        },
        milliseconds(9000)));
    for (int i = 0; i < count; ++i)
        ASSERT_EQ(gnUserId, IdOf(peer.ReadMessage())) << i;
}

TEST_F(Vanish, IsForgivenForThreeSeconds)
{
    if (!Prepare()) GTEST_SKIP() << reason;
    tcFarCamera idle(far), asked(far);
    const auto start = steady_clock::now();
    ASSERT_TRUE(TakeAway());
    EXPECT_EQ(0, asked.Camera().SetTrigger(1));
    ASSERT_TRUE(WaitUntil([&] { return ElapsedMs(start) >= 3000; }));
    ASSERT_TRUE(BringBack());
    EXPECT_EQ(0x58u, IdOf(asked.Peer().ReadMessage()));
    for (tcFarCamera* camera : {&idle, &asked}) {
        const size_t before = tcReceivedMessages::All().size();
        EXPECT_TRUE(camera->Peer().Send(MessageBytes(gnUserId, "back")));
        EXPECT_TRUE(tcReceivedMessages::Await(before + 1));
        EXPECT_EQ(0u, camera->Losses());
    }
}
