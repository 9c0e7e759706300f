// Each function of the interface reaches its camera.
#include "tcTestCamera.h"
#include "vxcamiface.h"

#include <gtest/gtest.h>

namespace {

// Room for the results of every operation.
struct tsOutputs {
    long longs[4];
    unsigned long unsignedLongs[4];
    int ints[8][16];
    unsigned int words[4];
    short shorts[4];
    float floats[4];
    teExtTrigMode mode;
    TVXCameraHardware hardware;
    TVXNetworkConfig network;
    unsigned char bytes[8192];
};
tsOutputs gtOutputs;

void PrepareOutputs()
{
    memset(&gtOutputs, 0, sizeof gtOutputs);
    gtOutputs.ints[0][0] = 100;
}

// A camera of 2 x 1024 pixels that answers everything with a ramp.
void AnswerEverything(tcTestCamera& camera)
{
    camera.SetScript([&camera](const tsSentMessage& sent) {
        const tsCommandRow* row = FindCommand(sent.id);
        if (row == nullptr || row->answer == nullptr || row->answer->delivery == eEvent) return;
        camera.Feed(row->answer->id, tcPayload().Ramp(4400, sent.id));
    });
}

void OnImage(int, tsImageData*) {}
void OnHeartBeat(int, tsHeartBeatData*) {}

void OnUserDefined(int, void*, int) {}

// Calls one pair of functions and tells whether they did the same: same messages, results, outputs.
class tcForwarding
{
public:
    tcForwarding() { AnswerEverything(mCamera); }

    template <class... Parameters, class... Arguments>
    void Check(const char* name, int (*function)(int, Parameters...),
               int (tcVXCamera::*method)(Parameters...), Arguments... arguments)
    {
        SCOPED_TRACE(name);
        ++mnChecked;
        EXPECT_EQ(function(mCamera.GetHandle() + 1000, arguments...), -3);
        EXPECT_EQ(function(-2, arguments...), -3);

        Restart();
        const int wanted = (mCamera.*method)(arguments...);
        const auto wantedSent = mCamera.Sent();
        const tsOutputs wantedOutputs = gtOutputs;

        Restart();
        EXPECT_EQ(function(mCamera.GetHandle(), arguments...), wanted);
        EXPECT_EQ(memcmp(&gtOutputs, &wantedOutputs, sizeof gtOutputs), 0);
        const auto sent = mCamera.Sent();
        ASSERT_EQ(sent.size(), wantedSent.size());
        for (size_t i = 0; i < sent.size(); ++i) {
            EXPECT_EQ(sent[i].id, wantedSent[i].id);
            EXPECT_EQ(sent[i].payload, wantedSent[i].payload);
        }
    }

    tcTestCamera mCamera;
    int mnChecked = 0;

private:
    void Restart()
    {
        mCamera.AbortRead();
        mCamera.ForgetSent();
        PrepareOutputs();
    }
};

unsigned char gaTable[4096] = {1, 2, 3, 4, 5, 6, 7};
unsigned char gaOtherTable[16] = {7, 6, 5, 4, 3, 2, 1};
unsigned short gaValues[31] = {3, 1, 4, 1, 5};
int gaRegions[4][16] = {{10, 20}, {30, 40}, {50, 60}, {70, 80}};

} // namespace

TEST(Registry, ForwardsCallbacksReadoutsAndExposure)
{
    tcForwarding f;
    auto& o = gtOutputs;
    using c = tcVXCamera;
    static uint16_t image[2048];
    f.Check("VXSetImageDataCallback", VXSetImageDataCallback, &c::SetImageDataCallback, OnImage);
    f.Check("VXWaitCompletion", VXWaitCompletion, &c::WaitCompletion, 10);
    f.Check("VXSetHeartBeatCallback", VXSetHeartBeatCallback, &c::SetHeartBeatCallback,
            OnHeartBeat);
    f.Check("VXSetUserDefinedCallback", VXSetUserDefinedCallback, &c::SetUserDefinedCallback,
            OnUserDefined);
    f.Check("VXSetExposure", VXSetExposure, &c::SetExposure, 0x1122334455667788);
    f.Check("VXSetExposureEx", VXSetExposureEx, &c::SetExposureEx, 77L);
    f.Check("VXGetExposureTime", VXGetExposureTime, &c::GetExposureTime, &o.longs[1]);
    f.Check("VXGetExposureTimeEx", VXGetExposureTimeEx, &c::GetExposureTimeEx, &o.longs[2]);
    f.Check("VXSetShutterParams", VXSetShutterParams, &c::SetShutterParams, 1L, 2L, 3);
    f.Check("VXGetShutterParams", VXGetShutterParams, &c::GetShutterParams, &o.longs[0],
            &o.longs[1], &o.ints[1][0]);
    f.Check("VXSetShutterOverride", VXSetShutterOverride, &c::SetShutterOverride, 4, 5);
    f.Check("VXAbortRead", VXAbortRead, &c::AbortRead);
    f.Check("VXReadCCDBinned", VXReadCCDBinned, &c::ReadCCDBinned, nullptr, nullptr, short{2},
            uint16_t{3});
    f.Check("VXReadCCDArea", VXReadCCDArea, &c::ReadCCDArea, image, short{4}, uint16_t{5});
    f.Check("VXReadCCDMaskBinned", VXReadCCDMaskBinned, &c::ReadCCDMaskBinned, nullptr, nullptr,
            short{6}, uint16_t{7});
    f.Check("VXGetReadProgress", VXGetReadProgress, &c::PercentComplete, &o.words[0]);
    f.Check("VXOverrideImageTimout", VXOverrideImageTimout, &c::OverrideImageTimout, 500);
    EXPECT_EQ(f.mnChecked, 17);
}

TEST(Registry, ForwardsAreasAndBinning)
{
    tcForwarding f;
    auto& o = gtOutputs;
    using c = tcVXCamera;
    f.Check("VXSetCCDArea", VXSetCCDArea, &c::SetCCDArea, 1, 2, 3, 4);
    f.Check("VXGetCCDArea", VXGetCCDArea, &c::GetCCDArea, &o.ints[0][1], &o.ints[0][2],
            &o.ints[0][3], &o.ints[0][4]);
    f.Check("VXSetAreaEx", VXSetAreaEx, &c::SetAreaEx, 2, gaRegions[0], gaRegions[1], gaRegions[2],
            gaRegions[3]);
    f.Check("VXGetAreaEx", VXGetAreaEx, &c::GetAreaEx, o.ints[0], o.ints[1], o.ints[2], o.ints[3],
            o.ints[4], o.ints[5]);
    f.Check("VXSetBinParam", VXSetBinParam, &c::SetBinParam, gaTable, 3);
    f.Check("VXSetHorBinParam", VXSetHorBinParam, &c::SetHorBinParam, gaTable, 4);
    f.Check("VXSetBinMaskParam", VXSetBinMaskParam, &c::SetBinMaskParam, gaTable, 6);
    f.Check("VXGetBinParam", VXGetBinParam, &c::GetBinParam, 2, o.bytes, &o.ints[0][0]);
    f.Check("VXGetHorBinParam", VXGetHorBinParam, &c::GetHorBinParam, 2, o.bytes, &o.ints[0][0]);
    f.Check("VXGetBinMaskParam", VXGetBinMaskParam, &c::GetBinMaskParam, o.bytes, &o.ints[1][0],
            &o.ints[2][0]);
    f.Check("VXSetBinningSequence", VXSetBinningSequence, &c::SetBinningSequence, gaTable,
            gaOtherTable, uint8_t{7});
    f.Check("VXGetBinningSequence", VXGetBinningSequence, &c::GetBinningSequence, o.bytes,
            o.bytes + 100, o.bytes + 200);
    f.Check("VXSetSimpleBinning", VXSetSimpleBinning, &c::SetSimpleBinning, 1, 2, 3.5f, 4.5f);
    f.Check("VXGetSimpleBinning", VXGetSimpleBinning, &c::GetSimpleBinning, &o.ints[1][0],
            &o.ints[2][0], &o.floats[0], &o.floats[1]);
    EXPECT_EQ(f.mnChecked, 14);
}

TEST(Registry, ForwardsTemperaturesTriggersPinsAndSensors)
{
    tcForwarding f;
    auto& o = gtOutputs;
    using c = tcVXCamera;
    f.mCamera.Feed(0x69, tcPayload().U16(1).U16(22).U16(333));
    f.Check("VXSetCooling", VXSetCooling, &c::SetCooling, 1);
    f.Check("VXGetCooling", VXGetCooling, &c::GetCoolParam, &o.ints[1][0]);
    f.Check("VXGetCCDTemp", VXGetCCDTemp, &c::GetCCDTemp, &o.shorts[0]);
    f.Check("VXGetBoardTemp", VXGetBoardTemp, &c::GetBoardTemp, &o.shorts[1]);
    f.Check("VXSetCCDTargetTemp", VXSetCCDTargetTemp, &c::SetCCDTargetTemp, -12.5f);
    f.Check("VXGetCCDTargetTemp", VXGetCCDTargetTemp, &c::GetCCDTargetTemp, &o.floats[0]);
    f.Check("VXEnableFan", VXEnableFan, &c::EnableFan, 1);
    f.Check("VXSetTrigger", VXSetTrigger, &c::SetTrigger, 9);
    f.Check("VXGetTrigger", VXGetTrigger, &c::GetTrigger, &o.ints[1][0]);
    f.Check("VXSetTriggerMode", VXSetTriggerMode, &c::SetTriggerMode, eExtTrigFrame, 5, 6);
    f.Check("VXGetTriggerMode", VXGetTriggerMode, &c::GetTriggerMode, &o.mode, &o.ints[1][0],
            &o.ints[2][0]);
    f.Check("VXSetAutoTriggerReArm", VXSetAutoTriggerReArm, &c::SetAutoTriggerReArm, 7);
    f.Check("VXGetAutoTriggerReArm", VXGetAutoTriggerReArm, &c::GetAutoTriggerReArm, &o.ints[1][0]);
    f.Check("VXSetGPIO", VXSetGPIO, &c::SetGPIO, 3, ePinHigh);
    f.Check("VXGetGPIO", VXGetGPIO, &c::GetGPIO);
    f.Check("VXGetGainConfig", VXGetGainConfig, &c::GetGainConfig, &o.ints[1][0], &o.floats[0],
            &o.ints[2][0]);
    f.Check("VXSetGain", VXSetGain, &c::SetGain, 4);
    f.Check("VXSetCCDOffset", VXSetCCDOffset, &c::SetCCDOffset, uint16_t{512}, true);
    f.Check("VXGetReadoutNoise", VXGetReadoutNoise, &c::GetReadoutNoise, &o.floats[0],
            &o.floats[1]);
    f.Check("VXCISSetShutterMode", VXCISSetShutterMode, &c::CISSetShutterMode, eCISShutterGlobal);
    f.Check("VXCISCalibrate", VXCISCalibrate, &c::CISCalibrate, 3);
    f.Check("VXCISSelectChannel", VXCISSelectChannel, &c::CISSelectChannel, eCISChannelBoth);
    f.Check("VXCISCalibrationState", VXCISCalibrationState, &c::CISCalibrationState, &o.ints[1][0]);
    EXPECT_EQ(f.mnChecked, 23);
}

TEST(Registry, ForwardsImageSettingsDataBlocksAndEngineering)
{
    tcForwarding f;
    auto& o = gtOutputs;
    using c = tcVXCamera;
    tsRecordParams recording{{1, 2, 3}, "file"};
    TVXCameraHardware hardware{};
    TVXNetworkConfig network{{1, 2, 3, 4, 5}, 6};
    tcMessage own(0x99, tcPayload().U32(5));
    uint32_t words[2] = {0x1000, 0x2000};
    f.Check("VXSetImageInterval", VXSetImageInterval, &c::SetImageInterval, 8UL);
    f.Check("VXGetImageIntervals", VXGetImageIntervals, &c::GetImageIntervals, &o.unsignedLongs[0],
            &o.unsignedLongs[1], &o.unsignedLongs[2], &o.unsignedLongs[3]);
    f.Check("VXSetCCDImageMirroring", VXSetCCDImageMirroring, &c::SetCCDImageMirroring, 1U, 2U);
    f.Check("VXGetCCDImageMirroring", VXGetCCDImageMirroring, &c::GetCCDImageMirroring, &o.words[0],
            &o.words[1]);
    f.Check("VXSetTestPattern", VXSetTestPattern, &c::SetTestPattern, 2, gaValues, 5);
    f.Check("VXSetShearingParams", VXSetShearingParams, &c::SetShearingParams, 1, 2U, 3U, 4U);
    f.Check("VXSetRecording", VXSetRecording, &c::SetRecording, &recording, 1);
    f.Check("VXSetTimingData", VXSetTimingData, &c::SetTimingData, gaTable, 4000);
    f.Check("VXGetTimingData", VXGetTimingData, &c::GetTimingFileData, o.bytes, &o.ints[1][0]);
    f.Check("VXSetParameter", VXSetParameter, &c::SetParameter, 7U, gaTable, 9);
    f.Check("VXGetParameter", VXGetParameter, &c::GetParameter, 7U, o.bytes, 9);
    f.Check("VXGetCameraHardwareInfo", VXGetCameraHardwareInfo, &c::GetCameraHardwareInfo,
            &o.hardware, &o.ints[0][0]);
    f.Check("VXSetCameraHardwareInfo", VXSetCameraHardwareInfo, &c::SetCameraHardwareInfo,
            &hardware, &o.ints[0][0]);
    f.Check("VXGetCameraNetworkConfig", VXGetCameraNetworkConfig, &c::GetNetworkConfig, &o.network);
    f.Check("VXSetCameraNetworkConfig", VXSetCameraNetworkConfig, &c::SetNetworkConfig, &network);
    f.Check("VXClearCCD", VXClearCCD, &c::ClearCCD, 3, 4);
    f.Check("VXCameraReset", VXCameraReset, &c::CameraReset);
    f.Check("VXSendUserDefined", VXSendUserDefined, &c::SendUserDefined, own.get());
    f.Check("VXEngineeringCommand", VXEngineeringCommand, &c::EngineeringCommand, 101, words);
    EXPECT_EQ(f.mnChecked, 19);
}
