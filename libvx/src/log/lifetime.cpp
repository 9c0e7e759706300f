#include "lifetime.h"

#include "tcLogConsumer.h"
#include "vxguarded.h"

#include <algorithm>
#include <mutex>
#include <set>
#include <unordered_map>
#include <utility>
#include <vector>

namespace {

constexpr unsigned nSlots = 64;

struct alignas(64) tsSlot {
    std::atomic<tcLogConsumer*> mpConsumer{nullptr};
};

tsSlot gaSlots[nSlots];

// Deliveries that found no free slot.
std::atomic<int> gnUnnamed{0};

// Set while a consumer is retired: whoever lets a logger or a holder go of one calls Reclaim.
std::atomic<bool> gbRetired{false};

// Set while only deliveries are in the way of one: so does whoever ends a delivery.
std::atomic<bool> gbAwaited{false};

// Guards everything below and the consumers of loggers; nothing is called out of the library under
// it.
std::mutex ghLifetime;

struct tsLifetime {
    std::unordered_map<const tcLog*, const tcShared<tcLogConsumer*>*> mmLoggers;
    std::unordered_map<tcLogConsumer*, int> mmHeld;
    std::set<tcLogConsumer*> mmOwned;
    std::vector<tcLogConsumer*> maRetired;
    std::set<tcLogConsumer**> maPointers;
};

// Never destroyed: threads may log until the very end of the process.
tsLifetime& Lifetime()
{
    static tsLifetime& lifetime = *new tsLifetime;
    return lifetime;
}

// What a slot says during a delivery to `consumer`; a slot that says nothing is free.
tcLogConsumer* NameOf(tcLogConsumer* consumer)
{
    return consumer ? consumer : tcLog::NullConsumer();
}

// A free slot, from now on the caller's, naming the consumer; null when there is none.
std::atomic<tcLogConsumer*>* TakeSlot(tcLogConsumer* consumer)
{
    static std::atomic<unsigned> threads{0};
    static thread_local unsigned own = 0;
    if (own == 0) own = ++threads;
    for (unsigned i = 0; i < nSlots; ++i) {
        std::atomic<tcLogConsumer*>& slot = gaSlots[(own + i) % nSlots].mpConsumer;
        tcLogConsumer* none = nullptr;
        if (slot.load(std::memory_order_relaxed) == nullptr &&
            slot.compare_exchange_strong(none, consumer))
            return &slot;
    }
    return nullptr;
}

bool IsPermanent(tcLogConsumer* consumer)
{
    return !consumer || consumer == tcLog::NullConsumer() || consumer == tcLog::mpDefaultConsumer;
}

// Whether somebody may still find the consumer.
bool IsReferredTo(const tsLifetime& life, tcLogConsumer* consumer)
{
    if (IsPermanent(consumer) || consumer == tcLog::mpRedirectAllConsumer) return true;
    if (life.mmHeld.count(consumer) != 0) return true;
    return std::any_of(life.mmLoggers.begin(), life.mmLoggers.end(), [consumer](const auto& entry) {
        return entry.second->load(std::memory_order_seq_cst) == consumer;
    });
}

void EndHold(tsLifetime& life, tcLogConsumer* consumer)
{
    const auto found = life.mmHeld.find(consumer);
    if (found != life.mmHeld.end() && --found->second == 0) life.mmHeld.erase(found);
}

bool IsDeliveredTo(tcLogConsumer* consumer)
{
    return gnUnnamed.load() != 0 ||
           std::any_of(std::begin(gaSlots), std::end(gaSlots), [consumer](const tsSlot& slot) {
               return slot.mpConsumer.load() == consumer;
           });
}

// Takes one that can be deleted out of the retired ones; null when there is none. Needs no memory,
// as it is called where loggers and deliveries end.
tcLogConsumer* TakeUnused()
{
    const std::lock_guard<std::mutex> guard(ghLifetime);
    const tsLifetime& life = Lifetime();
    std::vector<tcLogConsumer*>& retired = Lifetime().maRetired;
    const auto unreferred = std::partition(retired.begin(), retired.end(), [&life](auto* consumer) {
        return IsReferredTo(life, consumer);
    });
    // Announced before looking: a delivery that is seen will look again when it ends.
    gbAwaited.store(unreferred != retired.end());
    const auto unused = std::partition(unreferred, retired.end(), IsDeliveredTo);
    gbAwaited.store(unused != unreferred);
    tcLogConsumer* taken = nullptr;
    if (unused != retired.end()) {
        taken = retired.back();
        retired.pop_back();
    }
    gbRetired.store(!retired.empty());
    return taken;
}

// Provides for that each owned one may be retired without memory.
void MakeRoom(tsLifetime& life, size_t more)
{
    life.maRetired.reserve(life.maRetired.size() + life.mmOwned.size() + more);
}

bool IsRetired(const tsLifetime& life, tcLogConsumer* consumer)
{
    const auto& retired = life.maRetired;
    return std::find(retired.begin(), retired.end(), consumer) != retired.end();
}

void Enlist(tsLifetime& life, tcLogConsumer* consumer)
{
    if (IsRetired(life, consumer)) return;
    life.maRetired.push_back(consumer);
    gbRetired.store(true);
}

void EnlistOwned(tsLifetime& life, tcLogConsumer* consumer)
{
    if (life.mmOwned.count(consumer) != 0 && !IsPermanent(consumer)) Enlist(life, consumer);
}

// To be called after a use has ended.
void UseEnded()
{
    if (gbRetired.load()) vx::Reclaim();
}

} // namespace

vx::tcDelivery::tcDelivery(const tcShared<tcLogConsumer*>& consumer)
    : mpConsumer(consumer.load(std::memory_order_seq_cst)), mpSlot(TakeSlot(NameOf(mpConsumer)))
{
    if (!mpSlot) gnUnnamed.fetch_add(1);
    for (;;) {
        tcLogConsumer* const present = consumer.load(std::memory_order_seq_cst);
        if (present == mpConsumer) return;
        mpConsumer = present;
        if (mpSlot) mpSlot->store(NameOf(present));
        if (gbAwaited.load()) Reclaim();
    }
}

vx::tcDelivery::~tcDelivery()
{
    if (mpSlot)
        mpSlot->store(nullptr);
    else
        gnUnnamed.fetch_sub(1);
    if (gbAwaited.load()) Reclaim();
}

void vx::AddLogger(const tcLog* log, const tcShared<tcLogConsumer*>* consumer)
{
    const std::lock_guard<std::mutex> guard(ghLifetime);
    Lifetime().mmLoggers[log] = consumer;
}

void vx::RemoveLogger(const tcLog* log, tcLogConsumer* consumer)
{
    {
        // One step, since the consumer may be gone once the logger is.
        const std::lock_guard<std::mutex> guard(ghLifetime);
        EnlistOwned(Lifetime(), consumer);
        Lifetime().mmLoggers.erase(log);
    }
    UseEnded();
}

tcLogConsumer* vx::Exchange(tcShared<tcLogConsumer*>& field, tcLogConsumer* consumer)
{
    tcLogConsumer* replaced;
    {
        const std::lock_guard<std::mutex> guard(ghLifetime);
        replaced = field.exchange(consumer);
    }
    UseEnded();
    return replaced;
}

tcLogConsumer* vx::ExchangeAndHold(tcShared<tcLogConsumer*>& field, tcLogConsumer* consumer)
{
    const std::lock_guard<std::mutex> guard(ghLifetime);
    if (tcLogConsumer* const present = field.load()) ++Lifetime().mmHeld[present]; // may throw
    return field.exchange(consumer);
}

tcLogConsumer* vx::Hold(const tcShared<tcLogConsumer*>& field)
{
    const std::lock_guard<std::mutex> guard(ghLifetime);
    tcLogConsumer* const consumer = field.load();
    if (consumer) ++Lifetime().mmHeld[consumer];
    return consumer;
}

void vx::RetireOwned(tcLogConsumer* consumer)
{
    {
        const std::lock_guard<std::mutex> guard(ghLifetime);
        EnlistOwned(Lifetime(), consumer);
    }
    UseEnded();
}

void vx::Reclaim()
{
    const tcNoCancel noCancel; // closing a file is where threads are cancelled
    while (const tcLogConsumer* unused = TakeUnused())
        delete unused;
}

void vx::AddPointer(tcLogConsumer** pointer)
{
    const std::lock_guard<std::mutex> guard(ghLifetime);
    Lifetime().maPointers.insert(pointer);
}

void vx::RemovePointer(tcLogConsumer** pointer)
{
    const std::lock_guard<std::mutex> guard(ghLifetime);
    Lifetime().maPointers.erase(pointer);
}

tcLogConsumer* vx::Keep(tcLogConsumer** pointer, tcLogConsumer* consumer)
{
    const std::lock_guard<std::mutex> guard(ghLifetime);
    if (consumer) ++Lifetime().mmHeld[consumer];
    return std::exchange(*pointer, consumer);
}

tcLogConsumer* vx::HoldKept(tcLogConsumer** pointer)
{
    const std::lock_guard<std::mutex> guard(ghLifetime);
    if (*pointer) ++Lifetime().mmHeld[*pointer];
    return *pointer;
}

void vx::Forget(tcLogConsumer* consumer)
{
    const std::lock_guard<std::mutex> guard(ghLifetime);
    tsLifetime& life = Lifetime();
    life.mmOwned.erase(consumer);
    life.maRetired.erase(std::remove(life.maRetired.begin(), life.maRetired.end(), consumer),
                         life.maRetired.end());
    for (tcLogConsumer** pointer : life.maPointers) {
        if (*pointer != consumer) continue;
        *pointer = nullptr;
        EndHold(life, consumer);
    }
}

void tcLog::AdoptConsumer(tcLogConsumer* consumer)
{
    if (IsPermanent(consumer)) return;
    const std::lock_guard<std::mutex> guard(ghLifetime);
    MakeRoom(Lifetime(), 1);
    Lifetime().mmOwned.insert(consumer);
}

void tcLog::RetireConsumer(tcLogConsumer* consumer)
{
    if (IsPermanent(consumer)) return;
    {
        const std::lock_guard<std::mutex> guard(ghLifetime);
        MakeRoom(Lifetime(), 1);
        Enlist(Lifetime(), consumer);
    }
    vx::Reclaim();
}

void tcLog::HoldConsumer(tcLogConsumer* consumer)
{
    if (!consumer) return;
    const std::lock_guard<std::mutex> guard(ghLifetime);
    ++Lifetime().mmHeld[consumer];
}

void tcLog::ReleaseConsumer(tcLogConsumer* consumer)
{
    {
        const std::lock_guard<std::mutex> guard(ghLifetime);
        EndHold(Lifetime(), consumer);
    }
    UseEnded();
}

tcHeldConsumer::tcHeldConsumer(tcLogConsumer* consumer) : mpConsumer(consumer)
{
    tcLog::HoldConsumer(consumer);
}

tcHeldConsumer::tcHeldConsumer(tcHeldConsumer&& other) noexcept : mpConsumer(other.mpConsumer)
{
    other.mpConsumer = nullptr;
}

tcHeldConsumer& tcHeldConsumer::operator=(tcHeldConsumer&& other) noexcept
{
    if (this == &other) return *this;
    reset();
    mpConsumer = other.mpConsumer;
    other.mpConsumer = nullptr;
    return *this;
}

tcHeldConsumer::~tcHeldConsumer()
{
    reset();
}

void tcHeldConsumer::reset()
{
    if (mpConsumer) tcLog::ReleaseConsumer(mpConsumer);
    mpConsumer = nullptr;
}
