// What a camera is asked first on a connection that was made anew.
#include "kit_support.h"
#include "tcScriptedCamera.h"

#include <algorithm>
#include <atomic>
#include <future>
#include <mutex>

using namespace vxcam;

namespace {

constexpr uint32_t kSetExposure = 0x20, kGetExposure = 0x30, kExposure = 0x60;
constexpr uint32_t kGetHardware = 0x34, kGetCooling = 0x31;
constexpr uint8_t kFirstExposure = 10; // ms
constexpr auto kPromised = 10s, kMuchLess = 6s;

std::string exposureAnswer(uint8_t milliseconds)
{
    return MessageBytes(kExposure, LittleEndian(milliseconds, 4));
}

// Has an exposure time, which is read and set. Its connection breaks when the test wants that.
//
// Threads: answers on one of its own until it is destroyed.
class BreakingCamera
{
public:
    // What it does with what it is asked on a connection that was made anew.
    struct Manners {
        size_t ignored = 0; // so many messages
        std::chrono::milliseconds pause{0};
    };

    BreakingCamera() : thread_([this] { serve(); }) {}
    ~BreakingCamera()
    {
        isOver_ = true;
        thread_.join();
    }
    BreakingCamera(const BreakingCamera&) = delete;
    BreakingCamera& operator=(const BreakingCamera&) = delete;

    std::string place() const { return "127.0.0.1:" + std::to_string(wire_.Port()); }
    void breakOff(const std::string& lastBytes, const Manners& manners)
    {
        std::lock_guard<std::mutex> guard(lock_);
        manners_ = manners;
        lastBytes_ = lastBytes;
        asked_.clear();
        ignored_.clear();
        isBreakDue_ = true;
    }
    // Answers what it ignored, and ignores nothing any more.
    void wakeUp(std::chrono::milliseconds pause)
    {
        std::lock_guard<std::mutex> guard(lock_);
        manners_ = {0, pause};
        isAwake_ = true;
    }
    // The messages that came since then.
    std::vector<uint32_t> asked()
    {
        std::lock_guard<std::mutex> guard(lock_);
        return asked_;
    }

private:
    void serve()
    {
        constexpr std::chrono::milliseconds step(5);
        while (!isOver_) {
            if (isBreakDue_.exchange(false)) {
                wire_.SendPiece(lastBytes());
                wire_.Close();
                isNew_ = true;
            }
            if (isAwake_.exchange(false)) answerIgnored();
            const std::string message = wire_.ReadMessage(step);
            if (message.empty()) wire_.Accept(step);
            if (!message.empty()) take(message);
        }
    }

    std::string lastBytes()
    {
        std::lock_guard<std::mutex> guard(lock_);
        return lastBytes_;
    }

    void take(const std::string& message)
    {
        std::unique_lock<std::mutex> guard(lock_);
        asked_.push_back(IdOf(message));
        const bool isIgnored = isNew_ && asked_.size() <= manners_.ignored;
        const auto pause = isNew_ ? manners_.pause : 0ms;
        if (isIgnored) ignored_.push_back(message);
        guard.unlock();
        if (!isIgnored) answer(message, pause);
    }

    void answerIgnored()
    {
        std::unique_lock<std::mutex> guard(lock_);
        const std::vector<std::string> messages = std::move(ignored_);
        const auto pause = manners_.pause;
        guard.unlock();
        for (const std::string& message : messages) {
            answer(message, pause);
        }
    }

    void answer(const std::string& message, std::chrono::milliseconds pause)
    {
        std::this_thread::sleep_for(pause);
        if (IdOf(message) == kSetExposure) exposure_ = static_cast<uint8_t>(message.at(12));
        if (IdOf(message) == kGetExposure) wire_.Send(exposureAnswer(exposure_));
        if (IdOf(message) == kGetHardware) wire_.Send(HardwareAnswer(4, 8));
        if (IdOf(message) == kGetCooling) wire_.Send(MessageBytes(0x61, LittleEndian(1, 4)));
    }

    tcScriptedCamera wire_;
    uint8_t exposure_ = kFirstExposure;
    bool isNew_ = false; // the connection
    std::mutex lock_;
    std::vector<uint32_t> asked_;
    std::vector<std::string> ignored_;
    std::string lastBytes_;
    Manners manners_;
    std::atomic<bool> isBreakDue_{false}, isAwake_{false}, isOver_{false};
    std::thread thread_;
};

class FirstQuestion : public testing::Test
{
protected:
    void SetUp() override
    {
        setenv("TCLOG_SUPPRESS_ERR_CONSOLE", "1", 1);
        setenv("CONFIGFILE_PATH", "/dev/null", 1);
        camera_.emplace(Camera::open(there_.place()));
    }

    // Waits until the connection has broken and is there again.
    void breakOff(const std::string& lastBytes, const BreakingCamera::Manners& manners = {})
    {
        const uint64_t before = camera_->statistics().reconnects;
        there_.breakOff(lastBytes, manners);
        ASSERT_TRUE(waitUntil([&] { return camera_->statistics().reconnects > before; }));
        ASSERT_TRUE(camera_->waitForLink(kPatience));
    }

    BreakingCamera there_;
    std::optional<Camera> camera_;
};

} // namespace

TEST_F(FirstQuestion, IsAskedAgainWhileACutMessageSwallowsItsAnswers)
{
    const std::string whole = MessageBytes(0xC0, std::string(4000, 'x'));
    for (const size_t kept : {1, 11, 12, 13, 2000, 3900, 4011}) {
        breakOff(whole.substr(0, kept));
        const auto taken = timeOf([&] {
            EXPECT_EQ(camera_->get("exposure").toTime(), std::chrono::milliseconds(kFirstExposure));
        });
        EXPECT_LT(taken, kMuchLess) << kept;
    }
}

TEST_F(FirstQuestion, IsAskedAgainWhereItIsLostAndNothingElseIsSentBefore)
{
    camera_->set("exposure", 7ms);
    breakOff("", {3});
    EXPECT_LT(timeOf([&] { EXPECT_EQ(camera_->get("cooling"), Value(true)); }), kMuchLess);
    const std::vector<uint32_t> asked = there_.asked();
    ASSERT_GT(asked.size(), 4u);
    EXPECT_EQ(std::vector<uint32_t>(asked.begin(), asked.begin() + 4),
              std::vector<uint32_t>(4, kGetExposure));
    EXPECT_EQ(std::count(asked.begin(), asked.end(), kSetExposure), 1) << "made again, once";
    EXPECT_EQ(std::count(asked.begin(), asked.end(), kGetCooling), 1);
}

TEST_F(FirstQuestion, LeavesNoAnswersThatLaterOnesTakeForTheirs)
{
    breakOff("", {0, 450ms}); // which is slow enough to be asked several times
    EXPECT_EQ(camera_->get("exposure").toTime(), 10ms);
    EXPECT_EQ(camera_->set("exposure", 20ms).toTime(), 20ms);
}

TEST_F(FirstQuestion, IsNotTakenForAnsweredByAMessageThatWasCut)
{
    breakOff(exposureAnswer(99).substr(0, 14), {0, 20ms});
    EXPECT_EQ(camera_->get("exposure").toTime(), 10ms);
    EXPECT_EQ(camera_->set("exposure", 20ms).toTime(), 20ms);
}

TEST_F(FirstQuestion, IsGivenUpWhenTheCameraIsClosed)
{
    breakOff("", {SIZE_MAX});
    ASSERT_TRUE(waitUntil([&] { return !there_.asked().empty(); }));
    auto other = std::async(std::launch::async,
                            [&] { return errorOf([&] { camera_->get("cooling"); }).kind(); });
    EXPECT_LT(timeOf([&] { camera_->close(); }), 2s);
    EXPECT_EQ(other.get(), ErrorKind::Aborted);
}

TEST_F(FirstQuestion, ThatIsInVainEndsAllThatWaitsInThePromisedTimeAndLeavesNoAnswers)
{
    breakOff("", {SIZE_MAX});
    const auto start = Clock::now();
    auto other = std::async(std::launch::async,
                            [&] { return errorOf([&] { camera_->set("exposure", 7ms); }).kind(); });
    EXPECT_EQ(errorOf([&] { camera_->get("cooling"); }).kind(), ErrorKind::Timeout);
    EXPECT_EQ(other.get(), ErrorKind::Timeout);
    EXPECT_LT(Clock::now() - start, kPromised + 5s) << "not one after the other";
    const std::vector<uint32_t> asked = there_.asked();
    EXPECT_EQ(static_cast<size_t>(std::count(asked.begin(), asked.end(), kGetExposure)),
              asked.size());
    EXPECT_LT(asked.size(), 20u);
    there_.wakeUp(20ms);
    EXPECT_EQ(camera_->set("exposure", 20ms).toTime(), 20ms);
}
