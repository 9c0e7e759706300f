// Named loggers.
//
// Every class logs through a logger of its own, found by name in one process-wide registry. A
// logger turns each call into one record and hands it to its consumer (tcLogConsumer.h); error
// records also go to standard error and into a ring of the last 1000. Environment variables, with
// the logger's name in front: NAME_DEBUGLEVEL sets the level, NAME_LOGURI the consumer. For all
// loggers: TCLOG_NO_ERRORLOG drops error records, TCLOG_SUPPRESS_ERR_CONSOLE keeps them away from
// standard error, TCLOG_VERBOSE prints each logger as it is set up. Programs with raised rights,
// set-user-id ones for example, do not look at NAME_LOGURI.
//
// Without memory what logs, finds or sets does nothing, and returns null, nothing or a failure;
// constructors throw std::bad_alloc then, and so does what hands out held consumers or the registry
// itself. StreamLogs throws what an application's own stream throws. A thread that is cancelled
// (pthread_cancel) inside a call ends that call first.
#ifndef TCLOG_H
#define TCLOG_H

#include "vxexport.h"

#include <pthread.h>

#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <map>
#include <string>
#include <type_traits>

class tcLogConsumer;

// A value that any thread may read and write at any time; copies copy the value.
template <typename tValue>
class tcShared
{
public:
    constexpr tcShared(tValue value = tValue()) : mValue(value) {}
    tcShared(const tcShared& other) : mValue(other.load()) {}

    tcShared& operator=(const tcShared& other)
    {
        store(other.load());
        return *this;
    }
    tcShared& operator=(tValue value)
    {
        store(value);
        return *this;
    }

    operator tValue() const { return load(); }
    tValue operator->() const { return load(); }
    tValue load(std::memory_order order = std::memory_order_acquire) const
    {
        return mValue.load(order);
    }
    void store(tValue value) { mValue.store(value); }
    tValue exchange(tValue value) { return mValue.exchange(value); }

private:
    std::atomic<tValue> mValue;
};

// One record, as it is stored and as it travels in binary datagrams (native byte order).
struct tcLogEvent {
    enum teEventLogType : int32_t { eDebug = 0, eJournal = 1, eError = 2, eEvent = 3 };

    teEventLogType type;
    int32_t seconds; // since the epoch
    int32_t millis;  // 0 to 1000
    int32_t level;   // debug level, 0 when there is none
    int32_t errNum;  // error number, 0 when there is none
    char tag[16];
    char message[256]; // terminated
};
static_assert(sizeof(tcLogEvent) == 292, "the record is a wire format");
static_assert(offsetof(tcLogEvent, seconds) == 4, "the record is a wire format");
static_assert(offsetof(tcLogEvent, millis) == 8, "the record is a wire format");
static_assert(offsetof(tcLogEvent, level) == 12, "the record is a wire format");
static_assert(offsetof(tcLogEvent, errNum) == 16, "the record is a wire format");
static_assert(offsetof(tcLogEvent, tag) == 20, "the record is a wire format");
static_assert(offsetof(tcLogEvent, message) == 36, "the record is a wire format");

class VX_EXPORT tcLock
{
public:
    // Initialises `mutex` as a recursive mutex.
    static void InitializeLock(pthread_mutex_t& mutex);
};

// Initialises the logging layer once, before the first logger. Runs when the library is loaded.
class VX_EXPORT tcLogInitializer
{
public:
    static void Initialize();

    static char* mpInstance; // not null once initialised
};

// A consumer kept in use: it is not closed while this object refers to it. Null is allowed.
// Threads: one object is used by one thread.
class VX_EXPORT tcHeldConsumer
{
public:
    tcHeldConsumer() = default;

    // The consumer must be in use already, or not yet retired.
    explicit tcHeldConsumer(tcLogConsumer* consumer);
    tcHeldConsumer(tcHeldConsumer&& other) noexcept;
    tcHeldConsumer& operator=(tcHeldConsumer&& other) noexcept;
    ~tcHeldConsumer();

    // Lets go of the consumer.
    void reset();

    tcLogConsumer* get() const { return mpConsumer; }
    tcLogConsumer* operator->() const { return mpConsumer; }
    explicit operator bool() const { return mpConsumer != nullptr; }

private:
    friend class tcLog;

    tcLogConsumer* mpConsumer = nullptr;
};

// A named logger.
// Threads: after construction and naming, every operation may be called from any thread;
// destruction needs all others to have finished with the logger. Locks: shErrorLogIndexLock
// (recursive) guards the registry, the ring and the setting-up of loggers; emitting a debug,
// journal or event record takes no lock unless mbSynchronizeLogs is set. Owns: nothing; a consumer
// belongs to whoever built it, or to the library: from the environment or for RedirectAllLogs.
class VX_EXPORT tcLog
{
public:
    typedef std::map<std::string, tcLog*> tcLogMap;

    // ---- Construction and naming --------------------------------------------------------------

    // A logger of level 0 without a name; SetTag names and registers it.
    tcLog();

    // Registers the logger, unless the name is taken: then the first one stays the one that is
    // found. The first 8 characters of the name are the tag of its records; `tag` is that of error
    // records.
    tcLog(char const* name, int level);
    tcLog(char const* name, char const* tag, int level);
    tcLog(std::string name, std::string tag, int level);
    tcLog(const tcLog&) = delete;
    tcLog& operator=(const tcLog&) = delete;

    // Takes the name out of the registry, whichever logger is registered under it.
    ~tcLog();

    void SetTag(char const* tag);

    // ---- Level and consumer -------------------------------------------------------------------

    // Level N emits debug records of level N and below; -N emits also exactly those of level N.
    void setDbgLevel(int level) { mnDbgLevel.store(level, std::memory_order_relaxed); }
    int getDbgLevel() const { return mnDbgLevel.load(std::memory_order_relaxed); }

    // True when a debug record of this level is emitted.
    bool isDebug(int level) const
    {
        if (!sbDebugEnabled.load(std::memory_order_relaxed)) return false;
        const int own = getDbgLevel();
        return own >= level || static_cast<unsigned>(own) + static_cast<unsigned>(level) == 0;
    }

    // Sends the records to `consumer`, or to mpDefaultConsumer when it is null. Returns the
    // consumer this replaces, which is not closed. Should it be one that other threads may retire
    // meanwhile, ExchangeConsumer keeps it in use.
    tcLogConsumer* SetConsumer(tcLogConsumer* consumer);
    tcHeldConsumer ExchangeConsumer(tcLogConsumer* consumer);

    // The current consumer, kept in use; it may be null only when mpDefaultConsumer was set to
    // null.
    tcHeldConsumer HeldConsumer() const;

    // The current consumer, for comparing.
    tcLogConsumer* GetConsumer() const { return mpConsumer.load(); }

    // Sends the records to the null consumer.
    void CloseLog();

    // From now on the control characters of texts that %s puts into records are made visible, as
    // "\n" or "\x1b": for loggers that repeat words of strangers. To be called before other threads
    // use the logger.
    void ShowControlCharacters() { mbShowsControls = true; }

    std::string const& GetName() const { return msName; }
    std::string const& GetDescription() const { return msDescription; }
    char const* GetTag() const { return maTag; }
    char const* GetErrorTag() const { return maErrorTag; }

    // Reads the environment variables for this logger; part of construction.
    void InitFromEnvironment();

    // ---- Emission -----------------------------------------------------------------------------
    // Formats are those of printf; messages are cut at 255 characters. errno is left as it was.

    void logError(char const* fmt, ...) __attribute__((format(printf, 2, 3)));
    void logError(int errNum, char const* fmt, ...) __attribute__((format(printf, 3, 4)));

    // Attaches the current errno.
    void logSystemError(char const* fmt, ...) __attribute__((format(printf, 2, 3)));
    void logJournal(char const* fmt, ...) __attribute__((format(printf, 2, 3)));
    void logEvent(char const* fmt, ...) __attribute__((format(printf, 2, 3)));

#ifdef VX_CHECK_LOG_FORMATS
    // For compiling without producing code: lets the compiler check formats against arguments.
    void logDebug(char const* fmt, ...) __attribute__((format(printf, 2, 3)));
    void logDebug(int level, char const* fmt, ...) __attribute__((format(printf, 3, 4)));
#else
    // Without a level: emitted unless debug records are switched off altogether.
    template <typename... tArguments>
    void logDebug(char const* fmt, tArguments... arguments)
    {
        static_assert((std::is_scalar_v<tArguments> && ...), "printf takes scalars only");
        if (sbDebugEnabled.load(std::memory_order_relaxed)) EmitDebug(fmt, arguments...);
    }

    template <typename... tArguments>
    void logDebug(int level, char const* fmt, tArguments... arguments)
    {
        static_assert((std::is_scalar_v<tArguments> && ...), "printf takes scalars only");
        if (isDebug(level)) EmitDebug(level, fmt, arguments...);
    }
#endif

    // Emits `text`, as a format, in a debug record, whatever the levels and switches say.
    tcLog& operator<<(char const* text);
    tcLog& operator<<(std::string const& text);

    // Emits one record without asking the switches. Records other than errors whose consumer is the
    // null consumer are not formatted.
    void log(tcLogEvent::teEventLogType type, int level, int errNum, char const* fmt, va_list args)
        __attribute__((format(printf, 5, 0)));

    // ---- Registry -----------------------------------------------------------------------------
    // Entries may be null (GetLogLevel makes them for unknown names).

    static tcLogMap& GetMap();
    static tcLogMap CopyOfMap();

    // The logger of that name, or null; FindLog then makes one of level 1, never deleted, if there
    // is memory.
    static tcLog* FindLog(char const* name);
    static tcLog* FindLogPtr(char const* name);

    // Forgets all loggers without deleting them. Takes no lock: nobody else may be logging.
    static void DeleteMap();

    // Frees everything that belongs to the class: ring, registry, redirection.
    static void CleanupClassScopeAllocation();

    // Sends every registered logger's records to one consumer built from the URI.
    static void RedirectAllLogs(char const* uri);

    // ---- Consumers ----------------------------------------------------------------------------

    static tcLogConsumer* NullConsumer();

    // A new consumer, owned by the caller, or mpDefaultConsumer when the URI asks for nothing:
    //   cout                              standard output
    //   file:NAME                         a file, appended to
    //   buff:LINES                        the last 1 to tcLogBuffer::nMaximumLines records
    //   udp:ADDRESS:PORT[:bin|txt[:INTERFACE]]  datagrams
    //   null                              nothing
    // ":" and "/" and runs of them separate; a file is therefore always in the working directory.
    static tcLogConsumer* BuildConsumer(char const* uri);

    // Hands a consumer that nobody else owns to the library: it is retired when RedirectAllLogs
    // replaces it or its logger is destroyed. Nothing happens for default and null consumer.
    static void AdoptConsumer(tcLogConsumer* consumer);

    // Deletes a consumer as soon as no logger refers to it, nobody holds it and no record is being
    // delivered to it: at once if that is so already, else by the thread that ends the last use.
    // Never waits; may be called from within Output. The default and the null consumer stay.
    static void RetireConsumer(tcLogConsumer* consumer);

    // Keep a consumer in use, for pointers saved elsewhere. Calls are counted.
    static void HoldConsumer(tcLogConsumer* consumer);
    static void ReleaseConsumer(tcLogConsumer* consumer);

    // ---- Error ring ---------------------------------------------------------------------------

    // The newest text, in a buffer of the calling thread that its next call overwrites. Empty
    // before the first error.
    static char const* LastErrorMessage();

    // The ring's texts from slot 0 on, numbered.
    static std::string ErrorBuffer();

    static std::string DecodeSysErrCode(int code);

    // ---- The host's output --------------------------------------------------------------------

    // How many texts the library has left out, since the process began, that the host's standard
    // output or error did not take in time: records, lists, and whatever else it prints there.
    static unsigned long UnprintedTexts();

    // ---- Class scope --------------------------------------------------------------------------

    static tcLogMap* spMap;                     // guarded by the lock
    static pthread_mutex_t shErrorLogIndexLock; // recursive
    static char** saErrorMsgs;                  // guarded by the lock
    static int snErrorLogIndex;                 // next slot; guarded by the lock
    static tcShared<bool> sbErrorEnabled;       // gate of error records
    static tcShared<bool> sbDebugEnabled;       // gate of debug records
    static tcShared<bool> mbSynchronizeLogs;    // deliver under the lock
    static tcShared<tcLogConsumer*> mpDefaultConsumer;
    static tcShared<tcLogConsumer*> mpRedirectAllConsumer;

    static constexpr int nErrorMessages = 1000;
    static constexpr int nErrorMessageSize = 256;

private:
    void Register();
    void SetUp();
    void EmitDebug(char const* fmt, ...);
    void EmitDebug(int level, char const* fmt, ...);
    void EmitText(char const* fmt, ...);
    void Emit(tcLogEvent::teEventLogType type, int level, int errNum, char const* fmt, va_list args,
              char const* failure);
    void Deliver(tcLogEvent const& event);

    std::atomic<int> mnDbgLevel;
    char maTag[12];
    std::string msName;
    std::string msDescription;
    char maErrorTag[12];
    int mnStreamLevel;
    tcShared<tcLogConsumer*> mpConsumer;
    tcLogConsumer* mpErrorConsole; // that of all loggers, or null; atomic
    bool mbShowsControls = false;
};

// Holds the logging lock: loggers that are found meanwhile in the registry stay alive.
class VX_EXPORT tcLogGuard
{
public:
    tcLogGuard();
    ~tcLogGuard();
    tcLogGuard(const tcLogGuard&) = delete;
    tcLogGuard& operator=(const tcLogGuard&) = delete;
};

// Logs the entry to and the exit from a scope as debug records of one level. Texts are formats.
class VX_EXPORT tcFuncLog
{
public:
    tcFuncLog(tcLog& log, int level, char const* function);
    tcFuncLog(tcLog& log, int level, char const* file, int line, char const* function);
    ~tcFuncLog();
    tcFuncLog(const tcFuncLog&) = delete;
    tcFuncLog& operator=(const tcFuncLog&) = delete;

    tcFuncLog& operator<<(char const* text);
    tcFuncLog& operator<<(std::string const& text);

private:
    tcLog& mLog;
    int mnLevel;
    std::string msFunction;
};

// The text of the current errno behind the name of a place: "open:No such file or directory".
class VX_EXPORT tcOSError
{
public:
    explicit tcOSError(char const* where);

    char const* c_str() const { return msText.c_str(); }

private:
    std::string msText;
};

extern "C" {

// Writes one line for each registered logger: name, level, consumer, description. Returns 0.
VX_EXPORT int StreamLogs(std::ostream& os);

// The same on standard output.
VX_EXPORT int ListLogs();

// Writes the error ring to a file, or to standard output when `path` is null or cannot be opened.
// Returns 0.
VX_EXPORT int DumpErrorMsgs(char const* path);

// Sets a logger's level; a name that is not known is reported on standard output.
VX_EXPORT void SetLogLevel(char const* name, int level);

// A logger's level, -1 when there is none of that name.
VX_EXPORT int GetLogLevel(char const* name);
}

#endif
