#include "fits/fits_pixels.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <vector>

namespace vxcam {

namespace {

constexpr size_t kCandidates = 1 << 16; // numbers that are looked at for one that is free
constexpr uint32_t kTop32 = 0x80000000U;
constexpr uint16_t kTop16 = 0x8000U;
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

void encode(const uint8_t* from, size_t count, uint8_t* to)
{
    std::memcpy(to, from, count);
}

void encode(const uint16_t* from, size_t count, uint16_t* to)
{
    for (size_t i = 0; i < count; ++i) {
        to[i] = __builtin_bswap16(from[i] ^ kTop16);
    }
}

void encode(const uint32_t* from, size_t count, uint32_t* to, uint32_t flip)
{
    for (size_t i = 0; i < count; ++i) {
        to[i] = __builtin_bswap32(from[i] ^ flip);
    }
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

void encodePixels(const Frame& frame, const FitsPixels& how, void* to)
{
    const int64_t blank = how.blank.value_or(0);
    if (how.bits == 8) {
        auto* const bytes = static_cast<uint8_t*>(to);
        encode(frame.pixels<uint8_t>().data(), frame.pixels<uint8_t>().size(), bytes);
        fillRows(frame, how, static_cast<uint8_t>(blank), bytes);
    } else if (how.bits == 16) {
        auto* const words = static_cast<uint16_t*>(to);
        encode(frame.pixels<uint16_t>().data(), frame.pixels<uint16_t>().size(), words);
        fillRows(frame, how, __builtin_bswap16(static_cast<uint16_t>(blank)), words);
    } else {
        auto* const words = static_cast<uint32_t*>(to);
        encode(frame.pixels<uint32_t>().data(), frame.pixels<uint32_t>().size(), words,
               how.zero != 0 ? kTop32 : 0);
        fillRows(frame, how, __builtin_bswap32(static_cast<uint32_t>(blank)), words);
    }
}

uint32_t addFitsSums(uint32_t one, uint32_t other)
{
    const uint64_t sum = uint64_t{one} + other;
    return static_cast<uint32_t>(sum) + static_cast<uint32_t>(sum >> 32U);
}

// The four bytes of words are added apart, two sums in a number, so that compilers add up several
// words at once; batches of this size do not overflow.
uint32_t fitsSum(const void* bytes, size_t count)
{
    constexpr size_t batch = 256; // words
    constexpr uint32_t mask = 0x00FF00FFU;
    const auto* from = static_cast<const uint8_t*>(bytes);
    uint64_t first = 0, second = 0, third = 0, fourth = 0;
    const auto add = [&](uint32_t firstAndThird, uint32_t secondAndFourth) {
        first += firstAndThird & 0xFFFFU;
        third += firstAndThird >> 16U;
        second += secondAndFourth & 0xFFFFU;
        fourth += secondAndFourth >> 16U;
    };
    for (; count >= batch * sizeof(uint32_t); count -= batch * sizeof(uint32_t)) {
        uint32_t even = 0, odd = 0; // places of bytes, from 0
        for (size_t i = 0; i < batch; ++i) {
            uint32_t word = 0;
            std::memcpy(&word, from + i * sizeof word, sizeof word);
            even += word & mask;
            odd += word >> 8U & mask;
        }
        add(even, odd);
        from += batch * sizeof(uint32_t);
    }
    for (; count >= sizeof(uint32_t); count -= sizeof(uint32_t)) {
        uint32_t word = 0;
        std::memcpy(&word, from, sizeof word);
        add(word & mask, word >> 8U & mask);
        from += sizeof word;
    }
    uint64_t sum = (first << 24U) + (second << 16U) + (third << 8U) + fourth;
    while (sum >> 32U != 0) {
        sum = (sum & 0xFFFFFFFFU) + (sum >> 32U);
    }
    return static_cast<uint32_t>(sum);
}

} // namespace vxcam
