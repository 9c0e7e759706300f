// vxcam daemons: who announces a debug daemon.
#include "announcement.h"
#include "service_support.h"
#include "tcNetworkNamespace.h"

using std::string_literals::operator""s;
using testing::HasSubstr;

namespace {

// The port that a run listens on, said by it nowhere: taken for it beforehand.
uint16_t FreeUdpPort()
{
    return tcUdpPort().Port();
}

std::string Group(uint16_t port)
{
    return "127.0.0.1:" + std::to_string(port);
}

} // namespace

TEST(Announcement, TellsNameAndPort)
{
    const auto heard = ParseAnnouncement("DBGD DBGD 17020\0"s);
    ASSERT_TRUE(heard);
    EXPECT_EQ(heard->name, "DBGD");
    EXPECT_EQ(heard->port, 17020);
    EXPECT_EQ(ParseAnnouncement("DBGD my camera 1")->name, "my camera");
    EXPECT_EQ(ParseAnnouncement("DBGD DBGD 1\0garbage"s)->port, 1);
}

TEST(Announcement, HasHighPortsAsNegativeNumbers)
{
    for (int port : {1, 32767, 32768, 47000, 65535}) {
        const std::string text = "DBGD DBGD " + std::to_string(static_cast<int16_t>(port));
        ASSERT_TRUE(ParseAnnouncement(text)) << text;
        EXPECT_EQ(ParseAnnouncement(text)->port, port);
    }
    EXPECT_EQ(ParseAnnouncement("DBGD DBGD 40000")->port, 40000);
}

TEST(Announcement, IsNotWhatSaysSomethingElse)
{
    for (const std::string& bytes :
         {""s, "\0"s, "DBGD"s, "DBGD "s, "DBGD DBGD"s, "DBGD DBGD "s, "DBGD DBGD 0"s,
          "DBGD DBGD x"s, "DBGD DBGD 1x"s, "DBGD DBGD 65536"s, "DBGD DBGD -32769"s,
          "DBGD DBGD 99999999999"s, "DBGD  1"s, "dbgd DBGD 1"s, " DBGD DBGD 1"s, "DBGD DBGD\0 1"s,
          std::string(65000, 'x')}) {
        EXPECT_FALSE(ParseAnnouncement(bytes)) << bytes.substr(0, 30);
    }
}

// A daemon that announces itself every 20 ms.
TEST_F(Services, AreFoundByTheirAnnouncements)
{
    const uint16_t port = FreeUdpPort();
    tcDbgd::getItem()->StopServer();
    tcDbgd::snAnnounceInterval = 20;
    ::setenv("DBGD_ANNOUCE_GROUP", Group(port).c_str(), 1);
    ::setenv("DBGD_PORTNUM", "0", 1);
    tcDbgd::getItem()->StartServer();
    EXPECT_TRUE(WaitUntil([] { return tcDbgd::getItem()->GetPort() != 0; }));
    const std::string place = "127.0.0.1:" + std::to_string(tcDbgd::getItem()->GetPort());
    EXPECT_EQ(Printed({"daemons", "--count", "1"}), place + "  DBGD\n");
    EXPECT_EQ(Printed({"daemons", "--count", "1", "--group", Group(port), "-q"}), "");
    const auto document = nlohmann::json::parse(Printed({"daemons", "--for", "200ms", "--json"}));
    EXPECT_EQ(document["group"], Group(port));
    ASSERT_EQ(document["daemons"].size(), 1u);
    EXPECT_EQ(document["daemons"][0]["name"], "DBGD");
    EXPECT_EQ(document["daemons"][0]["address"], "127.0.0.1");
    EXPECT_EQ(document["daemons"][0]["port"], tcDbgd::getItem()->GetPort());
    EXPECT_GT(document["daemons"][0]["announcements"], 1);
    EXPECT_EQ(document["daemons"][0]["answers"], true);
}

TEST(Daemons, AreListedOnceEachWhateverElseIsSent)
{
    const uint16_t port = FreeUdpPort();
    tcRun run({"daemons", "--group", Group(port), "--count", "3"});
    tcUdpPort sender;
    EXPECT_TRUE(WaitUntil([&] {
        for (const std::string& text :
             {"DBGD B -1\0"s, "garbage"s, "DBGD A -1\0"s, ""s, "DBGD A 5\0"s, "DBGD \x1b 0"s}) {
            sender.Send(port, text);
        }
        return !run.Output().empty();
    }));
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_EQ(run.Output(), "127.0.0.1:5  A (does not answer)\n"
                            "127.0.0.1:65535  A (does not answer)\n"
                            "127.0.0.1:65535  B (does not answer)\n");
}

TEST(Daemons, AreHeardInTheirGroup)
{
    const uint16_t port = FreeUdpPort();
    tcRun run({"daemons", "--group", "239.192.100.100:" + std::to_string(port), "--interface",
               "127.0.0.1", "--count", "1"});
    tcUdpPort sender;
    const in_addr loopback{htonl(INADDR_LOOPBACK)};
    ::setsockopt(sender.Handle(), IPPROTO_IP, IP_MULTICAST_IF, &loopback, sizeof loopback);
    EXPECT_TRUE(WaitUntil([&] {
        sender.Send(port, "DBGD DBGD 1\0"s, 0xEFC06464);
        return !run.Output().empty();
    }));
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_EQ(run.Output(), "127.0.0.1:1  DBGD (does not answer)\n");
}

// It listens on loopback and is heard from another address of this host.
TEST(Daemons, AreListedWhereTheyAnswer)
{
    std::string reason;
    tcNetworkNamespace host(reason), other(reason);
    if (!host.Enter()) GTEST_SKIP() << reason;
    ASSERT_TRUE(host.Connect("h1", "10.1.0.1/24", other, "o1", "10.1.0.2/24"));
    const tcFixedService daemon("vxcam\n"), stranger("HTTP/1.0 400 Bad\r\n\r\n");
    const uint16_t port = FreeUdpPort();
    tcRun run({"daemons", "--group", "10.1.0.1:" + std::to_string(port), "--count", "2"});
    tcUdpPort sender("10.1.0.1");
    EXPECT_TRUE(WaitUntil([&] {
        for (const tcFixedService* service : {&daemon, &stranger}) {
            const std::string target = service->Target();
            sender.Send(port, "DBGD D " + target.substr(target.find(':') + 1), 0x0A010001);
        }
        return !run.Output().empty();
    }));
    EXPECT_EQ(run.Exit(), 0);
    const std::string place = stranger.Target().substr(stranger.Target().find(':'));
    EXPECT_EQ(run.Output(),
              "10.1.0.1" + place + "  D (does not answer)\n" + daemon.Target() + "  D\n");
}

// A daemon on all addresses of a host that has no route to the group.
class DaemonsWithoutARoute : public testing::TestWithParam<const char*>
{};

TEST_P(DaemonsWithoutARoute, AreFound)
{
    std::string reason;
    tcNetworkNamespace host(reason), other(reason);
    if (!host.Enter()) GTEST_SKIP() << reason;
    const std::string address = GetParam();
    if (address != "127.0.0.1") {
        ASSERT_TRUE(host.Connect("h1", address + "/24", other, "o1", "10.1.0.2/24"));
    }
    for (const char* name : {"DBGD_DISABLE", "DBGD_BIND", "DBGD_ANNOUCE_GROUP"}) {
        ::unsetenv(name);
    }
    ::setenv("DBGD_PORTNUM", "0", 1);
    tcDbgd::snAnnounceInterval = 20;
    tcDbgd::getItem()->StartServer();
    EXPECT_TRUE(WaitUntil([] { return tcDbgd::getItem()->GetPort() != 0; }));
    tcRun run({"daemons", "--count", "1"});
    EXPECT_EQ(run.Exit(), 0) << run.Errors();
    EXPECT_EQ(run.Output(),
              address + ":" + std::to_string(tcDbgd::getItem()->GetPort()) + "  DBGD\n");
    tcDbgd::getItem()->StopServer();
    EXPECT_TRUE(WaitUntil([] { return tcDbgd::getItem()->GetPort() == 0; }));
}

INSTANTIATE_TEST_SUITE_P(Hosts, DaemonsWithoutARoute, testing::Values("10.1.0.1", "127.0.0.1"));

TEST(Daemons, WithoutOneEndWithTwo)
{
    const std::string group = Group(FreeUdpPort());
    ExpectFailure({"daemons", "--group", group, "--for", "50ms"}, 2,
                  "no process announced itself to " + group + " within 50 ms");
    ExpectFailure({"daemons", "--group", "x:y"}, 1, "group 'x:y'");
    tcRun run({"daemons", "--group", group, "--for", "50ms", "--json"});
    EXPECT_EQ(run.Exit(), 2);
    EXPECT_EQ(run.Document()["error"]["exit_code"], 2);
    EXPECT_TRUE(run.Document()["daemons"].empty());
}
