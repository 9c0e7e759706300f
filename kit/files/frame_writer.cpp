#include "values/started_thread.h"

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

// Threads: while some wait for the disk, others make files and write them. The disk is busy with
// four.
constexpr size_t kWriters = 4;
constexpr size_t kMostDrafts = 8; // frames that wait for one before them

struct Job {
    uint64_t number; // in the order of write()
    Frame frame;
    std::vector<FramePath> files;
    std::vector<HeaderCard> cards;
};

// A frame whose files are on the disk, but do not have their names yet.
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

// Threads: `writers` make the files and write them, each a frame of its own; `keeper` gives them
//   their names, frame by frame.
// Locks: `lock` guards what is below it.
struct FrameWriter::Body {
    explicit Body(WriterOptions writerOptions);

    void write();
    std::optional<Job> nextJob();
    Drafts draft(Job job, FileBytes* spare) const;
    void keepAll();
    std::optional<Drafts> nextDrafts();
    void keep(Drafts next);
    void fail(uint64_t number);
    void join();

    const WriterOptions options;
    std::atomic<bool> isCancelled{false};
    std::map<std::string, NewFile> kept; // the last one of each folder; of the keeper

    mutable std::mutex lock;
    mutable std::condition_variable changed;
    std::deque<Job> jobs;
    std::map<uint64_t, Drafts> drafts; // by the number of their job
    uint64_t jobCount = 0;             // so far
    uint64_t nextKept = 0;             // the number of the one that the keeper has next
    size_t writing = kWriters;         // writers that have not ended
    bool isStopped = false, isFinishing = false, isDone = false;
    std::exception_ptr failure;
    uint64_t failedJob = 0; // that it is of
    std::vector<WrittenFrame> written;

    std::mutex joining;
    std::vector<std::thread> writers;
    std::thread keeper;
};

FrameWriter::Body::Body(WriterOptions writerOptions) : options(std::move(writerOptions))
{
    try {
        for (size_t i = 0; i < kWriters; ++i) {
            writers.push_back(startedThread([this] { write(); }));
        }
        keeper = startedThread([this] { keepAll(); });
    } catch (...) {
        isStopped = true;
        changed.notify_all();
        join();
        throw;
    }
}

// The exception that is being handled is that of this job. Of several, the first job's counts.
void FrameWriter::Body::fail(uint64_t number)
{
    const std::exception_ptr why = errorOf(std::current_exception());
    std::lock_guard<std::mutex> guard(lock);
    if (isStopped || (failure && failedJob < number)) return;
    failure = why;
    failedJob = number;
    changed.notify_all();
}

std::optional<Job> FrameWriter::Body::nextJob()
{
    std::unique_lock<std::mutex> guard(lock);
    changed.wait(guard, [this] {
        const bool isRoom = drafts.size() < kMostDrafts;
        return isStopped || failure || (jobs.empty() ? isFinishing : isRoom);
    });
    if (isStopped || failure || jobs.empty()) return std::nullopt;
    std::optional<Job> job(std::move(jobs.front()));
    jobs.pop_front();
    changed.notify_all();
    return job;
}

// The frame is let go before the disk is waited for: its buffer may be needed. `spare` is memory of
// the last FITS file.
Drafts FrameWriter::Body::draft(Job job, FileBytes* spare) const
{
    Drafts made;
    std::vector<FileBytes> contents;
    HeaderOptions header = options.header;
    header.cards.insert(header.cards.end(), job.cards.begin(), job.cards.end());
    {
        const Frame frame = std::move(job.frame);
        made.written.facts = frame.facts();
        made.written.sum = frame.sum();
        for (const FramePath& file : job.files) {
            const bool isFits = file.format == FileFormat::Fits;
            contents.push_back(makeFile(file.format, frame, header, &made.written.warnings,
                                        isFits ? std::move(*spare) : FileBytes()));
        }
    }
    for (size_t i = 0; i < contents.size(); ++i) {
        made.files.emplace_back(job.files[i].path, options.force, &isCancelled);
        made.files.back().write(contents[i]);
        made.files.back().sync();
        if (job.files[i].format == FileFormat::Fits) *spare = std::move(contents[i]);
    }
    made.written.files = std::move(job.files);
    return made;
}

void FrameWriter::Body::write()
{
    FileBytes spare;
    while (std::optional<Job> job = nextJob()) {
        const uint64_t number = job->number;
        try {
            Drafts made = draft(std::move(*job), &spare);
            std::lock_guard<std::mutex> guard(lock);
            drafts.emplace(number, std::move(made));
            changed.notify_all();
        } catch (...) {
            fail(number);
        }
    }
    std::deque<Job> rest; // given back without the lock
    std::lock_guard<std::mutex> guard(lock);
    rest.swap(jobs);
    --writing;
    changed.notify_all();
}

// What comes before a failure is still kept.
std::optional<Drafts> FrameWriter::Body::nextDrafts()
{
    std::unique_lock<std::mutex> guard(lock);
    changed.wait(guard,
                 [this] { return isStopped || drafts.count(nextKept) != 0 || writing == 0; });
    const auto next = drafts.find(nextKept);
    if (isStopped || next == drafts.end()) return std::nullopt;
    std::optional<Drafts> found(std::move(next->second));
    drafts.erase(next);
    changed.notify_all();
    return found;
}

void FrameWriter::Body::keep(Drafts next)
{
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

void FrameWriter::Body::keepAll()
{
    try {
        while (std::optional<Drafts> next = nextDrafts()) {
            keep(std::move(*next));
            std::lock_guard<std::mutex> guard(lock);
            ++nextKept;
        }
    } catch (...) {
        fail(nextKept);
        isCancelled = true; // of what lies behind it nothing is kept
    }
    for (auto& [folder, file] : kept) {
        file.syncName();
    }
    std::map<uint64_t, Drafts> rest; // removed without the lock
    {
        std::unique_lock<std::mutex> guard(lock);
        changed.wait(guard, [this] { return writing == 0; });
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
    for (std::thread& thread : writers) {
        if (thread.joinable()) thread.join();
    }
    if (keeper.joinable()) keeper.join();
}

FrameWriter::FrameWriter(WriterOptions options) : body_(std::make_unique<Body>(std::move(options)))
{}

FrameWriter::~FrameWriter()
{
    stop();
}

bool FrameWriter::write(Frame frame, std::vector<FramePath> files)
{
    return write(std::move(frame), std::move(files), {});
}

bool FrameWriter::write(Frame frame, std::vector<FramePath> files, std::vector<HeaderCard> cards)
{
    std::unique_lock<std::mutex> guard(body_->lock);
    const auto isOver = [this] { return body_->isStopped || body_->failure || body_->isFinishing; };
    const size_t most = std::max<size_t>(body_->options.most, 1);
    body_->changed.wait(guard, [&] { return isOver() || body_->jobs.size() < most; });
    if (isOver()) return false;
    body_->jobs.push_back(
        {body_->jobCount++, std::move(frame), std::move(files), std::move(cards)});
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
