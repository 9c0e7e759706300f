// What the tests of streams share.
#ifndef STREAM_SUPPORT_H
#define STREAM_SUPPORT_H

#include "kit_support.h"

using namespace vxcam;

class Streams : public KitCamera
{
protected:
    // Takes frames until the end or a failure.
    static std::vector<Frame> all(Stream& stream)
    {
        std::vector<Frame> frames;
        while (std::optional<Frame> frame = stream.next(kPatience)) {
            frames.push_back(std::move(*frame));
        }
        return frames;
    }
};

#endif
