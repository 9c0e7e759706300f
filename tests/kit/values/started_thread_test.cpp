// Threads that the system does not give.
#include "files_support.h"
#include "tcScriptedCamera.h"
#include "vxexport.h"

#include <vxcamkit/camera.h>
#include <vxcamkit/frame_writer.h>
#include <vxcamkit/sequence.h>

#include <gmock/gmock.h>

#include <dlfcn.h>
#include <pthread.h>
#include <sys/wait.h>

#include <atomic>
#include <cerrno>
#include <system_error>

using testing::HasSubstr;

namespace {

constexpr uint32_t kSetExposure = 0x20, kGetExposure = 0x30, kExposure = 0x60, kGetHardware = 0x34;
constexpr uint8_t kExposed = 7; // ms

std::atomic<bool> isNone{false}; // no thread can be made

// Has an exposure time, and breaks its connection when the test wants that.
//
// Threads: answers on one of its own until it is destroyed.
class BreakingCamera
{
public:
    BreakingCamera() : thread_([this] { serve(); }) {}
    ~BreakingCamera()
    {
        isOver_ = true;
        thread_.join();
    }
    BreakingCamera(const BreakingCamera&) = delete;
    BreakingCamera& operator=(const BreakingCamera&) = delete;

    std::string place() const { return "127.0.0.1:" + std::to_string(wire_.Port()); }
    void breakOff() { isBreakDue_ = true; }
    int timesSet() const { return timesSet_; }

private:
    void serve()
    {
        constexpr std::chrono::milliseconds step(5);
        while (!isOver_) {
            if (isBreakDue_.exchange(false)) wire_.Close();
            const uint32_t asked = IdOf(wire_.ReadMessage(step));
            if (asked == 0) wire_.Accept(step);
            if (asked == kSetExposure) ++timesSet_;
            if (asked == kGetHardware) wire_.Send(HardwareAnswer(4, 8));
            if (asked == kGetExposure) {
                wire_.Send(MessageBytes(kExposure, LittleEndian(kExposed, 4)));
            }
        }
    }

    tcScriptedCamera wire_;
    std::atomic<bool> isBreakDue_{false}, isOver_{false};
    std::atomic<int> timesSet_{0};
    std::thread thread_;
};

template <class Action>
std::string failureOf(Action action)
{
    isNone = true;
    std::string text = "none";
    try {
        action();
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::resource_unavailable_try_again);
        text = error.what();
    }
    isNone = false;
    return text;
}

} // namespace

extern "C" VX_EXPORT int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                                        void* (*run)(void*), void* argument)
{
    using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const auto create = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    return isNone ? EAGAIN : create(thread, attributes, run, argument);
}

namespace vxcam {

TEST(Threads, ThatCannotBeStartedAreNamedAsSuch)
{
    EXPECT_THAT(failureOf([] { Camera::open("sim?sensor=16x16"); }),
                HasSubstr("a thread could not be started"));
    EXPECT_THAT(failureOf([] { FrameWriter writer; }), HasSubstr("a thread could not be started"));
    EXPECT_EQ(Camera::open("sim?sensor=16x16").sensor(), (Size{16, 16}));
}

TEST(Threads, ThatCannotBeStartedAreNotNeededForAConnectionThatIsMadeAnew)
{
    BreakingCamera there;
    Camera camera = Camera::open(there.place());
    camera.set("exposure", std::chrono::milliseconds(kExposed));
    isNone = true;
    there.breakOff();
    EXPECT_TRUE(WaitUntil([&] { return there.timesSet() == 2; })) << "by the settings' restoring";
    EXPECT_EQ(camera.get("exposure").toTime(), std::chrono::milliseconds(kExposed));
    isNone = false;
}

// No thread can be made from the end of the first command on.
TEST(Threads, ThatCannotBeStartedLeaveNoCommandBehind)
{
    const Folder folder;
    makeTextFile(folder.path("night.yaml"), "steps: [{run: 'true'}, {run: sleep 100}]\n");
    Camera camera = Camera::open("sim?sensor=16x16");
    SequenceOptions options;
    options.onProgress = [](const SequenceProgress& progress) {
        isNone = progress.doing.find("done") != std::string::npos;
    };
    Sequence sequence(readSequence(folder.path("night.yaml")), options);
    EXPECT_THAT(failureOf([&] {
                    isNone = false;
                    sequence.run(camera);
                }),
                HasSubstr("a thread could not be started"));
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

} // namespace vxcam
