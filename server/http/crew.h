// Threads that answer requests.
#ifndef VXCAMD_CREW_H
#define VXCAMD_CREW_H

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace vxcam {

// The threads of connections have small stacks, and there are many of them: what a request needs is
// done by this crew, as far as it goes. It grows as it is needed.
//
// Threads: any. Locks: its own, never held while work is done. Owns: its threads.
class Crew
{
public:
    explicit Crew(size_t most); // throws std::system_error when not even one thread can be had
    ~Crew();
    Crew(const Crew&) = delete;
    Crew& operator=(const Crew&) = delete;

    // Has it done by one of the crew and waits for that. The work must not throw.
    void run(const std::function<void()>& work);

private:
    struct Job;
    void serve();
    void grow();

    const size_t most_;
    std::mutex mutex_;
    std::condition_variable changed_, done_;
    std::deque<Job*> jobs_;
    std::vector<std::thread> threads_;
    size_t idle_ = 0;
    bool isEnding_ = false;
};

} // namespace vxcam

#endif
