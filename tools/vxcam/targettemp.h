// The temperature that a camera cools its sensor to. It keeps tenths of a degree; a float as near
// to them as can be may lie a little below, and would lose a tenth on the way.
#ifndef TARGETTEMP_H
#define TARGETTEMP_H

// Degrees Celsius, rounded to tenths. As the functions of the C interface.
int SetTargetTemperature(int handle, double degrees);
int GetTargetTemperature(int handle, double* degrees);

// The tenths that a camera is told.
double TenthsOf(double degrees);

#endif
