// Values on the command line: read, shown and told in JSON.
#include "values.h"

#include "failure.h"
#include "tool_support.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

const tsField gtNumber{"number", teField::eNumber, -10, 300, "mV"};
const tsField gtHex{"word", teField::eHex, 0, 4294967295.0};
const tsField gtReal{"real", teField::eReal, -gnAnyReal, gnAnyReal};
const tsField gtTime{"time", teField::eTime, 0, 4294967295.0, "ms"};
const tsField gtSwitch{"on", teField::eSwitch, 0, 1};
const tsField gtChoice{"mode", teField::eChoice, 0, 0, "", {{"slow", 3}, {"fast", 9}}};
const tsField gtText{"text", teField::eText, 0, 5};
const tsField gtBytes{"bytes", teField::eBytes, 1, 4};

tsField Optional(tsField field, double absent)
{
    field.absent = absent;
    return field;
}
tsField Repeated(tsField field, int times)
{
    field.repeats = times;
    return field;
}

std::vector<double> Numbers(const tsShape& shape, const std::string& text)
{
    return ParseSetting("thing", shape, text).numbers;
}
std::string Shown(const tsShape& shape, const std::string& text)
{
    return SettingText(shape, ParseSetting("thing", shape, text));
}
std::string Json(const tsShape& shape, const std::string& text)
{
    return SettingJson(shape, ParseSetting("thing", shape, text)).dump();
}
std::string Complaint(const tsShape& shape, const std::string& text, int code = eExitUsage)
{
    try {
        ParseSetting("thing", shape, text);
    } catch (const tcFailure& failure) {
        EXPECT_EQ(failure.Code(), code);
        return failure.what();
    }
    return "accepted";
}

} // namespace

TEST(Values, OfEachKindAreReadShownAndTold)
{
    struct tsCase {
        tsField field;
        std::string text, shown, json;
    };
    for (const tsCase& one : std::vector<tsCase>{{gtNumber, "-5", "-5mV", "-5"},
                                                 {gtNumber, "300mV", "300mV", "300"},
                                                 {gtNumber, "0x10", "16mV", "16"},
                                                 {gtHex, "255", "0x000000ff", "255"},
                                                 {gtHex, "0xFFFFFFFF", "0xffffffff", "4294967295"},
                                                 {gtReal, "0.1", "0.1", "0.1"},
                                                 {gtReal, "-2", "-2", "-2.0"},
                                                 {gtReal, "1e20", "1e+20", "1e+20"},
                                                 {gtTime, "250ms", "250ms", "250"},
                                                 {gtTime, "1.5", "1500ms", "1500"},
                                                 {gtTime, "2min", "120s", "120000"},
                                                 {gtSwitch, "on", "on", "true"},
                                                 {gtSwitch, "0", "off", "false"},
                                                 {gtChoice, "fast", "fast", "\"fast\""},
                                                 {gtText, "a,b", "a,b", "\"a,b\""},
                                                 {gtText, "", "", "\"\""},
                                                 {gtBytes, "0x01fF", "0x01ff", "\"0x01ff\""},
                                                 {gtBytes, "0a", "0x0a", "\"0x0a\""}}) {
        EXPECT_EQ(Shown({{one.field}}, one.text), one.shown);
        EXPECT_EQ(Json({{one.field}}, one.text), one.json) << one.text;
        EXPECT_EQ(Shown({{one.field}}, one.shown), one.shown); // what is shown can be written
    }
}

TEST(Values, ThatMakeNoSenseAreRefused)
{
    EXPECT_EQ(Complaint({{gtNumber}}, "301"), "thing '301': out of range, it is -10 to 300 mV");
    EXPECT_EQ(Complaint({{gtNumber}}, "-11"), "thing '-11': out of range, it is -10 to 300 mV");
    EXPECT_EQ(Complaint({{gtNumber}}, "5V"), "thing '5V': write a whole number, -10 to 300 mV");
    for (const char* text :
         {"", " 5", "5 ", "5.0", "1e2", "x", "mV", "99999999999999999999", "0x", "--5", "+5"}) {
        EXPECT_THAT(Complaint({{gtNumber}}, text), HasSubstr("write a whole number")) << text;
    }
    for (const char* text : {"", "nan", "inf", "1e99", "1,5", "0x10", "1s"}) {
        EXPECT_NE(Complaint({{gtReal}}, text), "accepted") << text;
    }
    EXPECT_EQ(Complaint({{gtTime}}, "5 days"),
              "thing: time '5 days': the unit is none of ms, s, min and h");
    EXPECT_EQ(Complaint({{gtSwitch}}, "maybe"), "thing 'maybe': write on or off");
    EXPECT_EQ(Complaint({{gtChoice}}, "3"), "thing '3': write one of slow|fast");
    EXPECT_EQ(Complaint({{gtText}}, "123456"), "thing '123456': 6 bytes, it takes 0 to 5");
    EXPECT_EQ(Complaint({{gtBytes}}, "0102030405"), "thing '0102030405': 5 bytes, it takes 1 to 4");
    for (const char* text : {"", "0x", "123", "0g", "-1", "0x 1"}) {
        EXPECT_THAT(Complaint({{gtBytes}}, text), HasSubstr("two hexadecimal digits")) << text;
    }
}

TEST(Values, OfSeveralFieldsNeedAllThatHaveNoDefault)
{
    const tsShape shape{{gtNumber, Optional(gtChoice, 9), Optional(gtSwitch, 0)}};
    EXPECT_EQ(Shown(shape, "1"), "1mV,fast,off");
    EXPECT_EQ(Shown(shape, "1,slow"), "1mV,slow,off");
    EXPECT_EQ(Shown(shape, "1,slow,on"), "1mV,slow,on");
    EXPECT_EQ(Json(shape, "1,slow,on"), R"({"number":1,"mode":"slow","on":true})");
    EXPECT_EQ(SyntaxText(shape), "NUMBER[,slow|fast[,on|off]]");
    EXPECT_EQ(RangeText(shape), "-10 to 300 mV");
    EXPECT_EQ(Complaint(shape, "1,slow,on,7"),
              "thing '1,slow,on,7': too many parts, write NUMBER[,slow|fast[,on|off]]");
    EXPECT_THAT(Complaint(shape, ""), HasSubstr("write a whole number"));
    EXPECT_THAT(Complaint(shape, "1,"), HasSubstr("write one of"));
    EXPECT_EQ(Complaint({{gtNumber, gtNumber}}, "1"), "thing '1': write NUMBER,NUMBER");
}

TEST(Values, MayRepeatTheirLastField)
{
    const tsShape shape{{gtNumber, Repeated(gtHex, 3)}};
    EXPECT_THAT(Numbers(shape, "1"), ElementsAre(1));
    EXPECT_THAT(Numbers(shape, "1,2,3,4"), ElementsAre(1, 2, 3, 4));
    EXPECT_EQ(Json(shape, "1,2,3"), R"({"number":1,"word":[2,3]})");
    EXPECT_EQ(SyntaxText(shape), "NUMBER[,WORD,...]");
    EXPECT_THAT(Complaint(shape, "1,2,3,4,5"), HasSubstr("too many parts"));
}

TEST(Values, MayBeListsOfGroups)
{
    const tsShape shape{{gtNumber, gtSwitch}, 3};
    EXPECT_THAT(Numbers(shape, "none"), ElementsAre());
    EXPECT_THAT(Numbers(shape, "1,on/2,off/3,on"), ElementsAre(1, 1, 2, 0, 3, 1));
    EXPECT_EQ(Shown(shape, "1,on/2,off"), "1mV,on/2mV,off");
    EXPECT_EQ(Shown(shape, "none"), "none");
    EXPECT_EQ(Json(shape, "none"), "[]");
    EXPECT_EQ(Json(shape, "1,on/2,off"), R"([{"number":1,"on":true},{"number":2,"on":false}])");
    EXPECT_EQ(SyntaxText(shape), "none|NUMBER,on|off[/...]");
    EXPECT_THAT(Complaint(shape, "1,on/1,on/1,on/1,on"), HasSubstr("at most 3 groups"));
    EXPECT_NE(Complaint(shape, "1,on/"), "accepted");
    EXPECT_NE(Complaint(shape, ""), "accepted");
}

TEST(Values, ComeFromFiles)
{
    tcFolder folder;
    MakeFile(folder.Path("bytes"), std::string("\x01\x00\xFF", 3));
    EXPECT_EQ(Shown({{gtBytes}}, "@" + folder.Path("bytes")), "0x0100ff");
    EXPECT_EQ(Complaint({{gtBytes}}, "@" + folder.Path("none"), eExitFile),
              "thing: " + folder.Path("none") + ": No such file or directory");
    EXPECT_THAT(Complaint({{gtBytes}}, "@" + folder.Path(), eExitFile), HasSubstr("thing: "));
    MakeFile(folder.Path("long"), "12345");
    EXPECT_THAT(Complaint({{gtBytes}}, "@" + folder.Path("long")), HasSubstr("5 bytes"));
}

TEST(Values, OfManyBytesAreShownShortened)
{
    const tsShape shape{{{"bytes", teField::eBytes, 1, 100}}};
    const tsSetting setting{{}, std::vector<uint8_t>(40, 0xAB)};
    EXPECT_EQ(SettingText(shape, setting).size(), 2u + 80);
    EXPECT_EQ(SettingJson(shape, setting).get<std::string>().size(), 2u + 80);
    EXPECT_THAT(ShownText(shape, setting), testing::EndsWith("abab... (40 bytes)"));
    EXPECT_EQ(ShownText(shape, setting).size(), 2u + 64 + 14);
}

TEST(Values, ThatAreNotKnownAreNone)
{
    EXPECT_EQ(SettingText({{gtNumber}}, {}), "none");
    EXPECT_EQ(SettingJson({{gtNumber}}, {}), nullptr);
}
