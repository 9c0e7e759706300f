// Takes a fuzzer's input apart: numbers and stretches of bytes, in order.
#ifndef TCFUZZINPUT_H
#define TCFUZZINPUT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

// What is not there reads as zero, so every input means something.
// Threads: one. Owns: nothing; the bytes must outlive it.
class tcFuzzInput
{
public:
    tcFuzzInput(const uint8_t* bytes, size_t count) : mpNext(bytes), mnLeft(count) {}

    size_t Left() const { return mnLeft; }

    uint8_t U8() { return Number<uint8_t>(); }
    uint16_t U16() { return Number<uint16_t>(); }
    uint32_t U32() { return Number<uint32_t>(); }
    float F32() { return Number<float>(); }

    // At most `count` bytes, fewer where the input ends.
    std::vector<uint8_t> Bytes(size_t count)
    {
        const size_t taken = std::min(count, mnLeft);
        std::vector<uint8_t> bytes(mpNext, mpNext + taken);
        Skip(taken);
        return bytes;
    }
    std::vector<uint8_t> Rest() { return Bytes(mnLeft); }
    std::string Text(size_t count)
    {
        const std::vector<uint8_t> bytes = Bytes(count);
        return {bytes.begin(), bytes.end()};
    }

private:
    template <class Value>
    Value Number()
    {
        Value value{};
        const size_t taken = std::min(sizeof value, mnLeft);
        if (taken > 0) std::memcpy(&value, mpNext, taken);
        Skip(taken);
        return value;
    }
    void Skip(size_t count)
    {
        mpNext += count;
        mnLeft -= count;
    }

    const uint8_t* mpNext;
    size_t mnLeft;
};

// Ends the program, and so the fuzzer's search, when something that must hold does not.
inline void Require(bool holds, const char* what)
{
    if (holds) return;
    std::fprintf(stderr, "fuzz: does not hold: %s\n", what);
    std::abort();
}

// A buffer may have a million lines, each of 292 bytes. Numbers of five to seven digits become
// words, so that the search does not stop at the machine's memory.
inline std::string Modest(std::string text)
{
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find_first_not_of("0123456789", at), text.size());
        const size_t zeros = std::min(text.find_first_not_of('0', at), end) - at;
        const size_t digits = end - at - zeros;
        if (digits > 4 && digits < 8) text[at] = 'x';
        at = end == at ? at + 1 : end;
    }
    return text;
}

#endif
