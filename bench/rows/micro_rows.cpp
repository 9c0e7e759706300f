// P1 to F2: pieces of the library alone, through Google Benchmark.
#include "config_rows.h"
#include "rows.h"

#include "CrcCalc.h"
#include "tcCamParser.h"
#include "tcLog.h"
#include "tcLogConsumer.h"
#include "tcVXCamera.h"
#include "vxmessages.h"

#include <benchmark/benchmark.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/sinks/ringbuffer_sink.h>
#include <spdlog/spdlog.h>
#include <zlib.h>

#include <cstring>
#include <map>
#include <thread>
#include <unistd.h>

namespace {

using tcBytes = std::vector<uint8_t>;

constexpr int gnChunk = 4096;

// ---- P1, D1: parser and dispatcher ------------------------------------------------------------

tcBytes PixelPacket(uint16_t columns)
{
    tcBytes packet(offsetof(tsPixelData16Msg, Pixels) + columns * 2u, 0x5A);
    tsPixelData16Msg head{};
    head.header.Magic = gnMessageMagic;
    head.header.Length = static_cast<uint16_t>(packet.size() - gnHeaderBytes);
    head.header.IDD = gnInterfaceVersion;
    head.header.MsgId = ansPixels16.id;
    head.PacketNumber = 1;
    head.TotalPackets = 2048;
    head.LastColumn = static_cast<uint16_t>(columns - 1);
    memcpy(packet.data(), &head, offsetof(tsPixelData16Msg, Pixels));
    return packet;
}

tcBytes Stream()
{
    const tcBytes packet = PixelPacket(2048);
    tcBytes stream;
    for (int i = 0; i < 64; ++i) {
        stream.insert(stream.end(), packet.begin(), packet.end());
    }
    return stream;
}

void ParserOurs(benchmark::State& state)
{
    tcBytes stream = Stream();
    tcCamParser parser(nullptr, gnLargestMessage, false);
    parser.RegisterCallback([](int, void*, int, unsigned, void*) { return true; }, nullptr);
    for (auto _ : state) {
        for (size_t at = 0; at < stream.size(); at += gnChunk) {
            parser.AddData(stream.data() + at,
                           static_cast<int>(std::min<size_t>(gnChunk, stream.size() - at)));
        }
    }
}

void ParserReference(benchmark::State& state)
{
    const tcBytes stream = Stream();
    tcBytes to(gnLargestMessage);
    for (auto _ : state) {
        for (size_t at = 0; at < stream.size(); at += gnChunk) {
            memcpy(to.data(), stream.data() + at, std::min<size_t>(gnChunk, stream.size() - at));
            benchmark::ClobberMemory();
        }
    }
}

class tcSilentCamera : public tcVXCamera
{
public:
    ~tcSilentCamera() override { StopMonitor(); }
    int SendMessage(tsMsgHeader*) override { return 0; }
};

void DispatcherOurs(benchmark::State& state)
{
    tcSilentCamera camera;
    tuCameraMessages hardware{};
    hardware.header.Length = sizeof(TVXCameraHardware);
    hardware.header.IDD = gnInterfaceVersion;
    hardware.header.MsgId = ansHardware.id;
    hardware.Hardware.payload.Rows = hardware.Hardware.payload.Columns = 2048;
    camera.InitReqStackItem(eItemHardware, 1);
    camera.CallBackParser(&hardware, true, true);
    std::vector<uint16_t> image(2048 * 2048);
    camera.ReadCCDArea(image.data(), 1, 0);
    const tcBytes packet = PixelPacket(2048);
    tuCameraMessages message;
    memcpy(&message, packet.data(), packet.size());
    message.Pixels16.PacketNumber = 2; // not the last one of the frame
    for (auto _ : state) {
        message.Pixels16.Row = (message.Pixels16.Row + 1) % 64;
        camera.CallBackParser(&message, true, true);
    }
}

void DispatcherReference(benchmark::State& state)
{
    std::vector<uint16_t> image(2048 * 2048);
    const tcBytes packet = PixelPacket(2048);
    size_t row = 0;
    for (auto _ : state) {
        row = (row + 1) % 64;
        memcpy(image.data() + row * 2048, packet.data() + 28, 4096);
        benchmark::ClobberMemory();
    }
}

// ---- G1 to G3: logging ------------------------------------------------------------------------

void GateOurs(benchmark::State& state)
{
    static tcLog& log = *new tcLog("BENCHGATE", 0);
    int i = 0;
    for (auto _ : state) {
        log.logDebug(5, "value %d of %s", ++i, "something");
        benchmark::ClobberMemory();
    }
}

void GateReference(benchmark::State& state)
{
    static auto log =
        std::make_shared<spdlog::logger>("gate", std::make_shared<spdlog::sinks::null_sink_mt>());
    log->set_level(spdlog::level::info);
    int i = 0;
    for (auto _ : state) {
        log->debug("value {} of {}", ++i, "something");
        benchmark::ClobberMemory();
    }
}

void FileOurs(benchmark::State& state)
{
    static tcLog& log = [&]() -> tcLog& {
        auto* made = new tcLog("BENCHFILE", 5);
        made->SetConsumer(tcLog::BuildConsumer("file:vxbench-ours.log"));
        return *made;
    }();
    int i = 0;
    for (auto _ : state) {
        log.logDebug(1, "record %d of %s", ++i, "something");
    }
    state.SetItemsProcessed(state.iterations());
}

void FileReference(benchmark::State& state)
{
    static auto log = [] {
        auto made = std::make_shared<spdlog::logger>(
            "file", std::make_shared<spdlog::sinks::basic_file_sink_mt>("vxbench-reference.log"));
        made->flush_on(spdlog::level::trace);
        return made;
    }();
    int i = 0;
    for (auto _ : state) {
        log->info("record {} of {}", ++i, "something");
    }
    state.SetItemsProcessed(state.iterations());
}

void BufferOurs(benchmark::State& state)
{
    static tcLog& log = [&]() -> tcLog& {
        auto* made = new tcLog("BENCHBUFF", 5);
        made->SetConsumer(tcLog::BuildConsumer("buff:1000"));
        return *made;
    }();
    int i = 0;
    for (auto _ : state) {
        log.logDebug(1, "record %d of %s", ++i, "something");
    }
}

void BufferReference(benchmark::State& state)
{
    static auto log = std::make_shared<spdlog::logger>(
        "ring", std::make_shared<spdlog::sinks::ringbuffer_sink_mt>(1000));
    int i = 0;
    for (auto _ : state) {
        log->info("record {} of {}", ++i, "something");
    }
}

// ---- C1: CRC ----------------------------------------------------------------------------------

const tcBytes& CrcData()
{
    static const tcBytes data = [] {
        tcBytes bytes(64 << 20);
        for (size_t i = 0; i < bytes.size(); ++i) {
            bytes[i] = static_cast<uint8_t>(i * 2654435761u >> 13);
        }
        return bytes;
    }();
    return data;
}

void CrcOurs(benchmark::State& state)
{
    const tcBytes& data = CrcData();
    CrcCalc crc(static_cast<Crst>(1));
    for (auto _ : state) {
        benchmark::DoNotOptimize(crc.Add(crc.Init(), PData{data.size(), data.data()}));
    }
}

void CrcReference(benchmark::State& state)
{
    const tcBytes& data = CrcData();
    for (auto _ : state) {
        benchmark::DoNotOptimize(crc32(0, data.data(), static_cast<uInt>(data.size())));
    }
}

// ---- Running them -----------------------------------------------------------------------------

struct tsPart {
    const char* row;
    const char* what;
    const char* unit;
    bool higherIsBetter;
    double scale; // figure = scale / seconds, or seconds * scale for times
    void (*ours)(benchmark::State&);
    void (*reference)(benchmark::State&);
    int threads;
};

// Collects the seconds an iteration took, by name.
class tcCollector : public benchmark::BenchmarkReporter
{
public:
    bool ReportContext(const Context&) override { return true; }
    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs) {
            if (run.run_type != Run::RT_Iteration) continue;
            mSeconds[run.run_name.function_name].push_back(run.real_accumulated_time /
                                                           static_cast<double>(run.iterations));
        }
    }
    std::map<std::string, std::vector<double>> mSeconds;
};

tsRow RowOf(const tsPart& part, std::vector<double> ours, std::vector<double> reference)
{
    std::vector<double> ratio;
    const auto figure = [&part](double seconds) {
        return part.higherIsBetter ? part.scale / seconds : seconds * part.scale;
    };
    for (size_t i = 0; i < ours.size(); ++i) {
        ours[i] = figure(ours[i]);
        reference[i] = figure(reference[i]);
        ratio.push_back(ours[i] / reference[i]);
    }
    return {part.row,         part.what, part.unit,          Summarise(ours), Summarise(reference),
            Summarise(ratio), true,      part.higherIsBetter};
}

} // namespace

void MeasureParts(tcTable& table, const tsRowChoice& choice, const tsBenchOptions& options)
{
    const double streamMB = static_cast<double>(Stream().size()) / 1e6;
    const tsPart parts[] = {
        {"P1", "parser, 4096-byte chunks, memcpy", "MB/s", true, streamMB, ParserOurs,
         ParserReference, 1},
        {"D1", "dispatcher, a row of 2048 pixels, memcpy", "MB/s", true, 4096 / 1e6, DispatcherOurs,
         DispatcherReference, 1},
        {"G1", "debug call that fails its gate, spdlog", "ns", false, 1e9, GateOurs, GateReference,
         1},
        {"G2", "record into a file, 1 thread, spdlog", "records/s", true, 1, FileOurs,
         FileReference, 1},
        {"G2", "record into a file, 8 threads, spdlog", "records/s", true, 1, FileOurs,
         FileReference, 8},
        {"G3", "record into a buffer of 1000 lines, spdlog", "records/s", true, 1, BufferOurs,
         BufferReference, 1},
        {"C1", "CRC-32 over 64 MiB, zlib", "MB/s", true, 67.108864, CrcOurs, CrcReference, 1},
        {"F1", "configuration of 100,000 items loaded, inih", "ms", false, 1e3, LoadOurs,
         LoadReference, 1},
        {"F2", "configuration lookups, std::map", "lookups/s", true, 1, LookupOurs, LookupReference,
         1},
    };
    std::vector<const tsPart*> chosen;
    for (const tsPart& part : parts) {
        if (!choice.Wants(part.row)) continue;
        chosen.push_back(&part);
        const std::string name = std::to_string(chosen.size() - 1);
        for (bool isOurs : {true, false}) {
            benchmark::RegisterBenchmark(((isOurs ? "ours" : "reference") + name).c_str(),
                                         isOurs ? part.ours : part.reference)
                ->Threads(part.threads)
                ->UseRealTime()
                ->MinTime(options.quick ? 0.005 : 0.15)
                ->Repetitions(options.repeats);
        }
    }
    if (chosen.empty()) return;
    fprintf(stderr, "parts alone ...\n");
    char program[] = "vxbench", interleave[] = "--benchmark_enable_random_interleaving=true";
    char* arguments[] = {program, interleave, nullptr};
    int count = 2;
    benchmark::Initialize(&count, arguments);
    tcCollector collector;
    benchmark::RunSpecifiedBenchmarks(&collector);
    for (size_t i = 0; i < chosen.size(); ++i) {
        const std::string name = std::to_string(i);
        table.Add(RowOf(*chosen[i], collector.mSeconds["ours" + name],
                        collector.mSeconds["reference" + name]));
    }
    for (const char* left : {"vxbench-ours.log", "vxbench-reference.log", "vxbench-config.dat"}) {
        unlink(left);
    }
}
