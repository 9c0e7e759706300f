#include "alpaca/alpaca_camera.h"

#include "http/http_message.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <limits>

namespace vxcam {

namespace {

constexpr std::chrono::seconds kMostConnecting{4};
constexpr int kMostShort = std::numeric_limits<int16_t>::max();

[[noreturn]] void refuseValue(const std::string& text)
{
    throw AlpacaError(Error(ErrorKind::Usage, text));
}

uint64_t hashOf(uint64_t hash, const std::string& text)
{
    for (const char letter : text) {
        hash = (hash ^ static_cast<unsigned char>(letter)) * 0x100000001B3ULL;
    }
    return hash;
}

} // namespace

AlpacaCamera::AlpacaCamera(SharedCamera& camera, const AlpacaOptions& options, int twin)
    : camera_(camera), options_(options), twin_(twin)
{}

AlpacaCamera::~AlpacaCamera()
{
    if (connecting_.joinable()) connecting_.join();
}

std::string AlpacaCamera::name() const
{
    return "Camera " + camera_.target();
}

// The same for ever on this host, whichever other cameras are served with it.
std::string AlpacaCamera::uniqueId() const
{
    std::string machine;
    std::ifstream file("/etc/machine-id");
    std::getline(file, machine);
    const std::string text = machine + "|" + camera_.target() + "|" + std::to_string(twin_);
    std::array<char, 40> id{};
    std::snprintf(id.data(), id.size(), "%016llx%016llx",
                  static_cast<unsigned long long>(hashOf(0xCBF29CE484222325ULL, text)),
                  static_cast<unsigned long long>(hashOf(0x9E3779B97F4A7C15ULL, text)));
    return id.data();
}

void AlpacaCamera::connect()
{
    {
        std::lock_guard<std::mutex> guard(mutex_);
        isOrdered_ = true;
    }
    reach();
}

// What was ordered last holds, however long reaching the camera takes.
void AlpacaCamera::reach()
{
    if (wantsConnection() && camera_.isLinkUp()) return;
    try {
        open();
    } catch (const Error& error) {
        const AlpacaError told(error);
        if (told.number() != static_cast<int>(AlpacaNumber::NotConnected)) throw told;
        throw AlpacaError(AlpacaNumber::CannotConnect, error.what());
    }
}

void AlpacaCamera::open()
{
    if (!camera_.waitUntilOpen(kMostConnecting)) camera_.camera(); // throws why not
    const std::shared_ptr<Camera> open = camera_.camera();
    if (!open->waitForLink(kMostConnecting)) {
        throw Error(ErrorKind::LinkLost, camera_.target() + ": the connection is lost");
    }
    // The highest gain is the third figure, where the camera tells it.
    std::string why;
    const std::optional<Value> config = open->tryGet("gain-config", &why);
    const int64_t most = config && config->size() > 2 ? (*config)[2].toInt() : 0;
    open->tryGet("ccd-temp", &why); // waits a moment for the first, so that nobody else need
    std::lock_guard<std::mutex> guard(mutex_);
    if (!isOrdered_) return;
    connectError_.reset();
    wantsConnection_ = true;
    geometry_ = {1, 1, 0, 0, open->sensor().columns, open->sensor().rows};
    readoutMode_ = 0;
    gainMax_ = most > 0 && most <= kMostShort ? static_cast<int>(most) : kMostShort;
    own_ = {};
}

void AlpacaCamera::disconnect()
{
    uint64_t running = 0;
    std::string key;
    {
        std::lock_guard<std::mutex> guard(mutex_);
        isOrdered_ = false;
        connectError_.reset();
        if (!wantsConnection_) return;
        wantsConnection_ = false;
        running = own_.id;
        own_ = {};
        std::swap(key, leaseKey_);
    }
    camera_.exposures().abort(running);
    try {
        camera_.lease().giveBack(key);
    } catch (const Refusal&) {
        // Somebody has taken it over.
    }
}

void AlpacaCamera::startConnecting()
{
    std::lock_guard<std::mutex> one(connector_);
    {
        std::lock_guard<std::mutex> guard(mutex_);
        isOrdered_ = true;
        if (isConnecting_) return;
        isConnecting_ = true;
    }
    if (connecting_.joinable()) connecting_.join();
    connecting_ = std::thread([this] {
        while (!hasConnected()) {
        }
    });
}

// Whether that is the end of it: not where another connection was ordered meanwhile.
bool AlpacaCamera::hasConnected()
{
    std::optional<AlpacaError> failure;
    try {
        reach();
    } catch (const AlpacaError& error) {
        failure = error;
    }
    std::lock_guard<std::mutex> guard(mutex_);
    if (!failure && isOrdered_ && !wantsConnection_) return false;
    connectError_ = failure;
    isConnecting_ = false;
    return true;
}

bool AlpacaCamera::isConnecting() const
{
    if (isConnecting_) return true;
    std::lock_guard<std::mutex> guard(mutex_);
    if (connectError_) throw AlpacaError(*connectError_);
    return false;
}

bool AlpacaCamera::wantsConnection() const
{
    std::lock_guard<std::mutex> guard(mutex_);
    return wantsConnection_;
}

bool AlpacaCamera::isConnected() const
{
    return wantsConnection() && camera_.isLinkUp();
}

void AlpacaCamera::requireLink() const
{
    if (camera_.isLinkUp()) return;
    throw AlpacaError(AlpacaNumber::NotConnected,
                      camera_.target() + ": the connection to the camera is lost");
}

void AlpacaCamera::control(const std::string& client)
{
    std::string key;
    {
        std::lock_guard<std::mutex> guard(mutex_);
        key = leaseKey_;
    }
    try {
        camera_.sequences().refuseIfRunning();
        key = camera_.lease().take(client, key, false);
    } catch (const Refusal& refusal) {
        throw AlpacaError(AlpacaNumber::InvalidOperation, refusal.what());
    }
    std::lock_guard<std::mutex> guard(mutex_);
    leaseKey_ = key;
}

void AlpacaCamera::stillThere()
{
    std::string key;
    {
        std::lock_guard<std::mutex> guard(mutex_);
        key = leaseKey_;
    }
    if (!key.empty()) camera_.lease().renew(key);
}

Size AlpacaCamera::sensor() const
{
    return camera_.camera()->sensor();
}

AlpacaCamera::Geometry AlpacaCamera::geometry() const
{
    std::lock_guard<std::mutex> guard(mutex_);
    return geometry_;
}

void AlpacaCamera::setBin(int Geometry::*which, int bin)
{
    if (bin < 1 || bin > kMaxBin) refuseValue("a bin is 1 to " + std::to_string(kMaxBin));
    setGeometry(which, bin);
}

// Whether it fits together is seen when an exposure starts.
void AlpacaCamera::setGeometry(int Geometry::*which, int value)
{
    std::lock_guard<std::mutex> guard(mutex_);
    geometry_.*which = value;
}

int AlpacaCamera::readoutMode() const
{
    std::lock_guard<std::mutex> guard(mutex_);
    return readoutMode_;
}

void AlpacaCamera::setReadoutMode(int mode)
{
    if (mode < 0 || mode > 1) refuseValue("a readout mode is 0 or 1");
    std::lock_guard<std::mutex> guard(mutex_);
    readoutMode_ = mode;
}

int AlpacaCamera::maxAdu() const
{
    constexpr int kMost8 = 255, kMost16 = 65535;
    const Geometry now = geometry();
    const int pixels = now.binX * now.binY;
    return readoutMode() == 1 && pixels == 1 ? kMost8 : kMost16 * pixels;
}

int AlpacaCamera::gainMax() const
{
    std::lock_guard<std::mutex> guard(mutex_);
    return gainMax_;
}

void AlpacaCamera::startExposure(double seconds, bool isLight)
{
    if (!(seconds >= 0 && seconds <= kMaxExposure)) refuseValue("Duration: 0 to 4294967.295 s");
    const Size whole = sensor();
    const Geometry now = geometry();
    const auto fits = [](int start, int number, int pixels) {
        return start >= 0 && number >= 1 && int64_t{start} + number <= pixels;
    };
    if (!fits(now.startX, now.numX, whole.columns / now.binX) ||
        !fits(now.startY, now.numY, whole.rows / now.binY)) {
        refuseValue("the subframe does not fit on the sensor with these bins");
    }
    Plan plan;
    plan.exposure = std::chrono::milliseconds(std::llround(seconds / kExposureStep));
    plan.type = isLight ? FrameType::Light : FrameType::Dark;
    if (now.binX == 1 && now.binY == 1) {
        plan.kind = ReadoutKind::Area;
        plan.area = Area{now.startX, now.startY, now.numX, now.numY};
        plan.bits = readoutMode() == 1 ? 8 : 16;
    } else {
        plan.kind = ReadoutKind::Binned;
        plan.binningX = now.binX;
        plan.binningY = now.binY;
    }
    try {
        const uint64_t id = camera_.exposures().start(plan, {});
        std::lock_guard<std::mutex> guard(mutex_);
        own_ = {id, now};
    } catch (const Refusal& refusal) {
        throw AlpacaError(AlpacaNumber::InvalidOperation, refusal.what());
    }
}

void AlpacaCamera::abortExposure()
{
    const Own mine = own();
    if (!camera_.exposures().abort(mine.id)) return;
    std::lock_guard<std::mutex> guard(mutex_);
    if (own_.id == mine.id) own_ = {};
}

AlpacaCamera::Own AlpacaCamera::own() const
{
    std::lock_guard<std::mutex> guard(mutex_);
    return own_;
}

std::optional<Exposure> AlpacaCamera::exposure() const
{
    const Own mine = own();
    return mine.id == 0 ? std::nullopt : camera_.exposures().find(mine.id);
}

AlpacaState AlpacaCamera::state() const
{
    const std::optional<Exposure> mine = exposure();
    if (!mine || mine->state == ExposureState::Complete || mine->state == ExposureState::Aborted) {
        return AlpacaState::Idle;
    }
    if (isOver(mine->state)) return AlpacaState::Failed;
    if (mine->state == ExposureState::Starting) return AlpacaState::Exposing;
    switch (mine->progress.phase) {
    case Progress::Phase::Waiting:
        return AlpacaState::Waiting;
    case Progress::Phase::Exposing:
        return AlpacaState::Exposing;
    case Progress::Phase::Exposed:
        return AlpacaState::Reading;
    case Progress::Phase::Reading:
    case Progress::Phase::Ended:
        break;
    }
    return AlpacaState::Download;
}

int AlpacaCamera::percentCompleted() const
{
    constexpr int kAll = 100;
    const std::optional<Exposure> mine = exposure();
    if (mine && mine->error && mine->state != ExposureState::Aborted) throw Error(*mine->error);
    if (!mine || isOver(mine->state)) {
        throw AlpacaError(AlpacaNumber::InvalidOperation, "no exposure runs");
    }
    if (mine->state == ExposureState::Starting) return 0;
    switch (mine->progress.phase) {
    case Progress::Phase::Waiting:
        return 0;
    case Progress::Phase::Exposing:
        return static_cast<int>(mine->progress.done * kAll);
    default:
        return kAll;
    }
}

bool AlpacaCamera::imageReady() const
{
    const std::optional<Exposure> mine = exposure();
    if (!mine || !isOver(mine->state) || mine->state == ExposureState::Aborted) return false;
    if (mine->error) throw Error(*mine->error);
    image();
    return true;
}

Frame AlpacaCamera::lastFrame() const
{
    const std::optional<Exposure> mine = exposure();
    if (mine && isOver(mine->state)) {
        if (mine->error && mine->state != ExposureState::Aborted) throw Error(*mine->error);
        if (mine->state == ExposureState::Complete && !mine->frames.empty()) {
            return mine->frames.back();
        }
    }
    throw AlpacaError(AlpacaNumber::InvalidOperation, "there is no image yet");
}

// Binned readouts are of the whole sensor: the subframe is cut out here.
AlpacaImage AlpacaCamera::image() const
{
    const Geometry then = own().geometry;
    const Frame frame = lastFrame();
    Area part{0, 0, then.numX, then.numY};
    if (frame.facts().kind == ReadoutKind::Binned) {
        part.column = then.startX;
        part.row = then.startY;
    }
    if (!part.fits({frame.columns(), frame.rows()})) {
        throw Error(ErrorKind::Camera, camera_.target() + ": the frame has another size than asked "
                                                          "for; are binning tables set?");
    }
    return {frame, part};
}

} // namespace vxcam
