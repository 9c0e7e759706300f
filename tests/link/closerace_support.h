// A camera that is closed while other threads use it.
#ifndef CLOSERACE_SUPPORT_H
#define CLOSERACE_SUPPORT_H

#include "link_support.h"
#include "vxcamiface.h"

inline constexpr char gsTiming[4356] = {};

// Opens a camera against the scripted one: its handle.
inline int OpenAgainst(tcScriptedCamera& peer, uint16_t rows = 16)
{
    auto opened = std::async(std::launch::async,
                             [&peer] { return VXOpenENetCamera("127.0.0.1", peer.Port()); });
    EXPECT_TRUE(ShakeHands(peer, rows));
    return opened.get();
}

// A camera opened through the C interface, with the scripted one at the other end.
class CloseRace : public testing::Test
{
protected:
    void Open(uint16_t rows = 16)
    {
        setenv("TCLOG_SUPPRESS_ERR_CONSOLE", "1", 1);
        handle = OpenAgainst(peer, rows);
        ASSERT_GE(handle, 0);
    }
    void TearDown() override
    {
        if (handle >= 0) VXCloseCamera(handle);
    }
    void ExpectQuickClose()
    {
        const auto start = steady_clock::now();
        EXPECT_EQ(0, VXCloseCamera(handle));
        EXPECT_LT(ElapsedMs(start), gnCloseLimit);
        EXPECT_EQ(-3, VXSetTrigger(handle, 1));
        handle = -1;
    }
    tsStatistics Figures() const
    {
        tsStatistics figures{};
        VXGetStatistics(handle, &figures, sizeof figures);
        return figures;
    }
    template <class Call>
    std::future<int> Meanwhile(Call call)
    {
        return std::async(std::launch::async, call);
    }
    // A thread that sends until it cannot, to a camera that does not read, and is stuck.
    std::future<int> StickInASend()
    {
        auto sender = Meanwhile([camera = handle] {
            int result = 0;
            while (result == 0) {
                result = VXSetTimingData(camera, const_cast<char*>(gsTiming), sizeof gsTiming);
            }
            return result;
        });
        uint64_t sent = 0;
        auto changed = steady_clock::now();
        WaitUntil([&] {
            const uint64_t now = Figures().BytesSent;
            if (now != sent || now < 100000) changed = steady_clock::now();
            sent = now;
            return ElapsedMs(changed) > 300; // also without a probe of the network
        });
        return sender;
    }

    tcScriptedCamera peer;
    int handle = -1;
};

#endif
