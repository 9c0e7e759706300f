// Helpers of the socket tests: connected pairs on loopback.
#ifndef SOCKET_SUPPORT_H
#define SOCKET_SUPPORT_H

#include "HSocket.h"

#include <gtest/gtest.h>

#include <chrono>

inline int ElapsedMs(std::chrono::steady_clock::time_point start)
{
    using namespace std::chrono;
    return static_cast<int>(duration_cast<milliseconds>(steady_clock::now() - start).count());
}

// Two ends of one TCP connection and the socket that accepted it.
struct tsTcpPair {
    tsTcpPair()
    {
        EXPECT_TRUE(mListener.Create(0, SOCK_STREAM, "127.0.0.1"));
        EXPECT_TRUE(mListener.Listen(5));
        EXPECT_TRUE(mClient.Connect("127.0.0.1", mListener.GetLocalPort()));
        EXPECT_EQ(1, mListener.Accept(&mServer, 5000));
    }

    HSocket mListener, mClient, mServer;
};

// An object with a descriptor that belongs to somebody else.
class HForeign : public HFDObject
{
public:
    explicit HForeign(int descriptor) : mhForeign(descriptor) {}
    int GetFD() override { return mhForeign; }

private:
    int mhForeign;
};

#endif
