#include "fits/fits_words.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace vxcam {

namespace {

// Around the places where loops take several numbers at once.
constexpr size_t kCounts[] = {1,    2,    3,    4,    5,     31,    33,    1023,
                              1025, 8191, 8192, 8193, 16383, 16384, 16385, 30001};

using Bytes = std::vector<uint8_t>;

// Word by word, as the standard of FITS files has it.
uint32_t plainSum(Bytes bytes)
{
    bytes.resize((bytes.size() + 3) / 4 * 4);
    uint64_t sum = 0;
    for (size_t i = 0; i < bytes.size(); i += 4) {
        sum += uint32_t{bytes[i]} << 24U | uint32_t{bytes[i + 1]} << 16U |
               uint32_t{bytes[i + 2]} << 8U | uint32_t{bytes[i + 3]};
        if (sum >> 32U != 0) sum = (sum & 0xFFFFFFFFU) + 1;
    }
    return static_cast<uint32_t>(sum);
}

// Byte by byte, the highest first.
template <class Pixel>
Bytes plainWords(const std::vector<Pixel>& pixels, Pixel flip)
{
    Bytes bytes;
    for (const Pixel pixel : pixels) {
        for (size_t byte = sizeof pixel; byte-- > 0;) {
            bytes.push_back(static_cast<uint8_t>(uint64_t(pixel ^ flip) >> (8 * byte)));
        }
    }
    return bytes;
}

template <class Pixel>
void expectWords(const std::vector<Pixel>& pixels, Pixel flip)
{
    std::vector<Pixel> words(pixels.size() + 1, 77);
    uint32_t sum = 0;
    if constexpr (sizeof(Pixel) == sizeof(uint32_t)) {
        sum = encodeWords(pixels.data(), pixels.size(), words.data(), flip != 0);
    } else {
        sum = encodeWords(pixels.data(), pixels.size(), words.data());
    }
    EXPECT_EQ(words.back(), 77);
    const auto* const first = reinterpret_cast<const uint8_t*>(words.data());
    const Bytes bytes(first, first + pixels.size() * sizeof(Pixel)),
        plain = plainWords(pixels, flip);
    EXPECT_TRUE(bytes == plain) << pixels.size();
    EXPECT_EQ(sum, plainSum(plain)) << pixels.size();
    EXPECT_EQ(sum, fitsSum(bytes.data(), bytes.size()));
}

template <class Pixel>
void expectAll(Pixel flip)
{
    std::mt19937 random(7);
    for (const size_t count : kCounts) {
        std::vector<Pixel> pixels(count);
        expectWords(pixels, flip);
        std::fill(pixels.begin(), pixels.end(), static_cast<Pixel>(~0U));
        expectWords(pixels, flip);
        std::fill(pixels.begin(), pixels.end(), flip);
        expectWords(pixels, flip);
        for (Pixel& pixel : pixels) {
            pixel = static_cast<Pixel>(random());
        }
        expectWords(pixels, flip);
    }
}

} // namespace

TEST(FitsWords, AreThePixelsWithTheHighestByteFirst)
{
    expectAll<uint8_t>(0);
    expectAll<uint16_t>(0x8000U);
    expectAll<uint32_t>(0);
    expectAll<uint32_t>(0x80000000U);
}

TEST(FitsWords, AreAddedUpFromAnyPlaceAndOfAnyNumber)
{
    std::mt19937 random(8);
    Bytes bytes(5000);
    for (uint8_t& byte : bytes) {
        byte = static_cast<uint8_t>(random() | 0xC0U);
    }
    for (size_t first = 0; first < 8; ++first) {
        for (const size_t count : {0, 1, 2, 3, 4, 5, 1023, 1024, 1025, 4096, 4099}) {
            const auto from = bytes.begin() + static_cast<long>(first);
            EXPECT_EQ(fitsSum(bytes.data() + first, count),
                      plainSum(Bytes(from, from + static_cast<long>(count))));
        }
    }
}

} // namespace vxcam
