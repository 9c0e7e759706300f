// Helpers of the socket tests: connected pairs on loopback.
#ifndef SOCKET_SUPPORT_H
#define SOCKET_SUPPORT_H

#include "HSocket.h"
#include "within.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <pthread.h>
#include <thread>

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

// A thread that is sent signals which interrupt what it waits in, until it was interrupted some
// times or the object ends.
class tcInterruptions
{
public:
    explicit tcInterruptions(pthread_t thread, int times)
    {
        snSeen = 0;
        struct sigaction action = {};
        action.sa_handler = [](int) { ++snSeen; }; // without SA_RESTART
        sigaction(SIGUSR1, &action, nullptr);
        mThread = std::thread([this, thread, times] {
            while (!mbEnd && snSeen < times) {
                pthread_kill(thread, SIGUSR1);
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
        });
    }
    ~tcInterruptions()
    {
        mbEnd = true;
        mThread.join();
    }
    tcInterruptions(const tcInterruptions&) = delete;
    tcInterruptions& operator=(const tcInterruptions&) = delete;

    static inline std::atomic<int> snSeen{0};

private:
    std::atomic<bool> mbEnd{false};
    std::thread mThread;
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
