// Events on their way from the camera's receive thread to those who listen.
#ifndef VXCAMKIT_EVENT_QUEUE_H
#define VXCAMKIT_EVENT_QUEUE_H

#include <vxcamkit/event.h>

#include <memory>
#include <thread>

namespace vxcam {

// Hands events to the handlers on a thread of its own, in order. A handler that is too slow holds
// up other handlers, never the camera: where many events wait, heartbeats are dropped first, then
// the oldest. What a handler throws is its own affair and ends there.
//
// Threads: any; it may be destroyed in a handler. Locks: its own, never held while a handler runs.
// Owns: the thread, which shares what it needs.
class EventQueue
{
public:
    static constexpr size_t kMostWaiting = 1024;

    EventQueue();
    ~EventQueue(); // as stop()
    EventQueue(const EventQueue&) = delete;
    EventQueue& operator=(const EventQueue&) = delete;

    void post(Event event);
    Subscription listen(EventHandler handler);

    // Events that wait are still handed out; none is taken any more. In a handler it does not wait
    // for that.
    void stop();

private:
    struct State;
    static void run(State& state);

    std::shared_ptr<State> state_;
    std::thread thread_;
};

} // namespace vxcam

#endif
