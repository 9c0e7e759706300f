// A camera reduced to bytes on a TCP port, of loopback unless told otherwise: the test itself says
// what it sends, in which pieces, and when it closes. It shares no code with the library.
#ifndef TCSCRIPTEDCAMERA_H
#define TCSCRIPTEDCAMERA_H

#include "within.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

// For what is expected to happen.
inline constexpr std::chrono::milliseconds gPatience = Within(std::chrono::milliseconds(20000));

// Looks again every millisecond until the condition holds; false after `limit`.
inline bool WaitUntil(const std::function<bool()>& condition,
                      std::chrono::milliseconds limit = gPatience)
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// The bytes of a little-endian number.
inline std::string LittleEndian(uint64_t value, int bytes)
{
    std::string text;
    for (int i = 0; i < bytes; ++i)
        text += static_cast<char>(value >> (8 * i));
    return text;
}

// One whole message.
inline std::string MessageBytes(uint32_t id, const std::string& payload, uint8_t seqNo = 0,
                                uint8_t version = 3)
{
    return "\x50\xFA" + LittleEndian(payload.size(), 2) + LittleEndian(seqNo, 1) +
           std::string(3, '\0') + LittleEndian(version, 1) + LittleEndian(id, 3) + payload;
}

// The id in a message's header; 0 for what is no message.
inline uint32_t IdOf(const std::string& message)
{
    if (message.size() < 12) return 0;
    const auto* bytes = reinterpret_cast<const uint8_t*>(message.data()) + 9;
    return bytes[0] | bytes[1] << 8 | bytes[2] << 16;
}

// The answer to the request for hardware information, for a sensor of this size.
inline std::string HardwareAnswer(uint16_t rows, uint16_t columns)
{
    std::string info(100, '\0');
    info.replace(42, 2, LittleEndian(rows, 2));
    info.replace(46, 2, LittleEndian(columns, 2));
    return MessageBytes(0x64, info);
}

// Threads: one.
// Owns: its port, for as long as it lives, and one connection at a time.
class tcScriptedCamera
{
public:
    explicit tcScriptedCamera(uint16_t port = 0, int backlog = 8, const char* host = "127.0.0.1")
        : mnHost(inet_addr(host))
    {
        mhPlaceholder = Bind(port);
        sockaddr_in address{};
        socklen_t size = sizeof address;
        getsockname(mhPlaceholder, reinterpret_cast<sockaddr*>(&address), &size);
        mnPort = ntohs(address.sin_port);
        SwitchOn(backlog);
    }
    ~tcScriptedCamera()
    {
        Close();
        SwitchOff();
        close(mhPlaceholder);
    }
    tcScriptedCamera(const tcScriptedCamera&) = delete;
    tcScriptedCamera& operator=(const tcScriptedCamera&) = delete;

    uint16_t Port() const { return mnPort; }

    // Listens on the port, or refuses connections.
    void SwitchOn(int backlog = 8)
    {
        mhListener = Bind(mnPort);
        if (mnReceiveBuffer > 0) {
            setsockopt(mhListener, SOL_SOCKET, SO_RCVBUF, &mnReceiveBuffer, sizeof(int));
        }
        if (listen(mhListener, backlog) != 0) throw std::runtime_error("listen");
    }
    void SwitchOff()
    {
        if (mhListener >= 0) close(mhListener);
        mhListener = -1;
    }

    // Takes in little before the sender has to wait; for connections accepted from now on.
    void LimitReceiveBuffer(int bytes)
    {
        mnReceiveBuffer = bytes;
        setsockopt(mhListener, SOL_SOCKET, SO_RCVBUF, &mnReceiveBuffer, sizeof(int));
    }

    // Waits for a client, in place of the present one, which is left as it is until then.
    bool Accept(std::chrono::milliseconds limit = gPatience)
    {
        if (!Ready(mhListener, limit)) return false;
        Close();
        mhClient = accept4(mhListener, nullptr, nullptr, SOCK_CLOEXEC);
        const int on = 1;
        if (mhClient >= 0) setsockopt(mhClient, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        return mhClient >= 0;
    }

    // Reads `count` bytes; fewer when the client closes or they do not come in time.
    std::string Read(size_t count, std::chrono::milliseconds limit = gPatience)
    {
        std::string bytes(count, '\0');
        size_t got = 0;
        while (got < count && Ready(mhClient, limit)) {
            const ssize_t n = recv(mhClient, &bytes[got], count - got, 0);
            if (n <= 0) break;
            got += static_cast<size_t>(n);
        }
        bytes.resize(got);
        return bytes;
    }

    // Reads one message: twelve bytes and as many as these announce.
    std::string ReadMessage(std::chrono::milliseconds limit = gPatience)
    {
        std::string message = Read(12, limit);
        if (message.size() < 12) return message;
        const auto* bytes = reinterpret_cast<const uint8_t*>(message.data());
        return message + Read(bytes[2] | bytes[3] << 8, limit);
    }

    // Whether the client closes, after whatever it still sends.
    bool SeesClose(std::chrono::milliseconds limit = gPatience)
    {
        char buffer[65536];
        while (Ready(mhClient, limit)) {
            if (recv(mhClient, buffer, sizeof buffer, 0) <= 0) return true;
        }
        return false;
    }

    // Sends in one go. False when the client is gone.
    bool Send(const std::string& bytes)
    {
        size_t sent = 0;
        while (sent < bytes.size()) {
            const ssize_t n =
                send(mhClient, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
            if (n <= 0) return false;
            sent += static_cast<size_t>(n);
        }
        return true;
    }

    // Sends a piece and waits until the client has read it, so that it reads it alone.
    bool SendPiece(const std::string& bytes) { return Send(bytes) && WaitUntilRead(); }

    // Waits until a client in this process has read everything sent.
    bool WaitUntilRead() const
    {
        const int other = ClientDescriptor();
        return other >= 0 && WaitUntil([&] {
                   int unsent = 0, unread = 0;
                   if (ioctl(mhClient, TIOCOUTQ, &unsent) != 0) return false;
                   if (ioctl(other, FIONREAD, &unread) != 0) return false;
                   return unsent == 0 && unread == 0;
               });
    }

    // The client's own end of the connection, where the client is in this process; else -1.
    int ClientDescriptor() const
    {
        sockaddr_in client{};
        socklen_t size = sizeof client;
        if (getpeername(mhClient, reinterpret_cast<sockaddr*>(&client), &size) != 0) return -1;
        int found = -1;
        DIR* directory = opendir("/proc/self/fd");
        while (const dirent* entry = readdir(directory)) {
            const int descriptor = atoi(entry->d_name);
            if (descriptor == mhClient || !IsEnd(descriptor, client)) continue;
            found = descriptor;
            break;
        }
        closedir(directory);
        return found;
    }

    void Close()
    {
        if (mhClient >= 0) close(mhClient);
        mhClient = -1;
    }

    // Ends the connection with a reset, which discards what is under way.
    void Reset()
    {
        const linger atOnce{1, 0};
        setsockopt(mhClient, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
        Close();
    }

private:
    // The placeholder keeps the port when the camera is switched off; a socket that is bound and
    // does not listen refuses connections.
    int Bind(uint16_t port) const
    {
        const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const int on = 1;
        setsockopt(descriptor, SOL_SOCKET, SO_REUSEPORT, &on, sizeof on);
        setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = mnHost;
        if (bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
            close(descriptor);
            throw std::runtime_error("bind");
        }
        return descriptor;
    }

    static bool Ready(int descriptor, std::chrono::milliseconds limit)
    {
        if (descriptor < 0) return false;
        pollfd entry{descriptor, POLLIN, 0};
        return poll(&entry, 1, static_cast<int>(limit.count())) > 0;
    }

    static bool IsEnd(int descriptor, const sockaddr_in& end)
    {
        sockaddr_in address{};
        socklen_t size = sizeof address;
        if (getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
            return false;
        }
        return address.sin_family == AF_INET && address.sin_port == end.sin_port &&
               address.sin_addr.s_addr == end.sin_addr.s_addr;
    }

    int mhPlaceholder = -1, mhListener = -1, mhClient = -1;
    int mnReceiveBuffer = 0;
    in_addr_t mnHost;
    uint16_t mnPort = 0;
};

#endif
