// Answers that are late, wrong, short, double or missing.
#include "fault_support.h"

using testing::IsEmpty;

namespace {

constexpr int gnQuick = 8000; // ms

} // namespace

class AnswerFaults : public Faults
{
protected:
    // Asks for the exposure on a thread of its own, since it may wait.
    void Ask()
    {
        asking =
            std::async(std::launch::async, [this] { return VXGetExposureTime(handle, &exposure); });
        ASSERT_TRUE(WaitUntil([&] { return Books().RequestsSent == sent + 1; }));
    }
    void OpenAndSet(const std::vector<std::string>& faults)
    {
        OpenWith(faults);
        EXPECT_EQ(0, VXSetExposure(handle, 0x12345));
        sent = Books().RequestsSent;
    }

    static constexpr long nUntouched = -77;
    uint64_t sent = 0;
    long exposure = nUntouched;
    std::future<int> asking;
};

TEST_F(AnswerFaults, OfDoubleOnesAreCounted)
{
    OpenAndSet({"duplicate-answer:id=0x60,count=2"});
    EXPECT_EQ(0, VXGetExposureTime(handle, &exposure));
    EXPECT_EQ(0x12345, exposure);
    ASSERT_TRUE(AwaitUnderstanding());
    EXPECT_EQ(2u, Books().AnswersLate);
    EXPECT_EQ(0u, Books().RequestsTimedOut);
    EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST_F(AnswerFaults, OfLateOnesTouchNothingOfTheCallers)
{
    OpenAndSet({"late-answer:id=0x60,seconds=8"});
    Ask();
    int result = 0;
    const int ms = Timed([&] { result = VXWaitCompletion(handle, 200); });
    EXPECT_EQ(-2, result);
    EXPECT_GE(ms, 200);
    EXPECT_LT(ms, 7900) << "not as long as the answer takes";
    EXPECT_EQ(-2, asking.get());
    EXPECT_EQ(nUntouched, exposure);
    EXPECT_EQ(1u, log.Count("WaitCompletion timing out 0"));
    ASSERT_TRUE(WaitUntil([&] { return Books().AnswersLate == 1; }));
    EXPECT_EQ(nUntouched, exposure);
    EXPECT_EQ(1u, Books().RequestsTimedOut);
    EXPECT_EQ(0, VXGetExposureTime(handle, &exposure));
    EXPECT_EQ(0x12345, exposure);
}

TEST_F(AnswerFaults, OfOnesThatArriveInTimeGoUnnoticed)
{
    OpenAndSet({"late-answer:id=0x60,seconds=0.2"});
    int result = -1;
    const int ms = Timed([&] { result = VXGetExposureTime(handle, &exposure); });
    EXPECT_EQ(0, result);
    EXPECT_EQ(0x12345, exposure);
    EXPECT_GE(ms, 200);
    EXPECT_LT(ms, gnQuick);
    EXPECT_THAT(log.Texts(), IsEmpty());
    EXPECT_EQ(Books().RequestsSent, Books().RequestsAnswered);
}

TEST_F(AnswerFaults, OfWrongOnesLeaveTheRequestWaiting)
{
    OpenAndSet({"wrong-answer:id=0x60"});
    Ask();
    ASSERT_TRUE(WaitUntil([&] { return Books().AnswersLate == 1; }));
    EXPECT_EQ(1u, Books().RequestsPending);
    EXPECT_EQ(-1, VXisCameraReady(handle));
    EXPECT_EQ(-2, VXWaitCompletion(handle, 20));
    EXPECT_EQ(-2, asking.get());
    EXPECT_EQ(nUntouched, exposure);
    EXPECT_EQ(1u, Books().RequestsTimedOut);
    EXPECT_EQ(0, VXisCameraReady(handle));
}

TEST_F(AnswerFaults, OfShortOnesReadWhatIsMissingAsZero)
{
    OpenAndSet({"short-answer:id=0x60,bytes=2"});
    int result = -1;
    EXPECT_LT(Timed([&] { result = VXGetExposureTime(handle, &exposure); }), gnQuick);
    EXPECT_EQ(0, result);
    EXPECT_EQ(0x2345, exposure);
    EXPECT_EQ(Books().RequestsSent, Books().RequestsAnswered);
}

TEST_F(AnswerFaults, OfMissingOnesEndInATimeOut)
{
    OpenWith({"no-answer:id=0x74"});
    tsLinkTestCmd test{};
    test.Count = 1;
    int result = 0;
    const int ms = Timed([&] { result = VXEngineeringCommand(handle, 103, &test); });
    EXPECT_EQ(-2, result);
    EXPECT_GE(ms, 2800);
    EXPECT_LT(ms, 9000);
    EXPECT_EQ(1u, log.Count("tcVXCamera::MonitorStack Timing Out ID d"));
    EXPECT_EQ(1u, Books().RequestsTimedOut);
    EXPECT_EQ(0u, test.AnswersReceived);
    EXPECT_EQ(0, VXEngineeringCommand(handle, 103, &test)) << "and the next one works";
    EXPECT_EQ(1u, test.AnswersReceived);
}
