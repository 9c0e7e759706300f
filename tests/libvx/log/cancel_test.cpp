// Threads that are cancelled (pthread_cancel) inside the functions of loggers: they end the call
// first, and the process goes on.
#include "log_support.h"

#include <pthread.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <memory>

namespace {

// Its thread is cancelled while it delivers.
class tcCancelling : public tcRecords
{
public:
    void Output(tcLogEvent const& event) override
    {
        pthread_cancel(pthread_self());
        pthread_testcancel();
        tcRecords::Output(event);
    }
};

struct tsCancelled {
    std::function<void()> call;
    int type = PTHREAD_CANCEL_DEFERRED;
    bool isPending = false; // cancelled before the call, else inside it
};

void* Run(void* argument)
{
    const auto& what = *static_cast<tsCancelled*>(argument);
    int former = 0;
    pthread_setcanceltype(what.type, &former);
    if (what.isPending) pthread_cancel(pthread_self());
    what.call();
    pthread_testcancel();
    return nullptr;
}

// Whether the thread that makes the call ended by its cancellation.
bool EndsCancelled(tsCancelled what)
{
    pthread_t thread;
    void* result = nullptr;
    EXPECT_EQ(0, pthread_create(&thread, nullptr, Run, &what));
    EXPECT_EQ(0, pthread_join(thread, &result));
    return result == PTHREAD_CANCELED;
}

} // namespace

TEST(LogCancel, RecordsAreDeliveredWhole)
{
    tcCancelling consumer;
    tcLog log("CANCEL", 9);
    log.SetConsumer(&consumer);
    const std::vector<std::function<void()>> calls = {
        [&] { log.logError("text"); },       [&] { log.logError(5, "text"); },
        [&] { log.logSystemError("text"); }, [&] { log.logJournal("text"); },
        [&] { log.logEvent("text"); },       [&] { log.logDebug("text"); },
        [&] { log.logDebug(3, "text"); },    [&] { log << "text"; }};
    testing::internal::CaptureStderr();
    for (const int type : {PTHREAD_CANCEL_DEFERRED, PTHREAD_CANCEL_ASYNCHRONOUS}) {
        for (const auto& call : calls) {
            EXPECT_TRUE(EndsCancelled({call, type}));
            EXPECT_EQ(std::string(consumer.Only().message).substr(0, 4), "text");
        }
    }
    testing::internal::GetCapturedStderr();
    log.SetConsumer(nullptr);
}

TEST(LogCancel, RedirectionsAndClosedFilesAreWhole)
{
    const std::string name = "cancel" + std::to_string(getpid()) + ".log";
    auto log = std::make_unique<tcLog>("CANCEL", 9);
    EXPECT_TRUE(EndsCancelled({[&] { tcLog::RedirectAllLogs(("file:" + name).c_str()); },
                               PTHREAD_CANCEL_DEFERRED, true}));
    EXPECT_TRUE(std::filesystem::exists(name));
    log->logEvent("text");
    EXPECT_TRUE(EndsCancelled(
        {[] { tcLog::RedirectAllLogs("null"); }, PTHREAD_CANCEL_DEFERRED, true})); // closes it
    auto* const file = new tcLogFile(name.c_str());
    tcLog::AdoptConsumer(file);
    log->SetConsumer(file);
    EXPECT_TRUE(EndsCancelled({[&] { log.reset(); }, PTHREAD_CANCEL_DEFERRED, true}));
    std::filesystem::remove(name);
}
