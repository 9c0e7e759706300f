#include "live/watcher.h"

#include "cameras/frame_json.h"
#include "http/http_message.h"

#include <algorithm>

namespace vxcam {

namespace {

constexpr std::chrono::milliseconds kLook{100}; // for events, while no frame comes

} // namespace

Watcher::Watcher(SharedCamera& camera, SocketWriter& writer, Meters& meters)
    : camera_(camera), writer_(writer), meters_(meters), seenEvent_(camera.events().last()),
      expected_(std::max<uint64_t>(camera.feed().last(), 1))
{
    int before = meters_.watchers;
    do {
        if (before >= kMost) throw Refusal(503, "watchers", kTooMany);
    } while (!meters_.watchers.compare_exchange_weak(before, before + 1));
    thread_ = std::thread([this] { send(); });
}

Watcher::~Watcher()
{
    isEnding_ = true;
    changed_.notify_all();
    thread_.join();
    --meters_.watchers;
}

void Watcher::message(const std::string& text)
{
    constexpr double kMostRate = 1000;
    constexpr int64_t kMostWanted = 1000;
    const Json json = Json::parse(text, nullptr, false);
    if (!json.is_object()) return;
    std::lock_guard<std::mutex> guard(mutex_);
    if (const auto rate = json.find("rate"); rate != json.end() && rate->is_number()) {
        rate_ = std::clamp(rate->get<double>(), 0.0, kMostRate);
    }
    if (const auto more = json.find("more"); more != json.end() && more->is_number_integer()) {
        const int64_t asked = std::clamp<int64_t>(more->get<int64_t>(), 0, kMostWanted);
        wanted_ = std::min(wanted_.value_or(0) + asked, kMostWanted);
    }
    const auto part = json.find("part");
    if (const auto told = part == json.end() ? std::nullopt : FramePart::of(*part)) {
        part_ = told;
        isAgain_ = true;
    }
    changed_.notify_all();
}

bool Watcher::sendFrame(const FedFrame& fed, const std::optional<FramePart>& part)
{
    const Frame& frame = fed.frame;
    const bool isAgain = fed.number + 1 == expected_;
    const uint64_t missed = isAgain ? 0 : fed.number - expected_;
    expected_ = fed.number + 1;
    meters_.watcherMissed += missed;
    Json json{{"message", "frame"}, {"exposure_id", fed.exposure}, {"missed", missed}};
    json.update(frameJson(frame));
    if (isAgain) json["again"] = true;
    if (part) json["part"] = jsonOf(*part);
    const SteadyTime last = frame.times().lastPacket.steady;
    json["age"] = std::chrono::duration<double>(SteadyClock::now() - last).count();
    if (!writer_.text(textOf(json))) return false;
    if (!isAgain) meters_.watcherDelay.add(SteadyClock::now() - last);
    return sendPixels(frame, part);
}

bool Watcher::sendPixels(const Frame& frame, const std::optional<FramePart>& part)
{
    const void* data = frame.data();
    size_t bytes = frame.bytes();
    if (part && part->size() != Size{frame.columns(), frame.rows()}) {
        copyPart(frame, *part, &pixels_);
        data = pixels_.data();
        bytes = pixels_.size();
    }
    if (!writer_.binary(data, bytes)) return false;
    ++meters_.watcherFrames;
    meters_.watcherBytes += bytes;
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

// Waits for a moment when it does not.
bool Watcher::maySend()
{
    std::unique_lock<std::mutex> guard(mutex_);
    const auto now = SteadyClock::now();
    const bool isWanted = wanted_.value_or(1) > 0;
    if (isWanted && now >= due_) return true;
    changed_.wait_until(guard, isWanted ? std::min(due_, now + kLook) : now + kLook);
    return false;
}

std::optional<FramePart> Watcher::partOf(const Frame& frame)
{
    std::lock_guard<std::mutex> guard(mutex_);
    isAgain_ = false;
    if (!part_) return {};
    return part_->within({frame.columns(), frame.rows()});
}

void Watcher::hasSent(SteadyClock::time_point begun)
{
    std::lock_guard<std::mutex> guard(mutex_);
    if (wanted_) --*wanted_;
    if (rate_ == 0) return;
    constexpr double kMostPause = 86400; // s: what a clock can count is not without an end
    due_ = begun + std::chrono::duration_cast<SteadyClock::duration>(
                       std::chrono::duration<double>(std::min(1 / rate_, kMostPause)));
}

// False: the client has gone, or takes nothing any more.
bool Watcher::sendNext()
{
    if (!sendEvents()) return false;
    if (!maySend()) return true;
    const uint64_t seen = expected_ - 1;
    const uint64_t than = isAgain_ && seen > 0 ? seen - 1 : seen;
    const std::optional<FedFrame> fed = camera_.feed().newer(than, kLook);
    if (!fed || !maySend()) return true; // the client may have asked for less meanwhile
    const auto begun = SteadyClock::now();
    if (!sendFrame(*fed, partOf(fed->frame))) return false;
    hasSent(begun);
    return true;
}

void Watcher::send()
{
    while (!isEnding_) {
        if (sendNext()) continue;
        writer_.cut();
        return;
    }
}

} // namespace vxcam
