// The faults of the simulated camera as debug items, so that they come and go while it runs.
#ifndef FAULTITEMS_H
#define FAULTITEMS_H

#include "tcSimServer.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

// An item "fault_KIND" for each kind, with underscores for dashes: how often the faults of the kind
// will strike still, -1 without limit, and 1 while the effect of one lasts. Setting it lifts these,
// and, but for 0, injects one that strikes so often. What the kind can be told stands in items
// "with_NAME" by then, which go back to -1, "as the kind has it by itself", as they are taken over.
// "fault_changes" counts what was taken over.
//
// Registers the items; one object in a process.
// Threads: one of its own follows the items.
// Owns: its thread. The items live as long as the process.
class tcFaultItems
{
public:
    // `complain` is told, on that thread, what cannot be.
    tcFaultItems(tcSimServer& server, std::function<void(const std::string&)> complain);
    ~tcFaultItems();
    tcFaultItems(const tcFaultItems&) = delete;
    tcFaultItems& operator=(const tcFaultItems&) = delete;

private:
    using tpClock = std::chrono::steady_clock;
    struct tsKindItem {
        teSimFault kind;
        std::string name;
        int* value;
        int told;                    // by us
        tpClock::time_point until{}; // it stays as somebody has set it
    };
    struct tsWordItem {
        std::string word, name;
        float* value;
    };

    void Follow();
    void Change(tsKindItem& item, int wanted);
    tsSimFault Made(const tsKindItem& item, int times);
    int Left(teSimFault kind) const;

    tcSimServer& mtServer;
    const std::function<void(const std::string&)> mpComplain;
    std::vector<tsKindItem> maKinds;
    std::vector<tsWordItem> maWords;
    int* mpChanges;
    std::atomic<bool> mbStop{false};
    std::thread mtThread;
};

#endif
