// The frame parser of the camera link: finds frames in a byte stream and stamps outgoing ones.
#ifndef TCCAMPARSER_H
#define TCCAMPARSER_H

#include "tcDspParserBase.h"
#include "vxexport.h"

#include <cstdint>

// What the parser is doing with the next byte.
enum ParserState : int {
    Hunting = 0,  // looking for the two bytes of the magic
    Header = 1,   // collecting the rest of the 12 header bytes
    Payload = 2,  // collecting the payload
    Complete = 3, // a good frame is to be delivered
    Error = 4     // a bad frame is to be delivered
};

// Assembles frames (tsMsgHeader and payload) at the start of the receive buffer and delivers each,
// good or bad, to the callback. Chunks may split the stream anywhere; the parser resynchronises
// byte by byte after garbage. No byte of the stream makes it read or write outside its buffer,
// whatever buffer it was given: a frame that does not fit is delivered as too long, and with less
// room than one header everything is skipped.
//
// Threads: AddData(), ResetParser() and the counters belong to one receiving thread.
//          PrepareOutput() runs on sending threads and touches only the sequence number and the
//          outgoing frame; senders serialise it among themselves.
// Locks:   none.
// Owns:    see tcDspParserBase.
class VX_EXPORT tcCamParser : public tcDspParserBase
{
public:
    // `memory` and `size` as for tcDspParserBase. The largest payload accepted is `size` less the
    // 12 header bytes. With `checksum` set, payloads are checked and outgoing frames get a
    // checksum.
    tcCamParser(void* memory, int size, bool checksum);
    ~tcCamParser() override;

    // As in the base; also drops a frame under way. The largest payload accepted and the sequence
    // number stay, but a buffer smaller than they assume is never overrun. Returns the base's
    // result.
    int ResetParser(void* memory, int size) override;

    // Consumes `length` received bytes and returns the number of frames delivered meanwhile, good
    // and bad; 0 at once for null data or a length below 1. Never waits.
    int AddData(void* data, int length) override;

    // The sum of the payload bytes. 0 for a null frame, a wrong magic, an empty payload and one
    // larger than the parser accepts.
    unsigned ComputeChecksum(tsMsgHeader* frame) override;

    // Stamps a frame to be sent: sequence number, magic, interface version 3 and, when checksums
    // are on, the checksum (otherwise its three bytes stay as they are). The caller has set
    // `Length` and `MsgId` and filled the payload.
    void PrepareOutput(tsMsgHeader* frame) override;

    // Switches the checking and stamping of checksums.
    void EnableChecksum(bool on) override;

    // The stream ended here, and another one begins. A frame under way is finished with the first
    // bytes of that one all the same.
    void MarkBreak();

    // In the callback: whether the frame delivered has bytes of more than one stream, and so is not
    // what anybody sent.
    bool SpansBreak() const { return mbSpansBreak; }

    // Between two calls of AddData(): the bytes of a frame that has not come whole.
    int Pending() const { return count; }

protected:
    ParserState state = Hunting;
    int32_t count = 0;       // bytes of the current frame in the buffer
    uint32_t maxPayload = 0; // largest acceptable `Length`
    uint8_t txSeqNo = 0;     // next sequence number to stamp
    bool checksumEnabled = false;

private:
    bool mbSpansBreak = false; // bytes in the buffer are from before the last break

    // What one AddData() call carries from step to step.
    struct tsInput {
        const unsigned char* Next;
        const unsigned char* End;
        int Status;
        unsigned Checksum;

        int Left() const { return static_cast<int>(End - Next); }
    };

    bool TakeHeader(tsInput& input);
    void Hunt(tsInput& input);
    void CollectHeader(tsInput& input);
    void FinishHeader(tsInput& input, uint32_t length);
    void CollectPayload(tsInput& input);
    void FinishPayload(tsInput& input);
    void DeliverFrame(const tsInput& input);
    void Collect(tsInput& input, int wanted);
    bool Fits(uint32_t length) const;
};

#endif
