// What to tell a cooler from moment to moment, and how far it has come. Knows no camera and no
// clock.
#ifndef VXCAMKIT_RAMP_H
#define VXCAMKIT_RAMP_H

#include <vxcamkit/cooler.h>

#include <chrono>
#include <optional>

namespace vxcam {

// Threads: one.
class Ramp
{
public:
    using Time = std::chrono::duration<double>; // of the camera's clock, from any beginning

    // Silence that is shorter than the second is never too long, whatever the patience.
    explicit Ramp(const Cooling& cooling, Time silence = Time(0));
    explicit Ramp(const Warming& warming, Time silence = Time(0));

    // What the camera is to be told now.
    struct Orders {
        std::optional<double> setPoint; // degrees Celsius
        std::optional<bool> cooling;
    };
    // The set point moves whenever it is called; the sensor is judged by what it tells anew.
    Orders step(Time now, std::optional<double> temperature, bool isNew = true);

    // The orders could not be given, and never will.
    void fail(const std::string& text);

    const CoolingState& state() const { return state_; }
    bool isWatching() const; // whether step() is still to be called

private:
    Orders begin(Time now, double temperature);
    Orders move(Time now);
    void passOver(Time silence);
    void noteProgress(Time now, double temperature);
    void judge(Time now, double temperature);
    void judgeWarm(Orders* orders, Time now, double temperature);
    bool isStuck(Time now, double temperature);
    void describe();

    const bool isWarming_;
    const double rampRate_; // degrees a second; 0: at once
    const double tolerance_;
    const Time settle_, patience_, silence_;
    CoolingState state_;
    std::optional<Time> began_, silentSince_;
    double from_ = 0;            // temperature at the beginning
    std::optional<Time> within_; // since when
    double best_ = 0;            // nearest to the target so far
    Time bestTime_{0};
    int lookedSince_ = 0; // temperatures told since then
};

} // namespace vxcam

#endif
