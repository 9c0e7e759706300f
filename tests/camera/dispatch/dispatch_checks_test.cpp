// What is logged of messages, and which are dropped.
#include "dispatch_support.h"
#include "tcTestCamera.h"

#include <gtest/gtest.h>

namespace {

std::string Format(const char* format, unsigned a, unsigned b = 0, unsigned c = 0, unsigned d = 0,
                   unsigned e = 0)
{
    char text[256];
    snprintf(text, sizeof text, format, a, b, c, d, e);
    return text;
}

} // namespace

TEST_F(Dispatch, LogsEveryMessageAtItsLevel)
{
    for (uint32_t id = 0; id < 0x200; ++id) {
        SCOPED_TRACE(testing::Message() << std::hex << id);
        mCamera.ForgetRecords();
        tcMessage message(id, tcPayload().Fill(40, 0), 17);
        mCamera.Feed(message);
        const auto records = mCamera.Records();
        ASSERT_FALSE(records.empty());
        const bool highRate = id == 0x66 || id == 0x67 || id == 0x82;
        EXPECT_EQ(records.front(),
                  DebugRecord(
                      highRate ? 15 : 4,
                      Format("tcVXCamera::CallBackParser found msg id = %X, Seq_No = %d", id, 17)));
        const auto done = DebugRecord(1, Format("CallBackParser Done Handling Message %d", id));
        EXPECT_EQ(mCamera.Count(done), highRate ? 0U : 1U);
        EXPECT_EQ(records.back() == done, !highRate);
        const auto unknown =
            ErrorRecord(Format("CallBackParser unknown message id received - 0x%X (%d)", id, id));
        EXPECT_EQ(mCamera.Count(unknown), id < 0xC0 && !IsKnown(id) ? 1U : 0U);
    }
}

TEST_F(Dispatch, AcceptsTheIgnoredOnesSilently)
{
    for (uint32_t id : {0x68U, 0x82U}) {
        mCamera.Feed(id, tcPayload().Ramp(100));
    }
    EXPECT_TRUE(mCamera.Errors().empty());
    EXPECT_EQ(mCamera.SentCount(), 0U);
}

TEST_F(Dispatch, ReportsIdsOfNoMessage)
{
    const uint32_t ids[] = {0x62, 0x6B, 0x6C, 0x6D, 0x6E, 0x6F, 0x72, 0x78, 0x81, 0x8E, 0xBF, 0};
    static int calls;
    calls = 0;
    mCamera.SetUserDefinedCallback([](int, void*, int) { ++calls; });
    for (uint32_t id : ids) {
        mCamera.Feed(id, {});
    }
    EXPECT_EQ(calls, 0);
    ASSERT_EQ(mCamera.Errors().size(), std::size(ids));
    EXPECT_EQ(mCamera.Errors()[0], "CallBackParser unknown message id received - 0x62 (98)");
    EXPECT_EQ(mCamera.Errors()[9], "CallBackParser unknown message id received - 0x8E (142)");
}

TEST_F(Dispatch, ReportsABadSequenceNumberAndGoesOn)
{
    tcMessage first(0x68, {}, 200);
    mCamera.Feed(first);
    mCamera.InitReqStackItem(eItemTrigger, 1);
    tcMessage message(0x7F, tcPayload().U32(1), 7);
    message->header.Checksum = 0xABCDEF;
    mCamera.CallBackParser(message.get(), false, true);
    EXPECT_EQ(mCamera.Errors(),
              std::vector<std::string>{"CallBackParser BAD SEQNO - ID = 7F, Seq_No = 7, last_no = "
                                       "200, cksum = 0xABCDEF, length=4"});
    EXPECT_EQ(mCamera.numOpsPending(), 0);
}

TEST_F(Dispatch, ReportsABadChecksumAndDropsTheMessage)
{
    mCamera.InitReqStackItem(eItemTrigger, 1);
    tcMessage message(0x7F, tcPayload().U32(1), 7);
    message->header.Checksum = 0x00000A;
    mCamera.ForgetRecords();
    mCamera.CallBackParser(message.get(), true, false);
    EXPECT_EQ(mCamera.Records(),
              (std::vector<tsLogRecord>{
                  DebugRecord(4, "tcVXCamera::CallBackParser found msg id = 7F, Seq_No = 7"),
                  ErrorRecord(
                      "CallBackParser BAD CHKSUM - ID = 127, Seq_No = 7, cksum = 0xA, length=4")}));
    EXPECT_EQ(mCamera.numOpsPending(), 1);
}

TEST_F(Dispatch, ReportsBothSequenceAndChecksum)
{
    tcMessage message(0xC5, tcPayload().U32(1), 7);
    mCamera.CallBackParser(message.get(), false, false);
    ASSERT_EQ(mCamera.Errors().size(), 2U);
    EXPECT_EQ(mCamera.Errors()[0], "CallBackParser BAD SEQNO - ID = C5, Seq_No = 7, last_no = 0, "
                                   "cksum = 0x0, length=4");
}

TEST_F(Dispatch, DropsMessagesOfOtherInterfaceVersions)
{
    for (unsigned version : {0, 1, 2, 4, 255}) {
        mCamera.ForgetRecords();
        mCamera.InitReqStackItem(eItemTrigger, 1);
        tcMessage message(0x7F, tcPayload().U32(1));
        message->header.IDD = version & 0xFF;
        mCamera.Feed(message);
        EXPECT_EQ(mCamera.numOpsPending(), 1);
        EXPECT_EQ(mCamera.Errors(),
                  std::vector<std::string>{Format("CallbackParser IDD Error - Received 0x%02X, "
                                                  "Expected 0x%02X, Dropping Message.",
                                                  version, 3)});
        mCamera.WaitCompletion(0);
    }
}

TEST_F(Dispatch, KeepsTheSequenceNumberOfHandledMessagesOnly)
{
    tcMessage handled(0x66, tcPayload().Fill(16, 0), 50), badChecksum(0x68, {}, 51),
        badVersion(0x68, {}, 52), probe(0x68, {}, 53);
    mCamera.Feed(handled);
    mCamera.CallBackParser(badChecksum.get(), true, false);
    badVersion->header.IDD = 2;
    mCamera.Feed(badVersion);
    mCamera.ForgetRecords();
    mCamera.CallBackParser(probe.get(), false, true);
    ASSERT_EQ(mCamera.Errors().size(), 1U);
    EXPECT_NE(mCamera.Errors()[0].find("last_no = 50,"), std::string::npos);
}

TEST_F(Dispatch, ParserCallbackTakesGoodAndBadFramesAndIgnoresTheRest)
{
    tcMessage message(0x7F, tcPayload().U32(1));
    for (int status : {-4, -2, 1, 2}) {
        EXPECT_TRUE(tcVXCamera::DispatchCallbackParser(status, message.get(), 16, 0, &mCamera));
    }
    EXPECT_TRUE(mCamera.Records().empty());
    EXPECT_TRUE(tcVXCamera::DispatchCallbackParser(0, message.get(), 16, 0, &mCamera));
    EXPECT_EQ(mCamera.Records().size(), 2U);
    EXPECT_TRUE(mCamera.Errors().empty());
    EXPECT_TRUE(tcVXCamera::DispatchCallbackParser(-1, message.get(), 16, 0, &mCamera));
    ASSERT_EQ(mCamera.Errors().size(), 1U);
    EXPECT_EQ(mCamera.Errors()[0].rfind("CallBackParser BAD CHKSUM", 0), 0U);
}

TEST_F(Dispatch, FramesReachItThroughTheCamerasParserInAnyPieces)
{
    for (size_t piece : {1, 5, 12, 1000}) {
        mCamera.ForgetRecords();
        mCamera.InitReqStackItem(eItemTrigger, 1);
        mCamera.InitReqStackItem(eItemGPIO, 1);
        tBytes stream = tcMessage(0x7F, tcPayload().U32(1)).Bytes();
        const tBytes second = tcMessage(0x7E, tcPayload().U32(1)).Bytes();
        stream.insert(stream.end(), second.begin(), second.end());
        mCamera.FeedParser(stream, piece);
        EXPECT_EQ(mCamera.numOpsPending(), 0);
        EXPECT_TRUE(mCamera.Errors().empty());
    }
}

TEST_F(Dispatch, LargestFrameOfTheParserIsTaken)
{
    static int length;
    mCamera.SetUserDefinedCallback([](int, void*, int bytes) { length = bytes; });
    tBytes frame = tcMessage(0xC0, tcPayload().Ramp(16404)).Bytes();
    mCamera.FeedParser(frame, 4096);
    EXPECT_EQ(length, 16404);
    length = 0;
    const uint16_t longer = 16405;
    memcpy(frame.data() + 2, &longer, sizeof longer);
    frame.push_back(1);
    mCamera.FeedParser(frame, 4096);
    EXPECT_EQ(length, 0) << "a longer one is not";
}
