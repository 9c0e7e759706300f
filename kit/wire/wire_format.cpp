#include "wire/wire_format.h"

#include "containers/pixel_crc.h"

#include <algorithm>

namespace vxcam {

namespace {

constexpr size_t kVersionAt = 8, kFileCheckAt = 12;
constexpr size_t kHeadCheckAt = 4, kHeadCheckFrom = 8;

} // namespace

std::array<char, kWireFileHead> wireFileHead()
{
    std::array<char, kWireFileHead> bytes{};
    std::copy(kWireSignature.begin(), kWireSignature.end(), bytes.begin());
    putNumber(&bytes[kVersionAt], kWireMajor);
    putNumber(&bytes[kVersionAt + 2], kWireMinor);
    putNumber(&bytes[kFileCheckAt], pixelCrc(bytes.data(), kFileCheckAt));
    return bytes;
}

std::array<char, kWireBlockHead> bytesOf(const WireBlockHead& head)
{
    std::array<char, kWireBlockHead> bytes{};
    putNumber(&bytes[0], kWireMarker);
    putNumber(&bytes[8], head.number);
    putNumber(&bytes[12], head.length);
    putNumber(&bytes[16], head.utc);
    putNumber(&bytes[24], head.steady);
    putNumber(&bytes[32], head.check);
    putNumber(&bytes[36], head.records);
    putNumber(&bytes[kHeadCheckAt],
              pixelCrc(&bytes[kHeadCheckFrom], kWireBlockHead - kHeadCheckFrom));
    return bytes;
}

bool readHead(const char* bytes, WireBlockHead* head)
{
    if (numberAt<uint32_t>(bytes) != kWireMarker) return false;
    const uint32_t check = pixelCrc(bytes + kHeadCheckFrom, kWireBlockHead - kHeadCheckFrom);
    if (numberAt<uint32_t>(bytes + kHeadCheckAt) != check) return false;
    head->number = numberAt<uint32_t>(bytes + 8);
    head->length = numberAt<uint32_t>(bytes + 12);
    head->utc = numberAt<int64_t>(bytes + 16);
    head->steady = numberAt<int64_t>(bytes + 24);
    head->check = numberAt<uint32_t>(bytes + 32);
    head->records = numberAt<uint32_t>(bytes + 36);
    return head->length <= kMostBlockBytes;
}

} // namespace vxcam
