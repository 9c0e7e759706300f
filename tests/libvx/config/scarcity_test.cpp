// Memory that runs out while a configuration is loaded: the rest is left out, and the object goes
// on.
#include "config_fixture.h"
#include "scarcity.h"

using scarcity::ForEach;
using scarcity::teExtent;

class ConfigScarcity : public ConfigTest
{};

TEST_F(ConfigScarcity, LeavesOutTheRestOfAFileAndSaysSo)
{
    const std::string included = "a name that takes memory of its own.cfg";
    const std::string value = "a value that takes memory of its own";
    Write(included, "last=" + value + "\n");
    std::string text = "[a section that takes memory of its own]\n";
    for (int i = 0; i < 5; ++i)
        text += "item" + std::to_string(i) + "=" + value + "\n";
    Write("first that takes memory of its own.cfg", text);
    for (const teExtent extent : {teExtent::eOnce, teExtent::eFromThenOn}) {
        size_t most = 0;
        int saysSo = 0;
        const long count = ForEach(extent, [&](long nth, teExtent how) {
            const tcCapturedOutput trace;
            tcLoaded file(included.c_str());
            scarcity::Begin(nth, how);
            EXPECT_EQ(1, file.LoadConfigFile("first that takes memory of its own.cfg", false));
            const bool isRefused = scarcity::End();
            EXPECT_GE(file.Items().size(), 1u);
            EXPECT_LE(file.Items().size(), 6u);
            const bool isWhole = file.Items().size() == 6;
            EXPECT_TRUE(isRefused || isWhole) << nth;
            if (how == teExtent::eOnce) {
                EXPECT_EQ(isWhole, file.Errors().empty()) << nth << file.Errors();
            }
            saysSo +=
                file.Errors().find("Out of memory! the rest is left out\n") != std::string::npos;
            most = std::max(most, file.Items().size());
            EXPECT_EQ(1, file.LoadConfigFile("first that takes memory of its own.cfg", true));
            EXPECT_EQ(5u, file.Items().size()) << "it is whole when there is memory";
            return isRefused && !HasFailure();
        });
        EXPECT_GT(count, 5);
        EXPECT_EQ(6u, most);
        if (extent == teExtent::eOnce) {
            EXPECT_GT(saysSo, 5);
        }
    }
}
