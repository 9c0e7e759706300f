// Cooling a sensor, and warming it up again, slowly.
#ifndef VXCAMKIT_COOLER_H
#define VXCAMKIT_COOLER_H

#include <vxcamkit/export.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace vxcam {

// Times are the camera's: those of a simulated camera that runs faster go by faster.
struct Cooling {
    double target = 0;      // degrees Celsius, in steps of 0.1
    double ramp = 0;        // degrees a minute that the set point moves; 0: at once
    double tolerance = 0.5; // degrees from the target that are near enough ...
    std::chrono::milliseconds settle{10000};    // ... for so long: settled
    std::chrono::milliseconds patience{120000}; // without coming nearer: out of reach
};

struct Warming {
    double target = 20; // degrees Celsius; a sensor that gets no warmer is warm as well
    double ramp = 0;    // degrees a minute; 0: cooling is switched off at once
    std::chrono::milliseconds patience{120000};
};

enum class CoolingPhase {
    Idle,      // nobody asked for anything
    Ramping,   // the set point is on its way
    Settling,  // it is there, the sensor is not, or not for long enough
    Settled,   // the sensor is there; it is still watched, and may have to settle again
    WarmingUp, // on the way up
    Warm,      // cooling is off
    Failed     // see text
};

// "idle", "ramping", "settling", "settled", "warming-up", "warm", "failed"
VXCAMKIT_EXPORT const char* nameOf(CoolingPhase phase);

struct CoolingState {
    CoolingPhase phase = CoolingPhase::Idle;
    std::optional<double> temperature; // of the sensor, degrees Celsius; nothing while none is told
    double setPoint = 0, target = 0;   // degrees Celsius
    double done = 0;                   // of the way, 0 to 1
    std::string text; // for people: "-12.3 C, set to -14.0 C, target -20.0 C", or why it failed

    bool isOver() const // there, or failed
    {
        return phase == CoolingPhase::Settled || phase == CoolingPhase::Warm ||
               phase == CoolingPhase::Failed;
    }
};

class CameraCore;

// The cooler of one camera; see Camera::cooler().
//
// Threads: any. It works on a thread of its own as long as there is something to do.
class VXCAMKIT_EXPORT Cooler
{
public:
    explicit Cooler(CameraCore& camera);
    ~Cooler();
    Cooler(const Cooler&) = delete;
    Cooler& operator=(const Cooler&) = delete;

    // Starts, and returns; what was under way before ends. Throws Error{Usage} for values that are
    // impossible, and what Camera::set() throws.
    void cool(const Cooling& cooling);
    void warmUp(const Warming& warming = {});
    // Leaves everything as it is, and no longer watches.
    void stop();

    // Has Camera::close(), and the end of the last Camera, warm the sensor up first where cooling
    // is on, and wait for that: no longer than `most`, by the clock of this host, and not where the
    // camera cannot be told, or stop() is called meanwhile. `progress` is called by the thread that
    // closes, several times a second, and last with how it ended; what it throws changes nothing.
    // Nothing takes it back. Throws Error{Usage} as warmUp().
    using Progress = std::function<void(const CoolingState&)>;
    void warmUpBeforeClose(const std::optional<Warming>& warming,
                           std::chrono::milliseconds most = std::chrono::minutes(30),
                           Progress progress = {});

    CoolingState state() const;

    // Waits until it is settled, warm or failed; nothing when `most` is over before. Throws
    // Error{Aborted} when the camera is closed or stop() is called meanwhile.
    std::optional<CoolingState> wait(std::chrono::milliseconds most) const;

private:
    friend class CameraCore;
    void warmUpFirst() noexcept; // before the camera is closed
    void close();

    struct Work;
    std::unique_ptr<Work> work_;
};

} // namespace vxcam

#endif
