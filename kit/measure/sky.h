// What of a frame is no star: the level of its background and the noise in it.
#ifndef VXCAMKIT_SKY_H
#define VXCAMKIT_SKY_H

#include <vxcamkit/frame.h>

#include <vector>

namespace vxcam {

// A frame without its background.
struct SkyFree {
    int rows = 0, columns = 0;
    std::vector<float> pixels;   // above the background; 0 in rows that did not come
    std::vector<bool> isMissing; // rows
    double level = 0, noise = 0; // of the background: medians over its tiles

    float at(int row, int column) const
    {
        return pixels[static_cast<size_t>(row) * static_cast<size_t>(columns) +
                      static_cast<size_t>(column)];
    }
};

// The background is the median of tiles of about that side, interpolated between their middles.
SkyFree withoutSky(const Frame& frame, int mesh);

} // namespace vxcam

#endif
