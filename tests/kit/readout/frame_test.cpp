#include <vxcamkit/error.h>
#include <vxcamkit/frame.h>

#include <gtest/gtest.h>

#include <cstring>

using vxcam::Error;
using vxcam::ErrorKind;
using vxcam::Frame;
using vxcam::FrameFacts;

namespace {

FrameFacts shape(int rows, int columns, int bits)
{
    FrameFacts facts;
    facts.rows = rows;
    facts.columns = columns;
    facts.bits = bits;
    return facts;
}

template <class Call>
ErrorKind kindOf(Call call)
{
    try {
        call();
    } catch (const Error& error) {
        return error.kind();
    }
    ADD_FAILURE() << "nothing was thrown";
    return ErrorKind::File;
}

template <class Pixel>
Frame filled(int rows, int columns, const std::vector<Pixel>& pixels)
{
    Frame frame(shape(rows, columns, 8 * sizeof(Pixel)));
    std::memcpy(frame.mutableData(), pixels.data(), frame.bytes());
    return frame;
}

} // namespace

TEST(Frame, IsZeroAtFirst)
{
    const Frame frame(shape(3, 5, 16));
    EXPECT_EQ(frame.rows(), 3);
    EXPECT_EQ(frame.columns(), 5);
    EXPECT_EQ(frame.bytes(), 30u);
    EXPECT_EQ(frame.sum(), 0u);
    for (const uint16_t pixel : frame.pixels<uint16_t>()) {
        EXPECT_EQ(pixel, 0);
    }
}

TEST(Frame, GivesPixelsRowAfterRowAtEachWidth)
{
    const Frame bytes = filled<uint8_t>(2, 3, {1, 2, 3, 4, 5, 255});
    EXPECT_EQ(bytes.pixels<uint8_t>().size(), 6u);
    EXPECT_EQ(bytes.pixel(1, 0), 4.0);
    EXPECT_EQ(bytes.sum(), 270u);
    const Frame words = filled<uint16_t>(2, 2, {1, 2, 65535, 4});
    EXPECT_EQ(words.pixel(1, 0), 65535.0);
    EXPECT_EQ(words.sum(), 65542u);
    const Frame sums = filled<uint32_t>(1, 3, {4294967295u, 4294967295u, 1});
    EXPECT_EQ(sums.pixel(0, 1), 4294967295.0);
    EXPECT_EQ(sums.pixels<int32_t>()[2], 1);
    EXPECT_EQ(sums.sum(), 8589934591u);
}

TEST(Frame, RefusesPixelsOfAnotherWidthOrPlace)
{
    const Frame frame(shape(2, 3, 16));
    EXPECT_EQ(kindOf([&] { frame.pixels<uint8_t>(); }), ErrorKind::Usage);
    EXPECT_EQ(kindOf([&] { frame.pixels<uint32_t>(); }), ErrorKind::Usage);
    EXPECT_EQ(kindOf([&] { frame.pixel(2, 0); }), ErrorKind::Usage);
    EXPECT_EQ(kindOf([&] { frame.pixel(0, 3); }), ErrorKind::Usage);
    EXPECT_EQ(kindOf([&] { frame.pixel(-1, 0); }), ErrorKind::Usage);
}

TEST(Frame, RefusesAShapeWithoutPixels)
{
    EXPECT_EQ(kindOf([] { Frame frame(shape(0, 3, 16)); }), ErrorKind::Usage);
    EXPECT_EQ(kindOf([] { Frame frame(shape(3, -1, 16)); }), ErrorKind::Usage);
    EXPECT_EQ(kindOf([] { Frame frame(shape(3, 3, 12)); }), ErrorKind::Usage);
    EXPECT_EQ(kindOf([] { Frame frame(shape(3, 3, 16), nullptr); }), ErrorKind::Usage);
}

TEST(Frame, SharesItsPixelsWithItsCopiesAndIsThenFixed)
{
    Frame frame(shape(4, 4, 8));
    {
        const Frame copy = frame;
        EXPECT_EQ(copy.data(), frame.data());
        EXPECT_EQ(kindOf([&] { frame.mutableData(); }), ErrorKind::Usage);
    }
    EXPECT_EQ(frame.mutableData(), frame.data());
}

TEST(Frame, AddsUpAgainWhatWasChanged)
{
    Frame frame(shape(1, 2, 16));
    EXPECT_EQ(frame.sum(), 0u);
    static_cast<uint16_t*>(frame.mutableData())[1] = 7;
    EXPECT_EQ(frame.sum(), 7u);
}

TEST(Frame, GivesItsBufferBackWithTheLastCopy)
{
    int returned = 0;
    uint16_t buffer[4] = {1, 2, 3, 4};
    {
        Frame frame(shape(2, 2, 16), std::shared_ptr<void>(buffer, [&](void*) { ++returned; }));
        const Frame copy = frame;
        frame = Frame(shape(1, 1, 8));
        EXPECT_EQ(copy.sum(), 10u);
        EXPECT_EQ(returned, 0);
    }
    EXPECT_EQ(returned, 1);
}

TEST(FrameFacts, AreCompleteWhenAllPacketsCameWhole)
{
    EXPECT_TRUE(FrameFacts().complete());
    for (uint32_t FrameFacts::*figure : {&FrameFacts::packetsMissing, &FrameFacts::packetsMisplaced,
                                         &FrameFacts::packetsDamaged}) {
        FrameFacts facts;
        facts.*figure = 1;
        EXPECT_FALSE(facts.complete());
    }
}
