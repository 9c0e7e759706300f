#include "cameras/frame_json.h"

#include "cameras/time_text.h"

namespace vxcam {

namespace {

Json jsonOf(const Area& area)
{
    return {
        {"column", area.column}, {"row", area.row}, {"columns", area.columns}, {"rows", area.rows}};
}

Json jsonOf(const std::optional<double>& number)
{
    return number ? Json(*number) : Json();
}

Json jsonOf(const FrameTimes& times)
{
    constexpr int kDecimals = 6;
    Json json;
    json["begin"] = timeText(times.begin, kDecimals);
    json["middle"] = timeText(times.middle, kDecimals);
    json["end"] = timeText(times.end, kDecimals);
    json["uncertainty"] = std::chrono::duration<double>(times.uncertainty).count();
    json["how"] = nameOf(times.how);
    json["synchronised"] = times.clock.synchronised;
    json["clock_error"] = std::chrono::duration<double>(times.clock.maximumError).count();
    return json;
}

} // namespace

Json frameJson(const Frame& frame)
{
    const FrameFacts& facts = frame.facts();
    Json json;
    json["number"] = facts.number;
    json["readout"] = facts.readout;
    json["kind"] = nameOf(facts.kind);
    json["type"] = nameOf(facts.type);
    json["bits"] = facts.bits;
    json["columns"] = facts.columns;
    json["rows"] = facts.rows;
    json["area"] = jsonOf(facts.area);
    for (const Area& region : facts.regions) { // where there are several
        json["regions"].push_back(jsonOf(region));
    }
    json["binning"] = {facts.binningX, facts.binningY};
    json["exposure"] = std::chrono::duration<double>(facts.exposure).count();
    json["sensor_temperature"] = jsonOf(facts.sensorTemperature);
    json["board_temperature"] = jsonOf(facts.boardTemperature);
    json["complete"] = frame.complete();
    json["packets"] = facts.packetsExpected;
    json["packets_missing"] = facts.packetsMissing;
    json["packets_misplaced"] = facts.packetsMisplaced;
    json["packets_damaged"] = facts.packetsDamaged;
    json["missing_rows"] = facts.missingRowsKnown ? Json(facts.missingRows) : Json();
    json["sum"] = frame.sum();
    json["dropped"] = facts.dropped;
    json["times"] = jsonOf(facts.times);
    json["complaints"] = Json::array();
    for (const Complaint& complaint : facts.complaints) {
        json["complaints"].push_back(
            {{"code", complaint.code}, {"sub_code", complaint.subCode}, {"text", complaint.text}});
    }
    return json;
}

} // namespace vxcam
