// Clients on another host, and who hears of the daemon there. The other host is another network.
#include "HSocket.h"
#include "debug_support.h"
#include "tcNetworkNamespace.h"

#include <poll.h>

namespace {

using std::string_literals::operator""s;
using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr const char* pOwn = "10.9.0.1";
constexpr const char* pOther = "10.9.0.2";

// This process is on a host of its own, joined to another one by a cable.
class Strangers : public ::testing::Test
{
protected:
    Strangers() : mHere(msReason), mThere(msReason)
    {
        mbUsable = mHere.Usable() && mThere.Usable() &&
                   mHere.Connect("here", pOwn + "/24"s, mThere, "there", pOther + "/24"s) &&
                   mHere.Enter();
        setenv("DBGD_PORTNUM", "0", 1);
        unsetenv("DBGD_BIND");
        unsetenv("DBGD_ANNOUCE_GROUP");
        unsetenv("DBGD_DISABLE");
    }
    ~Strangers() override { Stop(); }

    void SetUp() override
    {
        if (!mbUsable) GTEST_SKIP() << msReason;
    }

    void Start()
    {
        mpDaemon->StartServer();
        EXPECT_TRUE(Eventually([this] { return mpDaemon->GetPort() != 0; }));
        mnPort = mpDaemon->GetPort();
    }
    void Stop()
    {
        mpDaemon->StopServer();
        EXPECT_TRUE(Eventually([this] { return mpDaemon->GetPort() == 0; }));
    }

    // What the daemon answers to a client on the other host.
    std::string AskFromThere(const std::string& request) const
    {
        std::string answer;
        mThere.Run([&] { answer = ::Ask(mnPort, request, pOther, pOwn); });
        return answer;
    }

    tcDaemonRecords mLog{0};
    std::string msReason;
    tcNetworkNamespace mHere, mThere;
    bool mbUsable = false;
    tcDbgd* mpDaemon = tcDbgd::getItem();
    unsigned short mnPort = 0;
};

class StrangersAndFiles : public Strangers
{
protected:
    StrangersAndFiles() : mLogger(*Keep(new tcLog("CAM", 1)))
    {
        char folder[] = "/tmp/log-strangers-XXXXXX";
        msFolder = mkdtemp(folder);
        std::filesystem::current_path(msFolder);
    }
    ~StrangersAndFiles() override
    {
        mLogger.CloseLog();
        std::filesystem::current_path("/");
        std::filesystem::remove_all(msFolder);
    }

    void ExpectRefusal(const std::string& request, const std::string& what) const
    {
        EXPECT_EQ("ERROR: " + what + " is refused: DBGD_ALLOW does not name 10.9.0.2\n",
                  AskFromThere(request))
            << request;
    }
    std::string Description() const { return mLogger.HeldConsumer()->Description(); }

    tcLog& mLogger;
    std::string msFolder;
};

// Hears what is sent to the group of the announcements through one interface of a host.
class tcListener
{
public:
    tcListener(const tcNetworkNamespace& host, const char* interface)
    {
        host.Run([&] {
            mhDescriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
            const int isOn = 1, isOff = 0;
            setsockopt(mhDescriptor, SOL_SOCKET, SO_REUSEADDR, &isOn, sizeof isOn);
            setsockopt(mhDescriptor, IPPROTO_IP, IP_MULTICAST_ALL, &isOff, sizeof isOff);
            const sockaddr_in address = Address("239.192.100.100", 7020);
            const ip_mreq group{address.sin_addr, {inet_addr(interface)}};
            EXPECT_EQ(0, bind(mhDescriptor, Plain(address), sizeof address));
            EXPECT_EQ(
                0, setsockopt(mhDescriptor, IPPROTO_IP, IP_ADD_MEMBERSHIP, &group, sizeof group));
        });
    }
    ~tcListener() { close(mhDescriptor); }
    tcListener(const tcListener&) = delete;
    tcListener& operator=(const tcListener&) = delete;

    // Who sends the next announcement, within 10 s.
    std::string Sender()
    {
        pollfd state{mhDescriptor, POLLIN, 0};
        char text[64];
        sockaddr_in from{};
        socklen_t size = sizeof from;
        if (poll(&state, 1, 10000) != 1 || recvfrom(mhDescriptor, text, sizeof text, 0,
                                                    reinterpret_cast<sockaddr*>(&from), &size) <= 0)
            return "nobody";
        return inet_ntoa(from.sin_addr);
    }
    bool HasHeard() const
    {
        char byte;
        return recv(mhDescriptor, &byte, 1, MSG_PEEK | MSG_DONTWAIT) >= 0;
    }

private:
    int mhDescriptor = -1;
};

class Announcements : public Strangers
{
protected:
    Announcements()
    {
        tcDbgd::snAnnounceInterval = 10;
        // Where announcements would go by themselves.
        mHere.Execute("ip route add default via 10.9.0.2");
    }

    // Time for some more.
    static void ExpectMoreOf(tcListener& listener, const char* sender)
    {
        for (int i = 0; i < 5; ++i)
            EXPECT_EQ(sender, listener.Sender());
    }
};

} // namespace

TEST_F(StrangersAndFiles, MayDoWhatNeitherOpensFilesNorSendsAnywhere)
{
    Start();
    EXPECT_EQ("x\n", AskFromThere("ECHO:x"));
    EXPECT_THAT(AskFromThere("LIST"), StartsWith("Available Tokens:\n"));
    EXPECT_THAT(AskFromThere("HELP:LOG"), StartsWith("LOG:LIST"));
    EXPECT_THAT(AskFromThere("LOG:LIST"), HasSubstr("CAM = 1"));
    EXPECT_THAT(AskFromThere("LOG:DIR"), HasSubstr("CAM,1"));
    EXPECT_EQ("", AskFromThere("LOG:SET CAM 3"));
    EXPECT_EQ(3, mLogger.getDbgLevel());
    EXPECT_EQ("", AskFromThere("LOG:SET CAM 2 20"));
    EXPECT_EQ("20 Line Buffer", Description());
    mLogger.logDebug(1, "text");
    EXPECT_THAT(AskFromThere("LOG:DUMP CAM"), HasSubstr(":text\n"));
    EXPECT_EQ("", AskFromThere("LOG:SET CAM 2 ."));
    EXPECT_EQ("", AskFromThere("LOG:SET CAM 2 -"));
    EXPECT_EQ("Log to a stream", Description());
    EXPECT_EQ("", AskFromThere("LOG:SET CAM 2"));
    EXPECT_EQ("CAM = 2 [NULL Log Device]\n", AskFromThere("LOG:GET CAM"));
    EXPECT_EQ("", AskFromThere("LOG:ENABLE 0"));
    EXPECT_EQ("", AskFromThere("LOG:ENABLE 1"));
    mLogger.logError("trouble");
    EXPECT_THAT(AskFromThere("LOG:ERRS"), HasSubstr("trouble"));
}

TEST_F(StrangersAndFiles, AreRefusedWhatOpensFilesOrSendsSomewhere)
{
    Start();
    for (const char* request :
         {"LOG:SET CAM 4 file", "LOG:SET CAM 4 0", "LOG:SET CAM 4 /tmp/x", "LOG:SET NOBODY 4 file"})
        ExpectRefusal(request, "LOG:SET with a file");
    for (const char* request : {"LOG:URI CAM file:name", "LOG:URI CAM udp:10.9.0.2:9",
                                "LOG:URI  CAM\tudp://10.9.0.2:9:bin"})
        ExpectRefusal(request, "LOG:URI");
    EXPECT_EQ(1, mLogger.getDbgLevel());
    EXPECT_EQ("NULL Log Device", Description());
    EXPECT_TRUE(std::filesystem::is_empty(msFolder));
}

TEST_F(StrangersAndFiles, WhoIsOnThisHostIsNone)
{
    Start();
    for (const char* address : {"127.0.0.1", "127.0.0.9", pOwn}) {
        const char* to = address == pOwn ? pOwn : "127.0.0.1";
        EXPECT_EQ("", ::Ask(mnPort, "LOG:SET CAM 4 file", address, to)) << address;
        EXPECT_EQ("file", Description());
        EXPECT_EQ("", ::Ask(mnPort, "LOG:SET CAM 4", address, to));
        EXPECT_EQ("", ::Ask(mnPort, "LOG:URI CAM file:other", address, to));
        EXPECT_EQ("other", Description());
        EXPECT_EQ("", ::Ask(mnPort, "LOG:URI CAM", address, to));
    }
}

TEST_F(StrangersAndFiles, WhoIsAdmittedByNameIsNone)
{
    setenv("DBGD_ALLOW", "10.9.0.2", 1);
    Start();
    EXPECT_EQ("", AskFromThere("LOG:SET CAM 4 file"));
    EXPECT_EQ("file", Description());
    Stop();
    setenv("DBGD_ALLOW", "127.0.0.1,10.0.0.0/8", 1);
    Start();
    EXPECT_EQ("", AskFromThere("LOG:URI CAM file:other"));
    EXPECT_EQ("other", Description());
}

TEST_F(StrangersAndFiles, StayStrangersWhenTheyAreGoneBeforeTheirRequestIsServed)
{
    Start();
    mThere.Run([&] {
        for (int i = 0; i < 200; ++i) {
            const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
            const sockaddr_in remote = Address(pOwn, mnPort);
            EXPECT_EQ(0, connect(client, Plain(remote), sizeof remote));
            const std::string request = "LOG:SET CAM 4 file";
            send(client, request.data(), request.size(), MSG_NOSIGNAL);
            const linger atOnce{1, 0};
            setsockopt(client, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
            close(client);
        }
    });
    EXPECT_EQ("x\n", AskFromThere("ECHO:x")); // served behind them
    Stop();
    EXPECT_FALSE(std::filesystem::exists(msFolder + "/file"));
}

TEST_F(Strangers, ApplicationsMayAskWhoIsTrusted)
{
    class tcTrusting : public tcDbgdWB
    {
    public:
        tcTrusting() : tcDbgdWB("TRUST", "") {}
        void Run(HSocket* client, char*) override
        {
            const char* answer = tcDbgd::getItem()->Trusts(client) ? "yes" : "no";
            EXPECT_GT(send(client->GetFD(), answer, strlen(answer), MSG_NOSIGNAL), 0);
        }
    } handler;
    mpDaemon->RegisterWB(&handler);
    EXPECT_TRUE(mpDaemon->Trusts(nullptr));
    Start();
    EXPECT_EQ("no", AskFromThere("TRUST"));
    EXPECT_EQ("yes", ::Ask(mnPort, "TRUST"));
    mpDaemon->RemoveWB(&handler);
}

TEST_F(Announcements, OfADaemonOnLoopbackStayThere)
{
    setenv("DBGD_BIND", "127.0.0.1", 1);
    tcListener loopback(mHere, "127.0.0.1"), outside(mHere, pOwn), there(mThere, pOther);
    Start();
    ExpectMoreOf(loopback, "127.0.0.1");
    EXPECT_FALSE(outside.HasHeard());
    EXPECT_FALSE(there.HasHeard());
}

TEST_F(Announcements, OfADaemonOnOneAddressComeFromThereOnly)
{
    // A second cable, which the route to the group prefers.
    std::string reason;
    const tcNetworkNamespace third(reason);
    ASSERT_TRUE(mHere.Connect("other", "10.8.0.1/24", third, "third", "10.8.0.2/24"));
    ASSERT_TRUE(mHere.Execute("ip route add 239.0.0.0/8 dev other"));
    setenv("DBGD_BIND", pOwn, 1);
    tcListener there(mThere, pOther), elsewhere(third, "10.8.0.2"), loopback(mHere, "127.0.0.1");
    Start();
    ExpectMoreOf(there, pOwn);
    EXPECT_FALSE(elsewhere.HasHeard());
    EXPECT_FALSE(loopback.HasHeard());
}

TEST_F(Announcements, OfADaemonOnAllAddressesGoWhereTheRouteLeads)
{
    tcListener there(mThere, pOther);
    Start();
    ExpectMoreOf(there, pOwn);
}

TEST_F(Announcements, OfADaemonOnLoopbackAreNotSentToAnotherHost)
{
    setenv("DBGD_BIND", "127.0.0.1", 1);
    setenv("DBGD_ANNOUCE_GROUP", "10.9.0.2:7020", 1);
    int descriptor = -1;
    mThere.Run([&] { descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0); });
    const sockaddr_in all = Address("0.0.0.0", 7020);
    ASSERT_EQ(0, bind(descriptor, Plain(all), sizeof all));
    tcListener loopback(mHere, "127.0.0.1");
    Start();
    static auto* const first =
        tcDbgd::getItem(); // which stays, though the next one takes its place
    EXPECT_NE(nullptr, first);
    auto* second = new tcDbgd; // meanwhile, as a clock
    setenv("DBGD_ANNOUCE_GROUP", "239.192.100.100:7020", 1);
    second->StopServer();
    second->StartServer();
    ExpectMoreOf(loopback, "127.0.0.1");
    delete second;
    char byte;
    EXPECT_LT(recv(descriptor, &byte, 1, MSG_DONTWAIT), 0);
    close(descriptor);
}
