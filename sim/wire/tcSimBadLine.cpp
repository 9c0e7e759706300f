#include "tcSimBadLine.h"

#include <asio/post.hpp>
#include <asio/write.hpp>

#include <algorithm>
#include <utility>

namespace {

constexpr double gnDripStep = 0.01;      // seconds between two drops, where that is a byte or more
constexpr double gnPacketPatience = 0.1; // seconds a packet waits for others to pass

template <class Duration>
Duration ToDuration(double seconds)
{
    return std::chrono::duration_cast<Duration>(std::chrono::duration<double>(seconds));
}

} // namespace

tcSimBadLine::tcSimBadLine(asio::ip::tcp::socket& socket, tcSimFaults& faults, tcSimLedger& ledger,
                           std::chrono::steady_clock::time_point begin)
    : mtSocket(socket), mtFaults(faults), mtLedger(ledger), mtPause(socket.get_executor()),
      mtHeldTimer(socket.get_executor()), mtBegin(begin)
{}

void tcSimBadLine::Open(std::weak_ptr<void> owner, uint64_t bytesBefore, tsHooks hooks)
{
    mpOwner = std::move(owner);
    mtHooks = std::move(hooks);
    mnBytes = bytesBefore;
    mbOpen = true;
}

void tcSimBadLine::Close()
{
    mbOpen = false;
    mtPause.cancel();
    mtHeldTimer.cancel();
    for (const auto& moment : maMoments) {
        moment->cancel();
    }
    maSteps.clear();
    maHeld.clear();
}

double tcSimBadLine::Seconds() const
{
    return std::chrono::duration<double>(tpClock::now() - mtBegin).count();
}

void tcSimBadLine::FaultsCome()
{
    for (const tcSimFaults::tsMoment& moment : mtFaults.Moments()) {
        if (!mbOpen) return;
        if (moment.number <= mnLastMoment) continue;
        mnLastMoment = moment.number;
        if (moment.time > Seconds())
            WaitFor(moment);
        else
            StrikeAt(moment);
    }
}

void tcSimBadLine::WaitFor(const tcSimFaults::tsMoment& moment)
{
    maMoments.push_back(std::make_unique<asio::steady_timer>(mtSocket.get_executor()));
    asio::steady_timer& timer = *maMoments.back();
    timer.expires_at(mtBegin + ToDuration<tpClock::duration>(moment.time));
    timer.async_wait([this, moment, owner = mpOwner](const std::error_code& error) {
        const std::shared_ptr<void> keep = owner.lock();
        if (!error && keep) StrikeAt(moment);
    });
}

void tcSimBadLine::StrikeAt(const tcSimFaults::tsMoment& moment)
{
    for (const tsSimStroke& stroke : mtFaults.StrikeAt(moment)) {
        if (!mbOpen) return;
        mtLedger.Strikes(*stroke.fault);
        Perform(*stroke.fault);
    }
    Run();
}

tcSimBadLine::tsFate tcSimBadLine::FateOf(tpSimBytes message, const tsSimUnit& unit)
{
    tsFate fate;
    fate.message = std::move(message);
    for (const tsSimStroke& stroke : mtFaults.Strike(unit)) {
        const tsSimFault& fault = *stroke.fault;
        mtLedger.Strikes(fault);
        switch (fault.kind) {
        case teSimFault::eGarbage:
            fate.before = GarbageOf(fault.bytes, *stroke.random);
            break;
        case teSimFault::eDuplicateAnswer:
        case teSimFault::eDuplicatePacket:
            fate.copies += fault.count;
            break;
        case teSimFault::eNoAnswer:
        case teSimFault::eMissingPacket:
            fate.copies = 0;
            break;
        case teSimFault::eLateAnswer:
            fate.late = fault.seconds;
            break;
        case teSimFault::eReorder:
            fate.behind = fault.count;
            break;
        default:
            if (ChangesMessage(fault.kind)) {
                DamageMessage(fault, *stroke.random, &fate.message);
                break;
            }
            if (fate.strikes.empty()) fate.cut = CutOf(fault, fate.message, unit.firstByte);
            fate.strikes.push_back(stroke.fault);
        }
    }
    return fate;
}

void tcSimBadLine::Write(const uint8_t* message, tsSimUnit unit, tpLeaving leaving,
                         std::function<void()> done)
{
    unit.firstByte = mnBytes;
    unit.time = Seconds();
    const uint64_t before = mnBytes;
    tsFate fate = FateOf({message, message + unit.bytes}, unit);
    Queue(std::move(fate.before));
    if (fate.late > 0 || fate.behind > 0) {
        Hold(std::move(fate.message), std::move(leaving),
             fate.behind > 0 ? gnPacketPatience : fate.late, fate.behind);
        fate.message.clear();
        leaving = nullptr;
        fate.cut = 0;
    }
    const auto middle =
        fate.message.begin() + static_cast<ptrdiff_t>(std::min(fate.cut, fate.message.size()));
    tpSimBytes rest(middle, fate.message.end());
    if (fate.copies > 0) Queue({fate.message.begin(), middle});
    for (tpSimFault& fault : fate.strikes) {
        maSteps.emplace_back();
        maSteps.back().fault = std::move(fault);
    }
    if (fate.copies > 0) {
        Announce(fate.message, leaving);
        Queue(std::move(rest));
    }
    for (; fate.copies > 1; --fate.copies) {
        Announce(fate.message, leaving);
        Queue(fate.message);
    }
    if (unit.isPacket && fate.behind == 0) PacketPasses();
    maSteps.emplace_back();
    maSteps.back().done = std::move(done);
    maSteps.back().silently = mnBytes == before;
    Run();
}

void tcSimBadLine::Hold(tpSimBytes bytes, tpLeaving leaving, double seconds, int64_t packets)
{
    maHeld.push_back({std::move(bytes), std::move(leaving),
                      tpClock::now() + ToDuration<tpClock::duration>(seconds), packets});
    WaitForHeld();
}

// A packet is on its way; those that wait for it follow.
void tcSimBadLine::PacketPasses()
{
    Release([](tsHeld& held) { return held.packets > 0 && --held.packets == 0; });
}

template <class Condition>
void tcSimBadLine::Release(Condition condition)
{
    for (size_t i = 0; i < maHeld.size();) {
        if (!condition(maHeld[i])) {
            ++i;
            continue;
        }
        Announce(maHeld[i].bytes, maHeld[i].leaving);
        Queue(std::move(maHeld[i].bytes));
        maHeld.erase(maHeld.begin() + static_cast<ptrdiff_t>(i));
    }
}

void tcSimBadLine::WaitForHeld()
{
    if (maHeld.empty()) return;
    auto earlier = [](const tsHeld& a, const tsHeld& b) { return a.due < b.due; };
    mtHeldTimer.expires_at(std::min_element(maHeld.begin(), maHeld.end(), earlier)->due);
    mtHeldTimer.async_wait([this, owner = mpOwner](const std::error_code& error) {
        const std::shared_ptr<void> keep = owner.lock();
        if (error || !keep || !mbOpen) return;
        Release([now = tpClock::now()](const tsHeld& held) { return held.due <= now; });
        WaitForHeld();
        Run();
    });
}

void tcSimBadLine::Queue(tpSimBytes bytes)
{
    if (bytes.empty()) return;
    mnBytes += bytes.size();
    maSteps.emplace_back();
    maSteps.back().bytes = std::move(bytes);
}

void tcSimBadLine::Announce(const tpSimBytes& message, const tpLeaving& leaving)
{
    if (!leaving || message.empty()) return;
    maSteps.emplace_back();
    maSteps.back().leaving = [leaving, message] { leaving(message); };
}

void tcSimBadLine::Run()
{
    if (mbRunning) return;
    mbRunning = true;
    while (mbOpen && !mbBusy && !mbSilent && !maSteps.empty()) {
        tsStep step = std::move(maSteps.front());
        maSteps.pop_front();
        Begin(std::move(step));
    }
    mbRunning = false;
}

void tcSimBadLine::Begin(tsStep step)
{
    if (!step.bytes.empty()) {
        WriteBytes(std::move(step.bytes));
    } else if (step.pause > 0) {
        Pause(step.pause);
    } else if (step.leaving) {
        step.leaving();
    } else if (step.fault) {
        Perform(*step.fault);
    } else if (step.done && !step.silently) {
        step.done(); // before anything that the client says to what it has got now
    } else if (step.done) {
        asio::post(mtSocket.get_executor(),
                   [this, keep = mpOwner.lock(), done = std::move(step.done)] {
                       if (mbOpen) done();
                   });
    }
}

// On a line that drips, only the next drop of them.
void tcSimBadLine::WriteBytes(tpSimBytes bytes)
{
    if (mnRate > 0 && tpClock::now() < mtRateEnds) {
        const auto rate = static_cast<double>(mnRate);
        const auto drop = std::max<size_t>(1, static_cast<size_t>(rate * gnDripStep));
        if (drop < bytes.size()) {
            maSteps.emplace_front();
            maSteps.front().bytes.assign(bytes.begin() + static_cast<ptrdiff_t>(drop), bytes.end());
            bytes.resize(drop);
        }
        maSteps.emplace_front();
        maSteps.front().pause = static_cast<double>(bytes.size()) / rate;
    }
    maWriting = std::move(bytes);
    mbBusy = true;
    asio::async_write(mtSocket, asio::buffer(maWriting),
                      [this, keep = mpOwner.lock()](const std::error_code& error, size_t written) {
                          mbBusy = false;
                          mtLedger.Count(&tsSimStatistics::bytesSent, written);
                          if (!mbOpen) return;
                          if (error)
                              mtHooks.failed();
                          else
                              Run();
                      });
}

void tcSimBadLine::Pause(double seconds)
{
    mbBusy = true;
    mtPause.expires_after(ToDuration<tpClock::duration>(seconds));
    mtPause.async_wait([this, keep = mpOwner.lock()](const std::error_code&) {
        mbBusy = false;
        if (mbOpen) Run(); // also when the pause was cut short
    });
}

void tcSimBadLine::Relieve(teSimFault kind)
{
    if (kind == teSimFault::eHalfOpen) mbSilent = false;
    if (kind == teSimFault::eDrip) mnRate = 0;
    if (kind == teSimFault::eStall) {
        for (tsStep& step : maSteps) {
            step.pause = 0;
        }
    }
    if (kind == teSimFault::eStall || kind == teSimFault::eDrip) mtPause.cancel();
    Run();
}

void tcSimBadLine::Perform(const tsSimFault& fault)
{
    switch (fault.kind) {
    case teSimFault::eHalfOpen:
        mbSilent = true;
        return;
    case teSimFault::eStall:
        maSteps.emplace_front();
        maSteps.front().pause = fault.seconds;
        return;
    case teSimFault::eDrip:
        mnRate = fault.rate;
        mtRateEnds = fault.seconds > 0
                         ? tpClock::now() + ToDuration<tpClock::duration>(fault.seconds)
                         : tpClock::time_point::max();
        return;
    default:
        mtHooks.suffer(fault);
    }
}
