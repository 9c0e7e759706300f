// Two networks with a way between them that takes time.
#ifndef TCDELAYLINE_H
#define TCDELAYLINE_H

#include "tcNetworkNamespace.h"

#include <atomic>
#include <chrono>
#include <deque>
#include <string>
#include <thread>
#include <vector>

// A near and a far network, each with one interface whose packets arrive in the other one `delay`
// later, in order, as many as there are. Needs the right to make networks.
//
// Threads: relays on one of its own, from Start on.
// Owns: both networks. The threads that entered them leave them with it.
class tcDelayLine
{
public:
    static constexpr char sNearAddress[] = "10.88.0.1", sFarAddress[] = "10.88.0.2";

    // Throws when the networks cannot be made.
    explicit tcDelayLine(std::chrono::microseconds delay);
    ~tcDelayLine();
    tcDelayLine(const tcDelayLine&) = delete;
    tcDelayLine& operator=(const tcDelayLine&) = delete;

    // Moves the calling thread, and what it starts from then on.
    void EnterFar();
    void EnterNear();
    void Start();

private:
    struct tsPacket {
        std::chrono::steady_clock::time_point due;
        std::vector<char> bytes;
    };
    // What comes in at one interface and goes out at the other.
    struct tsDirection {
        int from, to;
        std::deque<tsPacket> packets;
    };

    static int MakeInterface(const tcNetworkNamespace& network, const std::string& address);
    void Relay();
    void TakeIn(tsDirection& direction);
    static void PutOut(tsDirection& direction);

    const std::chrono::microseconds mDelay;
    std::string msReason;
    tcNetworkNamespace mFar, mNear;
    int mhFar = -1, mhNear = -1;
    std::atomic<bool> mbStop{false};
    std::thread mThread;
};

#endif
