// The part of the sensor that is read: one area, or several regions. The library remembers an area;
// when regions are set or asked for, that becomes something made from them, or nothing. So it is
// put back here where the camera has no regions, and not told where it has.
#ifndef VXCAMKIT_AREA_MEMORY_H
#define VXCAMKIT_AREA_MEMORY_H

#include "values/field_values.h"

#include <vxcamkit/property_access.h>

namespace vxcam {

inline constexpr int kMostRegions = 16;

std::vector<Field> areaFields();

// For the table's rows.
int readArea(Access& access, uint32_t key, FieldValues* values);
int writeArea(Access& access, uint32_t key, const FieldValues& values);
int readRegions(Access& access, uint32_t key, FieldValues* values);
int writeRegions(Access& access, uint32_t key, const FieldValues& values);
std::string checkRegions(Access& access, const FieldValues& values);

} // namespace vxcam

#endif
