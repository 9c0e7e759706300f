// Opening and closing through the C interface, and what it answers without a camera.
#include "link_support.h"

#include "counts.h"
#include "tcConfiguration.h"
#include "vxcamiface.h"

#include <sys/wait.h>

namespace {

// Opens a camera against the scripted one; the handle, or a negative result.
int Open(tcScriptedCamera& peer)
{
    auto opened =
        std::async(std::launch::async, [&] { return VXOpenENetCamera("127.0.0.1", peer.Port()); });
    EXPECT_TRUE(ShakeHands(peer));
    return opened.get();
}

int NextHandle()
{
    return static_cast<int>(tcVXCamera::gnCameraCount);
}

class OpenCamera : public testing::Test
{
protected:
    OpenCamera()
    {
        setenv("CONFIGFILE_PATH", "/dev/null", 1);
        CameraLog(0).Clear();
    }
    tcScriptedCamera peer;
};

using ClosedCamera = OpenCamera;

} // namespace

TEST_F(OpenCamera, GivesHandlesInOrderAndNoneAgain)
{
    const int first = NextHandle();
    tcScriptedCamera second, third;
    EXPECT_EQ(first, Open(peer));
    EXPECT_EQ(first + 1, Open(second));
    EXPECT_EQ(0, VXCloseCamera(first));
    EXPECT_EQ(first + 2, Open(third));
    EXPECT_EQ(-3, VXCloseCamera(first));
    EXPECT_EQ(0, VXCloseCamera(first + 1));
    EXPECT_EQ(0, VXCloseCamera(first + 2));
    EXPECT_EQ(-3, VXCloseCamera(first + 2));
}

TEST_F(OpenCamera, GivesHandleZeroToTheFirstCamera)
{
    if (tcVXCamera::gpCameraMap != nullptr) GTEST_SKIP() << "not the first camera of the process";
    EXPECT_EQ(-3, VXSetTrigger(0, 1));
    EXPECT_EQ(-3, VXCloseCamera(0));
    EXPECT_EQ(-3, VXisCameraReady(0));
    EXPECT_EQ(0, Open(peer));
    EXPECT_EQ(0, VXCloseCamera(0));
}

TEST_F(OpenCamera, FailsWhenNobodyListensAndUsesTheHandleUp)
{
    const int first = NextHandle();
    peer.SwitchOff();
    EXPECT_EQ(-1, VXOpenENetCamera("127.0.0.1", peer.Port()));
    EXPECT_EQ(-3, VXCloseCamera(first));
    EXPECT_EQ(-3, VXisCameraReady(first));
    peer.SwitchOn();
    EXPECT_EQ(first + 1, Open(peer));
    EXPECT_EQ(0, VXCloseCamera(first + 1));
}

TEST_F(OpenCamera, FailsForNoAddressAndForOneThatDoesNotExist)
{
    EXPECT_EQ(-1, VXOpenENetCamera(nullptr, 1));
    EXPECT_EQ(-1, VXOpenENetCamera("", peer.Port()));
    EXPECT_EQ(-1, VXOpenENetCamera("300.300.300.300", peer.Port()));
}

TEST_F(OpenCamera, LoadsTheConfigurationBeforeTheFirstCamera)
{
    tcConfiguration::CleanUpClassScopeAllocation();
    peer.SwitchOff();
    EXPECT_EQ(-1, VXOpenENetCamera("127.0.0.1", peer.Port()));
    EXPECT_NE(nullptr, tcConfiguration::mpInstance.load());
}

TEST_F(OpenCamera, LeavesNoThreadAndNoDescriptorBehind)
{
    ASSERT_EQ(0, VXCloseCamera(Open(peer))); // what is made once for the process is there now
    peer.Close();
    const int threads = CountThreads();
    const int descriptors = CountDescriptors();
    for (int i = 0; i < 50; ++i) {
        const int handle = Open(peer);
        ASSERT_GE(handle, 0);
        ASSERT_EQ(0, VXCloseCamera(handle));
        if (i % 10 == 0) {
            peer.SwitchOff();
            ASSERT_EQ(-1, VXOpenENetCamera("127.0.0.1", peer.Port()));
            peer.SwitchOn();
        }
    }
    peer.Close();
    // A thread that was joined leaves this list a moment later.
    EXPECT_TRUE(WaitUntil([&] { return CountThreads() == threads; }));
    EXPECT_EQ(descriptors, CountDescriptors());
}

TEST_F(OpenCamera, IsReadyUnlessARequestIsPending)
{
    const int handle = Open(peer);
    EXPECT_EQ(0, VXisCameraReady(handle));
    int trigger = 0;
    auto asked = std::async(std::launch::async, [&] { return VXGetTrigger(handle, &trigger); });
    ASSERT_EQ(0x59u, IdOf(peer.ReadMessage()));
    EXPECT_EQ(-1, VXisCameraReady(handle));
    ASSERT_TRUE(peer.Send(MessageBytes(0x7F, LittleEndian(1, 4))));
    EXPECT_EQ(0, asked.get());
    EXPECT_EQ(1, trigger);
    EXPECT_EQ(0, VXisCameraReady(handle));
    VXCloseCamera(handle);
    EXPECT_EQ(-3, VXisCameraReady(handle));
    EXPECT_EQ(-3, VXisCameraReady(-1));
}

static std::atomic<int> sErrors;
static std::string sErrorText;
static void OnError(int, unsigned char code, unsigned char subCode, char* text)
{
    sErrorText = std::to_string(code) + "-" + std::to_string(subCode) + " " + text;
    ++sErrors;
}

TEST_F(OpenCamera, HandsCameraErrorsToItsCallback)
{
    const int handle = Open(peer);
    sErrors = 0;
    EXPECT_EQ(0, VXSetErrorCallback(handle, OnError));
    ASSERT_TRUE(peer.Send(MessageBytes(0x75, std::string("\x05\x07hot\0", 6))));
    ASSERT_TRUE(WaitUntil([] { return sErrors == 1; }));
    EXPECT_EQ("5-7 hot", sErrorText);
    VXCloseCamera(handle);
    EXPECT_EQ(-3, VXSetErrorCallback(handle, OnError));
}

TEST_F(ClosedCamera, AcceptsTheErrorCallbackOfTheProcess)
{
    EXPECT_EQ(0, VXSetErrorCallback(-1, OnError));
    EXPECT_TRUE(tcVXCamera::spGlobalErrorMsgCallBack == OnError);
    EXPECT_EQ(0, VXSetErrorCallback(-1, nullptr));
    EXPECT_TRUE(tcVXCamera::spGlobalErrorMsgCallBack == nullptr);
}

TEST_F(ClosedCamera, TellsVersionAndSizes)
{
    EXPECT_EQ(0x00030007, VXGetDllVersion());
    EXPECT_EQ(0x00030007u, tcVXCamera::DllVersion);
    EXPECT_EQ(4356, VXGetTimingDataSize());
}

// What a look-up leaves behind: an item without a value.
static bool WasAsked(const std::string& key)
{
    tcConfiguration* configuration = tcConfiguration::GetInstance();
    for (auto item = configuration->Iterator(); !configuration->Key(item).empty();
         configuration->NextItem(item)) {
        if (configuration->Key(item) == key) return true;
    }
    return false;
}

TEST_F(ClosedCamera, HasNoOtherTransportsButAsksForTheirSettings)
{
    tcConfiguration::CleanUpClassScopeAllocation();
    EXPECT_EQ(-1, VXLocateHSUSBCameras());
    EXPECT_EQ(-1, VXOpenHSUSBCamera(5));
    EXPECT_EQ(nullptr, tcConfiguration::mpInstance.load());
    EXPECT_EQ(-1, VXOpenHSUSBCamera(-1));
    EXPECT_TRUE(WasAsked("HSUSB/DEVICEINDEX"));
    EXPECT_FALSE(WasAsked("SERIAL/RS232_BAUDRATE"));
    EXPECT_EQ(-1, VXOpenSerialCamera());
    EXPECT_TRUE(WasAsked("SERIAL/RS232_BAUDRATE"));
    EXPECT_FALSE(WasAsked("SERIAL/USB_BAUDRATE"));
    EXPECT_EQ(-1, VXOpenUSBSerialCamera());
    EXPECT_TRUE(WasAsked("SERIAL/USB_BAUDRATE"));
}

// What the host prints meanwhile is lost, as it is without the library.
static int OpenWithoutStandardDescriptors(uint16_t port)
{
    for (int descriptor : {1, 2})
        close(descriptor);
    const int handle = VXOpenENetCamera("127.0.0.1", port);
    const bool isPrinted = write(1, "printed", 7) > 0 || write(2, "printed", 7) > 0;
    const bool isSent = VXSetTrigger(handle, 1) == 0;
    return VXCloseCamera(handle) == 0 && isSent && !isPrinted ? 0 : 1;
}

TEST_F(OpenCamera, LeavesTheStandardDescriptorsThatTheHostHasClosedAlone)
{
    const pid_t child = fork();
    if (child == 0) _exit(OpenWithoutStandardDescriptors(peer.Port()));
    EXPECT_TRUE(ShakeHands(peer));
    EXPECT_EQ(0x58u, IdOf(peer.ReadMessage()));
    EXPECT_EQ("", peer.Read(1));
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(0, status);
}

TEST_F(ClosedCamera, TakesFirstCallsFromSeveralThreads)
{
    for (int round = 0; round < 500; ++round) {
        tcConfiguration::CleanUpClassScopeAllocation();
        tcConfiguration::GetInstance(); // all threads begin with a question to it
        std::atomic<int> ready{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&ready] {
                ++ready;
                while (ready < 4) {
                    std::this_thread::yield();
                }
                EXPECT_EQ(-1, VXOpenSerialCamera());
                EXPECT_EQ(-1, VXOpenUSBSerialCamera());
                EXPECT_EQ(-1, VXOpenHSUSBCamera(-1));
                EXPECT_EQ(0x00030007, VXGetDllVersion());
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_TRUE(WasAsked("SERIAL/RS232_BAUDRATE"));
        EXPECT_TRUE(WasAsked("SERIAL/USB_BAUDRATE"));
        EXPECT_TRUE(WasAsked("HSUSB/DEVICEINDEX"));
    }
}

// ---- A connection that ends before the camera has answered ------------------------------------

struct tsFailedOpening {
    int result, took;
    std::vector<std::string> errors;
    bool wasConnected; // and not reset before that was noticed
};

// Opens a camera that does so much as a client connects, and ends the connection.
static tsFailedOpening OpenInVain(tcScriptedCamera& peer, const std::function<void()>& play)
{
    tcTimedLog& log = CameraLog(0);
    log.Clear();
    auto opened = std::async(std::launch::async, [&] {
        const auto start = steady_clock::now();
        const int result = VXOpenENetCamera("127.0.0.1", peer.Port());
        return std::make_pair(result, ElapsedMs(start));
    });
    EXPECT_TRUE(peer.Accept());
    play();
    const auto [result, took] = opened.get();
    return {result, took, Texts(log.Errors("tcVXCamera::Initialize")),
            log.Errors("tcVXCamera_Ethernet::Initialize").empty()};
}

static const std::string gsEnded = "tcVXCamera::Initialize the camera ended the connection";

TEST_F(OpenCamera, FailsAtOnceWhenItServesSomebodyElse)
{
    const tsFailedOpening opening = OpenInVain(peer, [this] {
        peer.Send(MessageBytes(0x75, std::string("\2\2") + "busy"));
        peer.Send(MessageBytes(0x75, std::string("\2\2") + "in use by somebody else"));
        peer.ReadMessage();
        peer.ReadMessage();
        peer.Close();
    });
    EXPECT_EQ(-1, opening.result);
    EXPECT_LT(opening.took, 8000) << "of ten seconds";
    EXPECT_EQ(opening.errors, std::vector<std::string>{gsEnded + ": in use by somebody else"});
    EXPECT_FALSE(peer.Accept(milliseconds(100))) << "it is left alone";
}

TEST_F(OpenCamera, FailsAtOnceWhenItEndsTheConnection)
{
    const std::function<void()> plays[] = {[this] { peer.Close(); }, [this] { peer.Reset(); },
                                           [this] {
                                               peer.ReadMessage();
                                               peer.ReadMessage();
                                               peer.SendPiece(HardwareAnswer(4, 4).substr(0, 50));
                                               peer.Close();
                                           }};
    for (const auto& play : plays) {
        const tsFailedOpening opening = OpenInVain(peer, play);
        EXPECT_EQ(-1, opening.result);
        EXPECT_LT(opening.took, 8000) << "of ten seconds";
        EXPECT_EQ(opening.errors, std::vector<std::string>(opening.wasConnected ? 1 : 0, gsEnded));
    }
    const int handle = Open(peer);
    EXPECT_GE(handle, 0) << "free again";
    EXPECT_EQ(0, VXCloseCamera(handle));
}

TEST_F(OpenCamera, TellsWhatItSaidThoughNothingCouldBeAskedAnyMore)
{
    for (int round = 0; round < 100; ++round) {
        const tsFailedOpening opening = OpenInVain(peer, [this] {
            peer.Send(MessageBytes(0x75, std::string("\2\2") + "in use"));
            peer.Close();
        });
        EXPECT_EQ(-1, opening.result);
        ASSERT_EQ(opening.errors, std::vector<std::string>{gsEnded + ": in use"}) << round;
    }
}

TEST_F(OpenCamera, SucceedsWhenTheConnectionEndsBehindTheAnswer)
{
    for (int round = 0; round < 20; ++round) {
        auto opened = std::async(std::launch::async,
                                 [this] { return VXOpenENetCamera("127.0.0.1", peer.Port()); });
        ASSERT_TRUE(ShakeHands(peer));
        peer.Close();
        const int handle = opened.get();
        ASSERT_GE(handle, 0);
        EXPECT_TRUE(peer.Accept()) << "connected anew";
        EXPECT_EQ(0, VXCloseCamera(handle));
    }
}

// ---- Inside a callback -----------------------------------------------------------------------

struct tsInside {
    int close = 0, getter = 0, wait = 0, setter = 0, took = 0;
    std::atomic<bool> done{false};
};
static tsInside sInside;

TEST_F(OpenCamera, RefusesToCloseOrToWaitInsideACallback)
{
    tcTimedLog& log = CameraLog();
    const int handle = Open(peer);
    log.Clear();
    VXSetHeartBeatCallback(handle, [](int camera, tsHeartBeatData*) {
        const auto start = steady_clock::now();
        int trigger = 0;
        sInside.close = VXCloseCamera(camera);
        sInside.getter = VXGetTrigger(camera, &trigger);
        sInside.wait = VXWaitCompletion(camera, 10000);
        sInside.setter = VXSetTrigger(camera, 1);
        sInside.took = ElapsedMs(start);
        sInside.done = true;
    });
    ASSERT_TRUE(peer.Send(MessageBytes(0x69, "123456")));
    ASSERT_TRUE(WaitUntil([] { return sInside.done.load(); }));
    EXPECT_EQ(-1, sInside.close);
    EXPECT_EQ(-1, sInside.getter);
    EXPECT_EQ(-1, sInside.wait);
    EXPECT_EQ(0, sInside.setter);
    EXPECT_LT(sInside.took, 8000); // each would take ten seconds or more
    EXPECT_EQ(3u, log.Errors().size());
    EXPECT_EQ(0x58u, IdOf(peer.ReadMessage())); // only the setter sent something
    EXPECT_EQ(0, VXisCameraReady(handle));
    EXPECT_EQ(0, VXCloseCamera(handle));
}

static int sOther = -1, sOtherClosed = 0;

TEST_F(OpenCamera, ClosesAnotherCameraInsideACallback)
{
    tcScriptedCamera second;
    const int handle = Open(peer);
    sOther = Open(second);
    sInside.done = false;
    VXSetHeartBeatCallback(handle, [](int, tsHeartBeatData*) {
        sOtherClosed = VXCloseCamera(sOther);
        sInside.done = true;
    });
    ASSERT_TRUE(peer.Send(MessageBytes(0x69, "123456")));
    ASSERT_TRUE(WaitUntil([] { return sInside.done.load(); }));
    EXPECT_EQ(0, sOtherClosed);
    EXPECT_TRUE(second.SeesClose());
    EXPECT_EQ(0, VXCloseCamera(handle));
}
