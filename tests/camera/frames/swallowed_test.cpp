// Pixel packets with what looks like a message inside, as a camera counts its messages.
#include "pixels.h"
#include "vxcamiface.h"

#include <gtest/gtest.h>

namespace {

// A camera whose transport hands over bytes as they come.
class tcReceivingCamera : public tcTestCamera
{
public:
    // Memory of just that size, so that a look beyond is found out.
    void Receive(const tBytes& bytes)
    {
        tBytes piece(bytes);
        piece.shrink_to_fit();
        const auto length = static_cast<int>(piece.size());
        CountReceived(piece.data(), length);
        mpParser->AddData(piece.data(), length);
        CountParsed();
    }
};

// A frame of 4 rows, in which packet 2 ends with a whole message.
class Swallowed : public testing::Test
{
protected:
    Swallowed()
    {
        mCamera.Log().setDbgLevel(0);
        mCamera.TellGeometry(4, gnColumns);
        mCamera.SetCCDArea(0, 0, gnColumns, 4);
        VXSetFrameCallback(
            mCamera.GetHandle(),
            [](int, const tsFrameRecord* frame, void* user) {
                static_cast<Swallowed*>(user)->mTold.push_back(*frame);
            },
            this);
        mCamera.ReadCCDArea(nullptr, 1, 0);
    }
    static tBytes Packet(unsigned row)
    {
        return tsPixels{e16Bit, row + 1, 4, row, 0, gnColumns - 1, true}.Message().Bytes();
    }
    static tBytes HeartBeat() { return tcMessage(0x69, tcPayload().Fill(2, 1)).Bytes(); }
    // The camera's next message, counted, or only its beginning.
    void Send(tBytes message, size_t cut = 0)
    {
        constexpr size_t sequence = 4;
        message[sequence] = mnSequence++;
        mStream.insert(mStream.end(), message.begin(), message.end() - static_cast<long>(cut));
    }
    void SendFrameWithPixelsLikeAMessage()
    {
        const tBytes inside = HeartBeat();
        tBytes packet = Packet(1);
        std::copy(inside.begin(), inside.end(), packet.end() - static_cast<long>(inside.size()));
        Send(Packet(0));
        Send(packet);
        Send(Packet(2));
        Send(Packet(3));
    }

    static constexpr unsigned gnColumns = 20;
    tcReceivingCamera mCamera;
    uint8_t mnSequence = 0;
    tBytes mStream;
    std::vector<tsFrameRecord> mTold;
};

} // namespace

// The next packet stands where it is expected, but another message was counted before it.
TEST_F(Swallowed, MessageThatFillsACutPacketExactlyDamagesIt)
{
    Send(Packet(0));
    Send(Packet(1), HeartBeat().size());
    Send(HeartBeat());
    Send(Packet(2));
    Send(Packet(3));
    mCamera.Receive(mStream);
    ASSERT_EQ(mTold.size(), 1U);
    EXPECT_EQ(mTold[0].Outcome, eFrameIncomplete);
    EXPECT_EQ(mTold[0].PacketsDamaged, 1U);
}

TEST_F(Swallowed, PixelsLikeAMessageAreWholeWhereTheNextPacketFollowsInOrder)
{
    for (unsigned first = 250; first < 256; ++first) {
        SCOPED_TRACE(first);
        mCamera.ReadCCDArea(nullptr, 1, 0);
        mTold.clear();
        mStream.clear();
        mnSequence = static_cast<uint8_t>(first);
        SendFrameWithPixelsLikeAMessage();
        mCamera.Receive(mStream);
        ASSERT_EQ(mTold.size(), 1U);
        EXPECT_EQ(mTold[0].Outcome, eFrameComplete);
    }
}

// What is not known to follow in order may be the rest of a message.
TEST_F(Swallowed, PixelsLikeAMessageAreDamagedAsLongAsTheNextHeaderHasNotCome)
{
    const auto packet = static_cast<long>(Packet(0).size());
    for (long header = 0; header <= 12; ++header) {
        SCOPED_TRACE(header);
        mCamera.ReadCCDArea(nullptr, 1, 0);
        mTold.clear();
        mStream.clear();
        SendFrameWithPixelsLikeAMessage();
        const auto at = mStream.begin() + 2 * packet + header;
        mCamera.Receive({mStream.begin(), at});
        mCamera.Receive({at, mStream.end()});
        ASSERT_EQ(mTold.size(), 1U);
        EXPECT_EQ(mTold[0].Outcome, header == 12 ? eFrameComplete : eFrameIncomplete);
    }
}
