#include "verify/frame_cards.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <optional>

namespace vxcam {

namespace {

constexpr int64_t kSecond = 1'000'000'000;
constexpr int64_t kCardTime = 1000;     // ns: cards have six decimals
constexpr double kCardSeconds = 2.5e-6; // of two of them
constexpr double kCardDays = 1e-9;      // of a Julian date
constexpr double kUnixEpoch = 40587;    // as one
constexpr double kSecondsInDay = 86400;

// "2026-11-22T22:51:49.731520" since 1970, in ns.
std::optional<int64_t> nanosecondsOf(const std::string& text)
{
    std::tm time{};
    int read = 0;
    if (std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%n", &time.tm_year, &time.tm_mon,
                    &time.tm_mday, &time.tm_hour, &time.tm_min, &time.tm_sec, &read) != 6) {
        return std::nullopt;
    }
    time.tm_year -= 1900;
    time.tm_mon -= 1;
    const double rest =
        std::strtod(("0" + text.substr(static_cast<size_t>(read))).c_str(), nullptr);
    return ::timegm(&time) * kSecond + std::llround(rest * 1e9);
}

struct NamedCard {
    const char* word;
    const char* name;
};
constexpr NamedCard kNumbers[] = {{"FRAMENO", "number"},
                                  {"READOUT", "readout"},
                                  {"PIXSUM", "sum"},
                                  {"SIMSUM", "sim_sum"},
                                  {"NPACKETS", "packets"},
                                  {"NMISSING", "packets_missing"},
                                  {"NMISPLAC", "packets_misplaced"},
                                  {"NDAMAGED", "packets_damaged"},
                                  {"NDROPPED", "dropped"},
                                  {"NMISSROW", "missing_rows_count"}};
constexpr NamedCard kTimes[] = {
    {"DATE-OBS", "begin_ns"}, {"DATE-AVG", "middle_ns"}, {"DATE-END", "end_ns"}};

} // namespace

ReadRow readFrameCards(const FitsPart& part)
{
    ReadRow row;
    for (const NamedCard& card : kNumbers) {
        if (part.has(card.word)) row.numbers[card.name] = part.number(card.word);
    }
    // Without an end, the begin stands for nothing that could be compared.
    for (const NamedCard& card : kTimes) {
        const std::optional<int64_t> time = nanosecondsOf(part.text(card.word));
        if (time && part.has("DATE-END")) row.numbers[card.name] = *time;
    }
    if (part.has("EXPTIME")) {
        row.numbers["exposure_us"] = std::llround(part.real("EXPTIME") * 1e6);
    }
    if (part.has("TIMRDER")) {
        row.numbers["uncertainty_ns"] = std::llround(part.real("TIMRDER") * 1e9);
    }
    row.numbers["complete"] = part.text("COMPLETE") == "T" ? 1 : 0;
    row.areRowsCut = !part.has("NMISSROW") || !parseRanges(part.text("MISSROWS"), &row.missingRows);
    return row;
}

void checkTimeCards(const FitsPart& part, int64_t frame, ReadRecord* record)
{
    for (const std::string which : {"OBS", "BEG", "AVG", "END"}) {
        const std::optional<int64_t> time = nanosecondsOf(part.text("DATE-" + which));
        if (!time || !part.has("MJD-" + which)) continue;
        const double days = kUnixEpoch + static_cast<double>(*time) / 1e9 / kSecondsInDay;
        if (std::abs(part.real("MJD-" + which) - days) > kCardDays) {
            record->find("times",
                         std::string("MJD-").append(which).append(" is not DATE-") += which, frame);
        }
    }
    if (part.text("DATE-OBS") != part.text("DATE-BEG")) {
        record->find("times", "DATE-OBS and DATE-BEG are not the same", frame);
    }
    const std::optional<int64_t> begin = nanosecondsOf(part.text("DATE-OBS"));
    const std::optional<int64_t> end = nanosecondsOf(part.text("DATE-END"));
    if (!begin || !end || !part.has("TELAPSE")) return;
    const double seconds = static_cast<double>(*end - *begin) / 1e9;
    if (std::abs(part.real("TELAPSE") - seconds) > kCardSeconds) {
        record->find("times", "TELAPSE is not the time between its begin and its end", frame);
    }
}

void compareFrameCards(const FitsPart& part, const ReadRow& row, const char* where, int64_t frame,
                       ReadRecord* record)
{
    ReadRow cards = readFrameCards(part);
    if (!part.has("COMPLETE")) cards.numbers.erase("complete");
    for (const auto& [name, value] : cards.numbers) {
        if (!row.has(name.c_str())) continue;
        const bool isTime = name.size() > 3 && name.compare(name.size() - 3, 3, "_ns") == 0;
        if (std::abs(value - row[name.c_str()]) <= (isTime ? kCardTime : 0)) continue;
        record->find("header", std::string("its cards and ") + where + " say another " + name,
                     frame);
    }
}

} // namespace vxcam
