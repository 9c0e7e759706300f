// Cameras that are lost while a sequence waits for their temperature.
#include "breaking_camera.h"
#include "files_support.h"
#include "kit_support.h"

#include <vxcamkit/sequence.h>
#include <vxcamkit/simulated_camera.h>

#include <future>

namespace vxcam {

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;

class SequenceCoolingTest : public KitCamera
{
protected:
    void openAt(double timeScale)
    {
        SimulatorOptions options;
        options.sensor = {kColumns, kRows};
        options.timeScale = timeScale;
        options.heartbeatSeconds = 0.05;
        camera_.reset();
        simulated_.emplace(options);
        camera_.emplace(Camera::open(simulated_->target()));
        EXPECT_EQ(camera_->timeScale(), timeScale);
    }
    SequencePlan plan(const std::string& text) const
    {
        return parseSequence(text, folder_.path("night.yaml"));
    }
    CoolingPhase phase() { return camera_->cooler().state().phase; }
    // Runs it, and reboots the camera once it is in that phase. What run() threw, if it did.
    std::optional<Error> rebooted(Sequence& sequence, CoolingPhase when, const char* seconds)
    {
        auto run = std::async(std::launch::async, [this, &sequence]() -> std::optional<Error> {
            try {
                sequence.run(*camera_);
            } catch (const Error& error) {
                return error;
            }
            return std::nullopt;
        });
        EXPECT_TRUE(waitUntil([&] { return phase() == when; }));
        const uint64_t before = camera_->statistics().heartbeats; // of the first orders
        EXPECT_TRUE(waitUntil([&] { return camera_->statistics().heartbeats > before + 3; }));
        simulated_->inject(std::string("reboot:seconds=") + seconds);
        return run.get();
    }

    Folder folder_;
    std::optional<SimulatedCamera> simulated_;
};

struct Way {
    double timeScale;
    std::string step;
    CoolingPhase phase;
};

} // namespace

TEST_F(SequenceCoolingTest, EndsWithTheLostLinkOfACameraThatStaysAway)
{
    for (const Way& way :
         {Way{1, "temperature: {to: -50, settle: 2s}", CoolingPhase::Settling},
          Way{20, "temperature: {to: -50, ramp: 10, settle: 2s}", CoolingPhase::Ramping},
          Way{1, "warm-up: {to: 90, ramp: 10}", CoolingPhase::WarmingUp}}) {
        SCOPED_TRACE(way.step);
        openAt(way.timeScale);
        SequencePlan night = plan("link: 300ms\nsteps: [{" + way.step + "}, {bias: {count: 1}}]\n");
        night.folder = folder_.path(way.step.substr(0, 20));
        Sequence sequence(night);
        const std::optional<Error> error = rebooted(sequence, way.phase, "80000");
        ASSERT_TRUE(error);
        EXPECT_EQ(error->kind(), ErrorKind::LinkLost);
        EXPECT_THAT(error->what(),
                    AllOf(HasSubstr(simulated_->target()), HasSubstr("connection was lost")));
        ASSERT_THAT(sequence.report().failures, SizeIs(1));
        EXPECT_THAT(sequence.report().failures[0].text,
                    AllOf(StartsWith(way.step.substr(0, way.step.find(':')) + ": "),
                          HasSubstr("connection was lost")));
        EXPECT_EQ(phase(), CoolingPhase::Idle);
    }
}

// Whose settings are those of power-up, and whose cooling is off.
TEST_F(SequenceCoolingTest, GoesOnWithACameraThatComesBackAndCountsOneFailure)
{
    for (const Way& way :
         {Way{1, "temperature: {to: 20, settle: 3s}", CoolingPhase::Settling},
          Way{20, "temperature: {to: 15, ramp: 100, settle: 20s}", CoolingPhase::Ramping}}) {
        SCOPED_TRACE(way.step);
        openAt(way.timeScale);
        SequencePlan night =
            plan("retries: 1\nsteps: [{set: {gain: 3}}, {" + way.step + "}, {bias: {count: 1}}]\n");
        night.folder = folder_.path(std::to_string(way.timeScale));
        Sequence sequence(night);
        const std::optional<Error> error = rebooted(sequence, way.phase, "0.2");
        EXPECT_FALSE(error) << error->what();
        EXPECT_TRUE(sequence.report().complete);
        ASSERT_THAT(sequence.report().failures, SizeIs(1));
        EXPECT_THAT(sequence.report().failures[0].text, StartsWith("temperature: "));
        EXPECT_TRUE(camera_->get("cooling").toBool());
        EXPECT_EQ(camera_->get("gain").toDouble(), 3);
    }
}

TEST_F(SequenceCoolingTest, EndsAtItsFirstLossWhereNothingIsTriedAgain)
{
    openAt(1);
    Sequence sequence(plan("retries: 0\nsteps: [{temperature: {to: -50}}]\n"));
    const std::optional<Error> error = rebooted(sequence, CoolingPhase::Settling, "0.2");
    ASSERT_TRUE(error);
    EXPECT_EQ(error->kind(), ErrorKind::LinkLost);
}

// The connections of a forwarder to a camera that is off are one loss.
TEST_F(SequenceCoolingTest, CountsOneFailureWhereConnectionsEndAtOnce)
{
    BreakingCamera there;
    camera_.emplace(Camera::open(there.place()));
    Sequence sequence(plan("retries: 1\nsteps: [{temperature: {to: 5}}]\n"));
    auto run =
        std::async(std::launch::async, [&] { return errorOf([&] { sequence.run(*camera_); }); });
    ASSERT_TRUE(waitUntil([&] { return phase() == CoolingPhase::Ramping; }));
    BreakingCamera::Manners manners;
    manners.hangsUp = true;
    there.breakOff("", manners);
    ASSERT_TRUE(waitUntil([&] { return phase() == CoolingPhase::Idle; }));
    const uint64_t before = camera_->statistics().connectionsLost;
    EXPECT_TRUE(waitUntil([&] { return camera_->statistics().connectionsLost > before + 3; }));
    there.breakOff("", {});
    EXPECT_TRUE(waitUntil([&] { return phase() == CoolingPhase::Ramping; })); // goes on
    sequence.stop();
    EXPECT_EQ(run.get().kind(), ErrorKind::Aborted);
    EXPECT_THAT(sequence.report().failures, SizeIs(1));
}

} // namespace vxcam
