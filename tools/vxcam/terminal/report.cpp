#include "report.h"

#include "vxvisible.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

nlohmann::ordered_json FrameDocument(const tsWrittenFrame& written)
{
    const tsFrame& frame = written.frame;
    nlohmann::ordered_json document;
    document["file"] = written.file;
    if (!written.preview.empty()) document["preview"] = written.preview;
    document["frame"] = frame.index;
    document["columns"] = frame.area.columns;
    document["rows"] = frame.area.rows;
    document["bits"] = frame.bits;
    document["area"] = {frame.sensorArea.firstColumn, frame.sensorArea.firstRow,
                        frame.sensorArea.columns, frame.sensorArea.rows};
    document["sum"] = written.figures.sum;
    if (written.simulatorSum) document["sim_sum"] = *written.simulatorSum;
    document["mean"] = written.figures.mean;
    document["min"] = written.figures.minimum;
    document["max"] = written.figures.maximum;
    document["camera_statistic"] = frame.statistic;
    document["packets"] = frame.packets;
    document["packets_missing"] = frame.packetsMissing;
    document["temperature_c"] = nullptr;
    if (frame.temperature) document["temperature_c"] = *frame.temperature;
    document["date_obs"] = UtcText(frame.start);
    return document;
}

bool IsIncomplete(const tsFrame& frame)
{
    return frame.packetsMissing > 0 || frame.packets == 0;
}

std::string MissingText(const tsFrame& frame)
{
    return std::to_string(frame.packetsMissing) + " of " + std::to_string(frame.packets) +
           " packets are missing";
}

std::string FrameText(const tsWrittenFrame& written, std::chrono::milliseconds exposure)
{
    const tsFrame& frame = written.frame;
    char figures[160];
    std::snprintf(figures, sizeof figures, "mean %.1f, min %u, max %u, sum %llu",
                  written.figures.mean, written.figures.minimum, written.figures.maximum,
                  static_cast<unsigned long long>(written.figures.sum));
    std::string text = written.file + ": " + std::to_string(frame.area.columns) + " x " +
                       std::to_string(frame.area.rows) + " pixels, " + DurationText(exposure);
    if (frame.temperature) {
        char temperature[48];
        std::snprintf(temperature, sizeof temperature, " at %.1f C", *frame.temperature);
        text += temperature;
    }
    text += std::string("\n  ") + figures;
    if (written.simulatorSum) {
        text += *written.simulatorSum == written.figures.sum
                    ? " (the camera's own sum is the same)"
                    : " (the camera's own sum is " + std::to_string(*written.simulatorSum) + ")";
    }
    if (IsIncomplete(frame)) text += "\n  incomplete: " + MissingText(frame);
    if (!written.preview.empty()) text += "\n  preview in " + written.preview;
    return text;
}

namespace {

// In lines, whatever words of a camera there are in it.
std::string VisibleLines(const std::string& text)
{
    std::string lines;
    for (size_t at = 0; at <= text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        lines += vx::Visible(std::string_view(text).substr(at, end - at)) + "\n";
        at = end + 1;
    }
    return lines;
}

// JSON itself escapes those of ASCII but one, and none beyond.
std::string WithoutControls(const std::string& json)
{
    std::string text;
    for (std::string_view rest = json; !rest.empty();) {
        const std::string_view character = vx::FirstCharacter(rest);
        rest.remove_prefix(character.size());
        char code[8];
        std::snprintf(code, sizeof code, "\\u%04x", static_cast<unsigned char>(character.back()));
        if (vx::IsControl(character) && character != "\n") {
            text += code;
        } else {
            text += character;
        }
    }
    return text;
}

// A file name may be any bytes; what is no UTF-8 in it is replaced.
std::string Dumped(const nlohmann::ordered_json& document, int indent)
{
    return WithoutControls(
        document.dump(indent, ' ', false, nlohmann::json::error_handler_t::replace));
}

} // namespace

void PrintLine(const std::string& text)
{
    if (std::fputs(VisibleLines(text).c_str(), stdout) < 0 || std::fflush(stdout) != 0) {
        throw tcFailure(eExitFile, std::string("standard output: ") + std::strerror(errno));
    }
}

std::string LineText(const nlohmann::ordered_json& document)
{
    return Dumped(document, -1);
}

void PrintDocument(const nlohmann::ordered_json& document)
{
    PrintLine(Dumped(document, 2));
}
