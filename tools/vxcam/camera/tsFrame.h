// One frame, as it was copied out of the library's image buffer.
#ifndef TSFRAME_H
#define TSFRAME_H

#include "arguments.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

struct tsFrame {
    int index = 0;      // within the readout, from 1
    int bits = 16;      // 16: pixels16 holds it, 32: pixels32
    tsArea area;        // place in the image buffer and size in pixels of the frame
    tsArea sensorArea;  // part of the sensor that it shows
    bool isGrid = true; // pixels stand for a grid of sensor pixels, not for bins of a mask
    int imageType = 0;  // the camera's code
    uint16_t statistic = 0;
    uint64_t packets = 0, packetsMissing = 0; // that the frame has, and that did not come
    uint32_t framesDelivered = 0;             // since the camera was opened
    std::chrono::system_clock::time_point start, arrival;
    std::optional<double> temperature; // of the sensor, degrees Celsius, at arrival
    std::vector<uint16_t> pixels16;
    std::vector<uint32_t> pixels32;

    size_t Pixels() const { return static_cast<size_t>(area.columns) * area.rows; }
    uint32_t Pixel(size_t i) const { return bits == 16 ? pixels16[i] : pixels32[i]; }
};

struct tsFrameFigures {
    uint64_t sum = 0;
    uint32_t minimum = 0, maximum = 0;
    double mean = 0;
};

tsFrameFigures Figures(const tsFrame& frame);

#endif
