// A connection that does not carry what it is given as it should.
#ifndef TCSIMBADLINE_H
#define TCSIMBADLINE_H

#include "damage.h"
#include "tcSimFaults.h"
#include "tcSimLedger.h"

#include <asio/ip/tcp.hpp>
#include <asio/steady_timer.hpp>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <vector>

// Stands between the output and the socket of a camera that has faults. Messages come one by one;
// what leaves is what the faults make of them.
//
// Threads: one, the one that runs the socket.
class tcSimBadLine
{
public:
    struct tsHooks {
        std::function<void(const tsSimFault&)> suffer; // a fault of more than the bytes
        std::function<void()> failed;                  // the connection is broken
    };

    using tpLeaving = std::function<void(const tpSimBytes&)>;

    // `begin` is when the connection began.
    tcSimBadLine(asio::ip::tcp::socket& socket, tcSimFaults& faults, tcSimLedger& ledger,
                 std::chrono::steady_clock::time_point begin);

    // The owner is kept alive while something is under way. So many bytes went out before.
    void Open(std::weak_ptr<void> owner, uint64_t bytesBefore, tsHooks hooks);
    void Close();

    // There may be faults that this was not told of. Those whose moment has come strike before it
    // returns, so the owner may have ended then.
    void FaultsCome();
    // What a fault of the kind does to the line, ends.
    void Relieve(teSimFault kind);

    // The message is copied. `done` is called, not from within, when the line can take the next.
    // `leaving` is called, each time, before what has become of the message leaves whole; it may be
    // empty.
    void Write(const uint8_t* message, tsSimUnit unit, tpLeaving leaving,
               std::function<void()> done);

private:
    using tpClock = std::chrono::steady_clock;

    // What is to be done next; one of these.
    struct tsStep {
        tpSimBytes bytes;
        double pause = 0;              // seconds
        tpSimFault fault;              // strikes
        std::function<void()> leaving; // what comes next
        std::function<void()> done;
        bool silently = false; // done without a byte
    };
    // A message that others overtake.
    struct tsHeld {
        tpSimBytes bytes;
        tpLeaving leaving;
        tpClock::time_point due;
        int64_t packets; // that are still to pass; 0: it waits for its time only
    };
    // What the faults make of a message.
    struct tsFate {
        tpSimBytes before, message;
        int64_t copies = 1, behind = 0;
        double late = 0;
        std::vector<tpSimFault> strikes; // in the midst of it
        size_t cut = 0;                  // where
    };

    double Seconds() const;
    void WaitFor(const tcSimFaults::tsMoment& moment);
    void StrikeAt(const tcSimFaults::tsMoment& moment);
    tsFate FateOf(tpSimBytes message, const tsSimUnit& unit);
    void Hold(tpSimBytes bytes, tpLeaving leaving, double seconds, int64_t packets);
    void PacketPasses();
    template <class Condition>
    void Release(Condition condition);
    void WaitForHeld();
    void Queue(tpSimBytes bytes);
    void Announce(const tpSimBytes& message, const tpLeaving& leaving);
    void Run();
    void Begin(tsStep step);
    void WriteBytes(tpSimBytes bytes);
    void Pause(double seconds);
    void Perform(const tsSimFault& fault);

    asio::ip::tcp::socket& mtSocket;
    tcSimFaults& mtFaults;
    tcSimLedger& mtLedger;
    asio::steady_timer mtPause, mtHeldTimer;
    std::vector<std::unique_ptr<asio::steady_timer>> maMoments;
    uint32_t mnLastMoment = 0; // the number of the last fault that has its timer
    std::weak_ptr<void> mpOwner;
    tsHooks mtHooks;

    const tpClock::time_point mtBegin;
    uint64_t mnBytes = 0; // given to the socket, or waiting to be
    std::deque<tsStep> maSteps;
    std::vector<tsHeld> maHeld;
    tpSimBytes maWriting;
    bool mbOpen = false, mbRunning = false;
    bool mbBusy = false; // writing or pausing
    bool mbSilent = false;
    int64_t mnRate = 0; // bytes a second, until mtRateEnds; 0: as the socket takes them
    tpClock::time_point mtRateEnds;
};

#endif
