// Tells clients of frames and changes, by events.
#ifndef VXCAMERA_ANNOUNCER_H
#define VXCAMERA_ANNOUNCER_H

#include <tango.h>

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

    // Each is pushed, in order.
    void frame(int index);
    void change(Tango::DevState state, const std::string& status, const std::string& end);

private:
    void loop();
    struct News {
        int index = -1; // of a frame; -1: something of the rest changed
        Tango::DevState state = Tango::UNKNOWN;
        std::string status, end; // as the attribute AcquisitionEnd has it
    };
    void add(News news);
    bool tell(const std::deque<News>& news);
    void push(const News& item);

    VxCamera& device_;
    std::mutex lock_;
    std::condition_variable changed_;
    std::deque<News> news_;
    bool isEnding_ = false;
    std::thread thread_;
};

} // namespace vxcam

#endif
