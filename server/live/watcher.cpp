#include "live/watcher.h"

#include "cameras/frame_json.h"
#include "http/http_message.h"

#include <algorithm>

namespace vxcam {

namespace {

constexpr std::chrono::milliseconds kLook{100}; // for events, while no frame comes
// So many messages that are refused in that time are a flood.
constexpr int kMostRefused = 100;
constexpr std::chrono::seconds kFloodTime{10};
constexpr int kAgainstRules = 1008; // of RFC 6455

[[noreturn]] void refuseMore(int most)
{
    throw Refusal(503, "watchers",
                  "as many watch already as the server's --watchers lets in: " +
                      std::to_string(most));
}

} // namespace

void Watcher::requirePlace(const Meters& meters, int most)
{
    if (meters.watchers >= most) refuseMore(most);
}

Watcher::Watcher(SharedCamera& camera, SocketWriter& writer, Meters& meters, int most)
    : camera_(camera), writer_(writer), meters_(meters), seenEvent_(camera.events().last()),
      expected_(std::max<uint64_t>(camera.feed().last(), 1))
{
    int before = meters_.watchers;
    do {
        if (before >= most) refuseMore(most);
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

// One that is wrong in any part changes nothing.
void Watcher::message(const std::string& text)
{
    std::optional<Error> trouble;
    WatcherWish wish;
    try {
        wish = WatcherWish::of(text);
    } catch (const Error& error) {
        trouble = error;
    }
    bool isFlood = false;
    {
        std::lock_guard<std::mutex> guard(mutex_);
        if (trouble) {
            isFlood = !refuse(*trouble);
        } else {
            take(wish);
        }
    }
    if (isFlood) writer_.end(kAgainstRules);
    changed_.notify_all();
}

void Watcher::take(const WatcherWish& wish)
{
    if (wish.rate) rate_ = *wish.rate;
    if (wish.more) wanted_ = std::min(wanted_.value_or(0) + *wish.more, WatcherWish::kMostMore);
    if (wish.beat) beat_ = std::chrono::duration<double>(*wish.beat);
    if (!wish.part) return;
    part_ = wish.part;
    isAgain_ = true;
}

// False: there were too many.
bool Watcher::refuse(const Error& error)
{
    ++meters_.watcherMessagesRefused;
    const auto now = SteadyClock::now();
    if (now - refusedSince_ >= kFloodTime) {
        refusedSince_ = now;
        refused_ = 0;
    }
    if (++refused_ > kMostRefused) return false;
    const Json facts{
        {"kind", error.row().name}, {"text", error.what()}, {"code", 0}, {"sub_code", 0}};
    refusals_.push_back(textOf({{"message", "error"}, {"error", facts}}));
    return true;
}

bool Watcher::sendRefusals()
{
    std::vector<std::string> refusals;
    {
        std::lock_guard<std::mutex> guard(mutex_);
        refusals.swap(refusals_);
    }
    return std::all_of(refusals.begin(), refusals.end(),
                       [this](const std::string& text) { return say(text); });
}

bool Watcher::say(const std::string& text)
{
    const bool isSent = writer_.text(text);
    said_ = SteadyClock::now();
    return isSent;
}

// Before the time is over, as what is waited for otherwise takes that long.
bool Watcher::sendBeat()
{
    {
        std::lock_guard<std::mutex> guard(mutex_);
        if (beat_.count() == 0 || SteadyClock::now() + kLook < said_ + beat_) return true;
    }
    return say(R"({"message":"beat"})");
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
    if (!say(textOf(json))) return false;
    if (!isAgain && last >= begun_) meters_.watcherDelay.add(SteadyClock::now() - last);
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
    said_ = SteadyClock::now();
    ++meters_.watcherFrames;
    meters_.watcherBytes += bytes;
    return true;
}

bool Watcher::sendEvents()
{
    camera_.lease().state(); // that it has run out is an event
    for (const LoggedEvent& event : camera_.events().after(seenEvent_, {})) {
        seenEvent_ = event.id;
        if (!say("{\"message\":\"event\",\"event\":" + event.text + "}")) return false;
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
    if (!sendEvents() || !sendRefusals() || !sendBeat()) return false;
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
