#include "grabbed.h"

#include "arguments.h"

#include <vxcamkit/header.h>

#include <nlohmann/json.hpp>

#include <cstdio>

namespace {

constexpr int gnTimeDecimals = 6; // as files have it

std::string Counted(uint32_t count, const char* one, const char* several)
{
    return std::to_string(count) + (count == 1 ? one : several);
}

nlohmann::ordered_json AreaDocument(const vxcam::Area& area)
{
    return {area.column, area.row, area.columns, area.rows};
}

nlohmann::ordered_json TimesDocument(const vxcam::FrameTimes& times)
{
    return {{"begin", vxcam::utcText(times.begin, gnTimeDecimals)},
            {"middle", vxcam::utcText(times.middle, gnTimeDecimals)},
            {"end", vxcam::utcText(times.end, gnTimeDecimals)},
            {"uncertainty_s", std::chrono::duration<double>(times.uncertainty).count()},
            {"how", vxcam::nameOf(times.how)},
            {"clock_synchronised", times.clock.synchronised}};
}

void AddTrouble(const vxcam::FrameFacts& facts, nlohmann::ordered_json* document)
{
    (*document)["complete"] = facts.complete();
    (*document)["packets"] = facts.packetsExpected;
    (*document)["packets_missing"] = facts.packetsMissing;
    if (!facts.complete()) {
        (*document)["packets_misplaced"] = facts.packetsMisplaced;
        (*document)["packets_damaged"] = facts.packetsDamaged;
        (*document)["missing_rows"] = nullptr;
        if (facts.missingRowsKnown) {
            (*document)["missing_rows"] = vxcam::rangesText(facts.missingRows);
        }
    }
    for (const vxcam::Complaint& complaint : facts.complaints) {
        (*document)["complaints"].push_back(
            {{"code", complaint.code}, {"sub_code", complaint.subCode}, {"text", complaint.text}});
    }
}

// What stars alone have is null without any.
nlohmann::ordered_json MeasuresDocument(const vxcam::Measures& measures)
{
    nlohmann::ordered_json document{
        {"mean", measures.mean},   {"median", measures.median},
        {"noise", measures.noise}, {"min", measures.least},
        {"max", measures.most},    {"saturated_pixels", measures.saturated},
        {"stars", measures.stars}, {"hfd", nullptr},
        {"fwhm", nullptr},         {"elongation", nullptr}};
    if (measures.hfd > 0) {
        document["hfd"] = measures.hfd;
        document["fwhm"] = measures.fwhm;
        document["elongation"] = measures.elongation;
    }
    return document;
}

std::string MeasuresText(const vxcam::Measures& measures)
{
    char text[240];
    std::snprintf(text, sizeof text, "median %.1f, noise %.2f, %llu pixels saturated, %zu stars",
                  measures.median, measures.noise,
                  static_cast<unsigned long long>(measures.saturated), measures.stars);
    std::string line = text;
    if (measures.hfd > 0) {
        std::snprintf(text, sizeof text, ": HFD %.2f, FWHM %.2f, elongation %.2f", measures.hfd,
                      measures.fwhm, measures.elongation);
        line += text;
    }
    return line;
}

} // namespace

nlohmann::ordered_json FrameDocument(const tsGrabbed& grabbed)
{
    const vxcam::FrameFacts& facts = grabbed.facts;
    nlohmann::ordered_json document;
    document["file"] = grabbed.file;
    if (!grabbed.preview.empty()) document["preview"] = grabbed.preview;
    document["frame"] = facts.number;
    document["columns"] = facts.columns;
    document["rows"] = facts.rows;
    document["bits"] = facts.bits;
    document["area"] = AreaDocument(facts.area);
    for (const vxcam::Area& region : facts.regions) {
        document["regions"].push_back(AreaDocument(region));
    }
    document["sum"] = grabbed.figures.sum;
    if (facts.trueSum) document["sim_sum"] = *facts.trueSum;
    document["mean"] = grabbed.figures.mean;
    document["min"] = grabbed.figures.least;
    document["max"] = grabbed.figures.most;
    document["camera_statistic"] = facts.statistic;
    if (grabbed.measures) document["measures"] = MeasuresDocument(*grabbed.measures);
    AddTrouble(facts, &document);
    document["temperature_c"] = nullptr;
    if (facts.sensorTemperature) document["temperature_c"] = *facts.sensorTemperature;
    document["date_obs"] = vxcam::utcText(facts.times.begin, gnTimeDecimals);
    document["times"] = TimesDocument(facts.times);
    if (!grabbed.warnings.empty()) document["warnings"] = grabbed.warnings;
    return document;
}

std::string MissingText(const vxcam::FrameFacts& facts)
{
    std::vector<std::string> parts;
    if (facts.packetsMissing > 0) {
        parts.push_back(std::to_string(facts.packetsMissing) + " of " +
                        std::to_string(facts.packetsExpected) + " packets are missing");
    }
    if (facts.packetsMisplaced > 0) {
        parts.push_back(Counted(facts.packetsMisplaced, " packet lies outside the image",
                                " packets lie outside the image"));
    }
    if (facts.packetsDamaged > 0) {
        parts.push_back(
            Counted(facts.packetsDamaged, " packet is damaged", " packets are damaged"));
    }
    std::string text;
    for (const std::string& part : parts) {
        text += (text.empty() ? "" : ", ") + part;
    }
    return text;
}

std::string FrameText(const tsGrabbed& grabbed)
{
    const vxcam::FrameFacts& facts = grabbed.facts;
    const auto exposure = std::chrono::duration_cast<std::chrono::milliseconds>(facts.exposure);
    char figures[160];
    std::snprintf(figures, sizeof figures, "mean %.1f, min %u, max %u, sum %llu",
                  grabbed.figures.mean, grabbed.figures.least, grabbed.figures.most,
                  static_cast<unsigned long long>(grabbed.figures.sum));
    std::string text = grabbed.file + ": " + std::to_string(facts.columns) + " x " +
                       std::to_string(facts.rows) + " pixels, " + DurationText(exposure);
    if (facts.sensorTemperature) {
        char temperature[48];
        std::snprintf(temperature, sizeof temperature, " at %.1f C", *facts.sensorTemperature);
        text += temperature;
    }
    text += std::string("\n  ") + figures;
    if (facts.trueSum) {
        text += *facts.trueSum == grabbed.figures.sum
                    ? " (the camera's own sum is the same)"
                    : " (the camera's own sum is " + std::to_string(*facts.trueSum) + ")";
    }
    if (grabbed.measures) text += "\n  " + MeasuresText(*grabbed.measures);
    if (!facts.complete()) text += "\n  incomplete: " + MissingText(facts);
    if (!grabbed.preview.empty()) text += "\n  preview in " + grabbed.preview;
    return text;
}
