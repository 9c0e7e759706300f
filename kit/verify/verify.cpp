#include <vxcamkit/verify.h>

#include "containers/pixel_crc.h"
#include "verify/record_reader.h"
#include "verify/truth.h"

#include <vxcamkit/error.h>
#include <vxcamkit/recorder.h>

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <numeric>

namespace vxcam {

namespace {

constexpr size_t kMostFindings = 1000;
constexpr double kCardError = 5e-7; // of a number with six decimals

std::string of(int64_t number)
{
    return std::to_string(number);
}

template <class Pixel>
uint64_t sumOf(const std::vector<char>& pixels)
{
    uint64_t sum = 0;
    for (size_t at = 0; at + sizeof(Pixel) <= pixels.size(); at += sizeof(Pixel)) {
        Pixel pixel = 0;
        std::memcpy(&pixel, pixels.data() + at, sizeof pixel);
        sum += pixel;
    }
    return sum;
}

uint64_t sumOf(const std::vector<char>& pixels, int bits)
{
    if (bits == 8) return sumOf<uint8_t>(pixels);
    return bits == 16 ? sumOf<uint16_t>(pixels) : sumOf<uint32_t>(pixels);
}

// Looks at one record, frame by frame.
class Verifier
{
public:
    explicit Verifier(ReadRecord* record) : record_(*record) {}

    void checkWhole();
    void checkFrame(size_t at, bool isRead, const std::vector<char>& pixels);

private:
    void find(const char* check, const std::string& text) { record_.find(check, text, frame_); }
    void checkPixels(const ReadRow& row, const std::vector<char>& pixels);
    void checkRows(const ReadRow& row, const std::vector<char>& pixels);
    void checkFlags(const ReadRow& row);
    void checkOrder(const ReadRow& row, const ReadRow& before);
    void checkTimes(const ReadRow& row);
    void checkHeader(const ReadRow& row);

    ReadRecord& record_;
    int64_t frame_ = -1;
};

void Verifier::checkWhole()
{
    if (record_.ended == "running") {
        record_.find("ended", "it still runs, or its process was killed");
    } else if (record_.ended == "failed") {
        record_.find("ended", "it ended since something failed");
    }
    if (!record_.frames.empty() && record_.dropped >= 0 &&
        record_.dropped < record_.frames.back()["dropped"]) {
        record_.find("dropped", "fewer frames were dropped in all than before the last one");
    }
    const auto number = [](const nlohmann::json& object, const char* name) {
        const bool isThere =
            object.is_object() && object.contains(name) && object[name].is_number();
        return isThere ? object[name].get<double>() : std::nan("");
    };
    const double gain = number(record_.header, "GAIN"), set = number(record_.settings, "gain");
    if (gain != set && !std::isnan(gain) && !std::isnan(set)) {
        record_.find("header", "GAIN is not the gain of the properties");
    }
    const double card = number(record_.header, "EXPTIME"),
                 again = number(record_.header, "XPOSURE");
    if (std::abs(card - again) > kCardError) {
        record_.find("header", "EXPTIME and XPOSURE are not the same");
    }
}

void Verifier::checkPixels(const ReadRow& row, const std::vector<char>& pixels)
{
    const auto sum = static_cast<int64_t>(sumOf(pixels, record_.bits));
    if (row.has("sum") && sum != row["sum"]) {
        find("sum", "its pixels add up to " + of(sum) + ", and not to " + of(row["sum"]));
    }
    const int64_t crc = pixelCrc(pixels.data(), pixels.size());
    if (row.has("crc32") && crc != row["crc32"]) {
        find("crc", "its pixels have the check value " + of(crc) + ", and not " + of(row["crc32"]));
    }
    const bool isKnown = row.has("sim_sum") && row["sim_sum"] >= 0 && row["complete"] == 1;
    if (isKnown && row["sim_sum"] != row["sum"]) {
        find("sum", "the camera sent pixels that add up to " + of(row["sim_sum"]));
    }
}

void Verifier::checkRows(const ReadRow& row, const std::vector<char>& pixels)
{
    const auto count = static_cast<int64_t>(row.missingRows.size());
    if (!row.areRowsCut && row.has("missing_rows_count") && count != row["missing_rows_count"]) {
        find("rows", of(count) + " rows are listed as missing, and " +
                         of(row["missing_rows_count"]) + " counted");
    }
    const size_t width = record_.frameBytes() / static_cast<size_t>(record_.rows);
    for (const int missing : row.missingRows) {
        if (missing < 0 || missing >= record_.rows) {
            find("rows", "row " + of(missing) + " is missing, and there is none such");
            continue;
        }
        if (pixels.empty()) continue;
        const auto begin = pixels.begin() + static_cast<std::ptrdiff_t>(width * size_t(missing));
        if (std::any_of(begin, begin + static_cast<std::ptrdiff_t>(width),
                        [](char byte) { return byte != 0; })) {
            find("rows", "row " + of(missing) + " is missing, and is not 0");
        }
    }
}

void Verifier::checkFlags(const ReadRow& row)
{
    const int64_t trouble =
        row["packets_missing"] + row["packets_misplaced"] + row["packets_damaged"];
    if ((row["complete"] == 1) != (trouble == 0)) {
        find("complete", "it says that it is " +
                             std::string(row["complete"] == 1 ? "complete" : "incomplete") +
                             ", and " + of(trouble) + " packets are missing or wrong");
    }
    if (row["complete"] == 1 && row["missing_rows_count"] > 0) {
        find("complete", "it says that it is complete, and that rows are missing");
    }
    if (row["packets_missing"] > row["packets"]) {
        find("complete", "more packets are missing than it has");
    }
}

void Verifier::checkOrder(const ReadRow& row, const ReadRow& before)
{
    if (row["index"] != before["index"] + 1) {
        find("index", "it has the index " + of(row["index"]) + " behind " + of(before["index"]));
    }
    if (row["dropped"] < before["dropped"]) {
        find("dropped", "fewer frames were dropped before it than before the last one");
    }
    if (row["readout"] < before["readout"]) {
        find("number",
             "it is of readout " + of(row["readout"]) + " behind one of " + of(before["readout"]));
    }
    if (row["readout"] != before["readout"]) return;
    const int64_t dropped = row["dropped"] - before["dropped"];
    const int64_t gap = row["number"] - before["number"] - 1;
    if (gap != dropped) {
        find("number", "it is frame " + of(row["number"]) + " behind " + of(before["number"]) +
                           ", and " + of(dropped) + " were dropped between them");
    }
    const int64_t unsure = row["uncertainty_ns"] + before["uncertainty_ns"];
    if (row["begin_ns"] + unsure < before["begin_ns"])
        find("times", "it begins before the last one");
}

void Verifier::checkTimes(const ReadRow& row)
{
    if (!row.has("begin_ns") || row["begin_ns"] == 0) return;
    if (row["begin_ns"] > row["middle_ns"] || row["middle_ns"] > row["end_ns"]) {
        find("times", "begin, middle and end do not follow each other");
    }
    if (row["uncertainty_ns"] < 0) find("times", "its uncertainty is below 0");
}

void Verifier::checkHeader(const ReadRow& row)
{
    const nlohmann::json& header = record_.header;
    if (!header.is_object() || !header.contains("EXPTIME") || !row.has("exposure_us")) return;
    if (!header["EXPTIME"].is_number()) return;
    const double seconds = static_cast<double>(row["exposure_us"]) / 1e6;
    if (std::abs(header["EXPTIME"].get<double>() - seconds) > kCardError) {
        find("header", "EXPTIME is not its exposure time");
    }
}

void Verifier::checkFrame(size_t at, bool isRead, const std::vector<char>& pixels)
{
    frame_ = static_cast<int64_t>(at);
    const ReadRow& row = record_.frames[at];
    if (!isRead) {
        find("file", "its pixels cannot be read");
    } else {
        checkPixels(row, pixels);
    }
    checkRows(row, isRead ? pixels : std::vector<char>());
    checkFlags(row);
    checkTimes(row);
    checkHeader(row);
    if (at > 0) checkOrder(row, record_.frames[at - 1]);
}

void requireContent(const std::string& path)
{
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        throw Error(ErrorKind::File, path + ": " + std::strerror(errno), errno);
    }
    if (S_ISDIR(status.st_mode)) throw Error(ErrorKind::File, path + ": is a folder", EISDIR);
    if (status.st_size == 0) throw Error(ErrorKind::File, path + ": is empty", EINVAL);
}

std::unique_ptr<PixelReader> readerOf(const std::string& path, ReadRecord* record)
{
    const std::optional<RecordFormat> format = recordFormatOf(path);
    if (!format) {
        throw Error(ErrorKind::Usage, path + ": the name says no format of records");
    }
    if (!isAvailable(*format)) {
        throw Error(ErrorKind::Usage, path + ": this kit was built without " + nameOf(*format));
    }
    record->format = nameOf(*format);
    requireContent(path);
    if (*format == RecordFormat::Fits) return readFits(path, record);
    if (*format == RecordFormat::Hdf5) return readHdf5(path, record);
    return readIndexed(path, record);
}

} // namespace

Verdict verifyRecord(const std::string& path, const VerifyOptions& options)
{
    ReadRecord record;
    const std::unique_ptr<PixelReader> reader = readerOf(path, &record);
    Verifier verifier(&record);
    std::vector<char> pixels;
    std::vector<uint32_t> crcs;
    for (size_t i = 0; i < record.frames.size(); ++i) {
        const bool isRead = reader->read(i, &pixels);
        verifier.checkFrame(i, isRead, pixels);
        crcs.push_back(isRead ? pixelCrc(pixels.data(), pixels.size()) : 0);
    }
    verifier.checkWhole();
    if (!options.truth.empty()) compareWithTruth(options.truth, crcs, &record);
    if (record.findings.size() > kMostFindings) record.findings.resize(kMostFindings);
    const auto incomplete =
        std::count_if(record.frames.begin(), record.frames.end(), [](const ReadRow& row) {
            return row.has("complete") && row["complete"] == 0;
        });
    return {path,         record.format,   record.frames.size(),
            record.ended, record.findings, static_cast<uint64_t>(incomplete)};
}

} // namespace vxcam
