// The benchmarks' instruments: what they measure is what they say, and every row comes out.
#include "receiver.h"
#include "shell.h"
#include "table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <set>

namespace {

using testing::HasSubstr;

TEST(BenchTable, SummarisesByTheMedian)
{
    const tsSummary odd = Summarise({5, 1, 3});
    EXPECT_EQ(3, odd.median);
    EXPECT_EQ(1, odd.minimum);
    EXPECT_EQ(5, odd.maximum);
    EXPECT_EQ(2.5, Summarise({4, 1, 3, 2}).median);
    EXPECT_EQ(0, Summarise({}).median);
}

TEST(BenchTable, TakesPercentilesOfUnsortedSamples)
{
    std::vector<double> samples;
    for (int i = 100; i > 0; --i)
        samples.push_back(i);
    EXPECT_EQ(50, Percentile(samples, 50));
    EXPECT_EQ(99, Percentile(samples, 99));
    EXPECT_EQ(1, Percentile(samples, 0));
    EXPECT_EQ(100, Percentile(samples, 100));
}

TEST(BenchTable, SamplesBothSidesInTurn)
{
    std::string order;
    tcTable table;
    table.Compare(
        "X1", "anything", "s", false, 4,
        [&] {
            order += 'o';
            return 3.0;
        },
        [&] {
            order += 'r';
            return 2.0;
        });
    EXPECT_EQ("orroorro", order);
    testing::internal::CaptureStdout();
    table.Print(true);
    const auto rows = nlohmann::json::parse(testing::internal::GetCapturedStdout());
    ASSERT_EQ(1u, rows.size());
    EXPECT_EQ(nlohmann::json({1.5, 1.5, 1.5}), rows[0]["ratio"]);
}

// Both sides must do the same work, or their ratio says nothing.
TEST(BenchReceivers, EndWithTheSamePixels)
{
    for (const int bits : {16, 32}) {
        for (const bool byPacket : {false, true}) {
            tsStream stream;
            stream.rows = 64;
            stream.columns = 1000;
            stream.bits = bits;
            stream.byPacket = byPacket;
            const tcSender sender(stream);
            tcLibraryReceiver library(sender);
            tcBareReceiver small(sender, 4096), large(sender, 65536);
            library.Receive(3);
            small.Receive(3);
            large.Receive(3);
            EXPECT_EQ(0, memcmp(library.Image(), small.Image(), stream.PixelBytes())) << bits;
            EXPECT_EQ(0, memcmp(library.Image(), large.Image(), stream.PixelBytes())) << bits;
            const std::set<uint8_t> values(library.Image(), library.Image() + stream.PixelBytes());
            EXPECT_EQ(256u, values.size());
        }
    }
}

TEST(BenchReceivers, KeepTheSameFrames)
{
    tsStream stream;
    stream.rows = 64;
    stream.columns = 1000;
    const tcSender sender(stream);
    tcLibraryReceiver once(sender), turn(sender, teKeeping::eInTurn),
        copy(sender, teKeeping::eCopied);
    once.Receive(1);
    turn.Receive(2 * tcLibraryReceiver::nKept);
    copy.Receive(2 * tcLibraryReceiver::nKept);
    for (int i = 0; i < tcLibraryReceiver::nKept; ++i) {
        EXPECT_EQ(0, memcmp(once.Image(), turn.Kept(i), stream.PixelBytes())) << i;
        EXPECT_EQ(0, memcmp(once.Image(), copy.Kept(i), stream.PixelBytes())) << i;
    }
}

TEST(BenchSender, IsNotFasterThanItMayBe)
{
    tsStream stream;
    stream.rows = 256;
    stream.megabytesPerSecond = 100;
    const tcSender sender(stream);
    tcBareReceiver bare(sender, 65536);
    const int frames = 20;
    const double least = static_cast<double>(stream.PixelBytes()) * (frames - 1) / 1e8;
    EXPECT_GT(bare.Receive(frames).seconds, 0.9 * least);
}

class VxBench : public testing::Test
{
protected:
    VxBench() : msFolder(testing::TempDir() + "vxbenchXXXXXX")
    {
        if (mkdtemp(msFolder.data()) == nullptr) throw std::runtime_error("mkdtemp");
    }
    ~VxBench() override
    {
        std::error_code ignored;
        std::filesystem::remove_all(msFolder, ignored);
    }
    std::string Run(const std::string& options, int* status)
    {
        return Output("cd " + msFolder + " && TCLOG_SUPPRESS_ERR_CONSOLE=1 " VX_BENCH " " + options,
                      status);
    }

    std::string msFolder;
};

void ExpectSound(const nlohmann::json& figures, const std::string& row)
{
    const auto three = figures.get<std::vector<double>>();
    ASSERT_EQ(3u, three.size()) << row;
    for (const double figure : three) {
        EXPECT_TRUE(std::isfinite(figure)) << row;
        EXPECT_GT(figure, 0) << row;
    }
    EXPECT_LE(three[0], three[1]) << row;
    EXPECT_LE(three[1], three[2]) << row;
}

TEST_F(VxBench, MeasuresEveryRow)
{
    int status = -1;
    const auto rows = nlohmann::json::parse(Run("--quick --json 2>/dev/null", &status));
    EXPECT_EQ(0, status);
    std::set<std::string> names;
    for (const auto& row : rows) {
        const std::string name = row["row"];
        names.insert(name);
        ExpectSound(row["ours"], name);
        if (row["reference"] == nlohmann::json({0, 0, 0})) continue; // a figure without one
        ExpectSound(row["reference"], name);
        ExpectSound(row["ratio"], name);
    }
    std::set<std::string> all = {"S1", "S2", "S3", "S4", "S5", "L1", "L2", "L3", "I1", "I2",
                                 "P1", "D1", "G1", "G2", "G3", "C1", "F1", "F2", "K1", "K2",
                                 "W1", "W2", "W3", "W4", "W5", "W6", "W7", "W8", "V1", "V2"};
    if (VX_WITH_PYTHON) all.insert({"N1", "N2"});
    EXPECT_EQ(all, names);
    EXPECT_TRUE(std::filesystem::is_empty(msFolder));
}

TEST_F(VxBench, PrintsATableOfTheRowsAskedFor)
{
    int status = -1;
    const std::string text = Run("--quick --rows P1,C1 2>/dev/null", &status);
    EXPECT_EQ(0, status);
    EXPECT_EQ(4, std::count(text.begin(), text.end(), '\n')) << text;
    EXPECT_THAT(text, HasSubstr("\nP1 "));
    EXPECT_THAT(text, HasSubstr("\nC1 "));
}

TEST_F(VxBench, RefusesWhatItDoesNotKnow)
{
    int status = -1;
    EXPECT_THAT(Run("--rows S1,X9 2>&1", &status), HasSubstr("there is no row 'X9'"));
    EXPECT_EQ(1, WEXITSTATUS(status));
    EXPECT_THAT(Run("--slow 2>&1", &status), HasSubstr("usage: "));
    EXPECT_EQ(1, WEXITSTATUS(status));
}

// A fixed buffer of what systems grant takes a tenth of the speed.
TEST(LongWay, IsNotThrottledByAFixedBuffer)
{
    int status = -1;
    const std::string output = Output(
        "DBGD_DISABLE=1 " VX_LONG_WAY " --round-trip 50 --repeats 3 --frames 2 2>&1", &status);
    if (status != 0 && output.find("network") != std::string::npos) GTEST_SKIP() << output;
    ASSERT_EQ(0, status) << output;
    const size_t at = output.find("ratio ");
    ASSERT_NE(std::string::npos, at) << output;
    EXPECT_GT(std::stod(output.substr(at + 6)), 0.5) << output;
}

} // namespace
