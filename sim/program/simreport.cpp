#include "simreport.h"

#include "tcLog.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <cstdlib>

namespace {

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

} // namespace

bool PrintEvent(const tsProgram& program, const tsSimEvent& event, const tcSimServer& server)
{
    if (program.json) {
        PrintJson(event, server);
    } else if (event.event == teSimEvent::eError) {
        std::fprintf(stderr, "vxcamsim: %s\n", event.text.c_str());
    } else if (!program.quiet || event.event == teSimEvent::eListening) {
        std::printf("%s\n", event.text.c_str());
    }
    return std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
}

void LogEvent(const tsSimEvent& event)
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
