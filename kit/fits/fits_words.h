// Numbers as FITS files hold them, with the highest byte first, and what they add up to.
#ifndef VXCAMKIT_FITS_WORDS_H
#define VXCAMKIT_FITS_WORDS_H

#include <cstddef>
#include <cstdint>

namespace vxcam {

// The sum of 32-bit words, highest byte first, in ones' complement; a last one that is not whole
// has zeros behind it.
uint32_t fitsSum(const void* bytes, size_t count);
uint32_t addFitsSums(uint32_t one, uint32_t other);

// Writes as many numbers as there are pixels. Those of 16 bits are the pixels less half of what
// they can be; those of 32 bits, too, with `isShifted`. Returns their fitsSum().
uint32_t encodeWords(const uint8_t* from, size_t count, uint8_t* to);
uint32_t encodeWords(const uint16_t* from, size_t count, uint16_t* to);
uint32_t encodeWords(const uint32_t* from, size_t count, uint32_t* to, bool isShifted);

} // namespace vxcam

#endif
