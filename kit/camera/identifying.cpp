// Who a camera is: when it is opened, and whether it is the same when its connection was made anew.
#include "camera/camera_core.h"
#include "readout/host_clock.h"
#include "values/escapes.h"

#include "vxcamiface.h"

#include <algorithm>
#include <cstring>

namespace vxcam {

namespace {

constexpr int kUnknownSize = 65535;
constexpr int kMostLooks = 3; // at what changed, until two say the same

// Bytes of the hardware information, of cameras that lay it out like this.
constexpr unsigned char kFirstBeyondAscii = 0x80;
constexpr int kLongestCharacter = 4; // bytes, in UTF-8
constexpr size_t kSerialAt = 0, kNameAt = 4, kNameBytes = 32, kVersionAt = 36, kBitsAt = 40;

std::string utf8OfLatin(const std::string& bytes)
{
    std::string utf8;
    for (const char byte : bytes) {
        const auto code = static_cast<unsigned char>(byte);
        if (code >= kFirstBeyondAscii) utf8 += static_cast<char>(0xC0U | code >> 6U);
        utf8 += static_cast<char>(code < kFirstBeyondAscii ? code : 0x80U | (code & 0x3FU));
    }
    return utf8;
}

// In UTF-8, maybe cut within a character, or in Latin-1, most of it ASCII; what has control
// characters, or looks like neither, is no name.
std::string nameIn(const std::string& bytes)
{
    std::string name = bytes;
    const auto isBeyond = [](char byte) {
        return static_cast<unsigned char>(byte) >= kFirstBeyondAscii;
    };
    const bool mayBeCut = bytes.size() + 1 == kNameBytes;
    for (int i = 1; i < kLongestCharacter && mayBeCut && !isUtf8(name); ++i) {
        name.pop_back();
    }
    if (!isUtf8(name)) {
        const auto others = std::count_if(bytes.begin(), bytes.end(), isBeyond);
        if (2 * static_cast<size_t>(others) >= bytes.size()) return "";
        name = utf8OfLatin(bytes);
    }
    std::string shown = name;
    shown.erase(std::remove(shown.begin(), shown.end(), '\\'), shown.end());
    return escaped(shown) == shown ? name : "";
}

Identity identityOf(const TVXCameraHardware& hardware)
{
    const auto* const bytes = reinterpret_cast<const uint8_t*>(&hardware);
    const uint8_t* const nameEnd = std::find(bytes + kNameAt, bytes + kNameAt + kNameBytes, 0);
    if (nameEnd == bytes + kNameAt + kNameBytes) return {};
    const std::string name = nameIn(std::string(bytes + kNameAt, nameEnd));
    if (name.empty()) return {};
    uint32_t serial = 0, version = 0;
    uint16_t bits = 0;
    std::memcpy(&serial, bytes + kSerialAt, sizeof serial);
    std::memcpy(&version, bytes + kVersionAt, sizeof version);
    std::memcpy(&bits, bytes + kBitsAt, sizeof bits);
    return {name, std::to_string(serial),
            std::to_string(version >> 16U) + "." + std::to_string(version & 0xFFFFU), bits};
}

// None where the camera does not tell it.
Size sizeIn(const TVXCameraHardware& hardware)
{
    const auto isNone = [](int count) { return count == 0 || count == kUnknownSize; };
    if (isNone(hardware.Columns) || isNone(hardware.Rows)) return {};
    return {hardware.Columns, hardware.Rows};
}

std::string textOf(const Size& size)
{
    return std::to_string(size.columns) + " x " + std::to_string(size.rows) + " pixels";
}

std::string textOf(const Identity& identity)
{
    return identity.name.empty() ? "one that tells no name"
                                 : identity.name + " with serial number " + identity.serial;
}

// Of a name that is told again; the version of its program may be another one.
bool isSame(const Identity& one, const Identity& other)
{
    return one.name == other.name && one.serial == other.serial;
}

} // namespace

int CameraCore::askHardware(TVXCameraHardware* hardware)
{
    int size = sizeof *hardware;
    return VXGetCameraHardwareInfo(handle_, hardware, &size);
}

void CameraCore::identify()
{
    const Command command(*this);
    TVXCameraHardware hardware{};
    require(askHardware(&hardware), "hardware information");
    if (sizeIn(hardware) == Size()) {
        fail(ErrorKind::Camera, "the camera does not tell the size of its sensor");
    }
    sensors_.push_back(sizeIn(hardware));
    sensor_ = &sensors_.back();
    identities_.push_back(identityOf(hardware));
    identity_ = &identities_.back();
}

// Whether it is what it was, on a connection that was made anew. An answer may be damaged: what
// changes must be said twice.
void CameraCore::compare(TVXCameraHardware hardware)
{
    if (sensor() == Size()) return; // it is being opened
    const auto isAsBefore = [this](const TVXCameraHardware& told) {
        return sizeIn(told) == sensor() && isSame(identityOf(told), identity());
    };
    for (int looks = 0; looks < kMostLooks && !isAsBefore(hardware); ++looks) {
        if (sizeIn(hardware) == Size()) return; // it does not tell
        TVXCameraHardware again{};
        if (askHardware(&again) != eVXOk) return;
        const bool isSure =
            sizeIn(again) == sizeIn(hardware) && isSame(identityOf(again), identityOf(hardware));
        if (isSure) return takeChange(sizeIn(hardware), identityOf(hardware));
        hardware = again;
    }
}

// An area of the other sensor is no longer in force; one that the application set is restored
// later, if it fits.
void CameraCore::takeChange(const Size& size, const Identity& identity)
{
    Event event;
    event.kind = EventKind::CameraChanged;
    event.time = presentMoment();
    const Size before = sensor();
    if (size != before) {
        sensors_.push_back(size);
        sensor_ = &sensors_.back();
        event.text = "its sensor has " + textOf(size) + ", before " + textOf(before);
    }
    if (!isSame(identity, this->identity())) {
        event.text += (event.text.empty() ? "" : "; ") + std::string("it is ") + textOf(identity) +
                      ", before " + textOf(this->identity());
        identities_.push_back(identity);
        identity_ = &identities_.back();
    }
    flight_.note(FlightEntry::Kind::Note, event.text);
    events_.post(std::move(event)); // whoever hears it finds what it is now
    if (size == before) return;
    const auto isOfArea = [](const auto& undone) {
        return std::string(undone.first.property->name).rfind("area", 0) == 0;
    };
    undo_.erase(std::remove_if(undo_.begin(), undo_.end(), isOfArea), undo_.end());
    sendProperty(*this, findProperty("area"), Value());
}

} // namespace vxcam
