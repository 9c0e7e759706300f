// vxcam record: keeps frames in one file, at the rate at which they come.
#include "arguments.h"
#include "complaints.h"
#include "failure.h"
#include "headeroptions.h"
#include "interrupt.h"
#include "planoptions.h"
#include "program.h"
#include "report.h"
#include "tcProgress.h"

#include <vxcamkit/camera.h>
#include <vxcamkit/fits.h>
#include <vxcamkit/recorder.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>

const char* const gsRecordExamples =
    R"(  vxcam record 192.168.1.20:2000 -o night.h5              until Ctrl-C
  vxcam record 192.168.1.20:2000 -o night.fits --for 10min a FITS cube
  vxcam record serial:1207 -o run.raw --frames 5000 --split 2GB
  vxcam record sim -e 10ms --frames 100 -o sim.h5 --compress gzip
  vxcam record sim -o fast.h5 --when-full drop --buffer 1GiB --json)";

namespace {

using tpClock = std::chrono::steady_clock;
using tpMilliseconds = std::chrono::milliseconds;

constexpr int gnMostOfReadout = 32767;
constexpr int gnMostFrames = 2000000000;
constexpr tpMilliseconds gnPoll(50);
constexpr uint64_t gnUsualBuffer = uint64_t{256} << 20U;
constexpr uint64_t gnFewestBuffers = 4, gnMostBuffers = 1000; // of a frame each
constexpr double gnMega = 1e6;
constexpr size_t gnMostPrinted = 20; // files

class tcRecord : public tcVerb
{
public:
    void Declare(tcCommandLine& line) override;
    void Run() override;
    nlohmann::ordered_json Document() const override { return mDocument; }

private:
    void CheckArguments();
    void WarnOfHeader() const;
    uint64_t FrameBytes(const vxcam::Size& sensor) const; // at most
    void DivideBuffer(uint64_t frameBytes);
    void RequireBits() const;
    void RequireRoom(uint64_t frameBytes) const;
    void Record(vxcam::Camera& camera, tcProgress& progress);
    bool Step(vxcam::Stream& stream, vxcam::Recorder& recorder, tcProgress& progress);
    bool IsOver() const;
    void TakeRest(vxcam::Stream& stream, vxcam::Recorder& recorder);
    void Show(const vxcam::Stream& stream, const vxcam::Recorder& recorder, tcProgress& progress);
    void Describe(const vxcam::Camera& camera, const vxcam::RecordBooks& books);
    void Print(const vxcam::RecordBooks& books) const;

    tsCommonOptions mtCommon;
    tcPlanOptions mPlanOptions;
    tcHeaderOptions mHeaderOptions;
    std::string msOutput, msFor, msSplit, msBuffer, msCompress = "none", msWhenFull = "wait";
    int mnFrames = 0;
    bool mbAllowIncomplete = false, mbMeasure = false;

    vxcam::Plan mtPlan;
    vxcam::RecordOptions mtOptions;
    std::optional<tpMilliseconds> mFor;
    uint64_t mnTaken = 0;
    tpClock::time_point mStart, mEnd;
    nlohmann::ordered_json mDocument = nlohmann::ordered_json::object();
};

void tcRecord::Declare(tcCommandLine& line)
{
    DeclareCommon(line, &mtCommon);
    mPlanOptions.DeclareExposure(line);
    line.Option("-n,--frames", &mnFrames, "NUMBER", "ends after so many frames; 0: with Ctrl-C")
        .Within(0, gnMostFrames);
    line.Option("--for", &msFor, "TIME", "ends after this time");
    mPlanOptions.DeclareReadout(line);
    line.Flag("--allow-incomplete", &mbAllowIncomplete,
              "frames of which packets are missing are no failure");
    line.Option("-o,--output", &msOutput, "FILE",
                "where the frames go; its ending says how: .h5, .fits, .tif, .ser, .raw")
        .Required();
    line.Option("--compress", &msCompress, "HOW", "none, gzip or rice")
        .OneOf({"none", "gzip", "rice"});
    line.Option("--split", &msSplit, "SIZE", "begins another file when one is so large: 2GB");
    line.Flag("--measure", &mbMeasure, "keep level, noise and stars of each frame beside it");
    line.Option("--buffer", &msBuffer, "SIZE", "memory for frames that wait; 256MiB");
    line.Option("--when-full", &msWhenFull, "HOW",
                "when it is full: wait holds the camera back, drop loses frames")
        .OneOf({"wait", "drop"});
    mHeaderOptions.Declare(line);
    line.Flag("--json", &mbJson, "print one JSON document");
}

void tcRecord::CheckArguments()
{
    mtPlan = mPlanOptions.Plan();
    mtPlan.frames = mnFrames > gnMostOfReadout ? 0 : mnFrames;
    if (msWhenFull == "drop") mtPlan.whenFull = vxcam::WhenFull::DropNewest;
    if (!msFor.empty()) mFor = ParseDuration(msFor);
    if (mFor && mFor->count() <= 0) throw tcFailure(eExitUsage, "--for 0: longer than that");
    if (!msSplit.empty()) mtOptions.split = ParseBytes(msSplit);
    if (!msBuffer.empty()) ParseBytes(msBuffer);
    if (msCompress == "gzip") mtOptions.compression = vxcam::Compression::Gzip;
    if (msCompress == "rice") mtOptions.compression = vxcam::Compression::Rice;
    mtOptions.force = mHeaderOptions.Force();
    mtOptions.header = mHeaderOptions.Header(mbMeasure);
    TargetOf(mtCommon);
    vxcam::checkRecord(msOutput, mtOptions);
}

// What the header of a FITS file cannot say as it was given; of the camera's name, when it is
// known.
void tcRecord::WarnOfHeader() const
{
    if (vxcam::recordFormatOf(msOutput) != vxcam::RecordFormat::Fits) return;
    std::vector<vxcam::HeaderCard> cards = mtOptions.header.cards;
    cards.push_back({"INSTRUME", mtOptions.header.instrument, ""});
    for (const vxcam::HeaderCard& card : cards) {
        for (const std::string& warning : vxcam::fitsWarnings(card)) {
            PrintWarning(msOutput + ": " + warning);
        }
    }
}

// Of the plan, whose kind is known by now.
uint64_t tcRecord::FrameBytes(const vxcam::Size& sensor) const
{
    uint64_t pixels = uint64_t(sensor.columns) * uint64_t(sensor.rows);
    if (mtPlan.area) pixels = uint64_t(mtPlan.area->columns) * uint64_t(mtPlan.area->rows);
    const bool isArea = mtPlan.kind == vxcam::ReadoutKind::Area;
    return pixels * static_cast<uint64_t>(isArea ? mtPlan.bits : 32) / 8;
}

// Half of the buffers are the readout's, half hold what waits for the disk. The readout copies
// frames beyond its consumer's half, so one place of that is left to the frame under way.
void tcRecord::DivideBuffer(uint64_t frameBytes)
{
    const uint64_t copies = vxcam::recordCopies(msOutput, mtOptions);
    const uint64_t least = gnFewestBuffers + copies;
    const uint64_t wanted =
        msBuffer.empty() ? std::max(gnUsualBuffer, least * frameBytes) : ParseBytes(msBuffer);
    if (wanted / frameBytes < least) {
        throw tcFailure(eExitUsage, "--buffer " + msBuffer + ": at least " + std::to_string(least) +
                                        " frames of " + BytesText(frameBytes) +
                                        " must fit into it");
    }
    const uint64_t count = std::min(wanted / frameBytes - copies, gnMostBuffers);
    mtPlan.buffers = static_cast<int>(count);
    mtOptions.most = static_cast<size_t>(std::max(gnFewestBuffers / 2, (count - 1) / 2 - 1));
}

// Before an exposure that may be long.
void tcRecord::RequireBits() const
{
    const bool isArea = mtPlan.kind == vxcam::ReadoutKind::Area;
    if (vxcam::recordFormatOf(msOutput) != vxcam::RecordFormat::Ser ||
        (isArea && mtPlan.bits <= 16))
        return;
    throw tcFailure(eExitUsage, msOutput + ": SER files take pixels of 16 bits at most");
}

void tcRecord::RequireRoom(uint64_t frameBytes) const
{
    const uint64_t room = vxcam::recordRoom(msOutput);
    const bool isKnown = mnFrames > 0 && mtPlan.area && msCompress == "none";
    const uint64_t more = isKnown ? static_cast<uint64_t>(mnFrames) - 1 : 0;
    const uint64_t wanted = more * frameBytes + vxcam::recordNeeds(mtOptions, frameBytes);
    if (room >= wanted) return;
    throw tcFailure(eExitFile, msOutput + ": " + BytesText(wanted) +
                                   " are needed, and the disk has " + BytesText(room) + " left");
}

bool tcRecord::IsOver() const
{
    const bool isLast = mnFrames > 0 && mnTaken >= static_cast<uint64_t>(mnFrames);
    return isLast || (mFor && tpClock::now() >= mStart + *mFor) || CaughtSignal() != 0;
}

// False at the end.
bool tcRecord::Step(vxcam::Stream& stream, vxcam::Recorder& recorder, tcProgress& progress)
{
    if (IsOver() || recorder.hasFailed()) return false;
    Show(stream, recorder, progress);
    const bool isRunning = stream.end() == vxcam::ReadoutEnd::Running;
    try {
        std::optional<vxcam::Frame> frame = stream.next(isRunning ? gnPoll : tpMilliseconds(0));
        if (!frame) return false;
        ++mnTaken;
        return recorder.write(std::move(*frame));
    } catch (const vxcam::Error& error) {
        if (error.kind() != vxcam::ErrorKind::Timeout || !isRunning) throw;
    }
    return true;
}

// What had come before the end belongs to the record.
void tcRecord::TakeRest(vxcam::Stream& stream, vxcam::Recorder& recorder)
{
    stream.stop();
    while (mnFrames == 0 || mnTaken < static_cast<uint64_t>(mnFrames)) {
        std::optional<vxcam::Frame> frame = stream.next(tpMilliseconds(0));
        if (!frame || !recorder.write(std::move(*frame))) return;
        ++mnTaken;
    }
}

void tcRecord::Show(const vxcam::Stream& stream, const vxcam::Recorder& recorder,
                    tcProgress& progress)
{
    if (!progress.IsDue()) return;
    const vxcam::RecordBooks books = recorder.books();
    const vxcam::StreamBooks readout = stream.books();
    const double seconds = std::chrono::duration<double>(tpClock::now() - mStart).count();
    const double rate = static_cast<double>(books.pixelBytes) / std::max(seconds, 1e-3);
    const uint64_t waiting = readout.complete + readout.incomplete - readout.taken + books.held;
    const double filled = static_cast<double>(waiting) / mtPlan.buffers;
    char figures[96];
    std::snprintf(figures, sizeof figures, "%.0f MB/s, buffer %.0f %%, %llu dropped", rate / gnMega,
                  std::min(filled, 1.0) * 100, static_cast<unsigned long long>(readout.dropped));
    std::string text = CountText(books.frames, "frame") + ", " + figures;
    if (books.diskLeft != ~uint64_t{0}) {
        text += ", " + BytesText(books.diskLeft) + " left";
        const double left = static_cast<double>(books.diskLeft) / std::max(rate, 1.0);
        constexpr double most = 1e6; // seconds
        if (rate > 0 && left < most) {
            text += " (" + DurationText(tpMilliseconds(static_cast<int64_t>(left) * 1000)) + ")";
        }
    }
    progress.Show("recording", filled, text);
}

void tcRecord::Describe(const vxcam::Camera& camera, const vxcam::RecordBooks& books)
{
    const double seconds = std::chrono::duration<double>(mEnd - mStart).count();
    mDocument["target"] = NameOf(camera);
    mDocument["files"] = nlohmann::ordered_json::array();
    for (const vxcam::RecordedFile& file : books.files) {
        mDocument["files"].push_back(
            {{"file", file.path}, {"frames", file.frames}, {"bytes", file.bytes}});
    }
    mDocument["frames"] = books.frames;
    mDocument["incomplete"] = books.incomplete;
    mDocument["dropped"] = books.dropped;
    mDocument["pixel_bytes"] = books.pixelBytes;
    mDocument["seconds"] = seconds;
    mDocument["mb_per_s"] = static_cast<double>(books.pixelBytes) / gnMega / seconds;
}

void tcRecord::Print(const vxcam::RecordBooks& books) const
{
    const size_t printed = std::min(books.files.size(), gnMostPrinted);
    for (size_t i = 0; i < printed; ++i) {
        const vxcam::RecordedFile& file = books.files[i];
        PrintLine(file.path + ": " + CountText(file.frames, "frame") + ", " +
                  BytesText(file.bytes));
    }
    if (printed < books.files.size()) {
        PrintLine("and " + std::to_string(books.files.size() - printed) + " files more, up to " +
                  books.files.back().path);
    }
    const double seconds = std::chrono::duration<double>(mEnd - mStart).count();
    char text[128];
    std::snprintf(text, sizeof text,
                  "%llu frames in %.1f s, %.0f MB/s; %llu dropped, %llu incomplete",
                  static_cast<unsigned long long>(books.frames), seconds,
                  static_cast<double>(books.pixelBytes) / gnMega / seconds,
                  static_cast<unsigned long long>(books.dropped),
                  static_cast<unsigned long long>(books.incomplete));
    PrintLine(text);
}

void tcRecord::Record(vxcam::Camera& camera, tcProgress& progress)
{
    const tcComplaints complaints(camera);
    vxcam::Recorder recorder(msOutput, mtOptions);
    if (mbMeasure) recorder.measure();
    const vxcam::Subscription listening = camera.onEvent([&](const vxcam::Event& event) {
        if (event.kind != vxcam::EventKind::Heartbeat) recorder.note(event);
    });
    mStart = tpClock::now();
    vxcam::Stream stream = camera.stream(mtPlan);
    std::exception_ptr failure;
    try {
        while (Step(stream, recorder, progress)) {
        }
        TakeRest(stream, recorder);
    } catch (const vxcam::Error&) {
        failure = std::current_exception();
    }
    progress.Clear();
    const bool isWhole = (mFor || mnFrames > 0) && CaughtSignal() == 0;
    const char* const how = failure ? "failed" : isWhole ? "complete" : "stopped";
    try {
        recorder.finish(how, stream.books().dropped);
    } catch (const vxcam::Error&) {
        if (!failure) failure = std::current_exception();
    }
    mEnd = tpClock::now();
    Describe(camera, recorder.books());
    if (!mbJson && !mtCommon.quiet) Print(recorder.books());
    if (failure) std::rethrow_exception(failure);
    ThrowIfInterrupted();
    if (mFor && recorder.books().frames == 0) {
        throw tcFailure(eExitTimeout,
                        msOutput + ": not made, since no frame came in " + DurationText(*mFor));
    }
    if (recorder.books().incomplete > 0 && !mbAllowIncomplete) {
        throw tcFailure(eExitCamera, std::to_string(recorder.books().incomplete) + " of " +
                                         std::to_string(recorder.books().frames) +
                                         " frames are incomplete");
    }
    if (const auto complaint = complaints.FirstOfReadout()) {
        throw tcFailure(eExitCamera, *complaint);
    }
}

void tcRecord::Run()
{
    CheckArguments();
    vxcam::Camera camera = OpenCamera(mtCommon);
    mPlanOptions.CheckAreas(mtPlan, camera.sensor());
    mtPlan.kind = camera.kindOf(mtPlan);
    RequireBits();
    const uint64_t frameBytes = FrameBytes(camera.sensor());
    DivideBuffer(frameBytes);
    RequireRoom(frameBytes);
    mtOptions.header.instrument = mHeaderOptions.InstrumentOf(camera);
    WarnOfHeader();
    tcProgress progress(!mtCommon.quiet);
    Record(camera, progress);
    camera.close();
    if (mbJson) PrintDocument(mDocument);
}

} // namespace

std::unique_ptr<tcVerb> MakeRecord()
{
    return std::make_unique<tcRecord>();
}
