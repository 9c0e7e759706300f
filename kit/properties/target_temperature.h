// The temperature that a camera cools its sensor to. It keeps tenths of a degree; a float as near
// to them as can be may lie a little below, and would lose a tenth on the way.
#ifndef VXCAMKIT_TARGET_TEMPERATURE_H
#define VXCAMKIT_TARGET_TEMPERATURE_H

namespace vxcam {

// Degrees Celsius, rounded to tenths. As the functions of the C interface.
int setTargetTemperature(int handle, double degrees);
int getTargetTemperature(int handle, double* degrees);

} // namespace vxcam

#endif
