// What the frames of readouts show, as the camera is set.
#include "SimClient.h"
#include "readouts_support.h"
#include "tcSimServer.h"

TEST(SimReadouts, MirrorThePicture)
{
    tsRig rig;
    rig.Diagonal();
    rig.client.SendCommand(cmdSetCCDImageMirroring, {1, 0});
    EXPECT_EQ(rig.Take().pixels.front(), gnColumns - 1u);
    rig.client.SendCommand(cmdSetCCDImageMirroring, {0, 1});
    EXPECT_EQ(rig.Take().pixels.front(), gnRows - 1u);
    rig.client.SendCommand(cmdSetCCDImageMirroring, {1, 1});
    EXPECT_EQ(rig.Take().pixels.front(), gnRows + gnColumns - 2u);
    EXPECT_EQ(rig.Take().pixels.back(), 0u);
}

TEST(SimReadouts, SumTwoByTwoWhenBinned)
{
    tsRig rig;
    rig.Diagonal();
    rig.client.SendCommand(cmdReadCCDBinned, {1, 0, {}});
    const tsArrivedFrame frame = rig.client.ReceiveFrame();
    EXPECT_EQ(frame.id, ansPixels32.id);
    EXPECT_EQ(frame.rows, gnRows / 2u);
    EXPECT_EQ(frame.lastColumn, gnColumns / 2u - 1);
    EXPECT_EQ(frame.pixels[0], 0u + 1 + 1 + 2);
    EXPECT_EQ(frame.pixels[1], 2u + 3 + 3 + 4);
    EXPECT_EQ(frame.extra1, 2);
    EXPECT_EQ(frame.extra2, 2);
    EXPECT_EQ(frame.statistic, frame.pixels.back()) << "the maximum";
    EXPECT_EQ(rig.server.Frames().back().pixelSum, frame.sum);
    EXPECT_EQ(rig.server.Frames().back().bits, 32u);
}

TEST(SimReadouts, ChangeThePictureByTheBinningSet)
{
    tsRig rig;
    rig.Diagonal();
    rig.client.SendCommand(cmdSetSimpleBinning, {4, 8, 1.0f});
    rig.client.SendCommand(cmdReadCCDBinned, {1, 0, {}});
    tsArrivedFrame frame = rig.client.ReceiveFrame();
    EXPECT_EQ(frame.rows, gnRows / 4u);
    EXPECT_EQ(frame.lastColumn, gnColumns / 8u - 1);
    EXPECT_EQ(frame.pixels[0], 160u);
    tsSetBinningSequenceMsg sequence{};
    sequence.Entries = 2;
    sequence.Vertical[0] = sequence.Horizontal[0] = 2;
    sequence.Vertical[1] = sequence.Horizontal[1] = 4;
    rig.client.SendCommand(cmdSetBinningSequence, sequence);
    rig.client.SendCommand(cmdReadCCDBinned, {3, 0, {}});
    EXPECT_EQ(rig.client.ReceiveFrame().rows, gnRows / 2u);
    EXPECT_EQ(rig.client.ReceiveFrame().rows, gnRows / 4u);
    EXPECT_EQ(rig.client.ReceiveFrame().rows, gnRows / 2u);
    tsBinTableMsg table{};
    table.TableLength = gnRows;
    table.Table[9] = table.Table[gnRows - 1] = 1;
    rig.client.SendCommand(cmdSetBinParam, table);
    rig.client.SendCommand(cmdReadCCDBinned, {1, 0, {}});
    frame = rig.client.ReceiveFrame();
    EXPECT_EQ(frame.rows, 2u);
    EXPECT_EQ(frame.lastColumn, gnColumns - 1u);
    EXPECT_EQ(frame.pixels[0], 45u);
}

TEST(SimReadouts, SumUnderTheMask)
{
    tsRig rig;
    rig.Diagonal();
    tsBinMaskMsg half{};
    half.Row = 10;
    half.Half = 2;
    half.HalfRow[0] = 2;
    half.HalfRow[47] = 1;
    rig.client.SendCommand(cmdSetBinMaskParam, half);
    half.Row = 11;
    rig.client.SendCommand(cmdSetBinMaskParam, half);
    rig.client.SendCommand(cmdReadCCDMaskBinned, {2, 0});
    for (bool last : {false, true}) {
        const tsArrivedFrame frame = rig.client.ReceiveFrame();
        EXPECT_EQ(frame.id, ansPixels32.id);
        EXPECT_EQ(frame.pixels, (std::vector<uint32_t>{105 + 106, 58 + 59}));
        EXPECT_EQ(frame.lastFlag, last);
    }
}

TEST(SimReadouts, RefuseAMaskBinnedOneWithoutAMask)
{
    tsRig rig;
    rig.client.SendCommand(cmdReadCCDMaskBinned, {1, 0});
    const auto messages = rig.client.Settle();
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].payload[0], 3);
    EXPECT_EQ(messages[0].payload[1], cmdReadCCDMaskBinned.id);
}

TEST(SimReadouts, AnswerIn8BitsOnRequest)
{
    tsRig rig;
    rig.client.SendCommand(cmdSetTestPattern, {1, {0xAB12}});
    rig.Read(2, 0x0008);
    for (bool last : {false, true}) {
        const tsArrivedFrame frame = rig.client.ReceiveFrame();
        EXPECT_EQ(frame.id, ansPixels8.id);
        EXPECT_EQ(frame.lastFlag, last);
        EXPECT_EQ(frame.sum, 0xABu * gnRows * gnColumns);
    }
}

TEST(SimReadouts, ReadTheRegionsSet)
{
    tsRig rig;
    rig.Diagonal();
    tsSetAreaExMsg regions{};
    regions.RegionCount = 2;
    regions.FirstRows[0] = 50;
    regions.FirstColumns[0] = 10;
    regions.Heights[0] = regions.Widths[0] = 2;
    regions.FirstRows[1] = 5;
    regions.FirstColumns[1] = 90;
    regions.Heights[1] = regions.Widths[1] = 3;
    rig.client.SendCommand(cmdSetAreaEx, regions);
    rig.client.SendCommand(cmdReadCCDArea, {5, 10, 5, 3, 1, 0});
    const tsArrivedFrame frame = rig.client.ReceiveFrame();
    EXPECT_EQ(frame.packets, 5u);
    EXPECT_EQ(frame.pixels,
              (std::vector<uint32_t>{60, 61, 61, 62, 95, 96, 97, 96, 97, 98, 97, 98, 99}));
}

TEST(SimReadouts, SendOneFrameAgainWhenAskedToReuseIt)
{
    tsSimOptions options = Options();
    options.reuseFrame = true;
    tsRig rig(options);
    rig.Read(3);
    const tsArrivedFrame first = rig.client.ReceiveFrame();
    EXPECT_EQ(rig.client.ReceiveFrame().pixels, first.pixels);
    const tsArrivedFrame last = rig.client.ReceiveFrame();
    EXPECT_EQ(last.pixels, first.pixels);
    EXPECT_TRUE(last.lastFlag && last.flagsAgree && !first.lastFlag && first.flagsAgree);
    EXPECT_EQ(rig.Take().pixels, first.pixels);
    EXPECT_EQ(rig.server.Frames().back().readout, 2u);
    rig.client.SendCommand(cmdSetGain, {1});
    EXPECT_NE(rig.Take().pixels, first.pixels) << "a different picture is made anew";
}

TEST(SimReadouts, ShowCoolingAndExposure)
{
    tsSimOptions options = Options();
    options.timeScale = 1e6; // cold at once
    tsRig rig(options);
    auto mean = [&](uint32_t ms) {
        rig.client.SendCommand(cmdSetExposure, {ms});
        rig.Read(1, 0x0001); // in the dark
        const tsArrivedFrame frame = rig.client.ReceiveFrame();
        return static_cast<double>(frame.sum) / static_cast<double>(frame.pixels.size());
    };
    const double warm = mean(100000), shorter = mean(10000);
    EXPECT_GT(warm, 3000);
    EXPECT_GT(warm, shorter + 1000);
    rig.client.SendCommand(cmdSetCCDTargetTemp, {-350});
    rig.client.SendCommand(cmdSetCooling, {1});
    EXPECT_TRUE(Eventually([&] { return mean(100000) < 1010; }));
}
