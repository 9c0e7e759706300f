// What the server is told on its command line.
#ifndef VXCAMD_SERVER_OPTIONS_H
#define VXCAMD_SERVER_OPTIONS_H

#include "alpaca/alpaca_camera.h"
#include "alpaca/discovery_answer.h"
#include "cameras/shared_camera.h"
#include "http/web_server.h"

#include <vxcamkit/target.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace vxcam {

struct ServerOptions {
    std::vector<Target> targets;
    WebOptions web;
    int watchers = 64; // at once
    SharingOptions sharing;
    std::string token;            // empty: none is needed
    std::string certificate, key; // files; empty: no TLS
    std::string plans;            // folder of plans; empty: none
    bool runsHooks = false;       // commands in plans
    bool finishes = false;        // exposures that run at the end, instead of aborting them
    bool opensBrowser = false;
    bool isVerbose = false;                       // the library's own errors on standard error, too
    bool hasAlpaca = false, isAlpacaOpen = false; // open: without the token
    AlpacaOptions alpaca;
    int discoveryPort = DiscoveryAnswer::kUsualPort; // 0: no discovery

    bool isLoopback() const; // of the address
};

inline constexpr const char* kServerExamples =
    "  vxcamd sim                          a simulated camera, at http://127.0.0.1:8080\n"
    "  vxcamd 192.168.1.20:2000 serial:17  two cameras\n"
    "  vxcamd serial:17 --listen 0.0.0.0:8080 --token-file /etc/vxcamd.token\n";

// Of an option, as the help has it.
struct OptionFacts {
    std::string names, kind, help, usual;
};
std::vector<OptionFacts> optionFacts();

// Nothing when only help or the version was asked for, which is printed then. Throws Error{Usage}.
std::optional<ServerOptions> parsedOptions(std::vector<std::string> arguments);

} // namespace vxcam

#endif
