// A camera for benchmarks: a child process that sends prepared frames as fast as it may.
#ifndef BENCH_SENDER_H
#define BENCH_SENDER_H

#include <cstdint>
#include <sys/types.h>

struct tsStream {
    uint16_t rows = 2048;
    uint16_t columns = 2048;
    int bits = 16;                 // 16 or 32
    double megabytesPerSecond = 0; // 0: as fast as the receiver takes them
    bool byPacket = false;         // one send a packet instead of one a frame
    int cpu = -1;                  // core of the sender, -1 for any
    const char* address = "127.0.0.1";

    uint64_t FrameBytes() const; // on the wire, headers included
    uint64_t PixelBytes() const { return static_cast<uint64_t>(rows) * columns * (bits / 8); }
};

// Starts the child; it takes any number of connections, each served by a thread of its own, answers
// the hardware information and the trigger, zeros to all other questions, and streams on
// a readout command. Owns: the child process, ended by the destructor.
class tcSender
{
public:
    explicit tcSender(const tsStream& stream);
    ~tcSender();
    tcSender(const tcSender&) = delete;
    tcSender& operator=(const tcSender&) = delete;

    uint16_t Port() const { return mnPort; }
    const tsStream& Stream() const { return mtStream; }

private:
    tsStream mtStream;
    uint16_t mnPort = 0;
    pid_t mnChild = -1;
};

// Binds the calling thread, and what it starts from now on, to one core (-1: to all).
void PinToCore(int cpu);

#endif
