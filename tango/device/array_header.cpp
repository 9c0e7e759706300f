#include "array_header.h"

namespace vxcam {

namespace {

void put16(ArrayHeader* header, size_t at, uint32_t number)
{
    (*header)[at] = static_cast<uint8_t>(number);
    (*header)[at + 1] = static_cast<uint8_t>(number >> 8);
}

void put32(ArrayHeader* header, size_t at, uint32_t number)
{
    put16(header, at, number);
    put16(header, at + 2, number >> 16);
}

} // namespace

ArrayHeader arrayHeader(const Frame& frame, int version)
{
    constexpr uint32_t kMagic = 0x44544159, kImage = 2;
    const auto columns = static_cast<uint32_t>(frame.columns());
    const auto pixelBytes = static_cast<uint32_t>(frame.bits() / 8);
    ArrayHeader header{};
    put32(&header, 0, kMagic);
    put16(&header, 4, static_cast<uint32_t>(version));
    put16(&header, 6, static_cast<uint32_t>(header.size()));
    put32(&header, 8, kImage);
    put32(&header, 12, pixelBytes / 2);
    put16(&header, 18, 2);
    put16(&header, 20, columns);
    put16(&header, 22, static_cast<uint32_t>(frame.rows()));
    put32(&header, 32, pixelBytes);
    put32(&header, 36, pixelBytes * columns);
    return header;
}

} // namespace vxcam
