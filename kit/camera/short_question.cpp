// A question for whose answer nobody waits for long.
#include "camera/camera_core.h"
#include "values/field_values.h"

#include "vxcamext.h"
#include "vxcamiface.h"

namespace vxcam {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// While it lives, the thread's questions are given up after so long.
class Patience
{
public:
    explicit Patience(milliseconds most) { VXSetPatience(static_cast<int>(most.count())); }
    ~Patience() { VXSetPatience(0); }
    Patience(const Patience&) = delete;
    Patience& operator=(const Patience&) = delete;
};

} // namespace

std::optional<Value> CameraCore::getWithin(const std::string& name, milliseconds most)
{
    const PropertyName property = findProperty(name);
    if (!property.property->isReadable() || property.property->cost != Cost::Answer) return {};
    const std::unique_lock<std::recursive_mutex> guard(commands_, std::try_to_lock);
    if (!guard.owns_lock() || !isReadyToAsk(most)) return {};
    const Command command(*this, name, Command::Before::Nothing);
    try {
        return askShortly(property, most);
    } catch (const Error& error) {
        throw named(error);
    }
}

// Whether a command would begin with its own question, and that be answered in time.
bool CameraCore::isReadyToAsk(milliseconds most) const
{
    std::lock_guard<std::mutex> guard(state_);
    const bool isAnswered = connection_ == answeredOn_ && !isLate();
    const bool isClear = isCleared_ || isClearing_ || (stream_ && stream_->isRunning());
    return isLinkUp_ && isAnswered && !isRestoreDue_ && isClear && lastAnswer_ < most / 2;
}

std::optional<Value> CameraCore::askShortly(const PropertyName& name, milliseconds most)
{
    LateQuestion question{0, complaints(), figures().AnswersLate};
    {
        std::lock_guard<std::mutex> guard(state_);
        question.connection = connection_;
    }
    const SteadyTime asked = steady_clock::now();
    FieldValues values;
    int result = eVXOk;
    {
        const Patience patience(most);
        result = name.property->read(*this, name.key, &values);
    }
    noteAnswer(asked);
    if (result == eVXTimeout) {
        std::lock_guard<std::mutex> guard(state_);
        late_ = question;
    }
    throwComplaint(question.complaints);
    if (result != eVXOk) return {};
    return valueOf(name.property->shape, values);
}

// How long the camera took over the question before.
void CameraCore::noteAnswer(SteadyTime asked)
{
    std::lock_guard<std::mutex> guard(state_);
    lastAnswer_ = steady_clock::now() - asked;
}

// With state_.
bool CameraCore::isLate() const
{
    return late_ && late_->connection == connection_;
}

// Whether an error may be the answer to a question for which nobody waits any more: neither an
// answer nor an error has come since it was asked.
bool CameraCore::isRefusalDue(const tsStatistics& figures) const
{
    return isLate() && late_->complaints == complaintCount_ &&
           late_->lateAnswers == figures.AnswersLate;
}

// Called with commands_. Two questions, since one of them may be of the late answer's kind: the
// answer to the other one comes behind it.
void CameraCore::awaitLateAnswer()
{
    uint64_t connection = 0;
    {
        std::lock_guard<std::mutex> guard(state_);
        if (!isLinkUp_ || !isLate()) return;
        connection = connection_;
    }
    SteadyTime asked;
    long exposure = 0;
    int result = VXGetExposureTime(handle_, &exposure);
    if (result == eVXOk) {
        TVXCameraHardware hardware{};
        int size = sizeof hardware;
        asked = steady_clock::now();
        result = VXGetCameraHardwareInfo(handle_, &hardware, &size);
    }
    if (result == eVXFailed && !isClosed_) return; // the application asks the same just now
    require(result, "the question before");
    noteAnswer(asked);
    std::lock_guard<std::mutex> guard(state_);
    if (late_ && late_->connection == connection) late_.reset();
}

} // namespace vxcam
