// The exposures of a camera for Alpaca clients, and their images.
#include "alpaca/alpaca_camera.h"

#include "http/http_message.h"

#include <cmath>

namespace vxcam {

void AlpacaCamera::startExposure(double seconds, bool isLight)
{
    if (!(seconds >= 0 && seconds <= kMaxExposure))
        refuseAlpacaValue("Duration: 0 to 4294967.295 s");
    const Size whole = sensor();
    const Geometry now = geometry();
    const auto fits = [](int start, int number, int pixels) {
        return start >= 0 && number >= 1 && int64_t{start} + number <= pixels;
    };
    if (!fits(now.startX, now.numX, whole.columns / now.binX) ||
        !fits(now.startY, now.numY, whole.rows / now.binY)) {
        refuseAlpacaValue("the subframe does not fit on the sensor with these bins");
    }
    Plan plan;
    plan.exposure = std::chrono::milliseconds(std::llround(seconds / kExposureStep));
    plan.type = isLight ? FrameType::Light : FrameType::Dark;
    if (now.binX == 1 && now.binY == 1) {
        plan.kind = ReadoutKind::Area;
        plan.area = Area{now.startX, now.startY, now.numX, now.numY};
        plan.bits = readoutMode() == 1 ? 8 : 16;
    } else {
        plan.kind = ReadoutKind::Binned;
        plan.binningX = now.binX;
        plan.binningY = now.binY;
    }
    try {
        const uint64_t id = camera_.exposures().start(plan, {});
        std::lock_guard<std::mutex> guard(mutex_);
        own_ = {id, now};
    } catch (const Refusal& refusal) {
        throw AlpacaError(AlpacaNumber::InvalidOperation, refusal.what());
    }
}

void AlpacaCamera::abortExposure()
{
    abort(own().id);
}

void AlpacaCamera::abort(uint64_t id)
{
    if (!camera_.exposures().abort(id)) return;
    std::lock_guard<std::mutex> guard(mutex_);
    if (own_.id == id) own_ = {};
}

AlpacaCamera::Own AlpacaCamera::own() const
{
    std::lock_guard<std::mutex> guard(mutex_);
    return own_;
}

std::optional<Exposure> AlpacaCamera::exposure() const
{
    const Own mine = own();
    return mine.id == 0 ? std::nullopt : camera_.exposures().find(mine.id);
}

AlpacaState AlpacaCamera::state() const
{
    const std::optional<Exposure> mine = exposure();
    if (!mine || mine->state == ExposureState::Complete || mine->state == ExposureState::Aborted) {
        return AlpacaState::Idle;
    }
    if (isOver(mine->state)) return AlpacaState::Failed;
    if (mine->state == ExposureState::Starting) return AlpacaState::Exposing;
    switch (mine->progress.phase) {
    case Progress::Phase::Waiting:
        return AlpacaState::Waiting;
    case Progress::Phase::Exposing:
        return AlpacaState::Exposing;
    case Progress::Phase::Exposed:
        return AlpacaState::Reading;
    case Progress::Phase::Reading:
    case Progress::Phase::Ended:
        break;
    }
    return AlpacaState::Download;
}

int AlpacaCamera::percentCompleted() const
{
    constexpr int kAll = 100;
    const std::optional<Exposure> mine = exposure();
    if (mine && mine->error && mine->state != ExposureState::Aborted) throw Error(*mine->error);
    if (!mine || isOver(mine->state)) {
        throw AlpacaError(AlpacaNumber::InvalidOperation, "no exposure runs");
    }
    if (mine->state == ExposureState::Starting) return 0;
    switch (mine->progress.phase) {
    case Progress::Phase::Waiting:
        return 0;
    case Progress::Phase::Exposing:
        return static_cast<int>(mine->progress.done * kAll);
    default:
        return kAll;
    }
}

bool AlpacaCamera::imageReady() const
{
    const std::optional<Exposure> mine = exposure();
    if (!mine || !isOver(mine->state) || mine->state == ExposureState::Aborted) return false;
    if (mine->error) throw Error(*mine->error);
    image();
    return true;
}

Frame AlpacaCamera::lastFrame() const
{
    const std::optional<Exposure> mine = exposure();
    if (mine && isOver(mine->state)) {
        if (mine->error && mine->state != ExposureState::Aborted) throw Error(*mine->error);
        if (mine->state == ExposureState::Complete && !mine->frames.empty()) {
            return mine->frames.back();
        }
    }
    throw AlpacaError(AlpacaNumber::InvalidOperation, "there is no image yet");
}

// Binned readouts are of the whole sensor: the subframe is cut out here.
AlpacaImage AlpacaCamera::image() const
{
    const Geometry then = own().geometry;
    const Frame frame = lastFrame();
    Area part{0, 0, then.numX, then.numY};
    if (frame.facts().kind == ReadoutKind::Binned) {
        part.column = then.startX;
        part.row = then.startY;
    }
    if (!part.fits({frame.columns(), frame.rows()})) {
        throw Error(ErrorKind::Camera, camera_.target() + ": the frame has another size than asked "
                                                          "for; are binning tables set?");
    }
    return {frame, part};
}

} // namespace vxcam
