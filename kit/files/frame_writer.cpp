#include <vxcamkit/frame_writer.h>

#include <vxcamkit/error.h>
#include <vxcamkit/new_file.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <deque>
#include <exception>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

namespace vxcam {

namespace {

constexpr size_t kSyncing = 2; // frames that wait for the disk while the next one is written

struct Job {
    Frame frame;
    std::vector<FramePath> files;
};

// A frame whose files are written, but do not have their names yet.
struct Drafts {
    WrittenFrame written;
    std::vector<NewFile> files;
};

std::string folderOf(const std::string& path)
{
    return path.substr(0, path.rfind('/') + 1);
}

// As an Error, whatever it was.
std::exception_ptr errorOf(const std::exception_ptr& why)
{
    try {
        std::rethrow_exception(why);
    } catch (const Error&) {
        return why;
    } catch (const std::exception& error) {
        return std::make_exception_ptr(
            Error(ErrorKind::File, std::string("a file cannot be made: ") + error.what(), ENOMEM));
    }
}

} // namespace

// Threads: `writer` makes the files and writes them, `syncer` waits for the disk and gives them
//   their names; so both go on at the same time.
// Locks: `lock` guards what is below it.
struct FrameWriter::Body {
    explicit Body(WriterOptions writerOptions)
        : options(std::move(writerOptions)), writer([this] { write(); }), syncer([this] { sync(); })
    {}

    void write();
    std::optional<Job> nextJob();
    Drafts draft(Job job) const;
    void sync();
    std::optional<Drafts> nextDrafts();
    void keep(Drafts drafts);
    void fail();
    void join();

    const WriterOptions options;
    std::atomic<bool> isCancelled{false};
    std::map<std::string, NewFile> kept; // the last one of each folder; of the syncer

    mutable std::mutex lock;
    mutable std::condition_variable changed;
    std::deque<Job> jobs;
    std::deque<Drafts> drafts;
    bool isStopped = false, isFinishing = false;
    bool isWritten = false, isDone = false; // the writer has ended, and the syncer
    std::exception_ptr failure;
    std::vector<WrittenFrame> written;

    std::mutex joining;
    std::thread writer, syncer;
};

// On either thread, of the exception that is being handled.
void FrameWriter::Body::fail()
{
    std::lock_guard<std::mutex> guard(lock);
    if (!failure && !isStopped) failure = errorOf(std::current_exception());
    changed.notify_all();
}

std::optional<Job> FrameWriter::Body::nextJob()
{
    std::unique_lock<std::mutex> guard(lock);
    changed.wait(guard, [this] {
        const bool isRoom = drafts.size() < kSyncing;
        return isStopped || failure || (jobs.empty() ? isFinishing : isRoom);
    });
    if (isStopped || failure || jobs.empty()) return std::nullopt;
    std::optional<Job> job(std::move(jobs.front()));
    jobs.pop_front();
    changed.notify_all();
    return job;
}

// The frame is let go before the disk is waited for: its buffer may be needed.
Drafts FrameWriter::Body::draft(Job job) const
{
    Drafts made;
    std::vector<FileBytes> contents;
    {
        const Frame frame = std::move(job.frame);
        made.written.facts = frame.facts();
        made.written.sum = frame.sum();
        for (const FramePath& file : job.files) {
            contents.push_back(
                makeFile(file.format, frame, options.header, &made.written.warnings));
        }
    }
    for (size_t i = 0; i < contents.size(); ++i) {
        made.files.emplace_back(job.files[i].path, options.force, &isCancelled);
        made.files.back().write(contents[i]);
    }
    made.written.files = std::move(job.files);
    return made;
}

void FrameWriter::Body::write()
{
    try {
        while (std::optional<Job> job = nextJob()) {
            Drafts made = draft(std::move(*job));
            std::lock_guard<std::mutex> guard(lock);
            drafts.push_back(std::move(made));
            changed.notify_all();
        }
    } catch (...) {
        fail();
    }
    std::deque<Job> rest; // given back without the lock
    std::lock_guard<std::mutex> guard(lock);
    rest.swap(jobs);
    isWritten = true;
    changed.notify_all();
}

std::optional<Drafts> FrameWriter::Body::nextDrafts()
{
    std::unique_lock<std::mutex> guard(lock);
    changed.wait(guard, [this] { return isStopped || !drafts.empty() || isWritten; });
    if (isStopped || drafts.empty()) return std::nullopt;
    Drafts next = std::move(drafts.front());
    drafts.pop_front();
    changed.notify_all();
    return next;
}

void FrameWriter::Body::keep(Drafts next)
{
    for (NewFile& file : next.files) {
        file.sync();
    }
    for (NewFile& file : next.files) {
        file.keep();
        const std::string folder = folderOf(file.path());
        kept.insert_or_assign(folder, std::move(file));
    }
    {
        std::lock_guard<std::mutex> guard(lock);
        written.push_back(next.written);
    }
    if (options.whenWritten) options.whenWritten(next.written);
}

// What the writer has made before it failed is kept; nothing is behind a failure here.
void FrameWriter::Body::sync()
{
    try {
        while (std::optional<Drafts> next = nextDrafts()) {
            keep(std::move(*next));
        }
    } catch (...) {
        fail();
        isCancelled = true;
    }
    for (auto& [folder, file] : kept) {
        file.syncName();
    }
    std::deque<Drafts> rest; // removed without the lock
    {
        std::unique_lock<std::mutex> guard(lock);
        changed.wait(guard, [this] { return isWritten; });
        rest.swap(drafts);
    }
    rest.clear();
    {
        std::lock_guard<std::mutex> guard(lock);
        isDone = true;
        changed.notify_all();
    }
    if (options.whenDone) options.whenDone();
}

void FrameWriter::Body::join()
{
    std::lock_guard<std::mutex> guard(joining);
    for (std::thread* const thread : {&writer, &syncer}) {
        if (thread->joinable()) thread->join();
    }
}

FrameWriter::FrameWriter(WriterOptions options) : body_(std::make_unique<Body>(std::move(options)))
{}

FrameWriter::~FrameWriter()
{
    stop();
}

bool FrameWriter::write(Frame frame, std::vector<FramePath> files)
{
    std::unique_lock<std::mutex> guard(body_->lock);
    const auto isOver = [this] { return body_->isStopped || body_->failure || body_->isFinishing; };
    const size_t most = std::max<size_t>(body_->options.most, 1);
    body_->changed.wait(guard, [&] { return isOver() || body_->jobs.size() < most; });
    if (isOver()) return false;
    body_->jobs.push_back({std::move(frame), std::move(files)});
    body_->changed.notify_all();
    return true;
}

void FrameWriter::finish()
{
    {
        std::lock_guard<std::mutex> guard(body_->lock);
        body_->isFinishing = true;
        body_->changed.notify_all();
    }
    body_->join();
    throwFailure();
}

void FrameWriter::stop()
{
    {
        std::lock_guard<std::mutex> guard(body_->lock);
        body_->isStopped = true;
        body_->isCancelled = true;
        body_->changed.notify_all();
    }
    body_->join();
}

bool FrameWriter::hasFailed() const
{
    std::lock_guard<std::mutex> guard(body_->lock);
    return body_->failure != nullptr;
}

bool FrameWriter::isDone() const
{
    std::lock_guard<std::mutex> guard(body_->lock);
    return body_->isDone;
}

void FrameWriter::throwFailure() const
{
    std::unique_lock<std::mutex> guard(body_->lock);
    const std::exception_ptr failure = body_->failure;
    guard.unlock();
    if (failure) std::rethrow_exception(failure);
}

std::vector<WrittenFrame> FrameWriter::written() const
{
    std::lock_guard<std::mutex> guard(body_->lock);
    return body_->written;
}

} // namespace vxcam
