#include "faultkinds.h"
#include "options.h"
#include "tcSimClient.h"
#include "tcSimDiscovery.h"
#include "tcSimServer.h"
#include "tcSimTurnAway.h"

#include <asio/executor_work_guard.hpp>
#include <asio/post.hpp>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fcntl.h>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace {

constexpr std::chrono::milliseconds gtAcceptPause{100};
constexpr size_t gnMostTurnedAway = 32; // connections that are being told so at the same time

std::string NameOf(const asio::ip::tcp::socket& socket)
{
    std::error_code error;
    const asio::ip::tcp::endpoint remote = socket.remote_endpoint(error);
    if (error) return "unknown";
    return remote.address().to_string() + ":" + std::to_string(remote.port());
}

// Does it; a failure of the system is thrown on with what was tried, under the system's own codes.
template <class Action>
void Explained(const std::string& what, Action action)
{
    try {
        action();
    } catch (const std::system_error& error) {
        throw std::system_error(error.code().value(), std::system_category(), what);
    }
}

} // namespace

// Owns: everything; what lives only while the server runs stands in tsRunning.
class tcSimServer::tcImplementation
{
public:
    explicit tcImplementation(tsSimOptions options)
        : mtOptions(CheckedOptions(std::move(options))),
          mtLedger(mtOptions.events, mtOptions.trace),
          mtIdentity{mtOptions.rows, mtOptions.columns, mtOptions.serial,
                     mtOptions.name, mtOptions.seed,    mtOptions.ambient},
          mtCamera(mtIdentity), mtFaults(mtOptions.faults, mtOptions.faultSeed),
          mtPowerUp(std::chrono::steady_clock::now())
    {}

    ~tcImplementation() { Stop(); }

    uint16_t Start();
    void Stop();

    std::atomic<uint16_t> mnPort{0}, mnDiscoveryPort{0};
    const tcSimLedger& Ledger() const { return mtLedger; }

    uint32_t Inject(const tsSimFault& fault);
    size_t Lift(const std::function<bool(const tsSimFaultState&)>& which);
    std::vector<tsSimFaultState> Faults() const { return mtFaults.States(); }

private:
    void Forget();

    struct tsRunning {
        explicit tsRunning(tcImplementation& server)
            : worker(server.mtIdentity.rows, server.mtIdentity.columns, server.mtIdentity.seed),
              context{server.mtOptions,
                      server.mtCamera,
                      server.mtLedger,
                      worker,
                      io,
                      [&server] { return server.CameraTime(); },
                      [&server](double cameraTime) { return server.MomentOf(cameraTime); },
                      server.mtFaults,
                      [&server, this](const tsSimFault& how) { server.Reboot(*this, how); }},
              work(io.get_executor()), listener(io), pause(io), down(io)
        {}

        asio::io_context io; // outlives the worker, which posts to it
        tcSimWorker worker;
        tsSimContext context;
        asio::executor_work_guard<asio::io_context::executor_type> work;
        asio::ip::tcp::acceptor listener;
        asio::steady_timer pause, down;
        std::optional<tcSimDiscovery> discovery;
        std::shared_ptr<tcSimClient> client;
        std::vector<std::shared_ptr<tcSimTurnAway>> turnedAway;
        std::thread thread;
    };

    double CameraTime() const
    {
        const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - mtPowerUp;
        return wall.count() * mtOptions.timeScale;
    }
    tsSimMoment MomentOf(double cameraTime) const;
    void Post(std::function<void(tsRunning&)> action);
    void Relieve(tsRunning& running, teSimFault kind);
    void Bind(tsRunning& running, uint16_t port);
    void BeFound(tsRunning& running);
    void Accept(tsRunning& running);
    void Serve(tsRunning& running, asio::ip::tcp::socket socket);
    void TurnAway(tsRunning& running, asio::ip::tcp::socket socket);
    void Reboot(tsRunning& running, const tsSimFault& how);
    void ComeBack(tsRunning& running);

    const tsSimOptions mtOptions;
    tcSimLedger mtLedger;
    tsSimIdentity mtIdentity; // what the camera is now
    tcSimCamera mtCamera;
    tcSimFaults mtFaults;
    const std::chrono::steady_clock::time_point mtPowerUp;
    std::mutex mtRunningMutex; // guards that mpRunning is there, not what it holds
    std::unique_ptr<tsRunning> mpRunning;
};

tsSimMoment tcSimServer::tcImplementation::MomentOf(double cameraTime) const
{
    using std::chrono::duration_cast;
    using std::chrono::nanoseconds;
    const auto sincePowerUp =
        duration_cast<nanoseconds>(std::chrono::duration<double>(cameraTime / mtOptions.timeScale));
    const nanoseconds monotonic = mtPowerUp.time_since_epoch() + sincePowerUp;
    // Between two readings of the other clock, so that a moment away in between does little.
    const nanoseconds before = std::chrono::steady_clock::now().time_since_epoch();
    const nanoseconds realtime = std::chrono::system_clock::now().time_since_epoch();
    const nanoseconds after = std::chrono::steady_clock::now().time_since_epoch();
    return {(realtime - (before + after) / 2 + monotonic).count(), monotonic.count()};
}

// Takes the port, but does not listen on it yet.
void tcSimServer::tcImplementation::Bind(tsRunning& running, uint16_t port)
{
    const asio::ip::tcp::endpoint endpoint(asio::ip::make_address_v4(mtOptions.bind), port);
    running.listener.open(endpoint.protocol());
    fcntl(running.listener.native_handle(), F_SETFD, FD_CLOEXEC);
    running.listener.set_option(asio::socket_base::reuse_address(true));
    running.listener.bind(endpoint);
}

void tcSimServer::tcImplementation::BeFound(tsRunning& running)
{
    if (!mtOptions.discovery) return;
    tsSimDiscoveryReply reply{};
    reply.Marker = gnSimDiscoverySecond;
    reply.Echo = gnSimDiscoveryFirst;
    reply.Port = running.listener.local_endpoint().port();
    reply.SerialNumber = mtOptions.serial;
    reply.CameraValue = uint32_t{mtIdentity.columns} << 16 | mtIdentity.rows;
    const uint16_t port = mnDiscoveryPort != 0 ? mnDiscoveryPort.load() : mtOptions.discoveryPort;
    running.discovery.emplace(running.io, mtLedger, port, asio::ip::make_address_v4(mtOptions.bind),
                              reply, mtFaults);
}

uint16_t tcSimServer::tcImplementation::Start()
{
    if (mpRunning) throw std::runtime_error("the simulated camera is already started");
    auto running = std::make_unique<tsRunning>(*this);
    const std::string port = std::to_string(mtOptions.port);
    Explained("cannot listen on " + mtOptions.bind + ":" + port, [&] {
        Bind(*running, mtOptions.port);
        running->listener.listen();
    });
    const std::string discovery = std::to_string(mtOptions.discoveryPort);
    Explained("cannot answer discovery on port " + discovery, [&] { BeFound(*running); });
    mnPort = running->listener.local_endpoint().port();
    mnDiscoveryPort = running->discovery ? running->discovery->Port() : 0;
    Accept(*running);
    asio::post(running->io, [this, port = mnPort.load()] {
        mtLedger.Raise(teSimEvent::eListening,
                       "listening on " + mtOptions.bind + ":" + std::to_string(port));
    });
    {
        std::lock_guard<std::mutex> lock(mtRunningMutex);
        mpRunning = std::move(running);
    }
    try {
        Explained("cannot start a thread",
                  [this] { mpRunning->thread = std::thread([&io = mpRunning->io] { io.run(); }); });
    } catch (...) {
        Forget();
        throw;
    }
    return mnPort;
}

void tcSimServer::tcImplementation::Stop()
{
    if (!mpRunning) return;
    tsRunning& running = *mpRunning;
    asio::post(running.io, [&running] {
        std::error_code ignored;
        running.listener.close(ignored);
        if (running.discovery) running.discovery->Close();
        if (auto client = running.client) client->End();
        for (const auto& one : running.turnedAway) {
            one->End();
        }
        running.io.stop();
    });
    running.thread.join();
    Forget();
}

void tcSimServer::tcImplementation::Forget()
{
    {
        std::lock_guard<std::mutex> lock(mtRunningMutex);
        mpRunning.reset();
    }
    mnPort = mnDiscoveryPort = 0;
}

// Does it on the server's thread, while there is one.
void tcSimServer::tcImplementation::Post(std::function<void(tsRunning&)> action)
{
    std::lock_guard<std::mutex> lock(mtRunningMutex);
    if (!mpRunning) return;
    tsRunning& running = *mpRunning;
    asio::post(running.io, [&running, action = std::move(action)] { action(running); });
}

uint32_t tcSimServer::tcImplementation::Inject(const tsSimFault& fault)
{
    CheckSimFault(fault);
    const uint32_t number = mtFaults.Inject(fault);
    Post([this, text = TextOf(fault)](tsRunning& running) {
        mtLedger.Raise(teSimEvent::eFault, "fault injected: " + text);
        if (const auto client = running.client) client->FaultsCome();
    });
    return number;
}

size_t tcSimServer::tcImplementation::Lift(const std::function<bool(const tsSimFaultState&)>& which)
{
    const std::vector<tsSimFault> lifted = mtFaults.Lift(which);
    for (const tsSimFault& fault : lifted) {
        Post([this, fault](tsRunning& running) {
            mtLedger.Raise(teSimEvent::eFault, "fault lifted: " + TextOf(fault));
            Relieve(running, fault.kind);
        });
    }
    return lifted.size();
}

void tcSimServer::tcImplementation::Relieve(tsRunning& running, teSimFault kind)
{
    if (const auto client = running.client) client->Relieve(kind);
    if (kind != teSimFault::eCoolerFailure) return;
    mtCamera.SetTime(CameraTime());
    mtCamera.RepairCooler();
}

void tcSimServer::tcImplementation::Accept(tsRunning& running)
{
    running.listener.async_accept(
        [this, &running](const std::error_code& error, asio::ip::tcp::socket socket) {
            if (!running.listener.is_open()) return;
            if (error) { // out of descriptors, most likely
                running.pause.expires_after(gtAcceptPause);
                running.pause.async_wait([this, &running](const std::error_code& stopped) {
                    if (!stopped && running.listener.is_open()) Accept(running);
                });
                return;
            }
            fcntl(socket.native_handle(), F_SETFD, FD_CLOEXEC);
            const std::shared_ptr<tcSimClient> client = running.client;
            const bool inUse = client && !client->HasLeft();
            const tpSimFault refusal = mtFaults.Refusal(inUse);
            if (refusal) mtLedger.Strikes(*refusal);
            if (refusal && refusal->silent)
                mtLedger.Count(&tsSimStatistics::refused);
            else if (inUse || refusal)
                TurnAway(running, std::move(socket));
            else
                Serve(running, std::move(socket));
            Accept(running);
        });
}

void tcSimServer::tcImplementation::Serve(tsRunning& running, asio::ip::tcp::socket socket)
{
    std::string name = NameOf(socket);
    running.client =
        std::make_shared<tcSimClient>(std::move(socket), running.context, std::move(name),
                                      [&running] { running.client.reset(); });
    running.client->Begin();
}

void tcSimServer::tcImplementation::TurnAway(tsRunning& running, asio::ip::tcp::socket socket)
{
    mtLedger.Count(&tsSimStatistics::refused);
    mtLedger.Raise(teSimEvent::eRefused, "client " + NameOf(socket) + " refused: in use");
    auto& all = running.turnedAway;
    all.erase(std::remove_if(all.begin(), all.end(), [](const auto& one) { return one->Ended(); }),
              all.end());
    if (all.size() >= gnMostTurnedAway) return;
    mtLedger.Count(&tsSimStatistics::cameraErrors);
    all.push_back(std::make_shared<tcSimTurnAway>(std::move(socket)));
    all.back()->Begin();
}

// The port stays taken meanwhile, so that nobody else gets it; connections to it are refused.
void tcSimServer::tcImplementation::Reboot(tsRunning& running, const tsSimFault& how)
{
    std::error_code ignored;
    const uint16_t port = mnPort;
    running.listener.close(ignored);
    if (const auto client = running.client) client->Break();
    if (running.discovery) running.discovery->Close();
    if (how.rows > 0) {
        mtIdentity.rows = static_cast<uint16_t>(how.rows);
        mtIdentity.columns = static_cast<uint16_t>(how.columns);
    }
    Bind(running, port);
    running.down.expires_after(std::chrono::duration_cast<std::chrono::steady_clock::duration>(
        std::chrono::duration<double>(std::max(how.seconds, 0.001))));
    running.down.async_wait([this, &running](const std::error_code& error) {
        if (!error) ComeBack(running);
    });
}

void tcSimServer::tcImplementation::ComeBack(tsRunning& running)
{
    running.worker.Resize(mtIdentity.rows, mtIdentity.columns);
    mtCamera.SetTime(CameraTime());
    mtCamera.PowerUp(mtIdentity);
    running.discovery.reset();
    running.listener.listen();
    BeFound(running);
    mtLedger.Raise(teSimEvent::eListening,
                   "listening on " + mtOptions.bind + ":" + std::to_string(mnPort));
    Accept(running);
}

tcSimServer::tcSimServer(tsSimOptions options)
    : mpImplementation(std::make_unique<tcImplementation>(std::move(options)))
{}

tcSimServer::~tcSimServer() = default;

uint16_t tcSimServer::Start()
{
    return mpImplementation->Start();
}

void tcSimServer::Stop()
{
    mpImplementation->Stop();
}

uint16_t tcSimServer::Port() const
{
    return mpImplementation->mnPort;
}

uint16_t tcSimServer::DiscoveryPort() const
{
    return mpImplementation->mnDiscoveryPort;
}

uint32_t tcSimServer::Inject(const tsSimFault& fault)
{
    return mpImplementation->Inject(fault);
}

size_t tcSimServer::Lift(const std::function<bool(const tsSimFaultState&)>& which)
{
    return mpImplementation->Lift(which);
}

std::vector<tsSimFaultState> tcSimServer::Faults() const
{
    return mpImplementation->Faults();
}

tsSimStatistics tcSimServer::Statistics() const
{
    return mpImplementation->Ledger().Statistics();
}

std::vector<tsSimFrame> tcSimServer::Frames() const
{
    return mpImplementation->Ledger().Frames();
}
