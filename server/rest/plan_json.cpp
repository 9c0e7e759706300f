#include "rest/plan_json.h"

#include <vxcamkit/duration.h>

#include <cmath>

namespace vxcam {

namespace {

using std::chrono::milliseconds;

[[noreturn]] void refuse(const std::string& text)
{
    throw Error(ErrorKind::Usage, text);
}

milliseconds timeOf(const std::string& name, const Json& json, const char* least = "0")
{
    if (json.is_string()) return parsedDuration(json.get<std::string>());
    if (!json.is_number()) refuse(name + ": seconds, or a text like \"500ms\"");
    constexpr double kMost = 4294967.295;
    const double seconds = json.get<double>();
    if (!(seconds >= 0 && seconds <= kMost)) refuse(name + ": " + least + " to 4294967.295 s");
    const double count = std::round(seconds * 1000);
    if (seconds > 0 && count < 1) refuse(name + ": cameras count in milliseconds");
    return milliseconds(static_cast<int64_t>(count));
}

Area areaOf(const Json& json)
{
    if (!json.is_object()) refuse("area: an object with column, row, columns and rows");
    Members members(json);
    Area area;
    area.column = members.takeInt("column", 0);
    area.row = members.takeInt("row", 0);
    area.columns = members.takeInt("columns", 0);
    area.rows = members.takeInt("rows", 0);
    members.requireEmpty();
    return area;
}

Json jsonOf(const Area& area)
{
    return {
        {"column", area.column}, {"row", area.row}, {"columns", area.columns}, {"rows", area.rows}};
}

template <class Enum>
Enum wordOf(const std::string& name, const std::string& word, std::initializer_list<Enum> all)
{
    std::string words;
    for (const Enum each : all) {
        if (word == nameOf(each)) return each;
        words += std::string(words.empty() ? "" : ", ") + nameOf(each);
    }
    refuse(name + ": one of " + words);
}

const char* nameOf(WhenFull what)
{
    return what == WhenFull::Wait ? "wait" : "drop";
}

WhenFull whenFullOf(const std::string& word)
{
    for (const WhenFull what : {WhenFull::Wait, WhenFull::DropNewest}) {
        if (word == nameOf(what)) return what;
    }
    refuse("when_full: one of wait, drop");
}

void takeGeometry(Members& members, Plan* plan)
{
    if (const Json area = members.take("area"); !area.is_null()) plan->area = areaOf(area);
    if (const Json regions = members.take("regions"); !regions.is_null()) {
        if (!regions.is_array()) refuse("regions: a list of areas");
        for (const Json& region : regions) {
            plan->regions.push_back(areaOf(region));
        }
    }
    if (const Json binning = members.take("binning"); !binning.is_null()) {
        if (!binning.is_array() || binning.size() != 2) refuse("binning: [columns, rows] of a bin");
        plan->binningX = intOf("binning", binning[0]);
        plan->binningY = intOf("binning", binning[1]);
        plan->kind = ReadoutKind::Binned;
    }
}

} // namespace

Plan planOf(const Json& json)
{
    Plan plan;
    Members members(json);
    takeGeometry(members, &plan);
    if (const Json bits = members.take("bits"); !bits.is_null()) {
        plan.bits = intOf("bits", bits);
        if (plan.kind == ReadoutKind::AsSet) plan.kind = ReadoutKind::Area;
    }
    plan.kind = wordOf(
        "kind", members.takeText("kind", nameOf(plan.kind)),
        {ReadoutKind::Area, ReadoutKind::Binned, ReadoutKind::MaskBinned, ReadoutKind::AsSet});
    plan.type = wordOf("type", members.takeText("type", nameOf(plan.type)),
                       {FrameType::Light, FrameType::Dark, FrameType::Bias, FrameType::Flat});
    if (const Json time = members.take("exposure"); !time.is_null()) {
        plan.exposure = timeOf("exposure", time);
    }
    if (const Json time = members.take("timeout"); !time.is_null()) {
        plan.timeout = timeOf("timeout", time, "more than 0");
    }
    plan.frames = members.takeInt("frames", plan.frames);
    plan.mode = members.takeInt("mode", plan.mode);
    if (plan.frames == 0) plan.whenFull = WhenFull::DropNewest;
    plan.whenFull = whenFullOf(members.takeText("when_full", nameOf(plan.whenFull)));
    members.requireEmpty();
    return plan;
}

Json planJson(const Plan& plan)
{
    Json json;
    json["kind"] = nameOf(plan.kind);
    json["type"] = nameOf(plan.type);
    if (plan.exposure) json["exposure"] = std::chrono::duration<double>(*plan.exposure).count();
    json["frames"] = plan.frames;
    if (plan.kind != ReadoutKind::Binned && plan.kind != ReadoutKind::MaskBinned) {
        json["bits"] = plan.bits; // bins have 32
    }
    if (plan.area) json["area"] = jsonOf(*plan.area);
    for (const Area& region : plan.regions) {
        json["regions"].push_back(jsonOf(region));
    }
    if (plan.binningX && plan.binningY) json["binning"] = {*plan.binningX, *plan.binningY};
    if (plan.mode != 0) json["mode"] = plan.mode;
    if (plan.timeout) json["timeout"] = std::chrono::duration<double>(*plan.timeout).count();
    json["when_full"] = nameOf(plan.whenFull);
    return json;
}

} // namespace vxcam
