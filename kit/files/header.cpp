// The facts of a frame as cards.
#include <vxcamkit/header.h>

#include "readout/frame_facts.h"
#include "values/escapes.h"

#include <vxcamkit/error.h>
#include <vxcamkit/property.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <set>
#include <utility>

namespace vxcam {

namespace {

constexpr int kTimeDecimals = 6;     // of seconds
constexpr int kDayDecimals = 10;     // of a date in days, which a double still holds
constexpr int kMost = 9;             // complaints that are listed
constexpr double kUnixEpoch = 40587; // as a modified Julian date
constexpr double kSecondsInDay = 86400;

double secondsOf(std::chrono::nanoseconds time)
{
    return std::chrono::duration<double>(time).count();
}

const char* imageTypeOf(FrameType type)
{
    switch (type) {
    case FrameType::Dark:
        return "Dark Frame";
    case FrameType::Bias:
        return "Bias Frame";
    case FrameType::Flat:
        return "Flat Field";
    case FrameType::Light:
        break;
    }
    return "Light Frame";
}

// Pixels first to last of an image or the sensor, as FITS counts them.
std::string sectionText(const Area& area)
{
    const auto range = [](int first, int count) {
        return std::to_string(first + 1) + ":" + std::to_string(first + count);
    };
    return "[" + range(area.column, area.columns) + "," + range(area.row, area.rows) + "]";
}

// A paragraph for each subject; what is not known has no card.
class HeaderMaker
{
public:
    HeaderMaker(const Frame& frame, const HeaderOptions& options)
        : frame_(frame), facts_(frame.facts()), options_(options)
    {}

    std::vector<HeaderCard> make()
    {
        addExposure();
        addTimes();
        addCamera();
        addGeometry();
        addRegions();
        addCounters();
        addCompleteness();
        addComplaints();
        addSettings();
        addUserCards();
        return std::move(cards_);
    }

private:
    void add(const std::string& keyword, HeaderCard::Value value, const std::string& comment,
             int decimals = HeaderCard::kAsNeeded)
    {
        keywords_.insert(keyword);
        cards_.push_back({keyword, std::move(value), comment, decimals});
    }
    void text(const std::string& keyword, const std::string& value, const std::string& comment)
    {
        add(keyword, value, comment);
    }
    void whole(const std::string& keyword, int64_t value, const std::string& comment)
    {
        add(keyword, value, comment);
    }
    void seconds(const std::string& keyword, std::chrono::nanoseconds time,
                 const std::string& comment)
    {
        add(keyword, secondsOf(time), comment, kTimeDecimals);
    }
    // As a text and as a number of days: DATE-xxx and MJD-xxx.
    void moment(const std::string& which, UtcTime time, const std::string& what)
    {
        text("DATE-" + which, utcText(time, kTimeDecimals), what);
        add("MJD-" + which, kUnixEpoch + secondsOf(time.time_since_epoch()) / kSecondsInDay,
            "[d] the same, as a modified Julian date", kDayDecimals);
    }

    void addExposure();
    void addTimes();
    void addCamera();
    void addGeometry();
    void addOrigin();
    void addRegions();
    void addCounters();
    void addCompleteness();
    void addComplaints();
    void addSettings();
    void addUserCards();

    // Of a trigger that decides on it, when the trigger came from outside.
    bool isLengthUnknown() const
    {
        return facts_.times.how == FrameTimes::How::Triggered && facts_.exposure.count() == 0;
    }

    const Frame& frame_;
    const FrameFacts& facts_;
    const HeaderOptions& options_;
    std::vector<HeaderCard> cards_;
    std::set<std::string> keywords_;
};

void HeaderMaker::addExposure()
{
    text("IMAGETYP", imageTypeOf(facts_.type), "what the frame shows");
    if (!isLengthUnknown()) {
        seconds("EXPTIME", facts_.exposure, "[s] exposure time");
        seconds("XPOSURE", facts_.exposure, "[s] exposure time");
    }
    text("BUNIT", "adu", "unit of the pixels");
}

void HeaderMaker::addTimes()
{
    const FrameTimes& times = facts_.times;
    if (times.begin == UtcTime()) return;
    text("TIMESYS", "UTC", "time scale of all times");
    moment("OBS", times.begin, "begin of the exposure");
    moment("BEG", times.begin, "begin of the exposure");
    if (!isLengthUnknown()) {
        moment("AVG", times.middle, "middle of the exposure");
        moment("END", times.end, "end of the exposure");
        seconds("TELAPSE", times.end - times.begin, "[s] from begin to end, on the clock");
    }
    text("TIMEUNIT", "s", "unit of TELAPSE, TIMRDER and TIMSYER");
    seconds("TIMRDER", times.uncertainty, "[s] times lie within +/- this");
    if (times.clock.synchronised) {
        seconds("TIMSYER", times.clock.maximumError, "[s] that the host's clock is off, at most");
    }
    text("TIMEHOW", nameOf(times.how), "how the times were found");
    add("CLKSYNC", times.clock.synchronised, "the host's clock was synchronised");
}

void HeaderMaker::addCamera()
{
    const std::string& name = options_.instrument.empty() ? facts_.cameraName : options_.instrument;
    if (!name.empty()) text("INSTRUME", name, "camera");
    if (!facts_.serial.empty()) text("SERIAL", facts_.serial, "the camera's serial number");
    if (!facts_.target.empty()) text("CAMADDR", facts_.target, "where the camera was found");
    const auto degrees = [this](const char* keyword, const std::optional<double>& value,
                                const char* comment) {
        if (value) add(keyword, *value, comment, 1);
    };
    degrees("CCD-TEMP", facts_.sensorTemperature, "[deg C] sensor temperature");
    degrees("SET-TEMP", facts_.targetTemperature, "[deg C] temperature that it is cooled to");
    degrees("BRD-TEMP", facts_.boardTemperature, "[deg C] temperature of the electronics");
    for (const Snapshot::Entry& entry : facts_.settings) {
        const std::string keyword = findProperty(entry.name).property->fitsName();
        if (keyword == "GAIN" && entry.value.size() == 1) {
            whole(keyword, entry.value.toInt(), "gain that the camera is set to");
        }
        if (keyword == "OFFSET" && entry.value.size() > 0) {
            whole(keyword, entry.value[0].toInt(), "[adu] that every pixel gets");
        }
    }
}

void HeaderMaker::addGeometry()
{
    text("READMODE", nameOf(facts_.kind), "kind of readout");
    const bool isGrid = facts_.binningX > 0 && facts_.binningY > 0;
    if (isGrid) {
        whole("XBINNING", facts_.binningX, "sensor columns in a pixel");
        whole("YBINNING", facts_.binningY, "sensor rows in a pixel");
    }
    const Size& sensor = facts_.sensor;
    if (sensor.columns > 0 && sensor.rows > 0) {
        text("DETSIZE", sectionText({0, 0, sensor.columns, sensor.rows}), "the whole sensor");
    }
    if (isGrid && facts_.regions.empty() && !facts_.area.empty()) addOrigin();
    text("ROWORDER", "TOP-DOWN", "the first sensor row is the first row");
}

// Where the frame lies on the sensor. LTM and LTV lead from sensor pixels to pixels of the frame,
// both counted from 1 and with their middles at whole numbers.
void HeaderMaker::addOrigin()
{
    const Area& area = facts_.area;
    whole("XORGSUBF", area.column, "first sensor column, from 0");
    whole("YORGSUBF", area.row, "first sensor row, from 0");
    text("DATASEC", sectionText({0, 0, facts_.columns, facts_.rows}), "pixels that are data");
    text("DETSEC", sectionText(area), "part of the sensor that is shown");
    const auto linear = [this](const std::string& axis, int binning, int first) {
        add("LTM" + axis + "_" + axis, 1.0 / binning, "pixels of the frame for one of the sensor");
        add("LTV" + axis, (1.0 - (2.0 * first + 1.0) / binning) / 2, "and where they begin");
    };
    linear("1", facts_.binningX, area.column);
    linear("2", facts_.binningY, area.row);
}

void HeaderMaker::addRegions()
{
    if (facts_.regions.empty()) return;
    whole("NREGIONS", static_cast<int64_t>(facts_.regions.size()),
          "parts of the sensor; between them is 0");
    int number = 0;
    for (const Area& region : facts_.regions) {
        text("REGION" + std::to_string(++number), sectionText(region), "part of the sensor");
    }
}

void HeaderMaker::addCounters()
{
    whole("FRAMENO", facts_.number, "frame within the readout, from 1");
    whole("NFRAMES", facts_.frames, "frames asked for in the readout; 0: endless");
    if (facts_.readout > 0) whole("READOUT", facts_.readout, "readout of the camera, from 1");
    if (facts_.dropped > 0) {
        whole("NDROPPED", static_cast<int64_t>(facts_.dropped), "frames before it that were lost");
    }
    whole("IMGTYPE", facts_.imageType, "kind of frame, the camera's code");
    whole("CAMSTAT", facts_.statistic, "the camera's figure for the frame");
    whole("PIXSUM", static_cast<int64_t>(frame_.sum()), "[adu] sum of all pixels");
    if (facts_.trueSum) {
        whole("SIMSUM", static_cast<int64_t>(*facts_.trueSum), "[adu] that was sent, as known");
    }
    text("SWCREATE", options_.software.empty() ? "vxcamkit" : options_.software,
         "program that wrote this");
}

void HeaderMaker::addCompleteness()
{
    add("COMPLETE", facts_.complete(), "all packets came, whole");
    whole("NPACKETS", facts_.packetsExpected, "packets that the frame has");
    whole("NMISSING", facts_.packetsMissing, "packets that did not come");
    whole("NMISPLAC", facts_.packetsMisplaced, "packets with pixels outside the frame");
    whole("NDAMAGED", facts_.packetsDamaged, "packets that came damaged");
    if (!facts_.missingRowsKnown) return;
    whole("NMISSROW", static_cast<int64_t>(facts_.missingRows.size()), "rows that are not whole");
    if (!facts_.missingRows.empty()) {
        text("MISSROWS", rangesText(facts_.missingRows), "these rows, from 0");
    }
}

void HeaderMaker::addComplaints()
{
    if (facts_.complaints.empty()) return;
    whole("NCOMPLNT", static_cast<int64_t>(facts_.complaints.size()),
          "errors that the camera reported meanwhile");
    int number = 0;
    for (const Complaint& complaint : facts_.complaints) {
        if (++number > kMost) break;
        text("COMPLNT" + std::to_string(number), escaped(complaintText(complaint)), "");
    }
}

// All of them have a name of their own, also those that have a customary card.
void HeaderMaker::addSettings()
{
    if (!options_.settings) return;
    for (const Snapshot::Entry& entry : facts_.settings) {
        if (entry.value.isNothing()) continue;
        const Property& property = *findProperty(entry.name).property;
        std::string keyword = "HIERARCH VX " + entry.name;
        std::transform(keyword.begin(), keyword.end(), keyword.begin(),
                       [](char c) { return c >= 'a' && c <= 'z' ? char(c - 'a' + 'A') : c; });
        const std::string unit = property.unit();
        const std::string comment = unit.empty() || unit == "ms" ? "" : "[" + unit + "]";
        switch (entry.value.kind()) {
        case Value::Kind::Switch:
            add(keyword, entry.value.toBool(), comment);
            break;
        case Value::Kind::Whole:
            add(keyword, entry.value.toInt(), comment);
            break;
        case Value::Kind::Real:
            add(keyword, entry.value.toDouble(), comment);
            break;
        case Value::Kind::Time:
            seconds(keyword, entry.value.toTime(), "[s]");
            break;
        default:
            text(keyword, entry.value.text(), comment);
        }
    }
}

void HeaderMaker::addUserCards()
{
    for (const HeaderCard& card : options_.cards) {
        const bool isMeasured = card.keyword == "DATAMIN" || card.keyword == "DATAMAX";
        if ((isReserved(card.keyword) && !isMeasured) || !keywords_.insert(card.keyword).second) {
            throw Error(ErrorKind::Usage,
                        "header: the word " + card.keyword +
                            (isReserved(card.keyword) ? " is one that files have of their own"
                                                      : " is given twice"));
        }
        cards_.push_back(card);
    }
}

} // namespace

std::vector<HeaderCard> makeHeader(const Frame& frame, const HeaderOptions& options)
{
    return HeaderMaker(frame, options).make();
}

std::string headerJson(const std::vector<HeaderCard>& cards)
{
    constexpr size_t prefix = 9; // "HIERARCH "
    nlohmann::ordered_json document = nlohmann::ordered_json::object();
    for (const HeaderCard& card : cards) {
        const bool isLong = card.keyword.rfind("HIERARCH ", 0) == 0;
        std::visit(
            [&](const auto& value) {
                document[isLong ? card.keyword.substr(prefix) : card.keyword] = value;
            },
            card.value);
    }
    // What is no UTF-8 is replaced.
    return document.dump(-1, ' ', true, nlohmann::ordered_json::error_handler_t::replace);
}

std::string rangesText(const std::vector<int>& numbers)
{
    std::string text;
    for (size_t first = 0; first < numbers.size();) {
        size_t last = first;
        while (last + 1 < numbers.size() && numbers[last + 1] == numbers[last] + 1) {
            ++last;
        }
        if (!text.empty()) text += ",";
        text += std::to_string(numbers[first]);
        if (last > first) text += "-" + std::to_string(numbers[last]);
        first = last + 1;
    }
    return text;
}

} // namespace vxcam
