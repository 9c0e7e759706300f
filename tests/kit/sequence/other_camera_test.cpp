// Sequences whose camera is another one when they go on.
#include "files_support.h"
#include "kit_support.h"

#include <vxcamkit/sequence.h>

#include <filesystem>
#include <fstream>
#include <regex>

namespace vxcam {

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class OtherCameraTest : public KitCamera
{
protected:
    void SetUp() override
    {
        KitCamera::SetUp();
        options_.serial = 7;
    }
    SequencePlan plan(const std::string& text) const
    {
        return parseSequence(text, folder_.path("night.yaml"));
    }
    // What a run ends with, whose camera is gone behind its second frame.
    void begin(const SequencePlan& night)
    {
        open({"reboot:readout=3,packet=1,seconds=1000"});
        EXPECT_EQ(errorOf([&] { Sequence(night).run(*camera_); }).kind(), ErrorKind::LinkLost);
        camera_.reset();
        EXPECT_THAT(reportOf(night)->files, SizeIs(2));
    }
    // What it ends with when it goes on with the camera that the options say; nothing is taken.
    Error refusal(const SequencePlan& night)
    {
        open();
        Sequence sequence(night);
        Error error = errorOf([&] { sequence.run(*camera_); });
        EXPECT_THAT(sim_->Frames(), IsEmpty());
        EXPECT_EQ(sequence.report().runs, 1);
        return error;
    }
    static bool isBesideOthers(const SequencePlan& night)
    {
        const auto report = reportOf(night);
        uint64_t bytes = 0;
        for (const SequenceFile& file : report->files) {
            if (bytes != 0 && file.bytes != bytes) return true;
            bytes = file.bytes;
        }
        return false;
    }
    std::string journalText() const
    {
        std::ifstream file(folder_.path("night/night.journal"));
        return {std::istreambuf_iterator<char>(file), {}};
    }

    Folder folder_;
};

const std::string kLights = "link: 100ms\nsteps: [{lights: {count: 4, exposure: 1ms}}]\n";

} // namespace

TEST_F(OtherCameraTest, IsRefusedForItsSensorBeforeAnythingIsTaken)
{
    const SequencePlan night = plan(kLights);
    begin(night);
    options_.rows = 32;
    const Error error = refusal(night);
    EXPECT_EQ(error.kind(), ErrorKind::Usage);
    EXPECT_THAT(error.what(), AllOf(HasSubstr("(vxcamsim with serial number 7, 96 x 64 pixels)"),
                                    HasSubstr("(vxcamsim with serial number 7, 96 x 32 pixels)"),
                                    HasSubstr("choose another folder")));
}

TEST_F(OtherCameraTest, IsRefusedForItsSerialNumberUntilTheOldOneIsThere)
{
    const SequencePlan night = plan(kLights);
    begin(night);
    options_.serial = 8;
    EXPECT_THAT(refusal(night).what(), AllOf(HasSubstr("number 7,"), HasSubstr("number 8,")));
    options_.serial = 7;
    open();
    Sequence(night).run(*camera_);
    EXPECT_TRUE(reportOf(night)->complete);
    EXPECT_THAT(sim_->Frames(), SizeIs(2));
}

TEST_F(OtherCameraTest, TakesOverAJournalThatNamesNone)
{
    const SequencePlan night = plan(kLights);
    begin(night);
    const std::string text = std::regex_replace(journalText(), std::regex("\\S+ camera .*\n"), "");
    ASSERT_NE(text, journalText());
    std::ofstream(folder_.path("night/night.journal")) << text;
    open();
    Sequence(night).run(*camera_);
    EXPECT_TRUE(reportOf(night)->complete);
    EXPECT_THAT(journalText(), HasSubstr(" camera 96 64 7 vxcamsim\n"));
}

TEST_F(OtherCameraTest, TakesOverASequenceOfWhichNoFrameIsThere)
{
    const SequencePlan night = plan("link: 100ms\nsteps: [{lights: {count: 1, exposure: 1ms}}]\n");
    open({"reboot:readout=1,packet=1,seconds=1000"});
    EXPECT_EQ(errorOf([&] { Sequence(night).run(*camera_); }).kind(), ErrorKind::LinkLost);
    options_.serial = 8;
    options_.rows = 32;
    open();
    Sequence(night).run(*camera_);
    EXPECT_TRUE(reportOf(night)->complete);
}

TEST_F(OtherCameraTest, EndsASequenceInWhoseMiddleItComes)
{
    open({"reboot-resized:rows=32,columns=40,readout=3,packet=1,seconds=0.05"});
    const SequencePlan night =
        plan("steps: [{set: {gain: 3}}, {lights: {count: 4, exposure: 1ms}}]\n");
    Sequence sequence(night);
    std::vector<std::string> settings;
    SequenceWatch watch;
    watch.onSetting = [&](const std::string& name, const Value&) { settings.push_back(name); };
    sequence.watch(watch);
    const Error error = errorOf([&] { sequence.run(*camera_); });
    EXPECT_EQ(error.kind(), ErrorKind::Camera);
    EXPECT_THAT(error.what(), AllOf(HasSubstr("96 x 64 pixels"), HasSubstr("40 x 32 pixels")));
    EXPECT_THAT(sequence.report().files, SizeIs(2));
    EXPECT_FALSE(isBesideOthers(night));
    EXPECT_THAT(settings, SizeIs(1)); // none goes to the other one
    ASSERT_THAT(sequence.report().failures, SizeIs(2));
    EXPECT_THAT(sequence.report().failures[0].text, HasSubstr("connection"));
    EXPECT_THAT(sequence.report().failures[1].text, HasSubstr("light 3: "));
    EXPECT_THAT(sequence.report().failures[1].text, HasSubstr("another camera"));
}

TEST_F(OtherCameraTest, EndsADelayInWhichItComes)
{
    options_.heartbeatSeconds = 0.01;
    open({"reboot-resized:rows=32,columns=40,time=0.3,seconds=0.05"});
    Sequence sequence(plan("steps: [{bias: {count: 1}}, {wait: 1h}, {bias: {count: 1}}]\n"));
    EXPECT_THAT(errorOf([&] { sequence.run(*camera_); }).what(), HasSubstr("40 x 32 pixels"));
    EXPECT_THAT(sequence.report().files, SizeIs(1));
}

} // namespace vxcam
