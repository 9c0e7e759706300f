#include "SimClient.h"
#include "tcSimServer.h"

#include <array>

namespace {

class tcSeeker
{
public:
    explicit tcSeeker(uint16_t port)
    {
        mhSocket = socket(AF_INET, SOCK_DGRAM, 0);
        mtCamera.sin_family = AF_INET;
        mtCamera.sin_port = htons(port);
        mtCamera.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    }
    ~tcSeeker() { close(mhSocket); }

    void Send(const void* bytes, size_t count)
    {
        sendto(mhSocket, bytes, count, 0, reinterpret_cast<sockaddr*>(&mtCamera), sizeof mtCamera);
    }
    std::vector<uint8_t> Receive(int ms)
    {
        pollfd state{mhSocket, POLLIN, 0};
        if (poll(&state, 1, ms) <= 0) return {};
        std::vector<uint8_t> bytes(100);
        socklen_t length = sizeof mtSender;
        const ssize_t count = recvfrom(mhSocket, bytes.data(), bytes.size(), 0,
                                       reinterpret_cast<sockaddr*>(&mtSender), &length);
        bytes.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
        return bytes;
    }

    uint32_t Sender() const { return ntohl(mtSender.sin_addr.s_addr); }

private:
    int mhSocket;
    sockaddr_in mtCamera{}, mtSender{};
};

constexpr uint8_t gaRequest[8] = {0xCD, 0x0C, 0xCD, 0x0C, 0xCD, 0xAC, 0xED, 0xBE};

tsSimOptions Options()
{
    tsSimOptions options;
    options.columns = 0x140;
    options.rows = 0xF0;
    options.serial = 0x01020304;
    options.discovery = true;
    options.discoveryPort = 0;
    return options;
}

} // namespace

TEST(SimDiscovery, RepliesWithPortSerialNumberAndSize)
{
    tcSimServer server(Options());
    const uint16_t port = server.Start();
    tcSeeker seeker(server.DiscoveryPort());
    seeker.Send(gaRequest, sizeof gaRequest);
    const std::vector<uint8_t> reply = seeker.Receive(gnPatience);
    const std::vector<uint8_t> expected{0xCD,
                                        0xAC,
                                        0xED,
                                        0xBE,
                                        0xCD,
                                        0x0C,
                                        0xCD,
                                        0x0C,
                                        static_cast<uint8_t>(port),
                                        static_cast<uint8_t>(port >> 8),
                                        0,
                                        0,
                                        0,
                                        0,
                                        0,
                                        0,
                                        4,
                                        3,
                                        2,
                                        1,
                                        0xF0,
                                        0,
                                        0x40,
                                        1};
    EXPECT_EQ(reply, expected);
}

TEST(SimDiscovery, LeavesForeignDatagramsUnanswered)
{
    tcSimServer server(Options());
    server.Start();
    tcSeeker seeker(server.DiscoveryPort());
    seeker.Send(gaRequest, 7);
    seeker.Send("", 0);
    std::array<uint8_t, 9> longer{};
    std::copy(std::begin(gaRequest), std::end(gaRequest), longer.begin());
    seeker.Send(longer.data(), longer.size());
    std::array<uint8_t, 8> other{};
    std::copy(std::begin(gaRequest), std::end(gaRequest), other.begin());
    other[7] ^= 1;
    seeker.Send(other.data(), other.size());
    seeker.Send(std::string(2000, 'x').data(), 2000);
    seeker.Send(gaRequest, sizeof gaRequest);
    EXPECT_EQ(seeker.Receive(gnPatience).size(), 24u);
    EXPECT_TRUE(seeker.Receive(20).empty());
    EXPECT_EQ(server.Statistics().discoveryReplies, 1u);
}

TEST(SimDiscovery, RepliesFromTheAddressTheCameraListensOn)
{
    tsSimOptions options = Options();
    options.bind = "127.1.2.3";
    tcSimServer server(options);
    server.Start();
    tcSeeker seeker(server.DiscoveryPort());
    seeker.Send(gaRequest, sizeof gaRequest);
    ASSERT_EQ(seeker.Receive(gnPatience).size(), 24u);
    EXPECT_EQ(seeker.Sender(), 0x7F010203u);
}

TEST(SimDiscovery, SharesItsPortWithOtherCameras)
{
    tcSimServer first(Options());
    first.Start();
    tsSimOptions options = Options();
    options.discoveryPort = first.DiscoveryPort();
    tcSimServer second(options);
    EXPECT_NO_THROW(second.Start());
    EXPECT_EQ(second.DiscoveryPort(), first.DiscoveryPort());
}

TEST(SimDiscovery, IsOffUnlessAskedFor)
{
    tsSimOptions options = Options();
    options.discovery = false;
    tcSimServer server(options);
    server.Start();
    EXPECT_EQ(server.DiscoveryPort(), 0);
}
