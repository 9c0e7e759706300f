// The sensor: what light falls on it and what its pixels read.
#ifndef TCSIMSENSOR_H
#define TCSIMSENSOR_H

#include "tcSimStarShape.h"

#include <array>
#include <cstdint>
#include <vector>

inline constexpr uint32_t gnSimLargestSide = 16384;         // rows or columns of a sensor
inline constexpr uint32_t gnSimLargestSensor = 1u << 27;    // pixels
inline constexpr double gnSimReadNoise = 6.0;               // electrons, rms
inline constexpr double gnSimDarkCurrent = 20.0;            // electrons a pixel and second ...
inline constexpr double gnSimDarkCurrentTemperature = 20.0; // ... at this temperature in Celsius
inline constexpr double gnSimDarkCurrentDoubling = 6.0;     // degrees that double it
inline constexpr double gnSimSky = 50.0;                    // electrons a pixel and second
inline constexpr int32_t gnSimUsualStars = -1;              // as many as belong to the size
inline constexpr int32_t gnSimMostStars = 1000000;
inline constexpr uint16_t gnSimOffset = 1000; // counts of a pixel without charge
inline constexpr uint32_t gnSimPatterns = 6;  // the highest test pattern mode
inline constexpr uint32_t gnSimPatternValues = 31;

// Electrons a pixel gathers in the dark, per second.
double SimDarkCurrent(double celsius);

// How one frame is taken.
struct tsSimConditions {
    double exposure = 0;       // seconds
    double temperature = 20.0; // degrees Celsius
    double gain = 1.0;         // counts per electron
    uint16_t offset = gnSimOffset;
    bool shutterOpen = true;
    bool hotPixels = true;
    double readNoise = gnSimReadNoise;
    double sky = gnSimSky;
    int32_t stars = gnSimUsualStars;
    bool mirrorHorizontal = false;
    bool mirrorVertical = false;
    uint32_t pattern = 0; // test pattern instead of the picture; 0: none
    std::array<uint16_t, gnSimPatternValues + 1> patternValues{};
    uint64_t noiseKey = 0; // frames with the same key have the same noise
    tsSimOptics optics;    // what Look is to be told before
};

// Threads: any, but Look excludes all else.
// Owns: the scene (4 bytes a pixel; twice as many after the first Look).
class tcSimSensor
{
public:
    // Sides of 1 to gnSimLargestSide. Takes in the order of 0.1 s for four million pixels.
    tcSimSensor(uint32_t rows, uint32_t columns, uint64_t seed, int32_t stars = gnSimUsualStars);

    uint32_t Rows() const { return mnRows; }
    uint32_t Columns() const { return mnColumns; }
    int32_t Stars() const { return mnStars; } // as the constructor was told

    // The stars as they are seen from now on; with the optics it has, it does nothing. Takes some
    // ms for a thousand stars, more where they are spread far.
    void Look(const tsSimOptics& optics);

    // `count` pixels of a row of the picture from a column on, in counts. Row and columns are those
    // of the picture, that is after mirroring, and inside the sensor.
    void ReadRow(const tsSimConditions& conditions, uint32_t row, uint32_t firstColumn,
                 uint32_t count, uint16_t* pixels) const;

private:
    struct tsHotPixel {
        uint32_t column;
        float factor; // times the dark current
    };

    struct tsStar {
        double row, column, flux, width;
    };
    struct tsPatch {
        int64_t top, bottom, left, right;
    };

    void FindStars(uint64_t seed);
    void AddNebula(uint64_t seed);
    void Draw();
    void AddStar(double row, double column, double flux, double width);
    void AddTrail(const tsStar& star, const tcSimStarShape& shape);
    void AddImage(double row, double column, double flux, const tcSimStarShape& shape);
    tsPatch Around(double row, double column, double reach) const;
    void SpreadHotPixels(uint64_t seed);
    void Expose(const tsSimConditions& conditions, uint32_t row, uint32_t firstColumn,
                uint32_t count, uint16_t* pixels) const;

    uint32_t mnRows, mnColumns;
    int32_t mnStars;
    uint64_t mnSeed;
    tsSimOptics mtOptics;
    std::vector<tsStar> maStars;
    std::vector<float> maScene;  // electrons a second, row by row
    std::vector<float> maNebula; // the scene without stars, from the first Look on
    bool mbNebulaKept = false;
    std::vector<float> maNoise;          // normal deviates
    std::vector<tsHotPixel> maHotPixels; // by row, then by column
    std::vector<uint32_t> maHotRows;     // where a row's begin in maHotPixels; one more than rows
};

#endif
