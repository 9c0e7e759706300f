// The first question on a connection that was made anew.
#include "camera/camera_core.h"
#include "readout/host_clock.h"

#include "vxcamiface.h"

#include <algorithm>
#include <array>
#include <memory>
#include <system_error>
#include <utility>

namespace vxcam {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kPause(100), kLongestPause(1000); // before it is asked again
constexpr int kMostAtATime = 256;
constexpr uint8_t kExposureQuestion = 0x30; // what VXGetExposureTime() sends
constexpr size_t kHeaderBytes = 12, kIdAt = 9;

tsStatistics figuresOf(int handle)
{
    tsStatistics figures{};
    VXGetStatistics(handle, &figures, sizeof figures);
    return figures;
}

// Asks for the exposure time again and again while somebody waits for the answer. What comes
// without being an answer ends a message that was cut, of up to 16 KB: then there are more
// questions each time. A camera that is silent gets one at a time, and fewer and fewer.
//
// Threads: one for construction and stop(); it asks on a thread of its own.
class Repeater
{
public:
    explicit Repeater(int handle)
        : handle_(handle), received_(figuresOf(handle).BytesReceived),
          start_(steady_clock::now() + kPause), keeper_([this] { return look(); })
    {
        keeper_.wake();
    }

    void stop() { keeper_.stop(); }

private:
    SteadyTime look()
    {
        if (steady_clock::now() < start_) return start_;
        const uint64_t received = figuresOf(handle_).BytesReceived;
        const bool isSilent = received == std::exchange(received_, received);
        atATime_ = isSilent ? 1 : std::min(2 * atATime_, kMostAtATime);
        pause_ = isSilent ? std::min(2 * pause_, kLongestPause) : kPause;
        for (int i = 0; i < atATime_; ++i) {
            std::array<uint8_t, kHeaderBytes> question{};
            question[kIdAt] = kExposureQuestion;
            if (VXSendUserDefined(handle_, question.data()) != eVXOk) break;
        }
        return steady_clock::now() + pause_;
    }

    const int handle_;
    uint64_t received_;
    const SteadyTime start_;
    milliseconds pause_ = kPause;
    int atATime_ = 1;
    Keeper keeper_; // the last one: it uses the others
};

// None where the system allows no more threads: then the question is asked once.
std::unique_ptr<Repeater> repeaterOf(int handle)
{
    try {
        return std::make_unique<Repeater>(handle);
    } catch (const std::system_error&) {
        return nullptr;
    }
}

} // namespace

// Called with commands_. A question in vain is so for those that come right behind it, too, lest
// one of them begins another while somebody has waited all the time. Answers to questions that were
// asked again may still be on their way; what is asked last, and has another kind of answer, comes
// behind them, and behind those to questions that were in vain. So it does behind a cut message,
// which may look like an answer.
bool CameraCore::askFirst(SteadyTime since)
{
    const std::string what = "the first question on the new connection";
    uint64_t connection = 0;
    {
        std::lock_guard<std::mutex> guard(state_);
        connection = connection_;
        if (!isLinkUp_ || connection == answeredOn_) return false;
        if (connection == silentOn_ && since < silentUntil_ + kPause) {
            fail(ErrorKind::Timeout, what + ": the camera does not answer");
        }
    }
    long exposure = 0;
    const std::unique_ptr<Repeater> repeater = repeaterOf(handle_);
    int result = VXGetExposureTime(handle_, &exposure);
    if (repeater) repeater->stop();
    TVXCameraHardware hardware{};
    if (result == eVXOk) result = askHardware(&hardware);
    {
        std::lock_guard<std::mutex> guard(state_);
        if (result == eVXOk) {
            answeredOn_ = connection;
        } else if (result == eVXTimeout) {
            silentOn_ = connection;
            silentUntil_ = steady_clock::now();
        }
    }
    if (result == eVXFailed && !isClosed_) return false; // the application asks the same just now
    require(result, what);
    tellAnswer(connection);
    compare(hardware);
    return true;
}

// Of a camera that takes a connection and ends it again without an answer it is told once, but for
// what it says with that.
void CameraCore::tellLoss(const Moment& time, const std::string& words)
{
    std::lock_guard<std::mutex> guard(state_);
    if (isLossTold_ && (words.empty() || words == wordsTold_)) return;
    isLossTold_ = true;
    wordsTold_ = words;
    Event event;
    event.kind = EventKind::LinkLost;
    event.time = time;
    event.text = words;
    events_.post(std::move(event));
}

// Unless that connection was lost meanwhile.
void CameraCore::tellAnswer(uint64_t connection)
{
    std::lock_guard<std::mutex> guard(state_);
    if (!isLinkUp_ || connection != connection_ || !std::exchange(isLossTold_, false)) return;
    Event event;
    event.kind = EventKind::LinkRestored;
    event.time = presentMoment();
    events_.post(std::move(event));
}

} // namespace vxcam
