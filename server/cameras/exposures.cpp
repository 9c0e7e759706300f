#include "cameras/exposures.h"

#include "cameras/time_text.h"
#include "http/http_message.h"

#include <algorithm>
#include <array>
#include <exception>
#include <utility>

namespace vxcam {

namespace {

constexpr size_t kStates = 6;

ExposureState stateOf(ReadoutEnd end)
{
    switch (end) {
    case ReadoutEnd::Complete:
        return ExposureState::Complete;
    case ReadoutEnd::Incomplete:
        return ExposureState::Incomplete;
    case ReadoutEnd::Aborted:
    case ReadoutEnd::Closed:
        return ExposureState::Aborted;
    case ReadoutEnd::Running:
    case ReadoutEnd::TimedOut:
    case ReadoutEnd::LinkLost:
    case ReadoutEnd::CameraError:
        break;
    }
    return ExposureState::Failed;
}

} // namespace

const char* nameOf(ExposureState state)
{
    static constexpr std::array<const char*, kStates> names{"starting",   "running", "complete",
                                                            "incomplete", "failed",  "aborted"};
    return names.at(static_cast<size_t>(state));
}

bool isOver(ExposureState state)
{
    return state != ExposureState::Starting && state != ExposureState::Running;
}

const Frame* Exposure::frame(int number) const
{
    for (const Frame& frame : frames) {
        if (frame.facts().number == number) return &frame;
    }
    return nullptr;
}

Exposures::Exposures(CameraSource source, EventLog& events, Feed& feed, size_t mostBytes)
    : source_(std::move(source)), events_(events), feed_(feed), mostBytes_(mostBytes),
      ends_(kStates), thread_([this] { work(); })
{}

Exposures::~Exposures()
{
    end();
}

bool Exposures::isIdle() const
{
    return exposures_.empty() || isOver(exposures_.back()->state);
}

void Exposures::requireIdle() const
{
    if (isIdle()) return;
    throw Refusal(409, "exposing",
                  "exposure " + std::to_string(exposures_.back()->id) + " runs; end it first");
}

void Exposures::lend(const std::string& why)
{
    std::lock_guard<std::mutex> guard(mutex_);
    requireIdle();
    lent_ = why;
}

void Exposures::takeBack()
{
    std::lock_guard<std::mutex> guard(mutex_);
    lent_.clear();
}

uint64_t Exposures::start(const Plan& plan, std::chrono::milliseconds wait)
{
    std::unique_lock<std::mutex> guard(mutex_);
    changed_.wait(guard,
                  [this] { return !isAwaited_ || !isIdle(); }); // what is over is reported first
    if (isClosed_) throw Refusal(503, "ending", "the server is about to end");
    if (!lent_.empty()) throw Refusal(409, "sequence", lent_);
    requireIdle();
    auto exposure = std::make_unique<Exposure>();
    exposure->id = ++lastId_;
    exposure->plan = plan;
    exposure->begun = presentText();
    const uint64_t id = exposure->id;
    exposures_.push_back(std::move(exposure));
    makeRoom();
    isAbortAsked_ = false;
    changed_.notify_all();
    const auto isStarted = [&] { return exposures_.back()->state != ExposureState::Starting; };
    isAwaited_ = wait > std::chrono::milliseconds(0);
    const bool isDecided = changed_.wait_for(guard, wait, isStarted);
    isAwaited_ = false;
    changed_.notify_all();
    if (!isDecided || !isRefused_) return id;
    isRefused_ = false;
    const Error refusal = *exposures_.back()->error;
    exposures_.pop_back();
    --lastId_;
    throw Error(refusal);
}

// Of an exposure as it is now; the lock is held.
Exposure Exposures::reported(const Exposure& exposure) const
{
    Exposure report = exposure;
    if (!isOver(exposure.state) && stream_) report.progress = stream_->progress();
    return report;
}

std::optional<Exposure> Exposures::find(uint64_t id) const
{
    std::lock_guard<std::mutex> guard(mutex_);
    for (const auto& exposure : exposures_) {
        if (exposure->id == id) return reported(*exposure);
    }
    return {};
}

std::vector<Exposure> Exposures::all() const
{
    std::lock_guard<std::mutex> guard(mutex_);
    std::vector<Exposure> list;
    for (const auto& exposure : exposures_) {
        list.push_back(reported(*exposure));
    }
    return list;
}

std::optional<Exposure> Exposures::running() const
{
    std::lock_guard<std::mutex> guard(mutex_);
    if (isIdle()) return {};
    return reported(*exposures_.back());
}

bool Exposures::abort(uint64_t id)
{
    std::unique_lock<std::mutex> guard(mutex_);
    if (isIdle() || exposures_.back()->id != id) return false;
    isAbortAsked_ = true;
    if (const std::shared_ptr<Stream> stream = stream_) {
        guard.unlock();
        stream->stop();
        guard.lock();
    }
    changed_.wait(guard, [&] { return isIdle() || exposures_.back()->id != id; });
    return true;
}

bool Exposures::wait(uint64_t id, std::chrono::milliseconds most) const
{
    std::unique_lock<std::mutex> guard(mutex_);
    return changed_.wait_for(guard, most, [&] { return isIdle() || exposures_.back()->id != id; });
}

void Exposures::close()
{
    std::lock_guard<std::mutex> guard(mutex_);
    isClosed_ = true;
}

bool Exposures::waitUntilIdle(std::chrono::milliseconds most) const
{
    std::unique_lock<std::mutex> guard(mutex_);
    return changed_.wait_for(guard, most, [this] { return isIdle(); });
}

void Exposures::end()
{
    close();
    if (const std::optional<Exposure> exposure = running()) abort(exposure->id);
    {
        std::lock_guard<std::mutex> guard(mutex_);
        isEnding_ = true;
    }
    changed_.notify_all();
    if (thread_.joinable()) thread_.join();
}

std::vector<uint64_t> Exposures::ends() const
{
    std::lock_guard<std::mutex> guard(mutex_);
    return ends_;
}

// Forgets the oldest frames, and exposures, beyond what is kept; the lock is held.
void Exposures::makeRoom()
{
    while (exposures_.size() > kMostKept) {
        exposures_.pop_front();
    }
    size_t bytes = 0;
    for (auto exposure = exposures_.rbegin(); exposure != exposures_.rend(); ++exposure) {
        std::vector<Frame>& frames = (*exposure)->frames;
        size_t kept = 0;
        while (kept < frames.size()) {
            bytes += frames[frames.size() - 1 - kept].bytes();
            const bool isNewest = exposure == exposures_.rbegin() && kept == 0;
            if (bytes > mostBytes_ && !isNewest) break;
            ++kept;
        }
        frames.erase(frames.begin(), frames.end() - static_cast<std::ptrdiff_t>(kept));
    }
}

void Exposures::work()
{
    std::unique_lock<std::mutex> guard(mutex_);
    for (;;) {
        changed_.wait(guard, [this] { return isEnding_ || !isIdle(); });
        if (isIdle()) return;
        Exposure& exposure = *exposures_.back();
        guard.unlock();
        readOut(exposure);
        guard.lock();
    }
}

void Exposures::readOut(Exposure& exposure)
{
    ReadoutEnd end = ReadoutEnd::Running;
    std::optional<Error> error;
    try {
        const auto stream = std::make_shared<Stream>(source_()->stream(exposure.plan));
        bool isUnwanted = false;
        {
            std::lock_guard<std::mutex> guard(mutex_);
            stream_ = stream;
            exposure.state = ExposureState::Running;
            isUnwanted = isAbortAsked_;
        }
        changed_.notify_all();
        events_.post("exposure", {{"exposure", exposure.id}, {"state", "running"}});
        if (isUnwanted) stream->stop();
        try {
            while (const std::optional<Frame> frame = stream->next()) {
                take(exposure, *frame);
            }
        } catch (const Error& failure) {
            error = failure;
        }
        end = stream->end();
        if (!error && end == ReadoutEnd::Aborted) {
            error = Error(ErrorKind::Aborted, "the exposure was aborted");
        }
    } catch (const Error& failure) {
        error = failure;
    } catch (const std::exception& failure) { // no thread, or no memory
        error = Error(ErrorKind::Camera, failure.what());
    }
    ExposureState state = stateOf(end);
    if (state == ExposureState::Incomplete && !error) {
        error = Error(ErrorKind::Incomplete, "a frame came without all of its pixels");
    }
    if (error && error->kind() == ErrorKind::Aborted) state = ExposureState::Aborted;
    finish(exposure, state, error);
}

void Exposures::take(Exposure& exposure, const Frame& frame)
{
    const bool isEndless = exposure.plan.frames == 0;
    {
        std::lock_guard<std::mutex> guard(mutex_);
        if (isEndless) exposure.frames.clear();
        exposure.frames.push_back(frame);
        ++exposure.came;
        makeRoom();
    }
    feed_.put(frame, exposure.id);
    if (isEndless) return;
    events_.post("frame", {{"exposure", exposure.id},
                           {"number", frame.facts().number},
                           {"complete", frame.complete()}});
}

void Exposures::finish(Exposure& exposure, ExposureState state, const std::optional<Error>& error)
{
    Json facts{{"exposure", exposure.id}, {"state", nameOf(state)}};
    if (error) facts["text"] = error->what();
    {
        std::lock_guard<std::mutex> guard(mutex_);
        stream_.reset();
        exposure.state = state;
        exposure.error = error;
        exposure.progress = {};
        isRefused_ = isAwaited_ && state == ExposureState::Failed && exposure.came == 0 && error &&
                     error->kind() == ErrorKind::Usage;
        if (isRefused_) {
            changed_.notify_all();
            return;
        }
        ++ends_.at(static_cast<size_t>(state));
    }
    changed_.notify_all();
    events_.post("exposure", facts);
}

} // namespace vxcam
