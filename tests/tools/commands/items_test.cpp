// vxcam items: the tunable values of another process, through its item server.
#include "itemreplies.h"
#include "service_support.h"

using std::string_literals::operator""s;
using testing::HasSubstr;

namespace {

class Items : public testing::Test
{
protected:
    Items()
    {
        const uint16_t port = FreeTcpPort();
        ::setenv("DBGITEM_PORTNUM", std::to_string(port).c_str(), 1);
        ::setenv("DBGITEM_BIND", "127.0.0.1", 1);
        mpGain = tcDbgItem::AddItem("gain", 3, "the gain [1 to 9]");
        tcDbgItem::AddItem("zoom", 2.5f, "the zoom");
        testing::internal::CaptureStdout();
        tcDbgItem::StartServer();
        msTarget = "127.0.0.1:" + std::to_string(port);
        EXPECT_TRUE(WaitUntil([&] { return Code({"list"}) == 0; }));
    }
    ~Items() override { testing::internal::GetCapturedStdout(); }

    std::vector<std::string> Arguments(std::vector<std::string> more) const
    {
        more.insert(more.begin(), {"items", msTarget});
        return more;
    }
    int Code(const std::vector<std::string>& more) const { return tcRun(Arguments(more)).Exit(); }
    std::string Printed(const std::vector<std::string>& more) const
    {
        return ::Printed(Arguments(more));
    }
    void ExpectFailure(const std::vector<std::string>& more, int code, const std::string& text)
    {
        ::ExpectFailure(Arguments(more), code, text);
    }

    std::string msTarget;
    int* mpGain = nullptr;
};

} // namespace

TEST_F(Items, AreListedWithTheirMeaning)
{
    EXPECT_EQ(Printed({"list"}), "gain         3  the gain [1 to 9]\n"
                                 "zoom  2.500000  the zoom\n");
    EXPECT_EQ(Printed({"list", "-q"}), "");
    const auto document = nlohmann::json::parse(Printed({"list", "--json"}));
    EXPECT_EQ(document["target"], msTarget);
    EXPECT_EQ(document["items"][0]["name"], "gain");
    EXPECT_EQ(document["items"][0]["value"], 3);
    EXPECT_EQ(document["items"][1]["value"], 2.5);
    EXPECT_EQ(document["items"][1]["description"], "the zoom");
}

TEST_F(Items, AreListedByPatternsOfTheirNames)
{
    EXPECT_EQ(Printed({"list", "z*"}), "zoom  2.500000  the zoom\n");
    EXPECT_EQ(Printed({"list", "[!z]*", "--quiet"}), "");
    EXPECT_EQ(Printed({"list", "nothing", "ga?n"}), "gain  3  the gain [1 to 9]\n");
    const auto document = nlohmann::json::parse(Printed({"list", "--json", "zoom", "z*"}));
    EXPECT_EQ(document["items"].size(), 1u);
    ExpectFailure({"list", "Z*"}, 4, "none of the 2 items has such a name");
}

TEST_F(Items, AreReadAndSet)
{
    EXPECT_EQ(Printed({"get", "gain"}), "gain = 3\n");
    EXPECT_EQ(Printed({"set", "gain", "-7"}), "gain = -7\n");
    EXPECT_EQ(__atomic_load_n(mpGain, __ATOMIC_RELAXED), -7);
    EXPECT_EQ(Printed({"set", "zoom", "0.1"}), "zoom = 0.100000\n");
    EXPECT_EQ(Printed({"set", "zoom", "3"}), "zoom = 3.000000\n");
    const auto document = nlohmann::json::parse(Printed({"get", "zoom", "--json"}));
    EXPECT_EQ(document["value"], 3.0);
    EXPECT_EQ(document["name"], "zoom");
}

TEST_F(Items, RefuseUnknownNamesAndImpossibleValues)
{
    ExpectFailure({"get", "focus"}, 4, "there is no item focus (2 others)");
    ExpectFailure({"set", "focus", "1"}, 4, "there is no item focus");
    ExpectFailure({"set", "gain", "high"}, 1, "value 'high' is no number");
    ExpectFailure({"set", "gain", "0x10"}, 1, "value '0x10' is no number");
    ExpectFailure({"set", "gain", "1.5"}, 1, "gain takes whole numbers of 32 bits, not 1.5");
    ExpectFailure({"set", "gain", "4294967296"}, 1, "whole numbers of 32 bits");
    ExpectFailure({"set", "zoom", "1e99"}, 1, "value '1e99' is no number");
    ExpectFailure({"set", "a=b", "1"}, 1, "no '=' in a name");
    ExpectFailure({"set", "gain"}, 1, "VALUE");
    EXPECT_EQ(Printed({"get", "gain"}), "gain = 3\n");
}

TEST_F(Items, ThatTheProcessPutsBackAreRefused)
{
    std::atomic<bool> isOver{false};
    std::thread guardian([&] {
        while (!isOver) {
            if (__atomic_load_n(mpGain, __ATOMIC_RELAXED) > 9) {
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
                __atomic_store_n(mpGain, 9, __ATOMIC_RELAXED);
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    ExpectPutBack(Arguments({"set", "gain", "10"}),
                  "vxcam: the process does not take 10: gain is 9\n");
    isOver = true;
    guardian.join();
}

TEST(ItemsVerb, EndsWithTwoWithoutAnItemServer)
{
    const std::string nobody = "127.0.0.1:" + std::to_string(FreeTcpPort());
    ExpectFailure({"items", nobody, "list"}, 2, "item server " + nobody + ": Connection refused");
    const tcFixedService other("HTTP/1.0 400 Bad\r\n\r\n");
    ExpectFailure({"items", other.Target(), "list"}, 2,
                  "does not answer LIST as an item server does: 'HTTP/1.0 400 Bad");
    ExpectFailure({"items", other.Target(), "get", "gain"}, 2, "as an item server does");
    const tcFixedService odd("gain = 3 []\n\0"s);
    ExpectFailure({"items", odd.Target(), "set", "gain", "4"}, 4, "does not take 4");
    const tcFixedService silent("", false);
    ExpectFailure({"items", silent.Target(), "list", "--timeout", "50ms"}, 2,
                  "no answer within 50 ms");
    ExpectFailure({"items", "127.0.0.1"}, 1, "an action is missing: list, get or set");
}

TEST(ItemReplies, AreLinesWithAZeroByteEach)
{
    const auto items =
        ParseItems("a = 1 [x]\n\0b = No value set! [Not Set]\n\0c = d = 2.0 [[y] = z [w]]\n\0"s);
    ASSERT_TRUE(items);
    ASSERT_EQ(items->size(), 3u);
    EXPECT_EQ((*items)[1].value, "No value set!");
    EXPECT_EQ((*items)[2].name, "c = d");
    EXPECT_EQ((*items)[2].value, "2.0");
    EXPECT_EQ((*items)[2].description, "[y] = z [w]");
    EXPECT_EQ(ItemNumber("No value set!"), "No value set!");
    for (const std::string& reply : {"x"s, "a = 1 [x]\n"s, "a = 1 [x]\0"s, "\n\0"s, "a = 1\n\0"s,
                                     "a 1 [x]\n\0"s, "a = 1 [x\n\0"s}) {
        EXPECT_FALSE(ParseItems(reply)) << reply;
    }
    EXPECT_TRUE(ParseItems("")->empty());
}
