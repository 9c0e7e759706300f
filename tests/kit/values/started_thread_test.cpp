// Threads that the system does not give.
#include "vxexport.h"

#include <vxcamkit/camera.h>
#include <vxcamkit/frame_writer.h>

#include <gmock/gmock.h>

#include <dlfcn.h>
#include <pthread.h>

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

} // namespace vxcam
