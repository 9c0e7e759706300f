// Questions for whose answers nobody waits for long.
#include "kit_support.h"
#include "tcScriptedCamera.h"
#include "vxcamext.h"

#include <atomic>
#include <future>
#include <map>
#include <mutex>

using namespace vxcam;

namespace {

constexpr std::chrono::milliseconds kShortly(50), kNotLong(500), kMuchLonger(5000);

constexpr uint32_t kGetRegister = 0x38, kRegister = 0x70;

// Tells each register's number as its value. Answers are held back while the test wants that, and
// come in order.
//
// Threads: answers on one of its own until it is destroyed.
class HesitantCamera
{
public:
    HesitantCamera() : thread_([this] { serve(); }) {}
    ~HesitantCamera()
    {
        isOver_ = true;
        thread_.join();
    }
    HesitantCamera(const HesitantCamera&) = delete;
    HesitantCamera& operator=(const HesitantCamera&) = delete;

    std::string place() const { return "127.0.0.1:" + std::to_string(wire_.Port()); }
    void holdBack(bool isHeld) { isHeld_ = isHeld; }
    int asked(uint32_t what)
    {
        std::lock_guard<std::mutex> guard(lock_);
        return asked_[what];
    }

private:
    void serve()
    {
        constexpr std::chrono::milliseconds step(5);
        while (!isOver_) {
            const std::string message = wire_.ReadMessage(step);
            if (message.empty()) wire_.Accept(step);
            if (!message.empty()) take(message);
            if (isHeld_ || held_.empty()) continue;
            wire_.Send(held_);
            held_.clear();
        }
    }
    void take(const std::string& message)
    {
        {
            std::lock_guard<std::mutex> guard(lock_);
            ++asked_[IdOf(message)];
        }
        if (IdOf(message) == 0x34) held_ += HardwareAnswer(4, 8);
        if (IdOf(message) == 0x30) held_ += MessageBytes(0x60, LittleEndian(1, 4));
        if (IdOf(message) == kGetRegister) {
            held_ += MessageBytes(kRegister, message.substr(12, 4));
        }
    }

    tcScriptedCamera wire_;
    std::mutex lock_;
    std::map<uint32_t, int> asked_;
    std::string held_; // that is to be sent
    std::atomic<bool> isHeld_{false}, isOver_{false};
    std::thread thread_;
};

class ShortQuestion : public testing::Test
{
protected:
    void SetUp() override
    {
        setenv("TCLOG_SUPPRESS_ERR_CONSOLE", "1", 1);
        setenv("CONFIGFILE_PATH", "/dev/null", 1);
        camera_.emplace(Camera::open(there_.place()));
    }

    // What a register is told to be, by whichever of both calls tells it.
    int64_t told(int number)
    {
        const std::string name = "register:" + std::to_string(number);
        const std::optional<Value> atOnce = camera_->getWithin(name, kPatience);
        return (atOnce ? *atOnce : camera_->get(name)).toInt();
    }

    HesitantCamera there_;
    std::optional<Camera> camera_;
};

class ShortQuestionInAReadout : public KitCamera
{
protected:
    // A readout whose frames nobody takes holds the camera back soon.
    Stream heldStream()
    {
        Plan plan = planOf(0);
        plan.buffers = 2;
        Stream stream = open().stream(plan);
        EXPECT_TRUE(waitUntil([&] { return camera_->statistics().framesComplete >= 2; }));
        return stream;
    }
    void askInVain(const std::string& fault)
    {
        sim_->Inject(ParseSimFault(fault));
        EXPECT_FALSE(camera_->getWithin("gain", kNotLong));
        ASSERT_EQ(camera_->statistics().requestsTimedOut, 1u) << "it was asked";
    }
    void complain(int times)
    {
        sim_->Inject(ParseSimFault("error-storm:count=" + std::to_string(times)));
        ASSERT_TRUE(waitUntil(
            [&] { return camera_->statistics().cameraErrors == static_cast<uint64_t>(times); }));
    }
};

} // namespace

TEST_F(ShortQuestion, IsAnswered)
{
    const auto value = camera_->getWithin("register:7", kPatience);
    ASSERT_TRUE(value.has_value());
    EXPECT_EQ(value->toInt(), 7);
    EXPECT_EQ(there_.asked(kGetRegister), 1);
}

TEST_F(ShortQuestion, EndsSoonWithoutAnAnswer)
{
    there_.holdBack(true);
    EXPECT_LT(timeOf([&] { EXPECT_FALSE(camera_->getWithin("register:7", kShortly)); }),
              kMuchLonger);
    EXPECT_EQ(there_.asked(kGetRegister), 1);
}

TEST_F(ShortQuestion, LeavesNoAnswerThatALaterOneTakesForItsOwn)
{
    there_.holdBack(true);
    EXPECT_FALSE(camera_->getWithin("register:7", kShortly));
    there_.holdBack(false);
    for (const int number : {8, 9, 10}) {
        EXPECT_EQ(told(number), number);
    }
    EXPECT_EQ(camera_->get("exposure").toTime(), 1ms);
}

TEST_F(ShortQuestion, IsNotAskedBehindOneWithoutAnAnswer)
{
    there_.holdBack(true);
    EXPECT_FALSE(camera_->getWithin("register:7", kShortly));
    EXPECT_FALSE(camera_->getWithin("register:8", kShortly));
    EXPECT_EQ(there_.asked(kGetRegister), 1);
}

TEST_F(ShortQuestion, IsAskedAgainWhenAnswersComeInTimeAgain)
{
    there_.holdBack(true);
    EXPECT_FALSE(camera_->getWithin("register:7", kShortly));
    there_.holdBack(false);
    const bool isAskedAgain = waitUntil([&] {
        EXPECT_EQ(camera_->get("register:8").toInt(), 8);
        return camera_->getWithin("register:9", kShortly).has_value();
    });
    EXPECT_TRUE(isAskedAgain);
}

TEST_F(ShortQuestion, DoesNotWaitForTheCommandOfAnotherThread)
{
    there_.holdBack(true);
    auto other = std::async(std::launch::async, [&] { return camera_->get("register:1").toInt(); });
    ASSERT_TRUE(waitUntil([&] { return there_.asked(kGetRegister) == 1; }));
    EXPECT_LT(timeOf([&] { EXPECT_FALSE(camera_->getWithin("register:2", kPatience)); }),
              kMuchLonger);
    EXPECT_EQ(there_.asked(kGetRegister), 1);
    there_.holdBack(false);
    EXPECT_EQ(other.get(), 1);
}

TEST_F(ShortQuestion, IsNoneWhereNothingTravelsOrMuchDoes)
{
    EXPECT_FALSE(camera_->getWithin("ccd-temp", kPatience));
    EXPECT_FALSE(camera_->getWithin("bin-mask", kPatience));
    EXPECT_EQ(errorOf([&] { camera_->getWithin("gian", kPatience); }).kind(), ErrorKind::Usage);
}

TEST_F(ShortQuestion, OfAClosedCameraSaysSo)
{
    camera_->close();
    EXPECT_EQ(errorOf([&] { camera_->getWithin("register:1", kPatience); }).kind(),
              ErrorKind::Aborted);
}

TEST_F(ShortQuestion, IsAskedAgainBehindACommandThatWasAnsweredInTime)
{
    there_.holdBack(true);
    EXPECT_FALSE(camera_->getWithin("register:7", kShortly));
    there_.holdBack(false);
    const bool isAskedAgain = waitUntil([&] {
        camera_->set("exposure", 1ms);
        return camera_->getWithin("register:9", kShortly).has_value();
    });
    EXPECT_TRUE(isAskedAgain);
}

TEST_F(ShortQuestionInAReadout, IsRefusedLateWithoutAnEndOfTheReadout)
{
    const Stream stream = open().stream(planOf(1, 1h));
    askInVain("no-answer");
    complain(1);
    EXPECT_EQ(camera_->get("gain").toInt(), 0);
    EXPECT_EQ(stream.end(), ReadoutEnd::Running);
}

TEST_F(ShortQuestionInAReadout, IsRefusedOnceAtMost)
{
    Stream stream = open().stream(planOf(1, 1h));
    askInVain("no-answer");
    complain(2);
    EXPECT_EQ(errorOf([&] { stream.next(kPatience); }).kind(), ErrorKind::Camera);
}

TEST_F(ShortQuestionInAReadout, IsNotRefusedBehindItsLateAnswer)
{
    Stream stream = open().stream(planOf(1, 1h));
    askInVain("late-answer:seconds=1");
    ASSERT_TRUE(waitUntil([&] {
        tsStatistics figures{};
        VXGetStatistics(camera_->handle(), &figures, sizeof figures);
        return figures.AnswersLate == 1;
    }));
    complain(1);
    EXPECT_EQ(errorOf([&] { stream.next(kPatience); }).kind(), ErrorKind::Camera);
}

TEST_F(ShortQuestionInAReadout, LetsALaterOneBeAnsweredWhileFramesAreHeldBack)
{
    const Stream stream = heldStream();
    askInVain("late-answer:seconds=1");
    EXPECT_EQ(camera_->get("gain").toInt(), 0);
}
