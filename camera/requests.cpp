// Request items: arm, send, wait, time out.
#include "guarded.h"
#include "tcExtension.h"

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstring>

using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

constexpr int gnMonitorStep = 100;   // ms between two looks at the items
constexpr int gnWaitStep = 50;       // ms a waiting request sleeps at most before it looks again
constexpr int gnCompletionStep = 20; // ms, the same for WaitCompletion
constexpr int gnDeliveryLimit = 400; // ms that giving a readout up waits for a callback
constexpr int gnNoTimeout = 0x7FFFFFFF;
constexpr int gnRenewNoOps = 500; // ms before a series of no-ops ends

thread_local int tnPatience = 0; // ms that this thread waits for an answer; 0: as long as it takes

} // namespace

int tcVXCamera::SetPatience(int ms)
{
    if (ms < 0) return eVXArgument;
    tnPatience = ms;
    return eVXOk;
}

int tcVXCamera::ImageTimeout() const
{
    const int overridden = mnImageTimeoutOverride;
    if (overridden < 0) return gnNoTimeout;
    if (overridden > 0) return overridden;
    const auto exposure = std::clamp<int64_t>(mnExposure, 0, gnNoTimeout - gnImageTimeout);
    return static_cast<int>(exposure) + gnImageTimeout;
}

int tcVXCamera::InitReqStackItem(int item, int count)
{
    if (item < 0 || item >= gnItems) return eVXFailed;
    std::lock_guard<std::recursive_mutex> lock(mStackMutex);
    tsRequestItem& request = maItems[item];
    if (request.respNeeded != request.respCount || mbClosing) return eVXFailed;
    const int timeout = gaItemTimeouts[item];
    request.timeout = timeout != 0 ? timeout : ImageTimeout();
    request.status = gnItemAnswered;
    request.respNeeded += count;
    return eVXOk;
}

int tcVXCamera::RefuseOnReceiveThread(const char* operation)
{
    if (!OnReceiveThread()) return eVXOk;
    mLog.logError("%s would wait for the thread it was called on", operation);
    return eVXFailed;
}

int tcVXCamera::SendAndWait(tuCameraMessages* msg, int item, long* result1, long* result2,
                            int count)
{
    const vx::tcNoCancel noCancel;
    if (RefuseOnReceiveThread("SendAndWait") != eVXOk || CallerIsClosing()) return eVXFailed;
    const int patience = tnPatience;
    const auto deadline = patience > 0 ? steady_clock::now() + milliseconds(patience)
                                       : steady_clock::time_point::max();
    tsRequestWaiter waiter;
    {
        std::lock_guard<std::recursive_mutex> lock(mStackMutex);
        if (InitReqStackItem(item, count) != eVXOk) {
            tcLedger::Add(mpLedger->Figures().RequestsBusy);
            return eVXFailed;
        }
        tsRequestItem& request = maItems[item];
        mpLedger->BeginRequest();
        mLog.logDebug(4, "%s: Item = %d, respNeeded = %d, respCount = %d", "SendAndWait", item,
                      request.respNeeded.load(), request.respCount.load());
        request.result1 = result1;
        request.result2 = result2;
        waiter.ended = !request.IsPending();
        if (waiter.ended) {
            mpLedger->EndRequest(tcLedger::eAnswered);
        } else {
            request.waiter = &waiter;
        }
    }
    const int sent =
        patience > 0 ? SendMessageWithin(&msg->header, patience) : SendMessage(&msg->header);
    if (sent != 0) {
        mLog.logError("SendAndWait could not send message 0x%X",
                      static_cast<unsigned>(msg->header.MsgId));
        std::lock_guard<std::recursive_mutex> lock(mStackMutex);
        if (maItems[item].waiter == &waiter) GiveUpItem(maItems[item], eNotSent);
        return eVXTimeout;
    }
    return WaitForEnd(waiter, item, deadline);
}

int tcVXCamera::WaitForEnd(const tsRequestWaiter& waiter, int item,
                           steady_clock::time_point deadline)
{
    std::unique_lock<std::mutex> lock(mWaitMutex);
    while (!waiter.ended) {
        const auto next = steady_clock::now() + milliseconds(gnWaitStep);
        mWaitCondition.wait_until(lock, std::min(deadline, next));
        const bool isClosing = CallerIsClosing();
        if (waiter.ended || (!isClosing && steady_clock::now() < deadline)) continue;
        lock.unlock();
        {
            std::lock_guard<std::recursive_mutex> stack(mStackMutex);
            tsRequestItem& request = maItems[item];
            if (request.waiter == &waiter) GiveUpItem(request, isClosing ? eClosed : eNoAnswer);
        }
        lock.lock();
    }
    return waiter.result;
}

// A camera whose callback waits for this one is being closed, and waits for that callback.
bool tcVXCamera::CallerIsClosing()
{
    const tcVXCamera* caller = CallingCamera();
    return caller != nullptr && caller->mbClosing;
}

// Tells the caller who waits for the request, with mStackMutex held, that nothing is missing any
// more. Its result is settled here: whatever comes later for the item no longer concerns it.
void tcVXCamera::EndRequest(tsRequestItem& item, teGivenUp reason)
{
    if (tsRequestWaiter* waiter = item.waiter) {
        item.waiter = nullptr;
        mpLedger->EndRequest(item.status != gnItemTimedOut ? tcLedger::eAnswered
                             : reason == eNoAnswer         ? tcLedger::eTimedOut
                                                           : tcLedger::eFailed);
        std::lock_guard<std::mutex> lock(mWaitMutex);
        waiter->result = item.status != gnItemTimedOut ? eVXOk
                         : reason == eClosed           ? eVXFailed
                                                       : eVXTimeout;
        waiter->ended = true;
    }
    NotifyWaiters();
}

// Ends a request without its answer; nothing of the caller's is touched from here on.
void tcVXCamera::GiveUpItem(tsRequestItem& item, teGivenUp reason)
{
    LoseFrames(static_cast<int>(&item - maItems));
    EndReadoutFacts(item, reason == eClosed    ? eReadoutClosed
                          : reason == eNotSent ? eReadoutNotSent
                                               : eReadoutTimedOut);
    item.status = gnItemTimedOut;
    item.result1 = nullptr;
    item.result2 = nullptr;
    item.respCount = item.respNeeded.load();
    EndRequest(item, reason);
}

int tcVXCamera::GiveUpQuestions()
{
    std::lock_guard<std::recursive_mutex> lock(mStackMutex);
    for (tsRequestItem& item : maItems) {
        if (item.waiter != nullptr) GiveUpItem(item, eNotSent);
    }
    return eVXOk;
}

// The camera is being closed. Nothing can be armed behind this.
void tcVXCamera::GiveUpAll()
{
    std::lock_guard<std::recursive_mutex> lock(mStackMutex);
    mpLedger->EndReadout(eFrame16, tcLedger::eAborted);
    mpLedger->EndReadout(eFrame32, tcLedger::eAborted);
    for (tsRequestItem& item : maItems) {
        if (item.respCount != item.respNeeded) GiveUpItem(item, eClosed);
    }
    NotifyWaiters();
}

int tcVXCamera::SendMessageWithin(tsMsgHeader* frame, int)
{
    return SendMessage(frame);
}

void tcVXCamera::NotifyWaiters()
{
    {
        std::lock_guard<std::mutex> lock(mWaitMutex);
        ++mnNotifications;
    }
    mWaitCondition.notify_all();
}

// Waits until `isOver`, which is called with mStackMutex held, or the deadline: what it said last.
template <class Condition>
bool tcVXCamera::WaitUntil(steady_clock::time_point deadline, Condition isOver)
{
    for (;;) {
        uint64_t seen = 0;
        {
            std::lock_guard<std::mutex> lock(mWaitMutex);
            seen = mnNotifications;
        }
        {
            std::lock_guard<std::recursive_mutex> lock(mStackMutex);
            if (isOver()) return true;
        }
        const auto now = steady_clock::now();
        if (now >= deadline) return false;
        std::unique_lock<std::mutex> lock(mWaitMutex);
        mWaitCondition.wait_until(lock, std::min(deadline, now + milliseconds(gnCompletionStep)),
                                  [&] { return mnNotifications != seen; });
    }
}

// What a callback that runs was handed may be used until it returns; most return soon. Those of
// other cameras may be waiting for this very thread.
void tcVXCamera::AwaitDelivery()
{
    if (CallingCamera() != nullptr) return;
    const uint32_t begun = mnDeliveriesBegun;
    WaitUntil(steady_clock::now() + milliseconds(gnDeliveryLimit),
              [&] { return static_cast<int32_t>(mnDeliveriesEnded - begun) >= 0; });
}

int tcVXCamera::numOpsPending()
{
    int pending = 0;
    for (int i = 0; i < gnItems; ++i) {
        const int missing = maItems[i].respNeeded - maItems[i].respCount;
        if (missing != 0) mLog.logDebug(21, "Command %d has %d requests pending", i, missing);
        pending += missing;
    }
    return pending;
}

int tcVXCamera::WaitCompletion(int timeoutMs)
{
    const vx::tcNoCancel noCancel;
    mLog.logDebug(4, "tcVXCamera::WaitCompletion Entered");
    if (RefuseOnReceiveThread("WaitCompletion") != eVXOk) return eVXFailed;

    const int64_t steps =
        std::max(1, timeoutMs / gnCompletionStep + (timeoutMs % gnCompletionStep > 0));
    const auto deadline = steady_clock::now() + milliseconds(steps * gnCompletionStep);
    const bool isOver = WaitUntil(deadline, [this] {
        return mbClosing || CallerIsClosing() ||
               (numOpsPending() == 0 && mnDeliveriesBegun == mnDeliveriesEnded);
    });
    if (mbClosing || CallerIsClosing()) return eVXFailed;
    if (isOver) return eVXOk;

    mLog.logError("%s timeout event!", "WaitCompletion");
    if (GiveUpPending("WaitCompletion")) AwaitDelivery();
    return eVXTimeout;
}

// Gives up what is pending: whether there was anything.
bool tcVXCamera::GiveUpPending(const char* operation)
{
    bool any = false;
    std::lock_guard<std::recursive_mutex> lock(mStackMutex);
    for (int i = 0; i < gnItems; ++i) {
        tsRequestItem& item = maItems[i];
        if (item.respCount == item.respNeeded) continue;
        any = true;
        GiveUpItem(item, eNoAnswer);
        mLog.logError("%s timing out %d", operation, i);
    }
    return any;
}

int tcVXCamera::EnableNoOps(int intervalMs, int count)
{
    {
        std::lock_guard<std::mutex> lock(mNoOpsMutex);
        mnNoOpsInterval = intervalMs;
        mnNoOpsCount = count;
        mnNoOpsCountdown = static_cast<int64_t>(count) * intervalMs;
    }
    return SendNoOps(intervalMs, count);
}

int tcVXCamera::SendNoOps(int intervalMs, int count)
{
    mLog.logDebug(1, "%s %d messages at %d ms per message", "EnableNoOps", count, intervalMs);
    return Send(cmdEnableNoOps, {static_cast<uint32_t>(count), static_cast<uint32_t>(intervalMs)});
}

// One step nearer to the end of the camera's no-ops, which are asked for anew before they run out.
void tcVXCamera::RenewNoOps()
{
    int interval = 0, count = 0;
    {
        std::lock_guard<std::mutex> lock(mNoOpsMutex);
        if (mnNoOpsCount == 0) return;
        mnNoOpsCountdown -= gnMonitorStep;
        if (mnNoOpsCountdown > gnRenewNoOps) return;
        interval = mnNoOpsInterval;
        count = mnNoOpsCount;
        mnNoOpsCountdown = static_cast<int64_t>(count) * interval;
    }
    SendNoOps(interval, count);
}

void* tcVXCamera::DispatchMonitorStackThread(void* camera)
{
    static_cast<tcVXCamera*>(camera)->MonitorStack();
    return nullptr;
}

void tcVXCamera::MonitorStack()
{
    mLog.logDebug(4, "tcVXCamera::MonitorStack Entered");
    auto next = steady_clock::now() + milliseconds(gnMonitorStep);
    std::unique_lock<std::mutex> lock(mMonitorMutex);
    while (!mMonitorCondition.wait_until(lock, next, [this] { return mbStopMonitor; })) {
        lock.unlock();
        MonitorStep();
        next = std::max(next, steady_clock::now() - milliseconds(gnMonitorStep)) +
               milliseconds(gnMonitorStep);
        lock.lock();
    }
    mbMonitorRunning = false;
    mMonitorCondition.notify_all();
}

void tcVXCamera::MonitorStep()
{
    RenewNoOps();
    for (int i = 0; i < gnItems; ++i) {
        if (!maItems[i].IsPending()) continue;
        if (maItems[i].timeout > gnMonitorStep) {
            maItems[i].timeout -= gnMonitorStep;
        } else {
            TimeOutItem(i);
        }
    }
}

void tcVXCamera::TimeOutItem(int index)
{
    std::lock_guard<std::recursive_mutex> lock(mStackMutex);
    tsRequestItem& item = maItems[index];
    if (!item.IsPending() || item.timeout > gnMonitorStep) return;
    mLog.logError("tcVXCamera::MonitorStack Timing Out ID %x", index);
    item.status = gnItemTimedOut;
    item.result1 = nullptr;
    item.result2 = nullptr;
    item.frameLimit = 0;
    LoseFrames(index);
    EndReadoutFacts(item, eReadoutTimedOut);
    ++item.respCount;
    if (!item.IsPending()) EndRequest(item);
}

void tcVXCamera::TellMonitorToStop()
{
    const std::lock_guard<std::mutex> lock(mMonitorMutex);
    mbStopMonitor = true;
    mMonitorCondition.notify_all();
}

void tcVXCamera::StopMonitor()
{
    if (!mMonitorThread.joinable()) return;
    TellMonitorToStop();
    std::unique_lock<std::mutex> lock(mMonitorMutex);
    for (int checks = 1; mbMonitorRunning; ++checks) {
        mMonitorCondition.wait_for(lock, milliseconds(gnMonitorStep));
        if (checks == 50) mLog.logError("%s unable to kill monitor thread", "~tcVXCamera");
    }
    lock.unlock();
    mMonitorThread.join();
}

int tcVXCamera::SendRow(const tsCommandRow& row, const void* payload, int length)
{
    tuCameraMessages message;
    message.header = {};
    message.header.Length = static_cast<uint16_t>(length);
    message.header.MsgId = row.id;
    if (length > 0) memcpy(message.bytes + gnHeaderBytes, payload, static_cast<size_t>(length));
    return SendMessage(&message.header);
}

int tcVXCamera::AskRow(const tsCommandRow& row, const void* payload, int length, void* result1,
                       void* result2, int count)
{
    tuCameraMessages message;
    message.header = {};
    message.header.Length = static_cast<uint16_t>(length);
    message.header.MsgId = row.id;
    if (length > 0) memcpy(message.bytes + gnHeaderBytes, payload, static_cast<size_t>(length));
    return SendAndWait(&message, row.answer->item, static_cast<long*>(result1),
                       static_cast<long*>(result2), count);
}
