#include "tcSimFrameReader.h"

#include "SimClient.h"

#include <utility>

namespace {

struct tsSeen {
    std::vector<std::pair<uint32_t, std::vector<uint8_t>>> messages;
    std::vector<uint32_t> tooLong;
    uint64_t skipped = 0;
};

std::vector<uint8_t> Frame(uint32_t id, const std::vector<uint8_t>& payload)
{
    return tcSimTestClient::Frame(id, payload.data(), payload.size());
}

void Append(std::vector<uint8_t>& to, const std::vector<uint8_t>& more)
{
    to.insert(to.end(), more.begin(), more.end());
}

tsSeen Feed(const std::vector<uint8_t>& bytes, size_t chunk)
{
    tsSeen seen;
    tcSimFrameReader reader(
        [&](const tsMsgHeader& header, const uint8_t* payload) {
            seen.messages.emplace_back(header.MsgId,
                                       std::vector<uint8_t>(payload, payload + header.Length));
        },
        [&](const tsMsgHeader& header) { seen.tooLong.push_back(header.Length); });
    for (size_t done = 0; done < bytes.size(); done += chunk) {
        reader.Add(bytes.data() + done, std::min(chunk, bytes.size() - done));
    }
    seen.skipped = reader.SkippedBytes();
    return seen;
}

} // namespace

TEST(SimFrameReader, FindsTheSameMessagesInEveryChunking)
{
    std::vector<uint8_t> bytes{0x00, 0x50, 0x50, 0x12};
    Append(bytes, Frame(0x20, {1, 2, 3, 4}));
    Append(bytes, {0x50});
    Append(bytes, Frame(0x30, {}));
    Append(bytes, Frame(0xABCDEF, std::vector<uint8_t>(5000, 0x50)));
    Append(bytes, {0xFA, 0xFA, 0x50});
    for (size_t chunk : {size_t{1}, size_t{2}, size_t{3}, size_t{7}, size_t{100}, bytes.size()}) {
        tsSeen seen = Feed(bytes, chunk);
        ASSERT_EQ(seen.messages.size(), 3u) << chunk;
        EXPECT_EQ(seen.messages[0].first, 0x20u);
        EXPECT_EQ(seen.messages[0].second, (std::vector<uint8_t>{1, 2, 3, 4}));
        EXPECT_EQ(seen.messages[1].first, 0x30u);
        EXPECT_EQ(seen.messages[2].first, 0xABCDEFu);
        EXPECT_EQ(seen.messages[2].second.size(), 5000u);
        EXPECT_EQ(seen.skipped, 7u) << "a last 0x50 may be a beginning, chunk " << chunk;
    }
}

TEST(SimFrameReader, TakesTheLargestMessageAndSkipsOneLarger)
{
    const size_t largest = gnLargestMessage - gnHeaderBytes;
    std::vector<uint8_t> bytes = Frame(0x20, std::vector<uint8_t>(largest, 1));
    Append(bytes, Frame(0x21, std::vector<uint8_t>(largest + 1, 0)));
    Append(bytes, Frame(0x22, {}));
    for (size_t chunk : {size_t{1}, size_t{4096}, bytes.size()}) {
        tsSeen seen = Feed(bytes, chunk);
        ASSERT_EQ(seen.messages.size(), 2u);
        EXPECT_EQ(seen.messages[0].second.size(), largest);
        EXPECT_EQ(seen.messages[1].first, 0x22u);
        EXPECT_EQ(seen.tooLong, std::vector<uint32_t>{static_cast<uint32_t>(largest + 1)});
        EXPECT_EQ(seen.skipped, gnHeaderBytes + largest + 1);
    }
}

TEST(SimFrameReader, GoesOnSearchingRightBehindAFalseMagic)
{
    std::vector<uint8_t> bytes{0x50, 0xFA, 0xFF, 0xFF};
    Append(bytes, Frame(0x30, {}));
    tsSeen seen = Feed(bytes, bytes.size());
    ASSERT_EQ(seen.messages.size(), 1u);
    EXPECT_EQ(seen.messages[0].first, 0x30u);
    EXPECT_EQ(seen.skipped, 4u);
}
