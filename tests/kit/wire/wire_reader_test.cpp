// Recordings of the wire, read again: whole, cut off and damaged ones.
#include "record_support.h"
#include "wire_support.h"

#include <vxcamkit/error.h>
#include <vxcamkit/wire_reader.h>

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <sstream>
#include <vector>

using vxcam::WireCondition;
using vxcam::WireKind;
using vxcam::WireReader;

namespace {

constexpr int64_t kUtc = 1'700'000'000'000'000'000, kSteady = 5'000'000'000;

struct Seen {
    std::vector<std::string> texts; // "3@17 bytes" of each record
    WireCondition condition;
};

WireReader readerOf(const std::string& bytes)
{
    return {std::make_unique<std::istringstream>(bytes), "run.vxw"};
}

Seen seenIn(const std::string& bytes)
{
    Seen seen;
    WireReader reader = readerOf(bytes);
    while (const auto record = reader.next()) {
        seen.texts.push_back(
            std::to_string(static_cast<int>(record->kind)) + "@" +
            std::to_string(record->time.steady.time_since_epoch().count() - kSteady) + " " +
            std::string(record->bytes));
    }
    seen.condition = reader.condition();
    return seen;
}

const std::string kFirst = wireBlock(
    0, kUtc, kSteady, wireRecord(1, kSteady, "{}") + wireRecord(3, kSteady + 7, "ask"), 2);
const std::string kSecond =
    wireBlock(1, kUtc + 90, kSteady + 90,
              wireRecord(2, kSteady + 91, "ans") + wireRecord(2, kSteady + 92, "wer") +
                  wireRecord(4, kSteady + 99, ""),
              3);
const std::string kWhole = wireHead() + kFirst + kSecond + wireEnd(2);

} // namespace

TEST(WireReader, TellsWhatWasRecorded)
{
    const Seen seen = seenIn(kWhole);
    EXPECT_EQ(seen.texts,
              (std::vector<std::string>{"1@0 {}", "3@7 ask", "2@91 ans", "2@92 wer", "4@99 "}));
    EXPECT_TRUE(seen.condition.isWhole());
    EXPECT_EQ(seen.condition.blocks, 3u);
    EXPECT_EQ(seen.condition.records, 5u);
    EXPECT_EQ(seen.condition.text(), "3 blocks are whole");
}

TEST(WireReader, GivesRecordsTheTimeOfTheirBlock)
{
    WireReader reader = readerOf(kWhole);
    reader.next();
    const auto record = reader.next();
    EXPECT_EQ(record->time.utc.time_since_epoch().count(), kUtc + 7);
    EXPECT_EQ(record->time.steady.time_since_epoch().count(), kSteady + 7);
}

TEST(WireReader, KnowsCamerasApartAndLeavesOutKindsOfLaterVersions)
{
    const std::string records = wireRecord(200, kSteady, "new") + wireRecord(2, kSteady, "x", 3);
    WireReader reader = readerOf(wireHead() + wireBlock(0, kUtc, kSteady, records, 2) + wireEnd(1));
    const auto record = reader.next();
    EXPECT_EQ(record->camera, 3);
    EXPECT_EQ(record->bytes, "x");
    EXPECT_FALSE(reader.next());
    EXPECT_TRUE(reader.condition().isWhole());
}

TEST(WireReader, ReadsWholeBlocksOfAFileThatIsCutOffAnywhere)
{
    const size_t afterFirst = wireHead().size() + kFirst.size();
    const size_t afterSecond = afterFirst + kSecond.size();
    for (size_t length = 0; length < kWhole.size(); ++length) {
        const std::string cut = kWhole.substr(0, length);
        if (length < 8) {
            EXPECT_THROW(readerOf(cut), vxcam::Error) << length;
            continue;
        }
        const Seen seen = seenIn(cut);
        const uint64_t blocks = (length >= afterFirst ? 1 : 0) + (length >= afterSecond ? 1 : 0);
        const uint64_t records = (length >= afterFirst ? 2 : 0) + (length >= afterSecond ? 3 : 0);
        EXPECT_EQ(seen.condition.blocks, blocks) << length;
        EXPECT_EQ(seen.texts.size(), records) << length;
        EXPECT_FALSE(seen.condition.isEnded) << length;
        EXPECT_FALSE(seen.condition.isWhole()) << length;
    }
    EXPECT_EQ(seenIn(kWhole.substr(0, afterSecond - 1)).condition.text(),
              "1 block is whole; " + std::to_string(kSecond.size() - 1) + " bytes from byte " +
                  std::to_string(afterFirst) + " on are no whole block; it was not ended");
}

TEST(WireReader, FindsAFlippedBitAnywhereAndReadsTheOtherBlocks)
{
    const size_t afterFirst = wireHead().size() + kFirst.size();
    const size_t afterSecond = afterFirst + kSecond.size();
    for (size_t bit = 0; bit < 8 * kWhole.size(); ++bit) {
        std::string bytes = kWhole;
        bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ (1 << (bit % 8)));
        const Seen seen = seenIn(bytes);
        EXPECT_FALSE(seen.condition.isWhole()) << bit;
        const bool isInHead = bit / 8 < wireHead().size();
        const size_t lost = isInHead ? 0 : bit / 8 < afterFirst ? 2 : bit / 8 < afterSecond ? 3 : 0;
        EXPECT_EQ(seen.texts.size(), 5 - lost) << bit;
        EXPECT_EQ(seen.condition.blocks, isInHead ? 3u : 2u) << bit;
    }
}

TEST(WireReader, TellsOfBlocksThatAreMissing)
{
    const Seen seen = seenIn(wireHead() + kFirst + wireEnd(2));
    EXPECT_EQ(seen.condition.missing, 1u);
    EXPECT_FALSE(seen.condition.isWhole());
    EXPECT_EQ(seen.condition.text(), "2 blocks are whole; 1 block is missing");
    EXPECT_EQ(seenIn(wireHead() + kFirst + wireEnd(3)).condition.text(),
              "2 blocks are whole; 2 blocks are missing");
}

TEST(WireReader, GoesOnBehindBytesThatAreNoBlock)
{
    const Seen seen =
        seenIn(wireHead() + kFirst + "VXWB" + std::string(70000, 'x') + kSecond + wireEnd(2));
    EXPECT_EQ(seen.texts.size(), 5u);
    EXPECT_EQ(seen.condition.damaged, 1u);
    EXPECT_EQ(seen.condition.damagedBytes, 70004u);
    EXPECT_EQ(seen.condition.firstDamage, wireHead().size() + kFirst.size());
}

TEST(WireReader, RefusesWhatIsNoRecordingAndLaterVersions)
{
    const auto refusal = [](const std::string& bytes) -> std::string {
        try {
            readerOf(bytes);
        } catch (const vxcam::Error& error) {
            EXPECT_EQ(error.kind(), vxcam::ErrorKind::File);
            return error.what();
        }
        return "nothing";
    };
    EXPECT_EQ(refusal(""), "run.vxw: is no recording of the wire");
    EXPECT_EQ(refusal("SIMPLE  =                    T"), "run.vxw: is no recording of the wire");
    EXPECT_EQ(refusal(wireHead(2) + kFirst),
              "run.vxw: is of version 2; this program knows them up to 1");
    EXPECT_EQ(refusal(kWhole), "nothing");
    EXPECT_THROW(WireReader("/nowhere/run.vxw"), vxcam::Error);
}

// A record that claims more than its block has ends the block.
TEST(WireReader, DoesNotReadBeyondABlock)
{
    const std::string records = wireRecord(2, kSteady, "good") + low(kSteady, 8) +
                                low(0xFFFFFFF0, 4) + low(2, 1) + low(0, 3) + "short";
    const Seen seen = seenIn(wireHead() + wireBlock(0, kUtc, kSteady, records, 2) + wireEnd(1));
    EXPECT_EQ(seen.texts, (std::vector<std::string>{"2@0 good"}));
}

// Whole blocks are looked for behind what is not.
TEST(WireReader, SaysThatPipesAndFoldersAreNoRegularFiles)
{
    const vxcam::Folder folder;
    ASSERT_EQ(::mkfifo(folder.path("pipe").c_str(), 0600), 0);
    for (const std::string& path : {folder.path("pipe"), folder.path("")}) {
        try {
            const WireReader reader(path);
            ADD_FAILURE() << path;
        } catch (const vxcam::Error& error) {
            EXPECT_EQ(error.kind(), vxcam::ErrorKind::File);
            EXPECT_EQ(error.what(), path + ": is no regular file, which a recording is read from; "
                                           "save it as one");
        }
    }
}
