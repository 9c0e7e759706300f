// When a consumer may be deleted, private to the library.
//
// A delivery names its consumer in a slot while it lasts, and goes on only when its logger still
// refers to that consumer then. Loggers change their consumers under one mutex. A retired consumer
// that, under this mutex, no logger refers to, nobody holds and no slot names cannot be reached any
// more and is deleted. Nobody waits: the thread whose step was the last one in the way deletes.
// Deliveries that find no free slot are counted; nothing is deleted until they have ended.
#ifndef VX_LIFETIME_H
#define VX_LIFETIME_H

#include "tcLog.h"

namespace vx {

// The scope in which the consumer found in a logger may be used.
class tcDelivery
{
public:
    // `consumer` is the logger's field.
    explicit tcDelivery(const tcShared<tcLogConsumer*>& consumer);
    ~tcDelivery();
    tcDelivery(const tcDelivery&) = delete;
    tcDelivery& operator=(const tcDelivery&) = delete;

    // May be null.
    tcLogConsumer* Consumer() const { return mpConsumer; }

private:
    tcLogConsumer* mpConsumer;
    std::atomic<tcLogConsumer*>* mpSlot; // null when this delivery is only counted
};

// Loggers whose consumers count as in use. `consumer` is the logger's field.
void AddLogger(const tcLog* log, const tcShared<tcLogConsumer*>* consumer);

// `consumer` is what the logger last referred to; retired when the library owns it.
void RemoveLogger(const tcLog* log, tcLogConsumer* consumer);

// Changes a logger's field and returns what it held, which Exchange leaves to the caller and
// ExchangeAndHold keeps in use.
tcLogConsumer* Exchange(tcShared<tcLogConsumer*>& field, tcLogConsumer* consumer);
tcLogConsumer* ExchangeAndHold(tcShared<tcLogConsumer*>& field, tcLogConsumer* consumer);

// Keeps what a logger's field holds in use.
tcLogConsumer* Hold(const tcShared<tcLogConsumer*>& field);

// Retires the consumer when the library owns it.
void RetireOwned(tcLogConsumer* consumer);

// Deletes the retired consumers that can be deleted by now.
void Reclaim();

// A pointer that keeps its consumer in use, in whatever it is a member of. It becomes null when the
// consumer is destroyed all the same, by an owner who does not know of it. Its other changes are
// those of Keep.
void AddPointer(tcLogConsumer** pointer);
void RemovePointer(tcLogConsumer** pointer);

// Changes such a pointer. Returns what it held, still in use, for the caller to release.
tcLogConsumer* Keep(tcLogConsumer** pointer, tcLogConsumer* consumer);

// What such a pointer holds, in use once more, for the caller to release.
tcLogConsumer* HoldKept(tcLogConsumer** pointer);

// Drops what is known about a consumer that is being destroyed; pointers to it become null.
void Forget(tcLogConsumer* consumer);

} // namespace vx

#endif
