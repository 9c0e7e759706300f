#include "announcer.h"

#include "camera_device.h"

namespace vxcam {

namespace {

constexpr size_t kMostNews = 10000; // that wait to be told; the oldest are dropped
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
    add({index, Tango::UNKNOWN, "", ""});
}

void Announcer::change(Tango::DevState state, const std::string& status, const std::string& end)
{
    add({-1, state, status, end});
}

void Announcer::add(News news)
{
    {
        const std::lock_guard<std::mutex> guard(lock_);
        news_.push_back(std::move(news));
        if (news_.size() > kMostNews) news_.pop_front();
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
        changed_.wait(guard, [this] { return isEnding_ || !news_.empty(); });
        if (isEnding_) return;
        const std::deque<News> news = std::exchange(news_, {});
        guard.unlock();
        const bool isTold = tell(news);
        guard.lock();
        if (!isTold) news_.insert(news_.begin(), news.begin(), news.end());
    }
}

// False: a client has held the device for too long.
bool Announcer::tell(const std::deque<News>& news)
{
    std::unique_ptr<Tango::AutoTangoMonitor> lock;
    try {
        lock = std::make_unique<Tango::AutoTangoMonitor>(&device_);
    } catch (const Tango::DevFailed&) {
        return false;
    }
    for (const News& item : news) {
        try {
            push(item);
        } catch (const Tango::DevFailed&) { // the next one may come through
        }
    }
    return true;
}

void Announcer::push(const News& item)
{
    if (item.index >= 0) {
        Tango::DevLong index = item.index, number = item.index + 1;
        device_.push_change_event("last_image_ready", &index);
        device_.push_change_event("FrameNumber", &number);
        return;
    }
    Tango::DevState state = item.state;
    std::string text = item.status, endText = item.end;
    Tango::DevString status = text.data(), end = endText.data();
    device_.set_status(item.status); // which is what Tango sends, whatever it is given
    device_.set_state(item.state);
    device_.push_change_event("Status", &status);
    device_.push_change_event("State", &state);
    device_.push_change_event("AcquisitionEnd", &end);
}

} // namespace vxcam
