// Link tests, what a camera says unasked, and versions: as bytes, and what the caller gets.
#include "answers_support.h"
#include "tcWirePeer.h"

#include <tcVXCamera.h>

namespace {

// Answers that no call of the interface waits for, but a camera class made on top of it may.
std::string TellItem(int handle, int item)
{
    alignas(8) unsigned char message[64] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0x58, 0, 0};
    long value = 0;
    const int result = Camera(handle)->SendAndWait(reinterpret_cast<tuCameraMessages*>(message),
                                                   item, &value, nullptr, 1);
    return Told(result, value & 0xFFFF);
}

TEST(WireAnswers, OfSixteenBits)
{
    Walk({
        {"item 5", [](int h) { return TellItem(h, 5); }, 0x58, "", 0x65, "F1 F2", Told(0, 0xF2F1L)},
        {"item 10", [](int h) { return TellItem(h, 10); }, 0x58, "", 0x71, "F1 F2",
         Told(0, 0xF2F1L)},
    });
}

TEST(WireAnswers, OfLinkTestsGoBehindTwelveBytes)
{
    tcWirePeer peer;
    ASSERT_NO_FATAL_FAILURE(peer.Open());
    tBytes send = Mixed(0x0123, 13), receive(0x0123, 0xCC);
    tsLinkTestCmd test{};
    test.Mode = 1;
    test.Pattern = 0xF4F3F2F1;
    test.Count = 2;
    test.DataLength = 0x0123;
    test.SendData = send.data();
    test.ReceiveBuffer = receive.data();
    auto asked = tcWirePeer::Asked([&] { return VXEngineeringCommand(peer.Handle(), 103, &test); });
    const tcPattern rest = tcPattern("23 01  F1 F2 F3 F4  00 00 00 00") + send;
    ASSERT_NO_FATAL_FAILURE(peer.Hears(0x3F, tcPattern("00 00") + rest));
    ASSERT_NO_FATAL_FAILURE(peer.Hears(0x3F, tcPattern("01 00") + rest));
    const tBytes back = Mixed(0x0100, 14);
    peer.Say(0x74, tcPattern("01 02  D1 D2  D3 D4 D5 D6  D7 D8 D9 DA") + back);
    EXPECT_EQ(Told(asked.get(), test.MessagesSent, test.AnswersReceived, test.ReceivedBytes),
              Told(0, 2U, 1U, 0x0201U));
    EXPECT_TRUE(tcPattern(back).Fits(tBytes(receive.begin(), receive.begin() + 0x0100)));
}

struct tsPatternCase {
    uint32_t Mode, Pattern, Count;
    tcPattern Payload;
};

TEST(WireAnswers, OfLinkTestsTellHowManyAreWanted)
{
    tcWirePeer peer;
    ASSERT_NO_FATAL_FAILURE(peer.Open());
    const tsPatternCase cases[] = {
        {0, 1, 1, "01 00  06 00  01 00 00 00  00 00 00 00  00 01 02 03 04 05"},
        {0, 2, 1, "01 00  06 00  02 00 00 00  00 00 00 00  00 FF 00 FF 00 FF"},
        {0, 3, 1, "01 00  06 00  03 00 00 00  00 00 00 00  .. .. .. .. .. .."},
        {7, 1, 1, "01 00  06 00  01 00 00 00  00 00 00 00  00 01 02 03 04 05"},
        {7, 1, 3, "03 00  06 00  01 00 00 00  00 00 00 00  00 01 02 03 04 05"},
    };
    for (const tsPatternCase& one : cases) {
        tsLinkTestCmd test{};
        test.Mode = one.Mode;
        test.Pattern = one.Pattern;
        test.Count = one.Count;
        test.DataLength = 6;
        auto asked =
            tcWirePeer::Asked([&] { return VXEngineeringCommand(peer.Handle(), 103, &test); });
        ASSERT_NO_FATAL_FAILURE(peer.Hears(0x3F, one.Payload));
        for (uint32_t i = 0; i < one.Count; ++i)
            peer.Say(0x74, "06 00  00 00  00 00 00 00  00 00 00 00");
        EXPECT_EQ(Told(asked.get(), test.AnswersReceived, test.ReceivedBytes),
                  Told(0, one.Count, 6 * one.Count));
    }
}

std::string gHeartBeat, gError, gUser; // what the callbacks were given

TEST(WireAnswers, ThatNobodyAskedForReachTheCallbacks)
{
    tcWirePeer peer;
    ASSERT_NO_FATAL_FAILURE(peer.Open());
    const int handle = peer.Handle();
    VXSetHeartBeatCallback(handle, [](int, tsHeartBeatData* beat) {
        const auto* bytes = reinterpret_cast<const uint8_t*>(beat);
        gHeartBeat =
            Told(beat->BoardTemp, beat->CCDTemp) + tcPattern::Text(tBytes(bytes, bytes + 9));
    });
    VXSetErrorCallback(handle, [](int, unsigned char code, unsigned char subCode, char* text) {
        gError = Told(code, subCode) + text;
    });
    VXSetUserDefinedCallback(handle, [](int, void* message, int length) {
        const auto* bytes = static_cast<const uint8_t*>(message);
        gUser = Told(length) + tcPattern::Text(tBytes(bytes, bytes + 12 + length));
    });
    peer.Say(0x69, "D1 D2  F1 F2  85 FF  31 32 33");
    peer.Say(0x75, "A1 B2  74 6F 6F 20 77 61 72 6D 00");
    peer.Say(0xC0, "71 72 73 74 75");
    ASSERT_NO_FATAL_FAILURE(peer.Settle());
    EXPECT_EQ(gHeartBeat, Told(0xF2F1, 0xFF85) + "D1 D2 F1 F2 85 FF 31 32 33 ");
    EXPECT_EQ(gError, Told(0xA1, 0xB2) + "too warm");
    // Length 5, sequence 3, sum 0x23F, version 3, id 0xC0.
    EXPECT_EQ(gUser, Told(5) + "50 FA 05 00 03 3F 02 00 03 C0 00 00 71 72 73 74 75 ");
    short board = 0, sensor = 0;
    EXPECT_EQ(Told(VXGetBoardTemp(handle, &board), VXGetCCDTemp(handle, &sensor)), Told(0, 0));
    EXPECT_EQ(Told(board, sensor), Told(short(0xF2F1 - 0x10000), -123));
}

TEST(WireAnswers, OfAnotherVersionAreDropped)
{
    tcWirePeer peer;
    ASSERT_NO_FATAL_FAILURE(peer.Open());
    auto told = tcWirePeer::Asked([&] { return One<int, VXGetTrigger>(peer.Handle()); });
    ASSERT_NO_FATAL_FAILURE(peer.Hears(0x59, ""));
    for (unsigned version : {0U, 1U, 2U, 4U, 0x83U})
        ASSERT_TRUE(peer.Link().SendBytes(FrameBytes(0x7F, {9, 9, 9, 9}, 0, version)));
    peer.Say(0x7F, "11 12 13 14");
    EXPECT_EQ(told.get(), Told(0, 0x14131211));
}

} // namespace
