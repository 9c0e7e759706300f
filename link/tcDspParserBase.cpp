#include "tcDspParserBase.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <new>

namespace {

constexpr int nGood = 0;
constexpr int nTooLong = -4;

// Kept: one flag for all parsers of the process, as devices that end lines with CR LF share it.
std::atomic<bool> sbLineEndedWithCr{false};

bool IsLineEnd(char byte)
{
    return byte == '\r' || byte == '\n';
}

} // namespace

tcDspParserBase::tcDspParserBase(void* memory, int size)
{
    tcDspParserBase::ResetParser(memory, size);
}

tcDspParserBase::~tcDspParserBase()
{
    if (ownsBuffer) delete[] buffer;
}

int tcDspParserBase::ResetParser(void* memory, int size)
{
    int result = 1;
    if (memory != nullptr) {
        result = TakeBuffer(memory, size);
    } else if (size != 0) {
        result = AllocateBuffer(size);
    }
    mnPosition = 0;
    mnLineLength = 0;
    BytesIn = 0;
    BytesFramed = 0;
    GoodFrames = 0;
    BadFrames = 0;
    SkippedBytes = 0;
    ChecksumErrors = 0;
    return result;
}

int tcDspParserBase::TakeBuffer(void* memory, int size)
{
    bufferSize = size;
    if (size <= 0) return 0;
    auto* bytes = static_cast<unsigned char*>(memory);
    if (ownsBuffer && buffer != bytes) {
        delete[] buffer;
        ownsBuffer = false;
    }
    buffer = bytes;
    return 1;
}

int tcDspParserBase::AllocateBuffer(int size)
{
    if (ownsBuffer) return 1;
    if (size < 0) return 0;
    auto* bytes = new (std::nothrow) unsigned char[static_cast<size_t>(size)];
    if (bytes == nullptr) return 0;
    buffer = bytes;
    bufferSize = size;
    ownsBuffer = true;
    return 1;
}

int tcDspParserBase::AddData(void* data, int length)
{
    if (data == nullptr || length <= 0) return 0;
    const int stored = std::min(length, Room());
    if (stored > 0) std::memcpy(buffer, data, static_cast<size_t>(stored));
    const bool fits = stored == length;
    Deliver(fits ? nGood : nTooLong, stored, 0);
    BytesIn += static_cast<uint32_t>(length);
    BytesFramed += static_cast<uint32_t>(stored);
    ++(fits ? GoodFrames : BadFrames);
    return 1;
}

void tcDspParserBase::RegisterCallback(ParserCallback callback, void* user)
{
    callbackFunction = callback;
    callbackUser = user;
}

unsigned tcDspParserBase::ComputeChecksum(tsMsgHeader*)
{
    return 0;
}

void tcDspParserBase::PrepareOutput(tsMsgHeader*) {}

void tcDspParserBase::EnableChecksum(bool) {}

void tcDspParserBase::Deliver(int status, int length, unsigned checksum)
{
    if (callbackFunction != nullptr) {
        callbackFunction(status, buffer, length, checksum, callbackUser);
    }
}

int tcDspParserBase::AssembleLine(void* data, int length, bool& complete)
{
    complete = false;
    if (mpLineBuffer == nullptr) return length;
    if (data == nullptr || length < 0) length = 0;
    const char* bytes = static_cast<const char*>(data);
    int consumed = 0;
    if (sbLineEndedWithCr.exchange(false, std::memory_order_relaxed)) {
        if (mnLineLength == 0 && length > 0 && bytes[0] == '\n') consumed = 1;
    }
    if (consumed == length) return consumed;
    while (mnLineLength < mnLineCapacity && consumed < length) {
        const char byte = bytes[consumed++];
        if (IsLineEnd(byte)) {
            mpLineBuffer[mnLineLength++] = '\0';
            complete = true;
            sbLineEndedWithCr.store(byte == '\r', std::memory_order_relaxed);
            return consumed;
        }
        mpLineBuffer[mnLineLength++] = byte;
    }
    complete = mnLineLength >= mnLineCapacity;
    return consumed;
}

int tcDspParserBase::AsciiHexDigitVal(char digit)
{
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
    return 0;
}
