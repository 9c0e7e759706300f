#include "simulation/simulator.h"

#include <vxcamkit/error.h>

#include "tcSimServer.h"

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

} // namespace

Simulator::Simulator(const SimulatorOptions& options)
try : server_(std::make_unique<tcSimServer>(optionsOf(options))) {
} catch (const std::runtime_error& error) {
    throw Error(ErrorKind::Usage, std::string("simulated camera: ") + error.what());
}

Simulator::~Simulator() = default;

uint16_t Simulator::start()
{
    try {
        return server_->Start();
    } catch (const std::runtime_error& error) {
        throw Error(ErrorKind::NotFound, std::string("simulated camera: ") + error.what());
    }
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

std::optional<uint64_t> Simulator::sumOf(uint32_t frame) const
{
    const std::vector<tsSimFrame> frames = server_->Frames();
    for (auto known = frames.rbegin(); known != frames.rend(); ++known) {
        if (known->readout != frames.back().readout) break;
        if (known->frame == frame && known->complete) return known->pixelSum;
    }
    return std::nullopt;
}

} // namespace vxcam
