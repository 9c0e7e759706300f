// Helpers of the logging tests.
#ifndef LOG_SUPPORT_H
#define LOG_SUPPORT_H

#include "tcLog.h"
#include "tcLogConsumer.h"
#include "within.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <mutex>
#include <string>
#include <vector>

// Keeps every record.
class tcRecords : public tcLogConsumer
{
public:
    void Output(tcLogEvent const& event) override
    {
        const std::lock_guard<std::mutex> guard(mLock);
        maEvents.push_back(event);
    }
    char const* TypeName() const override { return "RECORDS"; }

    size_t Count() const
    {
        const std::lock_guard<std::mutex> guard(mLock);
        return maEvents.size();
    }

    // The only record so far, which is forgotten.
    tcLogEvent Only()
    {
        const std::lock_guard<std::mutex> guard(mLock);
        EXPECT_EQ(1u, maEvents.size());
        const tcLogEvent event = maEvents.empty() ? tcLogEvent{} : maEvents.front();
        maEvents.clear();
        return event;
    }

    std::vector<std::string> Messages()
    {
        const std::lock_guard<std::mutex> guard(mLock);
        std::vector<std::string> messages;
        for (const tcLogEvent& event : maEvents)
            messages.push_back(event.message);
        maEvents.clear();
        return messages;
    }

private:
    mutable std::mutex mLock;
    std::vector<tcLogEvent> maEvents;
};

// An environment variable for the length of a scope.
class tcVariable
{
public:
    tcVariable(const char* name, const char* value) : msName(name) { setenv(name, value, 1); }
    ~tcVariable() { unsetenv(msName.c_str()); }
    tcVariable(const tcVariable&) = delete;
    tcVariable& operator=(const tcVariable&) = delete;

private:
    std::string msName;
};

// Keeps error records off the test's standard error.
class tcQuietErrors : public tcVariable
{
public:
    tcQuietErrors() : tcVariable("TCLOG_SUPPRESS_ERR_CONSOLE", "1") {}
};

inline tcLogEvent RecordOf(tcLogEvent::teEventLogType type, int level, const char* message)
{
    tcLogEvent event{};
    event.type = type;
    event.seconds = 1000000000;
    event.millis = 5;
    event.level = level;
    snprintf(event.tag, sizeof event.tag, "%8s", "dbgd");
    snprintf(event.message, sizeof event.message, "%s", message);
    return event;
}

#endif
