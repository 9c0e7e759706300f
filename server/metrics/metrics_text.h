// Figures for Prometheus.
#ifndef VXCAMD_METRICS_TEXT_H
#define VXCAMD_METRICS_TEXT_H

#include "cameras/shared_camera.h"
#include "metrics/meters.h"

#include <memory>
#include <string>
#include <vector>

namespace vxcam {

inline constexpr const char* kMetricsType = "text/plain; version=0.0.4; charset=utf-8";

// All of them, in Prometheus' text format. Asks no camera.
std::string metricsText(const std::vector<std::unique_ptr<SharedCamera>>& cameras,
                        const Meters& meters, const std::string& version);

} // namespace vxcam

#endif
