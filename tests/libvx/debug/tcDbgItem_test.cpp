#include "tcDbgItem.h"

#include <gtest/gtest.h>

#include <cstring>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <thread>
#include <type_traits>

namespace {

std::string Streamed(const tcDbgItem& item)
{
    std::ostringstream os;
    os << item;
    return os.str();
}

std::string Listed()
{
    ::testing::internal::CaptureStdout();
    ListDbgItems();
    return ::testing::internal::GetCapturedStdout();
}

float FloatOf(int bits)
{
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

} // namespace

TEST(DbgItem, HasNoValueWhenDefaultBuilt)
{
    tcDbgItem item;
    EXPECT_STREQ("No value set!", item.c_str());
    EXPECT_EQ("No value set!", Streamed(item));
    EXPECT_EQ("Not Set", item.Describe());
    item.FromStr("5");
    EXPECT_STREQ("No value set!", item.c_str());
    EXPECT_TRUE(tcDbgItem::GetMap().empty());
    EXPECT_TRUE(std::has_virtual_destructor_v<tcDbgItem>);
}

TEST(DbgItem, SetsTheVariableOnceAndKeepsItsOwnCopy)
{
    int variable = 1;
    tcDbgItem item("COPY", variable, 7, "a number", false);
    EXPECT_EQ(7, variable);
    EXPECT_STREQ("7", item.c_str());
    variable = 8;
    EXPECT_STREQ("7", item.c_str());
    item.FromStr("9");
    EXPECT_EQ(8, variable);
    EXPECT_STREQ("9", item.c_str());
    EXPECT_TRUE(tcDbgItem::GetMap().empty());
}

TEST(DbgItem, RegistersOnRequestAndReplacesAnEarlierOne)
{
    static tcDbgItem first("NAME", 1, "first", true), second("NAME", 2.5f, "second", true);
    ASSERT_EQ(1u, tcDbgItem::GetMap().size());
    EXPECT_EQ(&second, tcDbgItem::GetMap()["NAME"]);
    static tcDbgItem other("OTHER", 2.5f, "not to be found", false);
    EXPECT_EQ(1u, tcDbgItem::GetMap().size());
    int variable;
    static tcDbgItem third("NAME", variable, 3, "third", true);
    EXPECT_EQ(&third, tcDbgItem::GetMap()["NAME"]);
}

TEST(DbgItem, CopiesValueTypeAndDescription)
{
    tcDbgItem item("A", 1.5f, "text", false);
    tcDbgItem copy(item);
    EXPECT_STREQ("1.500000", copy.c_str());
    EXPECT_EQ("text", copy.Describe());
    copy.FromStr("3");
    EXPECT_STREQ("1.500000", item.c_str());
    tcDbgItem assigned;
    assigned = copy;
    EXPECT_STREQ("3.000000", assigned.c_str());
    EXPECT_EQ("text", assigned.Describe());
    EXPECT_TRUE(tcDbgItem::GetMap().empty());
}

TEST(DbgItem, ShowsIntegersAndFloats)
{
    EXPECT_STREQ("-12", tcDbgItem("A", -12, "", false).c_str());
    EXPECT_STREQ("2.500000", tcDbgItem("A", 2.5f, "", false).c_str());
    EXPECT_EQ("-12", Streamed(tcDbgItem("A", -12, "", false)));
    EXPECT_EQ("2.5", Streamed(tcDbgItem("A", 2.5f, "", false)));
    EXPECT_EQ("1e+10", Streamed(tcDbgItem("A", 1e10f, "", false)));
    EXPECT_EQ(47u, std::strlen(tcDbgItem("A", -3e38f, "", false).c_str()));
}

TEST(DbgItem, OverwritesItsTextWithEachCall)
{
    tcDbgItem item("A", 1, "", false);
    const char* text = item.c_str();
    item.FromStr("2");
    EXPECT_EQ(text, item.c_str());
    EXPECT_STREQ("2", text);
}

TEST(DbgItem, ReadsDecimalNumbersOnly)
{
    tcDbgItem number("A", 1, "", false);
    number.FromStr("0x10");
    EXPECT_STREQ("0", number.c_str());
    number.FromStr(" 12\r\n");
    EXPECT_STREQ("12", number.c_str());
    number.FromStr("-7 and more");
    EXPECT_STREQ("-7", number.c_str());
    number.FromStr("text");
    EXPECT_STREQ("0", number.c_str());
    number.FromStr("4");
    number.FromStr(nullptr);
    EXPECT_STREQ("4", number.c_str());
    tcDbgItem real("A", 1.0f, "", false);
    real.FromStr("-2.25e1 m");
    EXPECT_STREQ("-22.500000", real.c_str());
}

TEST(DbgItem, AddsItemsWhoseValuesCanBeFollowed)
{
    const int* number = tcDbgItem::AddItem("NUMBER", 3, "a number");
    const float* real = tcDbgItem::AddItem("REAL", 0.5f, "a real");
    const int* other = tcDbgItem::AddItemRetPtr("OTHER", 4, "another");
    EXPECT_EQ(3, *number);
    EXPECT_EQ(0.5f, *real);
    EXPECT_EQ(4, *other);
    tcDbgItem::GetMap()["NUMBER"]->FromStr("11");
    tcDbgItem::GetMap()["REAL"]->FromStr("1.25");
    EXPECT_EQ(11, *number);
    EXPECT_EQ(1.25f, *real);
    EXPECT_EQ("a number", tcDbgItem::GetMap()["NUMBER"]->Describe());

    const int* replacing = tcDbgItem::AddItem("NUMBER", 30, "newer");
    EXPECT_EQ(11, *number); // still there for its readers
    EXPECT_EQ(replacing, tcDbgItem::FindItem("NUMBER", 0));
}

TEST(DbgItem, FindsItemsOrAddsThem)
{
    int* added = tcDbgItem::AddItem("THERE", 3, "described");
    EXPECT_EQ(added, tcDbgItem::FindItem("THERE", 99));
    EXPECT_EQ(3, *added);
    const int* number = tcDbgItem::FindItem("NEW", 5);
    EXPECT_EQ(5, *number);
    EXPECT_EQ(number, tcDbgItem::FindItem("NEW", 6));
    EXPECT_EQ("FindItem Called before AddItem!", tcDbgItem::GetMap()["NEW"]->Describe());
    const float* real = tcDbgItem::FindItem("NEWREAL", 0.25f);
    EXPECT_EQ(0.25f, *real);
    EXPECT_STREQ("0.250000", tcDbgItem::GetMap()["NEWREAL"]->c_str());
    tcDbgItem::GetMap()["EMPTY"] = nullptr;
    EXPECT_EQ(8, *tcDbgItem::FindItem("EMPTY", 8));
}

TEST(DbgItem, FindsWithoutLookingAtTheType)
{
    float* real = tcDbgItem::AddItem("REAL", 1.0f, "");
    EXPECT_EQ(static_cast<void*>(real), tcDbgItem::FindItem("REAL", 0));
    int* number = tcDbgItem::AddItem("NUMBER", 1, "");
    EXPECT_EQ(static_cast<void*>(number), tcDbgItem::FindItem("NUMBER", 0.0f));
}

TEST(DbgItem, SetsTheBitsWhateverTheType)
{
    const int* number = tcDbgItem::AddItem("NUMBER", 1, "");
    const float* real = tcDbgItem::AddItem("REAL", 1.0f, "");
    tcDbgItem::SetItem("NUMBER", 17);
    tcDbgItem::SetItem("REAL", 0.75f);
    EXPECT_EQ(17, *number);
    EXPECT_EQ(0.75f, *real);
    tcDbgItem::SetItem("NUMBER", 1.0f);
    EXPECT_EQ(0x3F800000, *number);
    EXPECT_STREQ("1065353216", tcDbgItem::GetMap()["NUMBER"]->c_str());
    tcDbgItem::SetItem("REAL", 0x40000000);
    EXPECT_EQ(FloatOf(0x40000000), *real);
    EXPECT_STREQ("2.000000", tcDbgItem::GetMap()["REAL"]->c_str());
}

TEST(DbgItem, ReportsUnknownNamesWithoutABlank)
{
    ::testing::internal::CaptureStdout();
    tcDbgItem::SetItem("NOPE", 1);
    tcDbgItem::SetItem("NADA", 1.0f);
    tcDbgItem::SetItem("N\n\x1b", 1);
    EXPECT_EQ("Item NOPENot found!\nItem NADANot found!\nItem N\\n\\x1bNot found!\n",
              ::testing::internal::GetCapturedStdout());
    EXPECT_TRUE(tcDbgItem::GetMap().empty());
}

TEST(DbgItem, ListsAllInOrderOfTheirNames)
{
    EXPECT_EQ("", Listed());
    tcDbgItem::AddItem("zoom", 2.5f, "the zoom");
    tcDbgItem::AddItem("Gain", 3, "the gain");
    tcDbgItem::AddItem("a_name_of_more_than_twenty", 1, "long");
    static tcDbgItem none;
    tcDbgItem::GetMap()["none"] = &none;
    tcDbgItem::GetMap()["empty"] = nullptr;
    std::cout << std::left << std::setfill('*'); // nobody else's business
    EXPECT_EQ("                Gain = 3 <- the gain\n"
              "a_name_of_more_than_twenty = 1 <- long\n"
              "                none = No value set! <- Not Set\n"
              "                zoom = 2.5 <- the zoom\n",
              Listed());
}

TEST(DbgItem, CanBeUsedByManyThreads)
{
    const int* shared = tcDbgItem::AddItem("SHARED", 0, "");
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([i] {
            for (int k = 0; k < 300; ++k) {
                tcDbgItem::SetItem("SHARED", k);
                tcDbgItem::FindItem("OWN" + std::to_string(i) + "." + std::to_string(k % 20), k);
                tcDbgItem("COPY", k, "", false).c_str();
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(299, __atomic_load_n(shared, __ATOMIC_RELAXED));
    EXPECT_EQ(81u, tcDbgItem::GetMap().size());
}
