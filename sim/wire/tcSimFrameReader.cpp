#include "tcSimFrameReader.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

constexpr uint8_t gnMagicLow = gnMessageMagic & 0xFF;
constexpr size_t gnMagicBytes = sizeof gnMessageMagic;

} // namespace

tcSimFrameReader::tcSimFrameReader(tpMessage message, tpTooLong tooLong)
    : mpMessage(std::move(message)), mpTooLong(std::move(tooLong))
{
    maPending.reserve(gnLargestMessage);
}

// Looks at the bytes' beginning only. Returns how many are done with: 0 when more are needed.
size_t tcSimFrameReader::TakeOne(const uint8_t* bytes, size_t count)
{
    const uint8_t* start = std::find(bytes, bytes + count, gnMagicLow);
    if (start != bytes) {
        mnSkipped += static_cast<uint64_t>(start - bytes);
        return static_cast<size_t>(start - bytes);
    }
    if (count < gnMagicBytes) return 0;
    uint16_t magic;
    std::memcpy(&magic, bytes, sizeof magic);
    if (magic != gnMessageMagic) {
        ++mnSkipped;
        return 1;
    }
    if (count < sizeof(tsMsgHeader)) return 0;
    tsMsgHeader header;
    std::memcpy(&header, bytes, sizeof header);
    if (header.Length + sizeof header > gnLargestMessage) {
        mpTooLong(header);
        mnSkipped += gnMagicBytes;
        return gnMagicBytes;
    }
    if (count < sizeof header + header.Length) return 0;
    mpMessage(header, bytes + sizeof header);
    return sizeof header + header.Length;
}

void tcSimFrameReader::Add(const uint8_t* bytes, size_t count)
{
    while (count > 0 || !maPending.empty()) {
        if (maPending.empty()) { // straight from the caller's bytes
            size_t taken = TakeOne(bytes, count);
            if (taken == 0) break;
            bytes += taken;
            count -= taken;
            continue;
        }
        size_t more = std::min<size_t>(count, gnLargestMessage - maPending.size());
        maPending.insert(maPending.end(), bytes, bytes + more);
        bytes += more;
        count -= more;
        size_t done = 0, taken = 0;
        do {
            taken = TakeOne(maPending.data() + done, maPending.size() - done);
            done += taken;
        } while (taken > 0);
        maPending.erase(maPending.begin(), maPending.begin() + static_cast<ptrdiff_t>(done));
        if (done == 0) break;
    }
    if (count > 0) maPending.insert(maPending.end(), bytes, bytes + count);
}
