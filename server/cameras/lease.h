// Who controls a camera.
#ifndef VXCAMD_LEASE_H
#define VXCAMD_LEASE_H

#include "cameras/event_log.h"

#include <chrono>
#include <mutex>
#include <string>

namespace vxcam {

// One client at a time may change things. Whoever holds the lease renews it by using it; it is free
// when it was given back, or not used for its time. While it is free, everybody may change things.
//
// Threads: any. Locks: its own.
class Lease
{
public:
    struct State {
        bool isHeld = false;
        std::string holder; // as it called itself
        std::string since;  // UTC
        std::chrono::milliseconds left{0};
    };

    Lease(EventLog& events, std::chrono::milliseconds time) : events_(events), time_(time) {}

    // Takes it for a client of that name, and returns the key for those who hold it. The one who
    // has the key already keeps it. Throws Refusal{423} when somebody else holds it, unless it is
    // to be taken over.
    std::string take(const std::string& holder, const std::string& key, bool fromOthers);
    void giveBack(const std::string& key); // throws Refusal{423} when that is not the key

    // Throws Refusal{423} when somebody else holds it, or nobody any more whose key that is; else
    // renews it.
    void require(const std::string& key);
    void renew(const std::string& key); // if that is the key

    // If that is the key: it is not freed by time alone, until it may be again.
    void keep(const std::string& key);
    void keepNoMore(const std::string& key);

    State state(); // that it has run out is told by then

private:
    bool isHeld() const;
    void dropIfUnused();
    [[noreturn]] void refuse() const;

    EventLog& events_;
    const std::chrono::milliseconds time_;
    mutable std::mutex mutex_;
    std::string key_, holder_, since_;
    std::chrono::steady_clock::time_point used_;
    bool isKept_ = false;
};

} // namespace vxcam

#endif
