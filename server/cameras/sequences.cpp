#include "cameras/sequences.h"

#include "cameras/time_text.h"
#include "http/http_message.h"

#include <array>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

namespace vxcam {

namespace {

constexpr size_t kStates = 6;

} // namespace

const char* nameOf(SequenceState state)
{
    static constexpr std::array<const char*, kStates> names{"none",     "running", "stopping",
                                                            "complete", "stopped", "failed"};
    return names.at(static_cast<size_t>(state));
}

bool isOver(SequenceState state)
{
    return state != SequenceState::Running && state != SequenceState::Stopping;
}

Sequences::Sequences(SequenceSurroundings surroundings) : around_(std::move(surroundings)) {}

Sequences::~Sequences()
{
    end();
}

// Somebody else may have the journal, in this process or in another one.
std::unique_ptr<Sequence> Sequences::made(const SequenceOrder& order)
{
    SequenceOptions options;
    options.software = order.software;
    options.onProgress = [this](const SequenceProgress& progress) { tell(progress); };
    try {
        return std::make_unique<Sequence>(order.plan, options);
    } catch (const Error& error) {
        if (error.code() == EWOULDBLOCK) throw Refusal(409, "sequence", error.what());
        throw;
    }
}

void Sequences::start(SequenceOrder order, std::chrono::milliseconds wait)
{
    const std::lock_guard<std::mutex> one(starting_);
    {
        std::lock_guard<std::mutex> guard(mutex_);
        requireOpen();
    }
    refuseIfRunning();
    if (thread_.joinable()) thread_.join();
    const std::shared_ptr<Camera> camera = around_.camera();
    around_.exposures.lend("the sequence '" + order.name + "' runs; stop it first");
    try {
        begin(std::move(order), camera);
    } catch (...) {
        around_.exposures.takeBack();
        throw;
    }
    std::unique_lock<std::mutex> guard(mutex_);
    changed_.wait_for(guard, wait, [this] { return hasBegun_ || isOver(status_.state); });
    isAwaited_ = false;
    if (!isRefused_) return;
    const Error error = *status_.error;
    status_ = before_;
    throw Error(error);
}

void Sequences::begin(SequenceOrder order, const std::shared_ptr<Camera>& camera)
{
    std::unique_ptr<Sequence> sequence = made(order);
    const SequenceReport report = sequence->report();
    sequence->watch(watch());
    SequenceStatus status;
    status.state = SequenceState::Running;
    status.begun = presentText();
    status.before = static_cast<int>(report.files.size());
    status.progress.frames = report.frames;
    status.progress.taken = status.before;
    status.order = std::move(order);

    std::lock_guard<std::mutex> guard(mutex_);
    requireOpen();
    before_ = status_;
    status_ = std::move(status);
    sequence_ = std::move(sequence);
    isAwaited_ = true;
    isRefused_ = hasBegun_ = false;
    newLine_.reset();
    try {
        thread_ = std::thread([this, camera] { run(camera); });
    } catch (...) {
        sequence_.reset();
        status_ = before_;
        throw;
    }
}

SequenceWatch Sequences::watch()
{
    SequenceWatch watch;
    watch.onStep = [this](int line) { newLine_ = line; };
    watch.onFrame = [this](const Frame& frame) { around_.feed.put(frame, 0); };
    watch.onSetting = around_.onSetting;
    watch.onFailure = [this](const SequenceFailure& failure) {
        {
            std::lock_guard<std::mutex> guard(mutex_);
            ++status_.failures;
            status_.last.push_back(failure);
            if (status_.last.size() > kMostLast) status_.last.pop_front();
        }
        post({{"failure", failure.text}});
    };
    return watch;
}

// A step and its progress are known together.
void Sequences::tell(const SequenceProgress& progress)
{
    std::string file;
    const std::optional<int> line = std::exchange(newLine_, std::nullopt);
    {
        std::lock_guard<std::mutex> guard(mutex_);
        status_.progress = progress;
        if (line) {
            status_.line = *line;
            hasBegun_ = true;
        }
        if (!progress.file.empty()) {
            const std::string name = std::filesystem::path(progress.file).filename().string();
            file = status_.file = status_.order.folder + "/" + name;
        }
    }
    if (line) {
        changed_.notify_all();
        around_.onStep();
        post();
    }
    if (!file.empty()) post({{"file", file}});
}

void Sequences::run(const std::shared_ptr<Camera>& camera)
{
    std::string key;
    {
        std::lock_guard<std::mutex> guard(mutex_);
        key = status_.order.leaseKey;
    }
    around_.lease.keep(key);
    std::optional<Error> error;
    try {
        if (!sequence_->isComplete()) sequence_->run(*camera);
    } catch (const Error& failure) {
        error = failure;
    } catch (const std::exception& failure) { // no thread or no memory for it
        error = Error(ErrorKind::Aborted, failure.what());
    }
    around_.lease.keepNoMore(key);
    finish(error);
}

void Sequences::finish(const std::optional<Error>& error)
{
    std::unique_ptr<Sequence> over; // its journal is free when the sequence counts as over
    int taken = 0;
    {
        std::lock_guard<std::mutex> guard(mutex_);
        over = std::move(sequence_);
    }
    taken = static_cast<int>(over->report().files.size());
    over.reset();
    around_.exposures.takeBack();
    bool isRefused = false;
    {
        std::lock_guard<std::mutex> guard(mutex_);
        const bool isStopped = status_.state == SequenceState::Stopping &&
                               (!error || error->kind() == ErrorKind::Aborted);
        isRefused = isRefused_ = isAwaited_ && !hasBegun_ && error && !isStopped;
        status_.state = !error      ? SequenceState::Complete
                        : isStopped ? SequenceState::Stopped
                                    : SequenceState::Failed;
        status_.error = error;
        status_.ended = presentText();
        status_.line = 0;
        status_.progress.taken = taken;
        status_.progress.doing.clear();
        if (!error) status_.progress.done = 1;
        if (!error) status_.progress.left = {};
    }
    around_.onStep();
    changed_.notify_all();
    if (!isRefused) post(error ? Json{{"text", error->what()}} : Json::object());
}

void Sequences::post(const Json& more)
{
    const SequenceStatus now = status();
    Json facts{{"plan", now.order.name},
               {"folder", now.order.folder},
               {"state", nameOf(now.state)},
               {"doing", now.progress.doing},
               {"line", now.line},
               {"frames", now.progress.frames},
               {"taken", now.progress.taken},
               {"done", now.progress.done},
               {"left", std::chrono::duration<double>(now.progress.left).count()}};
    facts.update(more);
    around_.events.post("sequence", facts);
}

SequenceStatus Sequences::status() const
{
    std::lock_guard<std::mutex> guard(mutex_);
    return status_;
}

bool Sequences::isRunning() const
{
    std::lock_guard<std::mutex> guard(mutex_);
    return !isOver(status_.state);
}

void Sequences::refuseIfRunning() const
{
    std::lock_guard<std::mutex> guard(mutex_);
    if (isOver(status_.state)) return;
    throw Refusal(409, "sequence", "the sequence '" + status_.order.name + "' runs; stop it first");
}

// The lock is held.
void Sequences::requireOpen() const
{
    if (isClosed_) throw Refusal(503, "ending", "the server is about to end");
}

bool Sequences::wait(std::chrono::milliseconds most) const
{
    std::unique_lock<std::mutex> guard(mutex_);
    return changed_.wait_for(guard, most, [this] { return isOver(status_.state); });
}

void Sequences::stop(SequenceStop when)
{
    if (!order(when)) return;
    post();
    if (when == SequenceStop::Now) awaitEnd();
}

// False: there is nothing to stop.
bool Sequences::order(SequenceStop when)
{
    std::lock_guard<std::mutex> guard(mutex_);
    if (isOver(status_.state)) return false;
    if (!sequence_) return true; // it is about to end anyway
    sequence_->stop(when);
    status_.state = SequenceState::Stopping;
    return true;
}

void Sequences::awaitEnd() const
{
    std::unique_lock<std::mutex> guard(mutex_);
    changed_.wait(guard, [this] { return isOver(status_.state); });
}

void Sequences::close()
{
    std::lock_guard<std::mutex> guard(mutex_);
    isClosed_ = true;
}

void Sequences::end()
{
    close();
    if (order(SequenceStop::Now)) awaitEnd();
    const std::lock_guard<std::mutex> one(starting_);
    if (thread_.joinable()) thread_.join();
}

} // namespace vxcam
