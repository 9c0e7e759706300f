// The two sides that receive: the library, and a bare loop that does the least there is to do.
#ifndef BENCH_RECEIVER_H
#define BENCH_RECEIVER_H

#include "sender.h"

#include <cstddef>
#include <cstdint>
#include <vector>

// What receiving some frames took.
struct tsCost {
    double seconds = 0;
    double cpuSeconds = 0; // of this process
};

// What becomes of each frame.
enum class teKeeping {
    eOneBuffer, // the next one is stored over it
    eCopied,    // the image callback copies it to the next of several frames
    eInTurn     // several buffers in turn; the frame callback gives each back
};

// An open camera with an image callback and buffers of its own.
class tcLibraryReceiver
{
public:
    explicit tcLibraryReceiver(const tcSender& sender, teKeeping keeping = teKeeping::eOneBuffer);
    ~tcLibraryReceiver();
    tcLibraryReceiver(const tcLibraryReceiver&) = delete;
    tcLibraryReceiver& operator=(const tcLibraryReceiver&) = delete;

    int Handle() const { return mnHandle; }
    const uint8_t* Image() const { return reinterpret_cast<const uint8_t*>(mvImage.data()); }
    // Where frame `index` of those that are kept lies.
    const uint8_t* Kept(int index) const { return mvKept[static_cast<size_t>(index)].data(); }
    static constexpr int nKept = 8; // frames that are kept at a time
    void Start(int frames);
    // Throws when the callback has not seen every frame.
    void Wait();
    tsCost Receive(int frames);

private:
    void KeepCopies();
    void KeepInTurn();

    const tcSender& mSender;
    teKeeping meKeeping;
    int mnHandle;
    uint64_t mnFramesExpected = 0; // since the camera was opened
    std::vector<uint32_t> mvImage;
    std::vector<std::vector<uint8_t>> mvKept;
};

// How large a bare receiver's buffer in the system is: 2 MiB, or what the system's tuning makes it.
enum class teBuffer { eFixed, eTuned };

// recv of `chunk` bytes at a time and one memcpy of the pixels into the image, blocking, in the
// calling thread.
class tcBareReceiver
{
public:
    tcBareReceiver(const tcSender& sender, size_t chunk, teBuffer buffer = teBuffer::eFixed);
    ~tcBareReceiver();
    tcBareReceiver(const tcBareReceiver&) = delete;
    tcBareReceiver& operator=(const tcBareReceiver&) = delete;

    const uint8_t* Image() const { return mvImage.data(); }
    void Start(int frames);
    void Wait();
    tsCost Receive(int frames);

private:
    void Take(const uint8_t* data, size_t length);

    const tcSender& mSender;
    int mnFD;
    std::vector<uint8_t> mvChunk;
    std::vector<uint8_t> mvImage;
    uint64_t mnLeft = 0;   // bytes of the running readout
    size_t mnInPacket = 0; // bytes of the current packet seen
    size_t mnAt = 0;       // where the next pixels go
};

int ConnectTo(const tcSender& sender, teBuffer buffer = teBuffer::eFixed);

// Times `work` on the wall and on this process's CPU clock.
template <class Work>
tsCost Measure(Work work);

double WallSeconds();
double CpuSeconds();

template <class Work>
tsCost Measure(Work work)
{
    const double cpu = CpuSeconds(), wall = WallSeconds();
    work();
    return {WallSeconds() - wall, CpuSeconds() - cpu};
}

#endif
