#include "tcLog.h"

#include "lifetime.h"
#include "tcLogConsumer.h"
#include "vxenvironment.h"
#include "vxguarded.h"
#include "vxhoststreams.h"
#include "vxundying.h"
#include "vxvisible.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <utility>

tcLog::tcLogMap* tcLog::spMap = nullptr;
pthread_mutex_t tcLog::shErrorLogIndexLock;
char** tcLog::saErrorMsgs = nullptr;
int tcLog::snErrorLogIndex = 0;
tcShared<bool> tcLog::sbErrorEnabled(true);
tcShared<bool> tcLog::sbDebugEnabled(true);
tcShared<bool> tcLog::mbSynchronizeLogs(false);
tcShared<tcLogConsumer*> tcLog::mpDefaultConsumer(nullptr);
tcShared<tcLogConsumer*> tcLog::mpRedirectAllConsumer(nullptr);
char* tcLogInitializer::mpInstance = nullptr;

namespace {

// Initialises the layer when the library is loaded, unless a logger of another file did before.
const struct tsLoadTimeStart {
    tsLoadTimeStart() { tcLogInitializer::Initialize(); }
} gLoadTimeStart;

char const* Text(char const* text)
{
    return text ? text : "";
}

void MakeTag(char const* text, char (&tag)[12])
{
    std::snprintf(tag, sizeof tag, "%8.8s", text);
}

// A variable of one logger; names are cut where the buffer ends.
std::string OwnVariable(char const* format, std::string const& name)
{
    char variable[160];
    std::snprintf(variable, sizeof variable, format, name.c_str());
    return variable;
}

// Where the error records of all loggers go: standard error.
class tcErrorConsole : public tcLogStream
{
public:
    tcErrorConsole() : tcLogStream(std::cerr) {}
};

tcLogConsumer* ErrorConsole()
{
    static vx::tcUndying<tcErrorConsole> room;
    static tcErrorConsole& console = room.Make();
    return &console;
}

// A consumer that the library owns.
tcLogConsumer* BuildOwned(char const* uri)
{
    tcLogConsumer* const consumer = tcLog::BuildConsumer(uri);
    try {
        tcLog::AdoptConsumer(consumer);
    } catch (...) {
        delete consumer; // one that stays needs no memory to be adopted
        throw;
    }
    return consumer;
}

// All of it or, for want of memory, nothing.
char** NewRing()
{
    auto ring = std::make_unique<char*[]>(tcLog::nErrorMessages);
    auto texts = std::make_unique<std::unique_ptr<char[]>[]>(tcLog::nErrorMessages);
    for (int i = 0; i < tcLog::nErrorMessages; ++i)
        texts[i] = std::make_unique<char[]>(tcLog::nErrorMessageSize);
    for (int i = 0; i < tcLog::nErrorMessages; ++i)
        ring[i] = texts[i].release();
    return ring.release();
}

} // namespace

void tcLock::InitializeLock(pthread_mutex_t& mutex)
{
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

void tcLogInitializer::Initialize()
{
    if (mpInstance) return;
    tcLock::InitializeLock(tcLog::shErrorLogIndexLock);
    if (!tcLog::mpDefaultConsumer) tcLog::mpDefaultConsumer = tcLog::NullConsumer();
    mpInstance = new char();
}

tcLogGuard::tcLogGuard()
{
    pthread_mutex_lock(&tcLog::shErrorLogIndexLock);
}

tcLogGuard::~tcLogGuard()
{
    pthread_mutex_unlock(&tcLog::shErrorLogIndexLock);
}

tcLog::tcLog()
    : mnDbgLevel(0), maTag{}, maErrorTag{}, mnStreamLevel(0), mpConsumer(nullptr),
      mpErrorConsole(nullptr)
{
    tcLogInitializer::Initialize();
    mpConsumer = mpDefaultConsumer;
    vx::AddLogger(this, &mpConsumer);
}

tcLog::tcLog(char const* name, int level) : tcLog(name, nullptr, level) {}

tcLog::tcLog(char const* name, char const* tag, int level) : tcLog()
{
    setDbgLevel(level);
    msName = Text(name);
    MakeTag(msName.c_str(), maTag);
    MakeTag(tag ? tag : msName.c_str(), maErrorTag);
    Register();
}

tcLog::tcLog(std::string name, std::string tag, int level)
    : tcLog(name.c_str(), tag.empty() ? nullptr : tag.c_str(), level)
{}

tcLog::~tcLog()
{
    // Nobody finds the logger, nor looks at its consumer, once the lock has been held here.
    {
        const tcLogGuard guard;
        // Kept: the entry goes even when it is that of another logger of the same name.
        if (spMap) spMap->erase(msName);
    }
    vx::RemoveLogger(this, mpConsumer);
}

void tcLog::SetTag(char const* tag)
{
    tag = Text(tag);
    const bool isNew = msName.empty();
    MakeTag(tag, maTag);
    if (maErrorTag[0] == '\0') std::memcpy(maErrorTag, maTag, sizeof maErrorTag);
    if (!isNew) return;
    vx::Guarded(0, [this, tag] {
        std::string name = tag;
        const tcLogGuard guard;
        (void)GetMap()[name];                      // what may fail comes before anything is changed
        const auto former = GetMap().find(msName); // a logger may be registered without a name
        const bool isOwn = former != GetMap().end() && former->second == this;
        if (isOwn && !name.empty()) GetMap().erase(former);
        msName.swap(name);
        Register();
        return 0;
    });
}

void tcLog::Register()
{
    // Entering and setting up are one step to everybody else.
    const tcLogGuard guard;
    tcLog*& entry = GetMap()[msName];
    if (!entry) entry = this;
    SetUp();
}

void tcLog::InitFromEnvironment()
{
    vx::Guarded(0, [this] {
        SetUp();
        return 0;
    });
}

void tcLog::SetUp()
{
    const tcLogGuard guard;
    if (!saErrorMsgs) saErrorMsgs = NewRing();
    if (vx::Variable("TCLOG_NO_ERRORLOG")) {
        vx::Print(std::cout, "tcLog: Disabling Error Logging!!!\n");
        sbErrorEnabled = false;
    }
    if (char const* level = vx::Variable(OwnVariable("%s_DEBUGLEVEL", msName).c_str()))
        setDbgLevel(static_cast<int>(std::strtol(level, nullptr, 10)));
    if (char const* uri = vx::PlaceVariable(OwnVariable("%s_LOGURI", msName).c_str()))
        vx::RetireOwned(ExchangeConsumer(BuildOwned(uri)).get());
    const bool isSuppressed = vx::Variable("TCLOG_SUPPRESS_ERR_CONSOLE") != nullptr;
    __atomic_store_n(&mpErrorConsole, isSuppressed ? nullptr : ErrorConsole(), __ATOMIC_RELEASE);
    std::string description = "Log object for " + msName;
    if (msDescription != description) msDescription.swap(description);
    if (!vx::Variable("TCLOG_VERBOSE")) return;
    tcHeldConsumer consumer = HeldConsumer();
    vx::Print(std::cerr, msDescription + " Level = " + std::to_string(getDbgLevel()) + " [" +
                             vx::Visible(consumer ? consumer->Description() : "") + " ]\n");
}

tcLogConsumer* tcLog::SetConsumer(tcLogConsumer* consumer)
{
    if (!consumer) consumer = mpDefaultConsumer;
    return vx::Exchange(mpConsumer, consumer);
}

tcHeldConsumer tcLog::ExchangeConsumer(tcLogConsumer* consumer)
{
    if (!consumer) consumer = mpDefaultConsumer;
    tcHeldConsumer replaced;
    replaced.mpConsumer = vx::ExchangeAndHold(mpConsumer, consumer);
    return replaced;
}

tcHeldConsumer tcLog::HeldConsumer() const
{
    tcHeldConsumer present;
    present.mpConsumer = vx::Hold(mpConsumer);
    return present;
}

void tcLog::CloseLog()
{
    SetConsumer(NullConsumer());
}

tcLog::tcLogMap& tcLog::GetMap()
{
    const tcLogGuard guard;
    if (!spMap) spMap = new tcLogMap;
    return *spMap;
}

tcLog::tcLogMap tcLog::CopyOfMap()
{
    return vx::Guarded(tcLogMap(), [] {
        const tcLogGuard guard;
        return GetMap();
    });
}

tcLog* tcLog::FindLog(char const* name)
{
    constexpr tcLog* none = nullptr;
    return vx::Guarded(none, [name] {
        const tcLogGuard guard;
        tcLog* const found = FindLogPtr(Text(name));
        return found ? found : new tcLog(name, 1);
    });
}

tcLog* tcLog::FindLogPtr(char const* name)
{
    constexpr tcLog* none = nullptr;
    if (!name) return none;
    return vx::Guarded(none, [name] {
        const tcLogGuard guard;
        const auto entry = GetMap().find(name);
        return entry == GetMap().end() ? nullptr : entry->second;
    });
}

void tcLog::DeleteMap()
{
    delete std::exchange(spMap, nullptr);
}

void tcLog::CleanupClassScopeAllocation()
{
    const tcLogGuard guard;
    if (saErrorMsgs) {
        for (int i = 0; i < nErrorMessages; ++i)
            delete[] saErrorMsgs[i];
        delete[] std::exchange(saErrorMsgs, nullptr);
    }
    DeleteMap();
    const tcHeldConsumer previous(mpRedirectAllConsumer);
    mpRedirectAllConsumer = nullptr;
    RetireConsumer(previous.get());
}

static void Redirect(tcHeldConsumer const& consumer)
{
    for (const auto& entry : tcLog::GetMap()) {
        if (!entry.second) continue;
        tcHeldConsumer replaced = entry.second->ExchangeConsumer(consumer.get());
        if (replaced.get() != consumer.get()) vx::RetireOwned(replaced.get());
    }
    const tcHeldConsumer previous(tcLog::mpRedirectAllConsumer);
    tcLog::mpRedirectAllConsumer = consumer.get();
    if (previous.get() != consumer.get()) tcLog::RetireConsumer(previous.get());
}

void tcLog::RedirectAllLogs(char const* uri)
{
    vx::Guarded(0, [uri] {
        const tcLogGuard guard;
        tcLogConsumer* const consumer = BuildOwned(uri);
        try {
            Redirect(tcHeldConsumer(consumer));
        } catch (...) {
            vx::RetireOwned(consumer); // goes with the loggers that have it by now
        }
        return 0;
    });
}

tcLogConsumer* tcLog::NullConsumer()
{
    static tcLogNull& null = *new tcLogNull;
    return &null;
}

static std::string ListOfLogs()
{
    const tcLogGuard guard;
    std::string list;
    for (const auto& entry : tcLog::GetMap()) {
        if (!entry.second) continue;
        list += entry.first + " = " + std::to_string(entry.second->getDbgLevel());
        if (const tcHeldConsumer consumer = entry.second->HeldConsumer())
            list += " [" + vx::Visible(consumer->Description()) + "]";
        list += " (" + entry.second->GetDescription() + ")\n";
    }
    return list;
}

// A stream may take its time: nobody who logs waits meanwhile.
extern "C" int StreamLogs(std::ostream& os)
{
    os << vx::Guarded(std::string(), ListOfLogs);
    return 0;
}

extern "C" int ListLogs()
{
    return vx::Guarded(0, [] {
        vx::Print(std::cout, ListOfLogs());
        return 0;
    });
}

extern "C" void SetLogLevel(char const* name, int level)
{
    if (!name) return;
    {
        const tcLogGuard guard;
        tcLog* const log = tcLog::FindLogPtr(name);
        if (log) return log->setDbgLevel(level);
    }
    vx::PrintFormatted(std::cout, "!!! %s doesn't point to a valid log anymore!\n", name);
}

extern "C" int GetLogLevel(char const* name)
{
    if (!name) return -1;
    return vx::Guarded(-1, [name] {
        const tcLogGuard guard;
        // Kept: asking for an unknown name leaves an entry without a logger.
        tcLog* log = tcLog::GetMap()[name];
        return log ? log->getDbgLevel() : -1;
    });
}
