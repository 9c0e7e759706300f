#include "tool_support.h"

#include <gmock/gmock.h>

using testing::HasSubstr;
using testing::StartsWith;

TEST(Ping, DocumentHoldsThePercentiles)
{
    tcRun run({"ping", "-n", "200", "--json", "--sim-sensor", "64x64"});
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_EQ(run.Errors(), "");
    const nlohmann::json document = run.Document();
    EXPECT_EQ(document["round_trips"], 200);
    EXPECT_GT(document["min_ms"], 0.0);
    EXPECT_LE(document["min_ms"], document["p50_ms"]);
    EXPECT_LE(document["p50_ms"], document["p99_ms"]);
    EXPECT_LE(document["p99_ms"], document["max_ms"]);
    EXPECT_LT(document["min_ms"], 20.0); // no poll interval shows
}

TEST(Ping, OneRoundTripIsEnough)
{
    tcRun run({"ping", "sim", "-n", "1", "--json"});
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_EQ(run.Document()["p50_ms"], run.Document()["p99_ms"]);
}

TEST(Ping, TextIsOneLine)
{
    tcRun run({"ping", "-n", "10"});
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_THAT(run.Output(), StartsWith("simulated camera: 10 round trips, p50 "));
    EXPECT_EQ(Lines(run.Output()), 1);
}

TEST(Ping, QuietPrintsNothing)
{
    tcRun run({"ping", "-n", "1", "-q"});
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_EQ(run.Output() + run.Errors(), "");
}

TEST(Ping, MeasuresACameraOnTheNetwork)
{
    tcActor camera;
    tcRun run({"ping", camera.Target(), "-n", "5", "--json"});
    EXPECT_EQ(run.Exit(), 0);
    EXPECT_EQ(run.Document()["target"], camera.Target());
}
