// The cooler: how warm the sensor and the electronics are.
#ifndef TCSIMCOOLER_H
#define TCSIMCOOLER_H

inline constexpr double gnSimCoolingTime = 10.0;    // seconds in which a difference falls to 1/e
inline constexpr double gnSimCoolingReach = 60.0;   // degrees below ambient with the fan on ...
inline constexpr double gnSimCoolingFanless = 30.0; // ... and with it off

// Temperatures in degrees Celsius, times in seconds; no clock of its own.
// Threads: one.
class tcSimCooler
{
public:
    explicit tcSimCooler(double ambient);

    void SetAmbient(double celsius, double now);
    void SetCooling(bool on, double now);
    void SetFan(bool on, double now);
    // From now on it does not cool, whatever is asked for and told.
    void Fail(double now);
    void Repair(double now);
    // A target that cannot be reached is approached as far as it goes.
    void SetTarget(double celsius, double now);

    double Ambient() const { return mnAmbient; }
    bool Cooling() const { return mbCooling; }
    double Target() const { return mnTarget; }

    double Temperature(double now) const;
    double BoardTemperature(double now) const;

private:
    double Goal() const;
    void StartFrom(double now);

    double mnAmbient, mnTarget;
    bool mbCooling = false, mbFan = true, mbFailed = false;
    double mnStartTime = 0, mnStartTemperature;
};

#endif
