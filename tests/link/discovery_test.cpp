// Discovery, only ever run in private networks: its broadcasts reach no real interface.
#include "discovery_support.h"
#include "link_support.h"

#include "vxcamiface.h"

using testing::Contains;
using testing::ElementsAre;
using testing::Field;
using testing::SizeIs;

namespace {

const std::string gsRequest("\xCD\x0C\xCD\x0C\xCD\xAC\xED\xBE", 8);

} // namespace

TEST_F(Discovery, ListsTheInterfacesWithAnIPv4Address)
{
    ConnectFirst();
    ASSERT_TRUE(host.Execute(
        "ip addr add 10.9.0.1/24 dev h1 && ip link add bare type veth peer name bare2 && "
        "ip link set bare up"));
    std::vector<std::string> nics;
    for (const tsNicInfo& nic : enumNics(true)) {
        nics.push_back(nic.name + " " + nic.address);
        EXPECT_EQ("", nic.description);
    }
    EXPECT_THAT(nics, ElementsAre("lo 127.0.0.1", "h1 10.1.0.1", "h1 10.9.0.1"));
    EXPECT_EQ(nics.size(), enumNics(false).size());
}

TEST_F(Discovery, FindsNothingWithoutAnInterface)
{
    ASSERT_TRUE(host.Execute("ip link set lo down && ip addr flush dev lo"));
    EXPECT_TRUE(enumNics(false).empty());
    int shortest = 10000;
    for (int i = 0; i < 5 && shortest >= 400; ++i) { // the machine may be busy
        const auto start = steady_clock::now();
        EXPECT_TRUE(Locate().empty());
        EXPECT_EQ(0, result);
        shortest = std::min(shortest, ElapsedMs(start));
    }
    EXPECT_LT(shortest, 400);
}

TEST_F(Discovery, TakesALittleOverHalfASecondWhenNobodyAnswers)
{
    ConnectFirst();
    ConnectSecond();
    int shortest = 10000;
    for (int i = 0; i < 5 && shortest >= 700; ++i) {
        const auto start = steady_clock::now();
        EXPECT_TRUE(Locate().empty());
        EXPECT_EQ(0, result);
        EXPECT_GE(ElapsedMs(start), 499);
        shortest = std::min(shortest, ElapsedMs(start));
    }
    EXPECT_LT(shortest, 700);
}

TEST_F(Discovery, BroadcastsThreeRequestsOnEveryInterface)
{
    ConnectFirst();
    ConnectSecond();
    tcDiscoveryPeer one(first, {}), other(second, {});
    Locate();
    ASSERT_TRUE(WaitUntil([&] { return one.Requests().size() + other.Requests().size() >= 6; }));
    EXPECT_THAT(one.Requests(), SizeIs(3));
    EXPECT_THAT(one.Requests(), Each(Field(&tsRequest::bytes, gsRequest)));
    EXPECT_THAT(one.Requests(), Each(Field(&tsRequest::address, "10.1.0.1")));
    EXPECT_THAT(one.Requests(), Each(Field(&tsRequest::port, gnPort)));
    EXPECT_THAT(other.Requests(), SizeIs(3));
    EXPECT_THAT(other.Requests(), Each(Field(&tsRequest::address, "10.2.0.1")));
}

TEST_F(Discovery, FillsARecordFromTheReply)
{
    ConnectFirst();
    tcDiscoveryPeer peer(first, {{"10.1.0.2", ReplyBytes(0x1234, 0x89ABCDEF, 0x01020304)}});
    const auto list = Locate();
    ASSERT_EQ(1, result);
    EXPECT_EQ(AF_INET, list[0].SourceAddr.sin_family);
    EXPECT_EQ("10.1.0.2", TextOf(list[0].SourceAddr));
    EXPECT_NE(0, list[0].SourceAddr.sin_port);
    EXPECT_THAT(list[0].SourceAddr.sin_zero, Each(0));
    EXPECT_EQ(0x1234, list[0].Port);
    EXPECT_EQ(0xEEEE, list[0].Unused); // not written
    EXPECT_EQ(0x89ABCDEFu, list[0].SerialNumber);
    EXPECT_EQ(0x01020304u, list[0].CameraValue);
}

TEST_F(Discovery, FindsTheCamerasOfAllNetworks)
{
    ConnectFirst();
    ConnectSecond();
    tcDiscoveryPeer one(first, {{"10.1.0.2", ReplyBytes(1, 11)}});
    tcDiscoveryPeer other(second, {{"10.2.0.2", ReplyBytes(2, 22)}});
    EXPECT_THAT(Serials(Locate()), testing::UnorderedElementsAre(11, 22));
}

TEST_F(Discovery, ListsACameraOnceThatAnswersOnTwoNetworks)
{
    ConnectFirst();
    ASSERT_TRUE(host.Connect("h2", "10.2.0.1/24", first, "c2", "10.2.0.2/24"));
    ASSERT_TRUE(first.Execute("ip addr add 10.9.9.9/32 dev lo"));
    for (const auto* network : {&host, &first}) {
        ASSERT_TRUE(network->Execute("for f in /proc/sys/net/ipv4/conf/*/rp_filter; do "
                                     "echo 0 > $f; done"));
    }
    tcDiscoveryPeer peer(first, {{"10.9.9.9", ReplyBytes(1, 7)}});
    EXPECT_THAT(Serials(Locate()), ElementsAre(7));
    ASSERT_TRUE(WaitUntil([&] { return peer.Requests().size() >= 6; }));
    EXPECT_THAT(peer.Requests(), Contains(Field(&tsRequest::address, "10.1.0.1")));
    EXPECT_THAT(peer.Requests(), Contains(Field(&tsRequest::address, "10.2.0.1")));
}

TEST_F(Discovery, ListsTheFirstReplyOfAnAddress)
{
    ConnectFirst();
    tcDiscoveryPeer peer(first, {{"10.1.0.2", ReplyBytes(1, 5)}, {"10.1.0.2", ReplyBytes(1, 6)}});
    EXPECT_THAT(Serials(Locate()), ElementsAre(5));
}

TEST_F(Discovery, IgnoresWhatIsNoReply)
{
    ConnectFirst();
    ASSERT_TRUE(first.Execute("ip addr add 10.1.0.3/24 dev c1"));
    std::string wrongFirst = ReplyBytes(1, 1), wrongSecond = ReplyBytes(1, 2);
    wrongFirst[0] ^= 1;
    wrongSecond[4] ^= 1;
    tcDiscoveryPeer peer(first, {{"10.1.0.2", wrongFirst},
                                 {"10.1.0.2", wrongSecond},
                                 {"10.1.0.2", ""},
                                 {"10.1.0.2", "abc"},
                                 {"10.1.0.2", gsMarkers.substr(0, 7)},
                                 {"10.1.0.2", gsRequest + std::string(16, 'x')},
                                 {"10.1.0.3", ReplyBytes(1, 3)}});
    const auto list = Locate();
    ASSERT_THAT(Serials(list), ElementsAre(3));
    EXPECT_EQ("10.1.0.3", TextOf(list[0].SourceAddr));
}

TEST_F(Discovery, ReadsWhatAShortReplyLacksAsZero)
{
    ConnectFirst();
    ASSERT_TRUE(first.Execute("ip addr add 10.1.0.3/24 dev c1 && ip addr add 10.1.0.4/24 dev c1"));
    tcDiscoveryPeer peer(first, {{"10.1.0.2", ReplyBytes(0x1234, 0x89ABCDEF, 0x01020304)},
                                 {"10.1.0.3", gsMarkers},
                                 {"10.1.0.4", ReplyBytes(0x1234, 0x89ABCDEF, 5).substr(0, 18)}});
    const auto list = Locate();
    ASSERT_EQ(3, result);
    EXPECT_EQ(0x89ABCDEFu, list[0].SerialNumber);
    EXPECT_EQ(0, list[1].Port);
    EXPECT_EQ(0u, list[1].SerialNumber);
    EXPECT_EQ(0u, list[1].CameraValue);
    EXPECT_EQ(0x1234, list[2].Port);
    EXPECT_EQ(0xCDEFu, list[2].SerialNumber);
    EXPECT_EQ(0u, list[2].CameraValue);
}

TEST_F(Discovery, TakesTheFirst24BytesOfALongReply)
{
    ConnectFirst();
    tcDiscoveryPeer peer(first, {{"10.1.0.2", ReplyBytes(1, 9, 8) + std::string(1000, 'x')}});
    const auto list = Locate();
    ASSERT_THAT(Serials(list), ElementsAre(9));
    EXPECT_EQ(8u, list[0].CameraValue);
}

TEST_F(Discovery, ReturnsNoMoreThanAskedFor)
{
    ConnectFirst();
    ASSERT_TRUE(first.Execute("ip addr add 10.1.0.3/24 dev c1"));
    tcDiscoveryPeer peer(first, {{"10.1.0.2", ReplyBytes(1, 1)}, {"10.1.0.3", ReplyBytes(1, 2)}});
    int shortest = 10000;
    for (int i = 0; i < 5 && shortest >= 450; ++i) {
        const auto start = steady_clock::now();
        EXPECT_THAT(Locate(1), SizeIs(1));
        shortest = std::min(shortest, ElapsedMs(start));
    }
    EXPECT_LT(shortest, 450); // nothing is left to wait for
    // A late reply to the request before may be the first one.
    EXPECT_THAT(Serials(Locate(2)), testing::UnorderedElementsAre(1, 2));
    EXPECT_TRUE(Locate(0).empty());
    EXPECT_EQ(0, result);
    EXPECT_EQ(0, VXLocateEnetCameras(nullptr, 5));
    tsEnetData record;
    EXPECT_EQ(0, VXLocateEnetCameras(&record, -1));
}

class OpenBySerialNumber : public Discovery
{};

TEST_F(OpenBySerialNumber, OpensTheFirstCameraWithThatNumber)
{
    setenv("CONFIGFILE_PATH", "/dev/null", 1);
    CameraLog(0);
    tcScriptedCamera camera;
    tcDiscoveryPeer peer(host, {{"127.0.0.2", ReplyBytes(1, 8)},
                                {"127.0.0.1", ReplyBytes(camera.Port(), 0x80000007)},
                                {"127.0.0.3", ReplyBytes(1, 0x80000007)}});
    auto opened = std::async(std::launch::async, [] {
        return VXOpenCameraBySerialNumber(static_cast<int>(0x80000007));
    });
    ASSERT_TRUE(ShakeHands(camera));
    const int handle = opened.get();
    ASSERT_GE(handle, 0);
    EXPECT_EQ(0, VXSetTrigger(handle, 1));
    EXPECT_EQ(0x58u, IdOf(camera.ReadMessage()));
    EXPECT_EQ(-1, VXOpenCameraBySerialNumber(8)); // nobody listens
    EXPECT_EQ(0, VXCloseCamera(handle));
}

TEST_F(OpenBySerialNumber, FailsWithoutSuchACamera)
{
    const unsigned handles = tcVXCamera::gnCameraCount;
    tcDiscoveryPeer peer(host, {{"127.0.0.1", ReplyBytes(1, 8)}});
    EXPECT_EQ(-1, VXOpenCameraBySerialNumber(9));
    EXPECT_EQ(handles, tcVXCamera::gnCameraCount);
}
