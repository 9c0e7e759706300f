#include "exposure_runner.h"

#include "main_loop.h"

#include <algorithm>
#include <exception>
#include <optional>
#include <utility>

namespace vxcam {

namespace {

using namespace std::chrono_literals;

double secondsOf(std::chrono::milliseconds time)
{
    return std::chrono::duration<double>(time).count();
}

} // namespace

void ExposureRunner::later(uint64_t number, std::function<void()> work)
{
    if (!work) return;
    onMainLoop([this, number, work = std::move(work)] {
        if (isCurrent(number)) work();
    });
}

void ExposureRunner::start(ExposureJob job)
{
    const uint64_t number = ++number_;
    isRunning_ = true;
    worker_.post([this, number, job = std::move(job)] { run(job, number); });
}

void ExposureRunner::cancel()
{
    std::lock_guard<std::mutex> guard(lock_);
    ++number_;
    isRunning_ = false;
    if (stream_ != nullptr) stream_->stop();
}

void ExposureRunner::run(const ExposureJob& job, uint64_t number)
{
    const auto end = [&](std::function<void()> tell) {
        later(number, [this, tell = std::move(tell)] {
            isRunning_ = false;
            tell();
        });
    };
    try {
        takeFrames(job, number);
        end(job.done);
    } catch (const Error& error) {
        end([failed = job.failed, error] { failed(error); });
    } catch (const std::exception& error) {
        end([failed = job.failed, text = std::string(error.what())] {
            failed(Error(ErrorKind::File, text));
        });
    }
}

void ExposureRunner::takeFrames(const ExposureJob& job, uint64_t number)
{
    if (!isCurrent(number)) return;
    if (job.prepare) job.prepare();
    Stream stream = job.camera->stream(job.plan);
    {
        std::lock_guard<std::mutex> guard(lock_);
        if (!isCurrent(number)) return;
        stream_ = &stream;
    }
    const std::unique_ptr<Stream, std::function<void(Stream*)>> forget(&stream, [this](Stream*) {
        std::lock_guard<std::mutex> guard(lock_);
        stream_ = nullptr;
    });
    for (;;) {
        std::optional<Frame> frame;
        // Of a readout that had ended before, what is thrown is how; else it may end meanwhile, and
        // its frame be there.
        const bool isOver = stream.end() != ReadoutEnd::Running;
        try {
            frame = stream.next(1s);
        } catch (const Error& error) {
            if (isOver || error.kind() != ErrorKind::Timeout) throw;
            if (stream.end() != ReadoutEnd::Running) continue;
            const Progress progress = stream.progress();
            const double left = secondsOf(progress.exposure - progress.elapsed);
            if (job.left) later(number, [tell = job.left, left] { tell(std::max(left, 0.0)); });
            continue;
        }
        if (!frame || !isCurrent(number)) return;
        if (!frame->complete()) {
            if (!job.skip) throw IncompleteFrame(*frame);
            job.skip(*frame);
            continue;
        }
        job.take(*frame);
        later(number, job.taken);
    }
}

} // namespace vxcam
