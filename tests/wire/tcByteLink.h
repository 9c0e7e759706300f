// Messages as bare bytes over a TCP connection, without a line of the library.
#ifndef TCBYTELINK_H
#define TCBYTELINK_H

#include "tcPattern.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <utility>

// One message: 50 FA, length (2 bytes), sequence number (1), sum of the payload (3), version (1),
// id (3), payload; all low byte first.
struct tsFrame {
    bool Came = false; // false: nothing came in time, or what came is no message
    unsigned Sequence = 0, Sum = 0, Version = 0, Id = 0;
    tBytes Payload;
};

inline tBytes FrameBytes(unsigned id, const tBytes& payload, unsigned sequence,
                         unsigned version = 3)
{
    unsigned sum = 0;
    for (uint8_t byte : payload)
        sum += byte;
    const size_t length = payload.size();
    tBytes bytes;
    for (size_t value : {size_t(0x50), size_t(0xFA), length, length >> 8, size_t(sequence),
                         size_t(sum), size_t(sum >> 8), size_t(sum >> 16), size_t(version),
                         size_t(id), size_t(id >> 8), size_t(id >> 16)})
        bytes.push_back(static_cast<uint8_t>(value));
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    return bytes;
}

// One end of a connection.
// Threads: one at a time.
// Owns: its descriptor.
class tcByteLink
{
public:
    explicit tcByteLink(int descriptor = -1) : mhSocket(descriptor) {}
    tcByteLink(tcByteLink&& other) noexcept { *this = std::move(other); }
    tcByteLink& operator=(tcByteLink&& other) noexcept
    {
        std::swap(mhSocket, other.mhSocket);
        std::swap(mnSequence, other.mnSequence);
        return *this;
    }
    ~tcByteLink() { Close(); }

    static tcByteLink Connect(unsigned short port)
    {
        tcByteLink link(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const sockaddr_in address = Loopback(port);
        if (connect(link.mhSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
            0)
            link.Close();
        const int on = 1;
        if (link.IsOpen()) setsockopt(link.mhSocket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        return link;
    }

    static sockaddr_in Loopback(unsigned short port)
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return address;
    }

    bool IsOpen() const { return mhSocket >= 0; }

    void Close()
    {
        if (mhSocket >= 0) close(mhSocket);
        mhSocket = -1;
    }

    bool SendBytes(const tBytes& bytes)
    {
        size_t sent = 0;
        while (sent < bytes.size()) {
            ssize_t count = send(mhSocket, &bytes[sent], bytes.size() - sent, MSG_NOSIGNAL);
            if (count <= 0) return false;
            sent += static_cast<size_t>(count);
        }
        return true;
    }

    // Sends a message with the next sequence number.
    bool Send(unsigned id, const tcPattern& payload)
    {
        return SendBytes(FrameBytes(id, payload.Bytes(), mnSequence++ & 0xFF));
    }

    // The next message; `Came` is false when none is there within the time.
    tsFrame Read(int timeoutMs = 10000)
    {
        tsFrame frame;
        tBytes head(12);
        if (!ReadBytes(head, timeoutMs) || head[0] != 0x50 || head[1] != 0xFA) return frame;
        frame.Sequence = head[4];
        frame.Sum = head[5] | head[6] << 8 | head[7] << 16;
        frame.Version = head[8];
        frame.Id = head[9] | head[10] << 8 | head[11] << 16;
        frame.Payload.resize(head[2] | head[3] << 8);
        frame.Came = ReadBytes(frame.Payload, timeoutMs);
        return frame;
    }

    // True when nothing comes for that long.
    bool Silent(int ms) const
    {
        pollfd entry{mhSocket, POLLIN, 0};
        return poll(&entry, 1, ms) == 0;
    }

private:
    bool ReadBytes(tBytes& bytes, int timeoutMs) const
    {
        size_t got = 0;
        while (got < bytes.size()) {
            pollfd entry{mhSocket, POLLIN, 0};
            if (poll(&entry, 1, timeoutMs) <= 0) return false;
            ssize_t count = recv(mhSocket, &bytes[got], bytes.size() - got, 0);
            if (count <= 0) return false;
            got += static_cast<size_t>(count);
        }
        return true;
    }

    int mhSocket = -1;
    unsigned mnSequence = 0;
};

#endif
