#include "tcArrivals.h"

#include <algorithm>

void tcArrivals::BeginRead(uint32_t position, uint32_t pending)
{
    if (mbEmpty && pending == 0) mnAwaited = position;
    mbEmpty = false;
    size_t passed = 0; // marks that say less than the one behind them
    while (passed + 1 < mnMarks && !IsBefore(position - pending, maMarks[passed + 1].position)) {
        ++passed;
    }
    std::copy(maMarks + passed, maMarks + mnMarks, maMarks);
    mnMarks -= passed;
}

// Without room for one more, what came before it counts as behind the mark before.
void tcArrivals::Mark(uint32_t position, int64_t time, bool isEmpty)
{
    mbEmpty = isEmpty;
    const bool isNew = mnMarks == 0 || position != maMarks[mnMarks - 1].position;
    if (isNew && mnMarks < gnMarks) ++mnMarks;
    maMarks[mnMarks - 1] = {position, time};
}

int64_t tcArrivals::After(uint32_t position) const
{
    if (position == mnAwaited) return 0;
    for (size_t mark = mnMarks; mark > 0; --mark) {
        if (!IsBefore(position, maMarks[mark - 1].position)) return maMarks[mark - 1].time;
    }
    return 0;
}
