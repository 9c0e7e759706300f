// The parser beside a simple one, however its bytes are cut.
#include "parser_support.h"
#include "tcCamParser.h"

#include "vxmessages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

namespace {

// The frame rules taken one byte at a time, with nothing in common with the parser.
class tcReference
{
public:
    tcReference(uint32_t largest, bool checksum) : mnLargest(largest), mbChecksum(checksum) {}

    int Add(const tBytes& bytes)
    {
        int delivered = 0;
        mnChecksum = 0;
        for (unsigned char byte : bytes) {
            ++Counts.BytesIn;
            maFrame.push_back(byte);
            delivered += Take() ? 1 : 0;
        }
        return delivered;
    }

    tsCounters Counts{};
    tDeliveries Deliveries;

private:
    bool Take()
    {
        const size_t held = maFrame.size();
        if (held == 1) return false;
        if (held == 2) {
            if (maFrame[0] == 0x50 && maFrame[1] == 0xFA) {
                Counts.BytesFramed += 2;
            } else {
                maFrame.erase(maFrame.begin());
                ++Counts.SkippedBytes;
            }
            return false;
        }
        ++Counts.BytesFramed;
        const uint32_t length = maFrame.size() < 4 ? 0u : maFrame[2] + 256u * maFrame[3];
        if (held < 12) return false;
        if (held == 12 && length == 0) return Good(0);
        if (held == 12 && length > mnLargest) return Bad(-4, 0xFFFFFFFF);
        if (held < 12 + length) return false;
        if (!mbChecksum) return Good(mnChecksum);
        const unsigned sum = Sum(tBytes(maFrame.begin() + 12, maFrame.end()));
        if (sum == maFrame[5] + 256u * maFrame[6] + 65536u * maFrame[7]) return Good(sum);
        ++Counts.ChecksumErrors;
        return Bad(-1, sum);
    }
    bool Good(unsigned checksum)
    {
        ++Counts.GoodFrames;
        return Finish(0, checksum);
    }
    bool Bad(int status, unsigned checksum)
    {
        ++Counts.BadFrames;
        return Finish(status, checksum);
    }
    bool Finish(int status, unsigned checksum)
    {
        mnChecksum = checksum;
        Deliveries.push_back({status, checksum, maFrame});
        maFrame.clear();
        return true;
    }

    uint32_t mnLargest;
    bool mbChecksum;
    unsigned mnChecksum = 0;
    tBytes maFrame;
};

class tcStream
{
public:
    explicit tcStream(unsigned seed) : mEngine(seed) {}

    unsigned Below(unsigned limit)
    {
        return std::uniform_int_distribution<unsigned>(0, limit - 1)(mEngine);
    }

    // Frames good and bad, false starts and garbage rich in the two magic bytes.
    tBytes Make(int pieces, unsigned largest)
    {
        tBytes stream;
        for (int i = 0; i < pieces; ++i) {
            const tBytes piece = Piece(largest);
            stream.insert(stream.end(), piece.begin(), piece.end());
        }
        return stream;
    }

private:
    tBytes Garbage(unsigned longest)
    {
        static const unsigned char aCommon[] = {0x50, 0x50, 0x50, 0xFA, 0xFA, 0, 1, 3, 0x51, 0xFB};
        tBytes bytes(Below(longest + 1));
        for (unsigned char& byte : bytes) {
            byte = Below(4) != 0 ? aCommon[Below(sizeof aCommon)]
                                 : static_cast<unsigned char>(Below(256));
        }
        return bytes;
    }
    tBytes Piece(unsigned largest)
    {
        tBytes frame = Frame(Garbage(largest));
        switch (Below(8)) {
        case 0:
            return Garbage(20);
        case 1:
            return HeaderBytes(largest + 1 + Below(1000), 0);
        case 2:
            return {0x50};
        case 3:
            frame[12 + Below(static_cast<unsigned>(frame.size()) - 11) - 1] ^= 1;
            return frame;
        case 4:
            return Frame({});
        default:
            return frame;
        }
    }

    std::mt19937 mEngine;
};

} // namespace

TEST(CamParser, WalksThroughItsStates)
{
    struct tcProbe : tcCamParser {
        using tcCamParser::count;
        using tcCamParser::state;
        using tcCamParser::tcCamParser;
    };
    tcProbe parser(nullptr, 112, false);
    EXPECT_EQ(parser.state, Hunting);
    Feed(parser, {0x50});
    EXPECT_EQ(parser.state, Hunting);
    EXPECT_EQ(parser.count, 1);
    Feed(parser, {0xFA, 2});
    EXPECT_EQ(parser.state, Header);
    Feed(parser, {0, 0, 0, 0, 0, 3, 1, 0, 0});
    EXPECT_EQ(parser.state, Payload);
    EXPECT_EQ(parser.count, 12);
    Feed(parser, {1, 2});
    EXPECT_EQ(parser.state, Hunting);
    EXPECT_EQ(parser.count, 0);
}

TEST(CamParser, GivesTheReferencesResultsInEveryChunking)
{
    for (unsigned seed = 0; seed < 400; ++seed) {
        tcStream random(seed);
        const unsigned largest = 1 + random.Below(60);
        const bool checksum = seed % 2 == 1;
        const tBytes stream = random.Make(12, largest);
        const unsigned longest = 1 + random.Below(seed % 8 == 0 ? 1 : 80);
        tDeliveries deliveries;
        tcCamParser parser(nullptr, static_cast<int>(largest) + 12, checksum);
        parser.RegisterCallback(Collect, &deliveries);
        tcReference reference(largest, checksum);
        for (size_t start = 0; start < stream.size();) {
            const size_t n = std::min<size_t>(1 + random.Below(longest), stream.size() - start);
            const auto first = stream.begin() + static_cast<std::ptrdiff_t>(start);
            const tBytes chunk(first, first + static_cast<std::ptrdiff_t>(n));
            ASSERT_EQ(Feed(parser, chunk), reference.Add(chunk)) << "seed " << seed;
            ASSERT_TRUE(Counters(parser) == reference.Counts) << "seed " << seed;
            start += n;
        }
        ASSERT_TRUE(deliveries == reference.Deliveries) << "seed " << seed;
    }
}

TEST(CamParser, GivesTheReferencesResultsForEverySplitIntoThree)
{
    tcStream random(4711);
    const unsigned largest = 9;
    const tBytes stream = random.Make(9, largest);
    for (size_t a = 0; a <= stream.size(); ++a) {
        for (size_t b = a; b <= stream.size(); ++b) {
            tDeliveries deliveries;
            tcCamParser parser(nullptr, largest + 12, true);
            parser.RegisterCallback(Collect, &deliveries);
            tcReference reference(largest, true);
            const size_t cuts[] = {0, a, b, stream.size()};
            for (int i = 0; i < 3; ++i) {
                const tBytes chunk(stream.begin() + static_cast<std::ptrdiff_t>(cuts[i]),
                                   stream.begin() + static_cast<std::ptrdiff_t>(cuts[i + 1]));
                ASSERT_EQ(Feed(parser, chunk), reference.Add(chunk)) << a << ' ' << b;
                ASSERT_TRUE(Counters(parser) == reference.Counts) << a << ' ' << b;
            }
            ASSERT_TRUE(deliveries == reference.Deliveries) << a << ' ' << b;
        }
    }
}

TEST(CamParser, MeetsGoodAndBadFramesInTheRandomStreams)
{
    tsCounters all{};
    for (unsigned seed = 0; seed < 50; ++seed) {
        tcStream random(seed);
        tcReference reference(40, true);
        reference.Add(random.Make(20, 40));
        all.GoodFrames += reference.Counts.GoodFrames;
        all.ChecksumErrors += reference.Counts.ChecksumErrors;
        all.BadFrames += reference.Counts.BadFrames - reference.Counts.ChecksumErrors;
        all.SkippedBytes += reference.Counts.SkippedBytes;
    }
    EXPECT_GT(all.GoodFrames, 100u);
    EXPECT_GT(all.ChecksumErrors, 20u);
    EXPECT_GT(all.BadFrames, 20u);
    EXPECT_GT(all.SkippedBytes, 500u);
}
