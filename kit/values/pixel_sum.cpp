#include "values/pixel_sum.h"

#include <iterator>
#include <numeric>
#include <type_traits>

#ifdef __x86_64__
#include <immintrin.h>
#endif

namespace vxcam {

namespace {

// Batches of this size do not overflow, and compilers add up several pixels at once.
constexpr size_t kBatch = 4096;

template <class Pixel>
uint64_t sumOf(const Pixel* pixels, size_t count)
{
    using Batch = std::conditional_t<sizeof(Pixel) < sizeof(uint32_t), uint32_t, uint64_t>;
    uint64_t sum = 0;
    for (; count >= kBatch; count -= kBatch) {
        Batch part = 0;
        for (size_t i = 0; i < kBatch; ++i) {
            part += pixels[i];
        }
        sum += part;
        pixels += kBatch;
    }
    return std::accumulate(pixels, pixels + count, sum);
}

#ifdef __x86_64__

#define VXCAM_WIDE __attribute__((target("avx2")))

// Pairs of pixels less 0x8000, with which they have a sign. count is a multiple of the batch.
VXCAM_WIDE uint64_t sumWide(const uint16_t* pixels, size_t count)
{
    constexpr size_t lane = sizeof(__m256i) / sizeof(uint16_t);
    const __m256i half = _mm256_set1_epi16(INT16_MIN), one = _mm256_set1_epi16(1);
    int64_t sum = static_cast<int64_t>(count) * 0x8000;
    for (const uint16_t* const end = pixels + count; pixels != end; pixels += kBatch) {
        __m256i parts[2] = {_mm256_setzero_si256(), _mm256_setzero_si256()};
        for (size_t i = 0; i < kBatch; i += 2 * lane) {
            for (size_t k = 0; k < 2; ++k) {
                const __m256i some =
                    _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pixels + i + k * lane));
                const __m256i pairs = _mm256_madd_epi16(_mm256_xor_si256(some, half), one);
                parts[k] = _mm256_add_epi32(parts[k], pairs);
            }
        }
        int32_t each[sizeof(__m256i) / sizeof(int32_t)];
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(each), _mm256_add_epi32(parts[0], parts[1]));
        sum = std::accumulate(std::begin(each), std::end(each), sum);
    }
    return static_cast<uint64_t>(sum);
}

#endif

} // namespace

uint64_t pixelSum(const uint8_t* pixels, size_t count)
{
    return sumOf(pixels, count);
}

uint64_t pixelSum(const uint16_t* pixels, size_t count)
{
#ifdef __x86_64__
    static const bool isWide = __builtin_cpu_supports("avx2") != 0;
    if (isWide) {
        const size_t whole = count / kBatch * kBatch;
        return sumWide(pixels, whole) + sumOf(pixels + whole, count - whole);
    }
#endif
    return sumOf(pixels, count);
}

uint64_t pixelSum(const uint32_t* pixels, size_t count)
{
    return sumOf(pixels, count);
}

} // namespace vxcam
