// From a target to an open camera.
#include "camera/camera_core.h"
#include "network/probe.h"
#include "readout/frame_facts.h"
#include "readout/host_clock.h"
#include "wire/capture_body.h"

#include <vxcamkit/discover.h>

#include "vxcamiface.h"

#include <map>

namespace vxcam {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kProbePatience(3000);
constexpr milliseconds kNoAnswer(9000); // of the ten seconds that the library waits for an answer
constexpr int kHeaderBytes = 12, kIdAt = 9; // of a message
constexpr double kHeartbeatUnits = 10.0;    // in a degree Celsius
constexpr size_t kMostComplaintsKept = 64;
constexpr unsigned kFlightTaps = eTapMessagesReceived | eTapMessagesSent | eTapLink;

// Cameras by their handles, for the one callback that has no pointer of the application's. Never
// destroyed: a camera's thread may still run at exit.
struct Registry {
    std::mutex lock;
    std::map<int, std::weak_ptr<CameraCore>> cameras;
};

Registry& registry()
{
    static Registry& registry = *new Registry;
    return registry;
}

} // namespace

struct CameraCore::Callbacks {
    static CameraCore& of(void* user) { return *static_cast<CameraCore*>(user); }

    static void frame(int, const tsFrameRecord* record, void* user)
    {
        CameraCore& camera = of(user);
        camera.flight_.frame(*record);
        const std::shared_ptr<StreamCore> stream = camera.present();
        if (!stream) return;
        Arrival arrival;
        arrival.packets = camera.figures().PacketsReceived;
        if (const auto temperatures = camera.lastTemperatures()) {
            arrival.sensorTemperature = temperatures->sensor;
            arrival.boardTemperature = temperatures->board;
        }
        if (camera.witness_ && record->Outcome != eFrameCut) {
            arrival.trueSum = camera.witness_->sumOf(record->Frame);
        }
        stream->take(*record, arrival);
    }

    static void link(int handle, const tsLinkRecord* record, void* user)
    {
        CameraCore& camera = of(user);
        const bool isUp = record->Event == eLinkRestored;
        std::string words = record->LastWords != nullptr ? record->LastWords : "";
        const tsStatistics figures = camera.figures();
        {
            std::lock_guard<std::mutex> guard(camera.state_);
            const bool isOver = camera.refusedAt_ != figures.RequestsAnswered;
            if (isOver && words == camera.refusal_) words.clear();
            camera.isLinkUp_ = isUp;
            if (isUp) ++camera.connection_;
            camera.temperatures_.reset();
            if (!isUp) ++camera.losses_;
            if (!isUp) camera.lastWords_ = words;
            if (!isUp) camera.packetsAtLoss_ = wholePackets(figures);
            camera.isRestoreDue_ = true;
            camera.changed_.notify_all();
        }
        if (!isUp) VXGiveUpQuestions(handle);
        const std::shared_ptr<StreamCore> stream = camera.present();
        if (!isUp && stream) {
            stream->finish(ReadoutEnd::LinkLost, ErrorKind::LinkLost,
                           "the connection was lost during the readout" +
                               (words.empty() ? "" : "; the camera's last words: " + words));
        }
        if (!isUp) camera.tellLoss(momentOf(record->Time), words);
        if (!isUp) camera.noteFailure("");
        camera.keeper_->wake();
    }

    static void heartbeat(int, const tsHeartBeatRecord* record, void* user)
    {
        CameraCore& camera = of(user);
        const Temperatures told{static_cast<int16_t>(record->CCDTemp) / kHeartbeatUnits,
                                static_cast<int16_t>(record->BoardTemp) / kHeartbeatUnits};
        Event event;
        event.time = momentOf(record->Time);
        event.sensorTemperature = told.sensor;
        event.boardTemperature = told.board;
        event.bytes.assign(record->Payload, record->Payload + record->Bytes);
        {
            std::lock_guard<std::mutex> guard(camera.state_);
            camera.temperatures_ = told;
            camera.temperatureTime_ = steady_clock::now();
            camera.changed_.notify_all();
        }
        camera.events_.post(std::move(event));
    }

    // An error while a command waits for its answer is that command's.
    static void error(int, const tsCameraErrorRecord* record, void* user)
    {
        CameraCore& camera = of(user);
        camera.flight_.error(*record);
        Complaint complaint{static_cast<int>(record->Code), static_cast<int>(record->SubCode),
                            record->Text};
        Event event;
        event.kind = EventKind::CameraError;
        event.time = momentOf(record->Time);
        event.code = complaint.code;
        event.subCode = complaint.subCode;
        event.readout = record->Readout;
        event.text = complaint.text;
        const tsStatistics figures = camera.figures();
        bool isOfCommand = false;
        {
            std::lock_guard<std::mutex> guard(camera.state_);
            const bool isWaitedFor = camera.commandsUnderWay_ > 0;
            isOfCommand = isWaitedFor || camera.isRefusalDue(figures);
            camera.refusal_ = isOfCommand ? complaint.text : "";
            camera.refusedAt_.reset();
            if (isWaitedFor) camera.refusedAt_ = figures.RequestsAnswered;
            ++camera.complaintCount_;
            if (camera.complaintList_.size() >= kMostComplaintsKept) {
                camera.complaintList_.erase(camera.complaintList_.begin());
            }
            camera.complaintList_.push_back(complaint);
        }
        camera.events_.post(std::move(event));
        if (const auto stream = camera.present()) {
            stream->complain(std::move(complaint), !isOfCommand);
        }
    }

    static void tap(int, const tsTapRecord* record, void* user)
    {
        CameraCore& camera = of(user);
        if (camera.capture_) camera.capture_->take(camera.captured_, *record);
        constexpr unsigned bytes = eTapBytesReceived | eTapBytesSent;
        if ((record->What & bytes) == 0) camera.flight_.tap(*record);
    }

    static void message(int handle, void* message, int length)
    {
        std::shared_ptr<CameraCore> camera;
        {
            std::lock_guard<std::mutex> guard(registry().lock);
            const auto found = registry().cameras.find(handle);
            if (found != registry().cameras.end()) camera = found->second.lock();
        }
        if (!camera) return;
        const auto* const bytes = static_cast<const uint8_t*>(message);
        Event event;
        event.kind = EventKind::Message;
        event.time = presentMoment();
        event.code = bytes[kIdAt] | bytes[kIdAt + 1] << 8U | bytes[kIdAt + 2] << 16U;
        event.bytes.assign(bytes + kHeaderBytes, bytes + kHeaderBytes + length);
        camera->events_.post(std::move(event));
    }
};

// What is recorded is tapped from the first byte on.
class CameraCore::OpeningTap
{
public:
    explicit OpeningTap(CameraCore& camera) : isSet_(camera.capture_ != nullptr)
    {
        constexpr unsigned all = kFlightTaps | eTapBytesReceived | eTapBytesSent;
        if (!isSet_) return;
        camera.captured_ = camera.capture_->addCamera(camera.target_.text());
        VXSetOpeningTap(all, Callbacks::tap, &camera);
    }
    ~OpeningTap()
    {
        if (isSet_) VXSetOpeningTap(0, nullptr, nullptr);
    }
    OpeningTap(const OpeningTap&) = delete;
    OpeningTap& operator=(const OpeningTap&) = delete;

private:
    const bool isSet_;
};

std::shared_ptr<CameraCore> CameraCore::open(const Target& target, const OpenOptions& options,
                                             const Capture& capture)
{
    auto camera = std::make_shared<CameraCore>(target, options, capture);
    try {
        camera->connect();
        camera->listen();
        camera->identify();
    } catch (...) {
        camera->close();
        throw;
    }
    return camera;
}

void CameraCore::connect()
{
    if (target_.kind == Target::Kind::Serial) return openSerial();
    if (target_.kind == Target::Kind::Network) return openAt(target_.host, target_.port);
    simulator_ = std::make_unique<Simulator>(target_.simulator);
    openAt("127.0.0.1", simulator_->start());
}

// A camera that was just left by another client may have noticed that only now.
void CameraCore::openAt(const std::string& host, uint16_t port)
{
    const std::string place = address_ = host + ":" + std::to_string(port);
    witness_ = Simulator::witnessAt(host, port);
    const OpeningTap tap(*this);
    for (int tries = 0; tries < 2; ++tries) {
        const auto start = steady_clock::now();
        handle_ = VXOpenENetCamera(host.c_str(), port);
        if (handle_ >= 0) return;
        if (capture_) capture_->add(WireKind::LinkLost, captured_, presentMoment(), nullptr, 0);
        const bool isSilent = steady_clock::now() - start >= kNoAnswer;
        const Probe found = probe(host, port, kProbePatience);
        switch (found.outcome) {
        case Probe::Outcome::NoName:
            fail(ErrorKind::NotFound, "the host '" + host + "' is not known: " + found.words);
        case Probe::Outcome::Unreachable:
            fail(ErrorKind::NotFound, "no camera answers at " + place + ": " + found.words);
        case Probe::Outcome::InUse:
            fail(ErrorKind::Busy, "the camera serves somebody else: " + found.words);
        case Probe::Outcome::Turned:
            fail(ErrorKind::Busy, "the camera turns the connection away without a word; "
                                  "it may serve somebody else");
        case Probe::Outcome::Reached:
            break;
        }
        if (isSilent) break;
    }
    fail(ErrorKind::Timeout, "what listens at " + place + " does not answer like a camera");
}

void CameraCore::openSerial()
{
    const std::string who = "camera with serial number " + std::to_string(target_.serial);
    std::string others;
    for (const FoundCamera& camera : discover()) {
        if (camera.serial == target_.serial) return openFound(camera, "the " + who);
        others += (others.empty() ? "" : ", ") + std::to_string(camera.serial);
    }
    fail(ErrorKind::NotFound,
         "no " + who + " answers on " + textOf(hostInterfaces()) +
             (others.empty() ? "; none answers at all" : "; found: " + others));
}

void CameraCore::openFound(const FoundCamera& camera, const std::string& who)
{
    try {
        openAt(camera.paths.front().address, camera.port);
    } catch (const Error& error) {
        fail(error.kind(), who + " is at " + camera.target() +
                               ", but does not answer there, or serves somebody else");
    }
}

void CameraCore::listen()
{
    {
        std::lock_guard<std::mutex> guard(registry().lock);
        registry().cameras[handle_] = weak_from_this();
    }
    opened_ = steady_clock::now();
    if (!options_.flightFile.empty()) {
        flightKeeper_ = std::make_unique<Keeper>([this] { return saveFlight(); });
    }
    keeper_ = std::make_unique<Keeper>([this] { return watch(); });
    VXOverrideImageTimout(handle_, -1); // the keeper watches
    if (!capture_) VXSetTap(handle_, kFlightTaps, Callbacks::tap, this);
    VXSetFrameCallback(handle_, Callbacks::frame, this);
    VXSetLinkCallback(handle_, Callbacks::link, this);
    VXSetHeartBeatRecordCallback(handle_, Callbacks::heartbeat, this);
    VXSetCameraErrorCallback(handle_, Callbacks::error, this);
    VXSetUserDefinedCallback(handle_, Callbacks::message);
}

void CameraCore::endReadout()
{
    if (const auto stream = present()) {
        stream->finish(ReadoutEnd::Closed, ErrorKind::Aborted, "the camera was closed");
    }
    awaitClearance();
}

void CameraCore::close()
{
    std::lock_guard<std::mutex> closing(closing_);
    if (isClosed_) return;
    endReadout();
    cooler_.warmUpFirst();
    endReadout(); // one that was begun meanwhile
    isClosed_ = true;
    {
        std::lock_guard<std::mutex> guard(state_);
        changed_.notify_all();
    }
    if (handle_ >= 0) {
        VXCloseCamera(handle_);
        std::lock_guard<std::mutex> guard(registry().lock);
        registry().cameras.erase(handle_);
    }
    cooler_.close();
    if (keeper_) keeper_->stop();
    if (flightKeeper_) flightKeeper_->stop();
    saveFlight();
    events_.stop();
    std::lock_guard<std::recursive_mutex> guard(commands_);
    simulator_.reset();
}

} // namespace vxcam
