// Messages in recordings of the wire: where they begin and end, what they are called and hold.
#include "wire_support.h"

#include <vxcamkit/wire_messages.h>

#include <gmock/gmock.h>

#include <sstream>

using testing::ElementsAre;
using testing::Pair;
using vxcam::WirePiece;
using vxcam::WireSplitter;

namespace {

WirePiece pieceOf(uint32_t id, const std::string& payload, bool isSent)
{
    WirePiece piece;
    piece.isSent = isSent;
    piece.isMessage = true;
    piece.bytes = wireMessage(id, payload);
    return piece;
}

std::vector<std::string> piecesOf(const std::vector<std::string>& parts)
{
    WireSplitter splitter(false);
    std::vector<std::string> pieces;
    const auto take = [&] {
        while (const auto piece = splitter.next()) {
            pieces.push_back((piece->isMessage ? "message " : "stray ") +
                             std::to_string(piece->bytes.size()));
        }
    };
    for (const std::string& part : parts) {
        splitter.add(part, {});
        take();
    }
    splitter.end();
    take();
    return pieces;
}

std::string textOf(uint32_t id, const std::string& payload, bool isSent)
{
    const WirePiece piece = pieceOf(id, payload, isSent);
    std::string text = vxcam::wireName(piece);
    for (const auto& [name, value] : vxcam::wireFields(piece)) {
        text += " ";
        text += name + "=" + value;
    }
    return text;
}

} // namespace

TEST(WireSplitter, FindsMessagesBetweenBytesThatBelongToNone)
{
    const std::string one = wireMessage(0x60, low(500, 4)), two = wireMessage(0x6A, "");
    EXPECT_THAT(piecesOf({one + two}), ElementsAre("message 16", "message 12"));
    EXPECT_THAT(piecesOf({"xyz" + one}), ElementsAre("stray 3", "message 16"));
    EXPECT_THAT(piecesOf({"\x50" + one}), ElementsAre("stray 1", "message 16"));
    EXPECT_THAT(piecesOf({one + two.substr(0, 7)}), ElementsAre("message 16", "stray 7"));
    const std::string tooLong = "\x50\xFA" + low(16405, 2) + std::string(8, '\3');
    EXPECT_THAT(piecesOf({tooLong + two}), ElementsAre("stray 12", "message 12"));
    const std::string longest = "\x50\xFA" + low(16404, 2) + std::string(8 + 16404, '\3');
    EXPECT_THAT(piecesOf({longest + two}), ElementsAre("message 16416", "message 12"));
}

TEST(WireSplitter, TakesMessagesToTheCameraAsLongAsAHeaderCanTell)
{
    WireSplitter splitter(true);
    splitter.add(wireMessage(0xC0, std::string(65535, '\x50')), {});
    splitter.add(wireMessage(0x34, ""), {});
    const auto longest = splitter.next(), behind = splitter.next();
    ASSERT_TRUE(longest && behind);
    EXPECT_TRUE(longest->isMessage);
    EXPECT_EQ(longest->payload().size(), 65535u);
    EXPECT_EQ(behind->id(), 0x34u);
    EXPECT_FALSE(splitter.next());
}

TEST(WireSplitter, GivesAllBytesHoweverTheyAreCut)
{
    const std::string all =
        "ab" + wireMessage(0x60, low(500, 4)) + "\x50" + wireMessage(0x6A, "") + "\x50\xFA\x01";
    for (size_t at = 0; at <= all.size(); ++at) {
        WireSplitter splitter(true);
        splitter.add(all.substr(0, at), {});
        splitter.add(all.substr(at), {});
        splitter.end();
        std::string bytes;
        int messages = 0;
        while (const auto piece = splitter.next()) {
            bytes += piece->bytes;
            messages += piece->isMessage ? 1 : 0;
        }
        EXPECT_EQ(bytes, all) << at;
        EXPECT_EQ(messages, 2) << at;
    }
}

TEST(WireMessages, TellTheFieldsOfCommands)
{
    EXPECT_EQ(textOf(0x20, low(500, 4), true), "SetExposure exposure_ms=500");
    EXPECT_EQ(textOf(0x34, "", true), "GetCameraHardwareInfo");
    EXPECT_EQ(textOf(0x24, low(1, 2) + low(2, 2) + low(640, 2) + low(480, 2) + low(0, 4), true),
              "SetCCDArea first_column=1 first_row=2 columns=640 rows=480");
    EXPECT_EQ(textOf(0x36,
                     low(1, 2) + low(2, 2) + low(640, 2) + low(480, 2) + low(3, 2) + low(8, 2),
                     true),
              "ReadCCDArea first_column=1 first_row=2 columns=640 rows=480 frames=3 flags=8");
    EXPECT_EQ(textOf(0x4D, low(static_cast<uint32_t>(-205), 4), true),
              "SetCCDTargetTemp tenth_degrees=-205");
    EXPECT_EQ(textOf(0x2C, std::string("\0\0\x80\x3F\0\0\0\x40\0\0\0\xBF", 12), true),
              "SetPID p=1 i=2 d=-0.5");
    EXPECT_EQ(textOf(0x13, low(7, 4) + "abc", true), "SetParameter parameter=7 value=3");
    EXPECT_EQ(textOf(0x28, low(513, 2) + "\4\5", true), "WriteDAC value=513 channel=4 flag=5");
}

TEST(WireMessages, TellTheFieldsOfWhatTheCameraSends)
{
    EXPECT_EQ(textOf(0x60, low(500, 4), false), "Exposure time exposure_ms=500");
    EXPECT_EQ(textOf(0x69, low(0, 2) + low(250, 2) + low(65336, 2), false),
              "Heartbeat board_temperature=250 ccd_temperature=-200");
    EXPECT_EQ(textOf(0x75, std::string("\3\1too hot\x1b[2J\0", 14), false),
              "Camera error code=3 sub_code=1 text=\"too hot\\x1b[2J\"");
    const std::string packet = std::string("\1\1", 2) + low(3, 2) + low(4, 2) + low(5, 2) +
                               low(6, 2) + low(8, 2) + low(0, 2) + low(99, 2);
    const std::string told = "image_type=1 last_frame=1 packet=3 packets=4 row=5 first_column=6 "
                             "last_column=8 statistic=99 ";
    EXPECT_EQ(textOf(0x66, packet + "pixels", false),
              "16-bit pixel packet " + told + "pixel_bytes=6");
    EXPECT_EQ(textOf(0x88, packet + "pix", false), "8-bit pixel packet " + told + "pixel_bytes=3");
    EXPECT_EQ(textOf(0x67, packet + low(11, 2) + low(12, 2) + "pixelpixelpi", false),
              "32-bit pixel packet " + told + "extra=11,12 pixel_bytes=12");
}

TEST(WireMessages, TellWhatIsThereOfShortOnesAndNothingOfStrangers)
{
    EXPECT_EQ(textOf(0x24, low(1, 2) + low(2, 2) + "x", true),
              "SetCCDArea first_column=1 first_row=2");
    EXPECT_EQ(textOf(0x60, "", false), "Exposure time");
    EXPECT_EQ(textOf(0x26, "x", true), "unknown");
    EXPECT_EQ(textOf(0x60, low(500, 4), true), "unknown") << "the camera's, not the host's";
    EXPECT_EQ(textOf(0xC0, "x", true), "user-defined");
    EXPECT_EQ(textOf(0x1234, "x", false), "user-defined");
}

TEST(WireMessages, KnowWhichMessageAnswersACommand)
{
    EXPECT_EQ(vxcam::wireAnswer(0x34), 0x64u);
    EXPECT_EQ(vxcam::wireAnswer(0x11), 0x60u);
    EXPECT_EQ(vxcam::wireAnswer(0x36), 0x66u);
    EXPECT_EQ(vxcam::wireAnswer(0x20), 0u);
    EXPECT_EQ(vxcam::wireAnswer(0x26), 0u);
}

TEST(WireEvents, GoByCamerasAndConnections)
{
    const std::string answer = wireMessage(0x60, low(500, 4));
    const std::string records =
        wireRecord(1, 1, "{}", 0) + wireRecord(2, 2, answer.substr(0, 5), 0) +
        wireRecord(2, 3, answer, 1) + wireRecord(2, 4, answer.substr(5), 0) +
        wireRecord(2, 5, answer.substr(0, 5), 0) + wireRecord(4, 6, "", 0) +
        wireRecord(5, 7, "", 0) + wireRecord(2, 8, answer, 0);
    vxcam::WireEvents events{
        vxcam::WireReader(std::make_unique<std::istringstream>(
                              wireHead() + wireBlock(0, 0, 0, records, 8) + wireEnd(1)),
                          "run.vxw")};
    std::vector<std::pair<int, int64_t>> seen;
    while (const auto event = events.next()) {
        seen.emplace_back(static_cast<int>(event->kind) + 10 * event->camera,
                          event->time.steady.time_since_epoch().count());
    }
    EXPECT_THAT(seen, ElementsAre(Pair(0, 1), Pair(11, 3), Pair(1, 4), Pair(2, 5), Pair(3, 6),
                                  Pair(4, 7), Pair(1, 8)));
}

TEST(WireEvents, PutNoMessageTogetherAcrossMissingBlocks)
{
    const std::string cut = wireMessage(0x60, low(500, 4)), whole = wireMessage(0x61, low(1, 4));
    const std::string before = wireBlock(0, 0, 0, wireRecord(2, 1, cut.substr(0, 10)), 1);
    const std::string lost = wireBlock(1, 0, 0, wireRecord(2, 2, cut.substr(10)), 1);
    const std::string behind = wireBlock(2, 0, 0, wireRecord(2, 3, "tail" + whole), 1);
    std::string damaged = lost;
    damaged.back() ^= 1;
    for (const std::string& middle : {std::string(), damaged}) {
        vxcam::WireEvents events{
            vxcam::WireReader(std::make_unique<std::istringstream>(wireHead() + before + middle +
                                                                   behind + wireEnd(3)),
                              "run.vxw")};
        std::vector<std::pair<vxcam::WireEvent::Kind, size_t>> seen;
        while (const auto event = events.next()) {
            seen.emplace_back(event->kind, event->piece.bytes.size());
        }
        using Kind = vxcam::WireEvent::Kind;
        EXPECT_THAT(seen, ElementsAre(Pair(Kind::Stray, 10), Pair(Kind::Gap, 0),
                                      Pair(Kind::Stray, 4), Pair(Kind::Message, 16)));
    }
}
