// Looking for cameras: the datagrams of the library, heard and answered by a bare socket.
#include "tcPattern.h"

#include "tcNetworkNamespace.h"

#include <vxcamiface.h>

#include <future>
#include <memory>

namespace {

// Answers what comes to port 52112 with each of `replies`; gives back what came first.
tBytes Answer(int descriptor, const std::vector<tcPattern>& replies)
{
    tBytes request(64);
    pollfd entry{descriptor, POLLIN, 0};
    if (poll(&entry, 1, 10000) != 1) return {};
    sockaddr_in sender{};
    socklen_t size = sizeof sender;
    ssize_t count = recvfrom(descriptor, request.data(), request.size(), 0,
                             reinterpret_cast<sockaddr*>(&sender), &size);
    for (const tcPattern& reply : replies) {
        const tBytes bytes = reply.Bytes();
        sendto(descriptor, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&sender),
               size);
    }
    request.resize(count < 0 ? 0 : static_cast<size_t>(count));
    return request;
}

class WireDiscovery : public testing::Test
{
protected:
    void SetUp() override
    {
        std::string reason;
        mpNetwork = std::make_unique<tcNetworkNamespace>(reason);
        if (!mpNetwork->Usable()) GTEST_SKIP() << reason;
        ASSERT_TRUE(mpNetwork->Execute("ip route add default dev lo"));
        ASSERT_TRUE(mpNetwork->Enter());
        mhSocket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(52112);
        ASSERT_EQ(bind(mhSocket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }
    void TearDown() override
    {
        if (mhSocket >= 0) close(mhSocket);
    }

    int mhSocket = -1;
    std::unique_ptr<tcNetworkNamespace> mpNetwork;
};

TEST_F(WireDiscovery, SendsEightBytesAndReadsTwentyFour)
{
    tBytes request;
    std::thread peer([&] {
        request = Answer(mhSocket, {"CD AC ED BE  CD 0C CD 0C  11 F2  D1 D2 D3 D4 D5 D6"
                                    "21 22 23 F4  31 32 33 F4"});
    });
    tsEnetData found[2];
    memset(found, 0xCC, sizeof found);
    EXPECT_EQ(VXLocateEnetCameras(found, 2), 1);
    peer.join();
    EXPECT_TRUE(tcPattern("CD 0C CD 0C  CD AC ED BE").Fits(request));
    const auto* record = reinterpret_cast<const uint8_t*>(found);
    // Family 2, port 52112, the address it came from, zeros; port, unused, serial number, value.
    EXPECT_TRUE(tcPattern("02 00  CB 90  7F 00 00 01  00 00 00 00 00 00 00 00"
                          "11 F2  .. ..  21 22 23 F4  31 32 33 F4")
                    .Fits(tBytes(record, record + 28)));
}

TEST_F(WireDiscovery, TakesNothingWithoutBothMarks)
{
    std::thread peer([&] {
        Answer(mhSocket,
               {"CD AC ED BE  CD 0C CD 0D  11 12  D1 D2 D3 D4 D5 D6  21 22 23 24  31 32 33 34",
                "CD AC ED BF  CD 0C CD 0C  11 12  D1 D2 D3 D4 D5 D6  21 22 23 24  31 32 33 34",
                "CD 0C CD 0C  CD AC ED BE  11 12  D1 D2 D3 D4 D5 D6  21 22 23 24  31 32 33 34"});
    });
    tsEnetData found[2];
    EXPECT_EQ(VXLocateEnetCameras(found, 2), 0);
    peer.join();
}

} // namespace
