#include "CrcCalc.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace {

using tBytes = std::vector<unsigned char>;

struct tsParameters {
    uint32_t Poly, Init, XorOut;
    unsigned char Reflected, Width;
};

const std::vector<tsParameters> aPresets = {
    {0x1021, 0xFFFF, 0, 0, 16},
    {0x04C11DB7, 0xFFFFFFFF, 0xFFFFFFFF, 1, 32},
    {0x04C11DB7, 0xFFFFFFFF, 0, 1, 32},
    {0x8408, 0, 0, 1, 16},
    {0x1021, 0, 0, 0, 16},
    {0x04C11DB7, 0xFFFFFFFF, 0xFFFFFFFF, 1, 32},
};

uint32_t Mirror(uint32_t value, int bits)
{
    uint32_t result = 0;
    for (int i = 0; i < bits; ++i) {
        if ((value >> i) & 1) result |= uint32_t{1} << (bits - 1 - i);
    }
    return result;
}

// The rule taken byte by byte, its table entry computed afresh each time.
uint32_t Naive(const tsParameters& p, uint32_t crc, const unsigned char* bytes, size_t n)
{
    auto entry = [&p](uint32_t i) {
        uint32_t r = (p.Reflected ? Mirror(i, 8) : i) << (p.Width - 8);
        for (int k = 0; k < 8; ++k) {
            r = (r >> (p.Width - 1)) & 1 ? (r * 2) ^ p.Poly : r * 2;
        }
        return p.Reflected ? Mirror(r, p.Width) : r;
    };
    uint32_t reg = crc ^ p.XorOut;
    for (size_t i = 0; i < n; ++i) {
        if (p.Reflected) {
            reg = entry((reg ^ bytes[i]) & 0xFF) ^ (reg >> 8);
        } else {
            reg = entry(((reg >> (p.Width - 8)) ^ bytes[i]) & 0xFF) ^ (reg << 8);
        }
    }
    return reg ^ p.XorOut;
}

std::vector<tsParameters> AllParameters()
{
    std::vector<tsParameters> all = aPresets;
    all.push_back({0x07, 0, 0x55, 0, 8});
    all.push_back({0x31, 0, 0, 1, 8});
    all.push_back({0x80F, 0, 0, 0, 12});
    all.push_back({0x864CFB, 0xB704CE, 0, 0, 24});
    all.push_back({0x04C11DB7, 0xFFFFFFFF, 0xFFFFFFFF, 0, 32});
    all.push_back({0x1021, 0xFFFF, 0xFFFF, 1, 16});
    return all;
}

unsigned OfDigits(int preset)
{
    CrcCalc calc(static_cast<Crst>(preset));
    return calc.Add(calc.Init(), "123456789");
}

} // namespace

TEST(CrcCalc, GivesThePublishedCheckValues)
{
    EXPECT_EQ(OfDigits(0) & 0xFFFF, 0x29B1u);
    EXPECT_EQ(OfDigits(1), 0xCBF43926u);
    EXPECT_EQ(OfDigits(2), 0x340BC6D9u);
    EXPECT_EQ(OfDigits(4) & 0xFFFF, 0x31C3u);
    EXPECT_EQ(OfDigits(5), 0xCBF43926u);
}

TEST(CrcCalc, ReflectsTheReversedPolynomialOnceMoreInPresetThree)
{
    const std::string digits = "123456789";
    const unsigned expected =
        Naive(aPresets[3], 0, reinterpret_cast<const unsigned char*>(digits.data()), digits.size());
    EXPECT_EQ(OfDigits(3), expected);
    CrcCalc usual(0x1021, 0, 0, 1, 16);
    EXPECT_NE(OfDigits(3), usual.Add(usual.Init(), "123456789"));
}

TEST(CrcCalc, LeavesBitsAboveAnUnreflectedWidth)
{
    const std::string digits = "123456789";
    for (int preset : {0, 4}) {
        const tsParameters& row = aPresets[static_cast<size_t>(preset)];
        const auto* bytes = reinterpret_cast<const unsigned char*>(digits.data());
        EXPECT_EQ(OfDigits(preset), Naive(row, row.Init, bytes, digits.size()));
        EXPECT_NE(OfDigits(preset) >> 16, 0u);
    }
}

TEST(CrcCalc, StartsFromTheInitialValue)
{
    const unsigned expected[] = {0xFFFF, 0, 0xFFFFFFFF, 0, 0, 0};
    for (int preset = 0; preset < 6; ++preset) {
        CrcCalc calc(static_cast<Crst>(preset));
        EXPECT_EQ(calc.Init(), expected[preset]) << preset;
    }
    CrcCalc reflected(0x1021, 0x0001, 0x00FF, 1, 16);
    EXPECT_EQ(reflected.Init(), 0x8000u ^ 0x00FFu);
    CrcCalc normal(0x1021, 0x0001, 0x00FF, 0, 16);
    EXPECT_EQ(normal.Init(), 0x0001u ^ 0x00FFu);
}

TEST(CrcCalc, ChainsTextsBytesAndBlocks)
{
    for (int preset = 0; preset < 6; ++preset) {
        CrcCalc calc(static_cast<Crst>(preset));
        EXPECT_EQ(calc.Add(calc.Add(calc.Init(), "1234"), "56789"), OfDigits(preset));
        char text[] = "12";
        unsigned crc = calc.Add(calc.Init(), text);
        for (char digit : std::string("345")) {
            crc = calc.Add(crc, static_cast<unsigned char>(digit));
        }
        EXPECT_EQ(calc.Add(crc, PData{4, "6789"}), OfDigits(preset));
    }
}

TEST(CrcCalc, LeavesTheValueForEmptyInput)
{
    for (int preset = 0; preset < 6; ++preset) {
        CrcCalc calc(static_cast<Crst>(preset));
        EXPECT_EQ(calc.Add(0x12345678u, ""), 0x12345678u);
        EXPECT_EQ(calc.Add(0x12345678u, PData{0, "abc"}), 0x12345678u);
        EXPECT_EQ(calc.Add(0x12345678u, PData{5, nullptr}), 0x12345678u);
        EXPECT_EQ(calc.Add(0x12345678u, static_cast<const char*>(nullptr)), 0x12345678u);
    }
}

TEST(CrcCalc, AgreesWithTheByteRuleForEverySplitOfRandomBlocks)
{
    std::mt19937 engine(1);
    for (const tsParameters& p : AllParameters()) {
        CrcCalc calc(p.Poly, p.Init, p.XorOut, p.Reflected, p.Width);
        for (size_t n : {0u, 1u, 7u, 8u, 9u, 15u, 16u, 17u, 31u, 64u, 101u}) {
            tBytes block(n);
            for (unsigned char& byte : block) {
                byte = static_cast<unsigned char>(engine());
            }
            const uint32_t start = engine(); // any register, high bits included
            const uint32_t expected = Naive(p, start, block.data(), n);
            for (size_t cut = 0; cut <= n; ++cut) {
                const uint32_t half = calc.Add(start, PData{cut, block.data()});
                ASSERT_EQ(half, Naive(p, start, block.data(), cut));
                ASSERT_EQ(calc.Add(half, PData{n - cut, block.data() + cut}), expected);
            }
        }
    }
}

TEST(CrcCalc, AgreesWithTheByteRuleForEveryByte)
{
    for (const tsParameters& p : AllParameters()) {
        CrcCalc calc(p.Poly, p.Init, p.XorOut, p.Reflected, p.Width);
        for (unsigned i = 0; i < 256; ++i) {
            const auto byte = static_cast<unsigned char>(i);
            ASSERT_EQ(calc.Add(0xA5C3F00Du, byte), Naive(p, 0xA5C3F00Du, &byte, 1));
        }
    }
}

TEST(CrcCalc, TakesNewParameters)
{
    CrcCalc calc(static_cast<Crst>(0));
    calc.InitCalc(0x04C11DB7, 0xFFFFFFFF, 0xFFFFFFFF, 1, 32);
    EXPECT_EQ(calc.Add(calc.Init(), "123456789"), 0xCBF43926u);
}

TEST(CrcCalc, SurvivesWhatIsNoPresetOrWidth)
{
    CrcCalc none(static_cast<Crst>(6));
    none.Add(none.Init(), "0123456789");
    for (unsigned char width : {0, 1, 7, 33, 255}) {
        CrcCalc calc(0x1021, 0xFFFF, 0, 0, width);
        calc.Add(calc.Init(), "0123456789");
        CrcCalc reflected(0x1021, 0xFFFF, 0, 1, width);
        reflected.Add(reflected.Init(), "0123456789");
    }
}

TEST(Reflect, ReversesTheLowBits)
{
    EXPECT_EQ(Reflect(1, 8), 0x80u);
    EXPECT_EQ(Reflect(0x1021, 16), 0x8408u);
    EXPECT_EQ(Reflect(0x04C11DB7, 32), 0xEDB88320u);
    EXPECT_EQ(Reflect(6, 3), 3u);
}

TEST(Reflect, ClearsTheHigherBits)
{
    EXPECT_EQ(Reflect(0xFFFFFFFF, 4), 0xFu);
    EXPECT_EQ(Reflect(0xFF00, 8), 0u);
}

TEST(Reflect, OfNoBitsIsZero)
{
    EXPECT_EQ(Reflect(0xFFFFFFFF, 0), 0u);
}

TEST(Reflect, TwiceIsTheLowBitsAgain)
{
    for (char bits = 1; bits <= 32; ++bits) {
        const uint32_t mask = bits == 32 ? 0xFFFFFFFF : (uint32_t{1} << bits) - 1;
        EXPECT_EQ(Reflect(Reflect(0x9E3779B9, bits), bits), 0x9E3779B9 & mask) << int{bits};
    }
}
