// LOG commands while everybody logs. VX_LOAD_SECONDS lengthens the test.
#include "debug_support.h"

#include <atomic>
#include <fstream>

namespace {

constexpr int nWriters = 8;
constexpr int nClients = 4;

} // namespace

TEST_F(Daemon, LosesNoLineWhileFourClientsRedirectAndDump)
{
    const char* wanted = getenv("VX_LOAD_SECONDS");
    const int seconds = wanted ? atoi(wanted) : 3;
    char folder[] = "/tmp/log-load-XXXXXX";
    std::filesystem::current_path(mkdtemp(folder));
    tcLog numbered("NUMBERED", 1), target("TARGET", 1), second("SECOND", 1);
    tcLogFile file("numbered.log");
    numbered.SetConsumer(&file);
    Start();

    std::atomic<bool> isOver{false};
    std::atomic<int> requests{0};
    long counts[nWriters] = {};
    std::vector<std::thread> threads;
    for (int w = 0; w < nWriters; ++w) {
        threads.emplace_back([&, w] {
            while (!isOver) {
                numbered.logJournal("writer %d line %ld of the numbered ones", w, counts[w]++);
                target.logDebug(1, "writer %d to whatever consumer there is", w);
                second.logError("writer %d has an error", w);
                std::this_thread::sleep_for(std::chrono::microseconds(200));
            }
        });
    }
    for (int c = 0; c < nClients; ++c) {
        threads.emplace_back([&, c] {
            const char* script[] = {"LOG:SET TARGET 2 100",
                                    "LOG:DUMP TARGET",
                                    "LOG:SET TARGET 1",
                                    "LOG:LIST",
                                    "LOG:URI SECOND buff:50",
                                    "LOG:DUMP SECOND",
                                    "LOG:ENABLE 0",
                                    "LOG:DIR",
                                    "LOG:ENABLE 1",
                                    "LOG:URI SECOND file:second.log",
                                    "LOG:SET TARGET 3 target.log",
                                    "LOG:GET TARGET",
                                    "LOG:URI SECOND null",
                                    "LOG:URI SECOND",
                                    "LOG:SET TARGET 1",
                                    "LOG:ERRS"};
            const int length = sizeof script / sizeof *script;
            for (int i = c * 4; !isOver; ++i, ++requests) {
                const std::string reply = Ask(script[i % length]);
                EXPECT_TRUE(reply.empty() || reply == "ERROR" || reply.back() == '\n') << reply;
            }
        });
    }
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    isOver = true;
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_GT(requests, 20);

    // Every line of every writer, once, whole and in order.
    long next[nWriters] = {}, lines = 0, written = 0;
    std::ifstream text("numbered.log");
    for (std::string line; std::getline(text, line); ++lines) {
        int writer = -1;
        long number = -1;
        int end = 0;
        const size_t at = line.find(": JNL:");
        ASSERT_NE(std::string::npos, at) << line;
        ASSERT_EQ(2, sscanf(line.c_str() + at, ": JNL:writer %d line %ld of the numbered ones%n",
                            &writer, &number, &end))
            << line;
        ASSERT_EQ(line.size(), at + static_cast<size_t>(end)) << line;
        ASSERT_TRUE(writer >= 0 && writer < nWriters) << line;
        ASSERT_EQ(next[writer]++, number) << line;
    }
    for (long count : counts)
        written += count;
    EXPECT_EQ(written, lines);
    EXPECT_GT(lines, 100);
    std::printf("%ld lines, %d requests\n", lines, requests.load());
    for (const char* name : {"TARGET", "SECOND"}) {
        Ask(std::string("LOG:SET ") + name + " 1");
        tcLog::FindLogPtr(name)->SetConsumer(nullptr);
    }
    numbered.SetConsumer(nullptr);
    std::filesystem::current_path("/");
    std::filesystem::remove_all(folder);
}
