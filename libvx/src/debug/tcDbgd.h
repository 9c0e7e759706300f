// The debug daemon: a small TCP command server inside the process.
//
// A client connects, sends TOKEN or TOKEN:arguments in one segment of at most 1024 bytes, gets what
// the handler of that token writes, and the connection is closed. Tokens are case-sensitive and end
// at the first colon; a request without a colon must not end in a newline. There is no answer to a
// token that nobody handles. Built in are ECHO, HELP, LIST and LOG; applications and loadable
// modules add handlers of their own, and the first camera that is opened adds CAM.
//
// The daemon starts when the library is loaded. Every 5 seconds it sends the datagram
// "DBGD DBGD <port>" with a zero byte, so that tools find the process; a port above 32767 appears
// as a negative number.
//
// A program or module that defines VXNoDebugServices (vxexport.h) has no server unless it asks for
// one; see sbHeedsOptOut. Environment, read when the daemon is built or its server started, and
// with raised privileges (set-user-id, for example) only the first of these:
//   DBGD_DISABLE         no server: no socket, no thread; the handlers work in the process only
//   DBGD_PORTNUM         the port instead of 17020; 0 picks a free one
//   DBGD_BIND            the local address to listen on instead of all, dotted
//   DBGD_ALLOW           who may connect: addresses, separated by commas, each with "/" and a
//                        prefix length or dotted mask where it is a network; others are closed
//                        unread. An entry that cannot be read admits nobody. Without it
//                        everybody may connect, but see Trusts.
//   DBGD_ANNOUCE_GROUP   where announcements go: address, or address:port, instead of
//                        239.192.100.100:7020
//   DBGD_MODULE_PATH     a directory whose ".so" files are loaded when the daemon is built
#ifndef TCDBGD_H
#define TCDBGD_H

#include "vxexport.h"

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>

class HSocket;
class tcLog;
class tcLogConsumer;

// A handler ("worker bee") of one command.
// Threads: Run is called by several client threads at once.
class VX_EXPORT tcDbgdWB
{
public:
    tcDbgdWB(const char* token, const char* help);
    virtual ~tcDbgdWB();
    tcDbgdWB(const tcDbgdWB&) = delete;
    tcDbgdWB& operator=(const tcDbgdWB&) = delete;

    // Writes the reply to `client`, which stays the caller's. `args` is the text behind the colon
    // up to the first line end, empty when there is none; it may be changed.
    virtual void Run(HSocket* client, char* args) = 0;

    std::string msToken;
    std::string msHelp;
};

// The daemon. There is one for a process, built on first use and never destroyed.
// Threads: every operation may be called from any thread. Locks: one guards the handlers; no
// handler runs under it. Owns: its threads; not the handlers.
class VX_EXPORT tcDbgd
{
    class __attribute__((visibility("hidden"))) tcRegistry;
    class __attribute__((visibility("hidden"))) tcServer;

public:
    // A handler in use, or none: RemoveWB waits until it is let go.
    class tcHeldWB
    {
    public:
        tcHeldWB(tcHeldWB&& other) noexcept;
        tcHeldWB& operator=(tcHeldWB&&) = delete;
        ~tcHeldWB();

        tcDbgdWB* operator->() const { return mpHandler; }
        explicit operator bool() const { return mpHandler != nullptr; }

    private:
        friend class tcDbgd;
        tcHeldWB(std::shared_ptr<tcRegistry> registry, tcDbgdWB* handler);

        std::shared_ptr<tcRegistry> mpRegistry;
        tcDbgdWB* mpHandler;
    };

    // Becomes the process's daemon, loads the modules and starts the server. Applications use
    // getItem.
    tcDbgd();
    ~tcDbgd();
    tcDbgd(const tcDbgd&) = delete;
    tcDbgd& operator=(const tcDbgd&) = delete;

    // The process's daemon; null only when it could not be built for want of memory.
    static tcDbgd* getItem();

    // Does nothing while a server runs; one that is just being stopped is waited for (1 s at most).
    void StartServer();

    // Does not wait: the server ends within 100 ms. Clients being served finish.
    void StopServer();

    // Enters a handler, which stays the caller's. 0, or -1 when its token is taken.
    int RegisterWB(tcDbgdWB* handler);

    // Removes the handler of this one's token and waits at most a second until no other thread is
    // in its Run. 0, or -1 when there is none.
    int RemoveWB(tcDbgdWB* handler);

    // The handler of a token or null. HoldWB keeps it from being removed meanwhile.
    tcDbgdWB* GetWB(char const* token);
    tcHeldWB HoldWB(char const* token);

    // "Available Tokens:" and the tokens, each on a line behind a tab.
    std::string List();

    // The port the server listens on, 0 while it does not.
    unsigned short GetPort() const;

    // Whether a client may have the process open files and send to addresses: one that is on this
    // host, or that DBGD_ALLOW admits; nobody in programs with raised privileges. Null is the
    // process itself. Handlers that do such things ask first; LOG does.
    bool Trusts(HSocket* client);

    // Serves one command of a client; closes and deletes it.
    static void StartWorkerBee(HSocket* client);

    // The logger "dbgd".
    static tcLog& GetLog();

    static tcDbgd* mpDbgd;

    // The module directory when DBGD_MODULE_PATH is not set. Null: none.
    static char const* spLoadableModulePath;

    // Whether StartServer does nothing in a process with VXNoDebugServices (true). A program that
    // leaves it to its user defines that, clears this when it is told to, and calls StartServer.
    static std::atomic<bool> sbHeedsOptOut;

    // Clients at a time; more wait. For one that waits, another gives up its place: the one that
    // has been silent longest, has its reply, takes nothing of it for 0.1 s, or has been served
    // for snReplyPatience, whatever keeps it. The last two are cut.
    static constexpr int nMaximumClients = 64;

    // Times in milliseconds, meant for tests: between announcements (5000), how long a client may
    // stay silent (10000) or not take its reply (2000; that of the item server, too), a second of
    // the delays between attempts to get the port (1000).
    static std::atomic<int> snAnnounceInterval;
    static std::atomic<int> snClientPatience;
    static std::atomic<int> snReplyPatience;
    static std::atomic<int> snRetrySecond;

private:
    friend struct tsBuiltInHandlers;

    static tcHeldWB Hold(const std::shared_ptr<tcRegistry>& registry, char const* token);

    static void LoadModules();

    const std::shared_ptr<tcRegistry> mpRegistry;
    mutable std::mutex mhServerLock;
    std::shared_ptr<tcServer> mpServer; // guarded by mhServerLock
    unsigned short mnPort;              // guarded by mhServerLock
    const std::string msName;
};

// ECHO:text - the text and a newline.
class VX_EXPORT tcDbgdWB_echo : public tcDbgdWB
{
public:
    tcDbgdWB_echo();
    void Run(HSocket* client, char* args) override;
};

// HELP:TOKEN - the help text of that handler.
class VX_EXPORT tcDbgdWB_help : public tcDbgdWB
{
public:
    tcDbgdWB_help();
    void Run(HSocket* client, char* args) override;
};

// LIST - the tokens.
class VX_EXPORT tcDbgdWB_list : public tcDbgdWB
{
public:
    tcDbgdWB_list();
    void Run(HSocket* client, char* args) override;
};

// What LOG did to one logger. The consumers are kept in use as long as they stand here.
struct tcLogInfo {
    tcLog* log = nullptr;                     // for comparing: it may be gone
    tcLogConsumer* uriConsumer = nullptr;     // the last one installed by URI
    tcLogConsumer* createdConsumer = nullptr; // installed now
    tcLogConsumer* savedConsumer = nullptr;   // the one it replaced
};

// LOG:... - lists, reads, sets and redirects loggers.
// Threads: any number of clients. Locks: mhLock guards the records; it is taken before the logging
// lock. Nothing is sent, and no consumer built, under either. Owns: the records, and the
// consumers it created as long as they are in force or saved.
class VX_EXPORT tcDbgdWB_log : public tcDbgdWB
{
public:
    tcDbgdWB_log();
    ~tcDbgdWB_log() override;

    void Run(HSocket* client, char* command) override;

    // One for each sub-command; `command` is the whole text behind "LOG:".
    void List(HSocket* client);
    void Dir(HSocket* client);
    void SetURI(HSocket* client, char* command);
    void Set(HSocket* client, char* command);
    void Get(HSocket* client, char* command);
    void Enable(HSocket* client, char* command);
    void Dump(HSocket* client, char* command);
    void Errs(HSocket* client, char* command);

    // The record of a logger, null when this handler never redirected one of that name. It lives as
    // long as the handler.
    tcLogInfo* FindLogInfoPtr(char const* name);

private:
    tcLogInfo* RecordFor(const std::string& name, tcLog* log);
    bool IsRedirectable(const std::string& name);
    void RedirectTo(const std::string& name, tcLogConsumer* consumer, bool isUri);
    void Restore(const std::string& name);

    std::recursive_mutex mhLock;
    std::map<std::string, tcLogInfo*> mmLogInfo;
};

extern VX_EXPORT tcDbgdWB_echo* DbgdWB_echoPtr;
extern VX_EXPORT tcDbgdWB_help* DbgdWB_helpPtr;
extern VX_EXPORT tcDbgdWB_list* DbgdWB_listPtr;
extern VX_EXPORT tcDbgdWB_log* DbgdWB_logPtr;

extern "C" {

// The process's daemon, as tcDbgd::getItem.
VX_EXPORT tcDbgd* DbgdPointer();
}

#endif
