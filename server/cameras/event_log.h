// What happened to a camera, for those who follow it.
#ifndef VXCAMD_EVENT_LOG_H
#define VXCAMD_EVENT_LOG_H

#include <nlohmann/json.hpp>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

namespace vxcam {

using Json = nlohmann::ordered_json;

// JSON on a line; what is no UTF-8 in it is replaced.
std::string textOf(const Json& json);

struct LoggedEvent {
    uint64_t id = 0; // from 1
    std::string kind;
    std::string text; // a JSON object on a line, with "id", "utc" and "event"
};

// Threads: any. Locks: its own, never held while calling out.
class EventLog
{
public:
    static constexpr size_t kMost = 1000; // that are remembered

    void post(const std::string& kind, Json facts = Json::object());
    // Those behind `id`; waits for one, for at most so long. Nothing at the end.
    std::vector<LoggedEvent> after(uint64_t id, std::chrono::milliseconds most) const;
    uint64_t last() const;
    void end(); // nobody waits any more

private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::deque<LoggedEvent> events_;
    uint64_t last_ = 0;
    bool isEnding_ = false;
};

} // namespace vxcam

#endif
