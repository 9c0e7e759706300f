// The daemon's threads: server, announcer, clients.
#include "HSocket.h"
#include "StringTokenizer.h"
#include "background.h"
#include "dbgdserver.h"
#include "tcLog.h"
#include "vxdescriptors.h"
#include "vxenvironment.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int nAcceptWaitMs = 100;
constexpr double nFirstRetry = 2.0;
constexpr double nRetryGrowth = 1.1;

enum teOpening { eOpen, eAgain, eNever };

unsigned short PortOf(const std::string& text)
{
    return static_cast<unsigned short>(std::strtol(text.c_str(), nullptr, 10));
}

HInetAddr PeerOf(HSocket& client)
{
    HInetAddr peer;
    peer.GetPeerName(client);
    return peer;
}

// The text behind the first colon, cut at the first line end; nothing when there are only colons.
char* ArgumentsOf(char* request)
{
    char* end = request + std::strlen(request);
    char* colon = std::strchr(request, ':');
    if (!colon || request[std::strspn(request, ":")] == '\0') return end;
    for (char* at = colon + 1; *at != '\0'; ++at) {
        tcDbgd::GetLog().logDebug(11, "char value = %d", *at);
        if (*at == '\r' || *at == '\n') *at = '\0';
    }
    return colon + 1;
}

} // namespace

tsServerSettings::tsServerSettings(unsigned short port)
    : mnPort(port), mAccess("DBGD_BIND", "DBGD_ALLOW")
{
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

bool tcDbgd::tcServer::MakeRoom(HSocket& listener)
{
    std::unique_lock<std::mutex> guard(mhLock);
    while (!mbStop && mmClients.size() >= nMaximumClients) {
        DropFor(vx::WaitingClients(listener));
        mChanged.wait_for(guard, std::chrono::milliseconds(vx::nLeastPatience));
    }
    return !mbStop;
}

// What a dropped client has sent meanwhile is still read, and answered.
void tcDbgd::tcServer::DropFor(int waiting)
{
    const auto isDropped = [](const auto& client) { return client.second.mePhase == eDropped; };
    auto leaving = std::count_if(mmClients.begin(), mmClients.end(), isDropped);
    for (; leaving < waiting; ++leaving) {
        HSocket* client = Oldest(eSilent);
        if (!client) client = Oldest(eLeaving);
        if (!client) return;
        client->Shutdown(SHUT_RD);
        mmClients[client].mePhase = eDropped;
    }
}

// The client that has been in a phase longest, but not just entered it; null when there is none.
HSocket* tcDbgd::tcServer::Oldest(tePhase phase) const
{
    auto oldest = tcClock::now() - std::chrono::milliseconds(vx::nLeastPatience);
    HSocket* found = nullptr;
    for (const auto& client : mmClients) {
        if (client.second.mePhase != phase || client.second.mtSince > oldest) continue;
        oldest = client.second.mtSince;
        found = client.first;
    }
    return found;
}

void tcDbgd::tcServer::Server()
{
    GetLog().logDebug(1, "tcDbgd::Server starting on port %d", mSettings.mnPort);
    {
        HSocket listener;
        if (mSettings.mAccess.CanListen() && OpenPort(listener)) {
            mnOpenPort = listener.GetLocalPort();
            vx::StartDetached([self = shared_from_this()] { self->AnnounceThread(); });
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
    std::perror("s.Listen");
    tcDbgd::GetLog().logError("tcDbgd::Server: unable to listen() on socket");
    return eNever;
}

bool tcDbgd::tcServer::OpenPort(HSocket& listener)
{
    for (double seconds = nFirstRetry;; seconds *= nRetryGrowth) {
        const teOpening result = TryToOpen(mSettings.mAccess, listener, mSettings.mnPort);
        if (result != eAgain) return result == eOpen;
        const int wholeSeconds = static_cast<int>(seconds);
        GetLog().logSystemError("tcDbgd::Server, Error creating socket on port %d - retry in %d s",
                                mSettings.mnPort, wholeSeconds);
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
    auto client = std::make_unique<HSocket>();
    if (!listener.Accept(client.get(), 0)) {
        // Out of descriptors, perhaps: whoever waits is still there the next time.
        Sleep(nAcceptWaitMs);
        return;
    }
    if (mSettings.mAccess.Admits(*client))
        StartWorker(std::move(client));
    else
        GetLog().logError("tcDbgd::Server refused client from %s", PeerOf(*client).GetIPAddr());
}

void tcDbgd::tcServer::StartWorker(std::unique_ptr<HSocket> client)
{
    HSocket* const socket = client.get();
    Enter(socket, eSilent);
    const auto body = [self = shared_from_this(), socket] {
        const std::unique_ptr<HSocket> owner(socket);
        ServeClient(self->mpRegistry, *socket, [&](tePhase phase) { self->Enter(socket, phase); });
        self->ClientEnded(socket);
    };
    if (vx::StartDetached(body) != 0) {
        (void)client.release(); // the thread's
        return;
    }
    GetLog().logSystemError("tcDbgd::Server, no thread for a client");
    ClientEnded(socket);
}

void tcDbgd::tcServer::Enter(HSocket* client, tePhase phase)
{
    const std::lock_guard<std::mutex> guard(mhLock);
    mmClients[client] = {phase, tcClock::now()};
}

void tcDbgd::tcServer::ClientEnded(HSocket* client)
{
    const std::lock_guard<std::mutex> guard(mhLock);
    client->Close();
    mmClients.erase(client);
    mChanged.notify_all();
}

void tcDbgd::tcServer::ServeClient(const std::shared_ptr<tcRegistry>& registry, HSocket& client,
                                   const std::function<void(tePhase)>& enter)
{
    GetLog().logDebug(3, "tcDbgd::StartWorkerBee for client from %s", PeerOf(client).GetIPAddr());
    vx::LimitSending(client, snClientPatience);
    char request[vx::nRequestSize + 1];
    const int received = vx::ReadRequest(client, request, snClientPatience);
    if (received <= 0) {
        std::perror("read");
        return;
    }
    enter(eServed);
    GetLog().logDebug(3, "tcDbgd:: read command: %s", request);
    RunCommand(registry, client, request);
    if (!vx::EndReply(client, received)) return;
    enter(eLeaving);
    vx::DiscardRest(client);
}

void tcDbgd::tcServer::RunCommand(const std::shared_ptr<tcRegistry>& registry, HSocket& client,
                                  char* request)
{
    const std::string token(request, std::strcspn(request, ":"));
    const tcHeldWB handler = Hold(registry, token.c_str());
    if (!handler) {
        // Kept: "Hander".
        GetLog().logDebug(1, "tcDbgd:: No Hander for token %s", token.c_str());
        return;
    }
    try {
        handler->Run(&client, ArgumentsOf(request));
    } catch (std::exception const& failure) {
        GetLog().logError("tcDbgd:: handler for %s failed: %s", token.c_str(), failure.what());
    } catch (...) {
        GetLog().logError("tcDbgd:: handler for %s failed", token.c_str());
    }
}

void tcDbgd::StartWorkerBee(HSocket* client)
{
    if (!client) return;
    const std::unique_ptr<HSocket> owner(client);
    tcServer::ServeClient(getItem()->mpRegistry, *client, [](tcServer::tePhase) {});
}

void tcDbgd::tcServer::AnnounceThread()
{
    char message[64];
    // Kept: a port above 32767 appears as a negative number.
    const int length = std::snprintf(message, sizeof message, "DBGD %s %hd", msName.c_str(),
                                     static_cast<short>(mnOpenPort));
    const int descriptor = vx::OpenSocket(AF_INET, SOCK_DGRAM);
    if (descriptor < 0) return;
    const HInetAddr group(mSettings.msGroup.c_str(), mSettings.mnGroupPort);
    const auto* address = reinterpret_cast<const sockaddr*>(&group.GetSockAddr());
    while (Sleep(snAnnounceInterval))
        (void)sendto(descriptor, message, length + 1, MSG_NOSIGNAL, address, sizeof(sockaddr_in));
    close(descriptor);
}
