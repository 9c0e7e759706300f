// The simulated camera as a program.
#include "faultitems.h"
#include "simoptions.h"
#include "simreport.h"
#include "standardfiles.h"
#include "tcDbgItem.h"
#include "tcDbgd.h"
#include "tunables.h"

#include <CLI/CLI.hpp>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <optional>
#include <poll.h>
#include <string>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <system_error>
#include <unistd.h>

// The program opens no port but the camera's, unless it is told which.
extern "C" const int VXNoDebugServices = 1;

namespace {

void Complain(const std::string& text)
{
    std::fprintf(stderr, "vxcamsim: %s\n", text.c_str());
}

// What ends the program: a signal, the camera, or that nobody reads any more what it prints.
// Threads: Come on any, the rest on one.
// Owns: its descriptors. The signals are blocked from then on, in threads to come, too.
class tcEnd
{
public:
    tcEnd()
    {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGINT);
        sigaddset(&signals, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &signals, nullptr);
        signal(SIGPIPE, SIG_IGN);
        mhSignals = signalfd(-1, &signals, SFD_CLOEXEC);
        mhCome = eventfd(0, EFD_CLOEXEC);
    }
    ~tcEnd()
    {
        close(mhSignals);
        close(mhCome);
    }
    tcEnd(const tcEnd&) = delete;
    tcEnd& operator=(const tcEnd&) = delete;

    // Wait returns this; the first one counts.
    void Come(teSimExit code)
    {
        int none = gnNone;
        if (mnCode.compare_exchange_strong(none, code)) eventfd_write(mhCome, 1);
    }

    int Wait() const
    {
        pollfd ends[] = {{mhSignals, POLLIN, 0}, {mhCome, POLLIN, 0}, {STDOUT_FILENO, 0, 0}};
        while (poll(ends, std::size(ends), -1) < 0 && errno == EINTR) {
        }
        if (ends[0].revents != 0) return eSimDone;
        return ends[1].revents != 0 ? mnCode.load() : eSimOutputGone;
    }

private:
    static constexpr int gnNone = -1;

    int mhSignals, mhCome;
    std::atomic<int> mnCode{gnNone};
};

// The services listen where the camera does, unless the environment knows better.
void StartServices(const tsProgram& program)
{
    const char* const bind = program.camera.bind.c_str();
    if (program.debugPort != 0) {
        setenv("DBGD_PORTNUM", std::to_string(program.debugPort).c_str(), 1);
        setenv("DBGD_BIND", bind, 0);
        unsetenv("DBGD_DISABLE");
    }
    if (getenv("DBGD_PORTNUM")) {
        tcDbgd::sbHeedsOptOut = false;
        tcDbgd::getItem()->StartServer();
    }
    if (program.itemPort != 0) {
        setenv("DBGITEM_PORTNUM", std::to_string(program.itemPort).c_str(), 1);
        setenv("DBGITEM_BIND", bind, 0);
        // It tells of each request there, among what the camera prints.
        std::cout.setstate(std::ios::failbit);
        tcDbgItem::StartServer();
    }
}

int Serve(tsProgram& program)
{
    GatherFaults(program);
    tcEnd end;
    tcSimServer* running = nullptr;
    program.camera.events = [&program, &running, &end](const tsSimEvent& event) {
        if (!PrintEvent(program, event, *running)) end.Come(eSimOutputGone);
        LogEvent(event);
        if (program.once && event.event == teSimEvent::eDisconnected) end.Come(eSimDone);
    };
    std::optional<tcTunables> tunables;
    if (program.itemPort != 0) {
        tunables.emplace(program.camera);
        program.camera.tunables = [&tunables] { return tunables->Values(); };
    }
    LogEvent({teSimEvent::eTrace, "starting", {}}); // the logger is there from the start
    tcSimServer server(program.camera);
    running = &server;
    std::optional<tcFaultItems> faults;
    if (program.itemPort != 0) faults.emplace(server, Complain);
    StartServices(program);
    server.Start();
    const int code = end.Wait();
    server.Stop();
    return code;
}

int Run(int argc, char** argv)
{
    CLI::App app{gsSimSummary, "vxcamsim"};
    tsProgram program;
    Declare(app, program);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? eSimDone : eSimUsage;
    }
    return Serve(program);
}

} // namespace

int main(int argc, char** argv)
{
    OpenStandardFiles();
    try {
        return Run(argc, argv);
    } catch (const std::system_error& error) {
        Complain(error.what());
        return eSimNetwork;
    } catch (const std::exception& error) {
        Complain(error.what());
        return eSimUsage;
    }
}
