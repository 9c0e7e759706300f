#include "record/recorder_body.h"

#include "containers/pixel_crc.h"
#include "values/started_thread.h"

#include <vxcamkit/error.h>
#include <vxcamkit/frame_file.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace vxcam {

namespace {

constexpr size_t kEncoders = 2;
constexpr std::chrono::milliseconds kBetweenFlushes(100);
constexpr std::chrono::milliseconds kBetweenLooks(100); // at the disk

// As an Error, whatever it was.
std::exception_ptr asError(const std::exception_ptr& why, const std::string& path)
{
    try {
        std::rethrow_exception(why);
    } catch (const Error&) {
        return why;
    } catch (const std::exception& error) {
        return std::make_exception_ptr(
            Error(ErrorKind::File, path + ": not recorded: " + error.what(), ENOMEM));
    }
}

[[noreturn]] void refuseRoom(const std::string& path, uint64_t room, uint64_t frames)
{
    throw Error(ErrorKind::File,
                path + ": the disk is nearly full (" + std::to_string(room >> 20U) +
                    " MiB left): the record ends after " + std::to_string(frames) + " frames",
                ENOSPC);
}

} // namespace

Recorder::Body::Body(std::string recordPath, RecordOptions recordOptions)
    : path(std::move(recordPath)), options(std::move(recordOptions)),
      kind(recordKindOf(path, options))
{
    books.diskLeft = kRoomUnknown;
    checkRecord(path, options);
    try {
        for (size_t i = 0; i < kEncoders; ++i) {
            threads.push_back(startedThread([this] { encode(); }));
        }
        threads.push_back(startedThread([this] { write(); }));
    } catch (...) {
        fail();
        join();
        throw;
    }
}

// The exception that is being handled.
void Recorder::Body::fail()
{
    const std::exception_ptr why = asError(std::current_exception(), path);
    std::deque<Job> rest; // given back without the lock
    std::map<uint64_t, RecordedFrame> drafted;
    std::lock_guard<std::mutex> guard(lock);
    if (!failure) failure = why;
    rest.swap(jobs);
    drafted.swap(drafts);
    books.held = 0;
    changed.notify_all();
}

// ---- Encoding ---------------------------------------------------------------------------------

std::optional<Recorder::Body::Job> Recorder::Body::nextJob(FileBytes* spare)
{
    std::unique_lock<std::mutex> guard(lock);
    changed.wait(guard, [this] {
        const bool isRoom = drafts.size() + encoding < kRecordDrafts;
        return failure || (jobs.empty() ? isFinishing : isRoom);
    });
    if (failure || jobs.empty()) return std::nullopt;
    std::optional<Job> job(std::move(jobs.front()));
    jobs.pop_front();
    ++encoding;
    if (!spares.empty()) {
        *spare = std::move(spares.back());
        spares.pop_back();
    }
    return job;
}

void Recorder::Body::encode()
{
    FileBytes spare;
    while (std::optional<Job> job = nextJob(&spare)) {
        try {
            RecordedFrame frame{std::move(job->frame), job->index, 0, {}, {}};
            frame.crc = pixelCrc(frame.frame.data(), frame.frame.bytes());
            frame.frame.sum();
            if (job->measuring) frame.measures = measuresOf(frame.frame, *job->measuring);
            frame.encoded = kind.encode(frame, options, std::move(spare));
            std::lock_guard<std::mutex> guard(lock);
            --encoding;
            if (!failure) drafts.emplace(job->index, std::move(frame));
            changed.notify_all();
        } catch (...) {
            fail();
        }
    }
}

// ---- Writing ----------------------------------------------------------------------------------

// While it waits for one, what was written is flushed when its time has come.
std::optional<RecordedFrame> Recorder::Body::nextFrame()
{
    std::unique_lock<std::mutex> guard(lock);
    const auto isReady = [this] {
        return failure || (file && !notes.empty()) || drafts.count(next) != 0 ||
               (isFinishing && next == given);
    };
    if (isFlushed) {
        changed.wait(guard, isReady);
    } else if (!changed.wait_until(guard, lastFlush + kBetweenFlushes, isReady)) {
        return std::nullopt;
    }
    const auto found = drafts.find(next);
    if (failure || found == drafts.end()) return std::nullopt;
    std::optional<RecordedFrame> frame(std::move(found->second));
    drafts.erase(found);
    ++next;
    changed.notify_all();
    return frame;
}

void Recorder::Body::write()
{
    try {
        while (true) {
            std::optional<RecordedFrame> frame = nextFrame();
            if (frame) add(std::move(*frame));
            writeNotes();
            if (!isFlushed && Clock::now() >= lastFlush + kBetweenFlushes) flush();
            std::lock_guard<std::mutex> guard(lock);
            if (failure || (isFinishing && next == given)) break;
        }
    } catch (...) {
        fail();
    }
    endAll();
}

void Recorder::Body::writeNotes()
{
    if (!file) return; // they wait for the first frame
    std::vector<Event> list;
    {
        std::lock_guard<std::mutex> guard(lock);
        list.swap(notes);
    }
    for (const Event& event : list) {
        file->note(event);
        isFlushed = false;
    }
}

void Recorder::Body::begin(const RecordedFrame& first)
{
    const FrameFacts& facts = first.frame.facts();
    if (facts.bits > kind.mostBits) {
        throw Error(ErrorKind::Usage, path + ": " + nameOf(kind.format) + " files take pixels of " +
                                          std::to_string(kind.mostBits) + " bits at most");
    }
    if (!shape) shape = facts;
    {
        std::lock_guard<std::mutex> guard(lock);
        const int number = static_cast<int>(books.files.size()) + 1;
        name = kind.isMany ? path : fileName(path, number, options.split == 0 ? 1 : 0);
    }
    lastLook = {};
    file = kind.make(name, options, first);
    watchNames();
    lastFlush = Clock::now();
    added = 0;
    std::lock_guard<std::mutex> guard(lock);
    if (!kind.isMany) books.files.push_back({name, 0, 0});
}

// No file is made that the disk has no room for.
void Recorder::Body::requireRoomToBegin(const RecordedFrame& first) const
{
    if (options.force) return; // a file that is replaced makes room
    const uint64_t free = diskRoom(path, 0);
    if (free <
        recordNeeds(options, std::max<uint64_t>(first.frame.bytes(), first.encoded.size()))) {
        refuseRoom(path, free, first.index);
    }
}

void Recorder::Body::watchNames()
{
    made.clear();
    if (kind.isMany) return;
    made[name] = FileId(name);
    if (*kind.beside != '\0') made[name + kind.beside] = FileId(name + kind.beside);
}

// What is written under no name any more would be lost.
void Recorder::Body::requireNames() const
{
    for (const auto& [watched, was] : made) {
        if (was.isAt(watched)) continue;
        throw Error(ErrorKind::File,
                    watched + ": was removed or renamed while it was recorded; what is in it is "
                              "not there",
                    ENOENT);
    }
}

// Looks at the disk before it is too full for what ends the file.
void Recorder::Body::requireRoom(const RecordedFrame& frame)
{
    const uint64_t size = file->bytes();
    const uint64_t wanted = std::max<uint64_t>(frame.frame.bytes(), frame.encoded.size());
    const uint64_t kept = recordNeeds(options, wanted + file->closingBytes()) - wanted;
    const uint64_t since = size - std::min(size, sizeAtLook);
    const bool isNear = room != kRoomUnknown && room < 2 * (kept + since + wanted);
    const auto now = Clock::now();
    if (isNear || now >= lastLook + kBetweenLooks) {
        lastLook = now;
        requireNames();
        if (isNear && !isFlushed) flush(); // what is still in memory takes room, too
        sizeAtLook = size;
        room = diskRoom(name, size);
        std::lock_guard<std::mutex> guard(lock);
        books.diskLeft = room - std::min(room, kept);
    }
    if (room != kRoomUnknown && room < kept + (file->bytes() - sizeAtLook) + wanted) {
        refuseRoom(path, room, frame.index);
    }
}

void Recorder::Body::add(RecordedFrame frame)
{
    if (file && options.split != 0 && added > 0 && file->bytes() >= options.split) {
        end({"split", frame.frame.facts().dropped});
    }
    if (!file) {
        requireRoomToBegin(frame);
        begin(frame);
    }
    const FrameFacts& facts = frame.frame.facts();
    if (facts.rows != shape->rows || facts.columns != shape->columns || facts.bits != shape->bits) {
        throw Error(ErrorKind::Usage, path + ": a frame of another size does not belong to it");
    }
    requireRoom(frame);
    const uint64_t before = file->bytes();
    file->add(frame);
    ++added;
    isFlushed = false;
    if (kind.isMany) beginBooksOf(frame);
    count(facts, frame.frame.bytes(), kind.isMany ? file->bytes() - before : file->bytes());
    std::lock_guard<std::mutex> guard(lock);
    if (frame.encoded.size() > 0) spares.push_back(std::move(frame.encoded));
    if (books.held > 0) --books.held;
    changed.notify_all();
}

// Of the file that a frame has for itself.
void Recorder::Body::beginBooksOf(const RecordedFrame& frame)
{
    const std::string own = fileName(path, static_cast<int>(frame.index) + 1, 1);
    std::lock_guard<std::mutex> guard(lock);
    books.files.push_back({own, 0, 0});
}

void Recorder::Body::count(const FrameFacts& facts, uint64_t bytes, uint64_t fileBytes)
{
    std::lock_guard<std::mutex> guard(lock);
    ++books.frames;
    if (!facts.complete()) ++books.incomplete;
    books.pixelBytes += bytes;
    books.dropped = std::max(books.dropped, facts.dropped);
    ++books.files.back().frames;
    books.files.back().bytes = fileBytes;
}

void Recorder::Body::flush()
{
    file->flush();
    isFlushed = true;
    lastFlush = Clock::now();
    std::lock_guard<std::mutex> guard(lock);
    books.flushed = books.frames;
}

// What cannot be closed any more is left as it was flushed.
void Recorder::Body::end(RecordEnd how)
{
    try {
        requireNames();
    } catch (...) {
        fail();
        how.how = "failed";
    }
    try {
        file->close(how);
    } catch (...) {
        fail();
        try {
            file->salvage();
        } catch (const Error&) {
            // The disk takes nothing at all.
        }
    }
    const uint64_t frames = file->frames(), bytes = file->bytes();
    file.reset();
    if (kind.isBesideTaken) made.erase(name + kind.beside);
    try {
        requireNames();
    } catch (...) {
        fail();
    }
    isFlushed = true;
    std::lock_guard<std::mutex> guard(lock);
    if (kind.isMany) {
        books.flushed = books.frames;
        return;
    }
    RecordedFile& last = books.files.back();
    books.frames -= last.frames - frames;
    books.flushed = books.frames;
    last.frames = frames;
    last.bytes = bytes;
}

void Recorder::Body::endAll()
{
    if (!file) return;
    writeNotes();
    std::unique_lock<std::mutex> guard(lock);
    RecordEnd how = ending;
    how.dropped = std::max(how.dropped, books.dropped);
    if (failure) how.how = "failed";
    guard.unlock();
    end(how);
}

void Recorder::Body::join()
{
    std::lock_guard<std::mutex> guard(joining);
    for (std::thread& thread : threads) {
        if (thread.joinable()) thread.join();
    }
}

} // namespace vxcam
