// What properties need of the camera that they belong to.
#ifndef VXCAMKIT_PROPERTY_ACCESS_H
#define VXCAMKIT_PROPERTY_ACCESS_H

#include <vxcamkit/area.h>
#include <vxcamkit/export.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace vxcam {

// What a heartbeat tells, in degrees Celsius.
struct Temperatures {
    double sensor = 0, board = 0;
};

// An open camera, as the table of properties sees it. Implemented by whatever holds the camera
// open.
//
// Threads: one at a time reads or writes properties through it; whoever implements it sees to that.
class VXCAMKIT_EXPORT Access
{
public:
    virtual ~Access();

    // Of the C interface.
    virtual int handle() const = 0;
    virtual Size sensor() const = 0;

    // Of the last heartbeat; nothing where none came, or none that still counts. Waits for the
    // first one, for at most 1.5 s from the opening of the camera.
    virtual std::optional<Temperatures> temperatures() = 0;

    // How many errors the camera has reported since it was opened.
    virtual uint64_t complaints() const = 0;

    // Throws Error{Camera} with the first of them behind so many, if there is one.
    virtual void throwComplaint(uint64_t before) const = 0;

    // Throws what a result of the C interface stands for, unless it is 0: Error{Timeout},
    // Error{LinkLost} or Error{Camera}, whose text begins with `what`.
    virtual void require(int result, const std::string& what) = 0;

    // Has the camera answer once: all that it reports about earlier commands has come then. Throws
    // as require() does.
    virtual void roundTrip() = 0;

private:
    friend class AreaMemory;
    std::array<int, 4> areaOfRegions_{};
};

} // namespace vxcam

#endif
