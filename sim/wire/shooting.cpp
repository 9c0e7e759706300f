// A client's readout: drives the camera's readout in time, and sends its pictures.
#include "tcSimClient.h"

#include <asio/post.hpp>

#include <cstring>
#include <utility>

template <class Request, class Plan>
void tcSimClient::StartReadout(const tsSimRequest& request, Plan plan)
{
    Request message;
    std::memcpy(&message, request.payload, sizeof message);
    if (Camera().Readout().Running()) {
        Error(eSimErrorBusy, eSimReadoutRunning, "a readout is running");
        return;
    }
    tsSimPlan accepted;
    tsSimRefusal refusal = (Camera().*plan)(message, &accepted);
    Judge(request, refusal);
    if (!refusal.empty()) return;
    ++mnShot;
    mnWanted = 0;
    mpPicture.reset();
    mtPlan = std::move(accepted);
    if (const tpSimFault endless = mtContext.faults.Endless(Camera().Readouts() + 1)) {
        mtPlan.timing.frames = 0;
        mtContext.ledger.Strikes(*endless);
    }
    Camera().StartReadout(mtPlan);
    mtContext.ledger.Raise(teSimEvent::eReadout,
                           "readout " + std::to_string(Camera().Readouts()) + ": " +
                               FindCommand(request.id)->name + ", frames " +
                               std::to_string(mtPlan.timing.frames) + ", exposure " +
                               std::to_string(mtPlan.timing.exposure) + " s");
}

void tcSimClient::ReadArea(const tsSimRequest& request)
{
    StartReadout<tsReadAreaMsg>(request, &tcSimCamera::PlanArea);
}

void tcSimClient::ReadBinned(const tsSimRequest& request)
{
    StartReadout<tsReadBinnedMsg>(request, &tcSimCamera::PlanBinned);
}

void tcSimClient::ReadMaskBinned(const tsSimRequest& request)
{
    StartReadout<tsReadMaskBinnedMsg>(request, &tcSimCamera::PlanMaskBinned);
}

void tcSimClient::AbortRead(const tsSimRequest&)
{
    StopReadout("aborted");
}

// Does whatever the readout's phase allows now, and sets the timer for the rest.
void tcSimClient::Shoot()
{
    tcSimReadout& readout = Camera().Readout();
    if (mbEnded || !readout.Running()) return;
    Camera().SetTime(mtContext.cameraTime());
    const bool begun =
        readout.Phase() == teSimPhase::eExposing || readout.Phase() == teSimPhase::eExposed;
    const bool early = !mtContext.Tunables().Drifts() && readout.Phase() != teSimPhase::eSending;
    if (readout.ExposureKnown() && (begun || early)) WantPicture(readout.Frame());
    if (readout.Phase() == teSimPhase::eExposed && mpPicture && mnPictureFrame == readout.Frame()) {
        if (mtWanted == mtContext.Tunables()) return SendPicture();
        mnWanted = 0; // it was made before something changed
        mpPicture.reset();
        WantPicture(readout.Frame());
        return Shoot();
    }
    const std::optional<double> due = readout.Due();
    if (!due) return;
    mtShutter.expires_after(mtContext.WallTime(*due - Camera().Time()) +
                            std::chrono::microseconds(1));
    mtShutter.async_wait([this, keep = shared_from_this()](const std::error_code& error) {
        if (!error) Shoot();
    });
}

// A picture is made while the exposure runs, or while the frame before it is being sent; but where
// the stars move, not before it is known when the exposure begins.
void tcSimClient::WantPicture(uint32_t frame)
{
    if (mnWanted == frame) return;
    mnWanted = frame;
    mtWanted = mtContext.Tunables();
    Camera().Tune(mtWanted);
    tsSimJob job = Camera().JobOf(mtPlan, frame);
    if (mtContext.options.reuseFrame && mpReused && SamePicture(job, mtReusedJob)) {
        mpPicture = mpReused;
        mnPictureFrame = frame;
        return;
    }
    if (mtContext.options.reuseFrame) mtReusedJob = job;
    auto ready = [&io = mtContext.io, client = weak_from_this(), shot = mnShot,
                  frame](std::shared_ptr<tcSimPicture> picture) {
        asio::post(io, [client, shot, frame, picture = std::move(picture)] {
            if (auto alive = client.lock()) alive->HavePicture(shot, frame, picture);
        });
    };
    mtContext.worker.Make(std::move(job), ready);
}

void tcSimClient::HavePicture(uint64_t shot, uint32_t frame, std::shared_ptr<tcSimPicture> picture)
{
    if (mbEnded || shot != mnShot || frame != mnWanted) return;
    mpPicture = std::move(picture);
    mnPictureFrame = frame;
    if (mtContext.options.reuseFrame) mpReused = mpPicture;
    Shoot();
}

void tcSimClient::SendPicture()
{
    tcSimReadout& readout = Camera().Readout();
    readout.BeginSending();
    std::shared_ptr<tcSimPicture> picture = std::move(mpPicture);
    tsSimFrame facts = picture->Facts();
    facts.readout = Camera().Readouts();
    facts.frame = readout.Frame();
    facts.lastFrame = readout.LastFrame();
    facts.pixelSum = 0;
    facts.crc = 0;
    facts.begin = mtContext.moment(readout.ExposureStart());
    facts.end = mtContext.moment(readout.ExposureStart() + readout.Exposure());
    facts.end.realtime = facts.begin.realtime + facts.end.monotonic - facts.begin.monotonic;
    mtContext.ledger.FrameBegins(facts);
    tcSimPicture* const pixels = picture.get();
    auto leaving = [this, pixels](uint32_t packets) {
        mtContext.ledger.FrameGrows(packets, pixels->PixelSum(packets), pixels->Crc(packets),
                                    packets == pixels->PacketCount());
    };
    auto done = [this] {
        mtContext.ledger.FrameEnds();
        Camera().SetTime(mtContext.cameraTime());
        Camera().Readout().FrameSent(Camera().Time());
        Shoot();
    };
    if (!readout.LastFrame() && mtPlan.timing.trigger != eExtTrigExposure &&
        !mtContext.Tunables().Drifts()) {
        WantPicture(readout.Frame() + 1);
    }
    mtOutput.SetPacketRate(mtContext.Tunables().lineRate);
    mtOutput.StartPicture(
        {std::move(picture), facts.lastFrame, facts.readout, facts.frame, leaving, done, nullptr});
}

void tcSimClient::StopReadout(const char* why)
{
    tcSimReadout& readout = Camera().Readout();
    if (!readout.Running()) return;
    const bool sending = readout.Phase() == teSimPhase::eSending;
    readout.Abort();
    ++mnShot;
    mtContext.worker.Cancel();
    mtShutter.cancel();
    mtOutput.StopPicture();
    mpPicture.reset();
    if (sending) mtContext.ledger.FrameEnds();
    mtContext.ledger.Raise(teSimEvent::eReadout,
                           "readout " + std::to_string(Camera().Readouts()) + ": " + why);
}
