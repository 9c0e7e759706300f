#include "cameras/event_log.h"

#include "cameras/time_text.h"

#include <algorithm>
#include <array>
#include <utility>

namespace vxcam {

namespace {

constexpr std::array<const char*, 4> kWork{"exposure", "frame", "readout-ended", "sequence"};

bool isSooner(const LoggedEvent& one, const LoggedEvent& other)
{
    return one.id < other.id;
}

} // namespace

std::string textOf(const Json& json)
{
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

void EventLog::Sort::add(LoggedEvent event)
{
    events.push_back(std::move(event));
    if (events.size() <= most) return;
    forgotten = events.front().id;
    events.pop_front();
}

void EventLog::Sort::copyAfter(uint64_t id, std::vector<LoggedEvent>* list) const
{
    if (name != nullptr && forgotten > id) {
        const Json event{
            {"id", forgotten},
            {"utc", presentText()},
            {"event", "forgotten"},
            {"oldest", events.front().id},
            {"text", "earlier events of " + std::string(name) + " are not kept any more"}};
        list->push_back({forgotten, "forgotten", textOf(event)});
    }
    const auto first =
        std::upper_bound(events.begin(), events.end(), LoggedEvent{id, "", ""}, isSooner);
    list->insert(list->end(), first, events.end());
}

EventLog::Sort& EventLog::sortOf(const std::string& kind)
{
    if (kind == "heartbeat") return heartbeats_;
    return std::find(kWork.begin(), kWork.end(), kind) != kWork.end() ? work_ : others_;
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
        sortOf(kind).add({last_, kind, textOf(event)});
    }
    changed_.notify_all();
}

std::vector<LoggedEvent> EventLog::after(uint64_t id, std::chrono::milliseconds most) const
{
    std::unique_lock<std::mutex> guard(mutex_);
    changed_.wait_for(guard, most, [&] { return isEnding_ || last_ > id; });
    std::vector<LoggedEvent> events;
    for (const Sort* const sort : {&heartbeats_, &work_, &others_}) {
        sort->copyAfter(id, &events);
    }
    std::sort(events.begin(), events.end(), isSooner);
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
