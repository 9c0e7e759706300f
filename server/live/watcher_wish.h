// What a watcher asks for.
#ifndef VXCAMD_WATCHER_WISH_H
#define VXCAMD_WATCHER_WISH_H

#include "live/frame_part.h"

#include <cstdint>
#include <optional>
#include <string>

namespace vxcam {

// {"rate": 5}, {"more": 1}, {"part": {...}}, {"beat": 0.25}, or several of them together.
struct WatcherWish {
    static constexpr double kMostRate = 1000;
    static constexpr int64_t kMostMore = 1000;
    static constexpr double kLeastBeat = 0.1, kMostBeat = 60; // s

    std::optional<double> rate;  // frames a second at most; 0: as they come
    std::optional<int64_t> more; // frames
    std::optional<FramePart> part;
    std::optional<double> beat; // seconds without a word at most; 0: any

    // Of a message. Throws Error{Usage} for one that says anything else, or nothing.
    static WatcherWish of(const std::string& text);
};

} // namespace vxcam

#endif
