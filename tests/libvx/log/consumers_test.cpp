#include "consumers_support.h"
#include "log_support.h"

#include <fcntl.h>

#include <chrono>
#include <future>
#include <memory>
#include <sstream>
#include <thread>

using testing::ElementsAre;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

static std::unique_ptr<tcLogConsumer> Build(const char* uri)
{
    tcLogConsumer* consumer = tcLog::BuildConsumer(uri);
    EXPECT_NE(tcLog::NullConsumer(), consumer) << uri;
    return std::unique_ptr<tcLogConsumer>(consumer == tcLog::NullConsumer() ? nullptr : consumer);
}

TEST(LogNull, DiscardsAndDescribesItself)
{
    tcLogConsumer* null = tcLog::NullConsumer();
    null->Output(RecordOf(tcLogEvent::eEvent, 0, "x"));
    EXPECT_STREQ("NULL", null->TypeName());
    EXPECT_STREQ("NULL Log Device", null->Description());
    EXPECT_STREQ("", null->Options());
    std::ostringstream os;
    null->Dump(os, nullptr);
    EXPECT_EQ("", os.str());
}

TEST(LogStream, DescribesItself)
{
    std::ostringstream os;
    tcLogStream stream(os);
    EXPECT_STREQ("STREAM", stream.TypeName());
    EXPECT_STREQ("Log to a stream", stream.Description());
    EXPECT_STREQ(",cout", stream.Options());
}

TEST(LogStream, FlushesEveryLine)
{
    class tcCounting : public std::stringbuf
    {
    public:
        int mnFlushes = 0;

    protected:
        int sync() override { return ++mnFlushes, 0; }
    } buffer;
    std::ostream os(&buffer);
    tcLogStream stream(os);
    stream.Output(RecordOf(tcLogEvent::eEvent, 0, "x"));
    stream.Output(RecordOf(tcLogEvent::eEvent, 0, "y"));
    EXPECT_EQ(2, buffer.mnFlushes);
}

TEST(LogStream, KeepsLinesOfSeveralConsumersAndThreadsWhole)
{
    std::ostringstream os;
    tcLogStream first(os), second(os);
    const tcLogEvent event = RecordOf(tcLogEvent::eEvent, 0, "whole line");
    const std::string line = LineOf(event);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            for (int j = 0; j < 250; ++j)
                (i % 2 ? first : second).Output(event);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    std::string expected;
    for (int i = 0; i < 1000; ++i)
        expected += line;
    EXPECT_EQ(expected, os.str());
}

TEST(LogStream, DoesNotWaitForOtherStreams)
{
    class tcStuck : public std::stringbuf
    {
    public:
        std::promise<void> mArrived, mOpened;

    protected:
        int sync() override
        {
            mArrived.set_value();
            mOpened.get_future().wait();
            return 0;
        }
    } stuck;
    const tcLogEvent event = RecordOf(tcLogEvent::eEvent, 0, "x");
    std::ostream os(&stuck);
    tcLogStream blocked(os);
    std::thread writer([&] { blocked.Output(event); });
    stuck.mArrived.get_future().wait();
    std::ostringstream others[32];
    const auto rest = std::async(std::launch::async, [&] {
        for (std::ostringstream& other : others)
            tcLogStream(other).Output(event);
    });
    EXPECT_EQ(std::future_status::ready, rest.wait_for(Within(std::chrono::seconds(20))));
    stuck.mOpened.set_value();
    writer.join();
}

TEST(LogUri, GivesTheDefaultConsumerForWhatItDoesNotKnow)
{
    for (const char* uri : {static_cast<const char*>(nullptr), "", "::", "FILE://x", "COUT", "file",
                            "buff", "file://", "buff:", "buff://0", "buff://-3", "buff://x",
                            "buff://1000001", "buff://4294967297", "buff://99999999999999999999",
                            "null", "null://x", "tcp://1.2.3.4:5"})
        EXPECT_EQ(tcLog::NullConsumer(), tcLog::BuildConsumer(uri)) << (uri ? uri : "null");

    tcRecords records;
    tcLog::mpDefaultConsumer = &records;
    EXPECT_EQ(&records, tcLog::BuildConsumer("nonsense"));
    EXPECT_EQ(&records, tcLog::BuildConsumer(nullptr));
    EXPECT_EQ(tcLog::NullConsumer(), tcLog::BuildConsumer("null"));
    tcLog::mpDefaultConsumer = tcLog::NullConsumer();
}

TEST(LogUri, BuildsStandardOutput)
{
    const auto consumer = Build("cout");
    EXPECT_STREQ("STREAM", consumer->TypeName());
    const tcLogEvent event = RecordOf(tcLogEvent::eEvent, 0, "x");
    CaptureStdout();
    consumer->Output(event);
    EXPECT_EQ(LineOf(event), GetCapturedStdout());
}

TEST(LogUri, BuildsBuffers)
{
    EXPECT_STREQ("200 Line Buffer", Build("buff://200")->Description());
    const auto consumer = Build("buff:3");
    for (const char* message : {"1", "2", "3", "4", "5"})
        consumer->Output(RecordOf(tcLogEvent::eEvent, 0, message));
    EXPECT_THAT(Stored(dynamic_cast<tcLogBuffer&>(*consumer)), ElementsAre("4", "5", "3"));
}

// Kept: the separators between the first words of a path are lost.
TEST(LogUri, BuildsFilesInTheWorkingDirectory)
{
    const tcWorkFolder folder;
    EXPECT_STREQ("camera.log", Build("file://camera.log")->Description());
    EXPECT_STREQ("logscamera.log", Build("file://logs/camera.log")->Description());
    EXPECT_STREQ("tmpcamera.log", Build("file:///tmp/camera.log")->Description());
    EXPECT_STREQ(",Error - No file", Build("file://a/b/c")->Options()); // "ab/c"
    EXPECT_STREQ("a b,c.log", Build("file://a b,c.log")->Description());
    EXPECT_EQ(0, access("tmpcamera.log", F_OK));
}

TEST(LogUri, BuildsDatagramConsumers)
{
    EXPECT_STREQ("UDP/txt to 192.168.1.20:10101", Build("udp://192.168.1.20:10101")->Description());
    EXPECT_STREQ("UDP/txt to 10.0.0.5:0", Build("udp://10.0.0.5")->Description());
    EXPECT_STREQ("UDP/txt to 255.255.255.255:0", Build("udp")->Description());
    EXPECT_STREQ("UDP/txt to 10.0.0.5:0", Build("udp://10.0.0.5:port")->Description());
    EXPECT_STREQ("UDP/txt to 10.0.0.5:1", Build("udp://10.0.0.5:65537")->Description());
    EXPECT_STREQ("UDP/bin to 10.0.0.5:7", Build("udp://10.0.0.5:7:bin")->Description());
    EXPECT_STREQ("UDP/txt to 10.0.0.5:7", Build("udp://10.0.0.5:7:BIN")->Description());
    EXPECT_STREQ("UDP/bin to 10.0.0.5:7 via 127.0.0.1",
                 Build("udp://10.0.0.5:7:bin:127.0.0.1")->Description());
    EXPECT_STREQ("UDP/txt to 10.0.0.5:7 via 127.0.0.1",
                 Build("udp/10.0.0.5/7/txt/127.0.0.1")->Description());
}
