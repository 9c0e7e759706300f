// Threads and connections of the debug services, private to the library.
#ifndef VX_BACKGROUND_H
#define VX_BACKGROUND_H

#include <pthread.h>

#include <functional>
#include <string>

class HSocket;

namespace vx {

constexpr int nRequestSize = 1024;

// Runs `body` on a detached thread that takes no signals. Its handle, or 0 when there is none to
// be had (errno says why).
pthread_t StartDetached(std::function<void()> body);

// Prepares an accepted connection: writing to a client that does not read fails after `patienceMs`.
void LimitSending(HSocket& client, int patienceMs);

// Reads one request, terminated. As HSocket::Receive; errno is set for perror in every case.
int ReadRequest(HSocket& client, char (&request)[nRequestSize + 1], int patienceMs);

// Sends the whole text; nothing to a null client.
void Reply(HSocket* client, const std::string& text);

// Closes the connection so that the client gets the reply even if its request was longer than what
// was read of it. `received` is what ReadRequest returned. Waits up to half a second.
void CloseAfterReply(HSocket& client, int received);

} // namespace vx

#endif
