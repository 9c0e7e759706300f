#include "crc32.h"

#include <algorithm>
#include <array>

namespace {

constexpr uint32_t gnPolynomial = 0xEDB88320;
constexpr size_t gnAtOnce = 8;

// Row r: what a byte does to the check value r bytes later.
using tpTables = std::array<std::array<uint32_t, 256>, gnAtOnce>;

constexpr tpTables MakeTables()
{
    tpTables tables{};
    for (uint32_t byte = 0; byte < 256; ++byte) {
        uint32_t value = byte;
        for (int bit = 0; bit < 8; ++bit) {
            value = value >> 1 ^ (value & 1 ? gnPolynomial : 0);
        }
        tables[0][byte] = value;
    }
    for (size_t row = 1; row < gnAtOnce; ++row) {
        for (uint32_t byte = 0; byte < 256; ++byte) {
            const uint32_t before = tables[row - 1][byte];
            tables[row][byte] = before >> 8 ^ tables[0][before & 0xFF];
        }
    }
    return tables;
}

constexpr tpTables gaTables = MakeTables();

} // namespace

uint32_t SimCrc32(uint32_t crc, const uint8_t* bytes, size_t count)
{
    crc = ~crc;
    for (; count >= gnAtOnce; count -= gnAtOnce, bytes += gnAtOnce) {
        crc ^= static_cast<uint32_t>(bytes[0] | bytes[1] << 8 | bytes[2] << 16) |
               static_cast<uint32_t>(bytes[3]) << 24;
        crc = gaTables[7][crc & 0xFF] ^ gaTables[6][crc >> 8 & 0xFF] ^
              gaTables[5][crc >> 16 & 0xFF] ^ gaTables[4][crc >> 24] ^ gaTables[3][bytes[4]] ^
              gaTables[2][bytes[5]] ^ gaTables[1][bytes[6]] ^ gaTables[0][bytes[7]];
    }
    for (; count > 0; --count, ++bytes) {
        crc = crc >> 8 ^ gaTables[0][(crc ^ *bytes) & 0xFF];
    }
    return ~crc;
}

uint32_t SimCrc32OfZeros(uint32_t crc, size_t count)
{
    static constexpr std::array<uint8_t, 65536> zeros{};
    for (size_t size; count > 0; count -= size) {
        size = std::min(count, zeros.size());
        crc = SimCrc32(crc, zeros.data(), size);
    }
    return crc;
}
