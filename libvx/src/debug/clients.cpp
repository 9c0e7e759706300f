// The daemon's clients: their places, their commands, and who may do what.
#include "HSocket.h"
#include "background.h"
#include "dbgdserver.h"
#include "tcLog.h"
#include "vxhoststreams.h"

#include <linux/tcp.h>
#include <poll.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

// What has arrived at the peer.
uint64_t TakenBytes(HSocket& client)
{
    tcp_info info{};
    socklen_t size = sizeof info;
    (void)getsockopt(client.GetFD(), IPPROTO_TCP, TCP_INFO, &info, &size);
    return info.tcpi_bytes_acked;
}

bool TakesMore(HSocket& client)
{
    pollfd state{client.GetFD(), POLLOUT, 0};
    return poll(&state, 1, 0) != 0;
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

// ---- Places -------------------------------------------------------------------------------------

tcDbgd::tcServer::tsPlace* tcDbgd::tcServer::PlaceOf(const HSocket* client)
{
    const auto place = std::find_if(maPlaces.begin(), maPlaces.end(), [client](const tsPlace& one) {
        return one.mpClient == client;
    });
    return place == maPlaces.end() ? nullptr : &*place;
}

bool tcDbgd::tcServer::MakeRoom(HSocket& listener)
{
    std::unique_lock<std::mutex> guard(mhLock);
    while (!mbStop && !PlaceOf(nullptr)) {
        DropFor(vx::WaitingClients(listener));
        mChanged.wait_for(guard, std::chrono::milliseconds(vx::nLeastPatience));
    }
    return !mbStop;
}

void tcDbgd::tcServer::DropFor(int waiting)
{
    const auto isDropped = [](const tsPlace& place) { return place.mePhase == eDropped; };
    auto leaving = std::count_if(maPlaces.begin(), maPlaces.end(), isDropped);
    while (leaving < waiting && DropOne())
        ++leaving;
}

// The one that has been silent longest, else one that has its reply, else one that does not take
// it, else one that takes it too slowly.
bool tcDbgd::tcServer::DropOne()
{
    tsPlace* place = Oldest(eSilent, vx::nLeastPatience);
    if (!place) place = Oldest(eLeaving, vx::nLeastPatience);
    if (place) {
        // What it has sent meanwhile is still read, and answered.
        place->mpClient->Shutdown(SHUT_RD);
    } else {
        place = Stalled();
        if (!place) place = Oldest(eServed, snReplyPatience);
        if (!place) return false;
        vx::Cut(*place->mpClient);
    }
    place->mePhase = eDropped;
    return true;
}

// The client that has been in a phase longest, and for so many milliseconds; null when there is
// none.
tcDbgd::tcServer::tsPlace* tcDbgd::tcServer::Oldest(tePhase phase, int least)
{
    auto oldest = tcClock::now() - std::chrono::milliseconds(least);
    tsPlace* found = nullptr;
    for (tsPlace& place : maPlaces) {
        if (place.mePhase != phase || place.mtSince > oldest) continue;
        oldest = place.mtSince;
        found = &place;
    }
    return found;
}

// The client that has taken nothing of its reply for longest, while there is more for it.
tcDbgd::tcServer::tsPlace* tcDbgd::tcServer::Stalled()
{
    const auto now = tcClock::now();
    auto longest = now - std::chrono::milliseconds(vx::nLeastTakingPatience);
    tsPlace* found = nullptr;
    for (tsPlace& place : maPlaces) {
        if (place.mePhase != eServed) continue;
        const uint64_t taken = TakenBytes(*place.mpClient);
        if (taken != place.mnTaken || TakesMore(*place.mpClient)) {
            place.mnTaken = taken;
            place.mtTaken = now;
        } else if (place.mtTaken <= longest) {
            longest = place.mtTaken;
            found = &place;
        }
    }
    return found;
}

void tcDbgd::tcServer::StartWorker(std::unique_ptr<HSocket> client)
{
    HSocket* const socket = client.get();
    {
        const std::lock_guard<std::mutex> guard(mhLock);
        tsPlace& place = *PlaceOf(nullptr); // MakeRoom has seen to it
        place = {socket, eSilent, tcClock::now(), socket->GetRemoteIP(), 0, {}};
    }
    const auto body = [self = shared_from_this(), socket] {
        const std::unique_ptr<HSocket> owner(socket);
        try {
            ServeClient(self->mpRegistry, *socket,
                        [&](tePhase phase) { self->Enter(socket, phase); });
        } catch (std::exception const& failure) {
            vx::ReportFailure(failure.what());
        }
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
    tsPlace& place = *PlaceOf(client);
    place.mePhase = phase;
    place.mtSince = place.mtTaken = tcClock::now();
}

void tcDbgd::tcServer::ClientEnded(HSocket* client)
{
    const std::lock_guard<std::mutex> guard(mhLock);
    client->Close();
    *PlaceOf(client) = {};
    mChanged.notify_all();
}

// ---- Commands -----------------------------------------------------------------------------------

void tcDbgd::tcServer::ServeClient(const std::shared_ptr<tcRegistry>& registry, HSocket& client,
                                   const std::function<void(tePhase)>& enter)
{
    HInetAddr peer;
    peer.GetPeerName(client);
    GetLog().logDebug(3, "tcDbgd::StartWorkerBee for client from %s", peer.GetIPAddr());
    vx::LimitSending(client, snReplyPatience);
    char request[vx::nRequestSize + 1];
    const int received = vx::ReadRequest(client, request, snClientPatience);
    if (received <= 0) {
        vx::PrintSystemError("read");
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
    try {
        if (tcDbgd* daemon = getItem())
            tcServer::ServeClient(daemon->mpRegistry, *client, [](tcServer::tePhase) {});
    } catch (std::exception const& failure) {
        vx::ReportFailure(failure.what());
    }
}

// ---- Trust --------------------------------------------------------------------------------------

// The address is that of the time when the client came: one that has gone since has none.
bool tcDbgd::tcServer::Trusts(HSocket& client)
{
    unsigned int peer = 0;
    {
        const std::lock_guard<std::mutex> guard(mhLock);
        const tsPlace* place = PlaceOf(&client);
        peer = place ? place->mnPeer : client.GetRemoteIP();
    }
    return peer != 0 && (vx::IsOfThisHost(peer) || mSettings.mAccess.Names(peer));
}
