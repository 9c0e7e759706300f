// The base of the stream parsers: receive buffer, statistics, delivery callback, line assembler.
#ifndef TCDSPPARSERBASE_H
#define TCDSPPARSERBASE_H

#include "vxexport.h"

#include <cstdint>

struct tsMsgHeader;

// Receives each delivered frame or chunk.
//   status    0 good, -1 checksum mismatch, -4 too long for the parser's buffer
//   frame     the parser's own buffer: valid until the callback returns, copy what must stay
//   length    bytes at `frame`
//   checksum  the computed checksum, where the parser computes one
//   user      the pointer given to RegisterCallback()
// The return value is ignored. Called on the thread that called AddData(); the callback may call
// ResetParser() and EnableChecksum() of the same parser, but not its AddData().
using ParserCallback = bool (*)(int status, void* frame, int length, unsigned checksum, void* user);

// A parser that delivers each received chunk as it is. Derived parsers find frames or lines.
//
// Threads: one receiving thread per object; nothing is locked.
// Locks:   none.
// Owns:    the receive buffer when it was allocated by ResetParser(); a buffer given by the caller
//          must outlive the parser or be replaced. Never the line buffer.
class VX_EXPORT tcDspParserBase
{
public:
    // `memory` and `size` as for ResetParser(); a null `memory` with a positive size allocates.
    tcDspParserBase(void* memory, int size);
    virtual ~tcDspParserBase();
    tcDspParserBase(const tcDspParserBase&) = delete;
    tcDspParserBase& operator=(const tcDspParserBase&) = delete;

    // Installs a receive buffer of `size` bytes and clears the counters and the current line.
    //   both zero           the present buffer stays; 1
    //   buffer, size > 0    the caller's buffer replaces the present one, an owned one is freed; 1
    //   buffer, size <= 0   0; no buffer is taken and nothing can be stored until the next reset
    //   null, size > 0      an owned buffer is allocated unless there is one already, which then
    //                       keeps its size; 1
    // A null buffer with a negative size, or memory that cannot be had, gives 0.
    virtual int ResetParser(void* memory, int size);

    // Takes `length` received bytes. A chunk that fits the buffer is copied there and delivered
    // with status 0; of a longer one the first bytes that fit are delivered with status -4. Returns
    // the number of deliveries: 1, or 0 for null data or a length below 1.
    virtual int AddData(void* data, int length);

    // Where deliveries go. With a null `callback` they are counted only.
    virtual void RegisterCallback(ParserCallback callback, void* user);

    // What a frame parser supplies. Here: 0, nothing, nothing.
    virtual unsigned ComputeChecksum(tsMsgHeader* frame);
    virtual void PrepareOutput(tsMsgHeader* frame);
    virtual void EnableChecksum(bool on);

    // Collects one text line into the line buffer a subclass has installed. Lines end at CR or LF;
    // CR followed by LF counts once, also when the LF comes with the next chunk. Returns the number
    // of bytes consumed and sets `complete` when the line is whole: then mnLineLength counts its
    // bytes and a terminating NUL, which is missing only when the line filled the buffer. The
    // caller takes the line, clears it with ResetParser(nullptr, 0) and goes on with the rest of
    // its bytes. Without a line buffer everything is consumed and nothing assembled.
    int AssembleLine(void* data, int length, bool& complete);

    // The value of a hexadecimal digit in either case; 0 for any other character.
    static int AsciiHexDigitVal(char digit);

    uint32_t BytesIn = 0;        // bytes taken from the caller's data
    uint32_t BytesFramed = 0;    // bytes that went into frames
    uint32_t GoodFrames = 0;     // deliveries with status 0
    uint32_t BadFrames = 0;      // deliveries with a negative status
    uint32_t SkippedBytes = 0;   // bytes discarded between frames
    uint32_t ChecksumErrors = 0; // frames whose checksum did not match

protected:
    // The bytes that can be stored in `buffer`, never negative.
    int Room() const { return buffer != nullptr && bufferSize > 0 ? bufferSize : 0; }

    // Calls the callback when there is one.
    void Deliver(int status, int length, unsigned checksum);

    ParserCallback callbackFunction = nullptr;
    bool ownsBuffer = false;
    unsigned char* buffer = nullptr;
    int bufferSize = 0;
    uint32_t mnPosition = 0; // for subclasses; cleared by ResetParser()
    char* mpLineBuffer = nullptr;
    int mnLineCapacity = 0;
    int mnLineLength = 0;

private:
    int TakeBuffer(void* memory, int size);
    int AllocateBuffer(int size);

    void* callbackUser = nullptr;
};

#endif
