// Readouts: the commands that start them as bytes, and where the pixels of a packet go.
#include "tcWirePeer.h"

#include <tcVXCamera.h>
#include <tcVXCamera_Ethernet.h>

namespace {

std::vector<tsImageData> gFrames; // as the image callback was given them

// Opens a camera of 0x0321 rows and 0x0204 columns, whose current area has an offset.
void OpenForReadout(tcWirePeer& peer)
{
    gFrames.clear();
    ASSERT_NO_FATAL_FAILURE(peer.Open());
    VXSetImageDataCallback(peer.Handle(),
                           [](int, tsImageData* image) { gFrames.push_back(*image); });
    ASSERT_EQ(VXSetCCDArea(peer.Handle(), 0x0011, 0x0022, 0x01F1, 0x02E2), 0);
    ASSERT_NO_FATAL_FAILURE(peer.Hears(0x24, "11 00  22 00  F1 01  E2 02  00 00 00 00"));
}

std::string TellFrame(const tsImageData& image)
{
    return Told(image.ImageType, image.Rows, image.Columns, image.AreaFirstColumn,
                image.AreaFirstRow, image.Extra1, image.Extra2, image.SensorColumns,
                image.SensorRows, image.FrameIndex, image.FramesDelivered, image.Statistic);
}

// A buffer in which every element but those given still is what it was.
template <class tPixel>
void ExpectOnly(const std::vector<tPixel>& image, tPixel before, size_t place,
                const std::vector<tPixel>& pixels)
{
    std::vector<tPixel> expected(image.size(), before);
    std::copy(pixels.begin(), pixels.end(), expected.begin() + static_cast<long>(place));
    for (size_t i = 0; i < image.size(); ++i)
        ASSERT_EQ(image[i], expected[i]) << "row " << i / 0x0204 << ", column " << i % 0x0204;
}

TEST(WirePixels, OfSixteenBitsGoToTheirRowAndColumns)
{
    tcWirePeer peer;
    ASSERT_NO_FATAL_FAILURE(OpenForReadout(peer));
    std::vector<uint16_t> image(0x0321 * 0x0204, 0xCCCC);
    ASSERT_EQ(VXReadCCDArea(peer.Handle(), image.data(), 0x0302, 0x4241), 0);
    ASSERT_NO_FATAL_FAILURE(peer.Hears(0x36, "11 00  22 00  F1 01  E2 02  02 03  41 42"));

    // Type 2; packet 0x0101 of 0x0201, so not the frame's last; row 0x0305, columns 0x0102-0x0104.
    peer.Say(0x66, "02 00  01 01  01 02  05 03  02 01  04 01  D1 D2  A1 A2  11 12 21 22 F1 F2");
    ASSERT_NO_FATAL_FAILURE(peer.Settle());
    unsigned frame = 0;
    EXPECT_EQ(VXGetReadProgress(peer.Handle(), &frame), 0); // 1 of 513
    EXPECT_EQ(frame, 1U);
    ExpectOnly<uint16_t>(image, 0xCCCC, 0x0305 * 0x0204 + 0x0102, {0x1211, 0x2221, 0xF2F1});
    EXPECT_TRUE(gFrames.empty());
    EXPECT_EQ(VXisCameraReady(peer.Handle()), -1);

    // The frame's last packet, and the readout's last frame.
    peer.Say(0x66, "02 01  01 02  01 02  05 03  02 01  04 01  D1 D2  A1 A2  31 32 41 42 51 52");
    EXPECT_EQ(VXWaitCompletion(peer.Handle(), 10000), 0);
    ExpectOnly<uint16_t>(image, 0xCCCC, 0x0305 * 0x0204 + 0x0102, {0x3231, 0x4241, 0x5251});
    ASSERT_EQ(gFrames.size(), 1U);
    EXPECT_EQ(TellFrame(gFrames[0]),
              Told(3, 0x0201, 3, 0x11, 0x22, 0, 0, 0x0204, 0x0321, 1, 1, 0xA2A1));
    EXPECT_EQ(gFrames[0].ImageBuffer, image.data());
}

TEST(WirePixels, OfSixteenBitsTellTheirType)
{
    const int types[][2] = {{0, 0}, {1, 1}, {2, 3}, {3, 2}, {4, 4}, {5, 5}, {6, 4}, {0xFF, 4}};
    tcWirePeer peer;
    ASSERT_NO_FATAL_FAILURE(OpenForReadout(peer));
    std::vector<uint16_t> image(0x0321 * 0x0204, 0xCCCC);
    ASSERT_EQ(VXReadCCDArea(peer.Handle(), image.data(), 8, 0), 0);
    ASSERT_NO_FATAL_FAILURE(peer.Hears(0x36, "11 00  22 00  F1 01  E2 02  08 00  00 00"));
    for (int i = 0; i < 8; ++i) {
        peer.Say(0x66, tcPattern(tBytes{uint8_t(types[i][0]), uint8_t(i == 7)}) +
                           "01 00  01 00  02 00  00 00  00 00  00 00  00 00  11 12");
    }
    EXPECT_EQ(VXWaitCompletion(peer.Handle(), 10000), 0);
    ASSERT_EQ(gFrames.size(), 8U);
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(Told(gFrames[i].ImageType, gFrames[i].FrameIndex), Told(types[i][1], i + 1));
}

void ReadThirtyTwoBits(int (*start)(int, long*, unsigned short*, short, unsigned short),
                       unsigned command, const tcPattern& payload)
{
    tcWirePeer peer;
    ASSERT_NO_FATAL_FAILURE(OpenForReadout(peer));
    std::vector<uint32_t> image(0x0321 * 0x0204, 0xCCCCCCCC);
    unsigned short maximum = 0xCCCC;
    ASSERT_EQ(start(peer.Handle(), reinterpret_cast<long*>(image.data()), &maximum, 0x0302, 0x4241),
              0);
    EXPECT_EQ(maximum, 0);
    ASSERT_NO_FATAL_FAILURE(peer.Hears(command, payload));
    peer.Say(0x67, "02 01  01 02  01 02  05 03  02 01  03 01  D1 D2  A1 A2  B1 B2  C1 C2"
                   "11 12 13 14  F1 F2 F3 F4");
    EXPECT_EQ(VXWaitCompletion(peer.Handle(), 10000), 0);
    ExpectOnly<uint32_t>(image, 0xCCCCCCCC, 0x0305 * 0x0204 + 0x0102, {0x14131211, 0xF4F3F2F1});
    EXPECT_EQ(maximum, 0xA2A1);
    ASSERT_EQ(gFrames.size(), 1U);
    EXPECT_EQ(TellFrame(gFrames[0]),
              Told(1, 0x0201, 2, 0, 0, 0xB2B1, 0xC2C1, 0x0204, 0x0321, 1, 1, 0xA2A1));
    EXPECT_EQ(gFrames[0].ImageBuffer, image.data());
}

TEST(WirePixels, OfBinnedReadoutsGoToTheirRowAndColumns)
{
    ReadThirtyTwoBits(VXReadCCDBinned, 0x37, tcPattern("02 03  41 42") + tcPattern::Open(8));
}

TEST(WirePixels, OfMaskBinnedReadoutsGoToTheirRowAndColumns)
{
    ReadThirtyTwoBits(VXReadCCDMaskBinned, 0x45, "02 03  41 42");
}

// A camera that was never opened has 2 rows of 1024 columns.
tBytes Packet(unsigned id, unsigned version, const char* payload)
{
    tBytes bytes = FrameBytes(id, tcPattern(payload).Bytes(), 0, version);
    bytes.resize(bytes.size() + 64); // as in a receive buffer, where something stands behind
    return bytes;
}

TEST(WirePixels, OfThirtyTwoBitsBeginByTheVersion)
{
    struct {
        unsigned Version;
        std::vector<uint32_t> Pixels;
    } const cases[] = {
        {1, {0xA2A1B2B1, 0x14131211}}, // from offset 28, where later versions have two extra words
        {2, {0x14131211, 0x24232221}},
        {3, {0x14131211, 0x24232221}},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.Version);
        tcVXCamera_Ethernet camera("127.0.0.1", 1);
        std::vector<uint32_t> image(2048, 0xCCCCCCCC);
        tBytes packet = Packet(0x67, one.Version,
                               "00 00  01 00  02 00  01 00  02 01  03 01  D1 D2  D3 D4"
                               "B1 B2 A1 A2  11 12 13 14  21 22 23 24");
        EXPECT_EQ(camera.CompileMessage(reinterpret_cast<tsPixelData32Msg*>(packet.data()),
                                        reinterpret_cast<long*>(image.data())),
                  0);
        std::vector<uint32_t> expected(2048, 0xCCCCCCCC);
        std::copy(one.Pixels.begin(), one.Pixels.end(), expected.begin() + 1024 + 0x0102);
        EXPECT_EQ(image, expected);
    }
}

TEST(WirePixels, OfEightBitsGoToTheirRowAndColumns)
{
    tcVXCamera_Ethernet camera("127.0.0.1", 1);
    tBytes image(2048, 0xCC), expected(2048, 0xCC);
    tBytes packet =
        Packet(0x88, 3, "00 00  01 00  02 00  01 00  02 01  04 01  D1 D2  D3 D4  11 12 13 14 15");
    EXPECT_EQ(
        camera.CompileMessage8(reinterpret_cast<tsPixelData8Msg*>(packet.data()), image.data()), 0);
    for (unsigned i = 0; i < 3; ++i)
        expected[1024 + 0x0102 + i] = static_cast<uint8_t>(0x11 + i);
    EXPECT_EQ(image, expected);
}

TEST(WirePixels, OfEightBitsAreReportedWithTheSensorsShape)
{
    tcWirePeer peer;
    ASSERT_NO_FATAL_FAILURE(OpenForReadout(peer));
    std::vector<uint16_t> image(0x0321 * 0x0204, 0xCCCC);
    ASSERT_EQ(VXReadCCDArea(peer.Handle(), image.data(), 1, 0x0008), 0);
    ASSERT_NO_FATAL_FAILURE(peer.Hears(0x36, "11 00  22 00  F1 01  E2 02  01 00  08 00"));
    peer.Say(0x88, "02 01  01 02  01 02  05 03  02 01  03 01  D1 D2  A1 A2  11 12");
    EXPECT_EQ(VXWaitCompletion(peer.Handle(), 10000), 0);
    ASSERT_EQ(gFrames.size(), 1U);
    EXPECT_EQ(Told(gFrames[0].ImageType, gFrames[0].Rows, gFrames[0].Columns,
                   gFrames[0].AreaFirstColumn, gFrames[0].AreaFirstRow, gFrames[0].Extra1,
                   gFrames[0].Extra2, gFrames[0].SensorColumns, gFrames[0].SensorRows,
                   gFrames[0].FrameIndex, gFrames[0].FramesDelivered),
              Told(3, 0x0321, 0x0204, 0x11, 0x22, 0, 0, 0x0204, 0x0321, 1, 1U));
}

} // namespace
