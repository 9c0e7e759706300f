// Questions to a camera that nobody waits for too long.
#ifndef VXCAMERA_ASKER_H
#define VXCAMERA_ASKER_H

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace vxcam {

// Has a thread of its own call what may take long, since a camera may be silent: whoever holds the
// device's lock while it asks would keep everybody from its state.
//
// Threads: any. Owns: the thread, which the destructor waits for; end before that what it may wait
//   for.
class Asker
{
public:
    Asker();
    ~Asker();
    Asker(const Asker&) = delete;
    Asker& operator=(const Asker&) = delete;

    // Calls the work, waits until it is done, and throws what it throws. Throws Error{Timeout} when
    // it is not done after so long, and at once when an earlier one that has taken longer than that
    // still is not: so the work owns whatever it uses.
    void run(std::function<void()> work, std::chrono::milliseconds patience);

private:
    struct Job {
        std::function<void()> work;
        std::chrono::steady_clock::time_point since;
        bool isDone = false;
        std::exception_ptr failure;
    };
    void loop();

    std::mutex lock_;
    std::condition_variable changed_;
    std::shared_ptr<Job> job_; // null: free
    bool isEnding_ = false;
    std::thread thread_;
};

} // namespace vxcam

#endif
