#include <vxcamkit/recorder.h>

#include "record/recorder_body.h"

#include <vxcamkit/error.h>
#include <vxcamkit/frame_file.h>
#include <vxcamkit/new_file.h>

#include <algorithm>
#include <utility>

namespace vxcam {

void checkRecord(const std::string& path, const RecordOptions& options)
{
    const RecordKind& kind = recordKindOf(path, options);
    const std::string name = fileName(path, 1, options.split == 0 ? 1 : 0);
    checkNewFile(name, options.force);
    if (*kind.beside != '\0') checkNewFile(name + kind.beside, options.force);
}

uint64_t recordRoom(const std::string& path)
{
    return diskRoom(path, 0);
}

uint64_t recordNeeds(const RecordOptions& options, uint64_t frameBytes)
{
    constexpr uint64_t little = uint64_t{4} << 20U; // that stays free, besides
    return std::max(options.reserve, 2 * frameBytes + little) + frameBytes;
}

Recorder::Recorder(const std::string& path, RecordOptions options)
    : body_(std::make_unique<Body>(path, std::move(options)))
{}

Recorder::~Recorder()
{
    try {
        finish("stopped");
    } catch (...) {
        // Whoever wants to know calls finish().
    }
}

void Recorder::measure(const StarOptions& options)
{
    std::lock_guard<std::mutex> guard(body_->lock);
    if (body_->given > 0) {
        throw Error(ErrorKind::Usage, body_->path + ": frames are measured from the first one on");
    }
    body_->measuring = options;
}

bool Recorder::write(Frame frame)
{
    std::unique_lock<std::mutex> guard(body_->lock);
    const auto isOver = [this] { return body_->failure || body_->isFinishing; };
    const size_t most = std::max<size_t>(body_->options.most, 1);
    body_->changed.wait(guard, [&] { return isOver() || body_->books.held < most; });
    if (isOver()) return false;
    body_->jobs.push_back({body_->given++, std::move(frame), body_->measuring});
    ++body_->books.held;
    body_->changed.notify_all();
    return true;
}

void Recorder::note(const Event& event)
{
    std::lock_guard<std::mutex> guard(body_->lock);
    if (body_->failure || body_->isFinishing) return;
    body_->notes.push_back(event);
    body_->changed.notify_all();
}

void Recorder::finish(const std::string& how, std::optional<uint64_t> dropped)
{
    {
        std::lock_guard<std::mutex> guard(body_->lock);
        if (!body_->isFinishing) body_->ending = {how, dropped.value_or(0)};
        body_->isFinishing = true;
        if (dropped) body_->books.dropped = std::max(body_->books.dropped, *dropped);
        body_->changed.notify_all();
    }
    body_->join();
    throwFailure();
}

bool Recorder::hasFailed() const
{
    std::lock_guard<std::mutex> guard(body_->lock);
    return body_->failure != nullptr;
}

void Recorder::throwFailure() const
{
    std::unique_lock<std::mutex> guard(body_->lock);
    const std::exception_ptr failure = body_->failure;
    guard.unlock();
    if (failure) std::rethrow_exception(failure);
}

RecordBooks Recorder::books() const
{
    std::lock_guard<std::mutex> guard(body_->lock);
    return body_->books;
}

} // namespace vxcam
