#include "HSocket.h"
#include "consumers_support.h"
#include "log_support.h"
#include "tcNetworkNamespace.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstring>

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

// A datagram socket of the test's own.
struct tsReceiver {
    tsReceiver() { mSocket.Create(0, SOCK_DGRAM, "127.0.0.1"); }

    std::string Next()
    {
        char buffer[2000];
        HInetAddr from;
        const int length = mSocket.ReceiveFrom(buffer, sizeof buffer, from, 5000);
        EXPECT_GT(length, 0);
        return std::string(buffer, length > 0 ? length : 0);
    }

    HSocket mSocket;
};

TEST(LogUdp, SendsLinesOrRecords)
{
    tsReceiver receiver;
    const tcLogEvent event = RecordOf(tcLogEvent::eError, 0, "x");
    tcLogUdp text("127.0.0.1", receiver.mSocket.GetLocalPort(), false, nullptr);
    text.Output(event);
    EXPECT_EQ(LineOf(event), receiver.Next());

    tcLogUdp binary("127.0.0.1", receiver.mSocket.GetLocalPort(), true, nullptr);
    binary.Output(event);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&event), 292), receiver.Next());
}

TEST(LogUdp, MaySendToEverybody)
{
    HSocket everybody;
    everybody.Create(0, SOCK_DGRAM, nullptr);
    const tcLogEvent event = RecordOf(tcLogEvent::eError, 0, "x");
    tcLogUdp broadcast("127.255.255.255", everybody.GetLocalPort(), false, nullptr);
    broadcast.Output(event);
    char buffer[400];
    HInetAddr from;
    const int length = everybody.ReceiveFrom(buffer, sizeof buffer, from, 5000);
    ASSERT_GT(length, 0);
    EXPECT_EQ(LineOf(event), std::string(buffer, length));
}

TEST(LogUdp, DescribesItself)
{
    const tcLogUdp text("10.0.0.5", 10101, false, nullptr);
    EXPECT_STREQ("UDP", text.TypeName());
    EXPECT_STREQ("UDP/txt to 10.0.0.5:10101", text.Description());
    EXPECT_STREQ(",10.0.0.5,10101", text.Options());

    const tcLogUdp binary(nullptr, 1, true, "127.0.0.1");
    EXPECT_STREQ("UDP/bin to 255.255.255.255:1 via 127.0.0.1", binary.Description());
    EXPECT_STREQ(",255.255.255.255,1,127.0.0.1", binary.Options());
    EXPECT_STREQ("255.255.255.255", tcLogUdp::mpDefaultAddr);
    EXPECT_EQ(10101, tcLogUdp::mnDefaultPort);
}

TEST(LogUdp, SaysWhereItsSocketIsBound)
{
    CaptureStdout();
    const tcLogUdp any("10.0.0.5", 1, false, nullptr), one("10.0.0.5", 1, false, "127.0.0.1");
    EXPECT_EQ("Binding to (null) : 0\nBind: 0\nBind successful\n"
              "Binding to 127.0.0.1 : 0\nBind: 0\nBind successful\n",
              GetCapturedStdout());
}

TEST(LogUdp, SendsThroughTheGivenDeviceWhereThereIsNoRoute)
{
    std::string reason;
    const tcNetworkNamespace network(reason);
    if (!network.Usable()) GTEST_SKIP() << reason;
    const tcLogEvent event = RecordOf(tcLogEvent::eError, 0, "x");
    char data[400] = "";
    ssize_t size = -1;
    network.Run([&] {
        HSocket member;
        member.Create(0, SOCK_DGRAM, nullptr);
        const ip_mreq group{{inet_addr("239.1.2.3")}, {inet_addr("127.0.0.1")}};
        EXPECT_EQ(0,
                  setsockopt(member.GetFD(), IPPROTO_IP, IP_ADD_MEMBERSHIP, &group, sizeof group));
        CaptureStdout();
        tcLogUdp through("239.1.2.3", member.GetLocalPort(), false, "lo");
        GetCapturedStdout();
        through.Output(event);
        HInetAddr from;
        size = member.ReceiveFrom(data, sizeof data, from, 5000);
    });
    ASSERT_GT(size, 0);
    EXPECT_EQ(LineOf(event), std::string(data, static_cast<size_t>(size)));
}

TEST(LogUdp, SendsFromTheGivenAddressOrDevice)
{
    tsReceiver receiver;
    const tcLogEvent event = RecordOf(tcLogEvent::eError, 0, "x");
    tcLogUdp address("127.0.0.1", receiver.mSocket.GetLocalPort(), false, "127.0.0.9");
    address.Output(event);
    char buffer[400];
    HInetAddr from;
    EXPECT_GT(receiver.mSocket.ReceiveFrom(buffer, sizeof buffer, from, 5000), 0);
    EXPECT_STREQ("127.0.0.9", from.GetIPAddr());

    tcLogUdp device("127.0.0.1", receiver.mSocket.GetLocalPort(), false, "lo");
    device.Output(event);
    EXPECT_EQ(LineOf(event), receiver.Next());
}

TEST(LogUdp, DoesNotReportUnreachableDestinations)
{
    tcLogUdp nowhere("no.such.host.invalid", 1, false, nullptr);
    testing::internal::CaptureStderr();
    nowhere.Output(RecordOf(tcLogEvent::eError, 0, "x"));
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
}
