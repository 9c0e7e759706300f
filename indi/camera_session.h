// The connection of a device to its camera.
#ifndef VXINDI_CAMERA_SESSION_H
#define VXINDI_CAMERA_SESSION_H

#include "worker.h"

#include <vxcamkit/camera.h>
#include <vxcamkit/error.h>

#include <functional>
#include <memory>
#include <string>

namespace vxcam {

// Has a thread of its own ask the camera, so that the main loop never waits for it.
//
// Threads: the main loop's; handlers are called there. What belongs to a connection that is closed
//   meanwhile is dropped.
class CameraSession
{
public:
    using Failed = std::function<void(const Error&)>;

    // Opens the camera, then calls one of the two. Events come until close().
    void open(const std::string& target, std::function<void()> opened, Failed failed,
              EventHandler handler);
    void close();

    bool isOpening() const { return isOpening_; }
    const std::shared_ptr<Camera>& camera() const { return camera_; } // null: not open

    // Asks the camera, then calls one of the two; `done` takes what `work` returns.
    template <class Work, class Done>
    void ask(Work work, Done done, Failed failed)
    {
        post(
            [work, done](Camera& camera) -> std::function<void()> {
                auto result = work(camera);
                return [done, result] { done(result); };
            },
            std::move(failed));
    }

private:
    using Question = std::function<std::function<void()>(Camera&)>;
    void post(Question question, Failed failed);
    // On the main loop, unless the connection is another one then.
    void later(uint64_t connection, std::function<void()> work);

    Worker worker_;
    std::shared_ptr<Camera> camera_;
    Subscription events_;
    uint64_t connection_ = 0;
    bool isOpening_ = false;
};

} // namespace vxcam

#endif
