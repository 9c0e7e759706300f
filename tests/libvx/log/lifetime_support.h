// Consumers that count themselves.
#ifndef LIFETIME_SUPPORT_H
#define LIFETIME_SUPPORT_H

#include "log_support.h"

#include <atomic>
#include <functional>

// Counts itself, and runs a hook within each delivery.
class tcCounted : public tcLogConsumer
{
public:
    tcCounted() { ++snAlive; }
    ~tcCounted() override
    {
        mbAlive = false;
        --snAlive;
    }
    void Output(tcLogEvent const&) override
    {
        EXPECT_TRUE(mbAlive);
        ++snOutputs;
        if (mHook) mHook();
        EXPECT_TRUE(mbAlive);
    }
    char const* TypeName() const override { return "COUNTED"; }

    std::function<void()> mHook;
    std::atomic<bool> mbAlive{true};

    static inline std::atomic<int> snAlive{0}, snOutputs{0};
};

#endif
