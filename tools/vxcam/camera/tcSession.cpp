#include "tcSession.h"

#include "failure.h"
#include "found.h"
#include "interrupt.h"
#include "tcSimServer.h"
#include "vxcamiface.h"

#include <algorithm>
#include <map>

namespace {

constexpr double gnHeartBeatUnits = 10.0; // in a degree Celsius
constexpr double gnSimHeartBeat = 0.2;    // seconds; a short run shall have a temperature, too
constexpr uint16_t gnUnknownSize = 65535;
constexpr int gnHeaderBytes = 12;
constexpr std::chrono::milliseconds gnHeartBeatWait(1500); // after opening, for the first one
constexpr size_t gnKeptErrors = 64;

// Sessions by handle, for the callbacks. Never destroyed: the camera's thread may still run at
// exit.
struct tsSessions {
    std::mutex lock;
    std::map<int, tcSession*> byHandle;
};

tsSessions& Sessions()
{
    static tsSessions& sessions = *new tsSessions;
    return sessions;
}

tcSession* FindSession(int handle)
{
    std::lock_guard<std::mutex> lock(Sessions().lock);
    auto found = Sessions().byHandle.find(handle);
    return found == Sessions().byHandle.end() ? nullptr : found->second;
}

} // namespace

tcSession::tcSession(const vxcam::Target& target)
{
    vxcam::Target where = target;
    if (target.kind == vxcam::Target::Kind::Simulator) {
        StartSimulator(&where);
        msName = "simulated camera";
    } else {
        msName = target.text();
    }
    mnPort = where.port;
    Open(where);
    try {
        Register();
        ReadSensor();
    } catch (...) {
        Close();
        throw;
    }
}

tcSession::~tcSession()
{
    Close();
}

void tcSession::StartSimulator(vxcam::Target* target)
{
    const vxcam::SimulatorOptions& choice = target->simulator;
    tsSimOptions options;
    options.columns = static_cast<uint16_t>(choice.sensor.columns);
    options.rows = static_cast<uint16_t>(choice.sensor.rows);
    options.seed = choice.seed;
    options.timeScale = choice.timeScale;
    options.heartbeatSeconds = gnSimHeartBeat;
    mnTimeScale = choice.timeScale;
    try {
        mpSimulator = std::make_unique<tcSimServer>(options);
    } catch (const std::runtime_error& error) {
        throw tcFailure(eExitUsage, error.what());
    }
    try {
        target->port = mpSimulator->Start();
    } catch (const std::runtime_error& error) {
        throw tcFailure(eExitNoCamera, std::string("no simulated camera: ") + error.what());
    }
    target->host = options.bind;
}

void tcSession::Open(const vxcam::Target& target)
{
    tcQuickExit quickExit;
    mOpened = std::chrono::steady_clock::now();
    if (target.kind == vxcam::Target::Kind::Serial) {
        mnHandle = VXOpenCameraBySerialNumber(static_cast<int>(target.serial));
        if (mnHandle < 0) throw tcFailure(eExitNoCamera, WhyNotFound(target.serial));
        return;
    }
    mnHandle = VXOpenENetCamera(target.host.c_str(), target.port);
    if (mnHandle < 0) {
        throw tcFailure(eExitNoCamera, "no camera answers at " + target.host + ":" +
                                           std::to_string(target.port) +
                                           ", or it serves somebody else");
    }
}

void tcSession::Register()
{
    {
        std::lock_guard<std::mutex> lock(Sessions().lock);
        Sessions().byHandle[mnHandle] = this;
    }
    VXSetImageDataCallback(mnHandle, ImageCallback);
    VXSetHeartBeatCallback(mnHandle, HeartBeatCallback);
    VXSetErrorCallback(mnHandle, ErrorCallback);
    VXSetUserDefinedCallback(mnHandle, MessageCallback);
}

void tcSession::ReadSensor()
{
    tcQuickExit quickExit;
    TVXCameraHardware hardware{};
    int size = sizeof hardware;
    Require(VXGetCameraHardwareInfo(mnHandle, &hardware, &size), "hardware information");
    mtSensor.columns = hardware.Columns;
    mtSensor.rows = hardware.Rows;
    if (hardware.Columns == 0 || hardware.Columns == gnUnknownSize || hardware.Rows == 0 ||
        hardware.Rows == gnUnknownSize) {
        throw tcFailure(eExitCamera, "the camera does not tell the size of its sensor");
    }
}

void tcSession::Close()
{
    if (mnHandle >= 0) {
        VXCloseCamera(mnHandle);
        std::lock_guard<std::mutex> lock(Sessions().lock);
        Sessions().byHandle.erase(mnHandle);
    }
    mnHandle = -1;
    if (mpSimulator) mpSimulator->Stop();
}

void tcSession::Require(int result, const char* operation) const
{
    if (result == eVXOk) return;
    ThrowCameraError();
    const std::string text = operation;
    if (result == eVXTimeout) throw tcFailure(eExitTimeout, text + ": the camera does not answer");
    throw tcFailure(eExitCamera, text + ": the command failed (" + std::to_string(result) + ")");
}

std::chrono::milliseconds tcSession::RoundTrip()
{
    long milliseconds = 0;
    Require(VXGetExposureTime(mnHandle, &milliseconds), "exposure time");
    ThrowCameraError();
    return std::chrono::milliseconds(milliseconds);
}

void tcSession::ThrowCameraError() const
{
    std::lock_guard<std::mutex> lock(mLock);
    if (!msError.empty()) throw tcFailure(eExitCamera, msError);
}

bool tcSession::HasCameraError() const
{
    std::lock_guard<std::mutex> lock(mLock);
    return !msError.empty();
}

void tcSession::ForgetCameraError()
{
    std::lock_guard<std::mutex> lock(mLock);
    msError.clear();
}

std::optional<double> tcSession::Temperature() const
{
    return Temperature(std::chrono::steady_clock::time_point());
}

std::optional<double> tcSession::Temperature(std::chrono::steady_clock::time_point deadline) const
{
    const std::optional<vxcam::Temperatures> known = AwaitTemperatures(deadline);
    return known ? std::optional<double>(known->sensor) : std::nullopt;
}

std::optional<vxcam::Temperatures>
tcSession::AwaitTemperatures(std::chrono::steady_clock::time_point deadline) const
{
    std::unique_lock<std::mutex> lock(mLock);
    mChanged.wait_until(lock, deadline, [this] { return mTemperatures.has_value(); });
    return mTemperatures;
}

std::optional<vxcam::Temperatures> tcSession::temperatures()
{
    return AwaitTemperatures(mOpened + gnHeartBeatWait);
}

uint64_t tcSession::complaints() const
{
    std::lock_guard<std::mutex> lock(mLock);
    return mnErrors;
}

void tcSession::throwComplaint(uint64_t before) const
{
    std::lock_guard<std::mutex> lock(mLock);
    if (mnErrors <= before) return;
    const auto behind = static_cast<size_t>(mnErrors - before);
    throw maErrors[maErrors.size() - std::min(behind, maErrors.size())];
}

void tcSession::require(int result, const std::string& what)
{
    using vxcam::ErrorKind;
    if (result == eVXOk) return;
    if (result == eVXTimeout) {
        throw vxcam::Error(ErrorKind::Timeout, what + ": the camera does not answer");
    }
    throw vxcam::Error(ErrorKind::Camera,
                       what + ": the command failed (" + std::to_string(result) + ")");
}

void tcSession::roundTrip()
{
    long milliseconds = 0;
    require(VXGetExposureTime(mnHandle, &milliseconds), "exposure time");
}

void tcSession::OnImage(tpImageHandler handler)
{
    std::lock_guard<std::mutex> lock(mLock);
    mImageHandler = std::move(handler);
}

void tcSession::OnEvent(tpEventHandler handler)
{
    std::lock_guard<std::mutex> lock(mLock);
    mEventHandler = std::move(handler);
}

void tcSession::WaitForNews(std::chrono::milliseconds most)
{
    std::unique_lock<std::mutex> lock(mLock);
    mChanged.wait_for(lock, most, [this] { return mbNews; });
    mbNews = false;
}

void tcSession::Wake()
{
    std::lock_guard<std::mutex> lock(mLock);
    mbNews = true;
    mChanged.notify_all();
}

std::optional<uint64_t> tcSession::SimulatorSum(int frame) const
{
    if (!mpSimulator) return std::nullopt;
    const std::vector<tsSimFrame> frames = mpSimulator->Frames();
    for (auto known = frames.rbegin(); known != frames.rend(); ++known) {
        if (known->frame == static_cast<uint32_t>(frame) && known->complete) {
            return known->pixelSum;
        }
    }
    return std::nullopt;
}

void tcSession::ImageCallback(int handle, tsImageData* image)
{
    tcSession* const session = FindSession(handle);
    if (session == nullptr) return;
    tpImageHandler handler;
    {
        std::lock_guard<std::mutex> lock(session->mLock);
        handler = session->mImageHandler;
    }
    if (handler) handler(*image);
    session->Wake();
}

void tcSession::Hand(const tsCameraEvent& event)
{
    tpEventHandler handler;
    {
        std::lock_guard<std::mutex> lock(mLock);
        handler = mEventHandler;
    }
    if (handler) handler(event);
    Wake();
}

void tcSession::HeartBeatCallback(int handle, tsHeartBeatData* heartbeat)
{
    tcSession* const session = FindSession(handle);
    if (session == nullptr) return;
    const double sensor = static_cast<int16_t>(heartbeat->CCDTemp) / gnHeartBeatUnits;
    const double board = static_cast<int16_t>(heartbeat->BoardTemp) / gnHeartBeatUnits;
    {
        std::lock_guard<std::mutex> lock(session->mLock);
        session->mTemperatures = {sensor, board};
    }
    session->Hand({teCameraEvent::eHeartBeat, sensor, board});
}

void tcSession::KeepError(const vxcam::Error& error)
{
    std::lock_guard<std::mutex> lock(mLock);
    if (msError.empty()) msError = error.what();
    ++mnErrors;
    maErrors.push_back(error);
    if (maErrors.size() > gnKeptErrors) maErrors.pop_front();
}

void tcSession::ErrorCallback(int handle, unsigned char code, unsigned char subCode, char* text)
{
    tcSession* const session = FindSession(handle);
    if (session == nullptr) return;
    session->KeepError({vxcam::ErrorKind::Camera,
                        "the camera reports error " + std::to_string(code) + "-" +
                            std::to_string(subCode) + ": " + (text != nullptr ? text : ""),
                        code, subCode});
    tsCameraEvent event{teCameraEvent::eError};
    event.code = code;
    event.subCode = subCode;
    if (text != nullptr) event.text = text;
    session->Hand(event);
}

// The id stands in the header at byte 9, the payload behind it.
void tcSession::MessageCallback(int handle, void* message, int length)
{
    tcSession* const session = FindSession(handle);
    if (session == nullptr) return;
    const auto* bytes = static_cast<const uint8_t*>(message);
    tsCameraEvent event{teCameraEvent::eMessage};
    event.id = bytes[9] | bytes[10] << 8U | bytes[11] << 16U;
    event.bytes.assign(bytes + gnHeaderBytes, bytes + gnHeaderBytes + length);
    session->Hand(event);
}
