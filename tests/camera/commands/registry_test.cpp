#include "tcTestCamera.h"
#include "vxcamiface.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

using tImage = tpImageDataCallback;

void OnError(int, unsigned char, unsigned char, char*) {}

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
