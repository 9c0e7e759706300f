// Link test, user-defined messages and the engineering command.
#include "tcTestCamera.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;

constexpr uint32_t cmdId = 0x3F, answerId = 0x74;

// Answers each message as often as it asks, echoing its data.
void Loop(tcTestCamera& camera)
{
    camera.SetScript([&camera](const tsSentMessage& sent) {
        if (sent.id != cmdId) return;
        tBytes echo = sent.payload;
        const uint16_t wanted = sent.Short(0);
        const uint16_t received = sent.Short(1);
        memcpy(echo.data(), &received, sizeof received);
        for (int i = 0; i < wanted; ++i) {
            camera.Feed(answerId, echo);
        }
    });
}

struct tsLinkTest {
    std::vector<uint8_t> send, receive;
    tsLinkTestCmd command{};

    explicit tsLinkTest(uint32_t length) : send(length, 0xA5), receive(length + 1, 0x55)
    {
        command.DataLength = length;
        command.SendData = send.data();
        command.ReceiveBuffer = receive.data();
    }
};

TEST(LinkTest, ModeZeroAsksForAnAnswerToEachMessage)
{
    tcTestCamera camera;
    Loop(camera);
    tsLinkTest test(4);
    test.command.Count = 3;
    EXPECT_EQ(camera.SendLinkTestData(&test.command), 0);
    ASSERT_EQ(camera.SentCount(), 3u);
    for (const tsSentMessage& sent : camera.Sent()) {
        EXPECT_EQ(sent.id, cmdId);
        EXPECT_EQ(sent.payload, tcPayload().U16(1).U16(4).U32(0).U32(0).Fill(4, 0xA5).Take());
    }
    EXPECT_EQ(test.command.MessagesSent, 3u);
    EXPECT_EQ(test.command.AnswersReceived, 3u);
    EXPECT_EQ(test.command.ReceivedBytes, 12u);
    EXPECT_THAT(test.receive, ElementsAre(0xA5, 0xA5, 0xA5, 0xA5, 0x55));
}

TEST(LinkTest, ModeOneAsksForOneAnswerToTheLast)
{
    tcTestCamera camera;
    Loop(camera);
    tsLinkTest test(2);
    test.command.Mode = 1;
    test.command.Count = 3;
    EXPECT_EQ(camera.SendLinkTestData(&test.command), 0);
    const auto sent = camera.Sent();
    ASSERT_EQ(sent.size(), 3u);
    EXPECT_EQ(sent[0].Short(0), 0);
    EXPECT_EQ(sent[1].Short(0), 0);
    EXPECT_EQ(sent[2].Short(0), 1);
    EXPECT_EQ(test.command.AnswersReceived, 1u);
}

TEST(LinkTest, OtherModesAskOnceForAllAnswers)
{
    tcTestCamera camera;
    Loop(camera);
    tsLinkTest test(1);
    test.command.Mode = 7;
    test.command.Count = 25;
    EXPECT_EQ(camera.SendLinkTestData(&test.command), 0);
    ASSERT_EQ(camera.SentCount(), 1u);
    EXPECT_EQ(camera.LastSent().Short(0), 25);
    EXPECT_EQ(test.command.AnswersReceived, 25u);

    camera.ForgetSent();
    test.command.Count = 0;
    EXPECT_EQ(camera.SendLinkTestData(&test.command), 0);
    EXPECT_EQ(camera.LastSent().Short(0), 10000);
    EXPECT_EQ(test.command.AnswersReceived, 10025u);
}

TEST(LinkTest, FillsTheDataByPattern)
{
    tcTestCamera camera;
    Loop(camera);
    const auto dataOf = [&camera](uint32_t pattern, uint32_t length, void* data) {
        tsLinkTest test(length);
        test.command.Pattern = pattern;
        test.command.Count = 1;
        test.command.SendData = data;
        EXPECT_EQ(camera.SendLinkTestData(&test.command), 0);
        const tBytes payload = camera.LastSent().payload;
        EXPECT_EQ(camera.LastSent().Word(1), pattern);
        return tBytes(payload.begin() + 12, payload.end());
    };
    EXPECT_THAT(dataOf(1, 4, nullptr), ElementsAre(0, 1, 2, 3));
    EXPECT_EQ(dataOf(1, 300, nullptr)[299], 299 % 256);
    EXPECT_THAT(dataOf(2, 4, nullptr), ElementsAre(0x00, 0xFF, 0x00, 0xFF));
    EXPECT_NE(dataOf(3, 64, nullptr), dataOf(3, 64, nullptr));
    uint8_t own[] = {9, 8};
    EXPECT_THAT(dataOf(0, 2, own), ElementsAre(9, 8));
    EXPECT_THAT(dataOf(4, 2, own), ElementsAre(9, 8));
    EXPECT_THAT(dataOf(0, 2, nullptr), ElementsAre(0, 0));
}

TEST(LinkTest, LengthIsClampedAsASignedNumber)
{
    tcTestCamera camera;
    Loop(camera);
    tsLinkTest test(4096);
    test.command.Count = 1;
    EXPECT_EQ(camera.SendLinkTestData(&test.command), 0);
    EXPECT_EQ(camera.LastSent().payload.size(), 12u + 1024u);
    EXPECT_EQ(camera.LastSent().Short(1), 1024);
    test.command.DataLength = 0x80000000u;
    EXPECT_EQ(camera.SendLinkTestData(&test.command), 0);
    EXPECT_EQ(camera.LastSent().payload.size(), 12u);
}

TEST(LinkTest, CopiesNoMoreThanTheAnswerCarriesAndTheBufferHolds)
{
    tcTestCamera camera;
    const auto receivedFrom = [&camera](const tBytes& answer) {
        camera.AnswerTo(cmdId, answerId, answer);
        tsLinkTest test(4);
        test.command.Count = 1;
        EXPECT_EQ(camera.SendLinkTestData(&test.command), 0);
        EXPECT_EQ(test.command.AnswersReceived, 1u);
        return test.receive;
    };
    EXPECT_THAT(receivedFrom(tcPayload().U16(2).Fill(10, 0).U8(1).U8(2)),
                ElementsAre(1, 2, 0x55, 0x55, 0x55));
    EXPECT_THAT(receivedFrom(tcPayload().U16(2).Fill(10, 0).Fill(50, 3)),
                ElementsAre(3, 3, 3, 3, 0x55));
    EXPECT_THAT(receivedFrom(tcPayload().U16(2)), ElementsAre(0x55, 0x55, 0x55, 0x55, 0x55));
    EXPECT_THAT(receivedFrom({}), ElementsAre(0x55, 0x55, 0x55, 0x55, 0x55));
}

TEST(LinkTest, EndsAtTheFirstFailure)
{
    tcTestCamera camera;
    camera.RefuseToSend(true);
    tsLinkTest test(1);
    test.command.Count = 5;
    EXPECT_EQ(camera.SendLinkTestData(&test.command), -2);
    EXPECT_EQ(camera.SendAttempts(), 1u);
    test.command.Mode = 1;
    EXPECT_EQ(camera.SendLinkTestData(&test.command), -1) << "sent without waiting";
    test.command.Count = 0;
    EXPECT_EQ(camera.SendLinkTestData(&test.command), -1) << "goes on until a send fails";
    EXPECT_EQ(camera.SendLinkTestData(nullptr), -5);
}

TEST(LinkTest, OfCountZeroGoesOnUntilASendFails)
{
    for (uint32_t mode : {0u, 1u}) {
        tcTestCamera camera;
        unsigned sends = 0;
        camera.SetScript([&](const tsSentMessage& sent) {
            EXPECT_EQ(sent.Short(0), mode == 0 ? 1 : 0);
            if (++sends == 20) camera.RefuseToSend(true);
            if (mode == 0) camera.Feed(answerId, tcPayload().Fill(13, 0));
        });
        tsLinkTest test(1);
        test.command.Mode = mode;
        EXPECT_EQ(camera.SendLinkTestData(&test.command), mode == 0 ? -2 : -1);
        EXPECT_EQ(sends, 20u);
        EXPECT_EQ(test.command.MessagesSent, 21u);
        EXPECT_EQ(test.command.AnswersReceived, mode == 0 ? 20u : 0u);
    }
}

TEST(LinkTest, RecordIsDetachedAfterwards)
{
    tcTestCamera camera;
    Loop(camera);
    tsLinkTest test(1);
    test.command.Count = 1;
    EXPECT_EQ(camera.SendLinkTestData(&test.command), 0);
    camera.Feed(answerId, tcPayload().U16(1).Fill(10, 0).U8(77));
    EXPECT_EQ(test.command.AnswersReceived, 1u);
    EXPECT_THAT(camera.Errors(),
                ElementsAre("CallBackParser rogue loopback message found, length = 13"));
}

TEST(LinkTest, OnlyOneRunsAtATime)
{
    tcTestCamera camera;
    int second = 0;
    camera.SetScript([&](const tsSentMessage&) {
        tsLinkTest other(1);
        second = camera.SendLinkTestData(&other.command);
    });
    camera.AnswerTo(cmdId, answerId, tcPayload().Fill(13, 0));
    tsLinkTest test(1);
    test.command.Count = 1;
    EXPECT_EQ(camera.SendLinkTestData(&test.command), 0);
    EXPECT_EQ(second, -1);
    EXPECT_EQ(test.command.AnswersReceived, 1u);
}

// ---- User-defined and engineering -------------------------------------------------------------

TEST(UserDefined, IsSentWhole)
{
    tcTestCamera camera;
    tuCameraMessages message{};
    message.header.Length = 3;
    message.header.MsgId = 0xC5;
    message.bytes[12] = 1;
    message.bytes[14] = 3;
    EXPECT_EQ(camera.SendUserDefined(&message), 0);
    EXPECT_EQ(camera.LastSent().id, 0xC5u);
    EXPECT_THAT(camera.LastSent().payload, ElementsAre(1, 0, 3));
    EXPECT_EQ(camera.SendUserDefined(nullptr), -5);
    camera.RefuseToSend(true);
    EXPECT_EQ(camera.SendUserDefined(&message), -1);
}

TEST(Engineering, ForwardsEachCommand)
{
    tcTestCamera camera;
    uint32_t words[26] = {0x10, 0x20, 0x30};
    camera.AnswerTo(0x38, 0x70, tcPayload().U32(0xFEDCBA98));
    EXPECT_EQ(camera.EngineeringCommand(100, words), 0);
    EXPECT_EQ(camera.LastSent().Word(0), 0x10u);
    EXPECT_EQ(words[1], 0xFEDCBA98u);
    EXPECT_EQ(words[2], 0x30u) << "data words are 32 bits wide";

    EXPECT_EQ(camera.EngineeringCommand(101, words), 0);
    EXPECT_EQ(camera.LastSent().id, 0x27u);
    EXPECT_EQ(camera.LastSent().payload, tcPayload().U32(0x10).U32(0xFEDCBA98).Take());

    uint8_t converter[12] = {7, 0, 0, 0, 0x34, 0x12, 0, 0, 1};
    EXPECT_EQ(camera.EngineeringCommand(102, converter), 0);
    EXPECT_EQ(camera.LastSent().id, 0x28u);
    EXPECT_EQ(camera.LastSent().payload, tcPayload().U16(0x1234).U8(7).U8(1).Take());

    Loop(camera);
    tsLinkTest test(1);
    test.command.Count = 1;
    EXPECT_EQ(camera.EngineeringCommand(103, &test.command), 0);
    EXPECT_EQ(test.command.AnswersReceived, 1u);

    EXPECT_EQ(camera.EngineeringCommand(104, words), 0);
    EXPECT_EQ(camera.LastSent().id, 0x40u);
    EXPECT_EQ(camera.LastSent().payload.size(), 100u);

    float pid[3] = {1, 2, 3};
    EXPECT_EQ(camera.EngineeringCommand(105, pid), 0);
    EXPECT_EQ(camera.LastSent().id, 0x2Cu);
    EXPECT_EQ(camera.LastSent().payload, tcPayload().F32(1).F32(2).F32(3).Take());

    camera.AnswerTo(0x2D, 0x85, tcPayload().F32(4).F32(5).F32(6));
    EXPECT_EQ(camera.EngineeringCommand(106, pid), 0);
    EXPECT_THAT(pid, ElementsAre(4, 5, 6));

    tsSetFilterCmd filter{1, 0};
    EXPECT_EQ(camera.EngineeringCommand(107, &filter), 0);
    EXPECT_EQ(camera.LastSent().id, 0x2Eu);

    EXPECT_EQ(camera.EngineeringCommand(99, words), -5);
    EXPECT_EQ(camera.EngineeringCommand(108, words), -5);
    EXPECT_EQ(camera.EngineeringCommand(100, nullptr), -5);
}

// Notes which operations it was asked for.
class tcNotingCamera : public tcTestCamera
{
public:
    int Read32Data(unsigned long, unsigned long*) override { return Note("Read32Data"); }
    int Write32Data(unsigned long, unsigned long) override { return Note("Write32Data"); }
    int WriteDAC(unsigned char, unsigned short, bool) override { return Note("WriteDAC"); }
    int SendLinkTestData(tsLinkTestCmd*) override { return Note("SendLinkTestData"); }
    int SetCameraHardwareInfo(TVXCameraHardware*, int* size) override
    {
        EXPECT_EQ(*size, 100);
        return Note("SetCameraHardwareInfo");
    }
    int SetPID(float, float, float) override { return Note("SetPID"); }
    int GetPID(tsSetPIDCmd*) override { return Note("GetPID"); }
    int SetFilter(tsSetFilterCmd*) override { return Note("SetFilter"); }

    std::vector<std::string> Notes;

private:
    int Note(const char* operation)
    {
        Notes.push_back(operation);
        return 40 + static_cast<int>(Notes.size());
    }
};

TEST(Engineering, GoesThroughTheVirtualOperationsAndReturnsTheirResults)
{
    tcNotingCamera camera;
    uint32_t words[26] = {1, 2, 3};
    for (int command = 100; command <= 107; ++command) {
        EXPECT_EQ(camera.EngineeringCommand(command, words), command - 59) << command;
    }
    EXPECT_THAT(camera.Notes,
                ElementsAre("Read32Data", "Write32Data", "WriteDAC", "SendLinkTestData",
                            "SetCameraHardwareInfo", "SetPID", "GetPID", "SetFilter"));
    EXPECT_THAT(words[1], 2u) << "written only when the register was read";
}

} // namespace
