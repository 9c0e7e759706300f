#include "containers/record_columns.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace vxcam {

namespace {

using Row = const RecordedFrame&;

const FrameFacts& facts(Row row)
{
    return row.frame.facts();
}

int64_t whole(uint64_t number)
{
    return static_cast<int64_t>(number);
}

double real(const std::optional<double>& number)
{
    return number.value_or(std::numeric_limits<double>::quiet_NaN());
}

// No number where there is no star that is not saturated.
double ofStars(Row row, double figure)
{
    return row.measures->hfd > 0 ? figure : std::numeric_limits<double>::quiet_NaN();
}

// Cards of one frame alone.
constexpr std::array<const char*, 30> kOfOneFrame = {
    "DATE-AVG", "DATE-END", "MJD-AVG",  "MJD-END",  "TELAPSE",  "CCD-TEMP", "BRD-TEMP", "FRAMENO",
    "NDROPPED", "IMGTYPE",  "CAMSTAT",  "PIXSUM",   "SIMSUM",   "COMPLETE", "NPACKETS", "NMISSING",
    "NMISPLAC", "NDAMAGED", "NMISSROW", "MISSROWS", "NCOMPLNT", "COMPLNT1", "COMPLNT2", "COMPLNT3",
    "COMPLNT4", "COMPLNT5", "COMPLNT6", "COMPLNT7", "COMPLNT8", "COMPLNT9"};

} // namespace

int64_t nanosecondsOf(UtcTime time)
{
    return time.time_since_epoch().count();
}

const std::vector<RecordColumn>& recordColumns()
{
    // clang-format off
    static const std::vector<RecordColumn>& columns = *new std::vector<RecordColumn>{
        {"index", "", "frame of the record, from 0", +[](Row row) { return whole(row.index); }},
        {"number", "", "frame of its readout, from 1", +[](Row row) { return int64_t{facts(row).number}; }},
        {"readout", "", "readout of the camera, from 1", +[](Row row) { return int64_t{facts(row).readout}; }},
        {"begin_ns", "ns", "begin of the exposure, UTC since 1970", +[](Row row) { return nanosecondsOf(facts(row).times.begin); }},
        {"middle_ns", "ns", "its middle", +[](Row row) { return nanosecondsOf(facts(row).times.middle); }},
        {"end_ns", "ns", "its end", +[](Row row) { return nanosecondsOf(facts(row).times.end); }},
        {"uncertainty_ns", "ns", "times lie within +/- this", +[](Row row) { return int64_t{facts(row).times.uncertainty.count()}; }},
        {"time_how", "", "how times were found: 0 commanded, 1 interval, 2 triggered, 3 bounded", +[](Row row) { return static_cast<int64_t>(facts(row).times.how); }},
        {"clock_synchronised", "", "1: the host's clock was", +[](Row row) { return int64_t{facts(row).times.clock.synchronised ? 1 : 0}; }},
        {"exposure_us", "us", "exposure time", +[](Row row) { return int64_t{facts(row).exposure.count()}; }},
        {"sensor_temperature", "degC", "of the sensor", +[](Row row) { return real(facts(row).sensorTemperature); }},
        {"board_temperature", "degC", "of the electronics", +[](Row row) { return real(facts(row).boardTemperature); }},
        {"target_temperature", "degC", "that it is cooled to", +[](Row row) { return real(facts(row).targetTemperature); }},
        {"complete", "", "1: all packets came, whole", +[](Row row) { return int64_t{facts(row).complete() ? 1 : 0}; }},
        {"packets", "", "packets that it has", +[](Row row) { return int64_t{facts(row).packetsExpected}; }},
        {"packets_missing", "", "packets that did not come", +[](Row row) { return int64_t{facts(row).packetsMissing}; }},
        {"packets_misplaced", "", "packets with pixels outside the frame", +[](Row row) { return int64_t{facts(row).packetsMisplaced}; }},
        {"packets_damaged", "", "packets that came damaged", +[](Row row) { return int64_t{facts(row).packetsDamaged}; }},
        {"missing_rows_known", "", "0: rows are missing, and which is not known", +[](Row row) { return int64_t{facts(row).missingRowsKnown ? 1 : 0}; }},
        {"missing_rows_count", "", "rows that are not whole", +[](Row row) { return whole(facts(row).missingRows.size()); }},
        {"complaints", "", "errors that the camera reported meanwhile", +[](Row row) { return whole(facts(row).complaints.size()); }},
        {"dropped", "", "frames before it that were lost", +[](Row row) { return whole(facts(row).dropped); }},
        {"image_type", "", "kind of frame, the camera's code", +[](Row row) { return int64_t{facts(row).imageType}; }},
        {"statistic", "", "the camera's figure for the frame", +[](Row row) { return int64_t{facts(row).statistic}; }},
        {"sum", "adu", "sum of all pixels", +[](Row row) { return whole(row.frame.sum()); }},
        {"crc32", "", "CRC-32 of the pixels, lowest byte first", +[](Row row) { return int64_t{row.crc}; }},
        {"sim_sum", "adu", "sum that was sent, where the simulated camera knows it", +[](Row row) { return facts(row).trueSum ? whole(*facts(row).trueSum) : int64_t{-1}; }},
    };
    // clang-format on
    return columns;
}

const std::vector<RecordColumn>& measureColumns()
{
    // clang-format off
    static const std::vector<RecordColumn>& columns = *new std::vector<RecordColumn>{
        {"mean", "adu", "of the pixels that came", +[](Row row) { return row.measures->mean; }},
        {"median", "adu", "likewise", +[](Row row) { return row.measures->median; }},
        {"noise", "adu", "sigma of the background", +[](Row row) { return row.measures->noise; }},
        {"min", "adu", "the least pixel that came", +[](Row row) { return int64_t{row.measures->least}; }},
        {"max", "adu", "the highest pixel", +[](Row row) { return int64_t{row.measures->most}; }},
        {"saturated_pixels", "", "pixels at full scale", +[](Row row) { return whole(row.measures->saturated); }},
        {"stars", "", "that were found", +[](Row row) { return whole(row.measures->stars); }},
        {"hfd", "pixel", "half flux diameter of stars, their median", +[](Row row) { return ofStars(row, row.measures->hfd); }},
        {"fwhm", "pixel", "full width at half maximum, likewise", +[](Row row) { return ofStars(row, row.measures->fwhm); }},
        {"elongation", "", "1: round, likewise", +[](Row row) { return ofStars(row, row.measures->elongation); }},
    };
    // clang-format on
    return columns;
}

std::vector<RecordColumn> columnsOf(const RecordedFrame& frame)
{
    std::vector<RecordColumn> columns = recordColumns();
    if (!frame.measures) return columns;
    columns.insert(columns.end(), measureColumns().begin(), measureColumns().end());
    return columns;
}

std::string recordRowJson(const RecordedFrame& frame)
{
    nlohmann::ordered_json line;
    for (const RecordColumn& column : columnsOf(frame)) {
        std::visit([&](auto value) { line[column.name] = value(frame); }, column.value);
    }
    line["missing_rows"] = rangesText(frame.frame.facts().missingRows);
    return line.dump();
}

std::string recordNoteJson(const Event& event)
{
    nlohmann::ordered_json line;
    line["event"] = nameOf(event.kind);
    line["time_ns"] = nanosecondsOf(event.time.utc);
    line["code"] = event.code;
    line["sub_code"] = event.subCode;
    line["readout"] = event.readout;
    line["text"] = event.text;
    return line.dump(-1, ' ', true, nlohmann::ordered_json::error_handler_t::replace);
}

HeaderOptions headerOf(const RecordedFrame& frame, const HeaderOptions& options)
{
    HeaderOptions header = options;
    if (!frame.measures) return header;
    for (const HeaderCard& card : cardsOf(*frame.measures)) {
        header.cards.push_back(card);
    }
    return header;
}

std::vector<HeaderCard> recordHeader(const Frame& first, const HeaderOptions& options)
{
    std::vector<HeaderCard> cards = makeHeader(first, options);
    cards.erase(std::remove_if(cards.begin(), cards.end(),
                               [](const HeaderCard& card) {
                                   return std::find(kOfOneFrame.begin(), kOfOneFrame.end(),
                                                    card.keyword) != kOfOneFrame.end();
                               }),
                cards.end());
    return cards;
}

} // namespace vxcam
