#include "live/watcher.h"

#include "cameras/frame_json.h"

#include <algorithm>

namespace vxcam {

namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kLook{100}; // for events, while no frame comes

} // namespace

Watcher::Watcher(SharedCamera& camera, SocketWriter& writer, Meters& meters)
    : camera_(camera), writer_(writer), meters_(meters), seenEvent_(camera.events().last())
{
    ++meters_.watchers;
    thread_ = std::thread([this] { send(); });
}

Watcher::~Watcher()
{
    isEnding_ = true;
    thread_.join();
    --meters_.watchers;
}

void Watcher::message(const std::string& text)
{
    constexpr double kMostRate = 1000;
    const Json json = Json::parse(text, nullptr, false);
    if (!json.is_object() || !json.contains("rate") || !json["rate"].is_number()) return;
    rate_ = std::clamp(json["rate"].get<double>(), 0.0, kMostRate);
}

bool Watcher::sendFrame(const FedFrame& fed)
{
    const Frame& frame = fed.frame;
    const uint64_t missed = seenFrame_ == 0 ? 0 : fed.number - seenFrame_ - 1;
    seenFrame_ = fed.number;
    meters_.watcherMissed += missed;
    Json json{{"message", "frame"}, {"exposure_id", fed.exposure}, {"missed", missed}};
    json.update(frameJson(frame));
    const SteadyTime last = frame.times().lastPacket.steady;
    json["age"] = std::chrono::duration<double>(SteadyClock::now() - last).count();
    if (!writer_.text(textOf(json))) return false;
    meters_.watcherDelay.add(SteadyClock::now() - last);
    if (!writer_.binary(frame.data(), frame.bytes())) return false;
    ++meters_.watcherFrames;
    meters_.watcherBytes += frame.bytes();
    return true;
}

bool Watcher::sendEvents()
{
    for (const LoggedEvent& event : camera_.events().after(seenEvent_, {})) {
        seenEvent_ = event.id;
        if (!writer_.text("{\"message\":\"event\",\"event\":" + event.text + "}")) return false;
    }
    return true;
}

void Watcher::send()
{
    auto due = SteadyClock::now();
    while (!isEnding_) {
        if (!sendEvents()) return;
        const auto now = SteadyClock::now();
        if (now < due) {
            std::this_thread::sleep_for(std::min<SteadyClock::duration>(due - now, kLook));
            continue;
        }
        const std::optional<FedFrame> fed = camera_.feed().newer(seenFrame_, kLook);
        if (!fed) continue;
        if (!sendFrame(*fed)) return;
        const double rate = rate_;
        if (rate > 0) {
            due = now + std::chrono::duration_cast<SteadyClock::duration>(
                            std::chrono::duration<double>(1 / rate));
        }
    }
}

} // namespace vxcam
