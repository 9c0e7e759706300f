#include "announcer.h"

#include "camera_device.h"

namespace vxcam {

namespace {

constexpr size_t kMostFrames = 10000; // that wait to be told; the oldest are dropped
constexpr std::chrono::milliseconds kLater(50);

} // namespace

Announcer::Announcer(VxCamera& device) : device_(device), thread_([this] { loop(); }) {}

Announcer::~Announcer()
{
    {
        const std::lock_guard<std::mutex> guard(lock_);
        isEnding_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

void Announcer::frame(int index)
{
    {
        const std::lock_guard<std::mutex> guard(lock_);
        frames_.push_back(index);
        if (frames_.size() > kMostFrames) frames_.pop_front();
    }
    changed_.notify_all();
}

void Announcer::change()
{
    {
        const std::lock_guard<std::mutex> guard(lock_);
        isChanged_ = true;
    }
    changed_.notify_all();
}

// Nothing is pushed before the server answers to clients.
void Announcer::loop()
{
    const omni_thread::ensure_self self; // the device's lock knows only such threads
    std::unique_lock<std::mutex> guard(lock_);
    while (!isEnding_) {
        if (Tango::Util::instance()->is_svr_starting()) {
            changed_.wait_for(guard, kLater, [this] { return isEnding_; });
            continue;
        }
        changed_.wait(guard, [this] { return isEnding_ || isChanged_ || !frames_.empty(); });
        if (isEnding_) return;
        const std::deque<int> frames = std::exchange(frames_, {});
        isChanged_ = false;
        guard.unlock();
        bool isPushed = true;
        try {
            push(frames);
        } catch (const Tango::DevFailed&) { // a client held the device for too long
            isPushed = false;
        }
        guard.lock();
        if (isPushed) continue;
        frames_.insert(frames_.begin(), frames.begin(), frames.end());
        isChanged_ = true;
    }
}

void Announcer::push(const std::deque<int>& frames)
{
    const auto lock = std::make_unique<Tango::AutoTangoMonitor>(&device_);
    for (const int index : frames) {
        Tango::DevLong last = index, number = index + 1;
        device_.push_change_event("last_image_ready", &last);
        device_.push_change_event("FrameNumber", &number);
    }
    Tango::DevState state = device_.dev_state();
    const std::string status = device_.dev_status();
    if (status != status_) {
        status_ = status;
        Tango::DevString text = status_.data();
        device_.push_change_event("Status", &text);
    }
    if (state != state_) {
        state_ = state;
        device_.push_change_event("State", &state);
    }
}

} // namespace vxcam
