// The part of a frame that a watcher wants to see.
#ifndef VXCAMD_FRAME_PART_H
#define VXCAMD_FRAME_PART_H

#include <nlohmann/json.hpp>
#include <vxcamkit/frame.h>

#include <cstddef>
#include <optional>
#include <vector>

namespace vxcam {

// Each `step`-th pixel of each `step`-th row of an area, from its first one on. No figure is made
// of several pixels: those that are there are as the camera sent them.
struct FramePart {
    static constexpr int kMostStep = 64;

    Area area; // in pixels of the frame; empty: all
    int step = 1;

    // {"column": 0, "row": 0, "columns": 64, "rows": 64, "step": 2}; nothing where it makes no
    // sense.
    static std::optional<FramePart> of(const nlohmann::ordered_json& json);

    // Cut to a frame of that size, with its area; all of that where it lies beside it.
    FramePart within(Size frame) const;

    Size size() const; // of what comes out, when it is within a frame
    bool operator==(const FramePart& other) const
    {
        return area == other.area && step == other.step;
    }
};

nlohmann::ordered_json jsonOf(const FramePart& part); // with the size of what comes out

// Its pixels, row after row. The part must be within the frame.
void copyPart(const Frame& frame, const FramePart& part, std::vector<std::byte>* pixels);

} // namespace vxcam

#endif
