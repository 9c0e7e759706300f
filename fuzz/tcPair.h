// A connection inside the process, for the code that answers requests over a socket.
#ifndef TCPAIR_H
#define TCPAIR_H

#include "HSocket.h"
#include "tcFuzzInput.h"

#include <sys/socket.h>
#include <unistd.h>

#include <string>

// Threads: one. Owns: the requesting end; the other one belongs to the socket it was given to.
class tcPair
{
public:
    explicit tcPair(HSocket& served)
    {
        int ends[2];
        Require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "a pair of sockets");
        mhEnd = ends[0];
        // The descriptor that the socket has becomes the other end.
        Require(served.Create(0, SOCK_STREAM) != 0, "a socket");
        dup2(ends[1], served.GetFD());
        close(ends[1]);
    }
    ~tcPair() { close(mhEnd); }
    tcPair(const tcPair&) = delete;
    tcPair& operator=(const tcPair&) = delete;

    // The whole of what is asked; nothing comes after it.
    void Ask(const std::string& request)
    {
        const auto sent = send(mhEnd, request.data(), request.size(), MSG_NOSIGNAL);
        Require(sent == static_cast<ssize_t>(request.size()), "a request fits");
        shutdown(mhEnd, SHUT_WR);
    }
    // All that was answered, once the other end is closed.
    std::string Answer()
    {
        std::string text;
        char data[4096];
        for (;;) {
            const auto size = recv(mhEnd, data, sizeof data, MSG_DONTWAIT);
            if (size <= 0) return text;
            text.append(data, static_cast<size_t>(size));
        }
    }

private:
    int mhEnd;
};

#endif
