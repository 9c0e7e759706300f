// What is behind a WireCapture.
#ifndef VXCAMKIT_CAPTURE_BODY_H
#define VXCAMKIT_CAPTURE_BODY_H

#include "wire/block_file.h"
#include "wire/wire_capture.h"
#include "wire/wire_reader.h"

#include <vxcamkit/error.h>

#include "vxcamext.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace vxcam {

// Threads: any take, one writes.
struct WireCapture::Body {
    Body(const std::string& path, bool force, std::string software);
    ~Body();

    // Its number in the recording. Throws Error{Usage} for more than these can tell apart.
    uint8_t addCamera(const std::string& target);
    // Bytes and link events of the library's tap; the rest is left.
    void take(uint8_t camera, const tsTapRecord& record);
    void add(WireKind kind, uint8_t camera, const Moment& time, const void* bytes, size_t count);
    void finish();

    mutable std::mutex lock;
    std::condition_variable changed;
    WireBooks books;
    std::optional<Error> failure;

private:
    // A block as it lies in the file: behind `from` bytes that are the file's, its head and
    // records.
    struct Block {
        FileBytes bytes; // none before its first record
        size_t from = 0, end = 0;
        uint32_t records = 0;
        Moment begun;

        size_t room() const;
    };

    void awaitRoom(std::unique_lock<std::mutex>& guard, size_t bytes);
    void put(WireKind kind, uint8_t camera, const Moment& time, const char* bytes, size_t count);
    FileBytes memory();
    void turn();
    void run();
    Block takeBlock();
    void write(Block* block);
    void giveUp(const Error& error);

    const std::string software_;
    BlockFile file_;
    // With the lock.
    Block present_;
    std::deque<Block> waiting_;
    std::vector<FileBytes> spare_; // memory of blocks that were written
    bool isEnding_ = false;
    std::mutex finishing_;
    // Of the thread that writes.
    uint32_t number_ = 0;
    std::thread thread_;
};

} // namespace vxcam

#endif
