#include "camera_session.h"

#include "main_loop.h"

#include <utility>

namespace vxcam {

void CameraSession::later(uint64_t connection, std::function<void()> work)
{
    onMainLoop([this, connection, work = std::move(work)] {
        if (connection == connection_) work();
    });
}

void CameraSession::open(const std::string& target, std::function<void()> opened, Failed failed,
                         EventHandler handler)
{
    isOpening_ = true;
    const uint64_t connection = ++connection_;
    worker_.post([=] {
        try {
            const auto camera = std::make_shared<Camera>(Camera::open(target));
            later(connection, [=] {
                isOpening_ = false;
                camera_ = camera;
                events_ = camera->onEvent(
                    [=](const Event& event) { later(connection, [=] { handler(event); }); });
                opened();
            });
        } catch (const Error& error) {
            later(connection, [=] {
                isOpening_ = false;
                failed(error);
            });
        }
    });
}

void CameraSession::close()
{
    ++connection_;
    isOpening_ = false;
    events_.end();
    if (camera_) camera_->close();
    camera_.reset();
}

void CameraSession::post(Question question, Failed failed)
{
    if (!camera_) return;
    worker_.post([=, camera = camera_, connection = connection_] {
        try {
            later(connection, question(*camera));
        } catch (const Error& error) {
            later(connection, [=] { failed(error); });
        }
    });
}

} // namespace vxcam
