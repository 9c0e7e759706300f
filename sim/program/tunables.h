// What of the simulated camera can be changed while it runs, as debug items. An example of how a
// program publishes its values.
#ifndef TUNABLES_H
#define TUNABLES_H

#include "tcSimServer.h"

#include <atomic>
#include <thread>

// Registers the items; one object in a process.
// Threads: Values on any. One of its own puts values back that are not possible.
// Owns: its thread. The items live as long as the process.
class tcTunables
{
public:
    // The values at first.
    explicit tcTunables(const tsSimOptions& options);
    ~tcTunables();
    tcTunables(const tcTunables&) = delete;
    tcTunables& operator=(const tcTunables&) = delete;

    // As they are now, cut to their limits.
    tsSimTunables Values() const;

private:
    struct tsReal {
        const char* name;
        float least, most;
        float* value; // the item's
    };
    struct tsWhole {
        const char* name;
        int least, most;
        int* value;
    };

    static tsReal AddReal(const char* name, double value, float least, float most,
                          const char* meaning);
    static tsWhole AddWhole(const char* name, int value, int least, int most, const char* meaning);
    static float Read(const tsReal& item);
    static int Read(const tsWhole& item);
    void Guard() const;

    tsReal mtAmbient, mtHeartBeat, mtLineRate, mtReadNoise, mtSky;
    tsReal mtDefocus, mtSeeing, mtDriftRows, mtDriftColumns;
    tsWhole mtHotPixels, mtStars;
    std::atomic<bool> mbStop{false};
    std::thread mtGuard;
};

#endif
