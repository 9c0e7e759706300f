// FITS files of one frame that follow each other.
#include <vxcamkit/verify.h>

#include "verify/fits_parts.h"
#include "verify/frame_cards.h"

#include <vxcamkit/error.h>

#include <optional>

namespace vxcam {

namespace {

constexpr size_t kMostDigits = 9;

// "night-0007.fits": what stands around the last number of a name, and that number.
struct Numbered {
    std::string before, behind;
    long number = 0;
};

std::optional<Numbered> numberOf(const std::string& path)
{
    constexpr const char* digits = "0123456789";
    const size_t last = path.find_last_of(digits, path.rfind('.'));
    if (last == std::string::npos || path.find('/', last) != std::string::npos) return std::nullopt;
    const size_t other = path.find_last_not_of(digits, last);
    const size_t first = other == std::string::npos ? 0 : other + 1;
    if (last + 1 - first > kMostDigits) return std::nullopt;
    return Numbered{path.substr(0, first), path.substr(last + 1),
                    std::stol(path.substr(first, last + 1 - first))};
}

bool isNext(const std::string& path, const std::string& before)
{
    const std::optional<Numbered> one = numberOf(path), other = numberOf(before);
    return one && other && one->before == other->before && one->behind == other->behind &&
           one->number == other->number + 1;
}

bool isOneFrame(const FitsPart& part)
{
    return part.number("NAXIS") == 2 && part.has("FRAMENO") && part.has("READOUT");
}

bool isSame(const FitsPart& one, const FitsPart& other, const char* word)
{
    return one.text(word) == other.text(word);
}

std::string nameOf(const ReadRow& row)
{
    return "frame " + std::to_string(row["number"]) + " of readout " +
           std::to_string(row["readout"]);
}

// A readout that begins anew has a frame 1.
void compareInReadout(const ReadRow& row, const ReadRow& before, std::vector<Finding>* findings)
{
    if (row["readout"] > before["readout"]) return;
    const int64_t dropped = row["dropped"] - before["dropped"];
    const int64_t gap = row["number"] - before["number"] - 1;
    if (row["readout"] < before["readout"] || gap != dropped) {
        findings->push_back({"number", 0,
                             "it is " + nameOf(row) + " behind " + nameOf(before) + ", and " +
                                 std::to_string(dropped) + " were dropped between them"});
    }
    if (!row.has("begin_ns") || !before.has("begin_ns")) return;
    const int64_t unsure = row["uncertainty_ns"] + before["uncertainty_ns"];
    if (row["begin_ns"] + unsure < before["begin_ns"]) {
        findings->push_back({"times", 0, "it begins before the last one"});
    }
}

} // namespace

std::vector<Finding> verifyOrder(const std::string& path, const std::string& before)
{
    std::vector<Finding> findings;
    if (!isNext(path, before)) return findings;
    try {
        const FitsParts one(path), other(before);
        const FitsPart &part = one.parts().front(), &last = other.parts().front();
        if (!isOneFrame(part) || !isOneFrame(last)) return findings;
        const ReadRow row = readFrameCards(part), lastRow = readFrameCards(last);
        if (part.has("SEQFRAME") && part.has("SEQID") && isSame(part, last, "SEQID")) {
            if (part.number("SEQFRAME") == last.number("SEQFRAME") + 1) return findings;
            findings.push_back({"index", 0,
                                "it is frame " + part.text("SEQFRAME") +
                                    " of the sequence behind " + last.text("SEQFRAME")});
            return findings;
        }
        if (row["number"] == lastRow["number"] && isSame(part, last, "READOUT") &&
            isSame(part, last, "DATE-OBS") && part.has("DATE-OBS")) {
            findings.push_back({"number", 0, "it is " + nameOf(row) + " again"});
            return findings;
        }
        const bool isReadout = isSame(part, last, "SERIAL") && isSame(part, last, "CAMADDR") &&
                               isSame(part, last, "NFRAMES") && row["number"] > 1;
        if (isReadout) compareInReadout(row, lastRow, &findings);
    } catch (const Error&) {
        // What cannot be read is told where each file is looked at.
    }
    return findings;
}

} // namespace vxcam
