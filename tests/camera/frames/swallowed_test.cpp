// Pixel packets with what looks like a message inside, as a camera counts its messages.
#include "pixels.h"
#include "vxcamiface.h"

#include <gtest/gtest.h>

namespace {

// A camera whose transport hands over bytes as they come.
class tcReceivingCamera : public tcTestCamera
{
public:
    using tcTestCamera::LinkLost;

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

// A frame of 4 rows, in which packet 2 ends with whole messages.
class Swallowed : public testing::Test
{
protected:
    explicit Swallowed(unsigned columns = 20) : mnColumns(columns)
    {
        mCamera.Log().setDbgLevel(0);
        mCamera.TellGeometry(4, mnColumns);
        mCamera.SetCCDArea(0, 0, static_cast<int>(mnColumns), 4);
        VXSetFrameCallback(
            mCamera.GetHandle(),
            [](int, const tsFrameRecord* frame, void* user) {
                static_cast<Swallowed*>(user)->mTold.push_back(*frame);
            },
            this);
        mCamera.ReadCCDArea(nullptr, 1, 0);
    }
    tBytes Packet(unsigned row) const
    {
        return tsPixels{e16Bit, row + 1, 4, row, 0, mnColumns - 1, true}.Message().Bytes();
    }
    static tBytes Answer() { return tcMessage(0x7F, tcPayload().U32(1)).Bytes(); }
    static tBytes HeartBeat() { return tcMessage(0x69, tcPayload().Fill(2, 1)).Bytes(); }
    // The camera's next message, counted, or only its beginning.
    void Send(const tBytes& message, size_t cut = 0) { Send(message, mnSequence++, cut); }
    void Send(tBytes message, uint8_t number, size_t cut)
    {
        constexpr size_t sequence = 4;
        message[sequence] = number;
        mStream.insert(mStream.end(), message.begin(), message.end() - static_cast<long>(cut));
    }
    // Another connection, which begins with messages of all kinds.
    void Connect(uint8_t number = 0)
    {
        mCamera.LinkLost();
        mnSequence = number;
        mTold.clear();
        mStream.clear();
        Send(Answer());
        Send(HeartBeat());
        mCamera.ReadCCDArea(nullptr, 1, 0);
    }
    // A frame in which a heartbeat that has this number takes the place of a packet's end.
    void SendFrameWithAHeartBeat(uint8_t number)
    {
        Send(Packet(0));
        Send(Packet(1), HeartBeat().size());
        Send(HeartBeat(), number, 0);
        Send(Packet(2));
        Send(Packet(3));
    }
    void ExpectDamage()
    {
        mCamera.Receive(mStream);
        ASSERT_EQ(mTold.size(), 1U);
        EXPECT_EQ(mTold[0].Outcome, eFrameIncomplete);
        EXPECT_EQ(mTold[0].PacketsDamaged, 1U);
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

    const unsigned mnColumns;
    tcReceivingCamera mCamera;
    uint8_t mnSequence = 0;
    tBytes mStream;
    std::vector<tsFrameRecord> mTold;
};

// Packets in which as many messages have room as there are numbers.
class SwallowedByTheHundred : public Swallowed
{
protected:
    static constexpr size_t gnNumbers = 256;

    SwallowedByTheHundred() : Swallowed(2048) {}
};

} // namespace

// The next packet stands where it is expected, but another message was counted before it.
TEST_F(Swallowed, MessageThatFillsACutPacketExactlyDamagesIt)
{
    Connect();
    Send(Packet(0));
    Send(Packet(1), HeartBeat().size());
    Send(HeartBeat());
    Send(Packet(2));
    Send(Packet(3));
    ExpectDamage();
}

TEST_F(Swallowed, HeartBeatThatIsNotCountedDamagesThePacket)
{
    Connect();
    Send(HeartBeat(), 0, 0);
    SendFrameWithAHeartBeat(0);
    ExpectDamage();
}

// Nothing has told yet how this camera counts its heartbeats.
TEST_F(Swallowed, FirstHeartBeatThatIsNotCountedDamagesThePacket)
{
    Send(Answer());
    Send(Answer());
    SendFrameWithAHeartBeat(0);
    ExpectDamage();
}

// Nor on this connection.
TEST_F(Swallowed, FirstHeartBeatOfAnotherConnectionDamagesThePacket)
{
    Connect();
    mCamera.Receive(mStream);
    mCamera.LinkLost();
    mCamera.ReadCCDArea(nullptr, 1, 0);
    mStream.clear();
    SendFrameWithAHeartBeat(0);
    ExpectDamage();
}

// As an echo of a command's number would be.
TEST_F(Swallowed, HeartBeatDamagesThePacketWhereAnAnswerIsNotCounted)
{
    Connect();
    Send(Answer(), 77, 0);
    SendFrameWithAHeartBeat(78);
    ExpectDamage();
}

// The beginnings of both sequences are the same, by chance.
TEST_F(Swallowed, HeartBeatDamagesThePacketWhereEachKindIsCounted)
{
    Connect();
    Send(HeartBeat(), mnSequence, 0);
    SendFrameWithAHeartBeat(static_cast<uint8_t>(mnSequence + 1));
    ExpectDamage();
}

TEST_F(SwallowedByTheHundred, AsManyMessagesAsThereAreNumbersDamageThePacket)
{
    for (const size_t payload : {size_t{0}, size_t{4}}) {
        SCOPED_TRACE(payload);
        const tBytes message = tcMessage(0xC8, tcPayload().Fill(payload, 1)).Bytes();
        Connect();
        Send(Packet(0));
        Send(Packet(1), gnNumbers * message.size());
        for (size_t i = 0; i < gnNumbers; ++i) {
            Send(message);
        }
        Send(Packet(2));
        Send(Packet(3));
        ExpectDamage();
    }
}

// Where the last of so many messages cannot begin.
TEST_F(SwallowedByTheHundred, PixelsLikeAMessageAreWholeWhereNoMoreFollow)
{
    const tBytes inside = tcMessage(0xC8, tcPayload().Fill(1100, 1)).Bytes();
    tBytes packet = Packet(1);
    std::copy(inside.begin(), inside.end(), packet.end() - static_cast<long>(inside.size()));
    Connect();
    Send(Packet(0));
    Send(packet);
    Send(Packet(2));
    Send(Packet(3));
    mCamera.Receive(mStream);
    ASSERT_EQ(mTold.size(), 1U);
    EXPECT_EQ(mTold[0].Outcome, eFrameComplete);
}

TEST_F(Swallowed, PixelsLikeAMessageAreWholeWhereTheNextPacketFollowsInOrder)
{
    for (unsigned first = 248; first < 256; ++first) {
        SCOPED_TRACE(first);
        Connect(static_cast<uint8_t>(first));
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
        Connect();
        const auto begin = static_cast<long>(mStream.size());
        SendFrameWithPixelsLikeAMessage();
        const auto at = mStream.begin() + begin + 2 * packet + header;
        mCamera.Receive({mStream.begin(), at});
        mCamera.Receive({at, mStream.end()});
        ASSERT_EQ(mTold.size(), 1U);
        EXPECT_EQ(mTold[0].Outcome, header == 12 ? eFrameComplete : eFrameIncomplete);
    }
}
