// Discovery, only ever run in private networks: its broadcasts reach no real interface.
#include "link_support.h"

#include "tcNetworkNamespace.h"
#include "vxcamiface.h"

#include <sys/eventfd.h>
#include <sys/syscall.h>

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::SizeIs;

// The system's bind, which can be told to fail.
static std::atomic<int> snFailingBinds{0};
static std::atomic<int> snBinds{0};
extern "C" VX_EXPORT int bind(int descriptor, const sockaddr* address, socklen_t size) noexcept
{
    ++snBinds;
    if (snFailingBinds > 0) {
        --snFailingBinds;
        errno = EADDRNOTAVAIL;
        return -1;
    }
    return static_cast<int>(syscall(SYS_bind, descriptor, address, size));
}

// The system's wait, which can be made to find everything readable at once, or to wait until
// several are.
static std::atomic<bool> sbAlwaysReadable{false};
static std::atomic<int> snTogether{0};
extern "C" VX_EXPORT int ppoll(pollfd* entries, nfds_t count, const timespec* limit,
                               const sigset_t* mask)
{
    if (sbAlwaysReadable) {
        for (nfds_t i = 0; i < count; ++i)
            entries[i].revents = POLLIN;
        return static_cast<int>(count);
    }
    if (snTogether > 0) {
        EXPECT_TRUE(WaitUntil([&] { return poll(entries, count, 0) >= snTogether; }));
        return snTogether;
    }
    timespec left{};
    if (limit != nullptr) left = *limit;
    return static_cast<int>(
        syscall(SYS_ppoll, entries, count, limit != nullptr ? &left : nullptr, mask, sizeof(long)));
}

namespace {

constexpr uint16_t gnPort = 52112;
constexpr char gsEverybody[] = "255.255.255.255";
const std::string gsRequest("\xCD\x0C\xCD\x0C\xCD\xAC\xED\xBE", 8);
const std::string gsMarkers("\xCD\xAC\xED\xBE\xCD\x0C\xCD\x0C", 8);

std::string ReplyBytes(uint16_t port, uint32_t serial, uint32_t value = 0)
{
    return gsMarkers + LittleEndian(port, 2) + "unused" + LittleEndian(serial, 4) +
           LittleEndian(value, 4);
}

sockaddr_in AddressOf(const std::string& text, uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = inet_addr(text.c_str());
    return address;
}

std::string TextOf(const sockaddr_in& address)
{
    char text[INET_ADDRSTRLEN];
    return inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
}

int UdpSocket(const std::string& address, uint16_t port)
{
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(descriptor, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
    const sockaddr_in local = AddressOf(address, port);
    EXPECT_EQ(0, bind(descriptor, reinterpret_cast<const sockaddr*>(&local), sizeof local))
        << address << ' ' << strerror(errno);
    return descriptor;
}

struct tsRequest {
    std::string bytes, address;
    uint16_t port;
};

struct tsReply {
    std::string from; // an address of the answering host
    std::string bytes;
};

// Hears broadcasts in one network and answers each with some datagrams.
class tcDiscoveryPeer
{
public:
    tcDiscoveryPeer(const tcNetworkNamespace& network, const std::vector<tsReply>& replies,
                    const std::string& listenOn = gsEverybody)
    {
        network.Run([&] {
            mhSocket = UdpSocket(listenOn, gnPort);
            for (const tsReply& reply : replies)
                mvReplies.push_back({UdpSocket(reply.from, 0), reply.bytes});
        });
        mThread = std::thread([this] { Serve(); });
    }
    ~tcDiscoveryPeer()
    {
        eventfd_write(mhStop, 1);
        mThread.join();
        for (const auto& reply : mvReplies)
            close(reply.descriptor);
        close(mhSocket);
        close(mhStop);
    }
    tcDiscoveryPeer(const tcDiscoveryPeer&) = delete;
    tcDiscoveryPeer& operator=(const tcDiscoveryPeer&) = delete;

    std::vector<tsRequest> Requests()
    {
        std::lock_guard<std::mutex> lock(mMutex);
        return mvRequests;
    }

private:
    struct tsAnswer {
        int descriptor;
        std::string bytes;
    };

    void Serve()
    {
        for (;;) {
            pollfd entries[] = {{mhSocket, POLLIN, 0}, {mhStop, POLLIN, 0}};
            poll(entries, 2, -1);
            if (entries[1].revents != 0) return;
            char buffer[100];
            sockaddr_in from{};
            socklen_t size = sizeof from;
            auto* address = reinterpret_cast<sockaddr*>(&from);
            const ssize_t n = recvfrom(mhSocket, buffer, sizeof buffer, 0, address, &size);
            if (n < 0) continue;
            {
                std::lock_guard<std::mutex> lock(mMutex);
                mvRequests.push_back({std::string(buffer, static_cast<size_t>(n)), TextOf(from),
                                      ntohs(from.sin_port)});
            }
            for (const tsAnswer& reply : mvReplies) {
                sendto(reply.descriptor, reply.bytes.data(), reply.bytes.size(), 0, address, size);
                std::this_thread::sleep_for(milliseconds(2)); // they are to arrive in this order
            }
        }
    }

    int mhSocket = -1, mhStop = eventfd(0, EFD_CLOEXEC);
    std::vector<tsAnswer> mvReplies;
    std::vector<tsRequest> mvRequests;
    std::mutex mMutex;
    std::thread mThread;
};

// The host's network, which the test's thread is in, and two networks with cameras.
class Discovery : public testing::Test
{
protected:
    Discovery() : host(reason), first(reason), second(reason) {}

    void SetUp() override
    {
        if (!host.Enter()) GTEST_SKIP() << reason;
    }

    void ConnectFirst()
    {
        ASSERT_TRUE(host.Connect("h1", "10.1.0.1/24", first, "c1", "10.1.0.2/24"));
    }
    void ConnectSecond()
    {
        ASSERT_TRUE(host.Connect("h2", "10.2.0.1/24", second, "c2", "10.2.0.2/24"));
    }

    // Discovers into a list of which no more than `max` records may be touched.
    std::vector<tsEnetData> Locate(int max = 10)
    {
        std::vector<tsEnetData> list(static_cast<size_t>(max) + 2);
        memset(list.data(), 0xEE, list.size() * sizeof(tsEnetData));
        result = VXLocateEnetCameras(list.data(), max);
        const auto* behind = reinterpret_cast<const uint8_t*>(&list[static_cast<size_t>(max)]);
        EXPECT_THAT(std::vector<uint8_t>(behind, behind + 2 * sizeof(tsEnetData)), Each(0xEE));
        list.resize(static_cast<size_t>(std::max(result, 0)));
        return list;
    }

    std::string reason;
    tcNetworkNamespace host, first, second;
    int result = -99;
};

std::vector<uint32_t> Serials(const std::vector<tsEnetData>& list)
{
    std::vector<uint32_t> serials;
    for (const tsEnetData& record : list)
        serials.push_back(record.SerialNumber);
    return serials;
}

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
    const auto start = steady_clock::now();
    EXPECT_TRUE(Locate().empty());
    EXPECT_EQ(0, result);
    EXPECT_LT(ElapsedMs(start), 400);
}

TEST_F(Discovery, TakesALittleOverHalfASecondWhenNobodyAnswers)
{
    ConnectFirst();
    ConnectSecond();
    int shortest = 10000;
    for (int i = 0; i < 3; ++i) {
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
    const auto start = steady_clock::now();
    EXPECT_THAT(Serials(Locate(1)), ElementsAre(1));
    EXPECT_LT(ElapsedMs(start), 450); // nothing is left to wait for
    // A late reply to the request before may be the first one.
    EXPECT_THAT(Serials(Locate(2)), testing::UnorderedElementsAre(1, 2));
    EXPECT_TRUE(Locate(0).empty());
    EXPECT_EQ(0, result);
    EXPECT_EQ(0, VXLocateEnetCameras(nullptr, 5));
    tsEnetData record;
    EXPECT_EQ(0, VXLocateEnetCameras(&record, -1));
}

TEST_F(Discovery, LeavesAReplyAloneForWhichThereIsNoRoom)
{
    ConnectFirst();
    ConnectSecond();
    tcDiscoveryPeer one(first, {{"10.1.0.2", ReplyBytes(1, 1)}});
    tcDiscoveryPeer other(second, {{"10.2.0.2", ReplyBytes(1, 2)}});
    snTogether = 2;
    EXPECT_THAT(Serials(Locate(1)), ElementsAre(1));
    snTogether = 0;
}

TEST_F(Discovery, UsesTheNextPortWhereItsOwnIsTaken)
{
    ConnectFirst();
    ConnectSecond();
    tcDiscoveryPeer one(first, {{"10.1.0.2", ReplyBytes(1, 1)}});
    tcDiscoveryPeer other(second, {{"10.2.0.2", ReplyBytes(1, 2)}});
    const int taken = UdpSocket("10.1.0.1", gnPort);
    EXPECT_THAT(Serials(Locate()), testing::UnorderedElementsAre(1, 2));
    EXPECT_THAT(one.Requests(), Each(Field(&tsRequest::port, gnPort + 1)));
    EXPECT_THAT(other.Requests(), Each(Field(&tsRequest::port, gnPort)));
    close(taken);
}

TEST_F(Discovery, FindsACameraOnThisHost)
{
    tcDiscoveryPeer peer(host, {{"127.0.0.1", ReplyBytes(1, 4)}}, "0.0.0.0");
    const auto list = Locate();
    EXPECT_THAT(Serials(list), ElementsAre(4));
    EXPECT_EQ("127.0.0.1", TextOf(list[0].SourceAddr));
}

TEST_F(Discovery, FailsWhenFivePortsAreTaken)
{
    ConnectFirst();
    tcDiscoveryPeer peer(first, {{"10.1.0.2", ReplyBytes(1, 1)}});
    std::vector<int> taken;
    for (uint16_t port = gnPort; port < gnPort + 4; ++port)
        taken.push_back(UdpSocket("10.1.0.1", port));
    EXPECT_THAT(Serials(Locate()), ElementsAre(1));
    // The last request is sent when the time is up: the peer may still have to take it.
    ASSERT_TRUE(WaitUntil([&] { return peer.Requests().size() >= 3; }));
    EXPECT_THAT(peer.Requests(), Each(Field(&tsRequest::port, gnPort + 4)));

    taken.push_back(UdpSocket("10.1.0.1", gnPort + 4));
    Locate();
    EXPECT_EQ(-1, result);
    EXPECT_THAT(peer.Requests(), SizeIs(3));
    for (int descriptor : taken)
        close(descriptor);
}

TEST_F(Discovery, TriesABindAgainThatFailsForAnotherReason)
{
    ConnectFirst();
    tcDiscoveryPeer peer(first, {{"10.1.0.2", ReplyBytes(1, 1)}});
    snBinds = 0;
    snFailingBinds = 20;
    EXPECT_THAT(Serials(Locate()), ElementsAre(1));
    EXPECT_EQ(22, snBinds); // loopback and h1
    EXPECT_THAT(peer.Requests(), Each(Field(&tsRequest::port, gnPort)));
}

TEST_F(Discovery, ClosesItsSockets)
{
    ConnectFirst();
    const int before = dup(0);
    close(before);
    Locate();
    const int after = dup(0);
    close(after);
    EXPECT_EQ(before, after);
}

TEST_F(Discovery, EndsThoughDatagramsDoNotCease)
{
    ConnectFirst();
    sbAlwaysReadable = true;
    const auto start = steady_clock::now();
    EXPECT_TRUE(Locate().empty());
    EXPECT_EQ(0, result);
    EXPECT_GE(ElapsedMs(start), 1000);
    EXPECT_LT(ElapsedMs(start), 5000);
    sbAlwaysReadable = false;
}

// ---- Opening by serial number ------------------------------------------------------------------

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
