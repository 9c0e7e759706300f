#include "alpaca/alpaca_clients.h"

#include <gtest/gtest.h>

#include <string>

namespace vxcam {

using namespace std::chrono_literals;

namespace {

constexpr AlpacaClients::Clock::time_point kStart{};

} // namespace

TEST(AlpacaClients, LeaveForThemselvesAlone)
{
    AlpacaClients clients;
    clients.join("7", kStart);
    clients.join("8", kStart);
    clients.join("8", kStart);
    EXPECT_FALSE(clients.leave("9"));
    EXPECT_TRUE(clients.leave("8"));
    EXPECT_FALSE(clients.leave("8"));
    EXPECT_FALSE(clients.empty());
    EXPECT_TRUE(clients.leave("7"));
    EXPECT_TRUE(clients.empty());
}

TEST(AlpacaClients, AreForgottenWhenNothingIsHeardOfThem)
{
    AlpacaClients clients;
    clients.join("7", kStart);
    clients.join("8", kStart);
    clients.heard("7", kStart + 1s);
    clients.heard("9", kStart + 1s);
    clients.forgetSilent(kStart + 10min + 1s);
    EXPECT_FALSE(clients.leave("8"));
    EXPECT_FALSE(clients.leave("9"));
    EXPECT_TRUE(clients.leave("7"));
}

TEST(AlpacaClients, AreSoManyAtMostAndTheMostSilentOneIsForgotten)
{
    AlpacaClients clients;
    clients.join("first", kStart);
    clients.join("second", kStart + 1s);
    clients.heard("first", kStart + 2s);
    for (size_t i = 2; i < AlpacaClients::kMost + 1; ++i) {
        clients.join(std::to_string(i), kStart + 3s);
    }
    EXPECT_FALSE(clients.leave("second"));
    EXPECT_TRUE(clients.leave("first"));
}

} // namespace vxcam
