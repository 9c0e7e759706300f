// Makes pictures beside everything else, so that answers and heartbeats never wait for one.
#ifndef TCSIMWORKER_H
#define TCSIMWORKER_H

#include "tcSimPicture.h"

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

// Threads: one that asks; one of its own that works and calls back.
// Locks: mtMutex guards the pending job and the size; not held while working or calling back.
// Owns: the sensor (made on its thread, before the first picture and when its size or number of
// stars changes) and its thread.
class tcSimWorker
{
public:
    using tpDone = std::function<void(std::shared_ptr<tcSimPicture>)>;

    tcSimWorker(uint32_t rows, uint32_t columns, uint64_t seed);
    ~tcSimWorker();
    tcSimWorker(const tcSimWorker&) = delete;
    tcSimWorker& operator=(const tcSimWorker&) = delete;

    // `done` is called on the worker's thread, unless Cancel, another Make or the end of the
    // worker comes first; it may still be called for a job whose cancelling came very late. One job
    // is pending at a time: a new one takes its place.
    void Make(tsSimJob job, tpDone done);
    void Cancel();

    // Of the sensor, for pictures asked for from now on.
    void Resize(uint32_t rows, uint32_t columns);

private:
    void Run();

    uint32_t mnRows, mnColumns;
    const uint64_t mnSeed;
    std::mutex mtMutex;
    std::condition_variable mtChanged;
    std::optional<tsSimJob> mtJob;
    tpDone mpDone;
    bool mbStop = false;
    std::atomic<bool> mbCancelled{false}; // what is being made is not wanted any more
    std::thread mtThread;
};

#endif
