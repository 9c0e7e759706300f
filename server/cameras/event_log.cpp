#include "cameras/event_log.h"

#include "cameras/time_text.h"

#include <utility>

namespace vxcam {

std::string textOf(const Json& json)
{
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

void EventLog::post(const std::string& kind, Json facts)
{
    Json event;
    {
        std::lock_guard<std::mutex> guard(mutex_);
        event["id"] = ++last_;
        event["utc"] = presentText();
        event["event"] = kind;
        event.update(facts);
        events_.push_back({last_, kind, textOf(event)});
        if (events_.size() > kMost) events_.pop_front();
    }
    changed_.notify_all();
}

std::vector<LoggedEvent> EventLog::after(uint64_t id, std::chrono::milliseconds most) const
{
    std::unique_lock<std::mutex> guard(mutex_);
    changed_.wait_for(guard, most, [&] { return isEnding_ || last_ > id; });
    std::vector<LoggedEvent> events;
    for (const LoggedEvent& event : events_) {
        if (event.id > id) events.push_back(event);
    }
    return events;
}

uint64_t EventLog::last() const
{
    std::lock_guard<std::mutex> guard(mutex_);
    return last_;
}

void EventLog::end()
{
    {
        std::lock_guard<std::mutex> guard(mutex_);
        isEnding_ = true;
    }
    changed_.notify_all();
}

} // namespace vxcam
