#include "tunables.h"

#include "tcDbgItem.h"
#include "tcSimSensor.h"

#include <algorithm>
#include <chrono>
#include <cmath>

namespace {

constexpr std::chrono::milliseconds gtGuardStep{20};
constexpr float gnMostLight = 100000.0f; // electrons a second
constexpr float gnMostNoise = 10000.0f;
constexpr float gnShortestHeartBeat = 0.001f;

} // namespace

tcTunables::tsReal tcTunables::AddReal(const char* name, double value, float least, float most,
                                       const char* meaning)
{
    return {name, least, most, tcDbgItem::AddItem(name, static_cast<float>(value), meaning)};
}

tcTunables::tsWhole tcTunables::AddWhole(const char* name, int value, int least, int most,
                                         const char* meaning)
{
    return {name, least, most, tcDbgItem::AddItem(name, value, meaning)};
}

// Items change in one piece at any time.
float tcTunables::Read(const tsReal& item)
{
    float value = 0;
    __atomic_load(item.value, &value, __ATOMIC_RELAXED);
    return std::isnan(value) ? item.least : std::clamp(value, item.least, item.most);
}

int tcTunables::Read(const tsWhole& item)
{
    return std::clamp(__atomic_load_n(item.value, __ATOMIC_RELAXED), item.least, item.most);
}

tcTunables::tcTunables(const tsSimOptions& options)
    : mtAmbient(AddReal("ambient", options.ambient, -100, 100, "degrees Celsius, -100 to 100")),
      mtHeartBeat(AddReal("heartbeat", options.heartbeatSeconds, 0, 86400,
                          "seconds between heartbeats, to 86400; 0: none")),
      mtLineRate(AddReal("line_rate", options.lineRate, 0, 1e9f,
                         "packets a second, to 1000000000; 0: as the connection takes them")),
      mtReadNoise(AddReal("read_noise", gnSimReadNoise, 0, gnMostNoise, "electrons, 0 to 10000")),
      mtSky(AddReal("sky", gnSimSky, 0, gnMostLight, "electrons a pixel and second, 0 to 100000")),
      mtDefocus(AddReal("defocus", options.defocus, -gnSimMostDefocus, gnSimMostDefocus,
                        "radius of a star's disc in pixels, -50 to 50; 0: in focus")),
      mtSeeing(AddReal("seeing", options.seeing, 0, gnSimMostSeeing,
                       "width of the air's blur in pixels, to 50; 0: none")),
      mtDriftRows(AddReal("drift_rows", options.driftRows, -gnSimFastestDrift, gnSimFastestDrift,
                          "pixels a second that the stars move, -100 to 100")),
      mtDriftColumns(AddReal("drift_columns", options.driftColumns, -gnSimFastestDrift,
                             gnSimFastestDrift, "likewise, along the rows")),
      mtHotPixels(AddWhole("hot_pixels", 1, 0, 1, "1: there are some, 0: none")),
      mtStars(AddWhole("stars", gnSimUsualStars, gnSimUsualStars, gnSimMostStars,
                       "number of stars, to 1000000; -1: as many as belong to the size")),
      mtGuard([this] { Guard(); })
{}

tcTunables::~tcTunables()
{
    mbStop = true;
    mtGuard.join();
}

tsSimTunables tcTunables::Values() const
{
    tsSimTunables values;
    values.ambient = Read(mtAmbient);
    values.heartbeatSeconds = Read(mtHeartBeat);
    if (values.heartbeatSeconds > 0) {
        values.heartbeatSeconds = std::max<double>(values.heartbeatSeconds, gnShortestHeartBeat);
    }
    values.lineRate = Read(mtLineRate);
    values.readNoise = Read(mtReadNoise);
    values.sky = Read(mtSky);
    values.defocus = Read(mtDefocus);
    values.seeing = Read(mtSeeing);
    values.driftRows = Read(mtDriftRows);
    values.driftColumns = Read(mtDriftColumns);
    values.hotPixels = Read(mtHotPixels) != 0;
    values.stars = Read(mtStars);
    return values;
}

// Whoever sets an item to something impossible sees at once what it has become.
void tcTunables::Guard() const
{
    while (!mbStop) {
        for (const tsReal& item : {mtAmbient, mtHeartBeat, mtLineRate, mtReadNoise, mtSky,
                                   mtDefocus, mtSeeing, mtDriftRows, mtDriftColumns}) {
            float now = 0;
            __atomic_load(item.value, &now, __ATOMIC_RELAXED);
            if (!(now >= item.least && now <= item.most)) tcDbgItem::SetItem(item.name, Read(item));
        }
        for (const tsWhole& item : {mtHotPixels, mtStars}) {
            const int now = __atomic_load_n(item.value, __ATOMIC_RELAXED);
            if (now < item.least || now > item.most) tcDbgItem::SetItem(item.name, Read(item));
        }
        std::this_thread::sleep_for(gtGuardStep);
    }
}
