// A camera that is fed messages, and what it makes of them.
#ifndef DISPATCH_SUPPORT_H
#define DISPATCH_SUPPORT_H

#include "tcTestCamera.h"

#include <gtest/gtest.h>

inline constexpr size_t gnWhole = SIZE_MAX; // the message from its header to its end
inline constexpr uint8_t gnGuard = 0xA5;

// Where the bytes of an answer go: `from` is an offset in the message.
struct tsSlice {
    size_t from, bytes;
};
struct tsRowCase {
    uint32_t id;
    int item;
    tsSlice first, second; // for result 1 and 2
    bool marks;            // resets the status of its item
};
inline constexpr tsSlice gtNothing{0, 0};

// Every answer that is plain data.
inline const tsRowCase gaDataRows[] = {
    {0x60, 0, {12, 4}, gtNothing, true},      {0x61, 1, {12, 4}, gtNothing, true},
    {0x63, 3, {0, gnWhole}, gtNothing, true}, {0x65, 5, {12, 2}, gtNothing, true},
    {0x6A, 11, gtNothing, gtNothing, true},   {0x70, 8, {12, 4}, gtNothing, true},
    {0x71, 10, {12, 2}, gtNothing, true},     {0x73, 12, {12, 4}, {16, 4}, true},
    {0x74, 13, gtNothing, gtNothing, true},   {0x76, 14, {12, 22}, gtNothing, true},
    {0x77, 15, {12, 512}, {528, 2}, true},    {0x79, 16, {12, 12}, gtNothing, true},
    {0x7A, 17, {12, 16}, gtNothing, true},    {0x7C, 19, {12, 4}, {16, 4}, true},
    {0x7D, 20, {12, 4356}, gtNothing, true},  {0x7E, 21, {12, 4}, gtNothing, false},
    {0x7F, 22, {12, 4}, gtNothing, true},     {0x80, 23, {0, gnWhole}, gtNothing, true},
    {0x84, 25, {0, 36}, gtNothing, false},    {0x85, 26, {12, 12}, gtNothing, false},
    {0x87, 28, {12, 12}, gtNothing, true},    {0x89, 30, {12, 4}, gtNothing, false},
    {0x8A, 31, {0, 270}, gtNothing, false},   {0x8B, 32, {12, 4}, gtNothing, false},
    {0x8C, 33, {0, 28}, gtNothing, false},
};
// The others, which have tests of their own.
inline const std::pair<uint32_t, int> gaHandledRows[] = {
    {0x64, 4}, {0x7B, 18}, {0x83, 24}, {0x86, 27}, {0x8D, 34}};
inline const uint32_t gaEvents[] = {0x66, 0x67, 0x68, 0x69, 0x75, 0x82, 0x88};

// A result between guards.
class tcResult
{
public:
    tcResult() : mBytes(40000, gnGuard) {}
    long* Pointer() { return reinterpret_cast<long*>(mBytes.data() + nFront); }
    const tBytes& Bytes() const { return mBytes; }
    // What the slice of a message leaves here; what the message lacks reads as zero.
    static tBytes Expected(const tBytes& message, const tsSlice& slice)
    {
        tBytes expected(40000, gnGuard);
        const size_t bytes = slice.bytes == gnWhole ? message.size() : slice.bytes;
        for (size_t i = 0; i < bytes; ++i) {
            const size_t from = slice.from + i;
            expected[nFront + i] = from < message.size() ? message[from] : 0;
        }
        return expected;
    }

private:
    static constexpr size_t nFront = 4096;
    tBytes mBytes;
};

// Sends a request for an item and feeds the answer before the caller waits for it.
inline int Exchange(tcTestCamera& camera, int item, tcMessage& answer, long* first, long* second)
{
    camera.SetScript([&](const tsSentMessage&) { camera.Feed(answer); });
    tcMessage request(0x59, {});
    const int result = camera.SendAndWait(request.get(), item, first, second, 1);
    camera.SetScript(nullptr);
    return result;
}

inline bool IsKnown(uint32_t id)
{
    for (const tsRowCase& row : gaDataRows) {
        if (row.id == id) return true;
    }
    for (const auto& row : gaHandledRows) {
        if (row.first == id) return true;
    }
    return std::count(std::begin(gaEvents), std::end(gaEvents), id) != 0;
}

class Dispatch : public testing::Test
{
protected:
    tcTestCamera mCamera;
};

#endif
