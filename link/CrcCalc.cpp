#include "CrcCalc.h"

#include <cstring>

namespace {

struct tsPreset {
    uint32_t Poly, Init, XorOut;
    uint8_t Reflect, Width;
};

constexpr tsPreset gaPresets[] = {
    {0x1021, 0xFFFF, 0, 0, 16},
    {0x04C11DB7, 0xFFFFFFFF, 0xFFFFFFFF, 1, 32},
    {0x04C11DB7, 0xFFFFFFFF, 0, 1, 32},
    {0x8408, 0, 0, 1, 16}, // Kept: the reversed polynomial, reflected once more
    {0x1021, 0, 0, 0, 16},
    {0x04C11DB7, 0xFFFFFFFF, 0xFFFFFFFF, 1, 32},
};

constexpr unsigned nPresets = sizeof(gaPresets) / sizeof(gaPresets[0]);
constexpr unsigned nMinWidth = 8;
constexpr unsigned nMaxWidth = 32;

// One entry of the table, in a register that is not masked to the width.
uint32_t TableEntry(uint32_t index, uint32_t polynomial, bool reflected, unsigned bits)
{
    const uint32_t top = uint32_t{1} << (bits - 1);
    uint32_t value = (reflected ? Reflect(index, 8) : index) << (bits - 8);
    for (int i = 0; i < 8; ++i) {
        value = (value & top) != 0 ? (value << 1) ^ polynomial : value << 1;
    }
    return reflected ? Reflect(value, static_cast<char>(bits)) : value;
}

} // namespace

CheckCalc::~CheckCalc() = default;
CrcCalc::~CrcCalc() = default;

CrcCalc::CrcCalc(Crst preset)
{
    const auto index = static_cast<unsigned>(preset);
    if (index >= nPresets) return;
    const tsPreset& row = gaPresets[index];
    InitCalc(row.Poly, row.Init, row.XorOut, row.Reflect, row.Width);
}

CrcCalc::CrcCalc(unsigned polynomial, unsigned start, unsigned finish, unsigned char reflected,
                 unsigned char bits)
{
    InitCalc(polynomial, start, finish, reflected, bits);
}

void CrcCalc::InitCalc(unsigned polynomial, unsigned start, unsigned finish,
                       unsigned char reflected, unsigned char bits)
{
    poly = polynomial;
    init = start;
    xorout = finish;
    reflect = reflected;
    width = bits;
    mnShift = 0;
    std::memset(maTable, 0, sizeof(maTable));
    if (bits < nMinWidth || bits > nMaxWidth) return;
    mnShift = static_cast<uint8_t>(bits - 8);
    for (uint32_t i = 0; i < 256; ++i) {
        maTable[0][i] = TableEntry(i, polynomial, reflected != 0, bits);
    }
    for (int slice = 1; slice < snSlices; ++slice) {
        for (uint32_t i = 0; i < 256; ++i) {
            maTable[slice][i] = Step(maTable[slice - 1][i], 0);
        }
    }
}

unsigned CrcCalc::Init()
{
    return (reflect != 0 ? Reflect(init, static_cast<char>(width)) : init) ^ xorout;
}

unsigned CrcCalc::Add(unsigned crc, unsigned char byte)
{
    return Step(crc ^ xorout, byte) ^ xorout;
}

unsigned CrcCalc::Add(unsigned crc, const char* text)
{
    if (text == nullptr) return crc;
    return Add(crc, PData{std::strlen(text), text});
}

unsigned CrcCalc::Add(unsigned crc, PData data)
{
    if (data.Data == nullptr) return crc;
    const auto* bytes = static_cast<const unsigned char*>(data.Data);
    size_t left = data.Length;
    uint32_t value = crc ^ xorout;
    for (; left >= snSlices; left -= snSlices, bytes += snSlices) {
        value = StepSixteen(value, bytes);
    }
    for (; left > 0; --left) {
        value = Step(value, *bytes++);
    }
    return value ^ xorout;
}

uint32_t CrcCalc::Step(uint32_t value, unsigned char byte) const
{
    if (reflect != 0) return maTable[0][(value ^ byte) & 0xFF] ^ (value >> 8);
    return maTable[0][((value >> mnShift) ^ byte) & 0xFF] ^ (value << 8);
}

// Sixteen steps at once. A step is linear, so its result is the sum of what each byte contributes,
// and the register itself can contribute to no more than the first four look-ups: after that all of
// it has been shifted out at either end.
uint32_t CrcCalc::StepSixteen(uint32_t value, const unsigned char* bytes) const
{
    uint32_t next = 0; // the register's bytes in the order they are looked up, first one lowest
    if (reflect != 0) {
        next = value;
    } else {
        next = ((value >> mnShift) & 0xFF) | ((value << 8 >> mnShift) & 0xFF) << 8 |
               ((value << 16 >> mnShift) & 0xFF) << 16 | (value << 24 >> mnShift) << 24;
    }
    uint32_t words[snSlices / 4];
    std::memcpy(words, bytes, sizeof words);
    words[0] ^= next;
    uint32_t sum = 0;
    for (int i = 0; i < snSlices / 4; ++i) {
        const uint32_t(*tables)[256] = &maTable[snSlices - 4 - 4 * i];
        sum ^= tables[3][words[i] & 0xFF] ^ tables[2][words[i] >> 8 & 0xFF] ^
               tables[1][words[i] >> 16 & 0xFF] ^ tables[0][words[i] >> 24];
    }
    return sum;
}

unsigned Reflect(unsigned value, char bits)
{
    unsigned result = 0;
    for (int i = 0; i < bits && i < 32; ++i) {
        result = (result << 1) | (value & 1);
        value >>= 1;
    }
    return result;
}
