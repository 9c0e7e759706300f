// A camera that is nothing but a socket and a table of bytes.
#ifndef TCWIREPEER_H
#define TCWIREPEER_H

#include "tcByteLink.h"

#include <vxcamiface.h>

#include <future>
#include <sstream>

// Listens, answers the opening, and then says and hears what a test tells it.
// Threads: one; calls that wait for an answer run beside it, see Asked.
class tcWirePeer
{
public:
    static constexpr unsigned kRows = 0x0321, kColumns = 0x0204;

    explicit tcWirePeer(unsigned rows = kRows, unsigned columns = kColumns)
        : maHardware(Mixed(100, 7))
    {
        maHardware[42] = static_cast<uint8_t>(rows);
        maHardware[43] = static_cast<uint8_t>(rows >> 8);
        maHardware[46] = static_cast<uint8_t>(columns);
        maHardware[47] = static_cast<uint8_t>(columns >> 8);
        mhListener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address = tcByteLink::Loopback(0);
        socklen_t size = sizeof address;
        if (bind(mhListener, reinterpret_cast<sockaddr*>(&address), size) == 0 &&
            listen(mhListener, 4) == 0 &&
            getsockname(mhListener, reinterpret_cast<sockaddr*>(&address), &size) == 0)
            mnPort = ntohs(address.sin_port);
    }
    ~tcWirePeer()
    {
        if (mnHandle >= 0) VXCloseCamera(mnHandle);
        close(mhListener);
    }
    tcWirePeer(const tcWirePeer&) = delete;
    tcWirePeer& operator=(const tcWirePeer&) = delete;

    // Runs a call that waits for an answer.
    template <class tFunction>
    static auto Asked(tFunction function)
    {
        return std::async(std::launch::async, std::move(function));
    }

    // Has the library open this camera, and checks what it says meanwhile: no-op messages off, then
    // the question for the hardware information.
    void Open()
    {
        auto handle = Asked([port = mnPort] { return VXOpenENetCamera("127.0.0.1", port); });
        pollfd entry{mhListener, POLLIN, 0};
        ASSERT_EQ(poll(&entry, 1, 10000), 1) << "nobody connects";
        mLink = tcByteLink(accept4(mhListener, nullptr, nullptr, SOCK_CLOEXEC));
        Hears(0x5D, "00 00 00 00 00 00 00 00");
        Hears(0x34, "");
        Say(0x64, maHardware);
        mnHandle = handle.get();
        ASSERT_GE(mnHandle, 0);
    }

    int Handle() const { return mnHandle; }
    const tBytes& Hardware() const { return maHardware; }
    tcByteLink& Link() { return mLink; }

    void Say(unsigned id, const tcPattern& payload) { ASSERT_TRUE(mLink.Send(id, payload)); }

    // The library's next message is this one.
    void Hears(unsigned id, const tcPattern& payload)
    {
        const tsFrame frame = mLink.Read();
        ASSERT_TRUE(frame.Came) << "no message";
        EXPECT_EQ(frame.Id, id);
        EXPECT_EQ(frame.Version, 3U);
        EXPECT_EQ(frame.Sequence, mnHeard++ & 0xFF);
        EXPECT_TRUE(payload.Fits(frame.Payload)) << "message " << std::hex << id;
    }

    // What was said before has been dealt with when this returns.
    void Settle()
    {
        auto asked = Asked([this] { return VXGetGPIO(mnHandle); });
        Hears(0x57, "");
        Say(0x7E, "00 00 00 00");
        EXPECT_EQ(asked.get(), 0);
    }

private:
    tBytes maHardware;
    tcByteLink mLink;
    int mhListener = -1, mnHandle = -1;
    unsigned short mnPort = 0;
    unsigned mnHeard = 0;
};

// Results and outputs of a call, as a text that can be compared.
template <class... tValues>
std::string Told(const tValues&... values)
{
    std::ostringstream text;
    text.precision(9);
    ((text << +values << ' '), ...);
    return text.str();
}

#endif
