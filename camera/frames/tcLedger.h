// The books of one camera: what became of its requests, frames and pixel packets.
#ifndef TCLEDGER_H
#define TCLEDGER_H

#include "vxcamext.h"

#include <atomic>
#include <cstdint>

// How wide the pixels of a frame are. Each kind of frame is followed by itself.
enum teFrameKind : int { eFrame16, eFrame32, eFrame8, eFrameKinds };

// One pixel packet, as far as the books are concerned.
struct tsPacketFacts {
    uint32_t number; // within the frame, from 1
    uint32_t total;  // packets of the frame
    bool isWhole;    // carries the pixels that it tells
    bool isDamaged;  // has bytes of other messages
    bool isOfLast;   // says that it is of the readout's last frame
};

// How a frame ended.
struct tsFrameEnd {
    uint32_t packets = 0; // that it has
    uint32_t missing = 0;
    bool isDamaged = false; // some packet was
    bool isHeld = false;    // none ended; the packet is of this frame, or the next one's first
    bool hadHeld = false;   // that one was of this frame

    bool IsComplete() const { return packets > 0 && missing == 0 && !isDamaged; }
};

// Which packets of the running frame have come, by their numbers.
class tcFrameTrack
{
public:
    enum tePacket { eNew, eRepeated, eHeld, eRestart };

    // Notes a packet and tells what it is. eHeld: one from before the last that has come already,
    // and so is either repeated or the beginning of another frame; the next call tells. eRestart:
    // that one has come already, too, and is further on: another frame has begun with the two. The
    // caller ends this one and calls BeginAgain().
    tePacket Note(uint32_t number);
    // Follows a frame that has begun with two packets.
    void BeginAgain(uint32_t first, uint32_t second);
    // Packets of the largest total told.
    void Expect(uint32_t total) { mnTotal = total > mnTotal ? total : mnTotal; }
    void Clear();

    uint32_t Total() const { return mnTotal; }
    uint32_t Noted() const { return mnNoted; } // different numbers
    uint32_t NotedWithin(uint32_t total) const;
    void Damage() { mbDamaged = true; }
    bool IsDamaged() const { return mbDamaged; }
    // Whether the packet noted last said that it is of the readout's last frame.
    void SetOfLast(bool isOfLast) { mbOfLast = isOfLast; }
    bool IsOfLast() const { return mbOfLast; }
    uint32_t Held() const { return mnHeld; } // the number of which eHeld was told last, or 0
    void Release() { mnHeld = 0; }           // it was repeated
    // The packet noted last does not count after all; false when its number was not noted.
    bool Withdraw();

private:
    static constexpr uint32_t gnWordBits = 64;

    uint64_t maNoted[65536 / gnWordBits] = {};
    uint32_t mnNoted = 0;
    uint32_t mnTotal = 0;
    uint32_t mnWords = 0; // of maNoted that are in use
    uint32_t mnLast = 0;  // number
    uint32_t mnHeld = 0;
    bool mbDamaged = false;
    bool mbOfLast = false;
};

// Threads: one writes at a time, as told below; any may call Read(), which neither waits for a lock
//   nor for a callback.
// Locks: none. Where "locked" is said, the caller holds the camera's request lock; these figures
//   are read as of one moment.
class tcLedger
{
public:
    // Adds to a figure that has one writer: of the link, its receive thread or its send lock's
    // holder; of the others, the request lock's holder.
    static void Add(uint64_t& figure, uint64_t amount = 1)
    {
        Set(figure, __atomic_load_n(&figure, __ATOMIC_RELAXED) + amount);
    }
    tsStatistics& Figures() { return mtFigures; }

    tsStatistics Read() const;

    // ---- Requests; locked ----------------------------------------------------------------------
    enum teOutcome { eAnswered, eTimedOut, eFailed };
    void BeginRequest();
    void EndRequest(teOutcome outcome);

    // ---- Readouts and their frames; locked -----------------------------------------------------
    // Requests frames of 16 (and 8) or of 32 bits a pixel; 0 stands for an endless readout.
    void BeginReadout(teFrameKind kind, uint32_t frames);
    // The frames not delivered yet end so; how many they are. Harmless when there are none.
    enum teUndelivered { eLost, eAborted };
    uint32_t EndReadout(teFrameKind kind, teUndelivered how);

    // A packet came. When it, and one that was held, show that the frame before was cut short,
    // tells how that ended; else an end without packets.
    tsFrameEnd TakePacket(teFrameKind kind, const tsPacketFacts& packet);
    // The packet taken last, which was whole, has turned out to be damaged; its frame runs still.
    void SuspectLast(teFrameKind kind);
    // A packet came that belongs to no frame of the readout.
    void TakeStrayPacket();
    // The frame's numbered last packet came, so it is delivered; `isLast` of its readout. An
    // underrun counts as lost.
    tsFrameEnd DeliverFrame(teFrameKind kind, bool isLast, bool isUnderrun = false);

private:
    // Readers see all changes of its lifetime or none.
    class tcChange
    {
    public:
        explicit tcChange(tcLedger& ledger);
        ~tcChange();
        tcChange(const tcChange&) = delete;
        tcChange& operator=(const tcChange&) = delete;

    private:
        tcLedger& mLedger;
    };

    // The frames still to come of a readout. 8-bit frames answer a readout of 16 bits.
    struct tsAsked {
        uint32_t pending = 0;
        bool isEndless = false;
    };
    tsAsked& AskedOf(teFrameKind kind) { return maAsked[kind == eFrame32 ? 1 : 0]; }

    static void Subtract(uint64_t& figure, uint64_t amount = 1);
    // Figures are plain in the record that applications see, and changed and read as atomics. Who
    // reads one that was stored behind a change's beginning, with release, finds that change
    // afterwards.
    static void Set(uint64_t& figure, uint64_t value)
    {
        __atomic_store_n(&figure, value, __ATOMIC_RELEASE);
    }
    tsFrameEnd EndTrack(tcFrameTrack& track, bool wasWanted);
    void EndAsked(tsAsked& asked, uint64_t& figure, uint32_t frames = 1);
    void LoseCutFrame(tsAsked& asked);
    tsFrameEnd BeginLastFrame(teFrameKind kind);
    void ReleaseHeld(tcFrameTrack& track);

    std::atomic<uint32_t> mnChanges{0}; // odd while a change is under way
    tsStatistics mtFigures{};
    tsAsked maAsked[2];
    tcFrameTrack maTracks[eFrameKinds];
};

#endif
