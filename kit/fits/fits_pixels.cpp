#include "fits/fits_pixels.h"

#include "fits/fits_words.h"

#include <algorithm>
#include <limits>
#include <vector>

namespace vxcam {

namespace {

constexpr size_t kCandidates = 1 << 16; // numbers that are looked at for one that is free
constexpr uint32_t kTop32 = 0x80000000U;
constexpr int64_t kZero16 = 0x8000, kZero32 = 0x80000000;

// Calls use(pixels, columns) for each row that came whole.
template <class Pixel, class Use>
void eachWholeRow(const Frame& frame, Use use)
{
    const std::vector<int>& missing = frame.facts().missingRows;
    const auto columns = static_cast<size_t>(frame.columns());
    auto next = missing.begin();
    for (int row = 0; row < frame.rows(); ++row) {
        while (next != missing.end() && *next < row) {
            ++next;
        }
        if (next != missing.end() && *next == row) continue;
        use(frame.pixels<Pixel>().data() + static_cast<size_t>(row) * columns, columns);
    }
}

// A value that no pixel of a whole row has: 0, as the others are already, or else the highest one.
template <class Pixel>
std::optional<int64_t> freeValue(const Frame& frame)
{
    constexpr uint64_t most = std::numeric_limits<Pixel>::max();
    constexpr uint64_t first = most >= kCandidates ? most - kCandidates + 1 : 0;
    std::vector<bool> isTaken(most - first + 1);
    bool isZeroTaken = false;
    eachWholeRow<Pixel>(frame, [&](const Pixel* pixels, size_t count) {
        for (size_t i = 0; i < count; ++i) {
            isZeroTaken = isZeroTaken || pixels[i] == 0;
            if (pixels[i] >= first) isTaken[pixels[i] - first] = true;
        }
    });
    if (!isZeroTaken) return 0;
    for (uint64_t value = most; value > first; --value) {
        if (!isTaken[value - first]) return static_cast<int64_t>(value);
    }
    return std::nullopt;
}

std::optional<int64_t> freeValue(const Frame& frame)
{
    if (frame.facts().missingRows.empty()) return std::nullopt;
    if (frame.bits() == 8) return freeValue<uint8_t>(frame);
    if (frame.bits() == 16) return freeValue<uint16_t>(frame);
    return freeValue<uint32_t>(frame);
}

bool hasLargePixels(const Frame& frame)
{
    uint32_t all = 0;
    for (const uint32_t pixel : frame.pixels<uint32_t>()) {
        all |= pixel;
    }
    return (all & kTop32) != 0;
}

template <class Pixel>
void fillRows(const Frame& frame, const FitsPixels& how, Pixel number, Pixel* to)
{
    if (!how.blank) return;
    const auto columns = static_cast<size_t>(frame.columns());
    for (const int row : frame.facts().missingRows) {
        if (row < 0 || row >= frame.rows()) continue;
        std::fill_n(to + static_cast<size_t>(row) * columns, columns, number);
    }
}

} // namespace

FitsPixels fitsPixelsOf(const Frame& frame)
{
    FitsPixels how;
    how.bits = frame.bits();
    const bool isLarge = frame.bits() == 32 && hasLargePixels(frame);
    if (frame.bits() == 16) how.zero = kZero16;
    if (isLarge) how.zero = kZero32;
    if (frame.bits() == 32 && !isLarge && !frame.facts().missingRows.empty()) {
        how.blank = std::numeric_limits<int32_t>::min();
    } else if (const std::optional<int64_t> value = freeValue(frame)) {
        how.blank = *value - how.zero;
    }
    return how;
}

uint32_t encodePixels(const Frame& frame, const FitsPixels& how, void* to)
{
    const int64_t blank = how.blank.value_or(0);
    uint32_t sum = 0;
    if (how.bits == 8) {
        auto* const bytes = static_cast<uint8_t*>(to);
        sum = encodeWords(frame.pixels<uint8_t>().data(), frame.pixels<uint8_t>().size(), bytes);
        fillRows(frame, how, static_cast<uint8_t>(blank), bytes);
    } else if (how.bits == 16) {
        auto* const words = static_cast<uint16_t*>(to);
        sum = encodeWords(frame.pixels<uint16_t>().data(), frame.pixels<uint16_t>().size(), words);
        fillRows(frame, how, __builtin_bswap16(static_cast<uint16_t>(blank)), words);
    } else {
        auto* const words = static_cast<uint32_t*>(to);
        sum = encodeWords(frame.pixels<uint32_t>().data(), frame.pixels<uint32_t>().size(), words,
                          how.zero != 0);
        fillRows(frame, how, __builtin_bswap32(static_cast<uint32_t>(blank)), words);
    }
    return how.blank ? fitsSum(to, frame.bytes()) : sum;
}

} // namespace vxcam
