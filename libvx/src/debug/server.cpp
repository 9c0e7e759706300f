// The daemon's server: its port, and who comes in.
#include "HSocket.h"
#include "StringTokenizer.h"
#include "background.h"
#include "dbgdserver.h"
#include "offconsole.h"
#include "tcLog.h"
#include "vxenvironment.h"
#include "vxhoststreams.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <optional>

namespace {

constexpr int nAcceptWaitMs = 100;
constexpr double nFirstRetry = 2.0;
constexpr double nRetryGrowth = 1.1;

enum teOpening { eOpen, eAgain, eNever };

unsigned short PortOf(const std::string& text)
{
    return static_cast<unsigned short>(std::strtol(text.c_str(), nullptr, 10));
}

} // namespace

tsServerSettings::tsServerSettings(unsigned short port)
    : mnPort(port), mbPortGiven(false), mAccess("DBGD_BIND", "DBGD_ALLOW")
{
    if (const char* given = vx::PlaceVariable("DBGD_PORTNUM")) {
        mnPort = PortOf(given);
        mbPortGiven = true;
    }
    const char* group = vx::PlaceVariable("DBGD_ANNOUCE_GROUP");
    if (!group) return;
    StringTokenizer tokens(group, ":");
    if (tokens.hasMoreTokens()) msGroup = tokens.nextToken();
    if (tokens.hasMoreTokens()) mnGroupPort = PortOf(tokens.nextToken());
}

tcDbgd::tcServer::tcServer(const tsServerSettings& settings, std::shared_ptr<tcRegistry> registry,
                           std::string name)
    : mSettings(settings), mpRegistry(std::move(registry)), msName(std::move(name))
{}

void tcDbgd::tcServer::Start()
{
    if (vx::StartDetached([self = shared_from_this()] { self->Server(); }) != 0) return;
    GetLog().logSystemError("tcDbgd::StartServer, no thread for the Dbgd Server");
    const std::lock_guard<std::mutex> guard(mhLock);
    mbEnded = true;
}

void tcDbgd::tcServer::Stop()
{
    const std::lock_guard<std::mutex> guard(mhLock);
    mbStop = true;
    mChanged.notify_all();
}

bool tcDbgd::tcServer::IsStopping() const
{
    const std::lock_guard<std::mutex> guard(mhLock);
    return mbStop;
}

bool tcDbgd::tcServer::HasEnded() const
{
    const std::lock_guard<std::mutex> guard(mhLock);
    return mbEnded;
}

bool tcDbgd::tcServer::WaitEnded(int waitMs)
{
    std::unique_lock<std::mutex> guard(mhLock);
    return mChanged.wait_for(guard, std::chrono::milliseconds(waitMs), [this] { return mbEnded; });
}

bool tcDbgd::tcServer::Sleep(double milliseconds)
{
    std::unique_lock<std::mutex> guard(mhLock);
    return !mChanged.wait_for(guard, std::chrono::duration<double, std::milli>(milliseconds),
                              [this] { return mbStop; });
}

void tcDbgd::tcServer::Server()
{
    GetLog().logDebug(1, "tcDbgd::Server starting on port %d", mSettings.mnPort);
    {
        HSocket listener;
        if (mSettings.mAccess.CanListen() && OpenPort(listener)) {
            mnOpenPort = listener.GetLocalPort();
            if (vx::StartDetached([self = shared_from_this()] { self->Announce(); }) == 0)
                GetLog().logSystemError("tcDbgd::Server, no thread for announcements");
            ServeClients(listener);
        }
    }
    mnOpenPort = 0;
    const std::lock_guard<std::mutex> guard(mhLock);
    mbEnded = true;
    mChanged.notify_all();
}

static teOpening TryToOpen(const vx::tcAccess& access, HSocket& listener, unsigned short port)
{
    if (!listener.Create() || !access.Bind(listener, port)) return eAgain;
    if (listener.Listen(vx::nBacklog)) return eOpen;
    // Several sockets may be bound to a port as long as none listens: that one was quicker.
    if (errno == EADDRINUSE) return eAgain;
    vx::PrintSystemError("s.Listen");
    tcDbgd::GetLog().logError("tcDbgd::Server: unable to listen() on socket");
    return eNever;
}

// A port that nobody has asked for and that another process has is no trouble for anybody, and one
// that stays closed for one reason is told once: beyond that the records are kept, but not printed.
void tcDbgd::tcServer::ReportClosedPort(int* lastError, int wholeSeconds) const
{
    const int error = errno;
    std::optional<vx::tcOffConsole> quiet;
    if (error == *lastError || (error == EADDRINUSE && !mSettings.mbPortGiven)) quiet.emplace();
    *lastError = error;
    GetLog().logSystemError("tcDbgd::Server, Error creating socket on port %d - retry in %d s",
                            mSettings.mnPort, wholeSeconds);
}

bool tcDbgd::tcServer::OpenPort(HSocket& listener)
{
    int lastError = 0;
    for (double seconds = nFirstRetry;; seconds *= nRetryGrowth) {
        const teOpening result = TryToOpen(mSettings.mAccess, listener, mSettings.mnPort);
        if (result != eAgain) return result == eOpen;
        const int wholeSeconds = static_cast<int>(seconds);
        ReportClosedPort(&lastError, wholeSeconds);
        listener.Close();
        if (!Sleep(1.0 * wholeSeconds * snRetrySecond)) return false;
    }
}

void tcDbgd::tcServer::ServeClients(HSocket& listener)
{
    while (!IsStopping()) {
        if (HSocket::Select(1, &listener, nAcceptWaitMs) == 0 && MakeRoom(listener))
            AcceptClient(listener);
    }
}

void tcDbgd::tcServer::AcceptClient(HSocket& listener)
{
    std::unique_ptr<HSocket> client(new (std::nothrow) HSocket);
    if (!client || !listener.Accept(client.get(), 0)) {
        // Out of descriptors, perhaps: whoever waits is still there the next time.
        Sleep(nAcceptWaitMs);
        return;
    }
    if (mSettings.mAccess.Admits(*client)) return StartWorker(std::move(client));
    HInetAddr peer;
    peer.GetPeerName(*client);
    GetLog().logError("tcDbgd::Server refused client from %s", peer.GetIPAddr());
}
