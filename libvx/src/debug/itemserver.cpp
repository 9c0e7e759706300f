// The debug items over TCP.
#include "HSocket.h"
#include "access.h"
#include "background.h"
#include "items.h"
#include "tcDbgItem.h"
#include "tcDbgd.h"
#include "tcLog.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

namespace {

constexpr int nBacklog = 2;

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

// False when no more clients can be had.
bool AcceptClient(HSocket& listener, const vx::tcAccess& access)
{
    HSocket client;
    if (!listener.Accept(&client)) {
        if (errno == EINTR) return true;
        std::perror("accept");
        return false;
    }
    if (access.Admits(client)) {
        vx::ServeItemClient(client);
        return true;
    }
    HInetAddr peer;
    peer.GetPeerName(client);
    tcDbgd::GetLog().logError("tcDbgItem::Server refused client from %s", peer.GetIPAddr());
    return true;
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
    if (listener.Listen(nBacklog)) return true;
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
    while (!tcDbgItem::mbThreadDone && AcceptClient(listener, access)) {
    }
    listener.Close();
}

} // namespace

void vx::ServeItemClient(HSocket& client)
{
    std::cout << "Accepting new connection on socket " << client.GetFD() << std::endl;
    vx::LimitSending(client, tcDbgItem::snClientPatience);
    char request[vx::nRequestSize + 1];
    const int received = vx::ReadRequest(client, request, tcDbgItem::snClientPatience);
    if (received <= 0) {
        std::perror("read");
        return;
    }
    std::cout << "Read msg " << request << std::endl;
    Dispatch(client, request);
    vx::CloseAfterReply(client, received);
}

void tcDbgItem::StartServer()
{
    const std::lock_guard<std::recursive_mutex> guard(vx::ItemsLock());
    if (mhThreadId != 0) return;
    mbThreadDone = false;
    const char* text = std::getenv("DBGITEM_PORTNUM");
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
