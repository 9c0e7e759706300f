// What the host has put into its standard output, and streams that it holds itself. Each test is a
// host in a process of its own.
#include "host_streams_support.h"
#include "log_support.h"

#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <future>
#include <iostream>
#include <string>
#include <thread>

namespace {

// Keeps whoever writes to it until it is let go.
class tcHoldingBuffer : public std::streambuf
{
public:
    void LetGo()
    {
        const std::lock_guard<std::mutex> guard(mMutex);
        mbFree = true;
        mChanged.notify_all();
    }
    void WaitForAWriter()
    {
        std::unique_lock<std::mutex> lock(mMutex);
        mChanged.wait(lock, [&] { return mbTaken; });
    }
    std::string msText;

protected:
    std::streamsize xsputn(const char* text, std::streamsize size) override
    {
        std::unique_lock<std::mutex> lock(mMutex);
        mbTaken = true;
        mChanged.notify_all();
        mChanged.wait(lock, [&] { return mbFree; });
        msText.append(text, static_cast<size_t>(size));
        return size;
    }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    bool mbTaken = false, mbFree = false;
};

} // namespace

TEST(HostStreams, AHostThatHoldsTheStreamHoldsNobodyElse)
{
    InAProcess([] {
        tcLog log("CAM", 1);
        tsConnection pipe = Pipe();
        pipe.TakePlaceOf(STDERR_FILENO);
        flockfile(stderr);
        EXPECT_LT(LongestCall(log, 2, 20), nLimitMs);
        EXPECT_EQ(40u, tcLog::UnprintedTexts());
        log.logError("from its own thread");
        EXPECT_THAT(pipe.Read(), EndsWith(":from its own thread\n"));
        funlockfile(stderr);
        LongestCall(log, 1, 1);
        EXPECT_THAT(pipe.Read(), EndsWith(":     CAM: ERR:text\n"));
        EXPECT_EQ(40u, tcLog::UnprintedTexts());
    });
}

TEST(HostStreams, EveryPrintOfTheLibraryCounts)
{
    InAProcess([] {
        tsConnection out = Pipe();
        const int before = out.TakePlaceOf(STDOUT_FILENO);
        out.Fill();
        const auto start = tcClock::now();
        SetLogLevel("nobody", 1);
        ListLogs();
        tcLog::FindLog("CAM")->logError("text");
        DumpErrorMsgs(nullptr);
        const int taken = Ms(start);
        dup2(before, STDOUT_FILENO);
        EXPECT_LT(taken, nLimitMs);
        EXPECT_EQ(3u, tcLog::UnprintedTexts());
    });
}

TEST(HostStreams, WhatTheHostHasPutInGoesFirst)
{
    for (const bool isSynchronised : {true, false}) {
        InAProcess([isSynchronised] {
            std::ios::sync_with_stdio(isSynchronised);
            tsConnection out = Pipe();
            const int before = out.TakePlaceOf(STDOUT_FILENO);
            static char room[4096];
            setvbuf(stdout, room, _IOFBF, sizeof room);
            std::cout << "the host, ";
            SetLogLevel("nobody", 1);
            std::cout << "the host" << std::endl;
            const std::string text = out.Read();
            dup2(before, STDOUT_FILENO);
            EXPECT_EQ("the host, !!! nobody doesn't point to a valid log anymore!\nthe host\n",
                      text);
        });
    }
}

TEST(HostStreams, WhatTheHostHasPutInIsNotLost)
{
    for (const bool isSynchronised : {true, false}) {
        InAProcess([isSynchronised] {
            std::ios::sync_with_stdio(isSynchronised);
            tsConnection out = Pipe();
            const int before = out.TakePlaceOf(STDOUT_FILENO);
            static char room[8192];
            setvbuf(stdout, room, _IOFBF, sizeof room);
            out.Fill();
            std::string part(4096, '-'); // room for a page, which is less than the host's text
            EXPECT_EQ(4096, read(out.mhReader, &part[0], part.size()));
            std::string own;
            for (int i = 0; i < 500; ++i) {
                const std::string word = "word " + std::to_string(1000 + i) + ",";
                own += word;
                std::cout << word;
            }
            SetLogLevel("nobody", 1);
            const unsigned long unprinted = tcLog::UnprintedTexts();
            std::string text = out.Read();
            std::cout << std::endl;
            text += out.Read();
            dup2(before, STDOUT_FILENO);
            EXPECT_EQ(1u, unprinted);
            EXPECT_THAT(text, EndsWith("-" + own + "\n"));
        });
    }
}

TEST(HostStreams, OutputIsFlushedBeforeErrorsArePrinted)
{
    InAProcess([] {
        tcLog log("CAM", 1);
        tsConnection both = Pipe();
        dup2(both.mhWriter, STDERR_FILENO);
        const int before = both.TakePlaceOf(STDOUT_FILENO);
        static char room[4096];
        setvbuf(stdout, room, _IOFBF, sizeof room);
        std::printf("the host\n");
        log.logError("text");
        const std::string text = both.Read();
        dup2(before, STDOUT_FILENO);
        EXPECT_THAT(text, StartsWith("the host\n"));
        EXPECT_THAT(text, EndsWith(":text\n"));
    });
}

TEST(HostStreams, UnsynchronisedOutputHoldsNobodyEither)
{
    InAProcess([] {
        std::ios::sync_with_stdio(false);
        ExpectThatAFullOneHoldsNobody(Pipe());
    });
    InAProcess([] {
        std::ios::sync_with_stdio(false);
        ExpectThatABrokenOneRaisesNoSignal(Pipe());
    });
}

TEST(HostStreams, AStreamOfTheApplicationHoldsOnlyWhoeverWritesToIt)
{
    InAProcess([] {
        tcHoldingBuffer buffer;
        std::ostream stream(&buffer);
        tcLogStream first(stream), second(stream);
        tcLog log("CAM", 1), other("CAN", 1);
        log.SetConsumer(&first);
        other.SetConsumer(&second);
        std::thread writer([&] { log.logEvent("one"); });
        buffer.WaitForAWriter();
        for (tcLog* logger : {&log, &other}) {
            const auto start = tcClock::now();
            logger->logEvent("two");
            EXPECT_LT(Ms(start), nLimitMs);
        }
        EXPECT_EQ(2u, tcLog::UnprintedTexts());
        buffer.LetGo();
        writer.join();
        other.logEvent("three");
        EXPECT_THAT(buffer.msText, ::testing::MatchesRegex("[^\n]*:one\n[^\n]*:three\n"));
        log.SetConsumer(nullptr);
        other.SetConsumer(nullptr);
    });
}

TEST(HostStreams, AListOnASlowStreamHoldsNoLogger)
{
    InAProcess([] {
        tcLog log("CAM", 1);
        tcHoldingBuffer buffer;
        std::ostream stream(&buffer);
        std::thread writer([&] { StreamLogs(stream); });
        buffer.WaitForAWriter();
        std::promise<void> logged;
        std::thread logger([&] {
            tcLog("CAN", 1).logError("text");
            logged.set_value();
        });
        EXPECT_EQ(std::future_status::ready,
                  logged.get_future().wait_for(Within(std::chrono::seconds(5))));
        buffer.LetGo();
        logger.join();
        writer.join();
        EXPECT_THAT(buffer.msText, HasSubstr("CAM = 1 [NULL Log Device]"));
    });
}
