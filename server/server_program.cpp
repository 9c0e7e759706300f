#include "server_program.h"

#include "alpaca/discovery_answer.h"
#include "http/tls_keys.h"
#include "server_options.h"
#include "service.h"

#include <vxcamkit/error.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace vxcam {

namespace {

constexpr std::chrono::milliseconds kLook{100};

// SIGINT and SIGTERM, as something to wait for. Made before any thread is, so that all have them
// blocked.
class Signals
{
public:
    Signals()
    {
        sigset_t wanted;
        sigemptyset(&wanted);
        sigaddset(&wanted, SIGINT);
        sigaddset(&wanted, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &wanted, nullptr);
        std::signal(SIGPIPE, SIG_IGN);
        descriptor_ = signalfd(-1, &wanted, SFD_CLOEXEC);
    }
    ~Signals() { ::close(descriptor_); }
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;

    bool came(int milliseconds) const
    {
        pollfd wait{descriptor_, POLLIN, 0};
        while (::poll(&wait, 1, milliseconds) < 0 && errno == EINTR) {
        }
        signalfd_siginfo signal{};
        return (wait.revents & POLLIN) != 0 && ::read(descriptor_, &signal, sizeof signal) > 0;
    }

private:
    int descriptor_ = -1;
};

std::string addressText(const ServerOptions& options, int port)
{
    return std::string(options.certificate.empty() ? "http" : "https") + "://" +
           options.web.address + ":" + std::to_string(port) + "/";
}

// In the background; where there is no desktop, the address stands on the terminal anyway.
void openBrowser(const std::string& address)
{
    std::string script = "exec xdg-open \"$0\" >/dev/null 2>&1 </dev/null &";
    std::string shell = "sh", option = "-c", place = address;
    std::array<char*, 5> words{shell.data(), option.data(), script.data(), place.data(), nullptr};
    posix_spawnattr_t attributes{};
    sigset_t none;
    ::sigemptyset(&none);
    ::posix_spawnattr_init(&attributes);
    ::posix_spawnattr_setsigmask(&attributes, &none);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    pid_t child = 0;
    if (::posix_spawn(&child, "/bin/sh", nullptr, &attributes, words.data(), environ) == 0) {
        ::waitpid(child, nullptr, 0);
    }
    ::posix_spawnattr_destroy(&attributes);
}

// Lets frames of sequences and exposures that have an end come to it, and those who wait for them
// fetch what came, unless a second signal comes.
void finish(const Cameras& cameras, const Signals& signals)
{
    constexpr int kToFetch = 5000; // ms
    bool isAnyFinished = false;
    for (const auto& camera : cameras) {
        camera->sequences().stop(SequenceStop::BehindFrame);
    }
    for (const auto& camera : cameras) {
        while (!camera->sequences().wait(kLook)) {
            if (signals.came(0)) return;
        }
        const auto running = camera->exposures().running();
        if (!running || running->plan.frames == 0) continue;
        while (!camera->exposures().waitUntilIdle(kLook)) {
            if (signals.came(0)) return;
        }
        isAnyFinished = true;
    }
    if (isAnyFinished) signals.came(kToFetch);
}

// While it exists, a signal ends the process as it is, unless it comes with the one before: a
// terminal and a parent may both send one.
class Impatience
{
public:
    explicit Impatience(const Signals& signals) : thread_([this, &signals] { watch(signals); }) {}
    ~Impatience()
    {
        isOver_ = true;
        thread_.join();
    }
    Impatience(const Impatience&) = delete;
    Impatience& operator=(const Impatience&) = delete;

private:
    void watch(const Signals& signals) const
    {
        constexpr int kLookMs = 50;
        const auto begun = std::chrono::steady_clock::now();
        while (!isOver_) {
            if (!signals.came(kLookMs)) continue;
            if (std::chrono::steady_clock::now() - begun < kTogether) continue;
            std::fprintf(stderr, "vxcamd: ends at once\n");
            std::_Exit(EXIT_FAILURE);
        }
    }

    static constexpr std::chrono::milliseconds kTogether{500};
    std::atomic<bool> isOver_{false};
    std::thread thread_;
};

void serve(ServerOptions options, const Signals& signals)
{
    std::optional<TlsKeys> keys;
    if (!options.certificate.empty()) keys.emplace(options.certificate, options.key);
    options.web.keys = keys ? &*keys : nullptr;
    options.web.crew += Places::kMost * static_cast<int>(options.targets.size());
    Cameras cameras;
    for (const Target& target : options.targets) {
        cameras.push_back(std::make_unique<SharedCamera>(static_cast<int>(cameras.size()), target,
                                                         options.sharing));
    }
    std::optional<PlanFolder> plans;
    if (!options.plans.empty()) plans.emplace(options.plans, options.runsHooks);
    ServiceOptions facts;
    facts.plans = plans ? &*plans : nullptr;
    facts.version = "vxcamd " VXCAM_VERSION;
    facts.token = options.token;
    facts.watchers = options.watchers;
    facts.isSecret = keys.has_value();
    if (options.hasAlpaca) facts.alpaca = options.alpaca;
    facts.isAlpacaOpen = options.isAlpacaOpen;
    Service service(cameras, facts);
    WebServer server(options.web, service.handlers());
    std::unique_ptr<DiscoveryAnswer> discovery;
    if (options.hasAlpaca && options.discoveryPort != 0) {
        discovery = std::make_unique<DiscoveryAnswer>(options.discoveryPort, server.port(),
                                                      options.isLoopback());
    }
    std::printf("serving %zu camera%s at %s\n", cameras.size(), cameras.size() == 1 ? "" : "s",
                addressText(options, server.port()).c_str());
    std::printf(options.token.empty() ? "listening on loopback alone: no token is needed\n"
                                      : "clients need the token\n");
    std::fflush(stdout);
    if (options.opensBrowser) openBrowser(addressText(options, server.port()));
    signals.came(-1);
    std::printf("ending\n");
    std::fflush(stdout);
    for (const auto& camera : cameras) {
        camera->sequences().close();
        camera->exposures().close();
    }
    if (options.finishes) finish(cameras, signals);
    const Impatience impatience(signals);
    for (const auto& camera : cameras) {
        camera->sequences().end();
        camera->exposures().end();
    }
    server.stop();
    for (const auto& camera : cameras) {
        camera->end();
    }
}

} // namespace

int runServer(std::vector<std::string> arguments)
{
    try {
        const auto options = parsedOptions(std::move(arguments));
        if (!options) return 0;
        if (!options->isVerbose) ::setenv("TCLOG_SUPPRESS_ERR_CONSOLE", "1", 0);
        const Signals signals;
        serve(*options, signals);
        return 0;
    } catch (const Error& error) {
        std::fprintf(stderr, "vxcamd: %s\n", error.what());
        return error.row().exitCode;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "vxcamd: no thread, or no memory: %s\n", failure.what());
        return rowOf(ErrorKind::File).exitCode;
    }
}

} // namespace vxcam
