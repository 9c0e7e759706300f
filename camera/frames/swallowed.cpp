#include "swallowed.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr uint8_t gnMagicFirst = gnMessageMagic & 0xFF, gnMagicSecond = gnMessageMagic >> 8;

typedef uint8_t tVector16 __attribute__((vector_size(16)));
typedef uint8_t tVector32 __attribute__((vector_size(32)));
constexpr ptrdiff_t gnBlock = 128;

// Whether a magic begins within a block; the byte behind that is read, too.
template <class Vector>
[[gnu::always_inline]] inline bool HoldsMagic(const uint8_t* block)
{
    Vector found{};
#pragma GCC unroll 8
    for (ptrdiff_t i = 0; i < gnBlock; i += sizeof(Vector)) {
        Vector here, behind;
        memcpy(&here, block + i, sizeof here);
        memcpy(&behind, block + i + 1, sizeof behind);
        found |= reinterpret_cast<Vector>((here == gnMagicFirst) & (behind == gnMagicSecond));
    }
    uint64_t parts[sizeof found / sizeof(uint64_t)], any = 0;
    memcpy(parts, &found, sizeof found);
    for (const uint64_t part : parts) {
        any |= part;
    }
    return any != 0;
}

// The first magic that lies whole between the two; `end` when there is none. All pixels come by
// here, whatever their values.
template <class Vector>
[[gnu::always_inline]] inline const uint8_t* FindMagicBy(const uint8_t* next, const uint8_t* end)
{
    if (end - next > gnBlock) {
        const uint8_t* const last = end - gnBlock - 1;
        while (!HoldsMagic<Vector>(next)) {
            if (next == last) return end;
            next = std::min(next + gnBlock, last);
        }
    }
    for (; end - next >= 2; ++next) {
        if (next[0] == gnMagicFirst && next[1] == gnMagicSecond) return next;
    }
    return end;
}

#ifdef __x86_64__
[[gnu::target("avx2")]] const uint8_t* FindMagicWide(const uint8_t* next, const uint8_t* end)
{
    return FindMagicBy<tVector32>(next, end);
}
#endif

const uint8_t* FindMagic(const uint8_t* next, const uint8_t* end)
{
#ifdef __x86_64__
    if (__builtin_cpu_supports("avx2")) return FindMagicWide(next, end);
#endif
    return FindMagicBy<tVector16>(next, end);
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

bool MayHoldAllNumbers(const tsMsgHeader& message)
{
    constexpr ptrdiff_t numbers = 256;
    const ptrdiff_t longest = message.Length - (numbers - 1) * ptrdiff_t{gnHeaderBytes};
    if (longest < gnHeaderBytes) return false;
    const auto* const bytes = reinterpret_cast<const uint8_t*>(&message);
    const uint8_t* const last = bytes + gnHeaderBytes + message.Length; // exclusive
    return FindMagic(last - longest, last) != last;
}
