// A WebSocket that gets the frames of a camera.
#ifndef VXCAMD_WATCHER_H
#define VXCAMD_WATCHER_H

#include "cameras/shared_camera.h"
#include "http/web_server.h"
#include "live/watcher_wish.h"
#include "metrics/meters.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace vxcam {

// Sends of each frame a text, {"message": "frame", ...}, with what the frame knows, and behind it
// its pixels, row after row, low bytes first, in a binary message. A watcher that is slow gets
// fewer frames: always the newest one. Events come as texts, too: {"message": "event", "event":
// {...}}. The client may send {"rate": 5}, which makes it 5 frames a second at most; and {"more":
// 1}, from when on it gets as many frames as it has asked for, so that none waits for it on the way
// and grows old. {"part": {...}} makes it that part of each frame, and what it is stands in the
// frame's text as "part"; the newest frame comes once more then, with "again". {"beat": 0.25} makes
// {"message": "beat"} come where nothing else has been sent for that many seconds. Anything else is
// answered with {"message": "error", "error": {...}}; too much of it ends the connection.
//
// Threads: it sends on one of its own. Locks: its own, never held while sending.
class Watcher : public Socket
{
public:
    // Throws Refusal{503} where there are as many as there may be.
    static void requirePlace(const Meters& meters, int most);

    Watcher(SharedCamera& camera, SocketWriter& writer, Meters& meters, int most);
    ~Watcher() override;
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

    void message(const std::string& text) override;

private:
    using SteadyClock = std::chrono::steady_clock;

    void take(const WatcherWish& wish);
    bool refuse(const Error& error);
    bool sendRefusals();
    bool sendBeat();
    bool say(const std::string& text);
    void send();
    bool sendNext();
    bool maySend();
    void hasSent(SteadyClock::time_point begun);
    std::optional<FramePart> partOf(const Frame& frame);
    bool sendFrame(const FedFrame& fed, const std::optional<FramePart>& part);
    bool sendPixels(const Frame& frame, const std::optional<FramePart>& part);
    bool sendEvents();

    SharedCamera& camera_;
    SocketWriter& writer_;
    Meters& meters_;
    const SteadyClock::time_point begun_ = SteadyClock::now(); // to watch
    uint64_t seenEvent_;
    uint64_t expected_; // number of the next frame; at first that of the newest one there is
    std::mutex mutex_;
    std::condition_variable changed_;
    double rate_ = 0;               // frames a second; 0: as they come
    std::optional<int64_t> wanted_; // frames that were asked for; nothing: all
    std::optional<FramePart> part_; // nothing: frames are sent as they are, and nothing said of it
    SteadyClock::time_point due_;
    std::chrono::duration<double> beat_{0}; // at most between two messages; 0: any
    std::vector<std::string> refusals_;     // of messages, not sent yet
    int refused_ = 0;                       // since then
    SteadyClock::time_point refusedSince_;
    std::atomic<bool> isAgain_{false}; // the newest frame is wanted though it was sent before
    std::vector<std::byte> pixels_;    // of a part
    SteadyClock::time_point said_;     // when the last message went; of the thread alone
    std::atomic<bool> isEnding_{false};
    std::thread thread_;
};

} // namespace vxcam

#endif
