// What the tests of readouts share: what the application is told of a frame.
#ifndef IMAGES_SUPPORT_H
#define IMAGES_SUPPORT_H

#include "system_support.h"

struct tsExpectation {
    int type, rows, columns, areaFirstColumn, areaFirstRow, extra1, extra2, frameIndex;
    unsigned framesDelivered;
    void* buffer;
    unsigned statistic;
};

inline void ExpectImageData(const tsExpectation& expected, const tsImageData& data)
{
    EXPECT_EQ(expected.type, data.ImageType);
    EXPECT_EQ(expected.rows, data.Rows);
    EXPECT_EQ(expected.columns, data.Columns);
    EXPECT_EQ(expected.areaFirstColumn, data.AreaFirstColumn);
    EXPECT_EQ(expected.areaFirstRow, data.AreaFirstRow);
    EXPECT_EQ(expected.extra1, data.Extra1);
    EXPECT_EQ(expected.extra2, data.Extra2);
    EXPECT_EQ(96, data.SensorColumns);
    EXPECT_EQ(64, data.SensorRows);
    EXPECT_EQ(expected.frameIndex, data.FrameIndex);
    EXPECT_EQ(expected.framesDelivered, data.FramesDelivered);
    EXPECT_EQ(expected.buffer, data.ImageBuffer);
    EXPECT_EQ(expected.statistic, data.Statistic);
}

class Images : public Camera
{
protected:
    // Asks for a pattern in which each pixel is the sum of its row, its column and `base`.
    void SetRamp(unsigned short base) { EXPECT_EQ(0, VXSetTestPattern(handle, 4, &base, 1)); }
};

#endif
