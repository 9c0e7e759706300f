#include "readout/stream_core.h"

#include "readout/frame_facts.h"
#include "readout/host_clock.h"
#include "values/decimals.h"

#include "vxcamiface.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

namespace vxcam {

namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

constexpr milliseconds kUsualPatience(20000);
constexpr milliseconds kTick(50); // how finely the silence of a camera is seen
constexpr size_t kLeeway = size_t{32} << 20;
constexpr int kWholePercent = 100;

SteadyTime now()
{
    return std::chrono::steady_clock::now();
}

std::string secondsText(nanoseconds time)
{
    return roundedText(std::chrono::duration<double>(time).count(), 4) + " s";
}

} // namespace

StreamCore::StreamCore(StreamSetup setup)
    : setup_(std::move(setup)), patience_(setup_.plan.timeout.value_or(kUsualPatience)),
      leewayUsed_(std::make_shared<std::atomic<size_t>>(0)), clock_(setup_.exposures),
      free_(setup_.pool->count())
{
    setup_.pool->onReturn(this, [this](void* buffer) { comeBack(buffer); });
}

StreamCore::~StreamCore()
{
    setup_.pool->endReturns(this);
}

void StreamCore::begin(SteadyTime commandSent, uint64_t packets)
{
    std::lock_guard<std::mutex> guard(lock_);
    packets_ = packets;
    hasPackets_ = false;
    started_ = lastActivity_ = commandSent;
    due_ = commandSent + setup_.exposures.exposure;
}

// ---- Frames -----------------------------------------------------------------------------------

void StreamCore::take(const tsFrameRecord& record, const Arrival& arrival)
{
    readout_ = record.Readout;
    bool isDropped = record.Outcome == eFrameUnderrun;
    std::shared_ptr<void> pixels = setup_.pool->hold(record.Buffer);
    if (pixels) {
        std::lock_guard<std::mutex> guard(lock_);
        --free_;
        isDropped = free_ == 0 && setup_.plan.whenFull == WhenFull::DropNewest;
    }
    std::optional<Frame> frame;
    // A packet holds a row or a part of one.
    const bool isTooFew = record.Outcome == eFrameComplete && record.PacketsExpected < record.Rows;
    const bool isSensible = record.Rows > 0 && record.Columns > 0 && !isTooFew;
    if (!isSensible && record.Outcome != eFrameCut) hasSenseless_ = true;
    if (pixels && !isDropped && isSensible && isRunning()) {
        arrangePixels(record, setup_.facts.regions);
        frame.emplace(factsOf(record, arrival), std::move(pixels));
    }
    pixels.reset();
    bool isEnd = false;
    {
        std::lock_guard<std::mutex> guard(lock_);
        if (end_ == ReadoutEnd::Running) {
            if (frame) enqueue(std::move(*frame));
            if (isDropped) ++books_.dropped;
            isEnd = endFrame(record, arrival);
        }
    }
    if (isEnd && setup_.onEnd) setup_.onEnd(*this);
    if (setup_.plan.whenFull == WhenFull::Wait) holdBack();
}

void StreamCore::enqueue(Frame frame)
{
    ++(frame.complete() ? books_.complete : books_.incomplete);
    queue_.push_back({std::move(frame), true});
    ++pooledInQueue_;
    changed_.notify_all();
}

// A buffer that nobody holds any more is the library's again.
void StreamCore::comeBack(void* buffer)
{
    VXReturnImageBuffer(setup_.handle, buffer);
    std::lock_guard<std::mutex> guard(lock_);
    ++free_;
    changed_.notify_all();
}

// Until there is a buffer for the next frame. Where a command waits for an answer that comes behind
// that, frames make room.
void StreamCore::holdBack()
{
    std::unique_lock<std::mutex> guard(lock_);
    while (end_ == ReadoutEnd::Running && free_ == 0) {
        if (std::unique_ptr<Frame> moved = makeRoom()) {
            guard.unlock();
            moved.reset();
            guard.lock();
            continue;
        }
        isHeld_ = wasHeld_ = true;
        changed_.wait(guard);
        isHeld_ = false;
        lastActivity_ = now();
    }
}

// Moves the newest frame that waits for the consumer to memory of its own. Returns what it was in,
// to be let go of; nothing when that cannot, or need not be done.
std::unique_ptr<Frame> StreamCore::makeRoom()
try {
    const auto newest = std::find_if(queue_.rbegin(), queue_.rend(),
                                     [](const Queued& queued) { return queued.isPooled; });
    if (commands_ == 0 || newest == queue_.rend()) return nullptr;
    const size_t bytes = newest->frame.bytes();
    if (*leewayUsed_ > 0 && *leewayUsed_ + bytes > kLeeway) return nullptr;
    const std::shared_ptr<void> memory = allocateFrame(bytes);
    std::memcpy(memory.get(), newest->frame.data(), bytes);
    *leewayUsed_ += bytes;
    Frame copy(newest->frame.facts(),
               {memory.get(), [memory, used = leewayUsed_, bytes](void*) { *used -= bytes; }});
    auto moved = std::make_unique<Frame>(std::move(copy));
    std::swap(*moved, newest->frame);
    newest->isPooled = false;
    --pooledInQueue_;
    return moved;
} catch (const std::bad_alloc&) {
    return nullptr;
}

FrameFacts StreamCore::factsOf(const tsFrameRecord& record, const Arrival& arrival)
{
    FrameFacts facts = setup_.facts;
    fillFacts(record, &facts);
    facts.sensorTemperature = arrival.sensorTemperature;
    facts.boardTemperature = arrival.boardTemperature;
    facts.trueSum = arrival.trueSum;
    std::lock_guard<std::mutex> guard(lock_);
    const bool wasHeld = std::exchange(wasHeld_, false);
    std::optional<nanoseconds> exposure;
    facts.times =
        clock_.timesOf({facts.number, momentOf(record.CommandBegun), momentOf(record.CommandSent),
                        momentOf(record.FirstPacket), momentOf(record.LastPacket), wasHeld,
                        momentOf(record.FirstPacketAfter)},
                       &exposure);
    facts.times.clock = hostClock();
    if (setup_.exposures.lengthIsTriggered) {
        facts.exposure = std::chrono::duration_cast<std::chrono::microseconds>(
            exposure.value_or(nanoseconds(0)));
    }
    facts.dropped = books_.dropped;
    facts.complaints = complaints_;
    return facts;
}

// One more frame has ended; true when the readout has, too.
bool StreamCore::endFrame(const tsFrameRecord& record, const Arrival& arrival)
{
    ++frames_;
    const SteadyTime arrived = now();
    due_ = dueOfNext(arrived);
    started_ = due_ - setup_.exposures.exposure;
    lastActivity_ = arrived;
    packets_ = arrival.packets;
    hasPackets_ = false;
    const bool isLast = record.IsLast != 0;
    const auto asked = static_cast<uint64_t>(setup_.plan.frames);
    if (!isLast && (asked == 0 || frames_ < asked)) return false;
    isWhole_ = isLast;
    const uint64_t came = books_.complete + books_.incomplete + books_.dropped;
    if (came < asked) {
        conclude(
            ReadoutEnd::Incomplete,
            Error(ErrorKind::Incomplete,
                  setup_.facts.target + ": " + std::to_string(asked - came) + " of " +
                      std::to_string(asked) + " frames never came" +
                      (hasSenseless_ ? ": the camera sent a frame without a usable size" : "")));
    } else {
        conclude(books_.complete == came ? ReadoutEnd::Complete : ReadoutEnd::Incomplete,
                 std::nullopt);
    }
    return true;
}

SteadyTime StreamCore::dueOfNext(SteadyTime now) const
{
    return std::max(started_ + setup_.exposures.interval, now) + setup_.exposures.exposure;
}

// ---- Ends -------------------------------------------------------------------------------------

void StreamCore::conclude(ReadoutEnd end, std::optional<Error> failure)
{
    end_ = end;
    failure_ = std::move(failure);
    changed_.notify_all();
}

void StreamCore::finish(ReadoutEnd end, ErrorKind kind, const std::string& text, int code,
                        int subCode)
{
    {
        std::lock_guard<std::mutex> guard(lock_);
        if (end_ != ReadoutEnd::Running) return;
        conclude(end, Error(kind, setup_.facts.target + ": " + text, code, subCode));
    }
    if (setup_.onEnd) setup_.onEnd(*this);
}

void StreamCore::complain(Complaint complaint, bool mayEnd)
{
    const std::string text = complaintText(complaint);
    const int code = complaint.code, subCode = complaint.subCode;
    {
        std::lock_guard<std::mutex> guard(lock_);
        if (complaints_.size() < kMostComplaints) complaints_.push_back(std::move(complaint));
    }
    if (!mayEnd || !setup_.plan.endOnCameraError) return;
    finish(ReadoutEnd::CameraError, ErrorKind::Camera, text, code, subCode);
}

void StreamCore::commandBegins()
{
    std::lock_guard<std::mutex> guard(lock_);
    ++commands_;
    changed_.notify_all();
}

void StreamCore::commandEnds()
{
    std::lock_guard<std::mutex> guard(lock_);
    --commands_;
}

bool StreamCore::waitsForTrigger() const
{
    return setup_.exposures.eachIsTriggered || (setup_.exposures.firstIsTriggered && frames_ == 0);
}

std::optional<SteadyTime> StreamCore::watch(SteadyTime now, uint64_t packets)
{
    std::unique_lock<std::mutex> guard(lock_);
    if (end_ != ReadoutEnd::Running) return std::nullopt;
    // The keeper may have read an older figure than the frame that ended meanwhile.
    if (packets > packets_) {
        packets_ = packets;
        hasPackets_ = true;
        lastActivity_ = now;
    }
    const SteadyTime later = now + kTick;
    if (isHeld_ || (!hasPackets_ && waitsForTrigger() && !setup_.plan.timeout)) return later;
    const SteadyTime deadline =
        (hasPackets_ ? lastActivity_ : std::max(due_, lastActivity_)) + patience_;
    if (now < deadline) return std::min(later, deadline);
    const std::string where = hasPackets_         ? " within a frame"
                              : waitsForTrigger() ? " while a trigger was waited for"
                                                  : " beyond the time when one was due";
    guard.unlock();
    finish(ReadoutEnd::TimedOut, ErrorKind::Timeout,
           "no image: the camera was silent for " + secondsText(patience_) + where);
    return std::nullopt;
}

// ---- The consumer -----------------------------------------------------------------------------

std::optional<Frame> StreamCore::next(std::optional<SteadyTime> deadline)
{
    std::unique_lock<std::mutex> guard(lock_);
    const auto isNews = [this] { return !queue_.empty() || end_ != ReadoutEnd::Running; };
    if (!deadline) {
        changed_.wait(guard, isNews);
    } else if (!changed_.wait_until(guard, *deadline, isNews)) {
        throw Error(ErrorKind::Timeout,
                    setup_.facts.target + ": no frame yet; the readout goes on");
    }
    if (queue_.empty()) {
        if (failure_ && !isStopped_) throw Error(*failure_);
        return std::nullopt;
    }
    Queued queued = std::move(queue_.front());
    queue_.pop_front();
    ++books_.taken;
    if (queued.isPooled) --pooledInQueue_;
    const bool isDropping = setup_.plan.whenFull == WhenFull::DropNewest;
    const int outside = setup_.pool->count() - free_ - pooledInQueue_;
    guard.unlock();
    const int most = (setup_.pool->count() - (isDropping ? 1 : 0)) / 2;
    if (!queued.isPooled || outside <= most) return std::move(queued.frame);
    std::shared_ptr<void> pixels = allocateFrame(queued.frame.bytes());
    std::memcpy(pixels.get(), queued.frame.data(), queued.frame.bytes());
    return Frame(queued.frame.facts(), std::move(pixels));
}

void StreamCore::stop()
{
    {
        std::lock_guard<std::mutex> guard(lock_);
        isStopped_ = true;
    }
    finish(ReadoutEnd::Aborted, ErrorKind::Aborted, "the readout was stopped");
}

ReadoutEnd StreamCore::end() const
{
    std::lock_guard<std::mutex> guard(lock_);
    return end_;
}

std::string StreamCore::endText() const
{
    std::lock_guard<std::mutex> guard(lock_);
    return failure_ ? failure_->what() : "";
}

StreamBooks StreamCore::books() const
{
    std::lock_guard<std::mutex> guard(lock_);
    return books_;
}

Progress StreamCore::progress() const
{
    const int percent = VXGetReadProgress(setup_.handle, nullptr);
    const SteadyTime time = now();
    std::lock_guard<std::mutex> guard(lock_);
    Progress progress;
    progress.exposure = std::chrono::duration_cast<milliseconds>(setup_.exposures.exposure);
    progress.frame = static_cast<int>(frames_) + (end_ == ReadoutEnd::Running ? 1 : 0);
    if (end_ != ReadoutEnd::Running) {
        progress.done = 1;
        return progress;
    }
    progress.elapsed = std::clamp(std::chrono::duration_cast<milliseconds>(time - started_),
                                  milliseconds(0), progress.exposure);
    if (percent > 0 && percent < kWholePercent) {
        progress.phase = Progress::Phase::Reading;
        progress.done = percent / double{kWholePercent};
    } else if (waitsForTrigger()) {
        progress.phase = Progress::Phase::Waiting;
    } else if (time >= due_) {
        progress.phase = Progress::Phase::Exposed;
        progress.done = 1;
    } else {
        progress.phase = Progress::Phase::Exposing;
        progress.done = std::chrono::duration<double>(progress.elapsed) /
                        std::chrono::duration<double>(std::max(progress.exposure, milliseconds(1)));
    }
    return progress;
}

} // namespace vxcam
