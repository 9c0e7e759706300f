// Readouts whose connection is lost, and what the camera is told then.
#include "stream_support.h"
#include "tcScriptedCamera.h"
#include "vxcamext.h"

#include <algorithm>
#include <future>
#include <mutex>

namespace {

constexpr uint32_t kAbort = 0x4C, kQuestion = 0x30, kGetHardware = 0x34, kSetExposure = 0x20;
constexpr auto kAfterLoss = 2 * kPromptly; // which every consumer knows by then

class LostStreams : public Streams
{
protected:
    // What the simulated camera tells goes to members of this.
    void TearDown() override
    {
        camera_.reset();
        sim_.reset();
    }

    // What the simulated camera saw, beginning with each connection.
    Camera& openWatched(const std::vector<std::string>& faults = {})
    {
        {
            std::lock_guard<std::mutex> guard(lock_);
            seen_.clear();
            gone_ = {};
        }
        options_.trace = true;
        options_.events = [this](const tsSimEvent& event) {
            std::lock_guard<std::mutex> guard(lock_);
            if (event.event == teSimEvent::eConnected) seen_.emplace_back();
            if (event.event == teSimEvent::eDisconnected) gone_ = Clock::now();
            if (event.event == teSimEvent::eTrace && !seen_.empty()) {
                seen_.back().push_back(event.text.substr(0, event.text.find(',')));
            }
        };
        return open(faults);
    }
    std::vector<std::string> seen(size_t connection)
    {
        std::lock_guard<std::mutex> guard(lock_);
        return connection < seen_.size() ? seen_[connection] : std::vector<std::string>();
    }
    size_t aborts(size_t connection)
    {
        const std::vector<std::string> all = seen(connection);
        return static_cast<size_t>(std::count(all.begin(), all.end(), "AbortRead"));
    }
    Clock::time_point gone()
    {
        std::lock_guard<std::mutex> guard(lock_);
        return gone_;
    }

    // A readout whose camera goes away, and what comes in its place: one that sends `first` on its
    // connection, and `later` when it was asked something behind that. What it is told, beginning
    // with the first question, up to the exposure time that the plan had changed; of what comes
    // later, up to an abort.
    std::vector<uint32_t> toldTo(const std::string& first, const std::string& later = "")
    {
        Camera& camera = open();
        camera.set("exposure", 5ms);
        Plan plan = planOf(0, 1ms);
        Stream stream = camera.stream(plan);
        EXPECT_TRUE(stream.next(kPatience).has_value());
        sim_->Stop();
        tcScriptedCamera other(port_);
        EXPECT_TRUE(other.Accept());
        other.Send(first);
        std::vector<uint32_t> told;
        for (std::string message; (message = other.ReadMessage()).size() >= 12;) {
            told.push_back(IdOf(message));
            if (told.back() == kQuestion) {
                other.Send(MessageBytes(0x60, LittleEndian(5, 4)));
            }
            if (told.back() == kGetHardware) other.Send(HardwareAnswer(kRows, kColumns));
            // Once since the application set it, and once since the plan had changed it.
            const auto settings = std::count(told.begin(), told.end(), kSetExposure);
            if (settings == 2 && later.empty()) break;
            if (settings == 2 && told.back() == kQuestion) other.Send(later);
            if (told.back() == kAbort && settings == 2) break;
        }
        return told;
    }
    static std::string packet()
    {
        const std::string head = std::string(2, '\0') + LittleEndian(7, 2) +
                                 LittleEndian(kRows, 2) + LittleEndian(0, 2) + LittleEndian(0, 2) +
                                 LittleEndian(3, 2) + std::string(4, '\0');
        return MessageBytes(0x66, head + std::string(8, 'x'));
    }

private:
    std::mutex lock_;
    std::vector<std::vector<std::string>> seen_;
    Clock::time_point gone_;
};

} // namespace

TEST_F(LostStreams, AreToldSoAtOnceHoweverTheConnectionEnds)
{
    for (const char* fault : {"close", "reset", "close-payload", "close-header"}) {
        SCOPED_TRACE(fault);
        openWatched({std::string(fault) + ":readout=1,frame=2,packet=10"});
        Stream stream = camera_->stream(planOf(0));
        auto told = std::async(std::launch::async, [&] {
            const Error error = errorOf([&] { all(stream); });
            return std::make_pair(error.kind(), Clock::now());
        });
        const auto [kind, when] = told.get();
        EXPECT_EQ(kind, ErrorKind::LinkLost);
        EXPECT_EQ(stream.end(), ReadoutEnd::LinkLost);
        ASSERT_TRUE(waitUntil([&] { return gone() != Clock::time_point(); }));
        EXPECT_LT(when - gone(), kAfterLoss);
        camera_.reset();
    }
}

// Nor where the first answers there fill up a packet that was cut.
TEST_F(LostStreams, AreNotAbortedOnEitherConnection)
{
    for (const char* fault : {"reset", "close-payload", "close-header"}) {
        SCOPED_TRACE(fault);
        openWatched({std::string(fault) + ":readout=1,frame=2,packet=10"});
        camera_->set("gain", 2);
        Stream stream = camera_->stream(planOf(0));
        EXPECT_EQ(errorOf([&] { all(stream); }).kind(), ErrorKind::LinkLost);
        ASSERT_TRUE(camera_->waitForLink(kPatience));
        EXPECT_EQ(camera_->get("gain").toInt(), 2);
        tsStatistics figures{};
        VXGetStatistics(camera_->handle(), &figures, sizeof figures);
        EXPECT_EQ(figures.FramesPending, 0u) << "given up here";
        EXPECT_EQ(aborts(0) + aborts(1), 0u);
        camera_->close();
        EXPECT_EQ(aborts(0) + aborts(1), 0u) << "nothing runs";
    }
}

TEST_F(LostStreams, AreAbortedRightBeforeTheNextOneInCaseTheCameraHasNotNoticed)
{
    openWatched({"close:readout=1,frame=2,packet=10"});
    Stream stream = camera_->stream(planOf(0));
    EXPECT_EQ(errorOf([&] { all(stream); }).kind(), ErrorKind::LinkLost);
    ASSERT_TRUE(camera_->waitForLink(kPatience));
    const Frame frame = camera_->grab(planOf(1));
    EXPECT_EQ(frame.facts().readout, 2u);
    EXPECT_EQ(frame.sum(), sumOf(2, 1).value());
    const Frame next = camera_->grab(planOf(1));
    EXPECT_EQ(next.sum(), sumOf(3, 1).value());
    const std::vector<std::string> told = seen(1);
    EXPECT_EQ(aborts(0), 0u);
    EXPECT_EQ(aborts(1), 1u);
    const auto abort = std::find(told.begin(), told.end(), "AbortRead");
    const auto read = std::find(told.begin(), told.end(), "ReadCCDArea");
    EXPECT_LT(abort - told.begin(), read - told.begin());
}

TEST_F(LostStreams, HoldUpNobodyWhileTheConnectionIsDown)
{
    std::mutex lock;
    std::string logged;
    const auto note = [&](const std::string& text) {
        std::lock_guard<std::mutex> guard(lock);
        logged += text + "\n";
    };
    const auto take = [](const tsLoggedError* error, void* user) {
        (*static_cast<decltype(note)*>(user))(error->Text);
        return 1;
    };
    VXSetLogCallback(take, const_cast<void*>(static_cast<const void*>(&note)));
    open();
    Stream stream = camera_->stream(planOf(1, 1h));
    sim_->Stop();
    EXPECT_EQ(errorOf([&] { stream.next(kPatience); }).kind(), ErrorKind::LinkLost);
    EXPECT_LT(timeOf([&] {
                  EXPECT_EQ(errorOf([&] { camera_->grab(planOf(1)); }).kind(), ErrorKind::LinkLost);
              }),
              kAfterLoss);
    EXPECT_LT(timeOf([&] { camera_->close(); }), kAfterLoss);
    VXSetLogCallback(nullptr, nullptr);
    EXPECT_THAT(logged, testing::Not(testing::HasSubstr("AbortRead"))) << "nothing can be sent";
}

TEST_F(LostStreams, LeaveACameraAloneThatSendsNothingOfThem)
{
    const std::vector<uint32_t> told = toldTo("");
    EXPECT_EQ(std::count(told.begin(), told.end(), kAbort), 0);
    EXPECT_EQ(std::count(told.begin(), told.end(), kSetExposure), 2);
}

TEST_F(LostStreams, AreAbortedWhenTheCameraGoesOnWithThemOnTheNextConnection)
{
    const std::vector<uint32_t> told = toldTo(packet());
    EXPECT_EQ(std::count(told.begin(), told.end(), kAbort), 1);
}

TEST_F(LostStreams, AreAbortedWhenTheCameraGoesOnWithThemAWhileLater)
{
    const std::vector<uint32_t> told = toldTo("", packet());
    EXPECT_EQ(std::count(told.begin(), told.end(), kAbort), 1);
}
