#include "measure/pixel_tally.h"

#include <algorithm>
#include <iterator>
#include <numeric>

#ifdef __x86_64__
#include <immintrin.h>
#endif

namespace vxcam {

namespace {

constexpr size_t kBatch = 4096; // pixels, of which counters of 16 bits count each 16th

void add(const PixelTally& part, PixelTally* all)
{
    all->least = std::min(all->least, part.least);
    all->most = std::max(all->most, part.most);
    all->saturated += part.saturated;
    all->squares += part.squares;
}

template <class Pixel>
PixelTally tally(const Pixel* pixels, size_t count, Pixel limit)
{
    PixelTally all;
    for (size_t i = 0; i < count; ++i) {
        const Pixel pixel = pixels[i];
        const int32_t distance = pixel - kMiddle<Pixel>;
        all.least = std::min<uint32_t>(all.least, pixel);
        all.most = std::max<uint32_t>(all.most, pixel);
        all.saturated += pixel >= limit ? 1 : 0;
        all.squares += static_cast<uint32_t>(distance * distance);
    }
    return all;
}

#ifdef __x86_64__

#define VXCAM_WIDE __attribute__((target("avx2")))

// 16 pixels at a time.
struct WideTally {
    __m256i least, most, saturated, squares;
};

VXCAM_WIDE void addWide(const uint16_t* pixels, __m256i limit, WideTally* all)
{
    const __m256i middle = _mm256_set1_epi16(INT16_MIN), low = _mm256_set1_epi64x(UINT32_MAX);
    const __m256i some = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pixels));
    all->least = _mm256_min_epu16(all->least, some);
    all->most = _mm256_max_epu16(all->most, some);
    const __m256i isSaturated = _mm256_cmpeq_epi16(_mm256_max_epu16(some, limit), some);
    all->saturated = _mm256_sub_epi16(all->saturated, isSaturated);
    const __m256i distance = _mm256_xor_si256(some, middle); // signed
    const __m256i pairs = _mm256_madd_epi16(distance, distance);
    all->squares = _mm256_add_epi64(
        all->squares, _mm256_add_epi64(_mm256_and_si256(pairs, low), _mm256_srli_epi64(pairs, 32)));
}

// Of one batch.
VXCAM_WIDE PixelTally tallyWide(const uint16_t* pixels, uint16_t limit)
{
    constexpr size_t lane = sizeof(__m256i) / sizeof(uint16_t);
    WideTally wide{_mm256_set1_epi16(-1), _mm256_setzero_si256(), _mm256_setzero_si256(),
                   _mm256_setzero_si256()};
    const __m256i limits = _mm256_set1_epi16(static_cast<int16_t>(limit));
    for (size_t i = 0; i < kBatch; i += lane) {
        addWide(pixels + i, limits, &wide);
    }
    uint16_t least[lane], most[lane], saturated[lane];
    uint64_t squares[sizeof(__m256i) / sizeof(uint64_t)];
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(least), wide.least);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(most), wide.most);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(saturated), wide.saturated);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(squares), wide.squares);
    return {*std::min_element(std::begin(least), std::end(least)),
            *std::max_element(std::begin(most), std::end(most)),
            std::accumulate(std::begin(saturated), std::end(saturated), uint64_t{0}),
            std::accumulate(std::begin(squares), std::end(squares), uint64_t{0})};
}

#endif

} // namespace

PixelTally tallyOf(const uint8_t* pixels, size_t count, uint8_t limit)
{
    return tally(pixels, count, limit);
}

PixelTally tallyOf(const uint16_t* pixels, size_t count, uint16_t limit)
{
    PixelTally all;
#ifdef __x86_64__
    static const bool isWide = __builtin_cpu_supports("avx2") != 0;
    for (; isWide && count >= kBatch; count -= kBatch) {
        add(tallyWide(pixels, limit), &all);
        pixels += kBatch;
    }
#endif
    add(tally(pixels, count, limit), &all);
    return all;
}

} // namespace vxcam
