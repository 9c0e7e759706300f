// The simulated camera where no more threads can be made.
#include "tcSimServer.h"
#include "vxexport.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <system_error>

namespace {

std::atomic<int> snLeft{-1}; // threads that can still be made; below 0: any number

} // namespace

extern "C" VX_EXPORT int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                                        void* (*run)(void*), void* argument)
{
    using tpCreate = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const auto spCreate = reinterpret_cast<tpCreate>(dlsym(RTLD_NEXT, "pthread_create"));
    const int left = snLeft;
    if (left == 0) return EAGAIN;
    if (left > 0) --snLeft;
    return spCreate(thread, attributes, run, argument);
}

TEST(SimThreads, ThatCannotBeMadeFailTheStartAndNothingElse)
{
    int failures = 0;
    for (int threads = 0; failures == threads; ++threads) {
        tcSimServer server{tsSimOptions()};
        snLeft = threads;
        try {
            server.Start();
        } catch (const std::system_error& error) {
            EXPECT_EQ(error.code().value(), EAGAIN);
            EXPECT_NE(std::string(error.what()).find("cannot start a thread"), std::string::npos)
                << error.what();
            ++failures;
        }
        snLeft = -1;
        if (failures > threads) {
            EXPECT_GT(server.Start(), 0) << "once there are some again";
        }
        server.Stop();
    }
    EXPECT_GT(failures, 0);
    snLeft = 0;
    {
        tcSimServer server{tsSimOptions()};
        EXPECT_THROW(server.Start(), std::system_error);
    }
    snLeft = -1;
}
