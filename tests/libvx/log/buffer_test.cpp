#include "consumers_support.h"
#include "log_support.h"

#include <atomic>
#include <cstring>
#include <sstream>
#include <thread>

using testing::ElementsAre;

TEST(LogBuffer, DescribesItself)
{
    const tcLogBuffer buffer(200);
    EXPECT_STREQ("BUFFER", buffer.TypeName());
    EXPECT_STREQ("200 Line Buffer", buffer.Description());
    EXPECT_STREQ(",200", buffer.Options());
}

TEST(LogBuffer, LimitsItsLines)
{
    EXPECT_STREQ(",1", tcLogBuffer(0).Options());
    EXPECT_STREQ(",1", tcLogBuffer(-5).Options());
    EXPECT_STREQ(",229824", tcLogBuffer(229824).Options()); // of 292 bytes: 64 MiB
    EXPECT_STREQ(",229824", tcLogBuffer(229825).Options());
    EXPECT_STREQ(",229824", tcLogBuffer(2000000).Options());
}

TEST(LogBuffer, DumpsInOrderOfStorage)
{
    tcLogBuffer buffer(3);
    EXPECT_THAT(Stored(buffer), ElementsAre());
    for (const char* message : {"1", "2"})
        buffer.Output(RecordOf(tcLogEvent::eEvent, 0, message));
    EXPECT_THAT(Stored(buffer), ElementsAre("1", "2"));
    for (const char* message : {"3", "4", "5"})
        buffer.Output(RecordOf(tcLogEvent::eEvent, 0, message));
    EXPECT_THAT(Stored(buffer), ElementsAre("4", "5", "3"));
}

TEST(LogBuffer, KeepsTheLastOnesWhateverTheirNumber)
{
    for (const int lines : {255, 256, 257, 700}) {
        tcLogBuffer buffer(lines);
        std::vector<std::string> expected(static_cast<size_t>(lines));
        for (int i = 0; i < lines + 300; ++i) {
            expected[static_cast<size_t>(i % lines)] = std::to_string(i);
            buffer.Output(RecordOf(tcLogEvent::eDebug, 1, std::to_string(i).c_str()));
        }
        EXPECT_EQ(expected, Stored(buffer)) << lines;
    }
}

TEST(LogBuffer, DumpsLinesToStreams)
{
    tcLogBuffer buffer(3);
    const tcLogEvent event = RecordOf(tcLogEvent::eEvent, 0, "x");
    buffer.Output(event);
    std::ostringstream dumped, streamed;
    buffer.Dump(dumped, nullptr);
    streamed << buffer;
    EXPECT_EQ(LineOf(event), dumped.str());
    EXPECT_EQ(LineOf(event), streamed.str());
}

TEST(LogBuffer, SkipsRecordsWithoutTime)
{
    tcLogBuffer buffer(3);
    tcLogEvent event = RecordOf(tcLogEvent::eEvent, 0, "timeless");
    event.seconds = 0;
    buffer.Output(event);
    EXPECT_THAT(Stored(buffer), ElementsAre());
}

TEST(LogBuffer, CanBeDumpedIntoItself)
{
    tcLogBuffer buffer(2);
    buffer.Output(RecordOf(tcLogEvent::eEvent, 0, "x"));
    std::ostringstream os;
    buffer.Dump(os, &buffer);
    EXPECT_THAT(Stored(buffer), ElementsAre("x", "x"));
}

TEST(LogBuffer, TakesAndDumpsWholeRecordsInSeveralThreads)
{
    tcLogBuffer buffer(1);
    std::atomic<int> writing{3};
    std::vector<std::thread> writers;
    for (int i = 0; i < 3; ++i) {
        writers.emplace_back([&, i] {
            const std::string text(255, static_cast<char>('a' + i));
            const tcLogEvent event = RecordOf(tcLogEvent::eEvent, 0, text.c_str());
            for (int j = 0; j < 5000; ++j)
                buffer.Output(event);
            --writing;
        });
    }
    const auto expectWhole = [&] {
        for (const std::string& message : Stored(buffer))
            EXPECT_EQ(std::string(255, message[0]), message);
    };
    while (writing > 0)
        expectWhole();
    for (std::thread& writer : writers)
        writer.join();
    expectWhole();
    EXPECT_EQ(1u, Stored(buffer).size());
}
