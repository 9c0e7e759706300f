// When frames were exposed, as the kit says it and as the simulated camera knows it.
#include "DelayRelay.h"
#include "kit_support.h"

#include <algorithm>
#include <map>
#include <mutex>

using namespace vxcam;
using std::chrono::nanoseconds;

namespace {

class Times : public KitCamera
{
protected:
    void SetUp() override
    {
        KitCamera::SetUp();
        options_.rows = options_.columns = 32;
        options_.events = [this](const tsSimEvent& event) {
            if (event.event != teSimEvent::eFrame) return;
            std::lock_guard<std::mutex> guard(lock_);
            truth_[{event.frame.readout, event.frame.frame}] = event.frame;
        };
    }

    Camera& openBehind(std::chrono::milliseconds delay)
    {
        start();
        relay_ = std::make_unique<DelayRelay>(port_, delay);
        return camera_.emplace(Camera::open("127.0.0.1:" + std::to_string(relay_->port())));
    }

    tsSimFrame truthOf(const FrameFacts& facts)
    {
        const std::pair key{facts.readout, static_cast<uint32_t>(facts.number)};
        const auto isKnown = [&] {
            std::lock_guard<std::mutex> guard(lock_);
            return truth_.count(key) != 0;
        };
        EXPECT_TRUE(waitUntil(isKnown));
        std::lock_guard<std::mutex> guard(lock_);
        return truth_[key];
    }

    // Counts the frame, and whether its true times are within those that it tells.
    void check(const Frame& frame)
    {
        const FrameTimes& times = frame.times();
        const tsSimFrame truth = truthOf(frame.facts());
        const UtcTime begin{nanoseconds(truth.begin.realtime)};
        ++frames_;
        uncertainties_.push_back(times.uncertainty);
        const bool isRight =
            begin >= times.begin - times.uncertainty && begin <= times.begin + times.uncertainty;
        if (isRight) ++right_;
        EXPECT_TRUE(isRight) << "frame " << frame.facts().number << ", " << nameOf(times.how)
                             << ": off by " << (begin - times.begin).count() << " ns, told "
                             << times.uncertainty.count() << " ns";
        EXPECT_LE(times.commandSent.steady, times.firstPacket.steady);
        EXPECT_LE(times.firstPacket.steady, times.lastPacket.steady);
    }

    void readOut(const Plan& plan)
    {
        Stream stream = camera_->stream(plan);
        while (const std::optional<Frame> frame = stream.next(kPatience)) {
            check(*frame);
        }
    }

    nanoseconds typical() { return ofAll(0.5); }
    nanoseconds atBest() { return ofAll(0.1); } // whatever else the host does
    nanoseconds ofAll(double part)
    {
        std::sort(uncertainties_.begin(), uncertainties_.end());
        return uncertainties_[static_cast<size_t>(part *
                                                  static_cast<double>(uncertainties_.size()))];
    }

    void expectAll(size_t frames)
    {
        EXPECT_EQ(frames_, frames);
        EXPECT_EQ(right_, frames) << "of " << frames;
        RecordProperty("typical_us", std::to_string(typical().count() / 1000));
        std::cout << "typical uncertainty " << typical().count() / 1000 << " us, largest "
                  << uncertainties_.back().count() / 1000 << " us\n";
    }

    std::mutex lock_;
    std::map<std::pair<uint32_t, uint32_t>, tsSimFrame> truth_;
    std::unique_ptr<DelayRelay> relay_;
    size_t frames_ = 0, right_ = 0;
    std::vector<nanoseconds> uncertainties_;
};

// Threads that do nothing but keep the host from doing other things.
class Busy
{
public:
    Busy()
    {
        for (unsigned i = 0; i < 2 * std::max(1U, std::thread::hardware_concurrency()); ++i) {
            threads_.emplace_back([this] {
                while (!isOver_) {
                }
            });
        }
    }
    ~Busy()
    {
        isOver_ = true;
        for (std::thread& thread : threads_) {
            thread.join();
        }
    }

private:
    std::atomic<bool> isOver_{false};
    std::vector<std::thread> threads_;
};

} // namespace

TEST_F(Times, OfCommandedFramesAreTrue)
{
    open();
    for (int i = 0; i < 100; ++i) {
        const Frame frame = camera_->grab(planOf(1, std::chrono::milliseconds(i % 5)));
        EXPECT_EQ(frame.times().how, FrameTimes::How::Commanded);
        check(frame);
    }
    expectAll(100);
    EXPECT_LT(atBest(), 2ms);
}

TEST_F(Times, OfFramesAtAnIntervalAreTrue)
{
    open();
    camera_->set("image-interval", 10ms);
    readOut(planOf(200, 2ms));
    camera_->set("image-interval", 50ms);
    readOut(planOf(50, 20ms));
    expectAll(250);
}

TEST_F(Times, OfFramesWithoutAPauseAreTrue)
{
    options_.rows = options_.columns = 256;
    open();
    readOut(planOf(200, 2ms));
    expectAll(200);
}

TEST_F(Times, OfTriggeredFramesAreTrue)
{
    open();
    camera_->set("trigger-mode", "frame");
    Stream stream = camera_->stream(planOf(150, 2ms));
    for (int i = 0; i < 150; ++i) {
        camera_->set("trigger", 1);
        const std::optional<Frame> frame = stream.next(kPatience);
        ASSERT_TRUE(frame.has_value());
        EXPECT_EQ(frame->times().how, FrameTimes::How::Triggered);
        check(*frame);
    }
    expectAll(150);
    EXPECT_LT(atBest(), 2ms);
}

TEST_F(Times, OfFramesExposedAsLongAsATriggerAreTrue)
{
    open();
    camera_->set("trigger-mode", "exposure");
    constexpr auto kHeld = Within(200ms); // much longer than the exposure that is set
    Stream stream = camera_->stream(planOf(10));
    for (int i = 0; i < 10; ++i) {
        camera_->set("trigger", 1);
        std::this_thread::sleep_for(kHeld + std::chrono::milliseconds(10 * i));
        camera_->set("trigger", 0);
        const std::optional<Frame> frame = stream.next(kPatience);
        ASSERT_TRUE(frame.has_value());
        check(*frame);
        const tsSimFrame truth = truthOf(frame->facts());
        EXPECT_NEAR(std::chrono::duration<double>(frame->facts().exposure).count(), truth.exposure,
                    std::chrono::duration<double>(kHeld).count() / 2);
    }
    expectAll(10);
}

TEST_F(Times, OnABusyHostAreTrue)
{
    open();
    const Busy busy;
    camera_->set("image-interval", 10ms);
    readOut(planOf(150, 2ms));
    for (int i = 0; i < 30; ++i) {
        check(camera_->grab(planOf(1, 1ms)));
    }
    expectAll(180);
}

TEST_F(Times, BehindANetworkDelayAreTrue)
{
    openBehind(20ms);
    camera_->set("image-interval", 25ms);
    readOut(planOf(80, 5ms));
    for (int i = 0; i < 10; ++i) {
        check(camera_->grab(planOf(1, 10ms)));
    }
    camera_->set("trigger-mode", "frame");
    Stream stream = camera_->stream(planOf(10, 5ms));
    for (int i = 0; i < 10; ++i) {
        camera_->set("trigger", 1);
        check(*stream.next(kPatience));
    }
    expectAll(100);
}

TEST_F(Times, OfFramesThatASlowConsumerHeldBackAreTrue)
{
    options_.rows = options_.columns = 256;
    open();
    camera_->set("image-interval", 5ms);
    Plan plan = planOf(60, 1ms);
    plan.buffers = 2;
    Stream stream = camera_->stream(plan);
    int taken = 0;
    while (const std::optional<Frame> frame = stream.next(kPatience)) {
        check(*frame);
        if (++taken % 20 == 0) std::this_thread::sleep_for(200ms);
    }
    expectAll(60);
}
