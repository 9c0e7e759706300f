// Threads and connections of the debug services, private to the library.
#ifndef VX_BACKGROUND_H
#define VX_BACKGROUND_H

#include <pthread.h>

#include <functional>
#include <string>

class HSocket;

namespace vx {

constexpr int nRequestSize = 1024;

// Clients that a service has at a time; more wait in the backlog.
constexpr int nBacklog = 1024;

// How long a client may be silent even if another one waits for its place, in milliseconds.
constexpr int nLeastPatience = 10;

// How long a client that has its reply may go on sending, altogether and between two pieces.
constexpr int nLeavingTime = 500, nLeavingPause = 100;

// How many clients wait in the backlog of a listening socket; at least 1, since it is asked when
// one does.
int WaitingClients(HSocket& listener);

// Runs `body` on a detached thread that takes no signals. Its handle, or 0 when there is none to
// be had (errno says why).
pthread_t StartDetached(std::function<void()> body);

// Prepares an accepted connection: writing to a client that does not read fails after `patienceMs`.
void LimitSending(HSocket& client, int patienceMs);

// Reads one request, terminated. As HSocket::Receive; errno is set for perror in every case.
int ReadRequest(HSocket& client, char (&request)[nRequestSize + 1], int patienceMs);

// Sends the whole text; nothing to a null client.
void Reply(HSocket* client, const std::string& text);

// Whether the request of which ReadRequest got `received` bytes may go on: then closing would reset
// the connection and might take the reply with it. The sending side is closed if so, and what still
// comes is to be read and discarded for a while.
bool EndReply(HSocket& client, int received);

// Discards what a client sends that has its reply, until it closes or is silent for 0.1 s; half a
// second at most.
void DiscardRest(HSocket& client);

} // namespace vx

#endif
