#include "acquisition.h"

namespace vxcam {

namespace {

constexpr std::chrono::milliseconds kStartPatience(2000);

} // namespace

Acquisition::Acquisition(std::shared_ptr<Camera> camera, FrameRing& ring,
                         AcquisitionListener listener)
    : camera_(std::move(camera)), ring_(ring), listener_(std::move(listener)),
      thread_([this] { loop(); })
{}

Acquisition::~Acquisition()
{
    end();
}

void Acquisition::end()
{
    {
        const std::lock_guard<std::mutex> guard(lock_);
        isEnding_ = true;
    }
    changed_.notify_all();
    if (thread_.joinable()) thread_.join();
}

void Acquisition::start(const Plan& plan)
{
    std::unique_lock<std::mutex> guard(lock_);
    if (phase_ != Phase::Idle) {
        throw Error(ErrorKind::Usage, "an acquisition runs: Stop or Abort ends it");
    }
    ring_.clear();
    plan_ = plan;
    phase_ = Phase::Starting;
    wish_ = Wish::None;
    startFailure_.reset();
    const uint64_t number = ++starts_;
    changed_.notify_all();
    changed_.wait_for(guard, kStartPatience,
                      [&] { return phase_ != Phase::Starting || starts_ != number; });
    if (starts_ == number && startFailure_) throw Error(*startFailure_);
}

void Acquisition::stop()
{
    std::unique_lock<std::mutex> guard(lock_);
    if (phase_ == Phase::Starting) wish_ = Wish::Stop;
    if (phase_ != Phase::Running) return;
    const std::shared_ptr<Stream> stream = stream_;
    guard.unlock();
    stream->stop();
}

void Acquisition::abort()
{
    std::unique_lock<std::mutex> guard(lock_);
    if (phase_ == Phase::Starting) wish_ = Wish::Abort;
    if (phase_ != Phase::Running) return;
    guard.unlock();
    camera_->abort();
}

bool Acquisition::isRunning() const
{
    const std::lock_guard<std::mutex> guard(lock_);
    return phase_ != Phase::Idle;
}

StreamBooks Acquisition::books() const
{
    const std::lock_guard<std::mutex> guard(lock_);
    return stream_ ? stream_->books() : StreamBooks{};
}

Progress Acquisition::progress() const
{
    const std::lock_guard<std::mutex> guard(lock_);
    return stream_ ? stream_->progress() : Progress{};
}

void Acquisition::loop()
{
    std::unique_lock<std::mutex> guard(lock_);
    while (true) {
        changed_.wait(guard, [this] { return isEnding_ || phase_ == Phase::Starting; });
        if (isEnding_) return;
        readOut(guard);
    }
}

// One readout. The listener hears of its end before the next one may start.
void Acquisition::readOut(std::unique_lock<std::mutex>& guard)
{
    const Plan plan = plan_;
    guard.unlock();
    std::shared_ptr<Stream> stream;
    std::optional<Error> failure;
    try {
        stream = std::make_shared<Stream>(camera_->stream(plan));
    } catch (const Error& error) {
        failure = error;
    }
    guard.lock();
    stream_ = stream;
    startFailure_ = failure;
    const Wish wish = wish_;
    if (stream) phase_ = Phase::Running;
    if (stream) changed_.notify_all();
    guard.unlock();
    if (stream && listener_.begin) listener_.begin();
    if (wish == Wish::Stop && stream) stream->stop();
    if (wish == Wish::Abort && stream) camera_->abort();

    if (stream) failure = take(*stream);
    if (listener_.end) {
        listener_.end(stream ? std::optional(stream->end()) : std::nullopt, failure);
    }
    guard.lock();
    phase_ = Phase::Idle;
    changed_.notify_all();
    guard.unlock();
    if (listener_.idle) listener_.idle();
    guard.lock();
}

std::optional<Error> Acquisition::take(Stream& stream)
{
    std::optional<Error> incomplete; // the first one
    try {
        while (const std::optional<Frame> frame = stream.next()) {
            if (!frame->complete() && !incomplete) incomplete = IncompleteFrame(*frame);
            ring_.add(*frame);
            if (listener_.frame) listener_.frame(*frame);
        }
    } catch (const Error& error) {
        return error;
    }
    if (stream.end() != ReadoutEnd::Incomplete) return std::nullopt;
    return incomplete ? incomplete : Error(ErrorKind::Incomplete, stream.endText());
}

} // namespace vxcam
