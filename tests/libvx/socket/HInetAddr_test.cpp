#include "socket_support.h"

#include <arpa/inet.h>

#include <string>

TEST(HInetAddr, TakesDottedTextAndKeepsHostOrderOfPorts)
{
    HInetAddr address("10.1.2.3", 40000);
    EXPECT_STREQ("10.1.2.3", address.GetIPAddr());
    EXPECT_EQ(inet_addr("10.1.2.3"), address.GetAddr());
    EXPECT_EQ(40000, address.GetPort());
    EXPECT_EQ(AF_INET, address.GetSockAddr().sin_family);
    EXPECT_EQ(htons(40000), address.GetSockAddr().sin_port);
}

TEST(HInetAddr, TakesNumbersInNetworkOrder)
{
    HInetAddr address;
    address.Set(inet_addr("192.168.7.9"), 7);
    EXPECT_STREQ("192.168.7.9", address.GetIPAddr());
    EXPECT_EQ(7, address.GetPort());
}

TEST(HInetAddr, TakesTheSystemsRecord)
{
    const HInetAddr first("10.1.2.3", 40000);
    HInetAddr address(first.GetSockAddr());
    EXPECT_STREQ("10.1.2.3", address.GetIPAddr());
    EXPECT_EQ(40000, address.GetPort());
}

TEST(HInetAddr, ResolvesNames)
{
    EXPECT_STREQ("127.0.0.1", HInetAddr("localhost", 1).GetIPAddr());
}

TEST(HInetAddr, ReadsOtherNotationsOfNumbersAsTheSystemDoes)
{
    EXPECT_STREQ("127.0.0.1", HInetAddr("127.1", 1).GetIPAddr());
    EXPECT_STREQ("8.0.0.1", HInetAddr("010.0.0.1", 1).GetIPAddr());
    EXPECT_STREQ("127.0.0.1", HInetAddr("0x7f.1", 1).GetIPAddr());
    EXPECT_STREQ("0.0.0.0", HInetAddr("0", 1).GetIPAddr());
}

TEST(HInetAddr, TakesTextThatIsNeitherAsAllOnes)
{
    EXPECT_STREQ("255.255.255.255", HInetAddr("999.1.2", 1).GetIPAddr());
    EXPECT_STREQ("255.255.255.255", HInetAddr("", 1).GetIPAddr());
    EXPECT_STREQ("0.0.0.0", HInetAddr(nullptr, 1).GetIPAddr());
}

TEST(HInetAddr, TakesTheNamesOfASocket)
{
    tsTcpPair pair;
    HInetAddr own, peer;
    EXPECT_TRUE(own.GetSockName(pair.mClient));
    EXPECT_TRUE(peer.GetPeerName(pair.mClient));
    EXPECT_STREQ("127.0.0.1", own.GetIPAddr());
    EXPECT_EQ(pair.mClient.GetLocalPort(), own.GetPort());
    EXPECT_EQ(pair.mListener.GetLocalPort(), peer.GetPort());

    HSocket closed;
    EXPECT_FALSE(own.GetSockName(closed));
    EXPECT_FALSE(peer.GetPeerName(closed));
}

TEST(HUnixAddr, CutsLongPathsAndTerminatesThem)
{
    EXPECT_STREQ("/tmp/x", HUnixAddr("/tmp/x").GetPath());
    const HUnixAddr address(std::string(300, 'p').c_str());
    EXPECT_EQ(std::string(107, 'p'), address.GetPath());
    EXPECT_STREQ("", HUnixAddr(nullptr).GetPath());
}

TEST(HInetAddrList, AcceptsNothingWhenEmpty)
{
    HInetAddrList list;
    EXPECT_FALSE(list.Check(inet_addr("127.0.0.1")));
}

TEST(HInetAddrList, TakesTheMaskBehindASlash)
{
    HInetAddrList list;
    EXPECT_EQ(1, list.Add("10.0.0.0/8", nullptr));
    EXPECT_TRUE(list.Check(inet_addr("10.1.2.3")));
    EXPECT_FALSE(list.Check(inet_addr("11.0.0.1")));
}

TEST(HInetAddrList, PrefersTheMaskBehindTheSlash)
{
    HInetAddrList list;
    EXPECT_EQ(1, list.Add("10.0.0.0/8", "32"));
    EXPECT_TRUE(list.Check(inet_addr("10.1.2.3")));
}

TEST(HInetAddrList, TakesANullMaskAsThisAddressOnly)
{
    HInetAddrList list;
    EXPECT_EQ(1, list.Add("10.0.0.1", nullptr));
    EXPECT_TRUE(list.Check(inet_addr("10.0.0.1")));
    EXPECT_FALSE(list.Check(inet_addr("10.0.0.2")));
}

TEST(HInetAddrList, AcceptsEverythingWithPrefixLengthZero)
{
    HInetAddrList list;
    EXPECT_EQ(1, list.Add("10.0.0.0", "0"));
    EXPECT_TRUE(list.Check(inet_addr("1.2.3.4")));
    EXPECT_TRUE(list.Check(inet_addr("255.0.0.1")));
}

struct tsPrefix {
    const char* mpMask;
    const char* mpNear; // differs in the last bit of the mask
    const char* mpFar;  // differs behind it
};

TEST(HInetAddrList, CountsLeadingBitsOfPrefixLengths)
{
    const tsPrefix prefixes[] = {
        {"1", "138.0.0.0", "74.0.0.0"},   {"8", "11.0.0.0", "10.128.0.0"},
        {"24", "10.0.1.0", "10.0.0.128"}, {"31", "10.0.0.2", "10.0.0.1"},
        {"33", "138.0.0.0", "74.0.0.0"},  {"65569", "138.0.0.0", "74.0.0.0"},
    };
    for (const tsPrefix& prefix : prefixes) {
        HInetAddrList list;
        EXPECT_EQ(1, list.Add("10.0.0.0", prefix.mpMask));
        EXPECT_TRUE(list.Check(inet_addr("10.0.0.0"))) << prefix.mpMask;
        EXPECT_FALSE(list.Check(inet_addr(prefix.mpNear))) << prefix.mpMask;
        EXPECT_TRUE(list.Check(inet_addr(prefix.mpFar))) << prefix.mpMask;
    }
    HInetAddrList whole;
    whole.Add("10.0.0.0", "32");
    EXPECT_FALSE(whole.Check(inet_addr("10.0.0.1")));
    HInetAddrList cut; // 65536 is 0 in 16 bits
    cut.Add("10.0.0.0", "65536");
    EXPECT_TRUE(cut.Check(inet_addr("1.2.3.4")));
}

TEST(HInetAddrList, TakesMasksOfDottedText)
{
    HInetAddrList list;
    EXPECT_EQ(1, list.Add("192.168.1.0", "255.255.0.255"));
    EXPECT_TRUE(list.Check(inet_addr("192.168.77.0")));
    EXPECT_FALSE(list.Check(inet_addr("192.168.77.1")));
}

TEST(HInetAddrList, RefusesWhatIsNoDottedText)
{
    HInetAddrList list;
    EXPECT_EQ(0, list.Add("localhost", nullptr));
    EXPECT_EQ(0, list.Add("", nullptr));
    EXPECT_EQ(0, list.Add(nullptr, nullptr));
    EXPECT_EQ(0, list.Add((std::string(120, '0') + "10.0.0.1").c_str(), nullptr));
    EXPECT_EQ(0, list.GetCount());
    EXPECT_FALSE(list.Check(0xFFFFFFFFu));
}

TEST(HInetAddrList, TakesAddressesOfUpTo127Characters)
{
    HInetAddrList list;
    EXPECT_EQ(1, list.Add((std::string(119, '0') + "12.0.0.1").c_str(), nullptr)); // octal
    EXPECT_TRUE(list.Check(inet_addr("10.0.0.1")));
}

TEST(HInetAddrList, TakesTheBroadcastAddressAsAllOnes)
{
    HInetAddrList list;
    EXPECT_EQ(1, list.Add("255.255.255.255", nullptr));
    EXPECT_TRUE(list.Check(0xFFFFFFFFu));
    EXPECT_FALSE(list.Check(inet_addr("127.0.0.1")));
}

TEST(HInetAddrList, ChecksEntriesInTurnAndAddressObjects)
{
    HInetAddrList list;
    list.Add("10.0.0.1");
    list.Add("10.0.0.2");
    HInetAddr second("10.0.0.2", 1), third("10.0.0.3", 1);
    EXPECT_TRUE(list.Check(second));
    EXPECT_FALSE(list.Check(third));
}

TEST(HInetAddrList, RefusesTheThirtyThirdEntry)
{
    HInetAddrList list;
    for (int i = 0; i < 32; ++i)
        EXPECT_EQ(1, list.Add(("10.0.0." + std::to_string(i)).c_str()));
    EXPECT_EQ(0, list.Add("10.0.0.77"));
    EXPECT_EQ(32, list.GetCount());
    EXPECT_TRUE(list.Check(inet_addr("10.0.0.31")));
    EXPECT_FALSE(list.Check(inet_addr("10.0.0.77")));
}

TEST(HInetAddrList, ChecksThePeerOfASocket)
{
    tsTcpPair pair;
    HInetAddrList own, other, all;
    own.Add("127.0.0.0", "8");
    other.Add("10.0.0.0", "8");
    all.Add("0.0.0.0", "0");
    EXPECT_TRUE(own.CheckRemote(&pair.mServer));
    EXPECT_FALSE(other.CheckRemote(&pair.mServer));
    HSocket closed;
    EXPECT_FALSE(all.CheckRemote(&closed));
    EXPECT_FALSE(all.CheckRemote(nullptr));
}

TEST(HSocketLibrary, CanBeMadeAtAnyTime)
{
    const HSocketLibrary library;
    EXPECT_TRUE(HSocket().Create(0, SOCK_STREAM, nullptr));
}
