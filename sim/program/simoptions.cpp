#include "simoptions.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <stdexcept>
#include <utility>

namespace {

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

} // namespace

void Declare(CLI::App& app, tsProgram& program)
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
    app.set_version_flag("--version", "vxcamsim " VXCAMSIM_VERSION, "Print the version and exit");
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
