#include "camera/event_queue.h"

#include "values/started_thread.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>

namespace vxcam {

const char* nameOf(EventKind kind)
{
    switch (kind) {
    case EventKind::CameraError:
        return "camera-error";
    case EventKind::LinkLost:
        return "link-lost";
    case EventKind::LinkRestored:
        return "link-restored";
    case EventKind::SettingsRestored:
        return "settings-restored";
    case EventKind::RestoreAsked:
        return "restore-asked";
    case EventKind::ReadoutEnded:
        return "readout-ended";
    case EventKind::Message:
        return "message";
    case EventKind::CameraChanged:
        return "camera-changed";
    case EventKind::Heartbeat:
        break;
    }
    return "heartbeat";
}

// Locks: `lock` is held while the handler runs, so that ending waits for it.
struct Subscription::Listener {
    std::recursive_mutex lock; // ended in the handler itself, too
    EventHandler handler;
    bool isEnded = false;

    void tell(const Event& event)
    {
        std::lock_guard<std::recursive_mutex> guard(lock);
        if (isEnded) return;
        try {
            handler(event);
        } catch (...) { // of the application, which nobody here can answer
        }
    }
};

Subscription::Subscription() = default;
Subscription::Subscription(std::shared_ptr<Listener> listener) : listener_(std::move(listener)) {}
Subscription::Subscription(Subscription&& other) noexcept = default;

Subscription::~Subscription()
{
    end();
}

Subscription& Subscription::operator=(Subscription&& other) noexcept
{
    if (this != &other) {
        end();
        listener_ = std::move(other.listener_);
    }
    return *this;
}

void Subscription::end()
{
    if (!listener_) return;
    {
        std::lock_guard<std::recursive_mutex> guard(listener_->lock);
        listener_->isEnded = true;
    }
    listener_.reset();
}

struct EventQueue::State {
    std::mutex lock;
    std::condition_variable changed;
    std::deque<Event> waiting;
    std::vector<std::shared_ptr<Subscription::Listener>> listeners;
    bool isStopping = false;

    void makeRoom()
    {
        const auto heartbeat = std::find_if(waiting.begin(), waiting.end(), [](const Event& event) {
            return event.kind == EventKind::Heartbeat;
        });
        waiting.erase(heartbeat != waiting.end() ? heartbeat : waiting.begin());
    }

    // Those who still listen; the lock is held.
    std::vector<std::shared_ptr<Subscription::Listener>> present()
    {
        const auto isGone = [](const auto& listener) { return listener.use_count() == 1; };
        listeners.erase(std::remove_if(listeners.begin(), listeners.end(), isGone),
                        listeners.end());
        return listeners;
    }
};

EventQueue::EventQueue()
    : state_(std::make_shared<State>()), thread_(startedThread([state = state_] { run(*state); }))
{}

EventQueue::~EventQueue()
{
    stop();
    if (thread_.joinable()) thread_.detach(); // in a handler
}

void EventQueue::post(Event event)
{
    std::lock_guard<std::mutex> guard(state_->lock);
    if (state_->isStopping) return;
    if (state_->waiting.size() >= kMostWaiting) state_->makeRoom();
    state_->waiting.push_back(std::move(event));
    state_->changed.notify_all();
}

Subscription EventQueue::listen(EventHandler handler)
{
    auto listener = std::make_shared<Subscription::Listener>();
    listener->handler = std::move(handler);
    std::lock_guard<std::mutex> guard(state_->lock);
    state_->listeners.push_back(listener);
    return Subscription(std::move(listener));
}

void EventQueue::stop()
{
    {
        std::lock_guard<std::mutex> guard(state_->lock);
        state_->isStopping = true;
        state_->changed.notify_all();
    }
    if (thread_.joinable() && thread_.get_id() != std::this_thread::get_id()) thread_.join();
}

void EventQueue::run(State& state)
{
    std::unique_lock<std::mutex> guard(state.lock);
    for (;;) {
        state.changed.wait(guard, [&] { return state.isStopping || !state.waiting.empty(); });
        if (state.waiting.empty()) return;
        const Event event = std::move(state.waiting.front());
        state.waiting.pop_front();
        auto listeners = state.present();
        guard.unlock();
        for (const auto& listener : listeners) {
            listener->tell(event);
        }
        listeners.clear();
        guard.lock();
    }
}

} // namespace vxcam
