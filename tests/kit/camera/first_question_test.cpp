// What a camera is asked first on a connection that was made anew.
#include "breaking_camera.h"
#include "kit_support.h"

#include <algorithm>
#include <future>
#include <mutex>

using namespace vxcam;

namespace {

constexpr auto kPromised = 10s, kMuchLess = 8s;

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

    void listen()
    {
        subscription_ = camera_->onEvent([this](const Event& event) {
            std::lock_guard<std::mutex> guard(lock_);
            if (event.kind != EventKind::Heartbeat) told_.push_back(event.kind);
        });
    }
    std::vector<EventKind> told()
    {
        std::lock_guard<std::mutex> guard(lock_);
        return told_;
    }

    BreakingCamera there_;
    std::optional<Camera> camera_;

private:
    std::mutex lock_;
    std::vector<EventKind> told_;
    Subscription subscription_;
};

using Told = std::vector<EventKind>;

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

// As of a forwarder whose camera is off.
TEST_F(FirstQuestion, EndsWithAConnectionThatIsClosedAtOnce)
{
    BreakingCamera::Manners manners;
    manners.hangsUp = true;
    breakOff("", manners);
    for (int i = 0; i < 5; ++i) {
        camera_->waitForLink(kPatience);
        const auto taken = timeOf([&] {
            const Error error = errorOf([&] { camera_->get("cooling"); });
            EXPECT_EQ(error.kind(), ErrorKind::LinkLost) << error.what();
        });
        EXPECT_LT(taken, kPromptly);
    }
}

TEST_F(FirstQuestion, EndsWithTheLinkThoughThatIsThereAgainAtOnce)
{
    breakOff("", {SIZE_MAX});
    auto asking =
        std::async(std::launch::async, [&] { return errorOf([&] { camera_->get("cooling"); }); });
    ASSERT_TRUE(waitUntil([&] { return !there_.asked().empty(); }));
    const auto taken = timeOf([&] {
        breakOff("");
        EXPECT_EQ(asking.get().kind(), ErrorKind::LinkLost);
    });
    EXPECT_LT(taken, kPromptly);
    EXPECT_EQ(camera_->get("cooling"), Value(true));
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
    EXPECT_LT(timeOf([&] { camera_->close(); }), kMuchLess);
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
    EXPECT_LT(Clock::now() - start, kPromised + 8s) << "not one after the other";
    const std::vector<uint32_t> asked = there_.asked();
    EXPECT_EQ(static_cast<size_t>(std::count(asked.begin(), asked.end(), kGetExposure)),
              asked.size());
    EXPECT_LT(asked.size(), 20u);
    there_.wakeUp(20ms);
    std::optional<Value> told;
    const auto isAnswered = [&] {
        try {
            told = camera_->set("exposure", 20ms);
        } catch (const Error&) {
            return false;
        }
        return true;
    };
    ASSERT_TRUE(waitUntil(isAnswered));
    EXPECT_EQ(told->toTime(), 20ms);
}

TEST_F(FirstQuestion, IsAnsweredBeforeTheConnectionIsToldToBeThereAgain)
{
    listen();
    breakOff("", {SIZE_MAX});
    EXPECT_EQ(errorOf([&] { camera_->get("cooling"); }).kind(), ErrorKind::Timeout);
    EXPECT_EQ(told(), Told{EventKind::LinkLost});
    there_.wakeUp(0ms); // and nobody commands anything
    EXPECT_TRUE(waitUntil([&] { return told().size() == 3; }));
    EXPECT_EQ(told(),
              (Told{EventKind::LinkLost, EventKind::LinkRestored, EventKind::SettingsRestored}));
}

TEST_F(FirstQuestion, OfConnectionsThatEndWithoutAnAnswerMakesNoNews)
{
    listen();
    for (int i = 0; i < 3; ++i) {
        breakOff("", {SIZE_MAX});
    }
    EXPECT_TRUE(waitUntil([&] { return camera_->statistics().connectionsLost == 3; }));
    EXPECT_EQ(told(), Told{EventKind::LinkLost});
}
