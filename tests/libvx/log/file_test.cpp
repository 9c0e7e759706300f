#include "consumers_support.h"
#include "log_support.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <sstream>
#include <thread>

static std::string Contents(const std::string& path)
{
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
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
