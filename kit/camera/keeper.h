// A thread that looks after a camera.
#ifndef VXCAMKIT_KEEPER_H
#define VXCAMKIT_KEEPER_H

#include "values/started_thread.h"

#include <vxcamkit/frame_times.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

namespace vxcam {

// Looks when it is woken, and when the time has come that the last look told.
//
// Threads: any but its own for stop(). Locks: its own, never held while it looks.
// Owns: the thread.
class Keeper
{
public:
    using Look = std::function<std::optional<SteadyTime>()>; // when to look next, unless woken

    explicit Keeper(Look look) : look_(std::move(look)), thread_(startedThread([this] { run(); }))
    {}
    ~Keeper() { stop(); }
    Keeper(const Keeper&) = delete;
    Keeper& operator=(const Keeper&) = delete;

    void wake()
    {
        std::lock_guard<std::mutex> guard(lock_);
        isWoken_ = true;
        changed_.notify_all();
    }

    // Behind it, nobody looks any more.
    void stop()
    {
        {
            std::lock_guard<std::mutex> guard(lock_);
            isStopping_ = true;
            changed_.notify_all();
        }
        if (thread_.joinable()) thread_.join();
    }

private:
    void run()
    {
        std::unique_lock<std::mutex> guard(lock_);
        std::optional<SteadyTime> next;
        const auto isNews = [this] { return isStopping_ || isWoken_; };
        while (!isStopping_) {
            if (next) {
                changed_.wait_until(guard, *next, isNews);
            } else {
                changed_.wait(guard, isNews);
            }
            if (isStopping_) break;
            isWoken_ = false;
            guard.unlock();
            next = look_();
            guard.lock();
        }
    }

    const Look look_;
    std::mutex lock_;
    std::condition_variable changed_;
    bool isWoken_ = false, isStopping_ = false;
    std::thread thread_;
};

} // namespace vxcam

#endif
