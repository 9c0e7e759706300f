#include "readout.h"

#include "failure.h"
#include "interrupt.h"
#include "vxcamiface.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <new>

namespace {

using tpClock = std::chrono::steady_clock;
using tpMilliseconds = std::chrono::milliseconds;

constexpr tpMilliseconds gnPoll(50);
constexpr int gnSettleMs = 200; // at most, for a frame's callback to end
constexpr int gnPacketPixels32 = 4096;
constexpr size_t gnMostFrames = 8;
constexpr size_t gnMostBytes = size_t(256) << 20;

size_t BytesPerPixel(const tsReadoutPlan& plan)
{
    return plan.kind == teReadout::eArea ? sizeof(uint16_t) : sizeof(uint32_t);
}

template <class Pixel>
void CopyArea(const Pixel* buffer, int stride, const tsArea& area, std::vector<Pixel>* pixels)
{
    pixels->resize(static_cast<size_t>(area.columns) * area.rows);
    Pixel* to = pixels->data();
    for (int row = 0; row < area.rows; ++row) {
        const Pixel* from =
            buffer + static_cast<size_t>(area.firstRow + row) * stride + area.firstColumn;
        to = std::copy(from, from + area.columns, to);
    }
}

// Threads: built and driven on the main one; TakeFrame runs on the camera's.
// Locks: counters are atomics; the buffer belongs to the camera's thread while a readout runs.
class tcReadout
{
public:
    tcReadout(tcSession& session, const tsReadoutPlan& plan, tcFrameQueue& queue);
    ~tcReadout();
    tcReadout(const tcReadout&) = delete;
    tcReadout& operator=(const tcReadout&) = delete;

    void Start();
    bool Step(tcProgress& progress); // false when all frames have come

private:
    void TakeFrame(const tsImageData& image);
    bool CopyPixels(const tsImageData& image, tsFrame* frame);
    void ThrowIfOver();
    void ShowProgress(tcProgress& progress);
    tpMilliseconds Exposure() const; // of the wall clock

    tcSession& mSession;
    const tsReadoutPlan mtPlan;
    tcFrameQueue& mQueue;
    std::unique_ptr<void, void (*)(void*)> mpBuffer;
    std::atomic<int> mnTaken{0};
    std::atomic<bool> mbTaking{false};            // a frame is being copied, or waits for the queue
    std::atomic<const char*> mpTrouble{nullptr};  // with a frame, on the camera's thread
    std::chrono::system_clock::time_point mStart; // of the exposure under way
    std::atomic<tpClock::rep> mnExposing{0};      // the same, for the progress
    bool mbRunning = false;
};

// The memory is taken from the system as the camera fills it.
tcReadout::tcReadout(tcSession& session, const tsReadoutPlan& plan, tcFrameQueue& queue)
    : mSession(session), mtPlan(plan), mQueue(queue),
      mpBuffer(std::calloc(static_cast<size_t>(session.Sensor().columns) * session.Sensor().rows,
                           BytesPerPixel(plan)),
               std::free)
{
    if (!mpBuffer) throw tcFailure(eExitCamera, "no memory for an image of the sensor's size");
}

// After the abort, the library does not touch the buffer, and the queue holds nobody back.
tcReadout::~tcReadout()
{
    const bool isPending = VXisCameraReady(mSession.Handle()) != eVXOk;
    if (mbRunning && (isPending || mnTaken < mtPlan.frames)) VXAbortRead(mSession.Handle());
    mSession.OnImage(nullptr);
}

tpMilliseconds tcReadout::Exposure() const
{
    const double wall = static_cast<double>(mtPlan.exposure.count()) / mSession.TimeScale();
    return tpMilliseconds(static_cast<int64_t>(wall));
}

void tcReadout::Start()
{
    const int64_t patience = (Exposure() + mtPlan.timeout).count();
    const int64_t most = std::numeric_limits<int>::max();
    mSession.Require(VXOverrideImageTimout(mSession.Handle(), static_cast<int>(std::clamp<int64_t>(
                                                                  patience, 1, most))),
                     "time-out");
    mSession.OnImage([this](const tsImageData& image) {
        try {
            TakeFrame(image);
        } catch (const std::bad_alloc&) {
            mpTrouble = "no memory for a frame";
        }
    });
    mStart = std::chrono::system_clock::now();
    mnExposing = tpClock::now().time_since_epoch().count();
    mbRunning = true;
    const auto frames = static_cast<short>(mtPlan.frames);
    int result = eVXFailed;
    if (mtPlan.kind == teReadout::eArea) {
        result = VXReadCCDArea(mSession.Handle(), static_cast<unsigned short*>(mpBuffer.get()),
                               frames, 0);
    } else {
        auto* const read =
            mtPlan.kind == teReadout::eBinned ? VXReadCCDBinned : VXReadCCDMaskBinned;
        result = read(mSession.Handle(), static_cast<long*>(mpBuffer.get()), nullptr, frames, 0);
    }
    mSession.Require(result, "readout");
}

void tcReadout::TakeFrame(const tsImageData& image)
{
    const auto arrival = std::chrono::system_clock::now();
    if (mnTaken >= mtPlan.frames || image.ImageBuffer != mpBuffer.get()) return;
    mbTaking = true;
    tsFrame frame = mQueue.Empty();
    if (!CopyPixels(image, &frame)) {
        mpTrouble = "the camera sent a frame without a usable size";
        return;
    }
    frame.index = image.FrameIndex;
    frame.sensorArea = mtPlan.area;
    frame.isGrid = mtPlan.kind != teReadout::eMaskBinned;
    frame.imageType = image.ImageType;
    frame.statistic = image.Statistic;
    frame.framesDelivered = image.FramesDelivered;
    tsStatistics statistics{};
    VXGetStatistics(mSession.Handle(), &statistics, sizeof statistics);
    frame.packets = statistics.LastFramePackets;
    frame.packetsMissing = statistics.LastFrameMissing;
    frame.start = mStart;
    frame.arrival = mStart = arrival;
    frame.temperature = mSession.Temperature();
    const bool isTaken = mQueue.Push(std::move(frame)); // waits while the disk is behind
    mnExposing = tpClock::now().time_since_epoch().count();
    mbTaking = false;
    if (isTaken) ++mnTaken; // last: the main thread may end the readout now
}

bool tcReadout::CopyPixels(const tsImageData& image, tsFrame* frame)
{
    const int stride = mSession.Sensor().columns;
    auto* const pixels16 = static_cast<uint16_t*>(mpBuffer.get());
    auto* const pixels32 = static_cast<uint32_t*>(mpBuffer.get());
    const bool isArea = mtPlan.kind == teReadout::eArea;
    frame->area = FrameGeometry(image, mtPlan, mSession.Sensor(), isArea ? nullptr : pixels32);
    if (frame->Pixels() == 0) return false;
    frame->bits = isArea ? 16 : 32;
    if (isArea) {
        CopyArea(pixels16, stride, frame->area, &frame->pixels16);
    } else {
        CopyArea(pixels32, stride, frame->area, &frame->pixels32);
        std::fill_n(pixels32, stride, 0); // so that the next frame's geometry can be told
    }
    return true;
}

void tcReadout::ThrowIfOver()
{
    if (CaughtSignal() != 0) mQueue.Close(); // or the abort would wait for the disk
    ThrowIfInterrupted();
    mSession.ThrowCameraError();
    if (mpTrouble != nullptr) throw tcFailure(eExitCamera, mpTrouble.load());
    if (VXisCameraReady(mSession.Handle()) != eVXOk) return;
    // The library counts a frame before it hands it over.
    const int taken = mnTaken;
    VXWaitCompletion(mSession.Handle(), gnSettleMs);
    if (mbTaking || mnTaken != taken || mnTaken >= mtPlan.frames) return;
    mSession.ThrowCameraError();
    throw tcFailure(eExitTimeout, "no image: the camera was silent for " +
                                      DurationText(Exposure() + mtPlan.timeout));
}

void tcReadout::ShowProgress(tcProgress& progress)
{
    const int frame = std::min(mnTaken + 1, mtPlan.frames);
    const std::string which =
        mtPlan.frames > 1 ? " " + std::to_string(frame) + "/" + std::to_string(mtPlan.frames) : "";
    const int percent = VXGetReadProgress(mSession.Handle(), nullptr);
    if (percent > 0 && percent < 100) {
        progress.Show("reading" + which, percent / 100.0, std::to_string(percent) + " %");
        return;
    }
    const tpClock::time_point start{tpClock::duration(mnExposing)};
    const auto elapsed = std::chrono::duration_cast<tpMilliseconds>(tpClock::now() - start);
    if (elapsed >= Exposure()) {
        progress.Show("exposed" + which, 1, "waiting for the image");
        return;
    }
    progress.Show("exposing" + which,
                  static_cast<double>(elapsed.count()) / static_cast<double>(Exposure().count()),
                  DurationText(elapsed / 100 * 100) + " of " + DurationText(Exposure()));
}

bool tcReadout::Step(tcProgress& progress)
{
    if (mnTaken >= mtPlan.frames) return false;
    ThrowIfOver();
    ShowProgress(progress);
    mSession.WaitForNews(gnPoll);
    return true;
}

tsArea BinnedGeometry(const tsImageData& image, const tsArea& sensor, const uint32_t* firstRow)
{
    int end = sensor.columns;
    while (end > 0 && firstRow[end - 1] == 0) {
        --end;
    }
    const int whole = std::max(0, (end - 1) / gnPacketPixels32); // packets before a row's last
    return {0, 0, whole * gnPacketPixels32 + image.Columns, image.Rows / (whole + 1)};
}

} // namespace

tsArea FrameGeometry(const tsImageData& image, const tsReadoutPlan& plan, const tsArea& sensor,
                     const uint32_t* firstRow)
{
    if (image.Rows < 1 || image.Columns < 1) return {};
    tsArea area = plan.area;
    if (plan.kind != teReadout::eArea) {
        area = BinnedGeometry(image, sensor, firstRow);
    } else if (image.Rows <= plan.area.rows) {
        area.rows = image.Rows;
        area.columns = image.Columns;
    }
    if (area.rows < 1 || area.firstColumn + area.columns > sensor.columns ||
        area.firstRow + area.rows > sensor.rows) {
        return {};
    }
    return area;
}

size_t QueueCapacity(const tsReadoutPlan& plan)
{
    const size_t bytes =
        static_cast<size_t>(plan.area.columns) * plan.area.rows * BytesPerPixel(plan);
    return std::clamp<size_t>(gnMostBytes / std::max<size_t>(bytes, 1), 1, gnMostFrames);
}

void RunReadout(tcSession& session, const tsReadoutPlan& plan, tcFrameQueue& queue,
                tcProgress& progress, const std::function<bool()>& isStopped)
{
    {
        tcReadout readout(session, plan, queue);
        readout.Start();
        while (!isStopped() && readout.Step(progress)) {
        }
    }
    queue.Finish();
}
