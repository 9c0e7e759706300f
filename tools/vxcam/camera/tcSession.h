// One camera, opened: the embedded simulated one or one on the network.
#ifndef TCSESSION_H
#define TCSESSION_H

#include "arguments.h"
#include "vxcamtypes.h"

#include <vxcamkit/error.h>
#include <vxcamkit/property_access.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

class tcSimServer;

enum class teCameraEvent { eHeartBeat, eError, eMessage };

// What a camera tells unasked.
struct tsCameraEvent {
    teCameraEvent kind;
    double sensor = 0, board = 0; // of a heartbeat, degrees Celsius
    int code = 0, subCode = 0;    // of an error, with its text
    std::string text = {};
    unsigned id = 0; // of a user-defined message, with its payload
    std::vector<uint8_t> bytes = {};
};

// An open camera and what it tells unasked. Closes itself.
//
// Threads: all on the main one; the callbacks run on the camera's.
// Locks: its own, never held while calling the library or the image handler.
// Owns: the handle, and the simulated camera if there is one.
class tcSession : public vxcam::Access
{
public:
    using tpImageHandler = std::function<void(const tsImageData&)>;
    using tpEventHandler = std::function<void(const tsCameraEvent&)>;

    // Opens the camera. Throws tcFailure: eExitNoCamera when that fails, eExitCamera when the
    // camera does not tell its size.
    explicit tcSession(const vxcam::Target& target);
    ~tcSession() override;
    tcSession(const tcSession&) = delete;
    tcSession& operator=(const tcSession&) = delete;

    // Closes the camera; no callback comes any more. Harmless when repeated.
    void Close();

    int Handle() const { return mnHandle; }
    tsArea Sensor() const { return mtSensor; }
    double TimeScale() const { return mnTimeScale; } // camera time by wall-clock time
    std::string Name() const { return msName; }
    uint16_t Port() const { return mnPort; } // 0 when a serial number led here

    // Throws what a result other than 0 stands for: eExitTimeout or eExitCamera.
    void Require(int result, const char* operation) const;

    // Has the camera answer once, so that all its complaints about earlier commands have arrived,
    // and throws the first of them. Returns the exposure that the camera has set.
    std::chrono::milliseconds RoundTrip();
    void ThrowCameraError() const;
    bool HasCameraError() const;
    void ForgetCameraError();

    // What the last heartbeat said, in degrees Celsius; nothing before the first. The second form
    // waits for one until `deadline`.
    std::optional<double> Temperature() const;
    std::optional<double> Temperature(std::chrono::steady_clock::time_point deadline) const;

    // For the table of properties.
    int handle() const override { return mnHandle; }
    vxcam::Size sensor() const override { return {mtSensor.columns, mtSensor.rows}; }
    std::optional<vxcam::Temperatures> temperatures() override;
    uint64_t complaints() const override;
    void throwComplaint(uint64_t before) const override;
    void require(int result, const std::string& what) override;
    void roundTrip() override;

    // Called with each finished frame on the camera's thread; must not throw.
    void OnImage(tpImageHandler handler);

    // Called with whatever else it tells, likewise.
    void OnEvent(tpEventHandler handler);

    // Returns at once when a frame or one of these has come since the last call, else when
    // one comes, at the latest after `most`.
    void WaitForNews(std::chrono::milliseconds most);
    void Wake(); // ends a WaitForNews; on any thread

    // The simulated camera's own sum of the pixels of a frame of its last readout; nothing when the
    // camera is none or the frame is not known.
    std::optional<uint64_t> SimulatorSum(int frame) const;

private:
    static void ImageCallback(int handle, tsImageData* image);
    static void HeartBeatCallback(int handle, tsHeartBeatData* heartbeat);
    static void ErrorCallback(int handle, unsigned char code, unsigned char subCode, char* text);
    static void MessageCallback(int handle, void* message, int length);
    void Hand(const tsCameraEvent& event);
    void KeepError(const vxcam::Error& error);
    std::optional<vxcam::Temperatures>
    AwaitTemperatures(std::chrono::steady_clock::time_point deadline) const;
    void StartSimulator(vxcam::Target* target);
    void Open(const vxcam::Target& target);
    void Register();
    void ReadSensor();

    std::unique_ptr<tcSimServer> mpSimulator;
    std::string msName;
    int mnHandle = -1;
    uint16_t mnPort = 0;
    double mnTimeScale = 1.0;
    tsArea mtSensor;

    mutable std::mutex mLock;
    mutable std::condition_variable mChanged;
    bool mbNews = false;
    std::chrono::steady_clock::time_point mOpened;
    std::optional<vxcam::Temperatures> mTemperatures;
    std::string msError; // the first one that is not forgotten
    uint64_t mnErrors = 0;
    std::deque<vxcam::Error> maErrors; // the last ones
    tpImageHandler mImageHandler;
    tpEventHandler mEventHandler;
};

#endif
