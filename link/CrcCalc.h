// Table-driven cyclic redundancy checks of 8 to 32 bits.
#ifndef CRCCALC_H
#define CRCCALC_H

#include "vxexport.h"

#include <cstddef>
#include <cstdint>

// A block of bytes; the memory stays the caller's.
struct PData {
    size_t Length;
    const void* Data;
};

// The presets: width, polynomial, initial value, final XOR, reflected or not.
enum Crst : int {
    eCrst16Ccitt = 0,     // 16, 0x1021, 0xFFFF, 0, no
    eCrst32 = 1,          // 32, 0x04C11DB7, 0xFFFFFFFF, 0xFFFFFFFF, yes
    eCrst32NoXor = 2,     // 32, 0x04C11DB7, 0xFFFFFFFF, 0, yes
    eCrst16Reversed = 3,  // 16, 0x8408, 0, 0, yes: a polynomial of its own, equal to no usual one
    eCrst16Zero = 4,      // 16, 0x1021, 0, 0, no
    eCrst32Alternate = 5, // same as 1
};

// A running check over bytes. Start with Init() and hand each result to the next Add(); the value
// after the last one is the check.
class VX_EXPORT CheckCalc
{
public:
    virtual ~CheckCalc();

    virtual unsigned Add(unsigned crc, unsigned char byte) = 0;
    virtual unsigned Add(unsigned crc, const char* text) = 0;
    virtual unsigned Add(unsigned crc, PData data) = 0;
    virtual unsigned Init() = 0;
};

// A cyclic redundancy check with any polynomial.
//
// An unreflected check narrower than 32 bits is computed in an unmasked register: bits above its
// width are left over from the computation, and the caller masks the result.
//
// Threads: any, once constructed; the Add() functions change nothing in the object.
// Locks:   none.
// Owns:    its tables.
class VX_EXPORT CrcCalc : private CheckCalc
{
public:
    // A preset number above 5 builds no table; such an object must not be used.
    explicit CrcCalc(Crst preset);

    // As for InitCalc().
    CrcCalc(unsigned poly, unsigned init, unsigned xorout, unsigned char reflect,
            unsigned char width);
    ~CrcCalc() override;

    // Sets the parameters and builds the tables. `poly` is in normal form, most significant bit
    // first, also for a reflected check; `reflect` is non-zero for a reflected one; `width` is 8
    // to 32 bits, any other leaves the object without a table.
    void InitCalc(unsigned poly, unsigned init, unsigned xorout, unsigned char reflect,
                  unsigned char width);

    // The value to start from.
    unsigned Init() override;

    // The value after one more byte, the bytes of a NUL-terminated text without its terminator, or
    // a block. Null and empty texts and blocks leave the value as it is.
    unsigned Add(unsigned crc, unsigned char byte) override;
    unsigned Add(unsigned crc, const char* text) override;
    unsigned Add(unsigned crc, PData data) override;

private:
    static constexpr int snSlices = 16;

    uint32_t Step(uint32_t value, unsigned char byte) const;
    uint32_t StepSixteen(uint32_t value, const unsigned char* bytes) const;

    // maTable[0] is the table of the check; maTable[n] is that entry after n further zero bytes, so
    // that sixteen bytes are taken at once.
    uint32_t maTable[snSlices][256] = {};
    uint32_t poly = 0;
    uint32_t init = 0;
    uint32_t xorout = 0;
    uint8_t reflect = 0;
    uint8_t width = 0;
    uint8_t mnShift = 0; // distance of the register's top byte from bit 0
};

// The low `bits` bits of `value` (0 to 32) in reverse order, higher bits cleared.
VX_EXPORT unsigned Reflect(unsigned value, char bits);

#endif
