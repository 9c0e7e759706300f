// Sending and waiting for the answer.
#include "requests_support.h"
#include "tcTestCamera.h"
#include "vxcamext.h"
#include "vxcamiface.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace {

const char* const gaRefused = "%s would wait for the thread it was called on";

} // namespace

TEST(SendAndWait, StoresTheAnswerAndReturnsZero)
{
    tcTestCamera camera;
    camera.AnswerTo(0x59, 0x7F, tcPayload().U32(0xCAFE));
    auto message = TriggerRequest();
    long value = 0;
    EXPECT_EQ(camera.SendAndWait(message.get(), eItemTrigger, &value, nullptr, 1), 0);
    EXPECT_EQ(value, 0xCAFE);
    EXPECT_EQ(camera.SentCount(), 1U);
    EXPECT_EQ(camera.LastSent().id, 0x59U);
    EXPECT_EQ(camera.numOpsPending(), 0);
}

TEST(SendAndWait, LogsTheArmedItem)
{
    tcTestCamera camera;
    camera.AnswerTo(0x59, 0x7F, tcPayload().U32(1));
    int value = 0;
    camera.GetTrigger(&value);
    camera.GetTrigger(&value);
    EXPECT_TRUE(
        camera.Logged(DebugRecord(4, "SendAndWait: Item = 22, respNeeded = 1, respCount = 0")));
    EXPECT_TRUE(
        camera.Logged(DebugRecord(4, "SendAndWait: Item = 22, respNeeded = 2, respCount = 1")));
}

TEST(SendAndWait, FillsBothResults)
{
    tcTestCamera camera;
    camera.AnswerTo(0x52, 0x7C, tcPayload().U32(5).U32(6));
    tcMessage message(0x52, {});
    long first = 0, second = 0;
    EXPECT_EQ(camera.SendAndWait(message.get(), eItemMirroring, &first, &second, 1), 0);
    EXPECT_EQ(first, 5);
    EXPECT_EQ(second, 6);
}

TEST(SendAndWait, OnABusyItemSendsNothing)
{
    tcTestCamera camera;
    camera.InitReqStackItem(eItemTrigger, 1);
    int value = 4711;
    EXPECT_EQ(camera.GetTrigger(&value), -1);
    EXPECT_EQ(camera.SentCount(), 0U);
    EXPECT_EQ(camera.SendAttempts(), 0U);
    camera.Feed(0x7F, tcPayload().U32(9));
    EXPECT_EQ(value, 4711);
}

TEST(SendAndWait, OfNoAnswersReturnsAtOnce)
{
    tcTestCamera camera;
    auto message = TriggerRequest();
    EXPECT_EQ(camera.SendAndWait(message.get(), eItemTrigger, nullptr, nullptr, 0), 0);
    EXPECT_EQ(camera.SentCount(), 1U);
}

TEST(SendAndWait, ReturnsOnlyWithTheLastOfSeveralAnswers)
{
    tcTestCamera camera;
    std::atomic<bool> returned{false};
    int result = 1;
    long value = 0;
    auto message = TriggerRequest();
    std::thread caller([&] {
        result = camera.SendAndWait(message.get(), eItemTrigger, &value, nullptr, 2);
        returned = true;
    });
    ASSERT_TRUE(Eventually([&] { return camera.SentCount() == 1; }));
    camera.Feed(0x7F, tcPayload().U32(1));
    EXPECT_EQ(camera.numOpsPending(), 1);
    EXPECT_FALSE(returned);
    camera.Feed(0x7F, tcPayload().U32(2));
    caller.join();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(value, 2);
}

TEST(SendAndWait, ThatTimesOutReturnsMinusTwoAndLateAnswersTouchNothing)
{
    tcTestCamera camera;
    int value = 4711;
    int result = 0;
    std::thread caller([&] { result = camera.GetTrigger(&value); });
    ASSERT_TRUE(Eventually([&] { return camera.SentCount() == 1; }));
    camera.Tick(100);
    caller.join();
    EXPECT_EQ(result, -2);
    camera.Feed(0x7F, tcPayload().U32(9));
    EXPECT_EQ(value, 4711);
    EXPECT_EQ(camera.numOpsPending(), 0);
}

TEST(SendAndWait, WorksAgainAfterATimeout)
{
    tcTestCamera camera;
    camera.SetScript([&](const tsSentMessage&) { camera.Tick(100); });
    int value = 4711;
    EXPECT_EQ(camera.GetTrigger(&value), -2);
    camera.SetScript(nullptr);
    camera.AnswerTo(0x59, 0x7F, tcPayload().U32(3));
    EXPECT_EQ(camera.GetTrigger(&value), 0);
    EXPECT_EQ(value, 3);
}

TEST(SendAndWait, WorksAgainAfterATimeoutWhereTheAnswerLeavesTheStatus)
{
    tcTestCamera camera;
    camera.SetScript([&](const tsSentMessage&) { camera.Tick(100); });
    EXPECT_EQ(camera.GetGPIO(), -2);
    camera.SetScript(nullptr);
    camera.AnswerTo(0x57, 0x7E, tcPayload().U32(3));
    EXPECT_EQ(camera.GetGPIO(), 3);
}

TEST(SendAndWait, KeepsItsTimeoutWhenASurplusAnswerComesBeforeTheCallerLooks)
{
    tcTestCamera camera;
    camera.SetScript([&](const tsSentMessage&) {
        camera.Tick(100);
        camera.Feed(0x7F, tcPayload().U32(9));
    });
    long value = 4711;
    auto message = TriggerRequest();
    EXPECT_EQ(camera.SendAndWait(message.get(), eItemTrigger, &value, nullptr, 1), -2);
    EXPECT_EQ(value, 4711);
}

TEST(SendAndWait, KeepsItsResultWhenTheItemIsArmedAgainBeforeTheCallerLooks)
{
    tcTestCamera camera;
    camera.SetScript([&](const tsSentMessage&) {
        camera.Feed(0x7F, tcPayload().U32(9));
        EXPECT_EQ(camera.InitReqStackItem(eItemTrigger, 1), 0);
    });
    long value = 0;
    auto message = TriggerRequest();
    EXPECT_EQ(camera.SendAndWait(message.get(), eItemTrigger, &value, nullptr, 1), 0);
    EXPECT_EQ(value, 9);
    EXPECT_EQ(camera.numOpsPending(), 1);
    camera.Feed(0x7F, tcPayload().U32(10));
    EXPECT_EQ(value, 9) << "the request armed behind it has no result variable";
}

TEST(SendAndWait, OfSeveralAnswersReturnsWhatTheLastOneLeft)
{
    // 0x7F marks its item as answered, 0x7E leaves the mark of the time-out.
    const std::pair<int, uint32_t> cases[] = {{eItemTrigger, 0x7F}, {eItemGPIO, 0x7E}};
    for (const auto& [item, answer] : cases) {
        tcTestCamera camera;
        const uint32_t id = answer;
        camera.SetScript([&camera, id](const tsSentMessage&) {
            camera.Tick(100);
            camera.Feed(id, tcPayload().U32(9));
        });
        tcMessage message(0x59, {});
        EXPECT_EQ(camera.SendAndWait(message.get(), item, nullptr, nullptr, 2),
                  answer == 0x7F ? 0 : -2);
    }
}

TEST(SendAndWait, ThatCannotSendEndsAtOnceWithAnErrorLine)
{
    tcTestCamera camera;
    camera.RefuseToSend(true);
    int value = 4711;
    const auto start = steady_clock::now();
    EXPECT_EQ(camera.GetTrigger(&value), -2);
    EXPECT_LT(SecondsSince(start), Within(3.0));
    EXPECT_EQ(camera.Errors(), std::vector<std::string>{"SendAndWait could not send message 0x59"});
    EXPECT_EQ(camera.numOpsPending(), 0);
    camera.Feed(0x7F, tcPayload().U32(9));
    EXPECT_EQ(value, 4711);

    camera.RefuseToSend(false);
    camera.AnswerTo(0x59, 0x7F, tcPayload().U32(3));
    EXPECT_EQ(camera.GetTrigger(&value), 0);
}

// ---- Patience

TEST(Patience, EndsAQuestionAndLateAnswersTouchNothing)
{
    tcTestCamera camera;
    EXPECT_EQ(VXSetPatience(30), 0);
    int value = 4711;
    const auto start = steady_clock::now();
    EXPECT_EQ(camera.GetTrigger(&value), -2);
    EXPECT_GE(SecondsSince(start), 0.029);
    EXPECT_LT(SecondsSince(start), 3.0);
    EXPECT_EQ(VXSetPatience(0), 0);
    EXPECT_EQ(camera.numOpsPending(), 0);
    EXPECT_TRUE(camera.Errors().empty());
    camera.Feed(0x7F, tcPayload().U32(9));
    EXPECT_EQ(value, 4711);
    tsStatistics figures{};
    camera.GetStatistics(&figures, sizeof figures);
    EXPECT_EQ(figures.RequestsTimedOut, 1u);
    EXPECT_EQ(figures.AnswersLate, 1u);
}

TEST(Patience, TakesWhatComesInTime)
{
    tcTestCamera camera;
    camera.AnswerTo(0x59, 0x7F, tcPayload().U32(3));
    EXPECT_EQ(VXSetPatience(1), 0);
    int value = 0;
    EXPECT_EQ(camera.GetTrigger(&value), 0);
    EXPECT_EQ(value, 3);
    EXPECT_EQ(VXSetPatience(0), 0);
}

TEST(Patience, IsThatOfOneThread)
{
    tcTestCamera camera;
    EXPECT_EQ(VXSetPatience(1), 0);
    int value = 0, result = 1;
    std::thread other([&] { result = camera.GetTrigger(&value); });
    ASSERT_TRUE(Eventually([&] { return camera.SentCount() == 1; }));
    EXPECT_EQ(camera.GetGPIO(), -2); // which takes longer than the other one's were it its own
    camera.Feed(0x7F, tcPayload().U32(5));
    other.join();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(value, 5);
    EXPECT_EQ(VXSetPatience(0), 0);
}

TEST(Patience, OfLessThanNothingIsRefused)
{
    EXPECT_EQ(VXSetPatience(-1), -5);
}

// ---- Questions that are given up

TEST(GivingUpQuestions, EndsThoseThatWaitAndNoReadout)
{
    tcTestCamera camera;
    ASSERT_EQ(camera.ReadCCDArea(nullptr, 1, 0), 0);
    const int readouts = camera.numOpsPending();
    const auto start = steady_clock::now();
    int value = 4711, result = 1;
    std::thread other([&] { result = camera.GetTrigger(&value); });
    ASSERT_TRUE(Eventually([&] { return camera.numOpsPending() > readouts; }));
    EXPECT_EQ(camera.GiveUpQuestions(), 0);
    other.join();
    EXPECT_EQ(result, -2);
    EXPECT_LT(SecondsSince(start), Within(3.0));
    EXPECT_EQ(camera.numOpsPending(), readouts);
    camera.Feed(0x7F, tcPayload().U32(9));
    EXPECT_EQ(value, 4711);
    camera.AnswerTo(0x59, 0x7F, tcPayload().U32(3));
    EXPECT_EQ(camera.GetTrigger(&value), 0);
    EXPECT_EQ(value, 3);
}

// ----

TEST(SendAndWait, WakesAsSoonAsTheAnswerIsThere)
{
    tcTestCamera camera;
    tcWorker receiver;
    camera.SetScript([&](const tsSentMessage& sent) {
        const uint32_t number = sent.header.SeqNo;
        receiver.Post([&camera, number] {
            std::this_thread::sleep_for(std::chrono::milliseconds(2)); // it waits by now
            camera.Feed(0x7F, tcPayload().U32(number));
        });
    });
    int quick = 0;
    for (int i = 0; i < 100; ++i) {
        int value = -1;
        const auto start = steady_clock::now();
        ASSERT_EQ(camera.GetTrigger(&value), 0);
        ASSERT_EQ(value, i);
        if (SecondsSince(start) < 0.045) ++quick;
    }
    EXPECT_GE(quick, 20) << "with polls of 50 ms none would be";
}

TEST(SendAndWait, OnTheReceiveThreadIsRefusedAtOnce)
{
    static tcTestCamera* camera;
    static std::vector<int> results;
    tcTestCamera own;
    camera = &own;
    results.clear();
    auto ask = [] {
        int value = 0;
        results.push_back(camera->GetTrigger(&value));
        results.push_back(camera->WaitCompletion(1000));
    };
    static auto sAsk = ask;
    own.SetHeartBeatCallback([](int, tsHeartBeatData*) { sAsk(); });
    own.SetErrorCallback([](int, unsigned char, unsigned char, char*) { sAsk(); });
    own.SetUserDefinedCallback([](int, void*, int) { sAsk(); });
    own.SetImageDataCallback([](int, tsImageData*) { sAsk(); });
    own.Feed(0x69, tcPayload().Fill(6, 0));
    own.Feed(0x75, tcPayload().Fill(3, 0));
    own.Feed(0xC0, {});
    own.Feed(0x66, tcPayload().U8(0).U8(0).U16(1).U16(1).Fill(10, 0));
    EXPECT_EQ(results, std::vector<int>(8, -1));
    EXPECT_EQ(own.SentCount(), 0U);
    char text[100];
    snprintf(text, sizeof text, gaRefused, "SendAndWait");
    EXPECT_EQ(own.Count(ErrorRecord(text)), 4U);
    snprintf(text, sizeof text, gaRefused, "WaitCompletion");
    EXPECT_EQ(own.Count(ErrorRecord(text)), 4U);

    own.AnswerTo(0x59, 0x7F, tcPayload().U32(3));
    int value = 0;
    EXPECT_EQ(own.GetTrigger(&value), 0) << "outside the callback it works again";
}

TEST(SendAndWait, InACallbackOfAnotherCameraWorks)
{
    static tcTestCamera* other;
    static int result;
    tcTestCamera first, second;
    other = &second;
    result = 1;
    second.AnswerTo(0x59, 0x7F, tcPayload().U32(3));
    first.SetUserDefinedCallback([](int, void*, int) {
        int value = 0;
        result = other->GetTrigger(&value);
    });
    first.Feed(0xC0, {});
    EXPECT_EQ(result, 0);
}

TEST(SendAndWait, FromManyThreadsGivesEachItsOwnAnswerOrRefusesIt)
{
    tcTestCamera camera;
    tcWorker receiver;
    camera.SetScript([&](const tsSentMessage&) {
        receiver.Post([&camera] { camera.Feed(0x7F, tcPayload().U32(77)); });
    });
    std::atomic<int> answered{0}, wrong{0};
    std::vector<std::thread> callers;
    for (int t = 0; t < 4; ++t) {
        callers.emplace_back([&] {
            for (int i = 0; i < 200; ++i) {
                int value = 0;
                const int result = camera.GetTrigger(&value);
                if (result == 0) ++answered;
                if (result == 0 ? value != 77 : (result != -1 || value != 0)) ++wrong;
            }
        });
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    EXPECT_GT(answered, 0);
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(camera.numOpsPending(), 0);
}
