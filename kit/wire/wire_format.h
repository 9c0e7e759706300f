// The bytes of a recording of the wire, as docs/wire.md has them.
#ifndef VXCAMKIT_WIRE_FORMAT_H
#define VXCAMKIT_WIRE_FORMAT_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vxcam {

inline constexpr std::string_view kWireSignature("\x89VXW\r\n\x1a\n", 8);
inline constexpr uint16_t kWireMajor = 1, kWireMinor = 0;
inline constexpr size_t kWireFileHead = 16; // signature, version, check value

inline constexpr uint32_t kWireMarker = 0x42575856U; // "VXWB"
inline constexpr size_t kWireBlockHead = 40;
inline constexpr uint32_t kMostBlockBytes = 4U << 20U; // of its records
inline constexpr size_t kWireRecordHead = 16;

// Numbers lie with their low byte first.
template <class Number>
void putNumber(char* to, Number number)
{
    for (size_t i = 0; i < sizeof number; ++i) {
        to[i] = static_cast<char>(static_cast<uint64_t>(number) >> (8 * i));
    }
}

template <class Number>
Number numberAt(const char* from)
{
    uint64_t number = 0;
    for (size_t i = 0; i < sizeof(Number); ++i) {
        number |= uint64_t{static_cast<uint8_t>(from[i])} << (8 * i);
    }
    return static_cast<Number>(number);
}

struct WireBlockHead {
    uint32_t number = 0;  // of the block, from 0
    uint32_t length = 0;  // bytes of its records
    int64_t utc = 0;      // ns, when it was begun ...
    int64_t steady = 0;   // ... on both clocks
    uint32_t check = 0;   // of its records
    uint32_t records = 0; // how many
};

std::array<char, kWireFileHead> wireFileHead();
std::array<char, kWireBlockHead> bytesOf(const WireBlockHead& head);
// False when the bytes are no head of a block.
bool readHead(const char* bytes, WireBlockHead* head);

} // namespace vxcam

#endif
