// Threads that the system does not give.
#include "breaking_camera.h"
#include "files_support.h"
#include "vxexport.h"

#include <vxcamkit/camera.h>
#include <vxcamkit/frame_writer.h>
#include <vxcamkit/sequence.h>

#include <gmock/gmock.h>

#include <dlfcn.h>
#include <pthread.h>
#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <system_error>

using testing::HasSubstr;

namespace {

std::atomic<bool> isNone{false}; // no thread can be made

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
    const std::chrono::milliseconds exposure(7);
    camera.set("exposure", exposure);
    isNone = true;
    there.breakOff("", {});
    const auto isRestored = [&] {
        const std::vector<uint32_t> asked = there.asked();
        return std::find(asked.begin(), asked.end(), kSetExposure) != asked.end();
    };
    EXPECT_TRUE(WaitUntil(isRestored));
    EXPECT_EQ(camera.get("exposure").toTime(), exposure);
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
        if (progress.doing.find("done") != std::string::npos) isNone = true;
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
