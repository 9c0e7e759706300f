// The simulated camera as a program.
#include "standardfiles.h"
#include "tcDbgItem.h"
#include "tcDbgd.h"
#include "tcLog.h"
#include "tcSimServer.h"
#include "tunables.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

// The program opens no port but the camera's, unless it is told which.
extern "C" const int VXNoDebugServices = 1;

namespace {

enum teExit { eExitDone = 0, eExitUsage = 1, eExitNetwork = 2 };

struct tsProgram {
    tsSimOptions camera;
    std::string sensor = "2048x2048", drift = "0,0";
    bool json = false, quiet = false, once = false;
    std::string scenario;
    std::vector<std::string> faults;
    uint16_t itemPort = 0, debugPort = 0; // 0: no such service
};

// "2048x1024": columns, then rows.
std::string ParseSensor(const std::string& text, tsSimOptions* options)
{
    unsigned columns = 0, rows = 0;
    int used = 0;
    if (std::sscanf(text.c_str(), "%5ux%5u%n", &columns, &rows, &used) != 2 ||
        used != static_cast<int>(text.size()) || columns > 0xFFFF || rows > 0xFFFF) {
        return "a sensor is written COLUMNSxROWS, for example 2048x2048";
    }
    options->columns = static_cast<uint16_t>(columns);
    options->rows = static_cast<uint16_t>(rows);
    return "";
}

// "0.5,-2": columns, then rows.
std::string ParseDrift(const std::string& text, tsSimOptions* options)
{
    int used = 0;
    if (std::sscanf(text.c_str(), "%lf,%lf%n", &options->driftColumns, &options->driftRows,
                    &used) != 2 ||
        used != static_cast<int>(text.size())) {
        return "a drift is written COLUMNS,ROWS, for example 0.5,-2";
    }
    return "";
}

void Describe(CLI::App& app, tsProgram& program)
{
    tsSimOptions& camera = program.camera;
    app.add_option("--sensor", program.sensor, "Sensor size, COLUMNSxROWS")
        ->capture_default_str()
        ->check([&camera](const std::string& text) { return ParseSensor(text, &camera); });
    app.add_option("--port", camera.port, "TCP port; 0 takes any free one")->capture_default_str();
    app.add_option("--bind", camera.bind, "IPv4 address to listen on")->capture_default_str();
    app.add_option("--serial", camera.serial, "Serial number")->capture_default_str();
    app.add_option("--name", camera.name, "Name in the hardware information")
        ->capture_default_str();
    app.add_option("--seed", camera.seed, "Seed of the star field and of the noise")
        ->capture_default_str();
    app.add_option("--line-rate", camera.lineRate,
                   "Packets a second, one a row; 0 is as fast as the connection takes them")
        ->capture_default_str();
    app.add_option("--time-scale", camera.timeScale,
                   "Speed of the camera's time: 10 makes exposures and cooling ten times as fast")
        ->capture_default_str();
    app.add_option("--heartbeat", camera.heartbeatSeconds, "Seconds between heartbeats; 0: none")
        ->capture_default_str();
    app.add_option("--ambient", camera.ambient, "Ambient temperature in degrees Celsius")
        ->capture_default_str();
    app.add_option("--defocus", camera.defocus, "Radius of the disc that a star becomes, in pixels")
        ->capture_default_str();
    app.add_option("--seeing", camera.seeing,
                   "Full width at half maximum of the air's blur, in pixels")
        ->capture_default_str();
    app.add_option("--drift", program.drift, "Pixels a second that the stars move: COLUMNS,ROWS")
        ->capture_default_str()
        ->check([&camera](const std::string& text) { return ParseDrift(text, &camera); });
    app.add_flag("--same-frame", camera.reuseFrame,
                 "Send the same frame again instead of making new ones, for benchmarks");
    app.add_flag("--discovery", camera.discovery, "Answer those who look for cameras on UDP");
    app.add_option("--discovery-port", camera.discoveryPort, "UDP port of --discovery")
        ->capture_default_str();
    app.add_option("--scenario", program.scenario, "File of faults, in JSON");
    app.add_option("--fault", program.faults, "One more fault, see below; may be repeated")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    app.footer(ExplainSimFaults());
    app.add_option(
           "--item-port", program.itemPort,
           "TCP port of the item server, which changes values while the camera runs; 0: none")
        ->capture_default_str();
    app.add_option("--debug-port", program.debugPort,
                   "TCP port of the debug daemon, which tells of the logger vxcamsim; 0: none")
        ->capture_default_str();
    app.add_flag("--once", program.once, "End when the first client has left");
    app.add_flag("--trace", camera.trace, "Also print what each client sends");
    CLI::Option* json = app.add_flag("--json", program.json, "Print events as JSON lines");
    app.add_flag("--quiet", program.quiet, "Print nothing but the address and errors")
        ->excludes(json);
}

const char* NameOf(teSimEvent event)
{
    static constexpr const char* names[] = {"listening",    "connected", "refused",
                                            "disconnected", "readout",   "frame",
                                            "error",        "fault",     "trace"};
    return names[static_cast<size_t>(event)];
}

nlohmann::ordered_json JsonOf(const tsSimFrame& frame)
{
    return {{"readout", frame.readout},
            {"frame", frame.frame},
            {"rows", frame.rows},
            {"columns", frame.columns},
            {"bits", frame.bits},
            {"sum", frame.pixelSum},
            {"minimum", frame.minimum},
            {"maximum", frame.maximum},
            {"packets", frame.packets},
            {"totalPackets", frame.totalPackets},
            {"exposure", frame.exposure},
            {"temperature", frame.temperature},
            {"lastFrame", frame.lastFrame},
            {"complete", frame.complete},
            {"crc", frame.crc},
            {"beginRealtime", frame.begin.realtime},
            {"beginMonotonic", frame.begin.monotonic},
            {"endRealtime", frame.end.realtime},
            {"endMonotonic", frame.end.monotonic},
            {"sentPackets", frame.sent.packets},
            {"sentLost", frame.sent.lost},
            {"sentSum", frame.sent.pixelSum},
            {"sentCrc", frame.sent.crc},
            {"intact", frame.sent.intact}};
}

void PrintJson(const tsSimEvent& event, const tcSimServer& server)
{
    nlohmann::ordered_json line{{"event", NameOf(event.event)}, {"text", event.text}};
    if (event.event == teSimEvent::eListening) {
        line["port"] = server.Port();
        if (server.DiscoveryPort() != 0) line["discoveryPort"] = server.DiscoveryPort();
    }
    if (event.event == teSimEvent::eFrame) line.update(JsonOf(event.frame));
    std::printf("%s\n",
                line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
}

void Print(const tsProgram& program, const tsSimEvent& event, const tcSimServer& server)
{
    if (program.json) {
        PrintJson(event, server);
    } else if (event.event == teSimEvent::eError) {
        std::fprintf(stderr, "vxcamsim: %s\n", event.text.c_str());
    } else if (!program.quiet || event.event == teSimEvent::eListening) {
        std::printf("%s\n", event.text.c_str());
    }
    std::fflush(stdout);
}

// Those of the scenario first.
void GatherFaults(tsProgram& program)
{
    tsSimScenario scenario;
    if (!program.scenario.empty()) scenario = LoadSimScenario(program.scenario);
    for (const std::string& text : program.faults) {
        try {
            scenario.faults.push_back(ParseSimFault(text));
        } catch (const std::runtime_error& error) {
            throw std::runtime_error("--fault " + text + ": " + error.what());
        }
    }
    program.camera.faults = std::move(scenario.faults);
    program.camera.faultSeed = scenario.seed;
}

// What happens, as records of a logger. It keeps errors for whoever looks into the process; on
// standard error they have been already.
void Log(const tsSimEvent& event)
{
    static tcLog& log = *[] {
        const char* const quiet = "TCLOG_SUPPRESS_ERR_CONSOLE";
        const bool wasQuiet = getenv(quiet) != nullptr;
        setenv(quiet, "1", 1);
        auto* made = new tcLog("vxcamsim", 1);
        if (!wasQuiet) unsetenv(quiet);
        return made;
    }();
    static constexpr int levels[] = {1, 1, 1, 1, 2, 3, 0, 2, 5}; // as NameOf
    if (event.event == teSimEvent::eError)
        log.logError("%s", event.text.c_str());
    else
        log.logDebug(levels[static_cast<size_t>(event.event)], "%s", event.text.c_str());
}

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
    sigset_t ending; // blocked here and so in all threads to come; waited for below
    sigemptyset(&ending);
    sigaddset(&ending, SIGINT);
    sigaddset(&ending, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ending, nullptr);
    tcSimServer* running = nullptr;
    program.camera.events = [&program, &running](const tsSimEvent& event) {
        Print(program, event, *running);
        Log(event);
        if (program.once && event.event == teSimEvent::eDisconnected) kill(getpid(), SIGTERM);
    };
    std::optional<tcTunables> tunables;
    if (program.itemPort != 0) {
        tunables.emplace(program.camera);
        program.camera.tunables = [&tunables] { return tunables->Values(); };
    }
    Log({teSimEvent::eTrace, "starting", {}}); // the logger is there from the start
    StartServices(program);
    tcSimServer server(program.camera);
    running = &server;
    server.Start();
    int signal = 0;
    sigwait(&ending, &signal);
    server.Stop();
    return eExitDone;
}

int Run(int argc, char** argv)
{
    CLI::App app{"A simulated camera: takes pictures of a star field and sends them over TCP.",
                 "vxcamsim"};
    tsProgram program;
    Describe(app, program);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? eExitDone : eExitUsage;
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
        std::fprintf(stderr, "vxcamsim: %s\n", error.what());
        return eExitNetwork;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vxcamsim: %s\n", error.what());
        return eExitUsage;
    }
}
