#include "fits/fits_words.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <numeric>

#ifdef __x86_64__
#include <immintrin.h>
#endif

namespace vxcam {

namespace {

constexpr uint16_t kTop16 = 0x8000U;
constexpr uint32_t kTop32 = 0x80000000U;
constexpr size_t kBatch = 8192; // pixels that stay in the nearest cache until they are added up

uint32_t folded(uint64_t sum)
{
    while (sum >> 32U != 0) {
        sum = (sum & 0xFFFFFFFFU) + (sum >> 32U);
    }
    return static_cast<uint32_t>(sum);
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

// Batch after batch: encodeBatch(from, count, to).
template <class Pixel, class EncodeBatch>
uint32_t encodeAndSum(const Pixel* from, size_t count, Pixel* to, EncodeBatch encodeBatch)
{
    uint32_t sum = 0;
    for (size_t at = 0; at < count; at += kBatch) {
        const size_t some = std::min(kBatch, count - at);
        encodeBatch(from + at, some, to + at);
        sum = addFitsSums(sum, fitsSum(to + at, some * sizeof(Pixel)));
    }
    return sum;
}

#ifdef __x86_64__

#define VXCAM_WIDE __attribute__((target("avx2")))

VXCAM_WIDE uint64_t sumOf(__m256i parts)
{
    uint32_t each[sizeof parts / sizeof(uint32_t)];
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(each), parts);
    return std::accumulate(std::begin(each), std::end(each), uint64_t{0});
}

// Words are pairs of pixels: the first ones, which are their upper halves, are added up apart from
// the second ones. count is a multiple of the batch.
VXCAM_WIDE uint32_t encodeWide(const uint16_t* from, size_t count, uint16_t* to)
{
    constexpr size_t lane = sizeof(__m256i) / sizeof(uint16_t);
    const __m256i top = _mm256_set1_epi16(INT16_MIN), low = _mm256_set1_epi32(0xFFFF);
    const __m256i turned = _mm256_broadcastsi128_si256(
        _mm_setr_epi8(1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14));
    uint64_t firsts = 0, seconds = 0;
    for (const uint16_t* const end = from + count; from != end; from += kBatch, to += kBatch) {
        __m256i first = _mm256_setzero_si256(), second = first;
        for (size_t i = 0; i < kBatch; i += lane) {
            const __m256i numbers = _mm256_xor_si256(
                _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from + i)), top);
            first = _mm256_add_epi32(first, _mm256_and_si256(numbers, low));
            second = _mm256_add_epi32(second, _mm256_srli_epi32(numbers, 16));
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(to + i),
                                _mm256_shuffle_epi8(numbers, turned));
        }
        firsts += sumOf(first);
        seconds += sumOf(second);
    }
    return folded((firsts << 16U) + seconds);
}

#endif

} // namespace

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
    uint32_t last = 0;
    std::memcpy(&last, from, count);
    add(last & mask, last >> 8U & mask);
    return folded((first << 24U) + (second << 16U) + (third << 8U) + fourth);
}

uint32_t encodeWords(const uint8_t* from, size_t count, uint8_t* to)
{
    return encodeAndSum(from, count, to, [](auto... batch) { encode(batch...); });
}

uint32_t encodeWords(const uint16_t* from, size_t count, uint16_t* to)
{
    size_t whole = 0;
    uint32_t sum = 0;
#ifdef __x86_64__
    static const bool isWide = __builtin_cpu_supports("avx2") != 0;
    if (isWide) {
        whole = count / kBatch * kBatch;
        sum = encodeWide(from, whole, to);
    }
#endif
    const auto rest = [](auto... batch) { encode(batch...); };
    return addFitsSums(sum, encodeAndSum(from + whole, count - whole, to + whole, rest));
}

uint32_t encodeWords(const uint32_t* from, size_t count, uint32_t* to, bool isShifted)
{
    const uint32_t flip = isShifted ? kTop32 : 0;
    return encodeAndSum(from, count, to, [flip](auto... batch) { encode(batch..., flip); });
}

} // namespace vxcam
