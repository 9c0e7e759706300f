// Frames as bytes, and what the parser makes of them.
#ifndef PARSER_SUPPORT_H
#define PARSER_SUPPORT_H

#include "tcCamParser.h"

#include "vxmessages.h"

#include <vector>

using tBytes = std::vector<unsigned char>;

struct tsDelivery {
    int Status;
    unsigned Checksum;
    tBytes Bytes;

    bool operator==(const tsDelivery& other) const
    {
        return Status == other.Status && Checksum == other.Checksum && Bytes == other.Bytes;
    }
};

using tDeliveries = std::vector<tsDelivery>;

inline bool Collect(int status, void* frame, int length, unsigned checksum, void* user)
{
    const auto* bytes = static_cast<const unsigned char*>(frame);
    static_cast<tDeliveries*>(user)->push_back({status, checksum, tBytes(bytes, bytes + length)});
    return true;
}

inline unsigned Sum(const tBytes& payload)
{
    unsigned sum = 0;
    for (unsigned char byte : payload) {
        sum += byte;
    }
    return sum;
}

inline tBytes HeaderBytes(unsigned length, unsigned checksum, unsigned sequence = 7)
{
    auto byte = [](unsigned value, int n) { return static_cast<unsigned char>(value >> (8 * n)); };
    return {0x50,
            0xFA,
            byte(length, 0),
            byte(length, 1),
            byte(sequence, 0),
            byte(checksum, 0),
            byte(checksum, 1),
            byte(checksum, 2),
            3,
            0x85,
            0,
            0};
}

inline tBytes Frame(const tBytes& payload)
{
    tBytes frame = HeaderBytes(static_cast<unsigned>(payload.size()), Sum(payload));
    frame.insert(frame.end(), payload.begin(), payload.end());
    return frame;
}

inline int Feed(tcCamParser& parser, const tBytes& bytes)
{
    tBytes copy(bytes); // exactly as long as told, so that a read past the end is found
    return parser.AddData(copy.data(), static_cast<int>(copy.size()));
}

struct tsCounters {
    uint32_t BytesIn, BytesFramed, GoodFrames, BadFrames, SkippedBytes, ChecksumErrors;

    bool operator==(const tsCounters& o) const
    {
        return BytesIn == o.BytesIn && BytesFramed == o.BytesFramed && GoodFrames == o.GoodFrames &&
               BadFrames == o.BadFrames && SkippedBytes == o.SkippedBytes &&
               ChecksumErrors == o.ChecksumErrors;
    }
};

inline tsCounters Counters(const tcDspParserBase& parser)
{
    return {parser.BytesIn,   parser.BytesFramed,  parser.GoodFrames,
            parser.BadFrames, parser.SkippedBytes, parser.ChecksumErrors};
}

#endif
