// What a frame knows, as JSON.
#ifndef VXCAMD_FRAME_JSON_H
#define VXCAMD_FRAME_JSON_H

#include "cameras/event_log.h"

#include <vxcamkit/frame.h>

namespace vxcam {

// Everything but the settings. "sum" is that of all pixels.
Json frameJson(const Frame& frame);

} // namespace vxcam

#endif
