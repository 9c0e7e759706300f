// The documents say what the code says.
#include "shell.h"
#include "vxmessages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <set>

namespace {

using tsCells = std::vector<std::string>;

std::string Document(const std::string& name)
{
    return ReadFile(VX_SOURCE_DIR "/docs/" + name);
}

// The table rows between one heading and the next, without the table's head.
std::vector<tsCells> Table(const std::string& document, const std::string& heading)
{
    std::vector<tsCells> rows;
    bool inside = false;
    for (const std::string& line : Split(document, '\n')) {
        if (line.rfind("## ", 0) == 0) inside = line == "## " + heading;
        if (!inside || line.rfind("|", 0) != 0) continue;
        tsCells cells;
        for (const std::string& cell : Split(line.substr(1), '|'))
            cells.push_back(Trim(cell));
        rows.push_back(cells);
    }
    rows.erase(rows.begin(), rows.begin() + std::min<size_t>(2, rows.size()));
    return rows;
}

std::string Hex(uint32_t id)
{
    char text[16];
    snprintf(text, sizeof text, "0x%02X", id);
    return text;
}

std::string Item(int item)
{
    return item == eItemNone ? "-" : std::to_string(item);
}

std::string Bytes(const tsCommandRow& command)
{
    std::string longest = std::to_string(command.longest);
    if (command.shortest == command.longest) return longest;
    return std::to_string(command.shortest) + " to " + longest;
}

std::string Delivery(teDelivery delivery)
{
    static const char* const names[] = {"copied",  "two words", "whole",  "counted",
                                        "handled", "event",     "ignored"};
    return names[delivery];
}

// The end of the last field of a payload such as "0 u32 mode, 4 u16[32] values"; -1 if its length
// is left open.
int PayloadEnd(const std::string& payload)
{
    if (payload == "none") return 0;
    int last = -1;
    for (const std::string& field : Split(payload, ',')) {
        std::smatch found;
        static const std::regex typed(R"(^\s*(\d+) (u8|char|u16|u32|i32|f32)(\[(\d+)\])?(\s|$))");
        if (!std::regex_search(field, found, typed)) {
            if (std::regex_search(field, std::regex(R"(^\s*\d)"))) return -1;
            continue;
        }
        int width = found[2] == "u8" || found[2] == "char" ? 1 : found[2] == "u16" ? 2 : 4;
        last = std::stoi(found[1]) + width * (found[4].length() ? std::stoi(found[4]) : 1);
    }
    return last;
}

} // namespace

TEST(ProtocolDocument, ListsEveryCommandAsTheCatalogueHasIt)
{
    std::vector<tsCells> rows = Table(Document("protocol.md"), "Commands: host to camera");
    ASSERT_EQ(rows.size(), std::size(gaCommands));
    for (size_t row = 0; row < rows.size(); ++row) {
        const tsCommandRow& command = gaCommands[row];
        std::string answer = command.answer ? Hex(command.answer->id) : "-";
        std::string item = command.answer ? Item(command.answer->item) : "-";
        ASSERT_EQ(rows[row].size(), 6u);
        EXPECT_EQ(rows[row], (tsCells{Hex(command.id), "`" + std::string(command.name) + "`",
                                      Bytes(command), rows[row][3], answer, item}));
        EXPECT_FALSE(rows[row][3].empty());
        int end = PayloadEnd(rows[row][3]);
        if (end >= 0) {
            EXPECT_EQ(end, command.longest) << Hex(command.id);
        }
    }
}

TEST(ProtocolDocument, ListsEveryMessageOfTheCameraAsTheCatalogueHasIt)
{
    std::vector<tsCells> rows = Table(Document("protocol.md"), "Messages: camera to host");
    ASSERT_EQ(rows.size(), std::size(gaAnswers));
    for (size_t row = 0; row < rows.size(); ++row) {
        const tsAnswer& answer = *gaAnswers[row];
        ASSERT_EQ(rows[row].size(), 6u);
        EXPECT_EQ(rows[row],
                  (tsCells{Hex(answer.id), answer.name, Item(answer.item),
                           Delivery(answer.delivery), std::to_string(answer.bytes), rows[row][5]}));
        EXPECT_FALSE(rows[row][5].empty());
        int end = PayloadEnd(rows[row][5]);
        if (end < 0 || answer.bytes == 0) continue;
        int header = answer.delivery == eWhole ? gnHeaderBytes : 0;
        EXPECT_EQ(end + header, static_cast<int>(answer.bytes)) << Hex(answer.id);
    }
}

TEST(ProtocolDocument, GivesTheHeaderAndItsNumbers)
{
    std::string text = Document("protocol.md");
    EXPECT_THAT(text, ::testing::HasSubstr(Hex(gnMessageMagic)));
    EXPECT_THAT(text, ::testing::HasSubstr("host: " + std::to_string(gnLargestMessage) + " bytes"));
    EXPECT_THAT(text, ::testing::HasSubstr("payloads up to " +
                                           std::to_string(gnLargestMessage - gnHeaderBytes)));
    EXPECT_THAT(text,
                ::testing::HasSubstr("interface version, " + std::to_string(gnInterfaceVersion)));
    EXPECT_THAT(text, ::testing::HasSubstr("Ids of " + Hex(gnFirstUserDefinedId) + " and above"));
}

TEST(ProtocolDocument, PayloadLengthsAreReadAsWritten)
{
    EXPECT_EQ(PayloadEnd("none"), 0);
    EXPECT_EQ(PayloadEnd("0 u32 a, 4 u16[3] b"), 10);
    EXPECT_EQ(PayloadEnd("0 i32 tenths of a degree"), 4);
    EXPECT_EQ(PayloadEnd("0 u16, 2 text ending in NUL"), -1);
    EXPECT_EQ(PayloadEnd("as 0x25"), -1);
}

// Every row of docs/kept.md names the test that holds the behaviour, as `Suite.Name`.
TEST(KeptDocument, NamesTestsThatExist)
{
    std::set<std::string> tests;
    static const std::regex defined(R"(\bTEST(_F|_P)?\(\s*(\w+),\s*(\w+)\s*\))");
    for (const auto& entry :
         std::filesystem::recursive_directory_iterator(VX_SOURCE_DIR "/tests")) {
        if (entry.path().extension() != ".cpp") continue;
        std::string text = ReadFile(entry.path());
        for (std::sregex_iterator it(text.begin(), text.end(), defined), end; it != end; ++it) {
            tests.insert((*it)[2].str() + "." + (*it)[3].str());
        }
    }
    int count = 0;
    for (const std::string& line : Split(Document("kept.md"), '\n')) {
        if (line.rfind("| ", 0) != 0 || line.rfind("| behaviour", 0) == 0) continue;
        static const std::regex name(R"(`(\w+)\.(\w+)`\s*\|\s*$)");
        std::smatch found;
        ASSERT_TRUE(std::regex_search(line, found, name)) << line;
        EXPECT_EQ(tests.count(found[1].str() + "." + found[2].str()), 1u) << line;
        count++;
    }
    EXPECT_GT(count, 0);
}
