// When a consumer may be deleted, private to the library.
//
// Every delivery happens inside a tcDelivery, which counts its thread in one of two counters. A
// retired consumer that no logger refers to and nobody holds is deleted after both counters have
// been seen at zero since: whoever could still have found it in a logger is then through. New
// deliveries count in the other counter than the one waited for, so neither is kept from zero.
// Nobody waits; the thread whose step was the last one in the way deletes.
#ifndef VX_LIFETIME_H
#define VX_LIFETIME_H

#include "tcLog.h"

namespace vx {

// The scope in which a consumer found in a logger may be used.
class tcDelivery
{
public:
    tcDelivery();
    ~tcDelivery();
    tcDelivery(const tcDelivery&) = delete;
    tcDelivery& operator=(const tcDelivery&) = delete;

private:
    unsigned mnPhase;
};

// Loggers whose consumers count as in use. `consumer` is the logger's field.
void AddLogger(const tcLog* log, const tcShared<tcLogConsumer*>* consumer);

// `consumer` is what the logger last referred to; retired when the library owns it.
void RemoveLogger(const tcLog* log, tcLogConsumer* consumer);

// To be called after a logger has let go of a consumer.
void UseEnded();

// Retires the consumer when the library owns it.
void RetireOwned(tcLogConsumer* consumer);

// Deletes the retired consumers that can be deleted by now.
void Reclaim();

// Drops what is known about a consumer that is being destroyed.
void Forget(tcLogConsumer* consumer);

} // namespace vx

#endif
