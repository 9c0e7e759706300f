// What is known of a frame that is arriving, packet by packet.
#ifndef TCFRAMEACCOUNT_H
#define TCFRAMEACCOUNT_H

#include "vxcamext.h"

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <vector>

// Now, on both clocks.
tsMoment ThisMoment();
int64_t MonotonicTime(); // on the one that is never set

// When a packet was there, and a moment at which it was not yet, as tcArrivals::After().
struct tsArrival {
    tsMoment noted;
    int64_t after;
};

// What became of a packet.
enum teArrival : uint16_t { eNeverCame, eDamaged, eMisplaced, eCame };

// Where a packet's pixels lie on the sensor; `last` is inclusive.
struct tsPacketPlace {
    uint16_t row, first, last;
    uint16_t arrival; // teArrival
};

// A rectangle of the sensor whose rows are sent one after another.
struct tsRegion {
    uint32_t row, column, rows, columns;

    bool Holds(const tsPacketPlace& place) const
    {
        return place.row >= row && place.row - row < rows && place.first >= column &&
               place.first <= place.last && place.last - column < columns;
    }
};

// The rows of one packet after another, so that the rows of those that did not come can be told.
// `places` are the frame's packets in the order of their numbers; `regions` what they show, in the
// order in which they are sent, or empty when that is not known. The rows that did not arrive
// whole, ascending and each once; nothing when it cannot be known which they are. Where `isStacked`
// is set, rows count through all regions from 0; otherwise they are those of the sensor.
std::optional<std::vector<uint32_t>> FindMissingRows(const std::vector<tsRegion>& regions,
                                                     const tsPacketPlace* places, uint32_t total,
                                                     bool isStacked);

// What a frame shows whose packets all have the same number of columns, but for the last ones of
// its rows; nothing when they do not fit that.
std::optional<tsRegion> GuessRegion(const tsPacketPlace* places, uint32_t total);

// The smallest rectangle that holds all packets that came; none when no packet did.
std::optional<tsRegion> FindBounds(const tsPacketPlace* places, uint32_t total);

// Threads: one at a time.
class tcFrameAccount
{
public:
    // Notes a packet of the running frame, the first of which begins it, and how many it has. One
    // that is held may be the first of another frame instead: the next call takes it for one of
    // this frame; BeginAgain() ends what was running and begins the other one with it. `after` is
    // that of its arrival, where IsTimed() says that it counts.
    void Note(uint32_t number, uint32_t total, const tsPacketPlace& place, bool isHeld,
              int64_t after);
    bool IsTimed(bool isHeld) const { return isHeld || !IsRunning(); }
    void BeginAgain();
    // The one that is held is a repetition, and of no use.
    void ForgetHeld() { mtHeld.reset(); }
    void Clear();

    // When it began, where that was noted late.
    void BeginAt(const tsArrival& first) { mtFirst = first; }

    bool IsRunning() const { return mnHighest > 0; }
    // The number noted last, and how many there are to be; 0 when the rest of the frame can not
    // follow that any more.
    uint32_t Last() const { return mbInterrupted ? 0 : mnLast; }
    uint32_t Total() const { return mnTotal; }
    // The packet noted last has turned out to be cut short: it is damaged.
    void SuspectLast();
    // Of a frame that has all its packets: those that contradict the others in where their pixels
    // belong count as misplaced, and their rows, and those that they left open, are suspected. A
    // header changed on its way does that. `regions` are what was asked for; empty: no judgement.
    void CheckPlaces(const std::vector<tsRegion>& regions, uint32_t total);
    // The connection on which the frame arrived is lost.
    void Interrupt() { mbInterrupted = true; }
    const tsMoment& FirstPacket() const { return mtFirst.noted; }
    tsMoment FirstPacketAfter() const; // both 0 where it was waited for
    uint32_t Misplaced() const { return mnMisplaced; }
    // Some of them, though none came from outside.
    bool HasMisfits() const { return mbMisfits; }
    uint32_t Damaged() const { return mnDamaged; }

    // The packets from number 1 on, 65535 of them; null when memory could not be had.
    const tsPacketPlace* Places() const;
    // Rows of packets that are suspected, or damaged or misplaced and told as theirs, and those
    // that the beginning of the next frame has reached.
    std::vector<uint32_t> SuspectRows() const;

private:
    static constexpr size_t gnNumbers = 65536; // of packets, and of rows
    struct tsNotes {
        tsPacketPlace places[gnNumbers]; // by number
        uint8_t suspect[gnNumbers];      // by row; 1: not to be relied on
        uint32_t covered[gnNumbers];     // by row: pixels; all 0 between frames
    };
    struct tsFree {
        void operator()(tsNotes* notes) const { free(notes); }
    };
    struct tsHeld {
        uint32_t number;
        tsPacketPlace place;
        tsArrival arrival;
    };

    void Store(uint32_t number, const tsPacketPlace& place);
    void Suspect(uint32_t row);
    uint32_t Cover(const std::vector<tsRegion>& regions, uint32_t total, tsRegion* around);
    void JudgeRows(const std::vector<tsRegion>& regions, const tsRegion& around);
    void SuspectUneven(const std::vector<tsRegion>& regions);

    std::unique_ptr<tsNotes, tsFree> mpNotes;
    uint32_t mnHighest = 0; // number noted
    uint32_t mnLast = 0, mnTotal = 0;
    uint32_t mnLastRow = 0;
    bool mbInterrupted = false;
    bool mbSuspects = false; // some row
    bool mbMisfits = false;
    tsArrival mtFirst{};
    uint32_t mnMisplaced = 0, mnDamaged = 0;
    std::optional<tsHeld> mtHeld;
};

#endif
