#include "background.h"

#include "HSocket.h"

#include <sys/time.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <memory>
#include <utility>

static void* RunBody(void* argument)
{
    const std::unique_ptr<std::function<void()>> body(
        static_cast<std::function<void()>*>(argument));
    (*body)();
    return nullptr;
}

pthread_t vx::StartDetached(std::function<void()> body)
{
    auto argument = std::make_unique<std::function<void()>>(std::move(body));
    sigset_t all, before;
    sigfillset(&all);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    pthread_t handle = 0;
    errno = pthread_create(&handle, &attributes, RunBody, argument.get());
    const bool isStarted = errno == 0;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_attr_destroy(&attributes);
    if (!isStarted) return 0;
    (void)argument.release(); // the thread's
    return handle;
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

void vx::Reply(HSocket* client, const std::string& text)
{
    if (client) client->SendAll(text.data(), static_cast<int>(text.size()));
}

void vx::CloseAfterReply(HSocket& client, int received)
{
    using namespace std::chrono;
    // Closing with unread input would reset the connection and might take the reply with it.
    if (received == nRequestSize && client.Shutdown(SHUT_WR)) {
        char rest[4096];
        const auto deadline = steady_clock::now() + milliseconds(500);
        while (client.Receive(rest, sizeof rest, 100) > 0 && steady_clock::now() < deadline) {
        }
    }
    client.Close();
}
