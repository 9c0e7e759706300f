#include "server_options.h"

#include "http/guard.h"

#include <vxcamkit/error.h>
#include <vxcamkit/shape.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <set>

namespace vxcam {

namespace {

constexpr const char* kAbout = "vxcamd - shares cameras: REST, live frames, Alpaca, metrics";

int portOf(const std::string& text)
{
    constexpr int kMost = 65535;
    int port = -1;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (error != std::errc() || end != text.data() + text.size() || port < 0 || port > kMost) {
        throw Error(ErrorKind::Usage, "--listen: '" + text + "' is no port");
    }
    return port;
}

// "127.0.0.1:8080", "[::1]:8080", "8080"
void parseListen(const std::string& text, WebOptions* web)
{
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos) {
        if (text.find_first_not_of("0123456789") != std::string::npos) {
            throw Error(ErrorKind::Usage, "--listen: ADDRESS:PORT is needed, not '" + text + "'");
        }
        web->port = portOf(text);
        return;
    }
    web->address = text.substr(0, colon);
    web->port = portOf(text.substr(colon + 1));
    if (web->address == "localhost") web->address = "127.0.0.1";
    if (web->address.empty()) {
        throw Error(ErrorKind::Usage, "--listen: ADDRESS:PORT is needed, not '" + text + "'");
    }
}

void parseTls(const std::string& text, ServerOptions* options)
{
    const size_t comma = text.find(',');
    if (comma == std::string::npos) throw Error(ErrorKind::Usage, "--tls: CERT,KEY are needed");
    options->certificate = text.substr(0, comma);
    options->key = text.substr(comma + 1);
}

struct Words {
    std::vector<std::string> targets;
    std::string listen = "127.0.0.1:8080", tokenFile, tls, atEnd = "abort";
    double leaseSeconds = 60, keptMegabytes = 256, pixelSize = 0;
};

// Refuses what is no number, too: NaN is within no range, and beyond none.
CLI::Validator between(double least, double most)
{
    const std::string range = numberText(least) + " to " + numberText(most);
    const auto check = [least, most, range](const std::string& text) {
        double number = 0;
        const char* const last = text.data() + text.size();
        const auto [end, error] = std::from_chars(text.data(), last, number);
        const bool isGood =
            error == std::errc() && end == last && number >= least && number <= most;
        return isGood ? std::string() : range + " is needed, not '" + text + "'";
    };
    return CLI::Validator(check, range);
}

void declareAlpaca(CLI::App* app, Words* words, ServerOptions* options)
{
    CLI::Option* const alpaca = app->add_flag("--alpaca", options->hasAlpaca,
                                              "serve Alpaca clients, and let them find the server");
    app->add_flag("--alpaca-without-token", options->isAlpacaOpen,
                  "whoever reaches the server may control cameras by Alpaca")
        ->needs(alpaca);
    app->add_option("--alpaca-interface", options->alpaca.interfaceVersion,
                    "version of the camera interface")
        ->check(CLI::IsMember({3, 4}))
        ->needs(alpaca)
        ->capture_default_str();
    app->add_option("--discovery-port", options->discoveryPort,
                    "UDP port where Alpaca clients look for servers; 0: none")
        ->check(between(0, 65535))
        ->needs(alpaca)
        ->capture_default_str();
    app->add_option("--pixel-size", words->pixelSize, "micrometres, for Alpaca clients")
        ->check(between(0.01, 1000))
        ->needs(alpaca);
}

void declare(CLI::App* app, Words* words, ServerOptions* options)
{
    app->add_option("TARGET", words->targets, "HOST:PORT, serial:NUMBER or sim; several are served")
        ->required();
    app->add_option("--listen", words->listen, "ADDRESS:PORT to listen on; port 0 takes a free one")
        ->capture_default_str();
    app->add_option(
        "--token-file", words->tokenFile,
        "file with the token that clients need; required unless loopback is listened on");
    app->add_flag("--open", options->opensBrowser, "open the page in the browser of this desktop");
    app->add_option("--tls", words->tls, "CERT,KEY: PEM files, for https and wss");
    app->add_option("--lease", words->leaseSeconds, "seconds after which an unused lease is free")
        ->check(between(1, 86400))
        ->capture_default_str();
    app->add_option("--keep", words->keptMegabytes, "MB of frames kept for each camera")
        ->check(between(1, 1048576))
        ->capture_default_str();
    app->add_option("--connections", options->web.connections, "that are served at once")
        ->check(between(4, 20000))
        ->capture_default_str();
    app->add_option("--watchers", options->watchers, "live views at once, of all cameras together")
        ->check(between(1, 10000))
        ->capture_default_str();
    CLI::Option* const plans = app->add_option(
        "--plans", options->plans, "folder of plans of sequences; their frames go below it");
    app->add_flag("--plan-hooks", options->runsHooks,
                  "run the commands of plans: whoever may send a plan can do what the server can")
        ->needs(plans);
    app->add_option("--at-end", words->atEnd, "what becomes of exposures that run when it ends")
        ->check(CLI::IsMember({"abort", "finish"}))
        ->capture_default_str();
    app->add_flag("--verbose", options->isVerbose,
                  "show the library's own error log on standard error, too");
    declareAlpaca(app, words, options);
    app->set_version_flag("--version", "vxcamd " VXCAM_VERSION);
    app->footer(std::string("Examples:\n") + kServerExamples);
}

void requireSafe(const ServerOptions& options)
{
    if (options.isLoopback() || !options.token.empty()) return;
    throw Error(ErrorKind::Usage, "--listen " + options.web.address +
                                      " is reached from other hosts: that needs --token-file");
}

} // namespace

bool ServerOptions::isLoopback() const
{
    return web.address.rfind("127.", 0) == 0 || web.address == "[::1]";
}

std::vector<OptionFacts> optionFacts()
{
    ServerOptions options;
    Words words;
    CLI::App app(kAbout, "vxcamd");
    declare(&app, &words, &options);
    std::vector<OptionFacts> all;
    for (const CLI::Option* const option : app.get_options()) {
        all.push_back({option->get_name(true, true),
                       option->get_type_size() > 0 ? option->get_type_name() : "",
                       option->get_description(), option->get_default_str()});
    }
    return all;
}

std::optional<ServerOptions> parsedOptions(std::vector<std::string> arguments)
{
    ServerOptions options;
    Words words;
    CLI::App app(kAbout, "vxcamd");
    declare(&app, &words, &options);
    std::reverse(arguments.begin(), arguments.end());
    try {
        app.parse(arguments);
    } catch (const CLI::Success& asked) {
        app.exit(asked);
        return {};
    } catch (const CLI::ParseError& error) {
        throw Error(ErrorKind::Usage, error.what());
    }
    std::set<std::string> seen;
    for (const std::string& text : words.targets) {
        const Target target = Target::parse(text);
        if (target.kind != Target::Kind::Simulator && !seen.insert(target.text()).second) {
            throw Error(ErrorKind::Usage, target.text() + " is there twice");
        }
        options.targets.push_back(target);
    }
    parseListen(words.listen, &options.web);
    if (!words.tokenFile.empty()) options.token = Guard::load(words.tokenFile);
    if (!words.tls.empty()) parseTls(words.tls, &options);
    if (words.pixelSize > 0) options.alpaca.pixelSize = words.pixelSize;
    options.finishes = words.atEnd == "finish";
    options.sharing.leaseTime =
        std::chrono::milliseconds(static_cast<int64_t>(words.leaseSeconds * 1000));
    options.sharing.keptBytes = static_cast<size_t>(words.keptMegabytes * 1024 * 1024);
    requireSafe(options);
    return options;
}

} // namespace vxcam
