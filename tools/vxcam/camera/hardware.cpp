#include "hardware.h"

#include "tcSession.h"
#include "vxcamiface.h"

#include <algorithm>
#include <cctype>
#include <cstring>

namespace {

// Bytes of the hardware information.
constexpr size_t gnSerialAt = 0, gnNameAt = 4, gnNameBytes = 32, gnVersionAt = 36, gnBitsAt = 40;

} // namespace

tsIdentity ReadIdentity(tcSession& session)
{
    TVXCameraHardware hardware{};
    int size = sizeof hardware;
    session.Require(VXGetCameraHardwareInfo(session.Handle(), &hardware, &size),
                    "hardware information");
    tsIdentity identity;
    const uint8_t* const bytes = hardware.Reserved0;
    const uint8_t* const nameEnd = std::find(bytes + gnNameAt, bytes + gnNameAt + gnNameBytes, 0);
    identity.name.assign(bytes + gnNameAt, nameEnd);
    std::memcpy(&identity.serial, bytes + gnSerialAt, sizeof identity.serial);
    std::memcpy(&identity.version, bytes + gnVersionAt, sizeof identity.version);
    std::memcpy(&identity.bits, bytes + gnBitsAt, sizeof identity.bits);
    identity.isKnown = !identity.name.empty() && identity.name.size() < gnNameBytes &&
                       std::all_of(identity.name.begin(), identity.name.end(),
                                   [](unsigned char c) { return std::isprint(c) != 0; });
    return identity;
}

std::string VersionText(uint32_t version)
{
    return std::to_string(version >> 16) + "." + std::to_string(version & 0xFFFF);
}
