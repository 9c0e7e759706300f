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

// Events of one sort push out none of another: heartbeats are one; what exposures, frames and
// sequences come to another; all else, as lost links and errors, the third.
//
// Threads: any. Locks: its own, never held while calling out.
class EventLog
{
public:
    static constexpr size_t kMost = 1000; // of a sort that are remembered
    static constexpr size_t kMostHeartbeats = 10;

    void post(const std::string& kind, Json facts = Json::object());
    // Those behind `id`; waits for one, for at most so long. Nothing at the end. Where some of a
    // sort are not remembered any more, "forgotten" stands in their place, with the id of the last
    // of them; not so for heartbeats.
    std::vector<LoggedEvent> after(uint64_t id, std::chrono::milliseconds most) const;
    uint64_t last() const;
    void end(); // nobody waits any more

private:
    struct Sort {
        const char* name; // null: what was forgotten is not told
        size_t most;
        std::deque<LoggedEvent> events = {};
        uint64_t forgotten = 0; // the last one that is not remembered

        void add(LoggedEvent event);
        void copyAfter(uint64_t id, std::vector<LoggedEvent>* list) const;
    };
    Sort& sortOf(const std::string& kind);

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    Sort heartbeats_{nullptr, kMostHeartbeats};
    Sort work_{"exposures, frames and sequences", kMost};
    Sort others_{"links, settings, leases and errors", kMost};
    uint64_t last_ = 0;
    bool isEnding_ = false;
};

} // namespace vxcam

#endif
