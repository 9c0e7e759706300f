// When what is read of a connection can have come: it may have waited in the system's buffers.
#ifndef TCARRIVALS_H
#define TCARRIVALS_H

#include <cstddef>
#include <cstdint>

// Moments at which it was known how far the bytes reached that had come: those behind them came
// later. Positions count bytes of the connection and of those before it, and wrap around.
//
// Threads: one at a time.
class tcArrivals
{
public:
    // Bytes have been read that begin at `position`; of a message that they go on with, `pending`
    // came before.
    void BeginRead(uint32_t position, uint32_t pending);
    // At `time` nothing had come from `position` on; `isEmpty`: it was the end of what was read.
    void Mark(uint32_t position, int64_t time, bool isEmpty);
    // Whether all has been read, up to `position`, that had come at the last mark.
    bool IsPassed(uint32_t position) const
    {
        return mnMarks == 0 || !IsBefore(position, maMarks[mnMarks - 1].position);
    }

    // A moment at which the message that begins at `position` had not come yet. 0: it was waited
    // for, with nothing left to read, or nothing is known.
    int64_t After(uint32_t position) const;

private:
    struct tsMark {
        uint32_t position;
        int64_t time;
    };
    static constexpr size_t gnMarks = 4;

    static bool IsBefore(uint32_t one, uint32_t other)
    {
        return static_cast<int32_t>(one - other) < 0;
    }

    tsMark maMarks[gnMarks] = {}; // ascending
    size_t mnMarks = 0;
    uint32_t mnAwaited = 0;
    bool mbEmpty = true; // behind what was read last
};

#endif
