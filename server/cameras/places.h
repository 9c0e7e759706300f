// How many requests of a camera are under way.
#ifndef VXCAMD_PLACES_H
#define VXCAMD_PLACES_H

#include "http/http_message.h"

#include <atomic>
#include <memory>
#include <string>

namespace vxcam {

// A camera that hangs holds up whoever asks it something, for seconds: no more than these, so that
// the rest of the server goes on. Some of the places are for changes alone, an abort among them.
//
// Threads: any.
class Places
{
public:
    static constexpr int kMost = 24, kMostReading = 16;

    // Until what it returns is gone. Throws Refusal{503} when all are taken.
    std::shared_ptr<void> take(bool isChange)
    {
        const int most = isChange ? kMost : kMostReading;
        std::shared_ptr<void> place(nullptr, [this](void*) { --taken_; });
        if (++taken_ <= most) return place;
        throw Refusal(503, "crowded",
                      std::to_string(most) + " requests wait for this camera already",
                      {{"Retry-After", "2"}});
    }

private:
    std::atomic<int> taken_{0};
};

} // namespace vxcam

#endif
