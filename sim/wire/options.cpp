#include "options.h"

#include "tcSimSensor.h"
#include "tcSimStarShape.h"

#include <asio/ip/address_v4.hpp>

#include <cmath>
#include <stdexcept>
#include <string>
#include <system_error>

namespace {

void Demand(bool condition, const std::string& text)
{
    if (!condition) throw std::runtime_error(text);
}

} // namespace

tsSimOptions CheckedOptions(tsSimOptions options)
{
    const uint64_t pixels = uint64_t{options.columns} * options.rows;
    Demand(options.columns >= 1 && options.columns <= gnSimLargestSide && options.rows >= 1 &&
               options.rows <= gnSimLargestSide,
           "sensor sides must be 1 to " + std::to_string(gnSimLargestSide));
    Demand(pixels <= gnSimLargestSensor,
           "the sensor may have at most " + std::to_string(gnSimLargestSensor) + " pixels");
    Demand(options.timeScale >= 0.001 && options.timeScale <= 1e6,
           "time scale must be 0.001 to 1000000");
    Demand(options.lineRate >= 0 && options.lineRate <= 1e9, "line rate must be 0 to 1000000000");
    Demand(options.heartbeatSeconds == 0 ||
               (options.heartbeatSeconds >= 0.001 && options.heartbeatSeconds <= 86400),
           "time between heartbeats must be 0 or 0.001 to 86400 seconds");
    Demand(options.ambient >= -100 && options.ambient <= 100,
           "ambient temperature must be -100 to 100 degrees");
    Demand(std::abs(options.defocus) <= gnSimMostDefocus, "defocus must be -50 to 50 pixels");
    Demand(options.seeing >= 0 && options.seeing <= gnSimMostSeeing,
           "seeing must be 0 to 50 pixels");
    Demand(std::abs(options.driftRows) <= gnSimFastestDrift &&
               std::abs(options.driftColumns) <= gnSimFastestDrift,
           "the stars drift at most 100 pixels a second");
    std::error_code error;
    asio::ip::make_address_v4(options.bind, error);
    Demand(!error, "'" + options.bind + "' is no IPv4 address to listen on");
    return options;
}
