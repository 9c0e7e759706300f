#include "tcSimLedger.h"

#include <algorithm>
#include <utility>

namespace {

constexpr size_t gnFramesKept = 64;

std::string Describe(const tsSimFrame& frame)
{
    return "frame " + std::to_string(frame.readout) + "." + std::to_string(frame.frame) + ": " +
           std::to_string(frame.columns) + "x" + std::to_string(frame.rows) + ", " +
           std::to_string(frame.bits) + " bits, sum " + std::to_string(frame.pixelSum) +
           ", minimum " + std::to_string(frame.minimum) + ", maximum " +
           std::to_string(frame.maximum) + ", packets " + std::to_string(frame.packets) + "/" +
           std::to_string(frame.totalPackets) + (frame.complete ? "" : ", aborted");
}

} // namespace

tcSimLedger::tcSimLedger(std::function<void(const tsSimEvent&)> events, bool trace)
    : mpEvents(std::move(events)), mbTrace(trace)
{}

void tcSimLedger::Count(uint64_t tsSimStatistics::*counter, uint64_t count)
{
    std::lock_guard<std::mutex> lock(mtMutex);
    mtStatistics.*counter += count;
}

void tcSimLedger::SetConnected(bool connected)
{
    std::lock_guard<std::mutex> lock(mtMutex);
    mtStatistics.connected = connected;
}

tsSimStatistics tcSimLedger::Statistics() const
{
    std::lock_guard<std::mutex> lock(mtMutex);
    return mtStatistics;
}

std::vector<tsSimFrame> tcSimLedger::Frames() const
{
    std::lock_guard<std::mutex> lock(mtMutex);
    return {maFrames.begin(), maFrames.end()};
}

void tcSimLedger::FrameBegins(const tsSimFrame& frame)
{
    std::lock_guard<std::mutex> lock(mtMutex);
    if (maFrames.size() == gnFramesKept) maFrames.pop_front();
    maFrames.push_back(frame);
    mbFrameOpen = true;
}

void tcSimLedger::FrameGrows(uint32_t packets, uint64_t pixelSum, uint32_t crc, bool complete)
{
    std::lock_guard<std::mutex> lock(mtMutex);
    if (!mbFrameOpen) return;
    tsSimFrame& frame = maFrames.back();
    frame.packets = packets;
    frame.pixelSum = pixelSum;
    frame.crc = crc;
    frame.complete = complete;
    if (complete) ++mtStatistics.framesComplete;
}

void tcSimLedger::FrameLeft(uint32_t readout, uint32_t frame, const tsSimSent& sent)
{
    std::lock_guard<std::mutex> lock(mtMutex);
    auto found = std::find_if(maFrames.rbegin(), maFrames.rend(), [&](const tsSimFrame& one) {
        return one.readout == readout && one.frame == frame;
    });
    if (found != maFrames.rend()) found->sent = sent;
}

void tcSimLedger::FrameEnds()
{
    tsSimFrame frame;
    {
        std::lock_guard<std::mutex> lock(mtMutex);
        if (!mbFrameOpen) return;
        mbFrameOpen = false;
        maFrames.back().aborted = !maFrames.back().complete;
        frame = maFrames.back();
        if (frame.aborted) ++mtStatistics.framesAborted;
    }
    if (mpEvents) mpEvents({teSimEvent::eFrame, Describe(frame), frame});
}

void tcSimLedger::Strikes(const tsSimFault& fault)
{
    Count(&tsSimStatistics::faults);
    Raise(teSimEvent::eFault, std::string("fault: ") + NameOf(fault.kind));
}

void tcSimLedger::Raise(teSimEvent event, const std::string& text)
{
    if (!mpEvents || (event == teSimEvent::eTrace && !mbTrace)) return;
    mpEvents({event, text, {}});
}
