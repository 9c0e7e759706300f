#include "damage.h"

#include "vxmessages.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace {

constexpr size_t gnHead = sizeof(tsMsgHeader);

tsMsgHeader HeaderOf(const tpSimBytes& message)
{
    tsMsgHeader header;
    std::memcpy(&header, message.data(), sizeof header);
    return header;
}

void PutHeader(const tsMsgHeader& header, tpSimBytes* message)
{
    std::memcpy(message->data(), &header, sizeof header);
}

void TellLength(int64_t length, tpSimBytes* message)
{
    tsMsgHeader header = HeaderOf(*message);
    header.Length = static_cast<uint16_t>(length);
    PutHeader(header, message);
}

void TellVersion(int64_t version, tpSimBytes* message)
{
    tsMsgHeader header = HeaderOf(*message);
    header.IDD = static_cast<uint8_t>(version);
    PutHeader(header, message);
}

void TellId(int64_t id, tpSimBytes* message)
{
    tsMsgHeader header = HeaderOf(*message);
    header.MsgId = static_cast<uint32_t>(id) & 0xFFFFFF;
    PutHeader(header, message);
}

// Different bits of the part of the message that begins at `from`.
void Flip(const tsSimFault& fault, tcSimRandom& random, size_t from, size_t bytes,
          tpSimBytes* message)
{
    const size_t bits = bytes * 8;
    const auto count = std::min(static_cast<size_t>(fault.count), bits);
    std::vector<size_t> flipped;
    while (flipped.size() < count) {
        const bool chosen = fault.bit >= 0 && flipped.empty();
        const size_t bit = (chosen ? static_cast<size_t>(fault.bit) : random.Bits()) % bits;
        if (std::find(flipped.begin(), flipped.end(), bit) != flipped.end()) continue;
        flipped.push_back(bit);
        (*message)[from + bit / 8] ^= static_cast<uint8_t>(1u << (bit % 8));
    }
}

void Cut(int64_t bytes, tpSimBytes* message)
{
    const auto missing = std::min<size_t>(static_cast<size_t>(bytes), message->size() - 1);
    message->resize(message->size() - missing);
}

void Shorten(int64_t bytes, tpSimBytes* message)
{
    const auto left = std::min(gnHead + static_cast<size_t>(bytes), message->size());
    message->resize(left);
    TellLength(static_cast<int64_t>(left - gnHead), message);
}

void PutByte(uint8_t value, size_t offset, tpSimBytes* message)
{
    if (offset < message->size()) (*message)[offset] = value;
}

void PutWord(int64_t value, size_t offset, tpSimBytes* message)
{
    const auto word = static_cast<uint16_t>(value);
    if (offset + sizeof word <= message->size()) {
        std::memcpy(message->data() + offset, &word, sizeof word);
    }
}

uint16_t WordAt(size_t offset, const tpSimBytes& message)
{
    uint16_t word = 0;
    if (offset + sizeof word <= message.size()) {
        std::memcpy(&word, message.data() + offset, sizeof word);
    }
    return word;
}

// The packet keeps its width.
void Misplace(const tsSimFault& fault, tpSimBytes* message)
{
    constexpr size_t first = offsetof(tsPixelData16Msg, FirstColumn);
    constexpr size_t last = offsetof(tsPixelData16Msg, LastColumn);
    if (fault.row >= 0) PutWord(fault.row, offsetof(tsPixelData16Msg, Row), message);
    if (fault.column < 0) return;
    const int width = WordAt(last, *message) - WordAt(first, *message);
    PutWord(fault.column, first, message);
    PutWord(std::min<int64_t>(fault.column + width, 0xFFFF), last, message);
}

void TellTotal(int64_t value, tpSimBytes* message)
{
    constexpr size_t total = offsetof(tsPixelData16Msg, TotalPackets);
    PutWord(value > 0 ? value : WordAt(total, *message) + 1, total, message);
}

} // namespace

bool ChangesMessage(teSimFault kind)
{
    switch (kind) {
    case teSimFault::eTruncate:
    case teSimFault::eOverLong:
    case teSimFault::eZeroLength:
    case teSimFault::eFlipHeader:
    case teSimFault::eFlipPayload:
    case teSimFault::eWrongVersion:
    case teSimFault::eUnknownId:
    case teSimFault::eWrongAnswer:
    case teSimFault::eShortAnswer:
    case teSimFault::eOutside:
    case teSimFault::eChangedTotal:
    case teSimFault::eNoLastFrame:
        return true;
    default:
        return false;
    }
}

void DamageMessage(const tsSimFault& fault, tcSimRandom& random, tpSimBytes* message)
{
    if (message->size() < gnHead) return; // another fault has cut it already
    switch (fault.kind) {
    case teSimFault::eTruncate:
        return Cut(fault.bytes, message);
    case teSimFault::eOverLong:
        return TellLength(fault.value, message);
    case teSimFault::eZeroLength:
        return TellLength(0, message);
    case teSimFault::eFlipHeader:
        return Flip(fault, random, 0, gnHead, message);
    case teSimFault::eFlipPayload:
        if (message->size() > gnHead)
            Flip(fault, random, gnHead, message->size() - gnHead, message);
        return;
    case teSimFault::eWrongVersion:
        return TellVersion(fault.value, message);
    case teSimFault::eUnknownId:
    case teSimFault::eWrongAnswer:
        return TellId(fault.value, message);
    case teSimFault::eShortAnswer:
        return Shorten(fault.bytes, message);
    case teSimFault::eOutside:
        return Misplace(fault, message);
    case teSimFault::eChangedTotal:
        return TellTotal(fault.value, message);
    case teSimFault::eNoLastFrame:
        return PutByte(0, offsetof(tsPixelData16Msg, LastFrame), message);
    default:
        return;
    }
}

tpSimBytes GarbageOf(int64_t bytes, tcSimRandom& random)
{
    tpSimBytes garbage(static_cast<size_t>(bytes));
    for (uint8_t& byte : garbage) {
        do {
            byte = static_cast<uint8_t>(random.Bits());
        } while (byte == (gnMessageMagic & 0xFF));
    }
    return garbage;
}

size_t CutOf(const tsSimFault& fault, const tpSimBytes& message, uint64_t firstByte)
{
    size_t cut = static_cast<size_t>(fault.bytes);
    if (fault.kind == teSimFault::eClosePayload) {
        const size_t payload = message.size() - std::min(gnHead, message.size());
        cut = gnHead + (fault.bytes > 0 ? static_cast<size_t>(fault.bytes) : payload / 2);
    } else if (fault.byte >= 0 && fault.bytes == 0) {
        const auto at = static_cast<uint64_t>(fault.byte);
        cut = at > firstByte ? static_cast<size_t>(at - firstByte) : 0;
    }
    return std::min(cut, message.size());
}
