#include "containers/pixel_crc.h"

#include <array>
#include <cstring>

#ifdef __x86_64__
#include <immintrin.h>
#endif

namespace vxcam {

namespace {

constexpr uint32_t kPolynomial = 0xEDB88320U; // its bits in reverse

constexpr std::array<uint32_t, 256> makeTable()
{
    std::array<uint32_t, 256> table{};
    for (uint32_t i = 0; i < table.size(); ++i) {
        uint32_t value = i;
        for (int bit = 0; bit < 8; ++bit) {
            value = (value >> 1U) ^ ((value & 1U) != 0 ? kPolynomial : 0U);
        }
        table[i] = value;
    }
    return table;
}

constexpr std::array<uint32_t, 256> kTable = makeTable();

uint32_t addBytes(uint32_t state, const unsigned char* from, size_t count)
{
    for (const unsigned char* const end = from + count; from != end; ++from) {
        state = kTable[(state ^ *from) & 0xFFU] ^ (state >> 8U);
    }
    return state;
}

#ifdef __x86_64__

constexpr size_t kLane = 16;          // bytes
constexpr size_t kStride = 4 * kLane; // that are taken at once

using Lane = __m128i;

#define VXCAM_CARRYLESS __attribute__((target("pclmul,sse4.1")))

VXCAM_CARRYLESS Lane load(const unsigned char* from)
{
    return _mm_loadu_si128(reinterpret_cast<const Lane*>(from));
}

// A lane moved behind `next`: both halves times what the distance makes of them.
VXCAM_CARRYLESS Lane folded(Lane lane, Lane powers, Lane next)
{
    const Lane low = _mm_clmulepi64_si128(lane, powers, 0x00);
    const Lane high = _mm_clmulepi64_si128(lane, powers, 0x11);
    return _mm_xor_si128(next, _mm_xor_si128(low, high));
}

// Bytes as a polynomial: four lanes are carried along, and what is left of them at the end is 16
// bytes with the same remainder, which the table divides. count is a multiple of the stride.
VXCAM_CARRYLESS uint32_t addStrides(uint32_t state, const unsigned char* from, size_t count)
{
    const Lane overFour = _mm_set_epi64x(0x1C6E41596, 0x154442BD4); // x^(512-32), x^(512+32)
    const Lane overOne = _mm_set_epi64x(0x0CCAA009E, 0x1751997D0);  // x^(128-32), x^(128+32)
    Lane lanes[4];
    for (size_t i = 0; i < 4; ++i) {
        lanes[i] = load(from + i * kLane);
    }
    lanes[0] = _mm_xor_si128(lanes[0], _mm_cvtsi32_si128(static_cast<int>(state)));
    for (size_t at = kStride; at < count; at += kStride) {
        for (size_t i = 0; i < 4; ++i) {
            lanes[i] = folded(lanes[i], overFour, load(from + at + i * kLane));
        }
    }
    for (size_t i = 1; i < 4; ++i) {
        lanes[i] = folded(lanes[i - 1], overOne, lanes[i]);
    }
    unsigned char rest[kLane];
    std::memcpy(rest, &lanes[3], sizeof rest);
    return addBytes(0, rest, sizeof rest);
}

#endif

} // namespace

uint32_t pixelCrc(const void* bytes, size_t count)
{
    const auto* from = static_cast<const unsigned char*>(bytes);
    uint32_t state = ~0U;
#ifdef __x86_64__
    static const bool isQuick =
        __builtin_cpu_supports("pclmul") != 0 && __builtin_cpu_supports("sse4.1") != 0;
    const size_t whole = count / kStride * kStride;
    if (isQuick && whole > 0) {
        state = addStrides(state, from, whole);
        from += whole;
        count -= whole;
    }
#endif
    return ~addBytes(state, from, count);
}

} // namespace vxcam
