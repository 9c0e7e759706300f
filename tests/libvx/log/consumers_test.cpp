#include "HSocket.h"
#include "log_support.h"
#include "tcNetworkNamespace.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fstream>
#include <future>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <thread>

using testing::ElementsAre;
using testing::StartsWith;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

static void SetZone(const char* zone)
{
    setenv("TZ", zone, 1);
    tzset();
}

static std::string LineOf(tcLogEvent const& event)
{
    std::ostringstream os;
    tcLogStream stream(os);
    stream.Output(event);
    return os.str();
}

static std::string Contents(const std::string& path)
{
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// A folder to work in, removed afterwards with the files in it.
class tcWorkFolder
{
public:
    tcWorkFolder()
    {
        msPath = testing::TempDir() + "vxlogXXXXXX";
        EXPECT_NE(nullptr, mkdtemp(msPath.data()));
        char before[4096];
        msBefore = getcwd(before, sizeof before);
        EXPECT_EQ(0, chdir(msPath.c_str()));
    }
    ~tcWorkFolder()
    {
        DIR* folder = opendir(".");
        while (const dirent* entry = readdir(folder))
            unlink(entry->d_name);
        closedir(folder);
        EXPECT_EQ(0, chdir(msBefore.c_str()));
        rmdir(msPath.c_str());
    }

private:
    std::string msPath, msBefore;
};

static std::unique_ptr<tcLogConsumer> Build(const char* uri)
{
    tcLogConsumer* consumer = tcLog::BuildConsumer(uri);
    EXPECT_NE(tcLog::NullConsumer(), consumer) << uri;
    return std::unique_ptr<tcLogConsumer>(consumer == tcLog::NullConsumer() ? nullptr : consumer);
}

TEST(LogLine, HasTimeMillisecondsTagLabelAndMessage)
{
    SetZone("UTC0");
    tcLogEvent event = RecordOf(tcLogEvent::eDebug, 1, "message text");
    event.seconds = 1705326302;
    event.millis = 123;
    EXPECT_EQ("20240115-13:45:02.123:    dbgd:DBG1:message text\n", LineOf(event));
    event.type = tcLogEvent::eError;
    strcpy(event.tag, "   Debug");
    strcpy(event.message, "open failed");
    EXPECT_EQ("20240115-13:45:02.123:   Debug: ERR:open failed\n", LineOf(event));
}

TEST(LogLine, HasATagOfEightColumnsAtLeast)
{
    tcLogEvent event = RecordOf(tcLogEvent::eDebug, 1, "x");
    for (const auto& [tag, shown] :
         std::map<std::string, std::string>{{"", "        "},
                                            {"CAM", "     CAM"},
                                            {"SEVENTH", " SEVENTH"},
                                            {"ONE TO TEN", "ONE TO TEN"}}) {
        strcpy(event.tag, tag.c_str());
        EXPECT_THAT(LineOf(event), testing::EndsWith(":" + shown + ":DBG1:x\n"));
    }
}

TEST(LogLine, HasLocalTime)
{
    const tcLogEvent event = RecordOf(tcLogEvent::eEvent, 0, "x");
    SetZone("UTC0");
    EXPECT_THAT(LineOf(event), StartsWith("20010909-01:46:40.005:"));
    SetZone("EST5");
    EXPECT_THAT(LineOf(event), StartsWith("20010908-20:46:40.005:"));
    SetZone("EST5EDT");
    EXPECT_THAT(LineOf(event), StartsWith("20010908-21:46:40.005:"));
    SetZone("EST4");
    EXPECT_THAT(LineOf(event), StartsWith("20010908-21:46:40.005:"));
    SetZone("EST6");
    EXPECT_THAT(LineOf(event), StartsWith("20010908-19:46:40.005:"));
}

TEST(LogLine, FollowsAZoneThatNobodyAnnounced)
{
    const tcLogEvent event = RecordOf(tcLogEvent::eEvent, 0, "x");
    const std::string longName(150, 'A');
    setenv("TZ", "EST5", 1);
    EXPECT_THAT(LineOf(event), StartsWith("20010908-20:46:40.005:"));
    setenv("TZ", "XYZ-2", 1);
    EXPECT_THAT(LineOf(event), StartsWith("20010909-03:46:40.005:"));
    setenv("TZ", "", 1);
    EXPECT_THAT(LineOf(event), StartsWith("20010909-01:46:40.005:"));
    setenv("TZ", (longName + "5").c_str(), 1);
    EXPECT_THAT(LineOf(event), StartsWith("20010908-20:46:40.005:"));
    setenv("TZ", (longName + "6").c_str(), 1);
    EXPECT_THAT(LineOf(event), StartsWith("20010908-19:46:40.005:"));
}

TEST(LogLine, HasAtLeastThreeDigitsOfMilliseconds)
{
    tcLogEvent event = RecordOf(tcLogEvent::eEvent, 0, "x");
    for (const int millis : {0, 7, 42, 999, 1000, 123456, -5, -1234}) {
        event.millis = millis;
        char expected[32];
        snprintf(expected, sizeof expected, ".%03d:    dbgd: EVT:x\n", millis);
        EXPECT_THAT(LineOf(event), testing::EndsWith(expected));
    }
}

static std::string LabelOf(int type, int level)
{
    SetZone("UTC0");
    const auto event = RecordOf(static_cast<tcLogEvent::teEventLogType>(type), level, "m");
    return LineOf(event).substr(31, 4);
}

TEST(LogLine, LabelsRecordsByTypeAndLevel)
{
    for (int level = 0; level <= 9; ++level)
        EXPECT_EQ("DBG" + std::to_string(level), LabelOf(0, level));
    EXPECT_EQ("DBG+", LabelOf(0, 10));
    EXPECT_EQ("DBG+", LabelOf(0, 12));
    EXPECT_EQ("DBG+", LabelOf(0, -1));
    EXPECT_EQ(" JNL", LabelOf(1, 0));
    EXPECT_EQ(" ERR", LabelOf(2, 0));
    EXPECT_EQ(" EVT", LabelOf(3, 0));
    EXPECT_EQ(" UNK", LabelOf(4, 0));
    EXPECT_EQ(" UNK", LabelOf(-1, 0));
}

TEST(LogLine, TakesRecordsWithoutTerminators)
{
    SetZone("UTC0");
    tcLogEvent event;
    memset(&event, 'a', sizeof event);
    event.type = tcLogEvent::eEvent;
    event.seconds = 0;
    event.millis = 1000;
    EXPECT_EQ("19700101-00:00:00.1000:" + std::string(16, 'a') + ": EVT:" + std::string(256, 'a') +
                  "\n",
              LineOf(event));
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
    EXPECT_EQ(std::future_status::ready, rest.wait_for(std::chrono::seconds(5)));
    stuck.mOpened.set_value();
    writer.join();
}

TEST(LogFile, AppendsLines)
{
    const tcWorkFolder folder;
    const tcLogEvent event = RecordOf(tcLogEvent::eEvent, 0, "x");
    for (int i = 0; i < 2; ++i) {
        tcLogFile file("a.log");
        EXPECT_STREQ("FILE", file.TypeName());
        EXPECT_STREQ("a.log", file.Description());
        EXPECT_STREQ(",a.log", file.Options());
        file.Output(event);
    }
    EXPECT_EQ(LineOf(event) + LineOf(event), Contents("a.log"));
}

TEST(LogFile, IsCloseOnExec)
{
    const tcWorkFolder folder;
    const int before = dup(0);
    close(before);
    const tcLogFile file("a.log");
    EXPECT_EQ(FD_CLOEXEC, fcntl(before, F_GETFD)); // the lowest free descriptor is the file's
}

TEST(LogFile, TakesNothingWhenItCannotBeOpened)
{
    for (const char* path : {"/no/such/folder/a.log", static_cast<const char*>(nullptr)}) {
        tcLogFile file(path);
        EXPECT_STREQ("FILE", file.TypeName());
        EXPECT_STREQ("Log to a stream", file.Description());
        EXPECT_STREQ(",Error - No file", file.Options());
        file.Output(RecordOf(tcLogEvent::eEvent, 0, "x"));
    }
}

TEST(LogFile, WritesEachLineAtOnce)
{
    const tcWorkFolder folder;
    const std::string line = LineOf(RecordOf(tcLogEvent::eEvent, 0, "whole line"));
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            tcLogFile own("common.log");
            for (int j = 0; j < 100; ++j)
                own.Output(RecordOf(tcLogEvent::eEvent, 0, "whole line"));
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    std::string expected;
    for (int i = 0; i < 400; ++i)
        expected += line;
    EXPECT_EQ(expected, Contents("common.log"));
}

// What is in a pipe now.
static std::string ReadNow(int pipe)
{
    std::string text;
    char piece[4096];
    for (ssize_t size = 1; size > 0;) {
        size = read(pipe, piece, sizeof piece);
        if (size > 0) text.append(piece, static_cast<size_t>(size));
    }
    return text;
}

TEST(LogFile, CannotBeAPipeThatNobodyReads)
{
    const tcWorkFolder folder;
    ASSERT_EQ(0, mkfifo("pipe", 0600));
    tcLogFile file("pipe");
    EXPECT_STREQ(",Error - No file", file.Options());
    file.Output(RecordOf(tcLogEvent::eEvent, 0, "x"));
}

TEST(LogFile, RaisesNoSignalWhenThePipesReaderGoes)
{
    const tcWorkFolder folder;
    const tcLogEvent event = RecordOf(tcLogEvent::eEvent, 0, "x");
    ASSERT_EQ(0, mkfifo("pipe", 0600));
    int reader = open("pipe", O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    tcLogFile file("pipe");
    file.Output(event);
    EXPECT_EQ(LineOf(event), ReadNow(reader));
    close(reader);
    file.Output(event);
    sigset_t pending;
    sigpending(&pending);
    EXPECT_FALSE(sigismember(&pending, SIGPIPE));
    reader = open("pipe", O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    file.Output(event);
    EXPECT_EQ(LineOf(event), ReadNow(reader));
    close(reader);
}

TEST(LogFile, DoesNotWaitForThePipesReader)
{
    const tcWorkFolder folder;
    const std::string line = LineOf(RecordOf(tcLogEvent::eEvent, 0, "whole line"));
    ASSERT_EQ(0, mkfifo("pipe", 0600));
    const int reader = open("pipe", O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    tcLogFile file("pipe");
    for (int i = 0; i < 20000; ++i)
        file.Output(RecordOf(tcLogEvent::eEvent, 0, "whole line"));
    const std::string text = ReadNow(reader);
    close(reader);
    EXPECT_GT(text.size(), 4096u);
    std::string whole;
    while (whole.size() < text.size())
        whole += line;
    EXPECT_EQ(whole, text);
}

static std::vector<std::string> Stored(tcLogBuffer const& buffer)
{
    tcRecords records;
    std::ostringstream os;
    buffer.Dump(os, &records);
    EXPECT_EQ("", os.str());
    return records.Messages();
}

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

// A datagram socket of the test's own.
struct tsReceiver {
    tsReceiver() { mSocket.Create(0, SOCK_DGRAM, "127.0.0.1"); }

    std::string Next()
    {
        char buffer[2000];
        HInetAddr from;
        const int length = mSocket.ReceiveFrom(buffer, sizeof buffer, from, 5000);
        EXPECT_GT(length, 0);
        return std::string(buffer, length > 0 ? length : 0);
    }

    HSocket mSocket;
};

TEST(LogUdp, SendsLinesOrRecords)
{
    tsReceiver receiver;
    const tcLogEvent event = RecordOf(tcLogEvent::eError, 0, "x");
    tcLogUdp text("127.0.0.1", receiver.mSocket.GetLocalPort(), false, nullptr);
    text.Output(event);
    EXPECT_EQ(LineOf(event), receiver.Next());

    tcLogUdp binary("127.0.0.1", receiver.mSocket.GetLocalPort(), true, nullptr);
    binary.Output(event);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&event), 292), receiver.Next());
}

TEST(LogUdp, MaySendToEverybody)
{
    HSocket everybody;
    everybody.Create(0, SOCK_DGRAM, nullptr);
    const tcLogEvent event = RecordOf(tcLogEvent::eError, 0, "x");
    tcLogUdp broadcast("127.255.255.255", everybody.GetLocalPort(), false, nullptr);
    broadcast.Output(event);
    char buffer[400];
    HInetAddr from;
    const int length = everybody.ReceiveFrom(buffer, sizeof buffer, from, 5000);
    ASSERT_GT(length, 0);
    EXPECT_EQ(LineOf(event), std::string(buffer, length));
}

TEST(LogUdp, DescribesItself)
{
    const tcLogUdp text("10.0.0.5", 10101, false, nullptr);
    EXPECT_STREQ("UDP", text.TypeName());
    EXPECT_STREQ("UDP/txt to 10.0.0.5:10101", text.Description());
    EXPECT_STREQ(",10.0.0.5,10101", text.Options());

    const tcLogUdp binary(nullptr, 1, true, "127.0.0.1");
    EXPECT_STREQ("UDP/bin to 255.255.255.255:1 via 127.0.0.1", binary.Description());
    EXPECT_STREQ(",255.255.255.255,1,127.0.0.1", binary.Options());
    EXPECT_STREQ("255.255.255.255", tcLogUdp::mpDefaultAddr);
    EXPECT_EQ(10101, tcLogUdp::mnDefaultPort);
}

TEST(LogUdp, SaysWhereItsSocketIsBound)
{
    CaptureStdout();
    const tcLogUdp any("10.0.0.5", 1, false, nullptr), one("10.0.0.5", 1, false, "127.0.0.1");
    EXPECT_EQ("Binding to (null) : 0\nBind: 0\nBind successful\n"
              "Binding to 127.0.0.1 : 0\nBind: 0\nBind successful\n",
              GetCapturedStdout());
}

TEST(LogUdp, SendsThroughTheGivenDeviceWhereThereIsNoRoute)
{
    std::string reason;
    const tcNetworkNamespace network(reason);
    if (!network.Usable()) GTEST_SKIP() << reason;
    const tcLogEvent event = RecordOf(tcLogEvent::eError, 0, "x");
    char data[400] = "";
    ssize_t size = -1;
    network.Run([&] {
        HSocket member;
        member.Create(0, SOCK_DGRAM, nullptr);
        const ip_mreq group{{inet_addr("239.1.2.3")}, {inet_addr("127.0.0.1")}};
        EXPECT_EQ(0,
                  setsockopt(member.GetFD(), IPPROTO_IP, IP_ADD_MEMBERSHIP, &group, sizeof group));
        CaptureStdout();
        tcLogUdp through("239.1.2.3", member.GetLocalPort(), false, "lo");
        GetCapturedStdout();
        through.Output(event);
        HInetAddr from;
        size = member.ReceiveFrom(data, sizeof data, from, 5000);
    });
    ASSERT_GT(size, 0);
    EXPECT_EQ(LineOf(event), std::string(data, static_cast<size_t>(size)));
}

TEST(LogUdp, SendsFromTheGivenAddressOrDevice)
{
    tsReceiver receiver;
    const tcLogEvent event = RecordOf(tcLogEvent::eError, 0, "x");
    tcLogUdp address("127.0.0.1", receiver.mSocket.GetLocalPort(), false, "127.0.0.9");
    address.Output(event);
    char buffer[400];
    HInetAddr from;
    EXPECT_GT(receiver.mSocket.ReceiveFrom(buffer, sizeof buffer, from, 5000), 0);
    EXPECT_STREQ("127.0.0.9", from.GetIPAddr());

    tcLogUdp device("127.0.0.1", receiver.mSocket.GetLocalPort(), false, "lo");
    device.Output(event);
    EXPECT_EQ(LineOf(event), receiver.Next());
}

TEST(LogUdp, DoesNotReportUnreachableDestinations)
{
    tcLogUdp nowhere("no.such.host.invalid", 1, false, nullptr);
    testing::internal::CaptureStderr();
    nowhere.Output(RecordOf(tcLogEvent::eError, 0, "x"));
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
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
