// How long a camera takes to answer.
#ifndef TRIPS_H
#define TRIPS_H

#include <vxcamkit/camera.h>

#include <vector>

// Each trip: the exposure time is asked for, and the answer has come. In milliseconds, sorted.
// Throws vxcam::Error when the camera does not answer, and tcFailure after a signal.
std::vector<double> MeasureTrips(vxcam::Camera& camera, int count);

// Of sorted figures.
double Percentile(const std::vector<double>& sorted, unsigned percent);

#endif
