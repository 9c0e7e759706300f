// Rectangles of pixels.
#ifndef VXCAMKIT_AREA_H
#define VXCAMKIT_AREA_H

namespace vxcam {

struct Size {
    int columns = 0, rows = 0;

    bool operator==(const Size& other) const
    {
        return columns == other.columns && rows == other.rows;
    }
    bool operator!=(const Size& other) const { return !(*this == other); }
};

// Part of the sensor, in sensor pixels.
struct Area {
    int column = 0, row = 0; // of its first pixel, from 0
    int columns = 0, rows = 0;

    Size size() const { return {columns, rows}; }
    bool empty() const { return columns < 1 || rows < 1; }
    // Not empty, and no pixel of it lies outside a sensor of that size.
    bool fits(const Size& sensor) const
    {
        return !empty() && column >= 0 && row >= 0 && columns <= sensor.columns - column &&
               rows <= sensor.rows - row;
    }
    bool operator==(const Area& other) const
    {
        return column == other.column && row == other.row && size() == other.size();
    }
    bool operator!=(const Area& other) const { return !(*this == other); }
};

} // namespace vxcam

#endif
