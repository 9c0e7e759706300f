// When frames were exposed, as the kit says it and as the simulated camera knows it.
#include "DelayRelay.h"
#include "kit_support.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
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
        check(frame.facts());
        EXPECT_LE(frame.times().commandSent.steady, frame.times().firstPacket.steady);
        EXPECT_LE(frame.times().firstPacket.steady, frame.times().lastPacket.steady);
    }
    void check(const FrameFacts& facts)
    {
        const FrameTimes& times = facts.times;
        const tsSimFrame truth = truthOf(facts);
        const UtcTime begin{nanoseconds(truth.begin.realtime)};
        ++frames_;
        uncertainties_.push_back(times.uncertainty);
        const bool isRight =
            begin >= times.begin - times.uncertainty && begin <= times.begin + times.uncertainty;
        if (isRight) ++right_;
        EXPECT_TRUE(isRight) << "frame " << facts.number << ", " << nameOf(times.how) << ": off by "
                             << (begin - times.begin).count() << " ns, told "
                             << times.uncertainty.count() << " ns";
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

// What a process that reads frames tells of each of them.
struct Told {
    int number;
    UtcTime begin;
    nanoseconds uncertainty;
};

// Reads frames in a process of its own, that can be kept from running. Made before there are
// threads.
class Reader
{
public:
    Reader(int frames, std::chrono::milliseconds exposure, std::chrono::milliseconds interval)
    {
        if (pipe(port_) != 0 || pipe(told_) != 0) throw std::runtime_error("no pipe");
        process_ = fork();
        if (process_ == 0) {
            read(frames, exposure, interval);
            _exit(0);
        }
        close(told_[1]);
    }
    ~Reader()
    {
        kill(process_, SIGCONT);
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
        for (const int end : {port_[0], port_[1], told_[0]}) {
            close(end);
        }
    }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    void start(uint16_t port) { EXPECT_EQ(write(port_[1], &port, sizeof port), ssize_t{2}); }
    void halt() const { kill(process_, SIGSTOP); }
    void goOn() const { kill(process_, SIGCONT); }
    // The next one; false when there are no more.
    bool next(Told* told) const { return ::read(told_[0], told, sizeof *told) == sizeof *told; }

private:
    void read(int frames, std::chrono::milliseconds exposure, std::chrono::milliseconds interval)
    try {
        uint16_t port = 0;
        if (::read(port_[0], &port, sizeof port) != sizeof port) return;
        Camera camera = Camera::open("127.0.0.1:" + std::to_string(port));
        camera.set("image-interval", interval);
        Plan plan;
        plan.frames = frames;
        plan.exposure = exposure;
        plan.buffers = frames; // the camera is not held back
        Stream stream = camera.stream(plan);
        while (const std::optional<Frame> frame = stream.next(kPatience)) {
            const Told told{frame->facts().number, frame->times().begin,
                            frame->times().uncertainty};
            if (write(told_[1], &told, sizeof told) != sizeof told) return;
        }
    } catch (const std::exception& error) {
        fprintf(stderr, "%s\n", error.what());
    }

    int port_[2] = {-1, -1}, told_[2] = {-1, -1};
    pid_t process_ = -1;
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
    EXPECT_LT(atBest(), 2ms);
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

// Frames wait in the system's buffers while the process that reads them does not run.
class HaltedTimes : public Times
{
protected:
    void readOut(std::chrono::milliseconds interval, int frames, std::chrono::milliseconds halted,
                 std::chrono::milliseconds between)
    {
        Reader reader(frames, 1ms, interval);
        start();
        reader.start(port_);
        std::atomic<bool> isOver{false};
        std::thread halting([&] {
            const auto hasBegun = [&] {
                std::lock_guard<std::mutex> guard(lock_);
                return truth_.size() > 5;
            };
            EXPECT_TRUE(waitUntil(hasBegun));
            while (!isOver) {
                reader.halt();
                std::this_thread::sleep_for(halted);
                reader.goOn();
                std::this_thread::sleep_for(between);
            }
        });
        Told told{};
        while (reader.next(&told)) {
            FrameFacts facts;
            facts.readout = 1;
            facts.number = told.number;
            facts.times.begin = told.begin;
            facts.times.uncertainty = told.uncertainty;
            check(facts);
        }
        isOver = true;
        halting.join();
        expectAll(static_cast<size_t>(frames));
    }
};

TEST_F(HaltedTimes, OfFramesThatWaitedInNumbersAreTrue)
{
    readOut(2ms, 1000, 300ms, 50ms);
}

TEST_F(HaltedTimes, OfFramesWithoutAPauseThatWaitedAreTrue)
{
    readOut(0ms, 1000, 200ms, 20ms);
}

TEST_F(HaltedTimes, OfFramesThatWaitedOneByOneAreTrue)
{
    readOut(40ms, 100, 70ms, 20ms);
}
