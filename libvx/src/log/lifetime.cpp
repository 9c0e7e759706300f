#include "lifetime.h"

#include "tcLogConsumer.h"

#include <algorithm>
#include <mutex>
#include <set>
#include <unordered_map>
#include <vector>

namespace {

struct alignas(64) tsReaders {
    std::atomic<int> mnCount{0};
};

std::atomic<unsigned> gnPhase{0};
tsReaders gaReaders[2];

// Set while a consumer is retired: whoever ends a use of any consumer calls Reclaim.
std::atomic<bool> gbRetired{false};

// Set while one waits for deliveries: so does whoever ends a delivery.
std::atomic<bool> gbLeaving{false};

// Guards everything below; nothing is called out of the library under it.
std::mutex ghLifetime;

enum teGrace { eIdle, eFirstCounter, eSecondCounter };

struct tsLifetime {
    std::unordered_map<const tcLog*, const tcShared<tcLogConsumer*>*> mmLoggers;
    std::unordered_map<tcLogConsumer*, int> mmHeld;
    std::set<tcLogConsumer*> mmOwned;
    std::vector<tcLogConsumer*> maRetired; // perhaps in use
    std::vector<tcLogConsumer*> maLeaving; // out of use, waiting for deliveries to end
    teGrace meGrace = eIdle;
    unsigned mnAwaited = 0; // the counter waited for
};

// Never destroyed: threads may log until the very end of the process.
tsLifetime& Lifetime()
{
    static tsLifetime& lifetime = *new tsLifetime;
    return lifetime;
}

bool IsPermanent(tcLogConsumer* consumer)
{
    return !consumer || consumer == tcLog::NullConsumer() || consumer == tcLog::mpDefaultConsumer;
}

bool IsInUse(const tsLifetime& life, tcLogConsumer* consumer)
{
    if (IsPermanent(consumer) || consumer == tcLog::mpRedirectAllConsumer) return true;
    if (life.mmHeld.count(consumer) != 0) return true;
    for (const auto& entry : life.mmLoggers) {
        if (entry.second->load(std::memory_order_seq_cst) == consumer) return true;
    }
    return false;
}

void MoveUnused(const tsLifetime& life, std::vector<tcLogConsumer*>& from,
                std::vector<tcLogConsumer*>& to)
{
    const auto used = std::partition(from.begin(), from.end(),
                                     [&life](tcLogConsumer* c) { return IsInUse(life, c); });
    to.insert(to.end(), used, from.end());
    from.erase(used, from.end());
}

// Lets new deliveries count elsewhere and waits for those counted so far.
void Flip(tsLifetime& life, teGrace next)
{
    life.mnAwaited = gnPhase.load() & 1;
    gnPhase.store(life.mnAwaited ^ 1);
    life.meGrace = next;
}

// Takes one step towards deleting; false when nothing can be done now. What came free is added to
// `dead`.
bool Advance(tsLifetime& life, std::vector<tcLogConsumer*>& dead)
{
    if (life.meGrace == eIdle) {
        MoveUnused(life, life.maRetired, life.maLeaving);
        if (life.maLeaving.empty()) return false;
        gbLeaving.store(true);
        Flip(life, eFirstCounter);
        return true;
    }
    if (gaReaders[life.mnAwaited].mnCount.load() != 0) return false;
    if (life.meGrace == eFirstCounter) {
        Flip(life, eSecondCounter);
        return true;
    }
    // A delivery may have taken one of them into use again before it ended.
    MoveUnused(life, life.maLeaving, dead);
    life.maRetired.insert(life.maRetired.end(), life.maLeaving.begin(), life.maLeaving.end());
    life.maLeaving.clear();
    life.meGrace = eIdle;
    return true;
}

bool Contains(const std::vector<tcLogConsumer*>& list, tcLogConsumer* consumer)
{
    return std::find(list.begin(), list.end(), consumer) != list.end();
}

void Enlist(tsLifetime& life, tcLogConsumer* consumer)
{
    if (Contains(life.maRetired, consumer) || Contains(life.maLeaving, consumer)) return;
    life.maRetired.push_back(consumer);
    gbRetired.store(true);
}

void EnlistOwned(tsLifetime& life, tcLogConsumer* consumer)
{
    if (life.mmOwned.count(consumer) != 0 && !IsPermanent(consumer)) Enlist(life, consumer);
}

void EraseFrom(std::vector<tcLogConsumer*>& list, tcLogConsumer* consumer)
{
    list.erase(std::remove(list.begin(), list.end(), consumer), list.end());
}

} // namespace

vx::tcDelivery::tcDelivery() : mnPhase(gnPhase.load() & 1)
{
    gaReaders[mnPhase].mnCount.fetch_add(1);
}

vx::tcDelivery::~tcDelivery()
{
    gaReaders[mnPhase].mnCount.fetch_sub(1);
    if (gbLeaving.load()) Reclaim();
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

void vx::UseEnded()
{
    if (gbRetired.load()) Reclaim();
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
    std::vector<tcLogConsumer*> dead;
    {
        const std::lock_guard<std::mutex> guard(ghLifetime);
        tsLifetime& life = Lifetime();
        while (Advance(life, dead)) {
        }
        gbLeaving.store(!life.maLeaving.empty());
        gbRetired.store(gbLeaving || !life.maRetired.empty());
        for (tcLogConsumer* consumer : dead)
            life.mmOwned.erase(consumer);
    }
    for (tcLogConsumer* consumer : dead)
        delete consumer;
}

void vx::Forget(tcLogConsumer* consumer)
{
    const std::lock_guard<std::mutex> guard(ghLifetime);
    tsLifetime& life = Lifetime();
    life.mmOwned.erase(consumer);
    EraseFrom(life.maRetired, consumer);
    EraseFrom(life.maLeaving, consumer);
}

void tcLog::AdoptConsumer(tcLogConsumer* consumer)
{
    if (IsPermanent(consumer)) return;
    const std::lock_guard<std::mutex> guard(ghLifetime);
    Lifetime().mmOwned.insert(consumer);
}

void tcLog::RetireConsumer(tcLogConsumer* consumer)
{
    if (IsPermanent(consumer)) return;
    {
        const std::lock_guard<std::mutex> guard(ghLifetime);
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
        auto& held = Lifetime().mmHeld;
        const auto found = held.find(consumer);
        if (found == held.end()) return;
        if (--found->second == 0) held.erase(found);
    }
    vx::UseEnded();
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
