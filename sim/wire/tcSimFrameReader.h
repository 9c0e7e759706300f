// Finds messages in the bytes of a connection.
#ifndef TCSIMFRAMEREADER_H
#define TCSIMFRAMEREADER_H

#include "vxmessages.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

// Bytes between messages are skipped up to the next magic. A length no message can have costs the
// magic only: the search goes on right behind it.
//
// Threads: one.
// Owns: at most one message's bytes.
class tcSimFrameReader
{
public:
    using tpMessage = std::function<void(const tsMsgHeader& header, const uint8_t* payload)>;
    using tpTooLong = std::function<void(const tsMsgHeader& header)>;

    // The payload is valid during the call only.
    tcSimFrameReader(tpMessage message, tpTooLong tooLong);

    void Add(const uint8_t* bytes, size_t count);
    uint64_t SkippedBytes() const { return mnSkipped; }

private:
    size_t TakeOne(const uint8_t* bytes, size_t count);

    tpMessage mpMessage;
    tpTooLong mpTooLong;
    std::vector<uint8_t> maPending; // the beginning of a message, or of what may be one
    uint64_t mnSkipped = 0;
};

#endif
