// Memory that runs out inside the functions of loggers, one request after the other: they fail, do
// not throw, and leave loggers as they were.
#include "log_support.h"
#include "scarcity.h"

#include <optional>

using scarcity::ForEach;
using scarcity::teExtent;

namespace {

std::string LongName(const std::string& what, long number)
{
    return "a name that takes memory of its own: " + what + std::to_string(number);
}

// Calls with the n-th request refused, for each n, and `check` afterwards.
template <class Call, class Check>
void Refuse(Call call, Check check)
{
    for (const teExtent extent : {teExtent::eOnce, teExtent::eFromThenOn}) {
        const std::string kind = extent == teExtent::eOnce ? "once" : "on";
        const long count = ForEach(extent, [&](long nth, teExtent how) {
            const std::string name = LongName(kind, nth);
            scarcity::Begin(nth, how);
            call(name.c_str());
            const bool isRefused = scarcity::End();
            check(name);
            return isRefused && !::testing::Test::HasFailure();
        });
        EXPECT_GT(count, 1) << "nothing was refused";
    }
}

void Forget(const std::string& name)
{
    const tcLogGuard guard;
    tcLog::GetMap().erase(name);
}

} // namespace

TEST(LogScarcity, LoggersThatCannotBeMadeAreNull)
{
    tcLog* found = nullptr;
    Refuse([&](const char* name) { found = tcLog::FindLog(name); },
           [&](const std::string& name) {
               EXPECT_EQ(tcLog::FindLogPtr(name.c_str()), found) << name;
               if (found == nullptr) found = tcLog::FindLog(name.c_str());
               ASSERT_NE(found, nullptr);
               EXPECT_EQ(found->GetDescription(), "Log object for " + name);
               delete found;
           });
}

TEST(LogScarcity, LevelsStayOrAreSet)
{
    Refuse([](const char* name) { SetLogLevel(name, 3); }, [](const std::string&) {});
    int level = 0;
    Refuse([&](const char* name) { level = GetLogLevel(name); },
           [&](const std::string& name) {
               EXPECT_EQ(level, -1);
               Forget(name);
           });
}

TEST(LogScarcity, CopiesOfTheRegistryAreWholeOrEmpty)
{
    tcLog log(LongName("copied", 0).c_str(), 1);
    size_t size = 0;
    Refuse([&](const char*) { size = tcLog::CopyOfMap().size(); },
           [&](const std::string&) {
               EXPECT_TRUE(size == 0 || size == tcLog::CopyOfMap().size()) << size;
           });
    std::string errors;
    log.logError("kept");
    Refuse([&](const char*) { errors = tcLog::ErrorBuffer(); },
           [&](const std::string&) {
               EXPECT_TRUE(errors.empty() || errors == tcLog::ErrorBuffer()) << errors;
           });
}

TEST(LogScarcity, ALoggerIsNamedOrCanStillBe)
{
    std::optional<tcLog> log;
    log.emplace();
    Refuse([&](const char* name) { log->SetTag(name); },
           [&](const std::string& name) {
               EXPECT_TRUE(log->GetName().empty() || log->GetName() == name);
               log->SetTag(name.c_str());
               EXPECT_EQ(log->GetName(), name);
               EXPECT_EQ(tcLog::FindLogPtr(name.c_str()), &*log);
               log.emplace();
           });
}

TEST(LogScarcity, SettingsOfTheEnvironmentAreTakenOver)
{
    tcLog log(LongName("set up", 0).c_str(), 1);
    Refuse([&](const char*) { log.InitFromEnvironment(); },
           [&](const std::string&) { EXPECT_EQ(log.getDbgLevel(), 1); });
}

TEST(LogScarcity, RedirectionsLeaveLoggersUsable)
{
    tcRecords records;
    tcLog log(LongName("redirected", 0).c_str(), 1);
    for (const char* uri : {"buff://10", "cout", "null"}) {
        Refuse([&](const char*) { tcLog::RedirectAllLogs(uri); },
               [&](const std::string&) {
                   ASSERT_TRUE(log.HeldConsumer());
                   log.SetConsumer(&records);
                   log.logDebug(1, "text");
                   EXPECT_STREQ(records.Only().message, "text");
                   log.SetConsumer(nullptr);
               });
    }
    tcLog::RedirectAllLogs("null");
}
