// Every setting as one conversation: what the call sends, what the camera answers, what comes out.
#include "tcTestCamera.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

namespace {

// "result: output output ..."
template <class... Outputs>
std::string Told(int result, Outputs... outputs)
{
    std::ostringstream text;
    text << result << ":";
    ((text << ' ' << outputs), ...);
    return text.str();
}

struct tsConversation {
    const char* name;
    std::function<std::string(tcVXCamera&)> call;
    uint32_t sentId; // 0: nothing is sent
    tBytes sentPayload;
    uint32_t answerId; // 0: nothing is answered
    tBytes answer;
    std::string told;
};

void PrintTo(const tsConversation& conversation, std::ostream* os)
{
    *os << conversation.name;
}

tcPayload P()
{
    return {};
}

// One line each where the call has no outputs.
template <class... Parameters, class... Arguments>
std::function<std::string(tcVXCamera&)> Set(int (tcVXCamera::*operation)(Parameters...),
                                            Arguments... arguments)
{
    return [=](tcVXCamera& camera) { return Told((camera.*operation)(arguments...)); };
}

template <class Value>
std::function<std::string(tcVXCamera&)> Get(int (tcVXCamera::*operation)(Value*))
{
    return [=](tcVXCamera& camera) {
        Value value{};
        memset(&value, 0x77, sizeof value); // a getter writes the whole variable
        const int result = (camera.*operation)(&value);
        return Told(result, value);
    };
}

template <class First, class Second, class Third>
std::function<std::string(tcVXCamera&)> Get(int (tcVXCamera::*operation)(First*, Second*, Third*))
{
    return [=](tcVXCamera& camera) {
        First first;
        Second second;
        Third third;
        memset(&first, 0x77, sizeof first);
        memset(&second, 0x77, sizeof second);
        memset(&third, 0x77, sizeof third);
        const int result = (camera.*operation)(&first, &second, &third);
        return Told(result, first, second, third);
    };
}

template <class Value>
std::function<std::string(tcVXCamera&)> Get(int (tcVXCamera::*operation)(Value*, Value*))
{
    return [=](tcVXCamera& camera) {
        Value first{}, second{};
        const int result = (camera.*operation)(&first, &second);
        return Told(result, first, second);
    };
}

using C = tcVXCamera;

const tsConversation gaConversations[] = {
    // Exposure and shutter
    {"SetExposure", Set(&C::SetExposure, 0x123456789ABL), 0x20, P().U32(0x456789AB), 0, {}, "0:"},
    {"SetExposureEx", Set(&C::SetExposureEx, 250L), 0x12, P().U32(250), 0, {}, "0:"},
    {"GetExposureTime",
     Get(&C::GetExposureTime),
     0x30,
     {},
     0x60,
     P().U32(0xFFFFFFFF),
     "0: 4294967295"},
    {"GetExposureTimeEx", Get(&C::GetExposureTimeEx), 0x11, {}, 0x60, P().U32(7), "0: 7"},
    {"SetShutterParams",
     Set(&C::SetShutterParams, 1L, 2L, 3),
     0x46,
     P().U32(1).U32(2).U32(3),
     0,
     {},
     "0:"},
    {"GetShutterParams",
     Get(&C::GetShutterParams),
     0x47,
     {},
     0x79,
     P().U32(0x80000001).U32(5).U32(6),
     "0: 2147483649 5 6"},
    {"GetShutterCloseDelay",
     Get(&C::GetShutterCloseDelay),
     0x47,
     {},
     0x79,
     P().U32(4).U32(5).U32(6),
     "0: 4"},
    {"SetShutterOverride",
     Set(&C::SetShutterOverride, 1, -1),
     0x53,
     P().U32(1).U32(0xFFFFFFFF),
     0,
     {},
     "0:"},

    // Simple binning
    {"SetSimpleBinning",
     Set(&C::SetSimpleBinning, 2, 3, 1.5f, 9.5f),
     0x15,
     P().U32(2).U32(3).F32(1.5f),
     0,
     {},
     "0:"},
    {"GetSimpleBinning",
     [](C& camera) {
         int first = 0, second = 0;
         float third = 0, fourth = 0;
         const int result = camera.GetSimpleBinning(&first, &second, &third, &fourth);
         return Told(result, first, second, third, fourth);
     },
     0x16,
     {},
     0x8C,
     P().I32(2).I32(-3).F32(0.5f).F32(4.25f),
     "0: 2 -3 0.5 4.25"},

    // Cooling and temperatures
    {"SetCooling", Set(&C::SetCooling, 1), 0x21, P().U32(1), 0, {}, "0:"},
    {"GetCoolParam", Get(&C::GetCoolParam), 0x31, {}, 0x61, P().U32(1), "0: 1"},
    {"SetCCDTargetTempTruncates",
     Set(&C::SetCCDTargetTemp, -12.39f),
     0x4D,
     P().I32(-123),
     0,
     {},
     "0:"},
    {"SetCCDTargetTempGoesToTheEndOfTheRange",
     Set(&C::SetCCDTargetTemp, -1e30f),
     0x4D,
     P().I32(INT32_MIN),
     0,
     {},
     "0:"},
    {"SetCCDTargetTempRefusesWhatIsNoNumber",
     Set(&C::SetCCDTargetTemp, std::nanf("")),
     0,
     {},
     0,
     {},
     "-5:"},
    {"GetCCDTargetTemp", Get(&C::GetCCDTargetTemp), 0x4E, {}, 0x7B, P().I32(-205), "0: -20.5"},
    {"EnableFan", Set(&C::EnableFan, 1), 0x48, P().U32(1), 0, {}, "0:"},
    {"SetPID", Set(&C::SetPID, 1.f, 2.5f, -3.f), 0x2C, P().F32(1).F32(2.5f).F32(-3), 0, {}, "0:"},
    {"GetPID",
     [](C& camera) {
         tsSetPIDCmd pid{};
         const int result = camera.GetPID(&pid);
         return Told(result, pid.P, pid.I, pid.D);
     },
     0x2D,
     {},
     0x85,
     P().F32(1).F32(2.5f).F32(-3),
     "0: 1 2.5 -3"},

    // Registers, converters and the camera itself
    {"SetCCDOffset",
     Set(&C::SetCCDOffset, static_cast<unsigned short>(700), true),
     0x3B,
     P().U16(700).U16(1),
     0x6A,
     {},
     "0:"},
    {"SetCCDOffsetWithoutFlag",
     Set(&C::SetCCDOffset, static_cast<unsigned short>(7), false),
     0x3B,
     P().U16(7).U16(0),
     0x6A,
     {},
     "0:"},
    {"WriteDAC",
     Set(&C::WriteDAC, static_cast<unsigned char>(9), static_cast<unsigned short>(0x1234), true),
     0x28,
     P().U16(0x1234).U8(9).U8(1),
     0,
     {},
     "0:"},
    {"Write32Data",
     Set(&C::Write32Data, 0x1100000010UL, 0x2200000020UL),
     0x27,
     P().U32(0x10).U32(0x20),
     0,
     {},
     "0:"},
    {"Read32Data",
     [](C& camera) {
         unsigned long value = ~0UL;
         const int result = camera.Read32Data(0x40, &value);
         return Told(result, value);
     },
     0x38, P().U32(0x40).U32(0), 0x70, P().U32(0x89ABCDEF), "0: 2309737967"},
    {"CameraReset", Set(&C::CameraReset), 0x22, {}, 0, {}, "0:"},
    {"ClearCCD", Set(&C::ClearCCD, 3, 4), 0x23, P().U32(3), 0, {}, "0:"},
    {"ClearCCDRefusesNegativeFirst", Set(&C::ClearCCD, -1, 0), 0, {}, 0, {}, "-5:"},
    {"ClearCCDRefusesNegativeSecond", Set(&C::ClearCCD, 0, -1), 0, {}, 0, {}, "-5:"},

    // Trigger, pins, gain, filter
    {"SetTrigger", Set(&C::SetTrigger, 2), 0x58, P().U32(2), 0, {}, "0:"},
    {"GetTrigger", Get(&C::GetTrigger), 0x59, {}, 0x7F, P().U32(3), "0: 3"},
    {"SetTriggerMode",
     Set(&C::SetTriggerMode, eExtTrigFrame, 5, 6),
     0x5E,
     P().U32(2).U32(5).U32(6),
     0,
     {},
     "0:"},
    {"GetTriggerMode",
     Get(&C::GetTriggerMode),
     0x5F,
     {},
     0x87,
     P().U32(1).U32(5).U32(6),
     "0: 1 5 6"},
    {"SetAutoTriggerReArmSendsOne",
     Set(&C::SetAutoTriggerReArm, 17),
     0x17,
     P().U32(1),
     0,
     {},
     "0:"},
    {"SetAutoTriggerReArmSendsZero",
     Set(&C::SetAutoTriggerReArm, 0),
     0x17,
     P().U32(0),
     0,
     {},
     "0:"},
    {"GetAutoTriggerReArm", Get(&C::GetAutoTriggerReArm), 0x18, {}, 0x8B, P().U32(1), "0: 1"},
    {"SetGPIO", Set(&C::SetGPIO, 4, ePinHigh), 0x56, P().U32(4).U32(1), 0, {}, "0:"},
    {"GetGPIO", Set(&C::GetGPIO), 0x57, {}, 0x7E, P().U32(0x5A), "90:"},
    {"SetGain", Set(&C::SetGain, 12), 0x2A, P().U32(12), 0, {}, "0:"},
    {"GetGainConfig",
     Get(&C::GetGainConfig),
     0x2B,
     {},
     0x84,
     P().I32(-1).F32(2.5f).I32(3).Fill(12, 0),
     "0: -1 2.5 3"},
    {"SetFilter",
     [](C& camera) {
         tsSetFilterCmd filter{1, 200};
         return Told(camera.SetFilter(&filter));
     },
     0x2E,
     P().U32(1).U32(200),
     0,
     {},
     "0:"},
    {"GetFilter",
     [](C& camera) {
         tsSetFilterCmd filter{9, 9};
         const int result = camera.GetFilter(&filter);
         return Told(result, +filter.First, +filter.Second);
     },
     0x2F,
     {},
     0x86,
     P().U32(0).U32(0x100),
     "0: 0 1"},
    {"SetFilterRefusesNull", Set(&C::SetFilter, nullptr), 0, {}, 0, {}, "-5:"},

    // CIS sensors
    {"CISSetShutterMode",
     Set(&C::CISSetShutterMode, eCISShutterGlobal),
     0x1D,
     P().U32(1),
     0,
     {},
     "0:"},
    {"CISSelectChannel", Set(&C::CISSelectChannel, eCISChannelBoth), 0x1E, P().U32(2), 0, {}, "0:"},
    {"CISCalibrate", Set(&C::CISCalibrate, 2), 0x1F, P().U32(2), 0, {}, "0:"},
    {"CISCalibrationState", Get(&C::CISCalibrationState), 0x1B, {}, 0x89, P().U32(6), "0: 6"},

    // Recording, test pattern, intervals, mirroring, shearing
    {"SetRecordingTerminatesTheText",
     [](C& camera) {
         tsRecordParams params{{1, 2, 3}, {}};
         memset(params.Text, 'x', sizeof params.Text);
         return Told(camera.SetRecording(&params, 99));
     },
     0x1C,
     P().U32(1).U32(2).U32(3).Fill(255, 'x').U8(0),
     0,
     {},
     "0:"},
    {"SetRecordingRefusesNull", Set(&C::SetRecording, nullptr, 0), 0, {}, 0, {}, "-5:"},
    {"SetTestPattern",
     [](C& camera) {
         unsigned short values[] = {10, 20};
         return Told(camera.SetTestPattern(6, values, 2));
     },
     0x5B,
     P().U32(6).U16(10).U16(20).Fill(60, 0),
     0,
     {},
     "0:"},
    {"SetTestPatternTakes31Values",
     [](C& camera) {
         unsigned short values[31] = {};
         values[30] = 31;
         return Told(camera.SetTestPattern(0, values, 31));
     },
     0x5B,
     P().U32(0).Fill(60, 0).U16(31).U16(0),
     0,
     {},
     "0:"},
    {"SetTestPatternRefuses32Values",
     [](C& camera) {
         unsigned short values[32] = {};
         return Told(camera.SetTestPattern(0, values, 32));
     },
     0,
     {},
     0,
     {},
     "-1:"},
    {"SetTestPatternRefusesMode7", Set(&C::SetTestPattern, 7, nullptr, 0), 0, {}, 0, {}, "-5:"},
    {"SetImageInterval", Set(&C::SetImageInterval, 0x100000005UL), 0x4A, P().U32(5), 0, {}, "0:"},
    {"GetImageIntervals",
     [](C& camera) {
         unsigned long a = ~0UL, b = ~0UL, c = ~0UL, d = ~0UL;
         const int result = camera.GetImageIntervals(&a, &b, &c, &d);
         return Told(result, a, b, c, d);
     },
     0x4B,
     {},
     0x7A,
     P().U32(1).U32(2).U32(3).U32(0xFFFFFFFF),
     "0: 1 2 3 4294967295"},
    {"SetCCDImageMirroring",
     Set(&C::SetCCDImageMirroring, 1u, 0u),
     0x51,
     P().U32(1).U32(0),
     0,
     {},
     "0:"},
    {"GetCCDImageMirroring",
     Get(&C::GetCCDImageMirroring),
     0x52,
     {},
     0x7C,
     P().U32(0).U32(1),
     "0: 0 1"},
    {"SetShearingParams",
     Set(&C::SetShearingParams, -1, 2u, 3u, 4u),
     0x49,
     P().I32(-1).U32(2).U32(3).U32(4),
     0,
     {},
     "0:"},

    // Hardware, network, noise
    {"SetCameraHardwareInfoIsCutTo100",
     [](C& camera) {
         TVXCameraHardware info{};
         info.Rows = 0x0102;
         int size = 150;
         const int result = camera.SetCameraHardwareInfo(&info, &size);
         return Told(result, size);
     },
     0x40,
     P().Fill(42, 0).U16(0x0102).Fill(56, 0),
     0,
     {},
     "0: 100"},
    {"SetCameraHardwareInfoSendsASmallerPart",
     [](C& camera) {
         TVXCameraHardware info{};
         memset(&info, 5, sizeof info);
         int size = 3;
         const int result = camera.SetCameraHardwareInfo(&info, &size);
         return Told(result, size);
     },
     0x40,
     P().Fill(3, 5),
     0,
     {},
     "0: 3"},
    {"GetCameraHardwareInfo",
     [](C& camera) {
         TVXCameraHardware info{};
         int size = sizeof info;
         const int result = camera.GetCameraHardwareInfo(&info, &size);
         return Told(result, size, info.Rows, info.Columns);
     },
     0x34,
     {},
     0x64,
     P().Fill(42, 1).U16(600).U16(0).U16(800).Fill(52, 2),
     "0: 100 600 800"},
    {"GetCameraHardwareInfoOfSizeZero",
     [](C& camera) {
         TVXCameraHardware info{};
         int size = 0;
         const int result = camera.GetCameraHardwareInfo(&info, &size);
         return Told(result, size);
     },
     0,
     {},
     0,
     {},
     "-4: 100"},
    {"SetNetworkConfig",
     [](C& camera) {
         TVXNetworkConfig config{{1, 2, 3, 4, 5}, 6};
         return Told(camera.SetNetworkConfig(&config));
     },
     0x42,
     P().U32(1).U32(2).U32(3).U32(4).U32(5).U16(6).U16(0),
     0,
     {},
     "0:"},
    {"SetNetworkConfigRefusesNull", Set(&C::SetNetworkConfig, nullptr), 0, {}, 0, {}, "-5:"},
    {"GetNetworkConfig",
     [](C& camera) {
         TVXNetworkConfig config{};
         const int result = camera.GetNetworkConfig(&config);
         return Told(result, config.Words[0], config.Words[4], config.Value);
     },
     0x41,
     {},
     0x76,
     P().U32(1).U32(2).U32(3).U32(4).U32(5).U16(6).U16(0),
     "0: 1 5 6"},
    {"GetReadoutNoise",
     Get(&C::GetReadoutNoise),
     0x3E,
     {},
     0x73,
     P().F32(1.25f).F32(9),
     "0: 1.25 9"},
    {"EnableNoOps", Set(&C::EnableNoOps, 200, 10), 0x5D, P().U32(10).U32(200), 0, {}, "0:"},
};

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

INSTANTIATE_TEST_SUITE_P(Table, Settings, testing::ValuesIn(gaConversations),
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
