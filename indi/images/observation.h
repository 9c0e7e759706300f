// What the rest of an observatory adds to the header of a frame.
#ifndef VXINDI_OBSERVATION_H
#define VXINDI_OBSERVATION_H

#include <vxcamkit/header.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

namespace vxcam {

// As the other devices told it last; NaN, or empty, what nobody told.
struct Observation {
    static constexpr double kUnknown = std::numeric_limits<double>::quiet_NaN();

    std::string observer, object, telescope, filter;
    const char* frame = "Light";                              // as INDI calls the frame's type
    bool isSky = true;                                        // a light frame
    double rightAscension = kUnknown, declination = kUnknown; // J2000, hours and degrees
    double latitude = kUnknown, longitude = kUnknown;         // degrees
    double focalLength = kUnknown, aperture = kUnknown;       // mm
    double pixelX = 0, pixelY = 0;                            // um; 0: unknown
    int binningX = 1, binningY = 1;
    double skyQuality = kUnknown, rotator = kUnknown; // mag/arcsec^2, degrees
    double focusPosition = kUnknown, focusTemperature = kUnknown;
    int pierSide = -1; // 0 west, 1 east
};

// Where an object stands over a site.
struct Horizontal {
    double azimuth = 0, altitude = 0; // degrees, from north to east
};

// Of coordinates of the date, hours and degrees, at a moment in seconds of Unix time.
Horizontal horizontalOf(double rightAscension, double declination, double latitude,
                        double longitude, double unixTime);

// How much air there is in between; NaN below the horizon.
double airmassOf(double altitude);

// Cards for what is known. Coordinates are those of the sky frames alone.
std::vector<HeaderCard> cardsOf(const Observation& observation, double unixTime);

} // namespace vxcam

#endif
