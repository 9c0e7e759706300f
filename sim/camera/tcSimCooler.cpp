#include "tcSimCooler.h"

#include <algorithm>
#include <cmath>

tcSimCooler::tcSimCooler(double ambient)
    : mnAmbient(ambient), mnTarget(ambient), mnStartTemperature(ambient)
{}

double tcSimCooler::Goal() const
{
    if (!mbCooling || mbFailed) return mnAmbient;
    const double reach = mbFan ? gnSimCoolingReach : gnSimCoolingFanless;
    return std::max(mnTarget, mnAmbient - reach);
}

double tcSimCooler::Temperature(double now) const
{
    const double goal = Goal();
    return goal + (mnStartTemperature - goal) * std::exp((mnStartTime - now) / gnSimCoolingTime);
}

// The pumped heat warms the board.
double tcSimCooler::BoardTemperature(double now) const
{
    const double own = mbFan ? 5.0 : 12.0;
    return mnAmbient + own + 0.05 * (mnAmbient - Temperature(now));
}

void tcSimCooler::StartFrom(double now)
{
    mnStartTemperature = Temperature(now);
    mnStartTime = now;
}

void tcSimCooler::SetAmbient(double celsius, double now)
{
    if (celsius == mnAmbient) return;
    StartFrom(now);
    mnAmbient = celsius;
}

void tcSimCooler::SetCooling(bool on, double now)
{
    StartFrom(now);
    mbCooling = on;
}

void tcSimCooler::SetFan(bool on, double now)
{
    StartFrom(now);
    mbFan = on;
}

void tcSimCooler::Fail(double now)
{
    StartFrom(now);
    mbFailed = true;
}

void tcSimCooler::Repair(double now)
{
    StartFrom(now);
    mbFailed = false;
}

void tcSimCooler::SetTarget(double celsius, double now)
{
    StartFrom(now);
    mnTarget = celsius;
}
