// What a camera tells unasked, and those who listen.
#ifndef VXCAMKIT_EVENT_H
#define VXCAMKIT_EVENT_H

#include <vxcamkit/export.h>
#include <vxcamkit/frame_times.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace vxcam {

enum class EventKind {
    Heartbeat,        // temperatures
    CameraError,      // code, subCode, text
    LinkLost,         // text: what the camera told last on the connection; often empty
    LinkRestored,     // the connection was made anew, and the camera answers on it
    SettingsRestored, // after that, see Restore; text: what could not be restored, empty if all was
    RestoreAsked,     // likewise, where Restore::Ask leaves it to Camera::restore()
    ReadoutEnded,     // readout, text: how ("complete", "timed out", ...)
    Message,          // code: the id of a message of the camera's own (0xC0 and above), bytes
    CameraChanged     // after LinkRestored: it has another sensor, or is another one; text: how
};

// "heartbeat", "camera-error", "link-lost", "link-restored", "settings-restored", "restore-asked",
// "readout-ended", "message", "camera-changed"
VXCAMKIT_EXPORT const char* nameOf(EventKind kind);

struct Event {
    EventKind kind = EventKind::Heartbeat;
    Moment time;
    double sensorTemperature = 0, boardTemperature = 0; // degrees Celsius
    int code = 0, subCode = 0;
    uint32_t readout = 0; // of the camera, from 1; of a camera error, the one that ran, else 0
    std::string text;
    std::vector<uint8_t> bytes;
};

using EventHandler = std::function<void(const Event&)>;

// Listens as long as it lives. Ends with its destructor: behind that the handler does not run and
// will not run again, unless that happens in the handler itself. It may outlive the camera.
class VXCAMKIT_EXPORT Subscription
{
public:
    Subscription();
    ~Subscription();
    Subscription(Subscription&& other) noexcept;
    Subscription& operator=(Subscription&& other) noexcept;

    void end();

private:
    friend class EventQueue;
    struct Listener;
    explicit Subscription(std::shared_ptr<Listener> listener);

    std::shared_ptr<Listener> listener_;
};

} // namespace vxcam

#endif
