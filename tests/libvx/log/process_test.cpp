// What logging costs, and how it fares at the ends of a process.
#include "log_support.h"

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <new>
#include <sstream>
#include <thread>

static std::atomic<long> gnAllocations{0};

void* operator new(size_t size)
{
    ++gnAllocations;
    if (void* memory = std::malloc(size)) return memory;
    throw std::bad_alloc();
}

void* operator new(size_t size, std::nothrow_t const&) noexcept
{
    ++gnAllocations;
    return std::malloc(size);
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, size_t) noexcept
{
    std::free(memory);
}

TEST(LogCost, RecordsWithoutErrorsAllocateNothing)
{
    tcLog log("COST", 9);
    tcLogBuffer buffer(100);
    char text[100000];
    class tcFixed : public std::streambuf
    {
    public:
        tcFixed(char* begin, char* end) { setp(begin, end); }
    } fixed(text, text + sizeof text);
    std::ostream os(&fixed);
    tcLogStream stream(os);
    for (tcLogConsumer* consumer : {static_cast<tcLogConsumer*>(&buffer),
                                    static_cast<tcLogConsumer*>(&stream), tcLog::NullConsumer()}) {
        log.SetConsumer(consumer);
        log.logEvent("the first one may prepare something"); // the time zone, room in a buffer
        const long before = gnAllocations;
        for (int i = 0; i < 50; ++i) {
            log.logDebug("%d %s", i, "text");
            log.logDebug(3, "%d %s", i, "text");
            log.logDebug(30, "%d %s", i, "text");
            log.logJournal("%d %s", i, "text");
            log.logEvent("%d %s", i, "text");
        }
        EXPECT_EQ(before, gnAllocations);
    }
    EXPECT_TRUE(os.good());
    log.SetConsumer(nullptr);
}

static int StatusOf(pid_t child)
{
    int status = -1;
    for (int i = 0; i < 6000; ++i) { // a minute
        if (waitpid(child, &status, WNOHANG) == child) return status;
        usleep(10000);
    }
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
    return status;
}

// Leaves threads behind that log without end.
static void StartEndlessThreads(tcLog& log)
{
    static std::atomic<int> started{0};
    for (int i = 0; i < 3; ++i) {
        std::thread([&log] {
            for (;;) {
                ++started;
                log.logDebug(1, "text %d", 1);
                log.logError("text %d", 1);
            }
        }).detach();
    }
    while (started < 10)
        std::this_thread::yield();
}

TEST(LogProcess, ExitsWhileThreadsLog)
{
    const tcQuietErrors quiet;
    for (int i = 0; i < 5; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            tcLog* log = tcLog::FindLog("ENDLESS");
            tcLog::RedirectAllLogs("buff:50");
            StartEndlessThreads(*log);
            exit(0);
        }
        const int status = StatusOf(child);
        ASSERT_TRUE(WIFEXITED(status)) << status;
        EXPECT_EQ(0, WEXITSTATUS(status));
    }
}

TEST(LogProcess, StartsProgramsWhileThreadsLog)
{
    const tcQuietErrors quiet;
    const pid_t parent = fork();
    if (parent == 0) {
        StartEndlessThreads(*tcLog::FindLog("FORKING"));
        for (int i = 0; i < 5; ++i) {
            const pid_t child = fork();
            if (child == 0) {
                execl("/bin/true", "true", static_cast<char*>(nullptr));
                _exit(1);
            }
            if (StatusOf(child) != 0) _exit(1);
        }
        _exit(0);
    }
    EXPECT_EQ(0, StatusOf(parent));
}
