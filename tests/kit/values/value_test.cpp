// Values: made of what a program has, read from texts and JSON, and written as both.
#include "opened_camera.h"

#include <vxcamkit/duration.h>
#include <vxcamkit/value.h>

#include <gmock/gmock.h>

#include <cmath>

using testing::ElementsAre;
using testing::HasSubstr;
using vxcam::Field;
using vxcam::FieldKind;
using vxcam::Shape;
using vxcam::Value;
using namespace std::chrono_literals;

namespace {

const Field kNumber{"number", FieldKind::Whole, -10, 300, "mV"};
const Field kHex{"word", FieldKind::Hex, 0, 4294967295.0};
const Field kReal{"real", FieldKind::Real, -vxcam::kAnyReal, vxcam::kAnyReal};
const Field kTime{"time", FieldKind::Time, 0, 4294967295.0, "ms"};
const Field kSwitch{"on", FieldKind::Switch, 0, 1};
const Field kChoice{"mode", FieldKind::Choice, 0, 0, "", 1, {{"slow", 3}, {"fast", 9}}};
const Field kText{"text", FieldKind::Text, 0, 5};
const Field kBytes{"bytes", FieldKind::Bytes, 1, 4};

Field optional(Field field, double absent)
{
    field.absent = absent;
    return field;
}
Field repeated(Field field, int times)
{
    field.repeats = times;
    return field;
}

Value parsed(const Shape& shape, const std::string& text)
{
    return vxcam::parsedText("thing", shape, text);
}
std::string shown(const Shape& shape, const std::string& text)
{
    return parsed(shape, text).text();
}
std::string json(const Shape& shape, const std::string& text)
{
    return parsed(shape, text).json();
}
std::string complaint(const Shape& shape, const std::string& text)
{
    return refusalOf([&] { parsed(shape, text); });
}
// What is made of a value that a program gives.
std::string fitted(const Shape& shape, const Value& value)
{
    return vxcam::fitted("thing", shape, value).text();
}
std::string misfit(const Shape& shape, const Value& value)
{
    return refusalOf([&] { vxcam::fitted("thing", shape, value); });
}
std::string ofJson(const Shape& shape, const std::string& text)
{
    return vxcam::parsedJson("thing", shape, text).text();
}
std::string noJson(const Shape& shape, const std::string& text)
{
    return refusalOf([&] { vxcam::parsedJson("thing", shape, text); });
}

} // namespace

TEST(Values, OfEachKindAreReadShownAndTold)
{
    struct Case {
        Field field;
        std::string text, shown, json;
    };
    for (const Case& one :
         std::vector<Case>{{kNumber, "-5", "-5mV", "-5"},
                           {kNumber, "300mV", "300mV", "300"},
                           {kNumber, "0x10", "16mV", "16"},
                           {kHex, "255", "0x000000ff", "255"},
                           {kHex, "0xFFFFFFFF", "0xffffffff", "4294967295"},
                           {kReal, "0.1", "0.1", "0.1"},
                           {kReal, "-2", "-2", "-2.0"},
                           {kReal, "1e20", "1e+20", "1e+20"},
                           {kTime, "250ms", "250ms", "250"},
                           {kTime, "1.5", "1500ms", "1500"},
                           {kTime, "2min", "120s", "120000"},
                           {kTime, "0", "0s", "0"},
                           {kSwitch, "on", "on", "true"},
                           {kSwitch, "0", "off", "false"},
                           {kChoice, "fast", "fast", "\"fast\""},
                           {kText, "a,b", "a,b", "\"a,b\""},
                           {kText, "", "", "\"\""},
                           {kText, R"(\\\n\x1b)", R"(\\\n\x1b)", R"("\\\n\u001b")"},
                           {kText, "\xc3\xa9", "\xc3\xa9", "\"\xc3\xa9\""},
                           {kText, R"(\xff\x41)", R"(\xffA)", R"({"bytes":"0xff41"})"},
                           {kBytes, "0x01fF", "0x01ff", "\"0x01ff\""},
                           {kBytes, "0a", "0x0a", "\"0x0a\""}}) {
        const Shape shape{{one.field}};
        EXPECT_EQ(shown(shape, one.text), one.shown);
        EXPECT_EQ(json(shape, one.text), one.json) << one.text;
        EXPECT_EQ(shown(shape, one.shown), one.shown); // what is shown can be written
        EXPECT_EQ(ofJson(shape, one.json), one.shown);
        EXPECT_EQ(parsed(shape, one.text), vxcam::parsedJson("thing", shape, one.json));
    }
}

TEST(Values, ThatMakeNoSenseAreRefused)
{
    EXPECT_EQ(complaint({{kNumber}}, "301"), "thing '301': out of range, it is -10 to 300 mV");
    EXPECT_EQ(complaint({{kNumber}}, "-11"), "thing '-11': out of range, it is -10 to 300 mV");
    EXPECT_EQ(complaint({{kNumber}}, "5V"), "thing '5V': write a whole number, -10 to 300 mV");
    for (const char* text :
         {"", " 5", "5 ", "5.0", "1e2", "x", "mV", "99999999999999999999", "0x", "--5", "+5"}) {
        EXPECT_THAT(complaint({{kNumber}}, text), HasSubstr("write a whole number")) << text;
    }
    for (const char* text : {"", "nan", "inf", "1e99", "1,5", "0x10", "1s"}) {
        EXPECT_NE(complaint({{kReal}}, text), "nothing") << text;
    }
    EXPECT_EQ(complaint({{kTime}}, "5 days"),
              "thing: time '5 days': the unit is none of ms, s, min and h");
    EXPECT_EQ(complaint({{kTime}}, "600us"),
              "thing: time '600us': below 1 ms, the finest step is 1 ms");
    EXPECT_EQ(complaint({{kSwitch}}, "maybe"), "thing 'maybe': write on or off");
    EXPECT_EQ(complaint({{kChoice}}, "3"), "thing '3': write one of slow|fast");
    EXPECT_EQ(complaint({{kText}}, "123456"), "thing '123456': 6 bytes, it takes 0 to 5");
    EXPECT_EQ(complaint({{kBytes}}, "0102030405"), "thing '0102030405': 5 bytes, it takes 1 to 4");
    for (const char* text : {"", "0x", "123", "0g", "-1", "0x 1"}) {
        EXPECT_THAT(complaint({{kBytes}}, text), HasSubstr("two hexadecimal digits")) << text;
    }
    for (const char* text : {"\\", "\\q", "\\x", "\\x1", "\\xgg"}) {
        EXPECT_THAT(complaint({{kText}}, text), HasSubstr("a backslash is written")) << text;
    }
    EXPECT_LT(complaint({{kBytes}}, std::string(100000, '1')).size(), 200u);
}

TEST(Values, ThatAreSwitchesAreNoTimes)
{
    for (const bool on : {false, true}) {
        EXPECT_THAT(misfit({{kTime}}, on), HasSubstr("write a time, like 500ms"));
    }
    EXPECT_THAT(noJson({{kTime}}, "true"), testing::Ne("nothing"));
}

TEST(Values, OfSeveralFieldsNeedAllThatHaveNoDefault)
{
    const Shape shape{{kNumber, optional(kChoice, 9), optional(kSwitch, 0)}};
    EXPECT_EQ(shown(shape, "1"), "1mV,fast,off");
    EXPECT_EQ(shown(shape, "1,slow"), "1mV,slow,off");
    EXPECT_EQ(shown(shape, "1,slow,on"), "1mV,slow,on");
    EXPECT_EQ(json(shape, "1,slow,on"), R"({"number":1,"mode":"slow","on":true})");
    EXPECT_EQ(ofJson(shape, R"({"number":1,"mode":"slow","on":true})"), "1mV,slow,on");
    EXPECT_EQ(ofJson(shape, R"([1, "slow"])"), "1mV,slow,off");
    EXPECT_EQ(ofJson(shape, "1"), "1mV,fast,off");
    EXPECT_EQ(ofJson(shape, R"("1,slow")"), "1mV,slow,off");
    EXPECT_EQ(vxcam::syntaxText(shape), "NUMBER[,slow|fast[,on|off]]");
    EXPECT_EQ(vxcam::rangeText(shape), "-10 to 300 mV");
    EXPECT_EQ(complaint(shape, "1,slow,on,7"),
              "thing '1,slow,on,7': too many parts, write NUMBER[,slow|fast[,on|off]]");
    EXPECT_THAT(complaint(shape, ""), HasSubstr("write a whole number"));
    EXPECT_THAT(complaint(shape, "1,"), HasSubstr("write one of"));
    EXPECT_EQ(complaint({{kNumber, kNumber}}, "1"), "thing '1': write NUMBER,NUMBER");
}

TEST(Values, KnowTheirFieldsByName)
{
    const Shape shape{{kNumber, optional(kChoice, 9), optional(kSwitch, 0)}};
    const Value value = parsed(shape, "1,slow,on");
    EXPECT_EQ(value.size(), 3u);
    EXPECT_EQ(value.field("number").toInt(), 1);
    EXPECT_EQ(value.field("mode").toText(), "slow");
    EXPECT_TRUE(value[2].toBool());
    EXPECT_THAT(refusalOf([&] { value.field("speed"); }), HasSubstr("without a field 'speed'"));
    EXPECT_THAT(refusalOf([&] { value[3]; }), HasSubstr("shorter than that"));
    EXPECT_THAT(refusalOf([&] { value.toInt(); }), HasSubstr("no whole number"));
}

TEST(Values, MayRepeatTheirLastField)
{
    const Shape shape{{kNumber, repeated(kHex, 3)}};
    EXPECT_EQ(shown(shape, "1"), "1mV");
    EXPECT_EQ(shown(shape, "1,2,3,4"), "1mV,0x00000002,0x00000003,0x00000004");
    EXPECT_EQ(json(shape, "1,2,3"), R"({"number":1,"word":[2,3]})");
    EXPECT_EQ(json(shape, "1"), R"({"number":1,"word":[]})");
    EXPECT_EQ(ofJson(shape, R"({"number":1,"word":[2,3]})"), shown(shape, "1,2,3"));
    EXPECT_EQ(fitted(shape, Value::list({1, 2, 3})), shown(shape, "1,2,3"));
    EXPECT_EQ(fitted(shape, Value::list({1, Value::list({2, 3})})), shown(shape, "1,2,3"));
    EXPECT_EQ(vxcam::syntaxText(shape), "NUMBER[,WORD,...]");
    EXPECT_THAT(complaint(shape, "1,2,3,4,5"), HasSubstr("too many parts"));
    EXPECT_THAT(misfit(shape, Value::list({1, 2, 3, 4, 5})), HasSubstr("at most 3 values"));
}

TEST(Values, MayBeListsOfGroups)
{
    const Shape shape{{kNumber, kSwitch}, 3};
    EXPECT_EQ(parsed(shape, "none").size(), 0u);
    EXPECT_EQ(parsed(shape, "1,on/2,off/3,on").size(), 3u);
    EXPECT_EQ(shown(shape, "1,on/2,off"), "1mV,on/2mV,off");
    EXPECT_EQ(shown(shape, "none"), "none");
    EXPECT_EQ(json(shape, "none"), "[]");
    EXPECT_EQ(json(shape, "1,on/2,off"), R"([{"number":1,"on":true},{"number":2,"on":false}])");
    EXPECT_EQ(ofJson(shape, R"([{"number":1,"on":true},{"number":2,"on":false}])"),
              "1mV,on/2mV,off");
    EXPECT_EQ(ofJson(shape, "[[1,true],[2,false]]"), "1mV,on/2mV,off");
    EXPECT_EQ(ofJson(shape, "[1,true]"), "1mV,on");
    EXPECT_EQ(ofJson(shape, "[]"), "none");
    EXPECT_EQ(fitted(shape, Value::list({1, true})), "1mV,on");
    EXPECT_EQ(fitted(shape, Value()), "none");
    EXPECT_EQ(vxcam::syntaxText(shape), "none|NUMBER,on|off[/...]");
    EXPECT_THAT(complaint(shape, "1,on/1,on/1,on/1,on"), HasSubstr("at most 3 groups"));
    EXPECT_NE(complaint(shape, "1,on/"), "nothing");
    EXPECT_NE(complaint(shape, ""), "nothing");
    EXPECT_NE(misfit(shape, 5), "nothing");
}

TEST(Values, OfProgramsAreFittedToTheProperty)
{
    EXPECT_EQ(fitted({{kNumber}}, 5), "5mV");
    EXPECT_EQ(fitted({{kNumber}}, 5.0), "5mV");
    EXPECT_EQ(fitted({{kNumber}}, uint64_t{5}), "5mV");
    EXPECT_EQ(fitted({{kNumber}}, "5mV"), "5mV");
    EXPECT_EQ(fitted({{kReal}}, 1), "1");
    EXPECT_EQ(fitted({{kReal}}, 0.1), "0.1");
    EXPECT_EQ(fitted({{kTime}}, 250ms), "250ms");
    EXPECT_EQ(fitted({{kTime}}, 2h), "7200s");
    EXPECT_EQ(fitted({{kTime}}, std::chrono::duration<double>(0.5)), "500ms");
    EXPECT_EQ(fitted({{kTime}}, 0.5), "500ms"); // numbers are seconds
    EXPECT_EQ(fitted({{kTime}}, 2), "2s");
    EXPECT_EQ(fitted({{kTime}}, 0ms), "0s");
    EXPECT_EQ(fitted({{kSwitch}}, true), "on");
    EXPECT_EQ(fitted({{kSwitch}}, 0), "off");
    EXPECT_EQ(fitted({{kChoice}}, "slow"), "slow");
    EXPECT_EQ(fitted({{kChoice}}, 9), "fast");
    EXPECT_EQ(fitted({{kText}}, "a\\b"), "a\\\\b"); // not as a text is written
    EXPECT_EQ(fitted({{kBytes}}, std::vector<uint8_t>{1, 255}), "0x01ff");
    EXPECT_EQ(fitted({{kBytes}}, "0x01ff"), "0x01ff");
    EXPECT_EQ(fitted({{kReal}}, parsed({{kReal}}, "0.1")), "0.1");
}

TEST(Values, OfProgramsThatFitNothingAreRefused)
{
    EXPECT_EQ(misfit({{kNumber}}, 301), "thing '301': out of range, it is -10 to 300 mV");
    EXPECT_THAT(misfit({{kNumber}}, 1.5), HasSubstr("write a whole number"));
    EXPECT_THAT(misfit({{kNumber}}, UINT64_MAX), HasSubstr("out of range"));
    EXPECT_THAT(misfit({{kNumber}}, true), HasSubstr("write a whole number"));
    EXPECT_THAT(misfit({{kNumber}}, 5ms), HasSubstr("write a whole number"));
    EXPECT_THAT(misfit({{kNumber}}, Value()), HasSubstr("write NUMBER"));
    EXPECT_THAT(misfit({{kNumber}}, Value::list({1, 2})), HasSubstr("write a whole number"));
    EXPECT_THAT(misfit({{kNumber}}, std::vector<uint8_t>{1}), HasSubstr("whole number"));
    EXPECT_THAT(misfit({{kReal}}, NAN), HasSubstr("write a number"));
    EXPECT_THAT(misfit({{kReal}}, INFINITY), HasSubstr("write a number"));
    EXPECT_THAT(misfit({{kReal}}, 1e300), HasSubstr("out of range"));
    EXPECT_THAT(misfit({{kTime}}, -1ms), HasSubstr("cannot be negative"));
    EXPECT_THAT(misfit({{kTime}}, 999us), HasSubstr("below 1 ms"));
    EXPECT_THAT(misfit({{kTime}}, NAN), HasSubstr("at most 4294967295 ms"));
    EXPECT_THAT(misfit({{kTime}}, 1200h), HasSubstr("at most 4294967295 ms"));
    EXPECT_THAT(misfit({{kTime}}, std::chrono::hours(INT64_MAX / 3600)),
                HasSubstr("at most 4294967295 ms"));
    EXPECT_THAT(misfit({{kSwitch}}, 2), HasSubstr("write on or off"));
    EXPECT_THAT(misfit({{kSwitch}}, 1.5), HasSubstr("write on or off"));
    EXPECT_THAT(misfit({{kChoice}}, 4), HasSubstr("write one of slow|fast"));
    EXPECT_THAT(misfit({{kText}}, 4), HasSubstr("write a text"));
    EXPECT_THAT(misfit({{kBytes}}, 4), HasSubstr("write bytes"));
    EXPECT_THAT(misfit({{kBytes}}, std::vector<uint8_t>(5)), HasSubstr("it takes 1 to 4"));
}

TEST(Values, OfJsonThatFitNothingAreRefused)
{
    const Shape pair{{kNumber, kSwitch}};
    EXPECT_THAT(noJson({{kNumber}}, "{"), HasSubstr("it is no JSON"));
    EXPECT_THAT(noJson({{kNumber}}, ""), HasSubstr("it is no JSON"));
    EXPECT_THAT(noJson({{kNumber}}, "null"), HasSubstr("write NUMBER"));
    EXPECT_THAT(noJson({{kNumber}}, "1.5"), HasSubstr("write a whole number"));
    EXPECT_THAT(noJson({{kNumber}}, "[1]"), HasSubstr("write a whole number"));
    EXPECT_THAT(noJson({{kNumber}}, "true"), HasSubstr("write a whole number"));
    EXPECT_THAT(noJson({{kNumber}}, "1e400"), HasSubstr("it is no JSON"));
    EXPECT_THAT(noJson({{kTime}}, "0.5"), HasSubstr("below 1 ms")); // milliseconds
    EXPECT_THAT(noJson(pair, R"({"number":1})"), HasSubstr("write NUMBER,on|off"));
    EXPECT_THAT(noJson(pair, R"({"number":1,"on":true,"x":1})"), HasSubstr("its fields are"));
    EXPECT_THAT(noJson(pair, R"({"on":true})"), HasSubstr("its fields are"));
    EXPECT_THAT(noJson({{kNumber, repeated(kHex, 3)}}, "[1,[2,[3]]]"), HasSubstr("write NUMBER"));
    EXPECT_THAT(noJson({{kNumber}}, std::string(100000, '[')), HasSubstr("it is no JSON"));
    const std::string deep = std::string(100000, '[') + std::string(100000, ']');
    EXPECT_NE(noJson({{kNumber}}, deep), "nothing");
    EXPECT_NE(noJson({{kNumber, kSwitch}, 3}, deep), "nothing");
}

TEST(Values, AreConvertedToWhatAProgramWants)
{
    EXPECT_EQ(parsed({{kTime}}, "250ms").toTime(), 250ms);
    EXPECT_EQ(parsed({{kTime}}, "250ms").toDouble(), 0.25);
    EXPECT_EQ(parsed({{kReal}}, "0.1").toDouble(), 0.1);
    EXPECT_EQ(Value(0.5).toTime(), 500ms);
    EXPECT_EQ(Value(true).toInt(), 1);
    EXPECT_EQ(Value(3.0).toInt(), 3);
    EXPECT_EQ(Value(-3).toInt(), -3);
    EXPECT_EQ(Value(1).toBool(), true);
    EXPECT_THAT(refusalOf([] { Value(2).toBool(); }), HasSubstr("value '2': it is no switch"));
    EXPECT_THAT(refusalOf([] { Value(2.5).toInt(); }), HasSubstr("no whole number"));
    EXPECT_THAT(refusalOf([] { Value("x").toDouble(); }), HasSubstr("no number"));
    EXPECT_THAT(refusalOf([] { Value(1).toText(); }), HasSubstr("no text"));
    EXPECT_THAT(refusalOf([] { Value(1).toBytes(); }), HasSubstr("no block of bytes"));
    EXPECT_THAT(refusalOf([] { Value(1e300).toTime(); }), HasSubstr("no time"));
}

TEST(Values, AreEqualWhenTheyMeanTheSame)
{
    EXPECT_EQ(Value(2), Value(2.0));
    EXPECT_EQ(Value(1), Value(true));
    EXPECT_NE(Value(2), Value("2"));
    EXPECT_NE(Value(), Value(0));
    EXPECT_EQ(Value(500ms), Value(std::chrono::duration<double>(0.5)));
    EXPECT_EQ(parsed({{kNumber}}, "5"), Value(5));
    EXPECT_EQ(Value::list({1, "a"}), Value::list({1.0, "a"}));
}

TEST(Values, ThatNoPropertyGaveHaveTextsAllTheSame)
{
    EXPECT_EQ(Value(1500us).text(), "1500us");
    EXPECT_EQ(Value(-250ms).text(), "-250ms");
    EXPECT_EQ(Value(true).text(), "on");
    EXPECT_EQ(Value("a\nb").text(), "a\\nb");
    EXPECT_EQ(Value::list({1, "a"}).text(), "1,a");
    EXPECT_EQ(Value::list({Value::list({1, 2}), Value::list({3, 4})}).text(), "1,2/3,4");
    EXPECT_EQ(Value::list({Value::list({1, 2})}).json(), "[[1,2]]");
}

TEST(Values, OfSeveralTimesHaveOneUnit)
{
    EXPECT_EQ(Value::list({0s, 90s, 2s}).text(), "0s,90s,2s");
    EXPECT_EQ(Value::list({0s, 1500ms, 2s}).text(), "0ms,1500ms,2000ms");
    EXPECT_EQ(Value::list({1ms, 1500us}).text(), "1000us,1500us");
    EXPECT_EQ(Value::list({Value::list({1s}), Value::list({5ms})}).text(), "1000ms/5ms");
    EXPECT_EQ(Value::list({0s, 4294967295ms}).text(), "0ms,4294967295ms");
}

TEST(Values, OfManyBytesAreShownShortened)
{
    const Shape shape{{{"bytes", FieldKind::Bytes, 1, 100}}};
    const Value value = vxcam::fitted("thing", shape, std::vector<uint8_t>(40, 0xAB));
    EXPECT_EQ(value.text().size(), 2u + 80);
    EXPECT_EQ(value.json().size(), 4u + 80);
    EXPECT_THAT(value.shown(), testing::EndsWith("abab... (40 bytes)"));
    EXPECT_EQ(value.shown().size(), 2u + 64 + 14);
}

TEST(Values, ThatAreNotKnownAreNone)
{
    EXPECT_EQ(Value().text(), "none");
    EXPECT_EQ(Value().json(), "null");
    EXPECT_EQ(Value().size(), 0u);
}

TEST(Durations, AreWrittenExactly)
{
    EXPECT_EQ(vxcam::exactText(90s), "90s");
    EXPECT_EQ(vxcam::exactText(1500ms), "1500ms");
    EXPECT_EQ(vxcam::parsedDuration("1.5h"), 90min);
    EXPECT_EQ(vxcam::parsedDuration("1500us"), 2ms);
}
