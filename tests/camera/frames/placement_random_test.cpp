// Random and hostile packets, beside a naive model of where their pixels go.
#include "pixels.h"

#include <gtest/gtest.h>

#include <random>

TEST_F(Placement, AgreesWithANaiveModelOnRandomAndHostilePackets)
{
    std::mt19937 random(20240917);
    auto pick = [&](unsigned limit) -> unsigned {
        const unsigned edges[] = {0, 1, limit - 1, limit, limit + 1, 65534, 65535};
        if (random() % 3 == 0) return edges[random() % std::size(edges)] & 0xFFFF;
        return random() % (limit + 2);
    };
    for (int round = 0; round < 60; ++round) {
        tcTestCamera camera;
        camera.Log().setDbgLevel(0);
        const unsigned rows = 1 + random() % 24, columns = 1 + random() % 40;
        camera.TellGeometry(static_cast<uint16_t>(rows), static_cast<uint16_t>(columns));
        for (teWidth width : gaWidths) {
            tcImage image(width, rows * columns), model(width, rows * columns);
            uint64_t outside = camera.PixelsOutside();
            camera.AbortRead();
            if (width == e16Bit) camera.ReadCCDArea(image.Shorts(), 0, 0);
            if (width == e32Bit) camera.ReadCCDBinned(image.Longs(), nullptr, 0, 0);
            for (int packet = 0; packet < 150; ++packet) {
                tsPixels pixels{width, pick(8), pick(8), pick(rows), pick(columns), pick(columns)};
                pixels.type = random() % 256;
                pixels.values.resize(1 + random() % 50);
                for (uint32_t& value : pixels.values) {
                    value = random();
                }
                tcMessage message = pixels.Message();
                if (width == e8Bit) {
                    camera.CompileMessage8(&message->Pixels8,
                                           static_cast<unsigned char*>(image.Pointer()));
                } else {
                    camera.Feed(message);
                }
                for (unsigned i = 0; i < pixels.values.size(); ++i) {
                    const unsigned column = pixels.first + i;
                    if (column > pixels.last) break;
                    if (pixels.row < rows && column < columns) {
                        model.Set(pixels.row * columns + column, pixels.values[i]);
                    } else {
                        ++outside;
                    }
                }
                ASSERT_EQ(camera.PixelsOutside(), outside);
            }
            ASSERT_TRUE(image == model)
                << NameOf(width) << " of " << rows << " x " << columns << ", round " << round;
        }
    }
}

TEST_F(Placement, SurvivesRandomMessagesOfEveryKind)
{
    std::mt19937 random(7);
    mCamera.Log().setDbgLevel(0);
    mCamera.TellGeometry(8, 16);
    tcImage area(e16Bit, 128), binned(e32Bit, 128);
    for (int i = 0; i < 20000; ++i) {
        if (i % 50 == 0) {
            mCamera.AbortRead();
            Read(e16Bit, area, 2);
            Read(e32Bit, binned, 2);
        }
        const uint32_t id = random() % 4 == 0 ? random() % 0x100 : IdOf(gaWidths[random() % 3]);
        if (id == 0x64) continue;
        tBytes payload(random() % 80);
        for (uint8_t& byte : payload) {
            byte = static_cast<uint8_t>(random() % 2 == 0 ? random() % 20 : random());
        }
        mCamera.Feed(id, payload);
        if (i % 1000 == 0) mCamera.ForgetRecords();
    }
    EXPECT_TRUE(area.GuardsAreWhole());
    EXPECT_TRUE(binned.GuardsAreWhole());
}
