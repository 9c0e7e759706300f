// The daemon's command CAM, over TCP. Each test expects a process of its own.
#include "debug_support.h"
#include "tcScriptedCamera.h"
#include "tcSimServer.h"
#include "tcTestCamera.h"
#include "tcVXCamera_Ethernet.h"
#include "vxcamiface.h"

#include <future>

namespace {

using testing::ExitedWithCode;
using testing::HasSubstr;

const std::string gsHelp =
    "CAM:[HANDLE]\n   Lists the open cameras with their counters, or that one\n";
const std::string gsBuiltIn = "Available Tokens:\n\tECHO\n\tHELP\n\tLIST\n\tLOG\n";
const std::string gsWithCam = "Available Tokens:\n\tCAM\n\tECHO\n\tHELP\n\tLIST\n\tLOG\n";

// The names of the counters, in order.
const std::vector<std::string> gaNames{
    "BytesReceived",    "BytesSent",        "MessagesReceived", "MessagesBad",
    "MessagesSent",     "BytesSkipped",     "ChecksumErrors",   "ConnectionsLost",
    "Reconnects",       "HeartBeats",       "CameraErrors",     "RequestsSent",
    "RequestsAnswered", "RequestsTimedOut", "RequestsFailed",   "RequestsPending",
    "RequestsBusy",     "AnswersLate",      "FramesRequested",  "FramesComplete",
    "FramesIncomplete", "FramesFailed",     "FramesAborted",    "FramesPending",
    "FramesUnasked",    "PacketsReceived",  "PacketsExpected",  "PacketsMissing",
    "PacketsDuplicate", "PacketsStray",     "PacketsShort",     "PacketsRunning",
    "PacketsOutside",   "PixelsOutside",    "LastFramePackets", "LastFrameMissing",
    "FramesUnderrun",   "PacketsDamaged"};

std::string LineOf(const std::string& head, const tsStatistics& figures)
{
    std::string line = head;
    const auto* values = reinterpret_cast<const uint64_t*>(&figures);
    for (size_t i = 0; i < gaNames.size(); ++i)
        line += " " + gaNames[i] + "=" + std::to_string(values[i]);
    return line + "\n";
}

tsSimOptions Silent()
{
    tsSimOptions options;
    options.columns = options.rows = 64;
    options.heartbeatSeconds = 0;
    return options;
}

// A simulated camera, open.
class tcOpened
{
public:
    explicit tcOpened(const tsSimOptions& options = Silent())
        : mSimulated(options), mnPort(mSimulated.Start()),
          mnHandle(VXOpenENetCamera("127.0.0.1", mnPort))
    {
        EXPECT_GE(mnHandle, 0);
    }
    ~tcOpened() { VXCloseCamera(mnHandle); }
    tcOpened(const tcOpened&) = delete;
    tcOpened& operator=(const tcOpened&) = delete;

    tsStatistics Figures() const
    {
        tsStatistics figures{};
        EXPECT_EQ(0, VXGetStatistics(mnHandle, &figures, sizeof figures));
        return figures;
    }
    std::string Head(const char* link = "connected") const
    {
        return "handle=" + std::to_string(mnHandle) +
               " type=ethernet address=127.0.0.1:" + std::to_string(mnPort) + " link=" + link;
    }
    std::string Line() const { return LineOf(Head(), Figures()); }

    tcSimServer mSimulated;
    const uint16_t mnPort;
    const int mnHandle;
};

class CamCommand : public Daemon
{
protected:
    CamCommand() { Start(); }
};

} // namespace

TEST_F(CamCommand, IsThereFromTheFirstOpenedCameraOn)
{
    if (tcVXCamera::gnCameraCount != 0) GTEST_SKIP() << "another test has opened cameras";
    const tcQuietErrors quiet;
    EXPECT_EQ(gsBuiltIn, Ask("LIST"));
    EXPECT_EQ("CAM: unknown command token\n", Ask("HELP:CAM"));
    EXPECT_EQ("", Ask("CAM"));
    EXPECT_EQ(-1, VXOpenENetCamera("127.0.0.1", tcBound(SOCK_STREAM).Port())); // nobody listens
    const tcTestCamera notOpened;
    EXPECT_EQ(gsBuiltIn, Ask("LIST"));
    {
        const tcOpened camera;
        EXPECT_EQ(gsWithCam, Ask("LIST"));
        EXPECT_EQ(gsHelp, Ask("HELP:CAM"));
    }
    EXPECT_EQ(gsWithCam, Ask("LIST"));
}

TEST_F(CamCommand, ListsTheCountersInTheOrderOfTheirRecord)
{
    const tcOpened camera;
    EXPECT_EQ(camera.Head() +
                  " BytesReceived=112 BytesSent=32 MessagesReceived=1 MessagesBad=0 MessagesSent=2"
                  " BytesSkipped=0 ChecksumErrors=0 ConnectionsLost=0 Reconnects=0 HeartBeats=0"
                  " CameraErrors=0 RequestsSent=1 RequestsAnswered=1 RequestsTimedOut=0"
                  " RequestsFailed=0 RequestsPending=0 RequestsBusy=0 AnswersLate=0"
                  " FramesRequested=0 FramesComplete=0 FramesIncomplete=0 FramesFailed=0"
                  " FramesAborted=0 FramesPending=0 FramesUnasked=0 PacketsReceived=0"
                  " PacketsExpected=0 PacketsMissing=0 PacketsDuplicate=0 PacketsStray=0"
                  " PacketsShort=0 PacketsRunning=0 PacketsOutside=0 PixelsOutside=0"
                  " LastFramePackets=0 LastFrameMissing=0 FramesUnderrun=0 PacketsDamaged=0\n",
              Ask("CAM"));
    ASSERT_EQ(sizeof(tsStatistics), gaNames.size() * sizeof(uint64_t));
    EXPECT_EQ(0, VXSetExposure(camera.mnHandle, 0));
    EXPECT_EQ(0, VXSetCCDArea(camera.mnHandle, 0, 0, 64, 64));
    EXPECT_EQ(0, VXReadCCDArea(camera.mnHandle, nullptr, 3, 0));
    EXPECT_EQ(0, VXWaitCompletion(camera.mnHandle, 20000));
    EXPECT_EQ(3u, camera.Figures().FramesComplete);
    EXPECT_EQ(camera.Line(), Ask("CAM:"));
}

TEST_F(CamCommand, ListsEveryOpenCameraOrOne)
{
    auto first = std::make_unique<tcOpened>();
    const tcOpened second;
    const std::string handle = std::to_string(second.mnHandle);
    EXPECT_EQ(first->Line() + second.Line(), Ask("CAM"));
    for (const std::string& text : {handle, " \t" + handle + " ", "0" + handle, handle + "\r\n"})
        EXPECT_EQ(second.Line(), Ask("CAM:" + text));
    first.reset();
    EXPECT_EQ(second.Line(), Ask("CAM:\n"));
}

TEST_F(CamCommand, SaysThatThereIsNoSuchCamera)
{
    int closed = -1;
    {
        const tcOpened camera;
        closed = camera.mnHandle;
        for (const char* text : {"77", "-1", "x", "0x0", "0 0", "99999999999999999999"})
            EXPECT_EQ(text + std::string(": no open camera has this handle\n"),
                      Ask(std::string("CAM:") + text));
    }
    EXPECT_EQ(std::to_string(closed) + ": no open camera has this handle\n",
              Ask("CAM:" + std::to_string(closed)));
    EXPECT_EQ("no open camera\n", Ask("CAM"));
}

TEST_F(CamCommand, TellsWhenTheConnectionIsLost)
{
    tcOpened camera;
    camera.mSimulated.Stop();
    EXPECT_TRUE(Eventually([&] { return Ask("CAM").rfind(camera.Head("disconnected"), 0) == 0; }));
    EXPECT_THAT(Ask("CAM"), HasSubstr(" ConnectionsLost=1 Reconnects=0 "));
}

TEST_F(CamCommand, ListsCamerasOfTransportsThatItDoesNotKnow)
{
    const tcOpened camera;
    const tcTestCamera other;
    EXPECT_EQ(camera.Line() + LineOf("handle=" + std::to_string(other.GetHandle()) +
                                         " type=- address=- link=unknown",
                                     {}),
              Ask("CAM"));
}

TEST_F(CamCommand, KeepsAnAddressInOneWord)
{
    const tcOpened camera;
    const tcVXCamera_Ethernet odd("a b\nhandle=7", 5);
    EXPECT_EQ(LineOf("handle=" + std::to_string(odd.GetHandle()) +
                         " type=ethernet address=a?b?handle=7:5 link=disconnected",
                     {}),
              Ask("CAM:" + std::to_string(odd.GetHandle())));
}

TEST_F(CamCommand, DoesNotWaitForACallback)
{
    static std::promise<void>& entered = *Keep(new std::promise<void>);
    static std::promise<void>& leave = *Keep(new std::promise<void>);
    tsSimOptions options = Silent();
    options.heartbeatSeconds = 0.01;
    const tcOpened camera(options);
    VXSetHeartBeatCallback(camera.mnHandle, [](int handle, tsHeartBeatData*) {
        VXSetHeartBeatCallback(handle, nullptr);
        entered.set_value();
        leave.get_future().wait();
    });
    entered.get_future().wait();
    const auto start = tcClock::now();
    EXPECT_THAT(Ask("CAM"), HasSubstr(camera.Head()));
    EXPECT_LT(ElapsedMs(start), Within(2000));
    leave.set_value();
}

TEST_F(CamCommand, DoesNotWaitForASendThatIsStuck)
{
    const tcQuietErrors quiet;
    tcScriptedCamera deaf;
    int handle = -1;
    std::thread opening([&] { handle = VXOpenENetCamera("127.0.0.1", deaf.Port()); });
    ASSERT_TRUE(deaf.Accept());
    deaf.Read(32); // no-ops, and the request for the hardware information
    deaf.Send(HardwareAnswer(4, 8));
    opening.join();
    ASSERT_GE(handle, 0);
    std::atomic<int> sent{0};
    std::thread sender([&] {
        std::vector<char> data(4356);
        while (VXSetTimingData(handle, data.data(), static_cast<int>(data.size())) == 0)
            ++sent;
    });
    const auto isStuck = [&] {
        const int before = sent;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        return before > 0 && before == sent;
    };
    EXPECT_TRUE(Eventually(isStuck));
    const auto start = tcClock::now();
    EXPECT_THAT(Ask("CAM:" + std::to_string(handle)), HasSubstr("link=connected"));
    EXPECT_LT(ElapsedMs(start), 4000); // it is stuck for five seconds
    EXPECT_EQ(0, VXCloseCamera(handle));
    sender.join();
}

// Cameras come and go, through the C interface and as objects, while clients ask for them.
TEST_F(CamCommand, MayBeAskedWhileCamerasAreClosed)
{
    const tcQuietErrors quiet;
    const tcOpened camera;
    const std::string steady = camera.Head();
    std::atomic<bool> isOver{false};
    std::atomic<int> answers{0};
    std::vector<std::thread> clients;
    for (const char* command : {"CAM", "CAM", "CAM:1"}) {
        clients.emplace_back([&, command] {
            while (!isOver) {
                const std::string reply = Ask(command);
                const std::string expected = command[3] == '\0' ? steady : "";
                EXPECT_EQ(0u, reply.rfind(expected, 0)) << reply;
                EXPECT_EQ('\n', reply.empty() ? '\0' : reply.back());
                ++answers;
            }
        });
    }
    tcSimServer simulated(Silent());
    const uint16_t port = simulated.Start();
    const auto start = tcClock::now();
    for (int i = 0; i < 5 || (ElapsedMs(start) < 300 && answers < 3000); ++i) {
        const int handle = VXOpenENetCamera("127.0.0.1", port);
        EXPECT_EQ(0, VXCloseCamera(handle));
        tcVXCamera_Ethernet object("127.0.0.1", port);
        EXPECT_NE(0, object.Initialize());
        const tcTestCamera other;
    }
    EXPECT_TRUE(Eventually([&] { return answers > 10; }));
    isOver = true;
    for (std::thread& client : clients)
        client.join();
}

TEST_F(CamCommand, IsRegisteredOnceByManyThreads)
{
    if (tcVXCamera::gnCameraCount != 0) GTEST_SKIP() << "another test has opened cameras";
    tcDbgd::GetLog().setDbgLevel(1);
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([] {
            const tcOpened camera;
            EXPECT_TRUE(DbgdPointer()->GetWB("CAM"));
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    tcDbgd::GetLog().setDbgLevel(0);
    int registered = 0;
    for (const std::string& text : mLog.Texts()) {
        registered += text == "1 tcDbgd::RegisterWB registered CAM token handler";
        EXPECT_NE(0u, text.rfind("ERR", 0)) << text;
    }
    EXPECT_EQ(1, registered);
}

TEST_F(CamCommand, LeavesATokenToTheHandlerThatHasIt)
{
    if (tcVXCamera::gnCameraCount != 0) GTEST_SKIP() << "another test has opened cameras";
    struct tcTheirs : tcDbgdWB {
        tcTheirs() : tcDbgdWB("CAM", "theirs\n") {}
        void Run(HSocket* client, char*) override { client->Send("theirs", -1); }
    };
    tcTheirs theirs;
    EXPECT_EQ(0, mpDaemon->RegisterWB(&theirs));
    mLog.Texts();
    const tcOpened first, second;
    EXPECT_EQ(mLog.Texts(), std::vector<std::string>{
                                "ERR tcDbgd::RegisterWB unable to register CAM token handler"});
    EXPECT_EQ("theirs", Ask("CAM"));
    EXPECT_EQ("theirs\n", Ask("HELP:CAM"));
    EXPECT_EQ(0, mpDaemon->RemoveWB(&theirs));
    EXPECT_EQ(gsBuiltIn, Ask("LIST"));
}

TEST_F(CamCommand, MayBeAskedWhileTheProcessExits)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto exitWhileClientsAsk = [this] {
        Keep(new tcOpened);
        static std::atomic<int>& answers = *Keep(new std::atomic<int>(0));
        for (int i = 0; i < 3; ++i) {
            std::thread([port = mnPort] {
                for (;;) {
                    ::Ask(port, "CAM");
                    ++answers;
                }
            }).detach();
        }
        Eventually([] { return answers > 20; });
        exit(0);
    };
    EXPECT_EXIT(exitWhileClientsAsk(), ExitedWithCode(0), "");
}
