// A record under way.
#ifndef VXCAMKIT_RECORDER_BODY_H
#define VXCAMKIT_RECORDER_BODY_H

#include "containers/disk_room.h"
#include "containers/record_file.h"
#include "record/file_id.h"

#include <vxcamkit/recorder.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <map>
#include <mutex>
#include <optional>
#include <thread>

namespace vxcam {

// Threads: `encoders` take frames and make of them what the file has, `writer` writes them in their
//   order.
// Locks: `lock` guards what is below it.
struct Recorder::Body {
    using Clock = std::chrono::steady_clock;

    struct Job {
        uint64_t index;
        Frame frame;
        std::optional<StarOptions> measuring;
    };

    Body(std::string recordPath, RecordOptions recordOptions);

    void encode();
    std::optional<Job> nextJob(FileBytes* spare);
    void write();
    std::optional<RecordedFrame> nextFrame();
    void writeNotes();
    void add(RecordedFrame frame);
    void begin(const RecordedFrame& first);
    void requireRoomToBegin(const RecordedFrame& first) const;
    void requireRoom(const RecordedFrame& frame);
    void watchNames();
    void requireNames() const;
    void flush();
    void end(RecordEnd how);
    void endAll();
    void beginBooksOf(const RecordedFrame& frame);
    void count(const FrameFacts& facts, uint64_t bytes, uint64_t fileBytes);
    void fail();
    void join();

    const std::string path;
    const RecordOptions options;
    const RecordKind& kind;

    // Of the writer.
    std::unique_ptr<RecordFile> file;
    std::string name;                   // of it
    std::map<std::string, FileId> made; // its names, and what they were of when it was made
    std::optional<FrameFacts> shape;    // of all frames
    bool isFlushed = true;
    Clock::time_point lastFlush, lastLook;
    uint64_t room = kRoomUnknown, sizeAtLook = 0;
    uint64_t added = 0; // frames, to the file

    mutable std::mutex lock;
    mutable std::condition_variable changed;
    std::deque<Job> jobs;
    std::map<uint64_t, RecordedFrame> drafts;
    std::vector<FileBytes> spares;
    std::vector<Event> notes;
    size_t encoding = 0; // frames
    uint64_t given = 0;  // so far
    std::optional<StarOptions> measuring;
    uint64_t next = 0; // that the writer has its turn
    bool isFinishing = false;
    RecordEnd ending;
    std::exception_ptr failure;
    RecordBooks books;

    std::mutex joining;
    std::vector<std::thread> threads;
};

} // namespace vxcam

#endif
