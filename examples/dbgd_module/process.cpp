// A handler module for the debug daemon: PROC tells how the process is doing.
//
//     DBGD_MODULE_PATH=<folder of dbgd_process.so> <any program that uses the library>
//     printf PROC | nc 127.0.0.1 17020
//
// Every ".so" file in that folder is loaded while the daemon is being built. Loading this one runs
// the constructor of gRegistration, which is all that a module needs.
#include <HSocket.h>
#include <tcDbgd.h>

#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>

namespace {

class tcProcessHandler : public tcDbgdWB
{
public:
    tcProcessHandler() : tcDbgdWB("PROC", "PROC\n   Tells process id, CPU time and memory\n") {}

    void Run(HSocket* client, char*) override
    {
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        const double seconds =
            static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
            1e-6 * static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
        char text[128];
        std::snprintf(text, sizeof text, "pid %d, CPU %.2f s, at most %ld KiB\n",
                      static_cast<int>(getpid()), seconds, usage.ru_maxrss);
        client->Send(text, -1);
    }
};

// The handler must be gone from the daemon before it is destroyed; RemoveWB waits for clients that
// are being served.
struct tsRegistration {
    tsRegistration() { DbgdPointer()->RegisterWB(&mHandler); }
    ~tsRegistration() { DbgdPointer()->RemoveWB(&mHandler); }

    tcProcessHandler mHandler;
} gRegistration;

} // namespace
