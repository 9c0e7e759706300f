// The members of the camera interface, in one table.
#ifndef VXCAMD_ALPACA_MEMBERS_H
#define VXCAMD_ALPACA_MEMBERS_H

#include "alpaca/alpaca_camera.h"
#include "alpaca/alpaca_form.h"

#include <functional>
#include <string>
#include <vector>

namespace vxcam {

// What a PUT does, when its parameters have been read: its Value, or nothing.
using AlpacaAction = std::function<Json()>;

// Null where there is no such verb.
struct AlpacaMember {
    const char* name;
    Json (*get)(AlpacaCamera& camera) = nullptr;
    AlpacaAction (*put)(AlpacaCamera& camera, const AlpacaForm& form) = nullptr;
    bool needsConnection = true;
    int since = 3;             // interface version
    bool needsControl = false; // its PUT
    bool outlivesLink = false; // tells of an exposure, also while the camera cannot be reached
};

// Image arrays are not among them.
const std::vector<AlpacaMember>& alpacaMembers();

// Those of the camera alone; the others are common to all devices.
std::vector<AlpacaMember> alpacaCameraMembers();

// Value of a member that this camera has not.
[[noreturn]] void refuseMember(const char* what);

} // namespace vxcam

#endif
