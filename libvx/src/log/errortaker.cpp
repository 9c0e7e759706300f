#include "errortaker.h"

#include "vxundying.h"

#include <pthread.h>

#include <memory>
#include <mutex>
#include <new>
#include <utility>

namespace {

using tpTaker = std::shared_ptr<const vx::tErrorTaker>;

struct tsTaking {
    std::mutex mTurn; // held while a taker runs
    tpTaker mpTaker;  // guarded by mTurn, but for the thread whose taker runs
};

thread_local bool sbTakes = false; // the taker runs on this thread

void BeginInChild();

tsTaking& Taking()
{
    static vx::tcUndying<tsTaking> room;
    static tsTaking& taking = []() -> tsTaking& {
        tsTaking& made = room.Make();
        pthread_atfork(nullptr, nullptr, BeginInChild);
        return made;
    }();
    return taking;
}

// The thread whose turn it was is not in a forked child, and would never end it.
void BeginInChild()
{
    if (!sbTakes) new (&Taking().mTurn) std::mutex;
}

struct tsTurn {
    tsTurn() { sbTakes = true; }
    ~tsTurn() { sbTakes = false; }
    tsTurn(const tsTurn&) = delete;
    tsTurn& operator=(const tsTurn&) = delete;
};

} // namespace

void vx::SetErrorTaker(tErrorTaker taker)
{
    tpTaker next = taker ? std::make_shared<const tErrorTaker>(std::move(taker)) : nullptr;
    std::unique_lock<std::mutex> turn(Taking().mTurn, std::defer_lock);
    if (!sbTakes) turn.lock();
    Taking().mpTaker.swap(next);
}

bool vx::IsTaken(std::string const& logger, tcLogEvent const& event)
{
    if (sbTakes) return false;
    const std::lock_guard<std::mutex> turn(Taking().mTurn);
    const tpTaker taker = Taking().mpTaker;
    if (!taker) return false;
    const tsTurn isOurs;
    return (*taker)(logger, event);
}
