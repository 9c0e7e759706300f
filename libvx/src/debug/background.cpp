#include "background.h"

#include "HSocket.h"
#include "tcDbgd.h"
#include "tcLog.h"

#include <netinet/tcp.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>

namespace {

constexpr size_t nPiece = 65536;

} // namespace

pthread_t vx::StartDetachedThread(void* (*run)(void*), void* argument)
{
    sigset_t all, before;
    sigfillset(&all);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    pthread_t handle = 0;
    errno = pthread_create(&handle, &attributes, run, argument);
    const bool isStarted = errno == 0;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_attr_destroy(&attributes);
    return isStarted ? handle : 0;
}

void vx::ReportFailure(const char* reason)
{
    try {
        tcDbgd::GetLog().logError("debug services: %s", reason);
    } catch (std::exception const&) {
        // Nor is there memory to say so.
    }
}

int vx::WaitingClients(HSocket& listener)
{
    tcp_info info{};
    socklen_t size = sizeof info;
    if (getsockopt(listener.GetFD(), IPPROTO_TCP, TCP_INFO, &info, &size) != 0) return 1;
    return std::max(static_cast<int>(info.tcpi_unacked), 1); // so it is with those that listen
}

void vx::LimitSending(HSocket& client, int patienceMs)
{
    const timeval limit{patienceMs / 1000, patienceMs % 1000 * 1000};
    (void)setsockopt(client.GetFD(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

int vx::ReadRequest(HSocket& client, char (&request)[nRequestSize + 1], int patienceMs)
{
    errno = 0;
    const int received = client.Receive(request, nRequestSize, patienceMs);
    if (received == -2) errno = ETIMEDOUT;
    request[received > 0 ? received : 0] = '\0';
    return received;
}

bool vx::Reply(HSocket* client, const std::string& text)
{
    if (!client) return false;
    for (size_t done = 0; done < text.size(); done += nPiece) {
        const auto size = static_cast<int>(std::min(text.size() - done, nPiece));
        if (client->SendAll(text.data() + done, size, tcDbgd::snReplyPatience) == size) continue;
        Cut(*client);
        return false;
    }
    return true;
}

void vx::Cut(HSocket& client)
{
    client.SetAsNoLinger();
    client.Shutdown(SHUT_RDWR);
}

bool vx::EndReply(HSocket& client, int received)
{
    return received == nRequestSize && client.Shutdown(SHUT_WR);
}

void vx::DiscardRest(HSocket& client)
{
    using namespace std::chrono;
    char rest[4096];
    const auto deadline = steady_clock::now() + milliseconds(nLeavingTime);
    while (client.Receive(rest, sizeof rest, nLeavingPause) > 0 && steady_clock::now() < deadline) {
    }
}
