// Threads that are cancelled inside a call.
#include "link_support.h"
#include "vxcamiface.h"

#include <pthread.h>

namespace {

struct tsCall {
    int handle;
    std::function<int(int)> call;
    std::atomic<bool> returned{false};
    int result = 4711;
    int type = PTHREAD_CANCEL_DEFERRED;
};

// Makes the call, and waits for the cancellation then.
void* MakeCall(void* argument)
{
    auto& call = *static_cast<tsCall*>(argument);
    int former = 0;
    pthread_setcanceltype(call.type, &former);
    call.result = call.call(call.handle);
    pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, &former);
    call.returned = true;
    for (;;) {
        pthread_testcancel();
        std::this_thread::yield();
    }
}

bool HasEnded(pthread_t thread, milliseconds within)
{
    timespec until{};
    clock_gettime(CLOCK_REALTIME, &until);
    until.tv_nsec += 1000000 * within.count();
    until.tv_sec += until.tv_nsec / 1000000000;
    until.tv_nsec %= 1000000000;
    return pthread_timedjoin_np(thread, nullptr, &until) == 0;
}

} // namespace

class Cancelled : public testing::Test
{
protected:
    void SetUp() override
    {
        setenv("TCLOG_SUPPRESS_ERR_CONSOLE", "1", 1);
        auto opened = std::async(std::launch::async,
                                 [this] { return VXOpenENetCamera("127.0.0.1", peer.Port()); });
        ASSERT_TRUE(ShakeHands(peer));
        handle = opened.get();
        ASSERT_GE(handle, 0);
    }
    void TearDown() override { EXPECT_EQ(0, VXCloseCamera(handle)); }

    // Cancels a thread inside a call that waits until `release` lets it end.
    template <class Release>
    void CancelDuring(tsCall& call, Release release)
    {
        call.handle = handle;
        pthread_t thread;
        ASSERT_EQ(0, pthread_create(&thread, nullptr, MakeCall, &call));
        ASSERT_TRUE(WaitUntil([&] { return VXisCameraReady(handle) == -1; }));
        ASSERT_EQ(0, pthread_cancel(thread));
        EXPECT_FALSE(HasEnded(thread, milliseconds(150))) << "what it waits for has not come";
        EXPECT_FALSE(call.returned);
        release();
        EXPECT_TRUE(HasEnded(thread, gPatience));
        EXPECT_EQ(0, VXisCameraReady(handle));
    }
    void ExpectToWork()
    {
        auto asked = std::async(std::launch::async, [this] {
            int on = 0;
            EXPECT_EQ(0, VXGetCooling(handle, &on));
            return on;
        });
        std::string question;
        do {
            question = peer.ReadMessage();
        } while (!question.empty() && IdOf(question) != gnAskCooling);
        peer.Send(MessageBytes(gnTellCooling, LittleEndian(1, 4)));
        EXPECT_EQ(1, asked.get());
    }

    static constexpr uint32_t gnAskCooling = 0x31, gnTellCooling = 0x61;
    tcScriptedCamera peer;
    int handle = -1;
};

TEST_F(Cancelled, ThreadsEndTheirRequestFirst)
{
    for (const int type : {PTHREAD_CANCEL_DEFERRED, PTHREAD_CANCEL_ASYNCHRONOUS}) {
        static int on;
        on = 4711;
        tsCall call{handle, [](int camera) { return VXGetCooling(camera, &on); }};
        call.type = type;
        CancelDuring(call, [this] {
            EXPECT_EQ(gnAskCooling, IdOf(peer.ReadMessage()));
            EXPECT_TRUE(peer.Send(MessageBytes(gnTellCooling, LittleEndian(3, 4))));
        });
        EXPECT_EQ(3, on);
        ExpectToWork();
    }
}

TEST_F(Cancelled, ThreadsEndTheirWaitForAReadoutFirst)
{
    ASSERT_EQ(0, VXReadCCDArea(handle, nullptr, 1, 0));
    tsCall call{handle, [](int camera) { return VXWaitCompletion(camera, 60000); }};
    CancelDuring(call, [this] { EXPECT_EQ(0, VXAbortRead(handle)); });
    ExpectToWork();
}

TEST_F(Cancelled, ThreadsSendTheirMessagesWhole)
{
    static char timing[4356];
    tsCall call{handle, [](int camera) {
                    int result = 0;
                    for (int i = 0; i < 200 && result == 0; ++i) {
                        result = VXSetTimingData(camera, timing, sizeof timing);
                    }
                    return result;
                }};
    pthread_t thread;
    ASSERT_EQ(0, pthread_create(&thread, nullptr, MakeCall, &call));
    ASSERT_EQ(12u + sizeof timing, peer.ReadMessage().size());
    ASSERT_EQ(0, pthread_cancel(thread));
    ExpectToWork(); // reads message after message, up to its own question
    EXPECT_TRUE(HasEnded(thread, gPatience));
}
