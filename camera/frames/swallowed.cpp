#include "swallowed.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr uint8_t gnMagicFirst = gnMessageMagic & 0xFF, gnMagicSecond = gnMessageMagic >> 8;

using tVector = uint8_t __attribute__((vector_size(16)));
constexpr ptrdiff_t gnVector = sizeof(tVector), gnBlock = 4 * gnVector;

tVector Load(const uint8_t* bytes)
{
    tVector vector;
    memcpy(&vector, bytes, sizeof vector);
    return vector;
}

tVector Repeat(uint8_t byte)
{
    tVector vector;
    memset(&vector, byte, sizeof vector);
    return vector;
}

// Whether a magic begins within a block; the byte behind that is read, too.
bool HoldsMagic(const uint8_t* block)
{
    const tVector first = Repeat(gnMagicFirst), second = Repeat(gnMagicSecond);
    tVector found{};
    for (ptrdiff_t i = 0; i < gnBlock; i += gnVector) {
        found |=
            reinterpret_cast<tVector>((Load(block + i) == first) & (Load(block + i + 1) == second));
    }
    uint64_t halves[2];
    static_assert(sizeof halves == sizeof found);
    memcpy(halves, &found, sizeof halves);
    return (halves[0] | halves[1]) != 0;
}

// The first magic that lies whole between the two; `end` when there is none. All pixels come by
// here, whatever their values.
const uint8_t* FindMagic(const uint8_t* next, const uint8_t* end)
{
    while (end - next > gnBlock && !HoldsMagic(next)) {
        next += gnBlock;
    }
    for (; end - next >= 2; ++next) {
        if (next[0] == gnMagicFirst && next[1] == gnMagicSecond) return next;
    }
    return end;
}

// Whether the bytes begin like a header, as far as they go.
bool BeginsLikeAHeader(const uint8_t* next, const uint8_t* end)
{
    constexpr struct {
        ptrdiff_t at;
        uint8_t value;
    } fixed[] = {{0, gnMagicFirst}, {1, gnMagicSecond}, {8, gnInterfaceVersion}, {10, 0}, {11, 0}};
    for (const auto& byte : fixed) {
        if (byte.at < end - next && next[byte.at] != byte.value) return false;
    }
    return true;
}

// Whether message follows message up to the end.
bool IsOfMessages(const uint8_t* next, const uint8_t* end)
{
    while (end - next >= gnHeaderBytes) {
        tsMsgHeader header;
        memcpy(&header, next, sizeof header);
        const bool isKnown = header.MsgId >= gnFirstUserDefinedId || FindAnswer(header.MsgId);
        if (!BeginsLikeAHeader(next, end) || !isKnown) return false;
        const ptrdiff_t length = gnHeaderBytes + header.Length;
        if (length > gnLargestMessage) return false;
        if (length >= end - next) return true;
        next += length;
    }
    return BeginsLikeAHeader(next, end);
}

} // namespace

teSwallowed FindSwallowed(const tsMsgHeader& message, size_t end)
{
    const auto* const bytes = reinterpret_cast<const uint8_t*>(&message);
    const uint8_t* const last = bytes + gnHeaderBytes + message.Length; // exclusive, as is the next
    const uint8_t* const limit = std::min(bytes + end, last);
    teSwallowed found = eSwallowedNothing;
    for (const uint8_t* next = bytes + gnHeaderBytes; next < limit; next += 2) {
        next = FindMagic(next, std::min(limit + 1, last));
        if (next >= limit) break;
        const bool isWhole = last - next >= gnHeaderBytes;
        if (isWhole && IsOfMessages(next, last)) return eSwallowedMessages;
        if (BeginsLikeAHeader(next, last)) found = eSwallowedPerhaps;
    }
    const bool isHalf = limit == last && limit[-1] == gnMagicFirst;
    return isHalf && found == eSwallowedNothing ? eSwallowedPerhaps : found;
}
