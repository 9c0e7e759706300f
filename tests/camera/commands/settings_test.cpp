// Every setting as one conversation: what the call sends, what the camera answers, what comes out.
#include "conversations.h"
#include "tcTestCamera.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <utility>

namespace {

std::vector<tsConversation> AllConversations()
{
    std::vector<tsConversation> all = BasicConversations();
    for (tsConversation& one : FurtherConversations()) {
        all.push_back(std::move(one));
    }
    return all;
}

class Settings : public testing::TestWithParam<tsConversation>
{};

TEST_P(Settings, SendAndTellWhatIsPrescribed)
{
    const tsConversation& expected = GetParam();
    tcTestCamera camera;
    if (expected.answerId != 0) {
        camera.AnswerTo(expected.sentId, expected.answerId, expected.answer);
    }
    EXPECT_EQ(expected.call(camera), expected.told);
    if (expected.sentId == 0) {
        EXPECT_EQ(camera.SentCount(), 0u);
        return;
    }
    ASSERT_EQ(camera.SentCount(), 1u);
    EXPECT_EQ(camera.LastSent().id, expected.sentId);
    EXPECT_EQ(camera.LastSent().payload, expected.sentPayload);
}

INSTANTIATE_TEST_SUITE_P(Table, Settings, testing::ValuesIn(AllConversations()),
                         [](const auto& each) { return each.param.name; });

// Calls that hand the send's result on, and those that do not.
TEST(SettingsSend, FailureIsHandedOnOnlyWhereTold)
{
    tcTestCamera camera;
    camera.RefuseToSend(true);
    tsSetFilterCmd filter{};
    TVXNetworkConfig config{};
    tsRecordParams recording{};
    TVXCameraHardware info{};
    unsigned char table[8] = {}, wide[2048] = {};
    int size = sizeof info;

    EXPECT_EQ(camera.SetShutterOverride(0, 0), -1);
    EXPECT_EQ(camera.SetCCDArea(0, 0, 1, 1), -1);
    EXPECT_EQ(camera.SetSimpleBinning(1, 1, 0, 0), -1);
    EXPECT_EQ(camera.SetCCDTargetTemp(0), -1);
    EXPECT_EQ(camera.EnableFan(1), -1);
    EXPECT_EQ(camera.SetTrigger(1), -1);
    EXPECT_EQ(camera.SetTriggerMode(eExtTrigOff, 0, 0), -1);
    EXPECT_EQ(camera.SetAutoTriggerReArm(1), -1);
    EXPECT_EQ(camera.SetGPIO(1, ePinLow), -1);
    EXPECT_EQ(camera.SetGain(1), -1);
    EXPECT_EQ(camera.SetPID(1, 1, 1), -1);
    EXPECT_EQ(camera.SetFilter(&filter), -1);
    EXPECT_EQ(camera.CISSetShutterMode(eCISShutterRolling), -1);
    EXPECT_EQ(camera.CISCalibrate(1), -1);
    EXPECT_EQ(camera.CISSelectChannel(eCISChannelBoth), -1);
    EXPECT_EQ(camera.SetRecording(&recording, 0), -1);
    EXPECT_EQ(camera.SetTestPattern(0, nullptr, 0), -1);
    EXPECT_EQ(camera.SetImageInterval(1), -1);
    EXPECT_EQ(camera.SetCCDImageMirroring(0, 0), -1);
    EXPECT_EQ(camera.SetShearingParams(0, 0, 0, 0), -1);
    EXPECT_EQ(camera.SetTimingData(table, sizeof table), -1);
    EXPECT_EQ(camera.SetParameter(1, table, 1), -1);
    EXPECT_EQ(camera.SetBinningSequence(table, table, 1), -1);
    EXPECT_EQ(camera.EnableNoOps(0, 0), -1);
    EXPECT_EQ(camera.AbortRead(), -1);

    EXPECT_EQ(camera.SetExposure(1), 0);
    EXPECT_EQ(camera.SetExposureEx(1), 0);
    EXPECT_EQ(camera.SetShutterParams(1, 1, 1), 0);
    EXPECT_EQ(camera.SetAreaEx(0, nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(camera.SetBinParam(table, 0), 0);
    EXPECT_EQ(camera.SetHorBinParam(wide, 0), 0);
    EXPECT_EQ(camera.SetCooling(1), 0);
    EXPECT_EQ(camera.WriteDAC(1, 1, true), 0);
    EXPECT_EQ(camera.Write32Data(1, 1), 0);
    EXPECT_EQ(camera.CameraReset(), 0);
    EXPECT_EQ(camera.ClearCCD(0, 0), 0);
    EXPECT_EQ(camera.SetCameraHardwareInfo(&info, &size), 0);
    EXPECT_EQ(camera.SetNetworkConfig(&config), 0);
}

TEST(SettingsWait, OutputsStayUntouchedWhenNoAnswerComes)
{
    tcTestCamera camera;
    camera.RefuseToSend(true); // the wait ends at once, as if timed out
    long longs[3] = {11, 12, 13};
    int ints[6] = {21, 22, 23, 24, 25, 26};
    float floats[2] = {31, 32};
    EXPECT_EQ(camera.GetExposureTime(&longs[0]), -2);
    EXPECT_EQ(camera.GetShutterParams(&longs[0], &longs[1], &ints[0]), -2);
    EXPECT_EQ(camera.GetTriggerMode(nullptr, &ints[0], &ints[1]), -2);
    EXPECT_EQ(camera.GetSimpleBinning(&ints[0], &ints[1], &floats[0], &floats[1]), -2);
    EXPECT_EQ(camera.GetGainConfig(&ints[0], &floats[0], &ints[1]), -2);
    EXPECT_EQ(camera.GetReadoutNoise(&floats[0], &floats[1]), -2);
    EXPECT_EQ(camera.GetCCDTargetTemp(&floats[0]), -2);
    EXPECT_EQ(camera.GetGPIO(), -2);
    EXPECT_THAT(longs, testing::ElementsAre(11, 12, 13));
    EXPECT_THAT(ints, testing::ElementsAre(21, 22, 23, 24, 25, 26));
    EXPECT_THAT(floats, testing::ElementsAre(31, 32));
}

TEST(SettingsWait, NullOutputsAreSkipped)
{
    tcTestCamera camera;
    const tBytes zeros = P().Fill(64, 0);
    for (const tsCommandRow& row : gaCommands) {
        if (row.answer != nullptr) camera.AnswerTo(row.id, row.answer->id, zeros);
    }
    EXPECT_EQ(camera.GetExposureTime(nullptr), 0);
    EXPECT_EQ(camera.GetExposureTimeEx(nullptr), 0);
    EXPECT_EQ(camera.GetShutterParams(nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(camera.GetShutterCloseDelay(nullptr), 0);
    EXPECT_EQ(camera.GetSimpleBinning(nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(camera.GetCoolParam(nullptr), 0);
    EXPECT_EQ(camera.GetCCDTargetTemp(nullptr), 0);
    EXPECT_EQ(camera.GetCCDTemp(nullptr), 0);
    EXPECT_EQ(camera.GetBoardTemp(nullptr), 0);
    EXPECT_EQ(camera.GetPID(nullptr), 0);
    EXPECT_EQ(camera.Read32Data(0, nullptr), 0);
    EXPECT_EQ(camera.GetTrigger(nullptr), 0);
    EXPECT_EQ(camera.GetTriggerMode(nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(camera.GetAutoTriggerReArm(nullptr), 0);
    EXPECT_EQ(camera.GetGainConfig(nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(camera.GetFilter(nullptr), 0);
    EXPECT_EQ(camera.CISCalibrationState(nullptr), 0);
    EXPECT_EQ(camera.GetImageIntervals(nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(camera.GetCCDImageMirroring(nullptr, nullptr), 0);
    EXPECT_EQ(camera.GetCameraHardwareInfo(nullptr, nullptr), 0);
    EXPECT_EQ(camera.GetNetworkConfig(nullptr), 0);
    EXPECT_EQ(camera.GetReadoutNoise(nullptr, nullptr), 0);
    EXPECT_EQ(camera.GetCCDArea(nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(camera.GetAreaEx(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(camera.GetBinningSequence(nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(camera.GetTimingFileData(nullptr, nullptr), 0);
}

TEST(SettingsWidth, ShortsAndIntsAreNotOverrun)
{
    tcTestCamera camera;
    camera.Feed(0x69, P().U16(0).U16(0xFFFE).U16(0x8001));
    short shorts[3] = {1, 2, 3};
    EXPECT_EQ(camera.GetCCDTemp(&shorts[1]), 0);
    EXPECT_THAT(shorts, testing::ElementsAre(1, static_cast<short>(0x8001), 3));
    EXPECT_EQ(camera.GetBoardTemp(&shorts[1]), 0);
    EXPECT_THAT(shorts, testing::ElementsAre(1, -2, 3));

    camera.AnswerTo(0x59, 0x7F, P().U32(0x80000000));
    int ints[3] = {1, 2, 3};
    EXPECT_EQ(camera.GetTrigger(&ints[1]), 0);
    EXPECT_THAT(ints, testing::ElementsAre(1, INT32_MIN, 3));
}

TEST(SettingsExposure, OneFieldHoldsTheCurrentExposure)
{
    // The images' time-out shows it: exposure + 20 s.
    const auto stepsToTimeOut = [](tcTestCamera& camera) {
        EXPECT_EQ(camera.InitReqStackItem(eItemImage16, 1), 0);
        int steps = 0;
        while (camera.numOpsPending() != 0 && steps < 1000) {
            camera.Tick();
            ++steps;
        }
        return steps;
    };
    tcTestCamera camera;
    EXPECT_EQ(stepsToTimeOut(camera), 200);
    camera.SetExposure(1000);
    EXPECT_EQ(stepsToTimeOut(camera), 210);
    camera.SetExposureEx(2000);
    EXPECT_EQ(stepsToTimeOut(camera), 220);
    camera.Feed(0x60, P().U32(3000));
    EXPECT_EQ(stepsToTimeOut(camera), 230);
}

struct tsEntry {
    const char* name; // what the record says
    std::function<void(tcVXCamera&)> call;
};

// A call with all its arguments zero or null.
template <class... Parameters>
tsEntry Entry(const char* name, int (tcVXCamera::*operation)(Parameters...))
{
    return {name, [operation](tcVXCamera& camera) { (camera.*operation)(Parameters{}...); }};
}

const tsEntry gaEntries[] = {
    Entry("SetExposure", &C::SetExposure),
    Entry("SetExposureEx", &C::SetExposureEx),
    Entry("GetExposureTime", &C::GetExposureTime),
    Entry("GetExposureTimeEx", &C::GetExposureTimeEx),
    Entry("SetShutterCloseDelay", &C::SetShutterParams), // another name
    Entry("GetShutterDelay", &C::GetShutterParams),      // another name
    Entry("GetShutterCloseDelay", &C::GetShutterCloseDelay),
    Entry("SetShutterOverride", &C::SetShutterOverride),
    Entry("SetCCDArea", &C::SetCCDArea),
    Entry("SetAreaEx", &C::SetAreaEx),
    Entry("GetExposure", &C::GetAreaEx), // another name
    Entry("SetBinParam", &C::SetBinParam),
    Entry("SetHorbinParam", &C::SetHorBinParam), // another spelling
    Entry("GetBinParam", &C::GetBinParam),
    Entry("GetHorBinParam", &C::GetHorBinParam),
    Entry("SetBinMaskParam", &C::SetBinMaskParam),
    Entry("GetBinParam", &C::GetBinMaskParam), // another name
    Entry("SetBinningSequence", &C::SetBinningSequence),
    Entry("GetBinningSequence", &C::GetBinningSequence),
    Entry("SetSimpleBinning", &C::SetSimpleBinning),
    Entry("GetSimpleBinning", &C::GetSimpleBinning),
    Entry("SetCooling", &C::SetCooling),
    Entry("GetCoolParam", &C::GetCoolParam),
    Entry("SetCCDTargetTemp", &C::SetCCDTargetTemp),
    Entry("GetCCDTargetTemp", &C::GetCCDTargetTemp),
    Entry("SetCCDOffset", &C::EnableFan), // another name
    Entry("SetCCDOffset", &C::SetCCDOffset),
    Entry("WriteDAC", &C::WriteDAC),
    Entry("Write32Data", &C::Write32Data),
    Entry("Read32Data", &C::Read32Data),
    Entry("CameraReset", &C::CameraReset),
    Entry("ClearCCD", &C::ClearCCD),
    Entry("SetTrigger", &C::SetTrigger),
    Entry("GetTrigger", &C::GetTrigger),
    Entry("SetTriggerMode", &C::SetTriggerMode),
    Entry("GetTriggerMode", &C::GetTriggerMode),
    Entry("SetAutoTriggerReArm", &C::SetAutoTriggerReArm),
    Entry("GetAutoTriggerReArm", &C::GetAutoTriggerReArm),
    Entry("SetGPIO", &C::SetGPIO),
    Entry("GetGPIO", &C::GetGPIO),
    Entry("SetGain", &C::SetGain),
    Entry("GetGainConfig", &C::GetGainConfig),
    Entry("SetPID", &C::SetPID),
    Entry("GetPID", &C::GetPID),
    Entry("SetFilter", &C::SetFilter),
    Entry("GetFilter", &C::GetFilter),
    Entry("CISSetShutterMode", &C::CISSetShutterMode),
    Entry("CISCalibrate", &C::CISCalibrate),
    Entry("CISSelectChannel", &C::CISSelectChannel),
    Entry("CISCalibrationState", &C::CISCalibrationState),
    Entry("SetRecording", &C::SetRecording),
    Entry("SetTestPattern", &C::SetTestPattern),
    Entry("SetImageInterval", &C::SetImageInterval),
    Entry("GetImageIntervals", &C::GetImageIntervals),
    Entry("SetCCDImageMirroring", &C::SetCCDImageMirroring),
    Entry("GetCCDImageMirroring", &C::GetCCDImageMirroring),
    Entry("SetShearingParams", &C::SetShearingParams),
    Entry("SetTimingData", &C::SetTimingData),
    Entry("GetTimingFileData", &C::GetTimingFileData),
    Entry("SetParameter", &C::SetParameter),
    Entry("GetParameter", &C::GetParameter),
    Entry("SetCameraHardwareInfo", &C::SetCameraHardwareInfo),
    Entry("GetCameraHardwareInfo", &C::GetCameraHardwareInfo),
    Entry("SetNetworkConfig", &C::SetNetworkConfig),
    Entry("GetNetworkConfig", &C::GetNetworkConfig),
    Entry("GetReadoutNoise", &C::GetReadoutNoise),
    Entry("SendUserDefined", &C::SendUserDefined),
    Entry("SendLoopbackData", &C::SendLinkTestData), // another name
    Entry("EngineeringCommand", &C::EngineeringCommand),
};

TEST(SettingsLog, OperationsNameThemselvesOrWhatTheyAreMarkedWith)
{
    tcTestCamera camera;
    camera.TellGeometry(1, 6);
    const tBytes zeros = P().Fill(300, 0);
    for (const tsCommandRow& row : gaCommands) {
        if (row.answer != nullptr) camera.AnswerTo(row.id, row.answer->id, zeros);
    }
    for (const tsEntry& entry : gaEntries) {
        camera.ForgetRecords();
        entry.call(camera);
        const auto records = camera.Records();
        ASSERT_FALSE(records.empty()) << entry.name;
        EXPECT_EQ(records[0],
                  DebugRecord(4, std::string("tcVXCamera::") + entry.name + " Entered"));
    }
}

} // namespace
