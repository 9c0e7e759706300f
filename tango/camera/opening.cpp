// How a station comes by its camera, loses it, and hears of it.
#include "station.h"

namespace vxcam {

Station::Station(StationOptions options, Settings settings, StationListener listener)
    : options_(std::move(options)), listener_(std::move(listener)),
      ring_(options_.ringFrames, options_.ringBytes), pending_(std::move(settings))
{
    made_ = pending_;
    if (!options_.target.empty()) opener_ = std::thread([this] { open(); });
}

Station::~Station()
{
    {
        const std::lock_guard<std::mutex> guard(lock_);
        isEnding_ = true;
    }
    wake_.notify_all();
    if (opener_.joinable()) opener_.join();
    subscription_.end();
    if (camera_) camera_->close();
    if (acquisition_) acquisition_->end(); // which still asks for the state
}

void Station::open()
{
    std::unique_lock<std::mutex> guard(lock_);
    while (!isEnding_) {
        guard.unlock();
        std::optional<Error> obstacle;
        try {
            take(std::make_shared<Camera>(Camera::open(options_.target)));
        } catch (const Error& error) {
            obstacle = error;
            complain(error);
        }
        guard.lock();
        obstacle_ = obstacle;
        if (!obstacle) return;
        const bool isInVain = obstacle->kind() == ErrorKind::Usage;
        guard.unlock();
        changed();
        if (isInVain) return;
        guard.lock();
        wake_.wait_for(guard, options_.retry, [this] { return isEnding_; });
    }
}

// The settings go first; what the camera does not take is told, and keeps nothing from working.
void Station::take(std::shared_ptr<Camera> camera)
{
    std::unique_lock<std::mutex> guard(lock_);
    while (!pending_.empty() && !isEnding_) {
        const Settings settings = std::exchange(pending_, {});
        guard.unlock();
        for (const Setting& setting : settings) {
            try {
                camera->set(setting.name.text, setting.value);
            } catch (const Error& error) {
                if (error.kind() == ErrorKind::LinkLost || error.kind() == ErrorKind::Timeout) {
                    complain(error);
                    putBack(settings);
                    throw;
                }
                miss(error);
            }
        }
        guard.lock();
    }
    AcquisitionListener listener;
    listener.frame = [this](const Frame& frame) { hearFrame(frame); };
    listener.end = [this](auto end, const auto& error) { hearEnd(end, error); };
    listener.begin = listener.idle = [this] { changed(); };
    acquisition_ = std::make_unique<Acquisition>(camera, ring_, std::move(listener));
    camera_ = std::move(camera);
    guard.unlock();
    subscription_ = camera_->onEvent([this](const Event& event) { hear(event); });
    changed();
}

void Station::miss(const Error& error)
{
    complain(error);
    {
        const std::lock_guard<std::mutex> guard(lock_);
        missed_ += (missed_.empty() ? "" : "; ") + std::string(error.what());
        trouble_ = Error(ErrorKind::Camera, "not set as before: " + missed_);
    }
    changed();
}

// What was set meanwhile counts more.
void Station::putBack(Settings settings)
{
    const std::lock_guard<std::mutex> guard(lock_);
    for (const Setting& setting : pending_) {
        settings.set(setting.name, setting.value);
    }
    pending_ = std::move(settings);
}

// ---- What the camera tells -----------------------------------------------------------------

void Station::hear(const Event& event)
{
    switch (event.kind) {
    case EventKind::CameraError:
        complain(Error(ErrorKind::Camera, "the camera reports: " + event.text, event.code,
                       event.subCode));
        break;
    case EventKind::LinkLost:
        linkLost(event);
        break;
    case EventKind::LinkRestored:
        linkRestored(event);
        break;
    case EventKind::SettingsRestored:
        if (!event.text.empty()) {
            trouble(Error(ErrorKind::Camera, "not set as before: " + event.text));
        }
        return;
    case EventKind::CameraChanged:
        complain(Error(ErrorKind::Camera, "the camera is not what it was: " + event.text));
        break;
    default:
        return;
    }
    changed();
}

void Station::linkLost(const Event& event)
{
    complain(Error(ErrorKind::LinkLost, "the connection to " + options_.target + " is lost" +
                                            (event.text.empty() ? "" : ": " + event.text)));
    const std::lock_guard<std::mutex> guard(lock_);
    if (std::exchange(isAnswering_, false)) lostAt_ = event.time.utc;
}

void Station::linkRestored(const Event& event)
{
    const std::lock_guard<std::mutex> guard(lock_);
    isAnswering_ = true;
    linkText_ = "The connection was lost at " + utcText(lostAt_) + " UTC, and is back since " +
                utcText(event.time.utc) + " UTC.";
}

void Station::hearFrame(const Frame& frame)
{
    if (!frame.complete()) complain(IncompleteFrame(frame));
    if (listener_.frame) listener_.frame(frame.facts().number - 1);
    if (!frame.complete()) changed();
}

void Station::hearEnd(std::optional<ReadoutEnd> end, const std::optional<Error>& error)
{
    {
        const std::lock_guard<std::mutex> guard(lock_);
        lastEnd_ = end;
    }
    // What was asked for wrongly, or ended by whoever asked, is no fault of the camera.
    if (!error || error->kind() == ErrorKind::Usage) return;
    error->kind() == ErrorKind::Aborted ? complain(*error) : trouble(*error);
}

} // namespace vxcam
