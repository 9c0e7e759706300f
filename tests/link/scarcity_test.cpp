// Memory and threads that run out, one request after the other, while cameras are opened, used and
// closed: calls fail, and neither the process nor a camera suffers.
#include "counts.h"
#include "link_support.h"
#include "scarcity.h"
#include "vxcamext.h"
#include "vxcamiface.h"

#include <csignal>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>

using scarcity::ForEach;
using scarcity::teExtent;

namespace {

std::string AnswerTo(const std::string& question)
{
    switch (IdOf(question)) {
    case 0x34: // hardware information
        return HardwareAnswer(16, 32);
    case 0x30: // exposure
        return MessageBytes(0x60, LittleEndian(7, 4));
    case 0x33: // binning table
        return MessageBytes(0x63, std::string("\0\0\0\0\0\0\4\0abcd", 12));
    case 0x36: { // readout: one frame of one packet, an error and a heartbeat
        const std::string head("\0\1\1\0\1\0\2\0\0\0\3\0\0\0\0\0", 16);
        return MessageBytes(0x75, std::string("\1\2", 2) + std::string(500, 'e')) +
               MessageBytes(0x69, std::string(6, '\0')) + MessageBytes(gnUserId, "user") +
               MessageBytes(0x66, head + "12345678");
    }
    default:
        return "";
    }
}

// A camera for any number of clients, one after the other, that answers some of their questions.
void ServeClients(tcScriptedCamera& peer, const std::atomic<bool>& isOver)
{
    bool isServing = false;
    while (!isOver) {
        if (peer.Accept(milliseconds(isServing ? 0 : 20))) isServing = true;
        if (!isServing) continue;
        const std::string question = peer.ReadMessage(milliseconds(1));
        if (!question.empty()) isServing = peer.Send(AnswerTo(question));
    }
}

class tcPatientCamera
{
public:
    tcPatientCamera()
        : mThread([this] {
              scarcity::ExemptThisThread();
              ServeClients(mPeer, mbIsOver);
          })
    {}
    ~tcPatientCamera()
    {
        mbIsOver = true;
        mThread.join();
    }
    tcPatientCamera(const tcPatientCamera&) = delete;
    tcPatientCamera& operator=(const tcPatientCamera&) = delete;

    uint16_t Port() const { return mPeer.Port(); }

private:
    tcScriptedCamera mPeer;
    std::atomic<bool> mbIsOver{false};
    std::thread mThread;
};

// The same in a process of its own: a test that forks has no thread whose locks would stay held in
// the child.
class tcPatientProcess
{
public:
    tcPatientProcess() : mPid(fork())
    {
        if (mPid != 0) return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        ServeClients(mPeer, false);
    }
    ~tcPatientProcess()
    {
        kill(mPid, SIGKILL);
        waitpid(mPid, nullptr, 0);
    }
    tcPatientProcess(const tcPatientProcess&) = delete;
    tcPatientProcess& operator=(const tcPatientProcess&) = delete;

    uint16_t Port() const { return mPeer.Port(); }

private:
    tcScriptedCamera mPeer;
    const pid_t mPid;
};

// What a process has of what must be given back.
struct tsPossessions {
    int descriptors = CountDescriptors();
    int threads = CountThreads();
    size_t cameras = tcVXCamera::Handles().size();
    size_t entries = tcVXCamera::gpCameraMap != nullptr ? tcVXCamera::gpCameraMap->size() : 0;

    bool operator==(const tsPossessions& other) const
    {
        return descriptors == other.descriptors && threads == other.threads &&
               cameras == other.cameras && entries == other.entries;
    }
};

class Scarcity : public testing::TestWithParam<teExtent>
{
protected:
    Scarcity()
    {
        setenv("CONFIGFILE_PATH", "/dev/null", 1);
        setenv("TCLOG_SUPPRESS_ERR_CONSOLE", "1", 1);
        log = &CameraLog(0);
    }
    int Open() const { return VXOpenENetCamera("127.0.0.1", peer.Port()); }
    // A camera that was opened before the scarcity, or was said to be, works.
    static void ExpectToWork(int handle)
    {
        long exposure = 0;
        EXPECT_EQ(0, VXGetExposureTime(handle, &exposure));
        EXPECT_EQ(7, exposure);
    }

    tcTimedLog* log;
    tcPatientCamera peer;
};

class ScarcityInAProcess : public testing::TestWithParam<teExtent>
{};

} // namespace

TEST_P(Scarcity, WhileACameraIsOpenedIsAFailureThatLeavesNothingBehind)
{
    VXCloseCamera(Open()); // makes what stays for the process
    const tsPossessions before;
    int opened = 0, failed = 0;
    const long requests = ForEach(GetParam(), [&](long nth, teExtent extent) {
        log->Clear();
        scarcity::Begin(nth, extent);
        const int handle = Open();
        const bool refused = scarcity::End();
        if (handle >= 0) {
            ++opened;
            ExpectToWork(handle);
            EXPECT_EQ(0, VXCloseCamera(handle));
        } else {
            ++failed;
            EXPECT_EQ(-1, handle);
            EXPECT_TRUE(refused);
            EXPECT_TRUE(extent == teExtent::eFromThenOn || !log->Errors().empty()) << nth;
        }
        EXPECT_TRUE(WaitUntil([&] { return before == tsPossessions(); })) << "request " << nth;
        return refused && !HasFailure();
    });
    EXPECT_GT(failed, 5) << "of " << requests;
    EXPECT_GT(opened, 0);
}

TEST_P(Scarcity, WhileACameraIsUsedIsAFailureOfTheCall)
{
    const int handle = Open();
    ASSERT_GE(handle, 0);
    static std::atomic<int> told;
    VXSetErrorCallback(handle, [](int, unsigned char, unsigned char, char*) { ++told; });
    VXSetUserDefinedCallback(handle, [](int, void*, int) { ++told; });
    VXSetHeartBeatCallback(handle, [](int, tsHeartBeatData*) { ++told; });
    VXSetImageDataCallback(handle, [](int, tsImageData*) { ++told; });
    VXSetFrameCallback(
        handle, [](int, const tsFrameRecord*, void*) { ++told; }, nullptr);
    VXSetCameraErrorCallback(
        handle, [](int, const tsCameraErrorRecord*, void*) { ++told; }, nullptr);
    ForEach(GetParam(), [&](long nth, teExtent extent) {
        unsigned char table[2048];
        int size = sizeof table;
        uint16_t image[16 * 32] = {};
        long exposure = 0;
        tsStatistics figures;
        told = 0;
        scarcity::Begin(nth, extent);
        const int results[] = {VXGetBinParam(handle, 0, table, &size),
                               VXGetExposureTime(handle, &exposure),
                               VXSetExposure(handle, 5),
                               VXGetStatistics(handle, &figures, sizeof figures),
                               VXReadCCDArea(handle, image, 1, 0),
                               VXWaitCompletion(handle, 20000)};
        const bool refused = scarcity::End();
        for (const int result : results) {
            EXPECT_TRUE(result == 0 || result == -1) << result << ", request " << nth;
        }
        ExpectToWork(handle);
        EXPECT_EQ(0, VXisCameraReady(handle));
        if (!refused) {
            EXPECT_EQ(6, told);
            EXPECT_EQ(0x3231, image[2 * 32]);
        }
        return refused && !HasFailure();
    });
    EXPECT_EQ(0, VXCloseCamera(handle));
}

TEST_P(Scarcity, WhileTheClassIsUsedIsAFailureOfTheCall)
{
    const int handle = Open();
    ASSERT_GE(handle, 0);
    {
        const tcVXCamera::tcHold camera(handle);
        int32_t room[2][16 * 32] = {};
        void* buffers[] = {room[0], room[1]};
        auto* image = reinterpret_cast<long*>(room[0]);
        const std::vector<std::function<int()>> calls = {
            [&] { return camera->SetImageBuffers(buffers, 2, sizeof room[0]); },
            [&] { return camera->ReadCCDBinned(image, nullptr, 1, 0); },
            [&] { return camera->ReadCCDMaskBinned(image, nullptr, 1, 0); }};
        for (const auto& call : calls) {
            ForEach(GetParam(), [&](long nth, teExtent extent) {
                scarcity::Begin(nth, extent);
                const int result = call();
                const bool refused = scarcity::End();
                EXPECT_TRUE(result == 0 || result == -1) << result << ", request " << nth;
                EXPECT_EQ(0, camera->AbortRead());
                return refused && !HasFailure();
            });
        }
    }
    ExpectToWork(handle);
    EXPECT_EQ(0, VXCloseCamera(handle));
}

TEST_P(Scarcity, DoesNotKeepACameraFromBeingClosed)
{
    VXCloseCamera(Open());
    const tsPossessions before;
    ForEach(GetParam(), [&](long nth, teExtent extent) {
        // A consumer that goes with the camera's logger.
        const std::string name = "VXCAM" + std::to_string(tcVXCamera::gnCameraCount + 1);
        setenv((name + "_LOGURI").c_str(), "buff:5", 1);
        const int handle = Open();
        EXPECT_GE(handle, 0);
        scarcity::Begin(nth, extent);
        const int closed = VXCloseCamera(handle);
        const bool refused = scarcity::End();
        EXPECT_EQ(0, closed) << "request " << nth;
        EXPECT_TRUE(WaitUntil([&] { return before == tsPossessions(); })) << "request " << nth;
        return refused && !HasFailure();
    });
}

TEST_P(Scarcity, DoesNotKeepACallbackFromClosingAnotherCamera)
{
    static std::atomic<int> other, closed;
    static long sequence;
    static teExtent way;
    way = GetParam();
    const int handle = Open();
    ASSERT_GE(handle, 0);
    VXSetHeartBeatCallback(handle, [](int, tsHeartBeatData*) {
        scarcity::Begin(sequence, way);
        closed = VXCloseCamera(other);
    });
    tcPatientCamera second;
    ForEach(GetParam(), [&](long nth, teExtent) {
        other = VXOpenENetCamera("127.0.0.1", second.Port());
        closed = 1;
        sequence = nth;
        EXPECT_EQ(0, VXReadCCDArea(handle, nullptr, 1, 0)); // is answered with a heartbeat, too
        EXPECT_TRUE(WaitUntil([] { return closed != 1; }));
        const bool refused = scarcity::End();
        EXPECT_EQ(0, closed) << "request " << nth;
        EXPECT_EQ(0, VXWaitCompletion(handle, 20000));
        return refused && !HasFailure();
    });
    EXPECT_EQ(0, VXCloseCamera(handle));
}

TEST_P(Scarcity, WhileCamerasAreLookedForIsAFailure)
{
    tsEnetData list[2];
    VXLocateEnetCameras(list, 2);
    const tsPossessions before;
    ForEach(GetParam(), [&](long nth, teExtent extent) {
        scarcity::Begin(nth, extent);
        const int found = VXLocateEnetCameras(list, 2);
        const bool refused = scarcity::End();
        EXPECT_GE(found, -1);
        EXPECT_TRUE(before == tsPossessions()) << "request " << nth;
        return refused && !HasFailure();
    });
}

TEST_P(ScarcityInAProcess, OfItsFirstCameraHarmsNoLaterOne)
{
    setenv("CONFIGFILE_PATH", "/dev/null", 1);
    setenv("TCLOG_SUPPRESS_ERR_CONSOLE", "1", 1);
    const tcPatientProcess peer;
    ASSERT_EQ(1, CountThreads());
    const auto open = [&] { return VXOpenENetCamera("127.0.0.1", peer.Port()); };
    // Everything that is made once for the process is made in the child.
    ForEach(GetParam(), [&](long nth, teExtent extent) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(30);
            scarcity::Begin(nth, extent);
            const int first = open();
            const bool refused = scarcity::End();
            if (first >= 0 && VXCloseCamera(first) != 0) _exit(3);
            const int second = open();
            long exposure = 0;
            const bool works = second >= 0 && VXGetExposureTime(second, &exposure) == 0 &&
                               VXCloseCamera(second) == 0;
            _exit(!works ? 2 : refused ? 1 : 0);
        }
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status) << ", request " << nth;
        EXPECT_LT(WEXITSTATUS(status), 2) << "request " << nth;
        return WEXITSTATUS(status) == 1 && !HasFailure();
    });
}

const auto gEither = testing::Values(teExtent::eOnce, teExtent::eFromThenOn);
const auto gNameOfExtent = [](const auto& chosen) {
    return chosen.param == teExtent::eOnce ? "Once" : "FromThenOn";
};
INSTANTIATE_TEST_SUITE_P(Extents, Scarcity, gEither, gNameOfExtent);
INSTANTIATE_TEST_SUITE_P(Extents, ScarcityInAProcess, gEither, gNameOfExtent);

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // which need all of it

// A real limit: there is no room for the stack of one more thread.
TEST_P(Scarcity, OfAddressesForStacksIsAFailureToOpen)
{
    const int working = Open();
    ASSERT_GE(working, 0);
    const tsPossessions before;
    rlimit former{};
    getrlimit(RLIMIT_AS, &former);
    long pages = 0;
    FILE* file = fopen("/proc/self/statm", "r");
    ASSERT_EQ(1, fscanf(file, "%ld", &pages));
    fclose(file);
    const rlimit tight{static_cast<rlim_t>(pages * sysconf(_SC_PAGESIZE) + 1024 * 1024),
                       former.rlim_max};
    setrlimit(RLIMIT_AS, &tight);
    const int handle = Open();
    const int ready = VXisCameraReady(working + 1);
    setrlimit(RLIMIT_AS, &former);
    EXPECT_EQ(-1, handle);
    EXPECT_EQ(-3, ready);
    EXPECT_TRUE(WaitUntil([&] { return before == tsPossessions(); }));
    EXPECT_EQ(0, VXCloseCamera(working));
}

#endif
