// The check value of pixels: CRC-32 as zlib, PNG and Ethernet have it.
#ifndef VXSIM_CRC32_H
#define VXSIM_CRC32_H

#include <cstddef>
#include <cstdint>

// Goes on from the check value of the bytes before; 0 at first.
uint32_t SimCrc32(uint32_t crc, const uint8_t* bytes, size_t count);
// As if so many zeros had followed.
uint32_t SimCrc32OfZeros(uint32_t crc, size_t count);

#endif
