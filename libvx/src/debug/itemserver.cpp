// The debug items over TCP.
#include "HSocket.h"
#include "access.h"
#include "background.h"
#include "items.h"
#include "tcDbgItem.h"
#include "tcDbgd.h"
#include "tcLog.h"
#include "vxenvironment.h"
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
#include <string>
#include <vector>

namespace {

// Sends a text and its terminator; false when the client does not take it.
bool SendText(HSocket& client, const std::string& text)
{
    return client.SendAll(text.c_str(), static_cast<int>(text.size() + 1)) >= 0;
}

void List(HSocket& client)
{
    std::vector<std::string> lines;
    {
        const std::lock_guard<std::recursive_mutex> guard(vx::ItemsLock());
        for (const auto& entry : tcDbgItem::GetMap()) {
            if (!entry.second) continue;
            lines.push_back(entry.first + " = " + entry.second->Text() + " [" +
                            entry.second->Describe() + "]\n");
        }
    }
    for (const std::string& line : lines) {
        if (!SendText(client, line)) return;
    }
}

// Items that are registered stay.
tcDbgItem* Find(const char* name)
{
    const std::lock_guard<std::recursive_mutex> guard(vx::ItemsLock());
    const auto entry = tcDbgItem::GetMap().find(name);
    return entry == tcDbgItem::GetMap().end() ? nullptr : entry->second;
}

void Dispatch(HSocket& client, char* request)
{
    char* rest = nullptr;
    const char* word = strtok_r(request, ":", &rest);
    if (!word) return;
    if (std::strncmp(word, "LIST", 4) == 0) return List(client);
    const bool isSet = std::strcmp(word, "SET") == 0;
    if (!isSet && std::strcmp(word, "GET") != 0) return;

    const char* name = strtok_r(nullptr, "=", &rest);
    tcDbgItem* item = name ? Find(name) : nullptr;
    if (!item) return;
    if (isSet)
        item->FromStr(rest);
    else
        SendText(client, item->Text());
}

typedef std::chrono::steady_clock tcClock;

// The server while it runs: clients that are connected, oldest first. Those that have sent nothing
// yet are waited for side by side; requests are served one after another.
class tcItemServer
{
public:
    tcItemServer(HSocket& listener, const vx::tcAccess& access)
        : mListener(listener), mAccess(access)
    {}

    // Waits for something to do and does it. True when a connection has ended; `isBroken` becomes
    // true when no more clients can be had.
    bool Step(bool& isBroken);

private:
    struct tsClient {
        std::unique_ptr<HSocket> mpSocket;
        tcClock::time_point mtSince, mtDeadline;
        bool mbLeaving; // has its reply, and goes on sending
    };
    typedef std::vector<tsClient> tcClients;

    bool Accept(bool& isBroken);
    bool Serve(tsClient& client);
    bool Discard(tsClient& client) const;
    tcClients::iterator Oldest();
    bool DropOverdue();
    int TimeToWait() const;

    HSocket& mListener;
    const vx::tcAccess& mAccess;
    tcClients maClients;
};

void After(tcClock::time_point& deadline, int milliseconds)
{
    deadline = tcClock::now() + std::chrono::milliseconds(milliseconds);
}

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

bool tcItemServer::Step(bool& isBroken)
{
    std::vector<pollfd> states{{mListener.GetFD(), POLLIN, 0}};
    for (const tsClient& client : maClients)
        states.push_back({client.mpSocket->GetFD(), POLLIN, 0});
    // With a full house it is not the one at the door that is waited for, but a place.
    const bool isPressed =
        maClients.size() >= tcDbgd::nMaximumClients && poll(states.data(), 1, 0) == 1;
    if (!isPressed)
        poll(states.data(), states.size(), TimeToWait());
    else
        poll(states.data() + 1, states.size() - 1, Oldest() == maClients.end() ? 1 : 0);

    bool hasEnded = false;
    for (size_t i = maClients.size(); i-- > 0;) {
        tsClient& client = maClients[i];
        if (states[i + 1].revents == 0) continue;
        if (client.mbLeaving ? Discard(client) : Serve(client)) continue;
        maClients.erase(maClients.begin() + static_cast<std::ptrdiff_t>(i));
        hasEnded = true;
    }
    hasEnded = DropOverdue() || hasEnded;
    if (states[0].revents == 0) return hasEnded;
    if (maClients.size() >= tcDbgd::nMaximumClients) {
        const auto oldest = Oldest();
        if (oldest == maClients.end()) return hasEnded;
        maClients.erase(oldest);
        hasEnded = true;
    }
    return Accept(isBroken) || hasEnded;
}

// True when the connection has ended already.
bool tcItemServer::Accept(bool& isBroken)
{
    auto client = std::make_unique<HSocket>();
    if (!mListener.Accept(client.get())) {
        if (errno == EINTR) return false;
        std::perror("accept");
        isBroken = true;
        return false;
    }
    if (!mAccess.Admits(*client)) {
        HInetAddr peer;
        peer.GetPeerName(*client);
        tcDbgd::GetLog().logError("tcDbgItem::Server refused client from %s", peer.GetIPAddr());
        return true;
    }
    std::cout << "Accepting new connection on socket " << client->GetFD() << std::endl;
    vx::LimitSending(*client, tcDbgItem::snClientPatience);
    tsClient place{std::move(client), tcClock::now(), {}, false};
    After(place.mtDeadline, tcDbgItem::snClientPatience);
    maClients.push_back(std::move(place));
    return false;
}

// False when the connection can be closed.
bool tcItemServer::Serve(tsClient& client)
{
    if (!vx::ServeItemClient(*client.mpSocket)) return false;
    client.mbLeaving = true;
    client.mtSince = tcClock::now();
    After(client.mtDeadline, vx::nLeavingPause);
    return true;
}

bool tcItemServer::Discard(tsClient& client) const
{
    char rest[4096];
    if (recv(client.mpSocket->GetFD(), rest, sizeof rest, MSG_DONTWAIT) <= 0) return false;
    After(client.mtDeadline, vx::nLeavingPause);
    client.mtDeadline =
        std::min(client.mtDeadline, client.mtSince + std::chrono::milliseconds(vx::nLeavingTime));
    return true;
}

// The one that has been silent longest, or else has had its reply longest; the end when all have
// come just now.
tcItemServer::tcClients::iterator tcItemServer::Oldest()
{
    const auto latest = tcClock::now() - std::chrono::milliseconds(vx::nLeastPatience);
    auto found = maClients.end();
    for (const bool isLeaving : {true, false}) {
        const auto oldest =
            std::find_if(maClients.begin(), maClients.end(), [&](const tsClient& client) {
                return client.mbLeaving == isLeaving && client.mtSince <= latest;
            });
        if (oldest != maClients.end()) found = oldest;
    }
    return found;
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
        if (!client->mbLeaving) std::perror("read");
    }
    maClients.erase(overdue, maClients.end());
    return hasEnded;
}

// Prints why not.
bool OpenPort(HSocket& listener, const vx::tcAccess& access, short port)
{
    if (!listener.Create()) {
        std::perror("tcDbgItem::Server:Cannot create input socket\n");
        return false;
    }
    if (!access.Bind(listener, static_cast<unsigned short>(port))) {
        // Kept: the socket is left open.
        char text[80];
        std::snprintf(text, sizeof text, "tcDbgItem::Server:Cannot bind input port %d", port);
        std::perror(text);
        return false;
    }
    if (listener.Listen(vx::nBacklog)) return true;
    std::perror("listen");
    listener.Close();
    return false;
}

void Server(const vx::tcAccess& access, short port)
{
    static HSocket& listener = *new HSocket; // a process has one server, once
    if (!access.CanListen() || !OpenPort(listener, access, port)) return;
    std::cout << "tcDbgItem::Server task: listening on port " << port << "... ready for commands!"
              << std::endl;
    tcItemServer server(listener, access);
    bool isBroken = false;
    while (!tcDbgItem::mbThreadDone && !isBroken) {
        // A stop is seen when a connection has ended.
        while (!server.Step(isBroken) && !isBroken) {
        }
    }
    listener.Close();
}

} // namespace

bool vx::ServeItemClient(HSocket& client)
{
    char request[vx::nRequestSize + 1];
    const int received = vx::ReadRequest(client, request, tcDbgItem::snClientPatience);
    if (received <= 0) {
        std::perror("read");
        return false;
    }
    std::cout << "Read msg " << vx::Visible(request) << std::endl;
    Dispatch(client, request);
    return vx::EndReply(client, received);
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
    const vx::tcAccess access("DBGITEM_BIND", "DBGITEM_ALLOW");
    mhThreadId = vx::StartDetached([access, port] { Server(access, port); });
}

void tcDbgItem::StopServer()
{
    mbThreadDone = true;
}
