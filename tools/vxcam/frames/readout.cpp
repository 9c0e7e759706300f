#include "readout.h"

#include "arguments.h"
#include "failure.h"
#include "interrupt.h"
#include "report.h"

#include <vxcamkit/error.h>
#include <vxcamkit/fits.h>

#include <algorithm>
#include <filesystem>
#include <utility>

namespace {

using tpMilliseconds = std::chrono::milliseconds;

constexpr tpMilliseconds gnPoll(50);
constexpr tpMilliseconds gnUsualTimeout(20000);
// Frames on their way to the disk: as many as keep it busy, but of large ones only some.
constexpr size_t gnMostUnderWay = 8, gnLeastUnderWay = 4;
constexpr size_t gnBytesUnderWay = size_t{256} << 20U;

} // namespace

tcReadout::tcReadout(vxcam::Camera& camera, const vxcam::Plan& plan, tsReadoutOptions options)
    : mCamera(camera), mtPlan(plan), mtOptions(std::move(options)), mStream(camera.stream(plan)),
      mWriter(WriterOptions())
{}

vxcam::WriterOptions tcReadout::WriterOptions()
{
    vxcam::WriterOptions options;
    options.header = mtOptions.header;
    options.force = mtOptions.force;
    options.most = gnMostUnderWay;
    const auto wake = [this] {
        std::lock_guard<std::mutex> lock(mLock);
        mChanged.notify_all();
    };
    options.whenDone = wake;
    options.whenWritten = [this, wake](const vxcam::WrittenFrame&) {
        ++mnWritten;
        wake();
    };
    return options;
}

tpMilliseconds tcReadout::Exposure() const
{
    if (maTaken.empty()) {
        const auto onWall = std::chrono::duration<double, std::milli>(mStream.progress().exposure);
        return std::chrono::duration_cast<tpMilliseconds>(onWall * mCamera.timeScale());
    }
    return std::chrono::duration_cast<tpMilliseconds>(maTaken.front().facts.exposure);
}

std::vector<tsGrabbed> tcReadout::Written() const
{
    const std::vector<vxcam::WrittenFrame> written = mWriter.written();
    std::vector<tsGrabbed> frames;
    for (size_t i = 0; i < written.size(); ++i) {
        frames.push_back(maTaken[i]);
        std::vector<std::string>& warnings = frames.back().warnings;
        warnings.insert(warnings.end(), written[i].warnings.begin(), written[i].warnings.end());
    }
    return frames;
}

void tcReadout::Run(tcProgress& progress)
{
    std::exception_ptr failure;
    try {
        while (Step(progress)) {
        }
    } catch (const vxcam::Error&) {
        failure = std::current_exception();
    }
    progress.Clear();
    mStream.stop();
    try {
        WriteAll();
    } catch (const vxcam::Error&) {
        if (!failure) throw;
    }
    if (failure) std::rethrow_exception(failure);
    if (mtOptions.toOutput) PrintBytes(mPrinted.data(), mPrinted.size());
}

// False when the last frame was taken, or no more can be written.
bool tcReadout::Step(tcProgress& progress)
{
    ThrowIfInterrupted();
    if (mWriter.hasFailed()) return false;
    if (const size_t most = MostUnderWay(); UnderWay() >= most) {
        WaitForWriter(most);
        return true;
    }
    ShowProgress(progress);
    const bool isRunning = mStream.end() == vxcam::ReadoutEnd::Running;
    try {
        std::optional<vxcam::Frame> frame = mStream.next(isRunning ? gnPoll : tpMilliseconds(0));
        if (!frame) return false;
        Take(std::move(*frame));
    } catch (const vxcam::Error& error) {
        if (error.kind() != vxcam::ErrorKind::Timeout) throw;
        if (!isRunning) throw vxcam::Error(error.kind(), SilenceText());
    }
    return true;
}

// A preview is made first, and a frame's file comes last: whoever sees it has both.
void tcReadout::Take(vxcam::Frame frame)
{
    const size_t number = maTaken.size();
    frame = WithTemperature(std::move(frame));
    tsGrabbed grabbed;
    grabbed.facts = frame.facts();
    grabbed.figures = vxcam::figuresOf(frame);
    std::vector<vxcam::HeaderCard> cards;
    if (mtOptions.measure) {
        grabbed.measures = vxcam::measuresOf(frame);
        cards = vxcam::cardsOf(*grabbed.measures);
    }
    grabbed.file = mtOptions.files.at(number);
    std::vector<vxcam::FramePath> paths;
    if (!mtOptions.previews.empty()) {
        grabbed.preview = mtOptions.previews.at(number);
        paths.push_back({grabbed.preview, vxcam::FileFormat::Preview});
    }
    if (mtOptions.toOutput) {
        vxcam::HeaderOptions header = mtOptions.header;
        header.cards.insert(header.cards.end(), cards.begin(), cards.end());
        mPrinted = vxcam::makeFits(frame, header, &grabbed.warnings);
    } else {
        paths.push_back({grabbed.file, vxcam::FileFormat::Fits});
    }
    maTaken.push_back(std::move(grabbed));
    mWriter.write(std::move(frame), std::move(paths), std::move(cards));
}

// A frame that came before the first heartbeat has its temperature as soon as that is known.
vxcam::Frame tcReadout::WithTemperature(vxcam::Frame frame) const
{
    if (frame.facts().sensorTemperature) return frame;
    vxcam::FrameFacts facts = frame.facts();
    try {
        const vxcam::Value sensor = mCamera.get("ccd-temp"), board = mCamera.get("board-temp");
        if (sensor.isNothing() || board.isNothing()) return frame;
        facts.sensorTemperature = sensor.toDouble();
        facts.boardTemperature = board.toDouble();
    } catch (const vxcam::Error&) {
        return frame; // what is wrong with the camera, the readout tells
    }
    const auto holder = std::make_shared<vxcam::Frame>(std::move(frame));
    return vxcam::Frame(std::move(facts), {holder, const_cast<void*>(holder->data())});
}

void tcReadout::WriteAll()
{
    while (UnderWay() > 0 && !mWriter.hasFailed()) {
        ThrowIfInterrupted();
        WaitForWriter(1);
    }
    mWriter.finish();
}

// Where the disk is nearly full, one frame after the other, so that none takes the room of the one
// before it.
size_t tcReadout::MostUnderWay() const
{
    if (maTaken.empty()) return gnMostUnderWay;
    const vxcam::FrameFacts& facts = maTaken.back().facts;
    const auto bytes = size_t(facts.columns) * size_t(facts.rows) * size_t(facts.bits) / 8;
    const std::filesystem::path folder = std::filesystem::path(maTaken.back().file).parent_path();
    std::error_code error;
    const auto space = std::filesystem::space(folder.empty() ? "." : folder, error);
    if (!error && space.available / bytes < 2 * gnMostUnderWay) return 1;
    return std::clamp(gnBytesUnderWay / bytes, gnLeastUnderWay, gnMostUnderWay);
}

// Until fewer are under way, nothing more is written, or it is time to look for signals.
void tcReadout::WaitForWriter(size_t most)
{
    std::unique_lock<std::mutex> lock(mLock);
    mChanged.wait_for(lock, gnPoll, [&] { return UnderWay() < most || mWriter.hasFailed(); });
}

std::string tcReadout::SilenceText() const
{
    const tpMilliseconds patience = mtPlan.timeout.value_or(gnUsualTimeout);
    return "no image: the camera was silent for " +
           DurationText(mStream.progress().exposure + patience);
}

void tcReadout::ShowProgress(tcProgress& progress) const
{
    using Phase = vxcam::Progress::Phase;
    const vxcam::Progress now = mStream.progress();
    const std::string which =
        mtPlan.frames > 1 ? " " + std::to_string(now.frame) + "/" + std::to_string(mtPlan.frames)
                          : "";
    switch (now.phase) {
    case Phase::Waiting:
        progress.Show("waiting" + which, 0, "for a trigger");
        return;
    case Phase::Exposing:
        progress.Show("exposing" + which, now.done, PassedText(now.elapsed, now.exposure));
        return;
    case Phase::Exposed:
        progress.Show("exposed" + which, 1, "waiting for the image");
        return;
    case Phase::Reading:
        progress.Show("reading" + which, now.done,
                      std::to_string(static_cast<int>(now.done * 100)) + " %");
        return;
    case Phase::Ended:
        progress.Show("writing", 1, "");
        return;
    }
}
