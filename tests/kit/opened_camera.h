// A camera opened through the C interface, as tests hand it to the table of properties.
#ifndef OPENED_CAMERA_H
#define OPENED_CAMERA_H

#include "tcSimServer.h"
#include "vxcamiface.h"

#include <vxcamkit/error.h>
#include <vxcamkit/property_access.h>

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

// Threads: used on one; what the camera tells comes on its own.
class OpenedCamera : public vxcam::Access
{
public:
    explicit OpenedCamera(uint16_t port)
        : opened_(std::chrono::steady_clock::now()), handle_(VXOpenENetCamera("127.0.0.1", port))
    {
        TVXCameraHardware hardware{};
        int size = sizeof hardware;
        if (handle_ < 0 || VXGetCameraHardwareInfo(handle_, &hardware, &size) != eVXOk) {
            throw std::runtime_error("the camera does not open");
        }
        sensor_ = {hardware.Columns, hardware.Rows};
        std::lock_guard<std::mutex> lock(registry().lock);
        registry().byHandle[handle_] = this;
        VXSetErrorCallback(handle_, onError);
        VXSetHeartBeatCallback(handle_, onHeartBeat);
    }
    ~OpenedCamera() override
    {
        VXCloseCamera(handle_);
        std::lock_guard<std::mutex> lock(registry().lock);
        registry().byHandle.erase(handle_);
    }

    int handle() const override { return handle_; }
    vxcam::Size sensor() const override { return sensor_; }
    std::optional<vxcam::Temperatures> temperatures() override
    {
        std::unique_lock<std::mutex> lock(lock_);
        told_.wait_until(lock, opened_ + std::chrono::milliseconds(1500),
                         [this] { return temperatures_.has_value(); });
        return temperatures_;
    }
    uint64_t complaints() const override
    {
        std::lock_guard<std::mutex> lock(lock_);
        return errors_.size();
    }
    void throwComplaint(uint64_t before) const override
    {
        std::lock_guard<std::mutex> lock(lock_);
        if (before < errors_.size()) throw errors_[before];
    }
    void require(int result, const std::string& what) override
    {
        if (result == eVXOk) return;
        const bool isLate = result == eVXTimeout;
        throw vxcam::Error(isLate ? vxcam::ErrorKind::Timeout : vxcam::ErrorKind::Camera,
                           what + ": result " + std::to_string(result));
    }
    void roundTrip() override
    {
        long milliseconds = 0;
        require(VXGetExposureTime(handle_, &milliseconds), "round trip");
    }

private:
    struct Registry {
        std::mutex lock;
        std::map<int, OpenedCamera*> byHandle;
    };
    static Registry& registry()
    {
        static Registry& known = *new Registry;
        return known;
    }
    static OpenedCamera& find(int handle)
    {
        std::lock_guard<std::mutex> lock(registry().lock);
        return *registry().byHandle.at(handle);
    }
    static void onError(int handle, unsigned char code, unsigned char subCode, char* text)
    {
        OpenedCamera& camera = find(handle);
        std::lock_guard<std::mutex> lock(camera.lock_);
        camera.errors_.emplace_back(vxcam::ErrorKind::Camera, text, code, subCode);
    }
    static void onHeartBeat(int handle, tsHeartBeatData* heartbeat)
    {
        OpenedCamera& camera = find(handle);
        std::lock_guard<std::mutex> lock(camera.lock_);
        camera.temperatures_ = {static_cast<int16_t>(heartbeat->CCDTemp) / 10.0,
                                static_cast<int16_t>(heartbeat->BoardTemp) / 10.0};
        camera.told_.notify_all();
    }

    const std::chrono::steady_clock::time_point opened_;
    const int handle_;
    vxcam::Size sensor_;
    mutable std::mutex lock_;
    std::condition_variable told_;
    std::vector<vxcam::Error> errors_;
    std::optional<vxcam::Temperatures> temperatures_;
};

// A simulated camera of 64 x 32 pixels, and a client of it.
class SimulatedCamera
{
public:
    SimulatedCamera() : server_(options()), camera_(server_.Start()) {}

    vxcam::Access& access() { return camera_; }
    tcSimServer& server() { return server_; }

private:
    static tsSimOptions options()
    {
        tsSimOptions options;
        options.columns = 64;
        options.rows = 32;
        options.heartbeatSeconds = 0.05;
        return options;
    }

    tcSimServer server_;
    OpenedCamera camera_;
};

// What the code throws; "nothing" when it does not.
template <class Code>
std::string refusalOf(Code code, vxcam::ErrorKind kind = vxcam::ErrorKind::Usage)
{
    try {
        code();
    } catch (const vxcam::Error& error) {
        if (error.kind() != kind) return std::string("an error of another kind: ") + error.what();
        return error.what();
    }
    return "nothing";
}

#endif
