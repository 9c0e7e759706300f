// Tells clients of frames and changes, by events.
#ifndef VXCAMERA_ANNOUNCER_H
#define VXCAMERA_ANNOUNCER_H

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

namespace vxcam {

class VxCamera;

// Pushes events on a thread of its own, which takes the device's lock: nothing that receives frames
// waits for a client.
//
// Threads: any. Owns: the thread.
class Announcer
{
public:
    explicit Announcer(VxCamera& device);
    ~Announcer();
    Announcer(const Announcer&) = delete;
    Announcer& operator=(const Announcer&) = delete;

    void frame(int index); // each is pushed, in order
    void change();         // of state and status, which are pushed when they are others

private:
    void loop();
    void push(const std::deque<int>& frames);

    VxCamera& device_;
    std::mutex lock_;
    std::condition_variable changed_;
    std::deque<int> frames_;
    bool isChanged_ = true;
    bool isEnding_ = false;
    int state_ = -1; // as pushed last
    std::string status_;
    std::thread thread_;
};

} // namespace vxcam

#endif
