// Cameras that answer to discovery, each in a network of its own.
#ifndef DISCOVERY_SUPPORT_H
#define DISCOVERY_SUPPORT_H

#include "link_support.h"

#include "tcNetworkNamespace.h"
#include "vxcamiface.h"

#include <sys/eventfd.h>

using testing::Each;

inline constexpr uint16_t gnPort = 52112;
inline constexpr char gsEverybody[] = "255.255.255.255";

inline const std::string gsMarkers("\xCD\xAC\xED\xBE\xCD\x0C\xCD\x0C", 8);

inline std::string ReplyBytes(uint16_t port, uint32_t serial, uint32_t value = 0)
{
    return gsMarkers + LittleEndian(port, 2) + "unused" + LittleEndian(serial, 4) +
           LittleEndian(value, 4);
}

inline sockaddr_in AddressOf(const std::string& text, uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = inet_addr(text.c_str());
    return address;
}

inline std::string TextOf(const sockaddr_in& address)
{
    char text[INET_ADDRSTRLEN];
    return inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
}

inline int UdpSocket(const std::string& address, uint16_t port)
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

inline std::vector<uint32_t> Serials(const std::vector<tsEnetData>& list)
{
    std::vector<uint32_t> serials;
    for (const tsEnetData& record : list)
        serials.push_back(record.SerialNumber);
    return serials;
}

#endif
