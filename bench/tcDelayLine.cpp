#include "tcDelayLine.h"

#include <linux/if.h>
#include <linux/if_tun.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <stdexcept>

using std::chrono::nanoseconds;
using std::chrono::steady_clock;

namespace {

constexpr size_t gnPacketBytes = 2048; // more than the interfaces' packets
constexpr auto gIdle = std::chrono::milliseconds(20);
// As systems have them that nobody has tuned, apart from a queue that holds what comes in a burst.
constexpr char gsSetUp[] = " dev way && ip link set way up mtu 1500 txqueuelen 20000"
                           " && echo '4096 131072 6291456' > /proc/sys/net/ipv4/tcp_rmem"
                           " && echo '4096 16384 4194304' > /proc/sys/net/ipv4/tcp_wmem";

} // namespace

tcDelayLine::tcDelayLine(std::chrono::microseconds delay)
    : mDelay(delay), mFar(msReason), mNear(msReason)
{
    if (!mFar.Usable() || !mNear.Usable()) throw std::runtime_error(msReason);
    mhFar = MakeInterface(mFar, sFarAddress);
    mhNear = MakeInterface(mNear, sNearAddress);
}

tcDelayLine::~tcDelayLine()
{
    mbStop = true;
    if (mThread.joinable()) mThread.join();
    close(mhFar);
    close(mhNear);
}

void tcDelayLine::EnterFar()
{
    if (!mFar.Enter()) throw std::runtime_error("cannot enter a network");
}

void tcDelayLine::EnterNear()
{
    if (!mNear.Enter()) throw std::runtime_error("cannot enter a network");
}

void tcDelayLine::Start()
{
    mThread = std::thread(&tcDelayLine::Relay, this);
}

int tcDelayLine::MakeInterface(const tcNetworkNamespace& network, const std::string& address)
{
    int descriptor = -1;
    network.Run([&] {
        descriptor = open("/dev/net/tun", O_RDWR | O_CLOEXEC | O_NONBLOCK);
        ifreq request{};
        strcpy(request.ifr_name, "way");
        request.ifr_flags = IFF_TUN | IFF_NO_PI;
        if (ioctl(descriptor, TUNSETIFF, &request) != 0) descriptor = -1;
    });
    if (descriptor < 0 || !network.Execute("ip addr add " + address + "/24" + gsSetUp)) {
        throw std::runtime_error("cannot make an interface of a network's own");
    }
    return descriptor;
}

void tcDelayLine::Relay()
{
    tsDirection directions[] = {{mhFar, mhNear, {}}, {mhNear, mhFar, {}}};
    while (!mbStop) {
        auto next = steady_clock::now() + gIdle;
        for (const tsDirection& direction : directions) {
            if (!direction.packets.empty()) next = std::min(next, direction.packets.front().due);
        }
        const nanoseconds left = std::max(nanoseconds(0), nanoseconds(next - steady_clock::now()));
        const timespec limit{0, static_cast<long>(left.count())};
        pollfd entries[] = {{mhFar, POLLIN, 0}, {mhNear, POLLIN, 0}};
        ppoll(entries, 2, &limit, nullptr);
        for (tsDirection& direction : directions) {
            TakeIn(direction);
            PutOut(direction);
        }
    }
}

void tcDelayLine::TakeIn(tsDirection& direction)
{
    char bytes[gnPacketBytes];
    const auto due = steady_clock::now() + mDelay;
    for (;;) {
        const ssize_t length = read(direction.from, bytes, sizeof bytes);
        if (length <= 0) return;
        direction.packets.push_back({due, std::vector<char>(bytes, bytes + length)});
    }
}

void tcDelayLine::PutOut(tsDirection& direction)
{
    const auto now = steady_clock::now();
    auto& packets = direction.packets;
    for (; !packets.empty() && packets.front().due <= now; packets.pop_front()) {
        const tsPacket& packet = packets.front();
        if (write(direction.to, packet.bytes.data(), packet.bytes.size()) < 0) return;
    }
}
