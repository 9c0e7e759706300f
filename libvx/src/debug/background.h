// Threads and connections of the debug services, private to the library.
#ifndef VX_BACKGROUND_H
#define VX_BACKGROUND_H

#include <pthread.h>

#include <cerrno>
#include <memory>
#include <new>
#include <string>
#include <utility>

class HSocket;

namespace vx {

constexpr int nRequestSize = 1024;

// Connections that may wait for a service to accept them.
constexpr int nBacklog = 1024;

// How long a client may be silent even if another one waits for its place, in milliseconds.
constexpr int nLeastPatience = 10;

// The same for one that takes nothing of its reply.
constexpr int nLeastTakingPatience = 100;

// How long a client that has its reply may go on sending, altogether and between two pieces.
constexpr int nLeavingTime = 500, nLeavingPause = 100;

// How many clients wait in the backlog of a listening socket; at least 1, since it is asked when
// one does.
int WaitingClients(HSocket& listener);

// Runs `run` with its argument on a detached thread that takes no signals. Its handle, or 0 when
// there is none to be had (errno says why).
pthread_t StartDetachedThread(void* (*run)(void*), void* argument);

// Logs that something was done without, for want of memory for example. Does not throw.
void ReportFailure(const char* reason);

// Runs `body` on such a thread. What it throws is reported, and ends that thread alone.
template <typename tBody>
pthread_t StartDetached(tBody body)
{
    std::unique_ptr<tBody> argument(new (std::nothrow) tBody(std::move(body)));
    errno = ENOMEM;
    if (!argument) return 0;
    const auto run = [](void* given) -> void* {
        const std::unique_ptr<tBody> own(static_cast<tBody*>(given));
        try {
            (*own)();
        } catch (std::exception const& failure) {
            ReportFailure(failure.what());
        }
        return nullptr;
    };
    const pthread_t handle = StartDetachedThread(run, argument.get());
    if (handle != 0) (void)argument.release(); // the thread's
    return handle;
}

// Prepares an accepted connection: a single write to a client that does not read fails after
// `patienceMs`.
void LimitSending(HSocket& client, int patienceMs);

// Reads one request, terminated. As HSocket::Receive; errno is set for perror in every case.
int ReadRequest(HSocket& client, char (&request)[nRequestSize + 1], int patienceMs);

// Sends the text; nothing to a null client. A client that takes too long (tcDbgd::snReplyPatience
// for each 64 KiB) is cut off: false, then and for what follows.
bool Reply(HSocket* client, const std::string& text);

// Ends a connection at once, without sending what is still to be sent.
void Cut(HSocket& client);

// Whether the request of which ReadRequest got `received` bytes may go on: then closing would reset
// the connection and might take the reply with it. The sending side is closed if so, and what still
// comes is to be read and discarded for a while.
bool EndReply(HSocket& client, int received);

// Discards what a client sends that has its reply, until it closes or is silent for 0.1 s; half a
// second at most.
void DiscardRest(HSocket& client);

} // namespace vx

#endif
