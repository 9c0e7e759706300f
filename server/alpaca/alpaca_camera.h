// A camera as Alpaca clients see it.
#ifndef VXCAMD_ALPACA_CAMERA_H
#define VXCAMD_ALPACA_CAMERA_H

#include "alpaca/alpaca_clients.h"
#include "alpaca/alpaca_error.h"
#include "alpaca/alpaca_image.h"
#include "cameras/shared_camera.h"

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace vxcam {

// CameraState of the interface.
enum class AlpacaState { Idle, Waiting, Exposing, Reading, Download, Failed };

struct AlpacaOptions {
    int interfaceVersion = 4;        // 3 or 4
    std::optional<double> pixelSize; // micrometres; the camera does not tell it
};

// Keeps what the interface asks a device to remember: who has connected, bins, subframe, and which
// exposure is its own. What the camera itself does, the shared camera knows. It is connected while
// any of its clients is.
//
// Errors: AlpacaError and Error; nothing here checks that it is connected. Threads: any.
//   Locks: its own, not held while the camera is asked.
class AlpacaCamera
{
public:
    static constexpr int kMaxBin = 15;
    static constexpr double kMaxExposure = 4294967.295; // s, what the camera's words hold
    static constexpr double kExposureStep = 0.001;
    static constexpr double kColdest = -200, kWarmest = 90; // degrees Celsius

    // `twin`: how many with an equal target are served before it: simulated ones have no other
    // name.
    AlpacaCamera(SharedCamera& camera, const AlpacaOptions& options, int twin);
    ~AlpacaCamera();
    AlpacaCamera(const AlpacaCamera&) = delete;
    AlpacaCamera& operator=(const AlpacaCamera&) = delete;

    SharedCamera& shared() { return camera_; }
    const AlpacaOptions& options() const { return options_; }
    std::string name() const;
    std::string uniqueId() const;

    // Waits until the camera is there. Throws AlpacaError, never with the number that says that
    // somebody has not connected.
    void connect(const std::string& client);
    // Ends that client's connection alone, its control and its exposure; nothing for one that has
    // not connected.
    void disconnect(const std::string& client);
    void startConnecting(const std::string& client); // the same in the background
    bool isConnecting() const;                       // throws what the last attempt ended with
    bool isConnected() const;                        // and the camera can be reached
    bool wantsConnection() const; // is connected, whatever has become of the camera
    void requireLink() const;     // throws AlpacaError while the camera cannot be reached

    // The client that changes something: it takes the lease, or throws AlpacaError.
    void control(const std::string& client, const std::string& name);
    void stillThere(const std::string& client); // renews its lease

    Size sensor() const;
    struct Geometry {
        int binX = 1, binY = 1, startX = 0, startY = 0, numX = 0, numY = 0;
    };
    Geometry geometry() const;
    void setBin(int Geometry::*which, int bin);
    void setGeometry(int Geometry::*which, int value);
    int readoutMode() const; // 0: 16 bits, 1: 8 bits
    void setReadoutMode(int mode);
    int maxAdu() const;
    int gainMax() const;

    void startExposure(double seconds, bool isLight);
    void abortExposure();
    AlpacaState state() const;
    int percentCompleted() const;
    bool imageReady() const; // throws what the exposure ended with
    AlpacaImage image() const;
    Frame lastFrame() const;

private:
    struct Own {
        uint64_t id = 0; // of the exposure; 0: none
        Geometry geometry;
    };
    using Clock = AlpacaClients::Clock;

    void reach();
    void open();
    void forgetUnconnected(const std::vector<std::string>& clients);
    void abort(uint64_t id);
    bool hasConnected();
    Own own() const;
    std::optional<Exposure> exposure() const;

    SharedCamera& camera_;
    const AlpacaOptions options_;
    const int twin_;
    mutable std::mutex mutex_;
    bool wantsConnection_ = false;
    AlpacaClients clients_;            // that want it, connected or not yet
    std::vector<std::string> waiting_; // of them for the background
    std::string controller_, leaseKey_;
    Geometry geometry_;
    int readoutMode_ = 0, gainMax_ = 0;
    Own own_;
    std::optional<AlpacaError> connectError_;
    std::atomic<bool> isConnecting_{false};
    std::mutex connector_;
    std::thread connecting_;
};

} // namespace vxcam

#endif
