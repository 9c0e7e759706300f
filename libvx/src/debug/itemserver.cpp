// The debug items over TCP.
#include "HSocket.h"
#include "access.h"
#include "background.h"
#include "items.h"
#include "tcDbgItem.h"
#include "tcDbgd.h"
#include "tcLog.h"
#include "vxenvironment.h"
#include "vxhoststreams.h"
#include "vxvisible.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <new>
#include <string>
#include <vector>

namespace {

constexpr int nPauseMs = 100; // until there may be memory again

std::string List()
{
    std::string lines;
    const std::lock_guard<std::recursive_mutex> guard(vx::ItemsLock());
    for (const auto& entry : tcDbgItem::GetMap()) {
        if (!entry.second) continue;
        lines.append(entry.first).append(" = ").append(entry.second->Text());
        lines.append(" [").append(entry.second->Describe()).append("]\n").push_back('\0');
    }
    return lines;
}

// Items that are registered stay.
tcDbgItem* Find(const char* name)
{
    const std::lock_guard<std::recursive_mutex> guard(vx::ItemsLock());
    const auto entry = tcDbgItem::GetMap().find(name);
    return entry == tcDbgItem::GetMap().end() ? nullptr : entry->second;
}

typedef std::chrono::steady_clock tcClock;

// A client that is connected.
struct tsClient {
    // It has sent nothing yet, or has not taken all of its answer, or has it and goes on sending.
    enum tePhase { eSilent, eTaking, eLeaving };

    void Enter(tePhase phase, int patienceMs)
    {
        mePhase = phase;
        mtSince = tcClock::now();
        mtDeadline = mtSince + std::chrono::milliseconds(patienceMs);
    }

    std::unique_ptr<HSocket> mpSocket;
    tePhase mePhase = eSilent;
    tcClock::time_point mtSince, mtDeadline; // taking: since it took something last
    std::string msAnswer;
    size_t mnTaken = 0;
    int mnReceived = 0;
};

// The server while it runs: clients that are connected, oldest first. All that they do is waited
// for side by side; what they ask is done one after another. It needs no memory to begin with but
// what it has from its construction on.
class tcItemServer
{
public:
    tcItemServer(HSocket& listener, const vx::tcAccess& access)
        : mListener(listener), mAccess(access)
    {
        maClients.reserve(tcDbgd::nMaximumClients);
        maStates.reserve(tcDbgd::nMaximumClients + 1);
    }

    // Opens the port and serves until it is to stop, or there is no port to be had.
    void Run(short port);

private:
    typedef std::vector<tsClient> tcClients;

    // Prints why not.
    bool OpenPort(short port);

    // Waits for something to do and does it. True when a connection has ended; `isBroken` becomes
    // true when no more clients can be had.
    bool Step(bool& isBroken);

    void Wait();
    bool ServeClients();
    bool Accept(bool& isBroken);
    bool GoesOn(tsClient& client);
    bool Receive(tsClient& client);
    static bool Send(tsClient& client);
    static bool Discard(tsClient& client);
    tcClients::iterator Oldest();
    bool DropOverdue();
    int TimeToWait() const;

    HSocket& mListener;
    const vx::tcAccess mAccess;
    tcClients maClients;
    std::vector<pollfd> maStates; // of the listener and of the clients
};

// Without limit when nobody is connected.
int tcItemServer::TimeToWait() const
{
    if (maClients.empty()) return -1;
    const auto next = std::min_element(
        maClients.begin(), maClients.end(),
        [](const tsClient& a, const tsClient& b) { return a.mtDeadline < b.mtDeadline; });
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(next->mtDeadline - tcClock::now()).count();
    return static_cast<int>(std::max<decltype(left)>(left, 0));
}

void tcItemServer::Wait()
{
    maStates.assign(1, {mListener.GetFD(), POLLIN, 0});
    for (const tsClient& client : maClients) {
        const bool isTaking = client.mePhase == tsClient::eTaking;
        maStates.push_back(
            {client.mpSocket->GetFD(), static_cast<short>(isTaking ? POLLOUT : POLLIN), 0});
    }
    // With a full house it is not the one at the door that is waited for, but a place.
    const bool isPressed =
        maClients.size() >= tcDbgd::nMaximumClients && poll(maStates.data(), 1, 0) == 1;
    if (!isPressed)
        poll(maStates.data(), maStates.size(), TimeToWait());
    else
        poll(maStates.data() + 1, maStates.size() - 1, Oldest() == maClients.end() ? 1 : 0);
}

bool tcItemServer::Step(bool& isBroken)
{
    Wait();
    bool hasEnded = ServeClients();
    hasEnded = DropOverdue() || hasEnded;
    if (maStates[0].revents == 0) return hasEnded;
    if (maClients.size() >= tcDbgd::nMaximumClients) {
        const auto oldest = Oldest();
        if (oldest == maClients.end()) return hasEnded;
        if (oldest->mePhase == tsClient::eTaking) vx::Cut(*oldest->mpSocket);
        maClients.erase(oldest);
        hasEnded = true;
    }
    return Accept(isBroken) || hasEnded;
}

// True when a connection has ended.
bool tcItemServer::ServeClients()
{
    const size_t before = maClients.size();
    for (size_t i = before; i-- > 0;) {
        if (maStates[i + 1].revents == 0 || GoesOn(maClients[i])) continue;
        maClients.erase(maClients.begin() + static_cast<std::ptrdiff_t>(i));
    }
    return maClients.size() != before;
}

// True when the connection has ended already.
bool tcItemServer::Accept(bool& isBroken)
{
    std::unique_ptr<HSocket> client(new (std::nothrow) HSocket);
    if (!client) {
        poll(nullptr, 0, nPauseMs);
        return false;
    }
    if (!mListener.Accept(client.get())) {
        if (errno == EINTR) return false;
        vx::PrintSystemError("accept");
        isBroken = true;
        return false;
    }
    if (!mAccess.Admits(*client)) {
        HInetAddr peer;
        peer.GetPeerName(*client);
        tcDbgd::GetLog().logError("tcDbgItem::Server refused client from %s", peer.GetIPAddr());
        return true;
    }
    vx::PrintFormatted(std::cout, "Accepting new connection on socket %d\n", client->GetFD());
    tsClient place;
    place.mpSocket = std::move(client);
    place.Enter(tsClient::eSilent, tcDbgItem::snClientPatience);
    maClients.push_back(std::move(place));
    return false;
}

// Does what a client is ready for. False when the connection can be closed.
bool tcItemServer::GoesOn(tsClient& client)
{
    try {
        switch (client.mePhase) {
        case tsClient::eSilent:
            return Receive(client);
        case tsClient::eTaking:
            return Send(client);
        case tsClient::eLeaving:
            return Discard(client);
        }
    } catch (const std::bad_alloc&) {
        tcDbgd::GetLog().logError("tcDbgItem::Server has no memory for a client");
    }
    return false;
}

bool tcItemServer::Receive(tsClient& client)
{
    char request[vx::nRequestSize + 1];
    client.mnReceived = vx::ReadRequest(*client.mpSocket, request, tcDbgItem::snClientPatience);
    if (client.mnReceived <= 0) {
        vx::PrintSystemError("read");
        return false;
    }
    vx::Print(std::cout, "Read msg " + vx::Visible(request) + "\n");
    client.msAnswer = vx::AnswerOfItems(request);
    client.Enter(tsClient::eTaking, tcDbgd::snReplyPatience);
    return Send(client);
}

bool tcItemServer::Send(tsClient& client)
{
    const size_t left = client.msAnswer.size() - client.mnTaken;
    const ssize_t sent =
        left == 0 ? 0
                  : send(client.mpSocket->GetFD(), client.msAnswer.data() + client.mnTaken, left,
                         MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent < 0) return errno == EAGAIN || errno == EINTR;
    client.mnTaken += static_cast<size_t>(sent);
    client.Enter(tsClient::eTaking, tcDbgd::snReplyPatience);
    if (client.mnTaken < client.msAnswer.size()) return true;
    if (!vx::EndReply(*client.mpSocket, client.mnReceived)) return false;
    client.Enter(tsClient::eLeaving, vx::nLeavingPause);
    return true;
}

bool tcItemServer::Discard(tsClient& client)
{
    char rest[4096];
    if (recv(client.mpSocket->GetFD(), rest, sizeof rest, MSG_DONTWAIT) <= 0) return false;
    const auto now = tcClock::now();
    client.mtDeadline = std::min(now + std::chrono::milliseconds(vx::nLeavingPause),
                                 client.mtSince + std::chrono::milliseconds(vx::nLeavingTime));
    return true;
}

// The one that makes room for another: one that has been silent longest, else one that has its
// answer, else one that does not take it; the end when all have come just now.
tcItemServer::tcClients::iterator tcItemServer::Oldest()
{
    for (const auto phase : {tsClient::eSilent, tsClient::eLeaving, tsClient::eTaking}) {
        const std::chrono::milliseconds patience(
            phase == tsClient::eTaking ? vx::nLeastTakingPatience : vx::nLeastPatience);
        const auto latest = tcClock::now() - patience;
        auto found = maClients.end();
        for (auto client = maClients.begin(); client != maClients.end(); ++client) {
            if (client->mePhase != phase || client->mtSince > latest) continue;
            if (found == maClients.end() || client->mtSince < found->mtSince) found = client;
        }
        if (found != maClients.end()) return found;
    }
    return maClients.end();
}

bool tcItemServer::DropOverdue()
{
    const auto now = tcClock::now();
    const auto overdue =
        std::stable_partition(maClients.begin(), maClients.end(),
                              [now](const tsClient& client) { return client.mtDeadline > now; });
    const bool hasEnded = overdue != maClients.end();
    for (auto client = overdue; client != maClients.end(); ++client) {
        errno = ETIMEDOUT;
        if (client->mePhase == tsClient::eSilent) vx::PrintSystemError("read");
        if (client->mePhase == tsClient::eTaking) vx::Cut(*client->mpSocket);
    }
    maClients.erase(overdue, maClients.end());
    return hasEnded;
}

bool tcItemServer::OpenPort(short port)
{
    if (!mListener.Create()) {
        vx::PrintSystemError("tcDbgItem::Server:Cannot create input socket\n");
        return false;
    }
    if (!mAccess.Bind(mListener, static_cast<unsigned short>(port))) {
        // Kept: the socket is left open.
        char text[80];
        std::snprintf(text, sizeof text, "tcDbgItem::Server:Cannot bind input port %d", port);
        vx::PrintSystemError(text);
        return false;
    }
    if (mListener.Listen(vx::nBacklog)) return true;
    vx::PrintSystemError("listen");
    mListener.Close();
    return false;
}

void tcItemServer::Run(short port)
{
    if (!mAccess.CanListen() || !OpenPort(port)) return;
    vx::PrintFormatted(
        std::cout, "tcDbgItem::Server task: listening on port %d... ready for commands!\n", port);
    bool isBroken = false;
    while (!tcDbgItem::mbThreadDone && !isBroken) {
        // A stop is seen when a connection has ended.
        while (!Step(isBroken) && !isBroken) {
        }
    }
    mListener.Close();
}

} // namespace

std::string vx::AnswerOfItems(char* request)
{
    char* rest = nullptr;
    const char* word = strtok_r(request, ":", &rest);
    if (!word) return "";
    if (std::strncmp(word, "LIST", 4) == 0) return List();
    const bool isSet = std::strcmp(word, "SET") == 0;
    if (!isSet && std::strcmp(word, "GET") != 0) return "";

    const char* name = strtok_r(nullptr, "=", &rest);
    tcDbgItem* item = name ? Find(name) : nullptr;
    if (!item) return "";
    if (!isSet) return item->Text() + '\0';
    item->FromStr(rest);
    return "";
}

void tcDbgItem::StartServer()
{
    const std::lock_guard<std::recursive_mutex> guard(vx::ItemsLock());
    if (mhThreadId != 0) return;
    mbThreadDone = false;
    const char* text = vx::PlaceVariable("DBGITEM_PORTNUM");
    // Kept: a signed number, so a port above 32767 prints as a negative one.
    const auto port =
        static_cast<short>(text ? std::strtol(text, nullptr, 10) : tcDbgItemPort.load());
    try {
        static HSocket& listener = *new HSocket; // a process has one server, once
        auto server =
            std::make_unique<tcItemServer>(listener, vx::tcAccess("DBGITEM_BIND", "DBGITEM_ALLOW"));
        mhThreadId = vx::StartDetached([server = std::move(server), port] { server->Run(port); });
        if (mhThreadId != 0) return;
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
    }
    tcDbgd::GetLog().logSystemError("tcDbgItem::StartServer, no thread for the server");
}

void tcDbgItem::StopServer()
{
    mbThreadDone = true;
}
