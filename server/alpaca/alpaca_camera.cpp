#include "alpaca/alpaca_camera.h"

#include "http/http_message.h"

#include <array>
#include <cstdio>
#include <fstream>
#include <limits>

namespace vxcam {

namespace {

constexpr std::chrono::seconds kMostConnecting{4};
constexpr int kMostShort = std::numeric_limits<int16_t>::max();

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

void AlpacaCamera::connect(const std::string& client)
{
    {
        std::lock_guard<std::mutex> guard(mutex_);
        clients_.join(client, Clock::now());
    }
    try {
        reach();
    } catch (const AlpacaError&) {
        std::lock_guard<std::mutex> guard(mutex_);
        forgetUnconnected({client});
        throw;
    }
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
    if (clients_.empty()) return;
    connectError_.reset();
    wantsConnection_ = true;
    geometry_ = {1, 1, 0, 0, open->sensor().columns, open->sensor().rows};
    readoutMode_ = 0;
    gainMax_ = most > 0 && most <= kMostShort ? static_cast<int>(most) : kMostShort;
    own_ = {};
}

// They would hold a connection that others make later. The lock is held.
void AlpacaCamera::forgetUnconnected(const std::vector<std::string>& clients)
{
    if (wantsConnection_) return;
    for (const std::string& client : clients) {
        clients_.leave(client);
    }
}

// Whoever controls an exposure that runs is there, however silent. The last one ends all.
void AlpacaCamera::disconnect(const std::string& client)
{
    const std::optional<Exposure> mine = exposure();
    uint64_t running = 0;
    std::string key;
    {
        std::lock_guard<std::mutex> guard(mutex_);
        connectError_.reset();
        if (!clients_.leave(client)) return;
        if (mine && !isOver(mine->state)) clients_.heard(controller_, Clock::now());
        clients_.forgetSilent(Clock::now());
        const bool isLast = clients_.empty();
        if (!isLast && client != controller_) return;
        running = own_.id;
        if (isLast) own_ = {};
        if (isLast) wantsConnection_ = false;
        controller_.clear();
        std::swap(key, leaseKey_);
    }
    abort(running);
    try {
        camera_.lease().giveBack(key);
    } catch (const Refusal&) {
        // Somebody has taken it over.
    }
}

void AlpacaCamera::startConnecting(const std::string& client)
{
    std::lock_guard<std::mutex> one(connector_);
    {
        std::lock_guard<std::mutex> guard(mutex_);
        clients_.join(client, Clock::now());
        waiting_.push_back(client);
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
    if (!failure && !clients_.empty() && !wantsConnection_) return false;
    if (failure) forgetUnconnected(waiting_);
    waiting_.clear();
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

void AlpacaCamera::control(const std::string& client, const std::string& name)
{
    std::lock_guard<std::mutex> guard(mutex_);
    try {
        camera_.sequences().refuseIfRunning();
        leaseKey_ = camera_.lease().take(name, client == controller_ ? leaseKey_ : "", false);
        controller_ = client;
    } catch (const Refusal& refusal) {
        throw AlpacaError(AlpacaNumber::InvalidOperation, refusal.what());
    }
}

void AlpacaCamera::stillThere(const std::string& client)
{
    std::lock_guard<std::mutex> guard(mutex_);
    clients_.heard(client, Clock::now());
    if (client == controller_) camera_.lease().renew(leaseKey_);
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
    if (bin < 1 || bin > kMaxBin) refuseAlpacaValue("a bin is 1 to " + std::to_string(kMaxBin));
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
    if (mode < 0 || mode > 1) refuseAlpacaValue("a readout mode is 0 or 1");
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

} // namespace vxcam
