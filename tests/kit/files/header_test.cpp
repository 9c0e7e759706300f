#include "files_support.h"

#include <vxcamkit/header.h>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <set>

using namespace std::chrono_literals;
using testing::HasSubstr;

namespace vxcam {

namespace {

// The value of a card as JSON writes it; "absent" for one that is not there.
std::string cardOf(const Frame& frame, const std::string& keyword,
                   const HeaderOptions& options = {})
{
    const auto document = nlohmann::json::parse(headerJson(makeHeader(frame, options)));
    return document.contains(keyword) ? document[keyword].dump() : "absent";
}

std::string cardOf(const FrameFacts& facts, const std::string& keyword)
{
    return cardOf(Frame(facts), keyword);
}

FrameFacts timedFacts()
{
    FrameFacts facts = factsOf(2, 2);
    facts.exposure = 1500ms;
    facts.times.how = FrameTimes::How::Commanded;
    facts.times.begin = UtcTime(1767225599s + 250ms); // 2025-12-31T23:59:59.25
    facts.times.middle = facts.times.begin + 750ms;
    facts.times.end = facts.times.begin + 1500ms;
    facts.times.uncertainty = 1200us;
    return facts;
}

// Facts that have a card each.
FrameFacts fullFacts()
{
    FrameFacts facts = timedFacts();
    facts.cameraName = "C";
    facts.serial = "17";
    facts.target = "sim";
    facts.sensorTemperature = facts.boardTemperature = facts.targetTemperature = 1;
    facts.sensor = {8, 8};
    facts.area = {0, 0, 2, 2};
    facts.readout = 1;
    facts.dropped = 1;
    facts.trueSum = 1;
    facts.missingRows = {1};
    facts.packetsMissing = 1;
    facts.times.clock.synchronised = true;
    facts.complaints.resize(1);
    facts.settings.set("gain", 2);
    facts.settings.set("offset", Value::list({5, false}));
    return facts;
}

} // namespace

TEST(Header, TellsWhatTheFrameShows)
{
    FrameFacts facts = factsOf(2, 2);
    EXPECT_EQ(cardOf(facts, "IMAGETYP"), "\"Light Frame\"");
    facts.type = FrameType::Dark;
    EXPECT_EQ(cardOf(facts, "IMAGETYP"), "\"Dark Frame\"");
    facts.type = FrameType::Bias;
    EXPECT_EQ(cardOf(facts, "IMAGETYP"), "\"Bias Frame\"");
    facts.type = FrameType::Flat;
    EXPECT_EQ(cardOf(facts, "IMAGETYP"), "\"Flat Field\"");
}

TEST(Header, TellsTheExposureAndItsTimes)
{
    const Frame frame(timedFacts());
    EXPECT_EQ(cardOf(frame, "EXPTIME"), "1.5");
    EXPECT_EQ(cardOf(frame, "XPOSURE"), "1.5");
    EXPECT_EQ(cardOf(frame, "TELAPSE"), "1.5");
    EXPECT_EQ(cardOf(frame, "DATE-OBS"), "\"2025-12-31T23:59:59.250000\"");
    EXPECT_EQ(cardOf(frame, "DATE-BEG"), "\"2025-12-31T23:59:59.250000\"");
    EXPECT_EQ(cardOf(frame, "DATE-AVG"), "\"2026-01-01T00:00:00.000000\"");
    EXPECT_EQ(cardOf(frame, "DATE-END"), "\"2026-01-01T00:00:00.750000\"");
    EXPECT_EQ(cardOf(frame, "TIMESYS"), "\"UTC\"");
    EXPECT_EQ(cardOf(frame, "TIMEHOW"), "\"commanded\"");
    EXPECT_EQ(cardOf(frame, "TIMRDER"), "0.0012");
    // 2026-01-01 is the day 61041.
    EXPECT_NEAR(std::stod(cardOf(frame, "MJD-OBS")), 61041 - 0.75 / 86400, 1e-10);
    EXPECT_NEAR(std::stod(cardOf(frame, "MJD-BEG")), 61041 - 0.75 / 86400, 1e-10);
    EXPECT_NEAR(std::stod(cardOf(frame, "MJD-AVG")), 61041, 1e-10);
    EXPECT_NEAR(std::stod(cardOf(frame, "MJD-END")), 61041 + 0.75 / 86400, 1e-10);
}

TEST(Header, TellsTheErrorOfTheClockWhereItIsKnown)
{
    FrameFacts facts = timedFacts();
    facts.times.clock.maximumError = 16s;
    EXPECT_EQ(cardOf(facts, "CLKSYNC"), "false");
    EXPECT_EQ(cardOf(facts, "TIMSYER"), "absent");
    facts.times.clock.synchronised = true;
    facts.times.clock.maximumError = 4ms;
    EXPECT_EQ(cardOf(facts, "CLKSYNC"), "true");
    EXPECT_EQ(cardOf(facts, "TIMSYER"), "0.004");
}

TEST(Header, LeavesTimesOutThatAreNotKnown)
{
    for (const char* keyword : {"DATE-OBS", "DATE-BEG", "DATE-AVG", "DATE-END", "MJD-OBS",
                                "TELAPSE", "TIMRDER", "TIMEHOW", "CLKSYNC"}) {
        EXPECT_EQ(cardOf(factsOf(2, 2), keyword), "absent") << keyword;
    }
}

TEST(Header, LeavesOutAnExposureThatATriggerFromOutsideDecidedOn)
{
    FrameFacts facts = timedFacts();
    facts.times.how = FrameTimes::How::Triggered;
    EXPECT_EQ(cardOf(facts, "EXPTIME"), "1.5");
    facts.exposure = 0us;
    for (const char* keyword :
         {"EXPTIME", "XPOSURE", "TELAPSE", "DATE-AVG", "DATE-END", "MJD-AVG", "MJD-END"}) {
        EXPECT_EQ(cardOf(facts, keyword), "absent") << keyword;
    }
    EXPECT_EQ(cardOf(facts, "DATE-BEG"), "\"2025-12-31T23:59:59.250000\"");
    facts.times.how = FrameTimes::How::Commanded; // a bias frame
    EXPECT_EQ(cardOf(facts, "EXPTIME"), "0.0");
}

TEST(Header, TellsOfTheCameraWhatIsKnown)
{
    for (const char* keyword : {"INSTRUME", "SERIAL", "CAMADDR", "CCD-TEMP", "SET-TEMP", "BRD-TEMP",
                                "GAIN", "OFFSET", "SIMSUM", "DETSIZE", "XORGSUBF"}) {
        EXPECT_EQ(cardOf(factsOf(2, 2), keyword), "absent") << keyword;
    }
    FrameFacts facts = fullFacts();
    facts.sensorTemperature = -19.9;
    facts.targetTemperature = -20;
    EXPECT_EQ(cardOf(facts, "INSTRUME"), "\"C\"");
    EXPECT_EQ(cardOf(facts, "SERIAL"), "\"17\"");
    EXPECT_EQ(cardOf(facts, "CCD-TEMP"), "-19.9");
    EXPECT_EQ(cardOf(facts, "SET-TEMP"), "-20.0");
    EXPECT_EQ(cardOf(facts, "GAIN"), "2");
    EXPECT_EQ(cardOf(facts, "OFFSET"), "5");
    HeaderOptions options;
    options.instrument = "the user's name";
    EXPECT_EQ(cardOf(Frame(facts), "INSTRUME", options), "\"the user's name\"");
}

TEST(Header, TellsWhereTheFrameLiesOnTheSensor)
{
    FrameFacts facts = factsOf(3, 4);
    facts.sensor = {64, 32};
    facts.area = {10, 20, 4, 3};
    EXPECT_EQ(cardOf(facts, "XORGSUBF"), "10");
    EXPECT_EQ(cardOf(facts, "YORGSUBF"), "20");
    EXPECT_EQ(cardOf(facts, "XBINNING"), "1");
    EXPECT_EQ(cardOf(facts, "DETSIZE"), "\"[1:64,1:32]\"");
    EXPECT_EQ(cardOf(facts, "DETSEC"), "\"[11:14,21:23]\"");
    EXPECT_EQ(cardOf(facts, "DATASEC"), "\"[1:4,1:3]\"");
    EXPECT_EQ(cardOf(facts, "LTM1_1"), "1.0");
    EXPECT_EQ(cardOf(facts, "LTV1"), "-10.0"); // sensor column 11 is the frame's column 1
    EXPECT_EQ(cardOf(facts, "LTV2"), "-20.0");
}

TEST(Header, TellsTheBinningOfAGridAlone)
{
    FrameFacts facts = factsOf(16, 16, 32);
    facts.kind = ReadoutKind::Binned;
    facts.sensor = {64, 32};
    facts.area = {0, 0, 64, 32};
    facts.binningX = 4;
    facts.binningY = 2;
    EXPECT_EQ(cardOf(facts, "XBINNING"), "4");
    EXPECT_EQ(cardOf(facts, "YBINNING"), "2");
    EXPECT_EQ(cardOf(facts, "LTM1_1"), "0.25");
    EXPECT_EQ(cardOf(facts, "LTV1"), "0.375"); // 2.5, the middle of columns 1 to 4, becomes 1
    facts.kind = ReadoutKind::MaskBinned;
    facts.binningX = facts.binningY = 0;
    for (const char* keyword : {"XBINNING", "YBINNING", "LTM1_1", "DATASEC", "XORGSUBF"}) {
        EXPECT_EQ(cardOf(facts, keyword), "absent") << keyword;
    }
}

TEST(Header, ListsTheRegionsThatAreStacked)
{
    FrameFacts facts = factsOf(4, 8);
    facts.area = {0, 0, 8, 4};
    facts.regions = {{0, 2, 8, 1}, {0, 10, 8, 3}};
    EXPECT_EQ(cardOf(facts, "NREGIONS"), "2");
    EXPECT_EQ(cardOf(facts, "REGION1"), "\"[1:8,3:3]\"");
    EXPECT_EQ(cardOf(facts, "REGION2"), "\"[1:8,11:13]\"");
    EXPECT_EQ(cardOf(facts, "XORGSUBF"), "absent");
}

TEST(Header, TellsWhatIsMissing)
{
    EXPECT_EQ(cardOf(factsOf(2, 2), "COMPLETE"), "true");
    EXPECT_EQ(cardOf(factsOf(2, 2), "NMISSROW"), "0");
    EXPECT_EQ(cardOf(factsOf(2, 2), "MISSROWS"), "absent");
    FrameFacts facts = factsOf(20, 2);
    facts.packetsExpected = 20;
    facts.packetsMissing = 4;
    facts.packetsMisplaced = 3;
    facts.packetsDamaged = 2;
    facts.missingRows = {0, 7, 8, 9, 19};
    EXPECT_EQ(cardOf(facts, "COMPLETE"), "false");
    EXPECT_EQ(cardOf(facts, "NPACKETS"), "20");
    EXPECT_EQ(cardOf(facts, "NMISSING"), "4");
    EXPECT_EQ(cardOf(facts, "NMISPLAC"), "3");
    EXPECT_EQ(cardOf(facts, "NDAMAGED"), "2");
    EXPECT_EQ(cardOf(facts, "NMISSROW"), "5");
    EXPECT_EQ(cardOf(facts, "MISSROWS"), "\"0,7-9,19\"");
    facts.missingRowsKnown = false;
    EXPECT_EQ(cardOf(facts, "NMISSROW"), "absent");
}

TEST(Header, TellsTheSumAndTheCounters)
{
    FrameFacts facts = factsOf(1, 3, 32);
    facts.number = 2;
    facts.frames = 7;
    facts.statistic = 1234;
    facts.imageType = 5;
    facts.trueSum = 99;
    const Frame frame = frameOf<uint32_t>(facts, {4294967295, 4294967295, 2});
    EXPECT_EQ(cardOf(frame, "PIXSUM"), "8589934592");
    EXPECT_EQ(cardOf(frame, "SIMSUM"), "99");
    EXPECT_EQ(cardOf(frame, "FRAMENO"), "2");
    EXPECT_EQ(cardOf(frame, "NFRAMES"), "7");
    EXPECT_EQ(cardOf(frame, "CAMSTAT"), "1234");
    EXPECT_EQ(cardOf(frame, "IMGTYPE"), "5");
}

TEST(Header, TellsWhatTheCameraComplainedOf)
{
    FrameFacts facts = factsOf(2, 2);
    EXPECT_EQ(cardOf(facts, "NCOMPLNT"), "absent");
    facts.complaints.resize(12);
    facts.complaints[0] = {3, 54, "too\nhot"};
    EXPECT_EQ(cardOf(facts, "NCOMPLNT"), "12");
    EXPECT_THAT(cardOf(facts, "COMPLNT1"), HasSubstr(R"(3-54: too\\nhot)"));
    EXPECT_NE(cardOf(facts, "COMPLNT9"), "absent");
    EXPECT_EQ(cardOf(facts, "COMPLNT10"), "absent");
}

TEST(Header, HasAllPropertiesInForceIfAsked)
{
    FrameFacts facts = factsOf(2, 2);
    facts.settings.set("gain", 2);
    facts.settings.set("exposure", 500ms);
    facts.settings.set("mirroring", Value::list({true, false}));
    facts.settings.set("target-temp", Value()); // not known
    HeaderOptions options;
    EXPECT_EQ(cardOf(Frame(facts), "VX MIRRORING", options), "absent");
    options.settings = true;
    EXPECT_EQ(cardOf(Frame(facts), "VX GAIN", options), "2");
    EXPECT_EQ(cardOf(Frame(facts), "VX EXPOSURE", options), "0.5");
    EXPECT_THAT(cardOf(Frame(facts), "VX MIRRORING", options), HasSubstr(","));
    EXPECT_EQ(cardOf(Frame(facts), "VX TARGET-TEMP", options), "absent");
}

TEST(Header, EndsWithTheCardsOfTheUser)
{
    HeaderOptions options;
    options.cards = {parseCard("OBSERVER=Galilei"), parseCard("AIRMASS=1.25/at begin")};
    const std::vector<HeaderCard> cards = makeHeader(Frame(factsOf(2, 2)), options);
    ASSERT_GT(cards.size(), 2u);
    EXPECT_EQ(cards[cards.size() - 2].keyword, "OBSERVER");
    EXPECT_EQ(cards.back().keyword, "AIRMASS");
    EXPECT_EQ(std::get<double>(cards.back().value), 1.25);
}

TEST(Header, RefusesWordsThatAreThereAlready)
{
    HeaderOptions options;
    options.cards = {{"OBSERVER", 1.0, ""}, {"OBSERVER", 2.0, ""}};
    const auto make = [&] { makeHeader(Frame(factsOf(2, 2)), options); };
    EXPECT_THAT(refusalOf(make, ErrorKind::Usage), HasSubstr("OBSERVER is given twice"));
    options.cards = {{"NAXIS1", int64_t{5}, ""}};
    EXPECT_THAT(refusalOf(make, ErrorKind::Usage), HasSubstr("files have of their own"));
}

TEST(Header, ReservesEveryWordThatItUses)
{
    FrameFacts regions = fullFacts();
    regions.regions = {{0, 0, 1, 1}};
    for (const FrameFacts& facts : {fullFacts(), regions}) {
        for (const HeaderCard& card : makeHeader(Frame(facts))) {
            EXPECT_TRUE(isReserved(card.keyword)) << card.keyword;
        }
    }
}

TEST(Header, HasEveryWordInItsDocument)
{
    const std::string page = ReadFile(VX_FILES_PAGE);
    FrameFacts regions = fullFacts();
    regions.regions = {{0, 0, 1, 1}};
    for (const FrameFacts& facts : {fullFacts(), regions}) {
        for (const HeaderCard& card : makeHeader(Frame(facts))) {
            EXPECT_THAT(page, HasSubstr("`" + card.keyword + "`"));
        }
    }
}

TEST(Header, UsesEachWordOnce)
{
    FrameFacts facts = fullFacts();
    HeaderOptions options;
    options.settings = true;
    std::set<std::string> seen;
    for (const HeaderCard& card : makeHeader(Frame(facts), options)) {
        EXPECT_TRUE(seen.insert(card.keyword).second) << card.keyword;
    }
}

TEST(Header, IsJsonWhateverACameraIsCalled)
{
    FrameFacts facts = factsOf(2, 2);
    facts.cameraName = "\xFF\x01\"";
    EXPECT_EQ(cardOf(facts, "INSTRUME"), "\"\xEF\xBF\xBD\\u0001\\\"\"");
    for (const char character : headerJson(makeHeader(Frame(facts)))) {
        EXPECT_TRUE(character >= ' ' && character <= '~');
    }
}

TEST(Header, WritesRangesOfRows)
{
    EXPECT_EQ(rangesText({}), "");
    EXPECT_EQ(rangesText({5}), "5");
    EXPECT_EQ(rangesText({0, 1, 2, 4, 6, 7}), "0-2,4,6-7");
}

} // namespace vxcam
