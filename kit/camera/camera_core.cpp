#include "camera/camera_core.h"

#include "readout/frame_facts.h"

#include "vxcamiface.h"

#include <algorithm>

namespace vxcam {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kFirstHeartbeat(1500); // from the opening on
constexpr milliseconds kLater(50);
constexpr milliseconds kFlightPause(1000); // between two files
constexpr milliseconds kLook(100);         // whether a camera has gone on
constexpr milliseconds kAskAgain(1000);    // a camera that took a connection and says nothing
constexpr milliseconds kClearance(200);
constexpr milliseconds kLossPatience(200);
constexpr std::chrono::seconds kTemperatureAge(30); // older ones say nothing

} // namespace

CameraCore::CameraCore(const Target& target, const OpenOptions& options, Capture capture)
    : target_(target), options_(options), capture_(std::move(capture)), cooler_(*this)
{}

CameraCore::~CameraCore()
{
    close();
}

double CameraCore::timeScale() const
{
    return witness_ ? witness_->timeScale() : 1.0;
}

tsStatistics CameraCore::figures() const
{
    tsStatistics figures{};
    VXGetStatistics(handle_, &figures, sizeof figures);
    return figures;
}

Statistics CameraCore::statistics() const
{
    const tsStatistics figures = this->figures();
    Statistics result;
    result.bytesReceived = figures.BytesReceived;
    result.bytesSent = figures.BytesSent;
    result.messagesReceived = figures.MessagesReceived;
    result.messagesBad = figures.MessagesBad;
    result.messagesSent = figures.MessagesSent;
    result.bytesSkipped = figures.BytesSkipped;
    result.connectionsLost = figures.ConnectionsLost;
    result.reconnects = figures.Reconnects;
    result.heartbeats = figures.HeartBeats;
    result.cameraErrors = figures.CameraErrors;
    result.requestsSent = figures.RequestsSent;
    result.requestsAnswered = figures.RequestsAnswered;
    result.requestsTimedOut = figures.RequestsTimedOut;
    result.framesComplete = figures.FramesComplete;
    result.framesIncomplete = figures.FramesIncomplete;
    result.framesFailed = figures.FramesFailed;
    result.framesAborted = figures.FramesAborted;
    result.packetsReceived = figures.PacketsReceived;
    result.packetsMissing = figures.PacketsMissing;
    result.packetsDuplicate = figures.PacketsDuplicate;
    return result;
}

std::shared_ptr<StreamCore> CameraCore::present() const
{
    std::lock_guard<std::mutex> guard(state_);
    return stream_;
}

// ---- What the camera tells --------------------------------------------------------------------

std::optional<Temperatures> CameraCore::lastTemperatures(SteadyTime* told) const
{
    std::lock_guard<std::mutex> guard(state_);
    if (told) *told = temperatureTime_;
    const bool isOld = steady_clock::now() - temperatureTime_ > kTemperatureAge;
    return isOld ? std::nullopt : temperatures_;
}

std::optional<Temperatures> CameraCore::temperatures()
{
    {
        std::unique_lock<std::mutex> guard(state_);
        changed_.wait_until(guard, opened_ + kFirstHeartbeat,
                            [this] { return isClosed_ || temperatures_.has_value(); });
    }
    return lastTemperatures();
}

uint64_t CameraCore::complaints() const
{
    std::lock_guard<std::mutex> guard(state_);
    return complaintCount_;
}

void CameraCore::throwComplaint(uint64_t before) const
{
    Complaint first;
    {
        std::lock_guard<std::mutex> guard(state_);
        if (complaintCount_ <= before) return;
        const uint64_t behind = std::min<uint64_t>(complaintCount_ - before, complaintList_.size());
        first = complaintList_[complaintList_.size() - behind];
    }
    throw Error(ErrorKind::Camera, target_.text() + ": " + complaintText(first), first.code,
                first.subCode);
}

// ---- Commands ---------------------------------------------------------------------------------

void CameraCore::fail(ErrorKind kind, const std::string& text) const
{
    throw Error(kind, target_.text() + ": " + text);
}

void CameraCore::requireOpen() const
{
    if (isClosed_) fail(ErrorKind::Aborted, "the camera is closed");
}

bool CameraCore::waitForLink(std::chrono::milliseconds most) const
{
    std::unique_lock<std::mutex> guard(state_);
    const bool isNews =
        changed_.wait_for(guard, most, [this] { return isClosed_.load() || isLinkUp_; });
    guard.unlock();
    requireOpen();
    return isNews;
}

void CameraCore::require(int result, const std::string& what)
{
    if (result == eVXOk) return;
    requireOpen();
    bool isLost = false;
    std::string words;
    {
        // What could not be sent is known before it is told that the connection is lost; it may be
        // there again by now.
        std::unique_lock<std::mutex> guard(state_);
        changed_.wait_for(guard, kLossPatience, [&] {
            isLost = !isLinkUp_ || losses_ != lossesTold_;
            return isClosed_ || isLost;
        });
        lossesTold_ = losses_;
        words = lastWords_;
    }
    requireOpen();
    if (isLost) {
        fail(ErrorKind::LinkLost, (asked_.empty() ? what : asked_) + ": the connection is lost" +
                                      (words.empty() ? "" : "; the camera's last words: " + words));
    }
    if (result == eVXTimeout) {
        noteFailure(what + ": no answer");
        fail(ErrorKind::Timeout, what + ": the camera does not answer");
    }
    fail(ErrorKind::Camera, what + ": the command failed (" + std::to_string(result) + ")");
}

void CameraCore::roundTrip()
{
    if (askFirst(steady_clock::now())) return;
    long exposure = 0;
    const SteadyTime asked = steady_clock::now();
    require(VXGetExposureTime(handle_, &exposure), "exposure time");
    noteAnswer(asked);
}

std::unique_lock<std::recursive_mutex> CameraCore::takeTurn()
{
    ++waiting_;
    std::unique_lock<std::recursive_mutex> turn(commands_);
    --waiting_;
    return turn;
}

CameraCore::Command::UnderWay::UnderWay(CameraCore& core, std::string asked)
    : core_(core), outer_(std::exchange(core.asked_, std::move(asked)))
{
    {
        std::lock_guard<std::mutex> guard(core_.state_);
        ++core_.commandsUnderWay_;
        core_.lossesTold_ = core_.losses_;
        held_ = core_.stream_;
    }
    if (held_) held_->commandBegins();
}

CameraCore::Command::UnderWay::~UnderWay()
{
    if (held_) held_->commandEnds();
    answered();
    core_.asked_ = outer_;
}

void CameraCore::Command::UnderWay::answered()
{
    std::lock_guard<std::mutex> guard(core_.state_);
    if (std::exchange(isAnswered_, true)) return;
    if (--core_.commandsUnderWay_ == 0) core_.refusedAt_.reset();
}

CameraCore::Command::Command(CameraCore& core, const std::string& asked, Before before)
    : guard_(core.takeTurn()), underWay_(core, asked)
{
    core.requireOpen();
    if (before == Before::Nothing) return;
    core.askFirst(came_);
    core.awaitLateAnswer();
    try {
        core.restoreIfLost();
        core.clearAway();
    } catch (const Error&) { // what comes next will fail in its own way
    }
}

// ---- Readouts ---------------------------------------------------------------------------------

// Ends the last readout on the camera, if it is over here, and puts the settings back. Called with
// commands_.
void CameraCore::clearAway()
{
    const std::shared_ptr<StreamCore> stream = present();
    bool isCleared = false, isLinkUp = true, isOnThisLink = true;
    {
        std::lock_guard<std::mutex> guard(state_);
        if (isClearing_ || !stream || stream->isRunning()) return;
        isCleared = isCleared_;
        isLinkUp = isLinkUp_;
        isOnThisLink = isLinkUp_ && connection_ == readoutOn_;
    }
    if (isCleared && isStopDue_ && hasGoneOn()) stopCamera();
    if (isCleared) return;
    isClearing_ = true;
    const std::unique_ptr<bool, void (*)(bool*)> done(&isClearing_,
                                                      [](bool* flag) { *flag = false; });
    if (!stream->isWhole()) {
        isStopDue_ = !isOnThisLink;
        if (isOnThisLink || hasGoneOn()) {
            stopCamera();
        } else {
            VXGiveUpReadout(handle_);
        }
    }
    if (!isLinkUp) return; // the settings are put back when it is there again
    undoPlan();
    std::lock_guard<std::mutex> guard(state_);
    isCleared_ = true;
    changed_.notify_all();
}

// Whether packets came since the link was lost. One that was cut then is none: what followed it,
// filled it up.
bool CameraCore::hasGoneOn() const
{
    const uint64_t packets = wholePackets(figures());
    std::lock_guard<std::mutex> guard(state_);
    return isLinkUp_ && packets > packetsAtLoss_;
}

// The answer to a question behind the abort comes behind all that was still under way.
void CameraCore::stopCamera()
{
    require(VXAbortRead(handle_), "abort");
    roundTrip();
    isStopDue_ = false;
}

// Before the camera is closed: waits until what the last readout left behind is cleared away,
// which the keeper does. A camera that does not answer is not waited for.
void CameraCore::awaitClearance()
{
    if (!keeper_) return;
    keeper_->wake();
    std::unique_lock<std::mutex> guard(state_);
    changed_.wait_for(guard, kClearance, [this] { return isCleared_ || !isLinkUp_; });
}

void CameraCore::abort()
{
    const std::shared_ptr<StreamCore> stream = present();
    if (!stream || !stream->isRunning()) return;
    stream->finish(ReadoutEnd::Aborted, ErrorKind::Aborted, "the readout was aborted");
    VXAbortRead(handle_);
}

// Runs on the keeper's thread.
std::optional<SteadyTime> CameraCore::watch()
{
    if (isClosed_) return std::nullopt;
    const std::shared_ptr<StreamCore> stream = present();
    if (!stream || !stream->isRunning()) return lookAfter();
    if (VXReadoutResult(handle_) == eReadoutNotSent) {
        stream->finish(ReadoutEnd::LinkLost, ErrorKind::LinkLost,
                       "the command of the readout could not be sent");
    }
    const auto next = stream->watch(steady_clock::now(), figures().PacketsReceived);
    return next ? next : lookAfter();
}

// What is left to do when no readout runs: every command does it first, so one that does nothing
// else. Who makes the camera do something just now, or is about to, does it anyway; they are not to
// wait for this thread, and not for a first question that it asks once more.
std::optional<SteadyTime> CameraCore::lookAfter()
{
    bool isDue = false;
    {
        std::lock_guard<std::mutex> guard(state_);
        isDue = !isCleared_ || isQuestionDue();
    }
    if (!isDue && !(isStopDue_ && hasGoneOn())) return nextLook();
    const std::unique_lock<std::recursive_mutex> guard(commands_, std::try_to_lock);
    if (!guard.owns_lock() || waiting_ > 0) return steady_clock::now() + kLater;
    try {
        const Command command(*this);
    } catch (const Error&) { // closed meanwhile
    }
    return nextLook();
}

// The first question on a new connection, or what comes behind it. Called with state_.
bool CameraCore::isQuestionDue() const
{
    return isLinkUp_ && (isRestoreDue_ || isLossTold_);
}

// At a camera that has not answered, or one that may still be at a readout, though all else is
// cleared away.
std::optional<SteadyTime> CameraCore::nextLook() const
{
    std::lock_guard<std::mutex> guard(state_);
    if (isQuestionDue()) return steady_clock::now() + kAskAgain;
    if (!isStopDue_ || !isCleared_ || !isLinkUp_) return std::nullopt;
    return steady_clock::now() + kLook;
}

// ---- The flight recorder ----------------------------------------------------------------------

void CameraCore::noteFailure(const std::string& text)
{
    if (!text.empty()) flight_.note(FlightEntry::Kind::Note, text);
    isFlightDue_ = true;
    if (flightKeeper_) flightKeeper_->wake();
}

// Not more often than told. When to try again, if ever. The disk may take its time: runs on a
// thread that nobody waits for but close().
std::optional<SteadyTime> CameraCore::saveFlight()
{
    if (!isFlightDue_ || options_.flightFile.empty()) return std::nullopt;
    const SteadyTime earliest = flightSaved_ + kFlightPause;
    if (steady_clock::now() < earliest && !isClosed_) return earliest;
    isFlightDue_ = false;
    flightSaved_ = steady_clock::now();
    try {
        flight_.save(options_.flightFile);
    } catch (const Error& error) {
        flight_.note(FlightEntry::Kind::Note, error.what());
    }
    return std::nullopt;
}

} // namespace vxcam
