#include "tcCamParser.h"

#include "vxmessages.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr uint16_t nMagic = 0xFA50;
constexpr unsigned char nMagicFirst = 0x50;
constexpr unsigned char nMagicSecond = 0xFA;
constexpr int nHeaderBytes = 12;
constexpr unsigned nInterfaceVersion = 3;

constexpr int nGood = 0;
constexpr int nChecksumMismatch = -1;
constexpr int nTooLong = -4;

static_assert(sizeof(tsMsgHeader) == nHeaderBytes, "the header is packed");

// The first magic that lies whole in [next, end); `end` when there is none.
const unsigned char* FindMagic(const unsigned char* next, const unsigned char* end)
{
    while (end - next >= 2) {
        const auto room = static_cast<size_t>(end - next - 1);
        next = static_cast<const unsigned char*>(std::memchr(next, nMagicFirst, room));
        if (next == nullptr) return end;
        while (next + 1 < end && *next == nMagicFirst) {
            if (next[1] == nMagicSecond) return next;
            ++next;
        }
    }
    return end;
}

} // namespace

tcCamParser::tcCamParser(void* memory, int size, bool checksum)
    : tcDspParserBase(memory, size), maxPayload(static_cast<uint32_t>(size) - nHeaderBytes),
      checksumEnabled(checksum)
{}

tcCamParser::~tcCamParser() = default;

int tcCamParser::ResetParser(void* memory, int size)
{
    const int result = tcDspParserBase::ResetParser(memory, size);
    state = Hunting;
    count = 0;
    mbSpansBreak = false;
    return result;
}

void tcCamParser::MarkBreak()
{
    if (count > 0) mbSpansBreak = true;
}

void tcCamParser::EnableChecksum(bool on)
{
    checksumEnabled = on;
}

unsigned tcCamParser::ComputeChecksum(tsMsgHeader* frame)
{
    if (frame == nullptr || frame->Magic != nMagic) return 0;
    if (frame->Length == 0 || frame->Length > maxPayload) return 0;
    const auto* payload = reinterpret_cast<const unsigned char*>(frame) + nHeaderBytes;
    const unsigned length = frame->Length;
    unsigned sum = 0;
    for (unsigned i = 0; i < length; ++i) {
        sum += payload[i];
    }
    return sum;
}

void tcCamParser::PrepareOutput(tsMsgHeader* frame)
{
    if (frame == nullptr) return;
    frame->SeqNo = txSeqNo++;
    frame->Magic = nMagic;
    frame->IDD = nInterfaceVersion;
    if (checksumEnabled) frame->Checksum = ComputeChecksum(frame) & 0xFFFFFF;
}

int tcCamParser::AddData(void* data, int length)
{
    if (data == nullptr || length <= 0) return 0;
    const auto* bytes = static_cast<const unsigned char*>(data);
    tsInput input{bytes, bytes + length, nGood, 0};
    int delivered = 0;
    while (input.Left() > 0 || state == Complete || state == Error) {
        switch (state) {
        case Hunting:
            if (!TakeHeader(input)) Hunt(input);
            break;
        case Header:
            CollectHeader(input);
            break;
        case Payload:
            CollectPayload(input);
            break;
        case Complete:
        case Error:
            DeliverFrame(input);
            ++delivered;
            break;
        }
    }
    return delivered;
}

// Takes a header at once that lies whole where it is expected, as most do. Bytes are counted before
// and behind the copy, here and in Collect(): two counters that are stored one by one and then
// loaded as one vector would have to wait for all that was stored before, an image's pixels.
bool tcCamParser::TakeHeader(tsInput& input)
{
    if (count > 0 || input.Left() < nHeaderBytes || Room() < nHeaderBytes) return false;
    tsMsgHeader header;
    std::memcpy(&header, input.Next, nHeaderBytes);
    if (header.Magic != nMagic) return false;
    BytesIn += nHeaderBytes;
    std::memcpy(buffer, &header, nHeaderBytes);
    input.Next += nHeaderBytes;
    count = nHeaderBytes;
    BytesFramed += nHeaderBytes;
    FinishHeader(input, header.Length);
    return true;
}

// Takes everything up to and including the next magic, or all there is. The last byte taken waits
// at the start of the buffer, since it may be the first half of a magic.
void tcCamParser::Hunt(tsInput& input)
{
    if (Room() < nHeaderBytes) {
        BytesIn += static_cast<uint32_t>(input.Left());
        SkippedBytes += static_cast<uint32_t>(input.Left());
        input.Next = input.End;
        return;
    }
    const unsigned char* end = nullptr; // of the bytes taken
    bool found = count > 0 && buffer[0] == nMagicFirst && *input.Next == nMagicSecond;
    if (found) {
        end = input.Next + 1;
    } else {
        const unsigned char* magic = FindMagic(input.Next, input.End);
        found = magic != input.End;
        end = found ? magic + 2 : input.End;
        mbSpansBreak = false; // what was held is skipped
    }
    const auto taken = static_cast<uint32_t>(end - input.Next);
    const uint32_t held = static_cast<uint32_t>(count) + taken;
    BytesIn += taken;
    input.Next = end;
    if (found) {
        buffer[0] = nMagicFirst;
        buffer[1] = nMagicSecond;
        count = 2;
        SkippedBytes += held - 2;
        BytesFramed += 2;
        state = Header;
    } else {
        buffer[0] = end[-1];
        count = 1;
        SkippedBytes += held - 1;
    }
}

void tcCamParser::CollectHeader(tsInput& input)
{
    Collect(input, nHeaderBytes);
    if (count < nHeaderBytes) return;
    FinishHeader(input, reinterpret_cast<const tsMsgHeader*>(buffer)->Length);
}

// Decides by the payload's length what comes after the header.
void tcCamParser::FinishHeader(tsInput& input, uint32_t length)
{
    if (length == 0) {
        input.Checksum = 0;
        state = Complete;
    } else if (!Fits(length)) {
        input.Checksum = 0xFFFFFFFF;
        input.Status = nTooLong;
        state = Error;
    } else {
        state = Payload;
    }
}

void tcCamParser::CollectPayload(tsInput& input)
{
    const int whole = reinterpret_cast<const tsMsgHeader*>(buffer)->Length + nHeaderBytes;
    Collect(input, whole);
    if (count == whole) FinishPayload(input);
}

void tcCamParser::FinishPayload(tsInput& input)
{
    state = Complete;
    if (!checksumEnabled) return;
    auto* frame = reinterpret_cast<tsMsgHeader*>(buffer);
    input.Checksum = ComputeChecksum(frame);
    if (input.Checksum == frame->Checksum) return;
    ++ChecksumErrors;
    input.Status = nChecksumMismatch;
    state = Error;
}

void tcCamParser::DeliverFrame(const tsInput& input)
{
    const bool good = state == Complete;
    Deliver(good ? nGood : input.Status, count, input.Checksum);
    count = 0;
    state = Hunting;
    mbSpansBreak = false;
    ++(good ? GoodFrames : BadFrames);
}

// Moves bytes from the input to the frame until it holds `wanted` bytes or the input is used up.
void tcCamParser::Collect(tsInput& input, int wanted)
{
    const int taken = std::min(wanted - count, input.Left());
    if (taken <= 0) return;
    __builtin_prefetch(input.Next + taken); // the next header, often
    BytesIn += static_cast<uint32_t>(taken);
    std::memcpy(buffer + count, input.Next, static_cast<size_t>(taken));
    input.Next += taken;
    count += taken;
    BytesFramed += static_cast<uint32_t>(taken);
}

// Whether a payload of `length` bytes is acceptable. After a reset the buffer can be smaller than
// maxPayload assumes, and for a buffer below 12 bytes maxPayload has wrapped.
bool tcCamParser::Fits(uint32_t length) const
{
    return length <= maxPayload && length <= static_cast<uint32_t>(Room() - nHeaderBytes);
}
