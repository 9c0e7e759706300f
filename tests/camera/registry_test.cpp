#include "tcTestCamera.h"
#include "vxcamiface.h"

#include <gtest/gtest.h>

#include <functional>
#include <thread>

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

using tImage = tpImageDataCallback;

void OnImage(int, tsImageData*) {}
void OnHeartBeat(int, tsHeartBeatData*) {}
void OnError(int, unsigned char, unsigned char, char*) {}
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

TEST(Registry, HandlesCountUpFromZeroAndAreNotUsedAgain)
{
    if (tcVXCamera::gpCameraMap != nullptr) GTEST_SKIP() << "needs a process of its own";
    auto first = std::make_unique<tcTestCamera>();
    auto second = std::make_unique<tcTestCamera>();
    EXPECT_EQ(first->GetHandle(), 0);
    EXPECT_EQ(second->GetHandle(), 1);
    first.reset();
    EXPECT_EQ(tcVXCamera::Find(0), nullptr);
    tcTestCamera third;
    EXPECT_EQ(third.GetHandle(), 2);
    EXPECT_EQ(tcVXCamera::gnCameraCount, 3U);
}

TEST(Registry, MapComesWithTheFirstCameraAndStays)
{
    if (tcVXCamera::gpCameraMap != nullptr) GTEST_SKIP() << "needs a process of its own";
    {
        tcTestCamera camera;
        ASSERT_NE(tcVXCamera::gpCameraMap, nullptr);
        ASSERT_EQ(tcVXCamera::gpCameraMap->size(), 1U);
        EXPECT_EQ(tcVXCamera::gpCameraMap->at(0), &camera);
    }
    ASSERT_NE(tcVXCamera::gpCameraMap, nullptr);
    EXPECT_TRUE(tcVXCamera::gpCameraMap->empty());
}

TEST(Registry, LoggerIsNumberedOneAboveTheHandle)
{
    tcTestCamera first, second;
    EXPECT_EQ(first.Log().GetName(), "VXCAM" + std::to_string(first.GetHandle() + 1));
    EXPECT_EQ(second.Log().GetName(), "VXCAM" + std::to_string(first.GetHandle() + 2));
    EXPECT_EQ(tcLog::FindLogPtr(second.Log().GetName().c_str()), &second.Log());
}

TEST(Registry, VersionIsStoredAndReturned)
{
    EXPECT_EQ(tcVXCamera::GetVersion(), 0x00030007);
    EXPECT_EQ(tcVXCamera::DllVersion, 0x00030007U);
    EXPECT_EQ(VXGetDllVersion(), 0x00030007);
}

TEST(Registry, TimingDataSizeIsAConstant)
{
    EXPECT_EQ(VXGetTimingDataSize(), 4356);
}

TEST(Registry, EveryCallBeforeTheFirstOpenFindsNoCamera)
{
    EXPECT_EQ(VXSetExposure(0, 1), -3);
    EXPECT_EQ(VXWaitCompletion(0, 10), -3);
    EXPECT_EQ(VXisCameraReady(0), -3);
    EXPECT_EQ(VXCloseCamera(0), -3);
    EXPECT_EQ(VXSetErrorCallback(0, OnError), -3);
    EXPECT_EQ(VXCISLoadCalibration(0), -3);
    EXPECT_EQ(VXCISClearCalibration(0), -3);
}

TEST(Registry, ANullEntryIsNoCamera)
{
    tcTestCamera camera;
    (*tcVXCamera::gpCameraMap)[77] = nullptr;
    EXPECT_EQ(VXSetExposure(77, 1), -3);
    EXPECT_EQ(VXisCameraReady(77), -3);
    EXPECT_EQ(VXCloseCamera(77), -3);
}

TEST(Registry, GlobalErrorCallbackNeedsNoCamera)
{
    EXPECT_EQ(VXSetErrorCallback(-1, OnError), 0);
    EXPECT_EQ(tcVXCamera::spGlobalErrorMsgCallBack, &OnError);
    EXPECT_EQ(tcVXCamera::SetGlobalErrorCallback(nullptr), 0);
    EXPECT_EQ(tcVXCamera::spGlobalErrorMsgCallBack, nullptr);
}

TEST(Registry, GlobalErrorCallbackIsNotCalledByTheDispatcher)
{
    static int calls;
    calls = 0;
    tcVXCamera::SetGlobalErrorCallback([](int, unsigned char, unsigned char, char*) { ++calls; });
    tcTestCamera camera;
    camera.Feed(0x75, tcPayload().U8(1).U8(2).Text("broken").U8(0));
    EXPECT_EQ(calls, 0);
    EXPECT_TRUE(camera.Logged(ErrorRecord("VXCAMERA: 1-2 broken")));
    tcVXCamera::SetGlobalErrorCallback(nullptr);
}

TEST(Registry, ACameraIsReadyWhileNothingIsPending)
{
    tcTestCamera camera;
    EXPECT_EQ(VXisCameraReady(camera.GetHandle()), 0);
    camera.ReadCCDArea(nullptr, 1, 0);
    EXPECT_EQ(VXisCameraReady(camera.GetHandle()), -1);
    camera.AbortRead();
    EXPECT_EQ(VXisCameraReady(camera.GetHandle()), 0);
}

TEST(Registry, ClosingDeletesTheCameraAndItsHandleIsGone)
{
    static bool deleted;
    deleted = false;
    struct tcNoticed : tcTestCamera {
        ~tcNoticed() override { deleted = true; }
    };
    auto* camera = new tcNoticed;
    const int handle = camera->GetHandle();
    EXPECT_EQ(VXCloseCamera(handle), 0);
    EXPECT_TRUE(deleted);
    EXPECT_EQ(VXCloseCamera(handle), -3);
    EXPECT_EQ(VXSetExposure(handle, 1), -3);
}

TEST(Registry, ClosingInsideACallbackIsRefused)
{
    static int result;
    result = 0;
    tcTestCamera camera;
    camera.SetUserDefinedCallback([](int handle, void*, int) { result = VXCloseCamera(handle); });
    camera.Feed(0xC0, {});
    EXPECT_EQ(result, -1);
    EXPECT_EQ(tcVXCamera::Find(camera.GetHandle()), &camera);
    EXPECT_EQ(camera.Errors(), (std::vector<std::string>{
                                   "VXCloseCamera would wait for the thread it was called on"}));
}

TEST(Registry, CalibrationShortcutsAreCalibrateOneAndTwo)
{
    tcTestCamera camera;
    EXPECT_EQ(VXCISLoadCalibration(camera.GetHandle()), 0);
    EXPECT_EQ(camera.LastSent().id, 0x1FU);
    EXPECT_EQ(camera.LastSent().payload, tcPayload().U32(1).Take());
    EXPECT_EQ(VXCISClearCalibration(camera.GetHandle()), 0);
    EXPECT_EQ(camera.LastSent().payload, tcPayload().U32(2).Take());
    camera.RefuseToSend(true);
    EXPECT_EQ(VXCISLoadCalibration(camera.GetHandle()), -1);
}

TEST(Registry, SettingCallbacksThroughTheInterfaceReachesTheCamera)
{
    static int calls;
    calls = 0;
    tcTestCamera camera;
    const int handle = camera.GetHandle();
    EXPECT_EQ(VXSetHeartBeatCallback(handle, [](int, tsHeartBeatData*) { ++calls; }), 0);
    EXPECT_EQ(
        VXSetErrorCallback(handle, [](int, unsigned char, unsigned char, char*) { calls += 10; }),
        0);
    EXPECT_EQ(VXSetUserDefinedCallback(handle, [](int, void*, int) { calls += 100; }), 0);
    EXPECT_EQ(VXSetImageDataCallback(handle, [](int, tsImageData*) { calls += 1000; }), 0);
    camera.Feed(0x69, tcPayload().Fill(6, 0));
    camera.Feed(0x75, tcPayload().Fill(3, 0));
    camera.Feed(0xFF, {});
    camera.Feed(0x66, tcPayload().U8(0).U8(0).U16(1).U16(1).Fill(10, 0));
    EXPECT_EQ(calls, 1111);
}

TEST(Registry, TransportsThatDoNotExistOpenNothing)
{
    const unsigned before = tcVXCamera::gnCameraCount;
    EXPECT_EQ(VXOpenSerialCamera(), -1);
    EXPECT_EQ(VXOpenUSBSerialCamera(), -1);
    EXPECT_EQ(VXOpenHSUSBCamera(5), -1);
    EXPECT_EQ(VXOpenHSUSBCamera(-1), -1);
    EXPECT_EQ(VXLocateHSUSBCameras(), -1);
    EXPECT_EQ(tcVXCamera::gnCameraCount, before);
}

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

TEST(Registry, LookUpsRunBesideOpeningAndClosing)
{
    tcTestCamera camera;
    std::thread opener([] {
        for (int i = 0; i < 200; ++i) {
            tcTestCamera other;
        }
    });
    for (int i = 0; i < 2000; ++i) {
        ASSERT_EQ(VXSetImageInterval(camera.GetHandle(), 1), 0);
    }
    opener.join();
}
