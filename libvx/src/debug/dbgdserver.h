// The inner parts of the debug daemon, private to the library.
#ifndef VX_DBGDSERVER_H
#define VX_DBGDSERVER_H

#include "access.h"
#include "tcDbgd.h"

#include <array>
#include <chrono>
#include <condition_variable>
#include <functional>

// The handlers by token, and who is using them.
// Threads: any. Owns: nothing; shared by the daemon and its client threads.
class tcDbgd::tcRegistry
{
public:
    bool Add(tcDbgdWB* handler);
    bool Remove(const std::string& token);

    // True once no other thread uses the handler; waits at most `waitMs` for that.
    bool WaitUnused(tcDbgdWB* handler, int waitMs);

    // The handler of a token, in use until it is released, or null.
    tcDbgdWB* Hold(const std::string& token);
    void Release(tcDbgdWB* handler);
    std::string List() const;
    void Clear();

private:
    bool IsUsedElsewhere(tcDbgdWB* handler) const;

    mutable std::mutex mhLock;
    std::condition_variable mReleased;
    std::map<std::string, tcDbgdWB*> mmHandlers;
    std::multimap<tcDbgdWB*, pthread_t> mmUses;
};

// What the environment says about the server.
struct tsServerSettings {
    explicit tsServerSettings(unsigned short port);

    unsigned short mnPort;
    bool mbPortGiven; // by the environment
    vx::tcAccess mAccess;
    std::string msGroup = "239.192.100.100";
    unsigned short mnGroupPort = 7020;
};

// One run of the server, from its start to its stop.
// Threads: the server, the announcer and one for each client, all detached; they share this object.
// Locks: mhLock guards the clients' places and wakes whoever sleeps. A client's socket is closed
// under it, so that those that have places are open.
class tcDbgd::tcServer : public std::enable_shared_from_this<tcServer>
{
public:
    tcServer(const tsServerSettings& settings, std::shared_ptr<tcRegistry> registry,
             std::string name);

    void Start();
    void Stop();
    bool IsStopping() const;
    bool HasEnded() const;

    // False when the server has not ended within `waitMs`.
    bool WaitEnded(int waitMs);

    unsigned short GetPort() const { return mnOpenPort; }

    // Whether a client may have the process open files and send to addresses.
    bool Trusts(HSocket& client);

    // What a client is doing: it has sent nothing yet, or its command runs, or it has its reply and
    // goes on sending. Dropped: it gave up its place and is about to end.
    enum tePhase { eSilent, eServed, eLeaving, eDropped };

    // Leaves the client open. `enter` is told each phase that begins.
    static void ServeClient(const std::shared_ptr<tcRegistry>& registry, HSocket& client,
                            const std::function<void(tePhase)>& enter);

private:
    typedef std::chrono::steady_clock tcClock;
    struct tsPlace {
        HSocket* mpClient = nullptr; // null: the place is free
        tePhase mePhase = eSilent;
        tcClock::time_point mtSince;
        unsigned int mnPeer = 0; // its address, in network order
        // Of a served one, as long as nobody waits for its place: nothing.
        uint64_t mnTaken = 0; // bytes of its reply
        tcClock::time_point mtTaken;
    };

    void Server();
    bool OpenPort(HSocket& listener);
    void ReportClosedPort(int* lastError, int wholeSeconds) const;
    void ServeClients(HSocket& listener);
    void AcceptClient(HSocket& listener);
    void StartWorker(std::unique_ptr<HSocket> client);
    tsPlace* PlaceOf(const HSocket* client);
    void Enter(HSocket* client, tePhase phase);
    void ClientEnded(HSocket* client);
    void Announce();
    int OpenAnnouncer() const;
    static void RunCommand(const std::shared_ptr<tcRegistry>& registry, HSocket& client,
                           char* request);

    // False when the server is to stop.
    bool Sleep(double milliseconds);
    // Waits for a place; clients give up theirs for those that wait. False when the server is to
    // stop.
    bool MakeRoom(HSocket& listener);
    void DropFor(int waiting);
    bool DropOne();
    tsPlace* Oldest(tePhase phase, int least);
    tsPlace* Stalled();

    const tsServerSettings mSettings;
    const std::shared_ptr<tcRegistry> mpRegistry;
    const std::string msName;

    mutable std::mutex mhLock;
    std::condition_variable mChanged;
    bool mbStop = false;
    bool mbEnded = false;
    std::array<tsPlace, nMaximumClients> maPlaces;
    std::atomic<unsigned short> mnOpenPort{0};
};

#endif
