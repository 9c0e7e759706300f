// FITS files.
#ifndef FITS_H
#define FITS_H

#include "tsFrame.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

// What the header says beside the frame itself.
struct tsFitsFacts {
    std::chrono::milliseconds exposure{0};
    std::string instrument;
    int frames = 1; // asked for in the readout
    tsArea sensor;  // the whole of it
    std::optional<double> targetTemperature;
};

// A complete file with one image: 16-bit pixels as unsigned 16-bit integers, 32-bit ones as signed
// 32-bit integers, or unsigned ones where a value needs it. The first sensor row comes first.
// Throws tcFailure with eExitFile.
std::vector<char> MakeFits(const tsFrame& frame, const tsFitsFacts& facts);

// UTC with milliseconds, "2026-01-31T23:59:59.999".
std::string UtcText(std::chrono::system_clock::time_point time);

#endif
