#include "simulation/simulator.h"

#include <vxcamkit/error.h>

#include "tcSimServer.h"

#include <unistd.h>

#include <atomic>
#include <map>
#include <mutex>
#include <stdexcept>

namespace vxcam {

namespace {

constexpr int kMostSide = 16384;

tsSimOptions optionsOf(const SimulatorOptions& options)
{
    const Size& sensor = options.sensor;
    if (!Area{0, 0, sensor.columns, sensor.rows}.fits({kMostSide, kMostSide})) {
        throw Error(ErrorKind::Usage,
                    "its sensor has 1 to " + std::to_string(kMostSide) + " columns and rows, not " +
                        std::to_string(sensor.columns) + " x " + std::to_string(sensor.rows));
    }
    tsSimOptions result;
    result.columns = static_cast<uint16_t>(options.sensor.columns);
    result.rows = static_cast<uint16_t>(options.sensor.rows);
    result.seed = options.seed;
    result.timeScale = options.timeScale;
    result.heartbeatSeconds = options.heartbeatSeconds;
    result.faults = ParseSimFaults(options.faults);
    result.faultSeed = options.faultSeed;
    return result;
}

// The simulated cameras of a process that listen, by their ports. A forked child has its own: of
// those of its parent it has no threads, and maybe a lock that nobody gives back.
struct Listening {
    std::mutex lock;
    std::map<uint16_t, std::shared_ptr<SimulatorWitness>> witnesses;
    const pid_t process = ::getpid();
    const Listening* parents = nullptr;
};

Listening& listening()
{
    static std::atomic<Listening*> present{new Listening};
    Listening* before = present;
    if (before->process == ::getpid()) return *before;
    auto fresh = std::make_unique<Listening>();
    fresh->parents = before;
    return present.compare_exchange_strong(before, fresh.get()) ? *fresh.release() : *before;
}

} // namespace

class Simulator::Witness : public SimulatorWitness
{
public:
    Witness(const tcSimServer* server, double timeScale) : server_(server), timeScale_(timeScale) {}

    double timeScale() const override { return timeScale_; }

    std::optional<uint64_t> sumOf(uint32_t frame) const override
    {
        const std::lock_guard<std::mutex> guard(lock_);
        if (server_ == nullptr) return std::nullopt;
        const std::vector<tsSimFrame> frames = server_->Frames();
        for (auto known = frames.rbegin(); known != frames.rend(); ++known) {
            if (known->readout != frames.back().readout) break;
            if (known->frame == frame && known->complete) return known->pixelSum;
        }
        return std::nullopt;
    }

    void end()
    {
        const std::lock_guard<std::mutex> guard(lock_);
        server_ = nullptr;
    }

private:
    mutable std::mutex lock_;
    const tcSimServer* server_; // null: it has ended
    const double timeScale_;
};

Simulator::Simulator(const SimulatorOptions& options)
try : server_(std::make_unique<tcSimServer>(optionsOf(options))),
    witness_(std::make_shared<Witness>(server_.get(), options.timeScale)) {
} catch (const std::runtime_error& error) {
    throw Error(ErrorKind::Usage, std::string("simulated camera: ") + error.what());
}

Simulator::~Simulator()
{
    witness_->end();
    Listening& here = listening();
    const std::lock_guard<std::mutex> guard(here.lock);
    for (auto one = here.witnesses.begin(); one != here.witnesses.end(); ++one) {
        if (one->second != witness_) continue;
        here.witnesses.erase(one);
        break;
    }
}

uint16_t Simulator::start()
{
    uint16_t port = 0;
    try {
        port = server_->Start();
    } catch (const std::runtime_error& error) {
        throw Error(ErrorKind::NotFound, std::string("simulated camera: ") + error.what());
    }
    const std::lock_guard<std::mutex> guard(listening().lock);
    listening().witnesses[port] = witness_;
    return port;
}

std::shared_ptr<SimulatorWitness> Simulator::witnessAt(const std::string& host, uint16_t port)
{
    if (host != "127.0.0.1" && host != "localhost") return nullptr;
    Listening& here = listening();
    const std::lock_guard<std::mutex> guard(here.lock);
    const auto found = here.witnesses.find(port);
    return found == here.witnesses.end() ? nullptr : found->second;
}

std::vector<SentFrame> Simulator::frames() const
{
    const auto utc = [](const tsSimMoment& moment) {
        return UtcTime(std::chrono::nanoseconds(moment.realtime));
    };
    std::vector<SentFrame> frames;
    for (const tsSimFrame& known : server_->Frames()) {
        SentFrame frame;
        frame.readout = known.readout;
        frame.frame = known.frame;
        frame.rows = static_cast<int>(known.rows);
        frame.columns = static_cast<int>(known.columns);
        frame.bits = static_cast<int>(known.bits);
        frame.sum = known.pixelSum;
        frame.crc = known.crc;
        frame.sentSum = known.sent.pixelSum;
        frame.sentCrc = known.sent.crc;
        frame.complete = known.complete;
        frame.intact = known.sent.intact;
        frame.begin = utc(known.begin);
        frame.end = utc(known.end);
        frames.push_back(frame);
    }
    return frames;
}

void Simulator::inject(const std::string& fault)
{
    try {
        for (const tsSimFault& one : ParseSimFaults({fault})) {
            server_->Inject(one);
        }
    } catch (const std::runtime_error& error) {
        throw Error(ErrorKind::Usage, std::string("simulated camera: ") + error.what());
    }
}

} // namespace vxcam
