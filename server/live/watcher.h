// A WebSocket that gets the frames of a camera.
#ifndef VXCAMD_WATCHER_H
#define VXCAMD_WATCHER_H

#include "cameras/shared_camera.h"
#include "http/web_server.h"
#include "metrics/meters.h"

#include <atomic>
#include <string>
#include <thread>

namespace vxcam {

// Sends of each frame a text, {"message": "frame", ...}, with what the frame knows, and behind it
// its pixels, row after row, low bytes first, in a binary message. A watcher that is slow gets
// fewer frames: always the newest one. Events come as texts, too: {"message": "event", "event":
// {...}}. The client may send {"rate": 5}, which makes it 5 frames a second at most.
//
// Threads: it sends on one of its own.
class Watcher : public Socket
{
public:
    static constexpr int kMost = 64; // at once

    Watcher(SharedCamera& camera, SocketWriter& writer, Meters& meters);
    ~Watcher() override;
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

    void message(const std::string& text) override;

private:
    void send();
    bool sendFrame(const FedFrame& fed);
    bool sendEvents();

    SharedCamera& camera_;
    SocketWriter& writer_;
    Meters& meters_;
    uint64_t seenFrame_ = 0, seenEvent_;
    std::atomic<double> rate_{0}; // frames a second; 0: as they come
    std::atomic<bool> isEnding_{false};
    std::thread thread_;
};

} // namespace vxcam

#endif
