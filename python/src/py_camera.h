// A camera and its readouts as the Python layer wraps them.
#ifndef VXCAM_PY_CAMERA_H
#define VXCAM_PY_CAMERA_H

#include "py_frame.h"
#include "py_process.h"

#include <vxcamkit/camera.h>

#include <pybind11/pybind11.h>

#include <atomic>
#include <memory>
#include <optional>
#include <string>

namespace vxcam::py {

// Threads: any; waits are without the interpreter lock.
class CoreCamera
{
public:
    explicit CoreCamera(const std::shared_ptr<Camera>& camera)
        : camera_(camera), target_(camera->target())
    {}

    // Throws Error{Usage} in a forked child.
    const std::shared_ptr<Camera>& use() const { return camera_.use("the camera", target_); }
    const std::string& target() const { return target_; }
    bool isForeign() const { return camera_.isForeign(); }

private:
    Owned<Camera> camera_;
    std::string target_;
};

// Threads: one consumer; the rest on any.
class CoreStream
{
public:
    // The camera stays open for as long as it is there.
    CoreStream(std::shared_ptr<Camera> camera, Stream stream);
    ~CoreStream(); // stops it; without the interpreter lock
    CoreStream(const CoreStream&) = delete;
    CoreStream& operator=(const CoreStream&) = delete;

    // The next frame; none at the end. Not given, `patience` is that of a camera that has nothing
    // to wait for but says nothing. Stops the readout when it is over, or a signal ends the wait.
    // After `most` there is none, too, and the readout goes on. `passed` of the patience was
    // before.
    std::optional<CoreFrame> next(std::optional<std::chrono::milliseconds> patience,
                                  std::optional<std::chrono::milliseconds> most = {},
                                  std::chrono::steady_clock::duration passed = {});
    void stop();
    Stream& stream() const { return held_.use("the readout")->stream; }

private:
    struct Held {
        std::shared_ptr<Camera> camera;
        Stream stream;
        std::atomic<bool> isTaken{false};

        Held(std::shared_ptr<Camera> ofCamera, Stream ofStream)
            : camera(std::move(ofCamera)), stream(std::move(ofStream))
        {}
    };
    Owned<Held> held_;
};

// How many cameras are being opened, also by threads whose wait a signal has ended.
int openingsUnderWay();

// What the Python layer gives: all that a plan has, by name; what is left out is as in Plan. Throws
// Error{Usage}, which names the camera.
Plan planOf(const CoreCamera& camera, const pybind11::dict& given);

// `patience`: as CoreStream::next() takes it.
std::unique_ptr<CoreStream, LetGo> startReadout(const CoreCamera& camera, const Plan& plan,
                                                std::optional<std::chrono::milliseconds> patience);

using CameraClass = pybind11::class_<CoreCamera, std::unique_ptr<CoreCamera, LetGo>>;

void addCamera(pybind11::module_& module);
void addStream(pybind11::module_& module);
void addRecords(pybind11::module_& module);
void addSequences(pybind11::module_& module);
// What of a camera stands in files of their own.
void addCooler(CameraClass& camera);
void addEvents(pybind11::module_& module, CameraClass& camera);
void addMeasures(CameraClass& camera);
void addSettings(CameraClass& camera);

} // namespace vxcam::py

#endif
