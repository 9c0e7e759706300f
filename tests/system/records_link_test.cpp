// Frames of 8 bits, the events of the link and the tap, against the simulated camera.
#include "fault_support.h"
#include "records_support.h"

#include "vxcamext.h"

using testing::ElementsAre;
using testing::IsEmpty;

// ---- 8 bits

TEST_F(FrameRecords, OfReadoutsIn8BitsHoldWhatTheCameraSent)
{
    Start({});
    unsigned short base = 0x2F80;
    ASSERT_EQ(0, VXSetTestPattern(handle, 4, &base, 1));
    tcImage<uint8_t> image(nRows, nColumns);
    ASSERT_EQ(0, VXReadCCDArea8(handle, image.Data(), 2, 0));
    ASSERT_EQ(0, VXWaitCompletion(handle, gnPatienceMs));
    EXPECT_EQ(0, VXisCameraReady(handle));
    for (uint32_t row = 0; row < nRows; ++row) {
        for (uint32_t column = 0; column < nColumns; ++column) {
            ASSERT_EQ((row + column + base) >> 8, image.At(row, column));
        }
    }
    EXPECT_TRUE(image.IsUntouchedOutside(0, 0, nRows, nColumns));
    const auto kept = records.All();
    ASSERT_EQ(2u, kept.size());
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(8u, kept[i].record.Bits);
        EXPECT_EQ(eFrameComplete, static_cast<int>(kept[i].record.Outcome));
        EXPECT_EQ(sim->Frames()[i].pixelSum, kept[i].sum);
    }
    EXPECT_EQ(2u, Books().FramesComplete);
    EXPECT_EQ(0u, log.Count("CompileMessage8"));
}

// An ordinary readout with the flag for 8 bits goes nowhere, and hurts no other.
TEST_F(FrameRecords, OfAnOrdinaryReadoutIn8BitsLeaveTheNextAlone)
{
    Start({});
    for (const bool isAborted : {false, true}) {
        tcImage<uint16_t> image(nRows, nColumns);
        ASSERT_EQ(0, VXReadCCDArea(handle, image.Data(), 1, 0x0008));
        ASSERT_EQ(0, VXWaitCompletion(handle, gnPatienceMs));
        EXPECT_TRUE(image.IsUntouched());
        EXPECT_EQ(0, VXisCameraReady(handle));
        if (isAborted) {
            EXPECT_EQ(0, VXAbortRead(handle));
        }
        for (int i = 0; i < 2; ++i) {
            image.Mark();
            EXPECT_EQ(0, Read(image));
            EXPECT_THAT(WrongRows(image), IsEmpty());
        }
        tcImage<uint8_t> bytes(nRows, nColumns);
        ASSERT_EQ(0, VXReadCCDArea8(handle, bytes.Data(), 1, 0));
        ASSERT_EQ(0, VXWaitCompletion(handle, gnPatienceMs));
        EXPECT_FALSE(bytes.IsUntouched());
    }
}

// ---- The link

TEST_F(FrameRecords, AreFollowedByLinkEventsWithTheCamerasLastWords)
{
    struct tsEvents {
        std::mutex mutex;
        std::vector<std::string> texts;
        size_t Count()
        {
            std::lock_guard<std::mutex> lock(mutex);
            return texts.size();
        }
    } seen;
    Start({"close-payload:packet=11"});
    VXSetLinkCallback(
        handle,
        [](int, const tsLinkRecord* link, void* user) {
            auto& to = *static_cast<tsEvents*>(user);
            std::lock_guard<std::mutex> lock(to.mutex);
            to.texts.push_back((link->Event == eLinkLost ? "lost: " : "restored: ") +
                               std::string(link->LastWords));
        },
        &seen);
    unsigned short base = 1;
    EXPECT_EQ(0, VXSetTestPattern(handle, 4, &base, 1));
    std::vector<uint16_t> image(size_t{nRows} * nColumns);
    ASSERT_EQ(0, VXReadCCDArea(handle, image.data(), 1, 0));
    ASSERT_TRUE(WaitUntil([&] { return seen.Count() >= 2; }));
    EXPECT_EQ(eReadoutLinkLost, VXReadoutResult(handle));
    EXPECT_EQ(0, VXAbortRead(handle));
    EXPECT_THAT(seen.texts, ElementsAre("lost: ", "restored: "));
    EXPECT_THAT(records.All(), IsEmpty());
    ASSERT_TRUE(AwaitUnderstanding());
    ExpectWhole();
    for (const auto& kept : records.All()) {
        EXPECT_EQ(eFrameComplete, static_cast<int>(kept.record.Outcome));
    }
}

// ---- The tap

TEST_F(FrameRecords, AreMadeOfWhatTheTapSees)
{
    struct tsSeen {
        std::mutex mutex;
        std::string received, sent;
        std::vector<unsigned> answers, commands;
    } seen;
    const auto keep = [](int, const tsTapRecord* record, void* user) {
        auto& to = *static_cast<tsSeen*>(user);
        std::lock_guard<std::mutex> lock(to.mutex);
        const auto* bytes = reinterpret_cast<const char*>(record->Bytes);
        EXPECT_EQ(sizeof *record, record->Size);
        EXPECT_GT(record->Time.Monotonic, 0);
        if (record->What == eTapBytesReceived) to.received.append(bytes, record->Length);
        if (record->What == eTapBytesSent) to.sent.append(bytes, record->Length);
        if (record->What == eTapMessagesReceived) to.answers.push_back(record->Bytes[9]);
        if (record->What == eTapMessagesSent) to.commands.push_back(record->Bytes[9]);
    };
    Start({});
    const tsStatistics before = Books();
    EXPECT_EQ(-5, VXSetTap(handle, 32, keep, &seen));
    EXPECT_EQ(-3, VXSetTap(handle + 100, 1, keep, &seen));
    ASSERT_EQ(0, VXSetTap(handle,
                          eTapBytesReceived | eTapBytesSent | eTapMessagesReceived |
                              eTapMessagesSent | eTapLink,
                          keep, &seen));
    tcImage<uint16_t> image(nRows, nColumns);
    EXPECT_EQ(0, Read(image));
    int trigger = 0;
    EXPECT_EQ(0, VXGetTrigger(handle, &trigger));
    ASSERT_EQ(0, VXSetTap(handle, 0, nullptr, nullptr));
    EXPECT_EQ(0, VXGetTrigger(handle, &trigger));
    EXPECT_THAT(seen.commands, ElementsAre(0x36, 0x59));
    EXPECT_THAT(seen.answers, ElementsAre(0x7F)) << "pixel packets are left out";
    EXPECT_EQ(24u + 12u, seen.sent.size());
    EXPECT_EQ(seen.sent.substr(0, 2), "\x50\xFA");
    const size_t packets = nRows * (28u + 2u * nColumns);
    EXPECT_EQ(packets + 12 + 4, seen.received.size());
    EXPECT_EQ(before.BytesReceived + packets + 2 * (12 + 4), Books().BytesReceived);
}

TEST_F(FrameRecords, TellTheTapOfAllBytesFromTheFirstOn)
{
    struct tsSeen {
        std::mutex mutex;
        std::string received, sent;
    } seen;
    const auto keep = [](int, const tsTapRecord* record, void* user) {
        auto& to = *static_cast<tsSeen*>(user);
        std::lock_guard<std::mutex> lock(to.mutex);
        const auto* bytes = reinterpret_cast<const char*>(record->Bytes);
        (record->What == eTapBytesSent ? to.sent : to.received).append(bytes, record->Length);
    };
    EXPECT_EQ(-5, VXSetOpeningTap(32, keep, &seen));
    ASSERT_EQ(0, VXSetOpeningTap(eTapBytesReceived | eTapBytesSent, keep, &seen));
    Start({});
    ASSERT_EQ(0, VXSetOpeningTap(0, nullptr, nullptr));
    ASSERT_EQ(0, VXSetTap(handle, 0, nullptr, nullptr));
    const tsStatistics books = Books();
    EXPECT_GT(books.BytesSent, 0u);
    EXPECT_GT(books.BytesReceived, 0u);
    EXPECT_EQ(seen.sent.size(), books.BytesSent);
    EXPECT_EQ(seen.received.size(), books.BytesReceived);
    EXPECT_EQ(seen.sent.substr(0, 2), "\x50\xFA");
    EXPECT_EQ(seen.received.substr(0, 2), "\x50\xFA");
}

// Whichever is told first.
TEST_F(FrameRecords, TellTheTapOfAQuestionTheTimeBeforeItsAnswer)
{
    struct tsSeen {
        std::mutex mutex;
        std::vector<int64_t> questions, answers;
    } seen;
    const auto keep = [](int, const tsTapRecord* record, void* user) {
        auto& to = *static_cast<tsSeen*>(user);
        std::lock_guard<std::mutex> lock(to.mutex);
        const bool isQuestion = record->What == eTapMessagesSent;
        (isQuestion ? to.questions : to.answers).push_back(record->Time.Monotonic);
    };
    constexpr size_t asked = 500;
    Start({});
    ASSERT_EQ(0, VXSetTap(handle, eTapMessagesReceived | eTapMessagesSent, keep, &seen));
    for (size_t i = 0; i < asked; ++i) {
        int trigger = 0;
        ASSERT_EQ(0, VXGetTrigger(handle, &trigger));
    }
    ASSERT_EQ(0, VXSetTap(handle, 0, nullptr, nullptr));
    ASSERT_EQ(seen.questions.size(), asked);
    ASSERT_EQ(seen.answers.size(), asked);
    for (size_t i = 0; i < asked; ++i) {
        ASSERT_LT(seen.questions[i], seen.answers[i]) << i;
    }
}
