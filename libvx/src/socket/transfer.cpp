#include "HSocket.h"
#include "quietwrite.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <vector>

namespace {

constexpr int nTimeout = -2;

int Fail(int error)
{
    errno = error;
    return -1;
}

// Waits until one of the entries is readable: its index, -2 after the time-out, -1 on failure.
int WaitReadable(pollfd* entries, int count, int timeoutMs)
{
    // poll() skips negative descriptors; to a caller they are as bad as closed ones.
    for (int i = 0; i < count; ++i) {
        if (entries[i].fd < 0) return Fail(EBADF);
    }
    const int ready = poll(entries, count, timeoutMs);
    if (ready == 0) return nTimeout;
    if (ready < 0) return -1;
    for (int i = 0; i < count; ++i) {
        if ((entries[i].revents & POLLNVAL) != 0) return Fail(EBADF);
    }
    for (int i = 0; i < count; ++i) {
        if (entries[i].revents != 0) return i;
    }
    return -1;
}

template <typename tDescriptor>
int SelectFrom(int count, int timeoutMs, tDescriptor descriptorOf)
{
    if (count < 1) return WaitReadable(nullptr, 0, timeoutMs);
    if (count == 1) {
        pollfd entry{descriptorOf(0), POLLIN, 0};
        return WaitReadable(&entry, 1, timeoutMs);
    }
    std::vector<pollfd> entries(count);
    for (int i = 0; i < count; ++i)
        entries[i] = {descriptorOf(i), POLLIN, 0};
    return WaitReadable(entries.data(), count, timeoutMs);
}

template <typename tCall>
int Retry(tCall call)
{
    int result;
    do {
        result = static_cast<int>(call());
    } while (result < 0 && errno == EINTR);
    return result;
}

// Receives with `call(extraFlags)`, after waiting at most `timeoutMs` for data.
template <typename tCall>
int ReceiveInTime(HSocket* socket, int timeoutMs, tCall call)
{
    using namespace std::chrono;
    const auto deadline = steady_clock::now() + milliseconds(timeoutMs);
    int left = timeoutMs;
    for (;;) {
        const int ready = HSocket::Select(1, socket, left);
        if (ready == nTimeout) return nTimeout;
        if (ready < 0 && errno == EBADF) return -1;
        if (ready == 0) {
            // What was announced may be gone again (a datagram with a bad checksum): do not block.
            const int result = Retry([&] { return call(MSG_DONTWAIT); });
            if (result >= 0 || (errno != EAGAIN && errno != EWOULDBLOCK)) return result;
        }
        const auto rest = duration_cast<milliseconds>(deadline - steady_clock::now()).count();
        if (rest <= 0) return nTimeout;
        left = static_cast<int>(rest);
    }
}

template <typename tAddress>
int ReceivePlainFrom(int descriptor, char* buffer, int size, int flags, tAddress& from)
{
    socklen_t length = sizeof from;
    auto* address = reinterpret_cast<sockaddr*>(&from);
    return Retry([&] { return recvfrom(descriptor, buffer, size, flags, address, &length); });
}

} // namespace

int HFDObject::Select(int count, HFDObject** objects, int timeoutMs)
{
    return SelectFrom(count, timeoutMs,
                      [objects](int i) { return objects[i] ? objects[i]->GetFD() : -1; });
}

int HSocket::Select(int count, HSocket* sockets, int timeoutMs)
{
    return SelectFrom(count, timeoutMs, [sockets](int i) { return sockets[i].GetFD(); });
}

int HSocket::Send(const char* data, int length)
{
    if (length < 0) length = static_cast<int>(std::strlen(data));
    const int sent = Retry([&] { return send(mhDescriptor, data, length, MSG_NOSIGNAL); });
    if (sent >= 0 || errno != ENOTSOCK) return sent;
    return Retry([&] { return vx::WriteQuietly(mhDescriptor, data, static_cast<size_t>(length)); });
}

int HSocket::SendAll(const char* data, int length)
{
    if (length < 0) length = static_cast<int>(std::strlen(data));
    int done = 0;
    while (done < length) {
        const int sent = Send(data + done, length - done);
        if (sent < 0) return -1;
        done += sent;
    }
    return length;
}

int HSocket::SendAll(const char* data, int length, int timeoutMs)
{
    using namespace std::chrono;
    if (length < 0) length = static_cast<int>(std::strlen(data));
    const auto deadline = steady_clock::now() + milliseconds(timeoutMs);
    int done = 0;
    while (done < length) {
        const auto left = ceil<milliseconds>(deadline - steady_clock::now()).count();
        const int sent = left > 0 ? SendReady(data + done, length - done, static_cast<int>(left))
                                  : Fail(ETIMEDOUT);
        if (sent < 0) return -1;
        done += sent;
    }
    return length;
}

// Waits for room and sends what fits: bytes, 0 when that was cut short, or -1.
int HSocket::SendReady(const char* data, int length, int timeoutMs)
{
    if (mhDescriptor < 0) return Fail(EBADF);
    pollfd entry{mhDescriptor, POLLOUT, 0};
    const int ready = poll(&entry, 1, timeoutMs);
    if (ready == 0) return Fail(ETIMEDOUT);
    if (ready < 0) return errno == EINTR ? 0 : -1;
    int sent = static_cast<int>(send(mhDescriptor, data, length, MSG_NOSIGNAL | MSG_DONTWAIT));
    if (sent < 0 && errno == ENOTSOCK) {
        const auto size = static_cast<size_t>(std::min(length, PIPE_BUF)); // a pipe has that room
        sent = static_cast<int>(vx::WriteQuietly(mhDescriptor, data, size));
    }
    const bool isCutShort = sent < 0 && (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK);
    return isCutShort ? 0 : sent;
}

int HSocket::SendTo(const char* data, int length, const HInetAddr& to)
{
    const auto* address = reinterpret_cast<const sockaddr*>(&to.GetSockAddr());
    const socklen_t size = sizeof to.GetSockAddr();
    return Retry([&] { return sendto(mhDescriptor, data, length, MSG_NOSIGNAL, address, size); });
}

int HSocket::SendTo(const char* data, int length, const HUnixAddr& to)
{
    const auto* address = reinterpret_cast<const sockaddr*>(&to.GetSockAddr());
    const socklen_t size = sizeof to.GetSockAddr();
    return Retry([&] { return sendto(mhDescriptor, data, length, MSG_NOSIGNAL, address, size); });
}

int HSocket::Receive(char* buffer, int size, int timeoutMs, int flags)
{
    if (timeoutMs >= 1) {
        const bool wholeSize = (flags & MSG_WAITALL) != 0;
        return ReceiveInTime(this, timeoutMs, [&](int extra) {
            return recv(mhDescriptor, buffer, size, wholeSize ? flags : flags | extra);
        });
    }
    const int received = Retry([&] { return recv(mhDescriptor, buffer, size, flags); });
    if (received >= 0 || errno != ENOTSOCK || flags == MSG_PEEK) return received;
    return Retry([&] { return read(mhDescriptor, buffer, size); });
}

int HSocket::ReceiveFrom(char* buffer, int size, HInetAddr& from, int timeoutMs)
{
    if (timeoutMs < 1) return ReceiveFrom(buffer, size, 0, from);
    return ReceiveInTime(this, timeoutMs, [&](int extra) {
        return ReceivePlainFrom(mhDescriptor, buffer, size, extra, from.GetSockAddr());
    });
}

int HSocket::ReceiveFrom(char* buffer, int size, int flags, HInetAddr& from)
{
    return ReceivePlainFrom(mhDescriptor, buffer, size, flags, from.GetSockAddr());
}

int HSocket::ReceiveFrom(char* buffer, int size, int flags, HUnixAddr& from)
{
    // The system terminates a path only when there is room behind it.
    sockaddr_un sender{};
    const int received = ReceivePlainFrom(mhDescriptor, buffer, size, flags, sender);
    if (received >= 0) {
        char path[sizeof sender.sun_path + 1] = {};
        std::memcpy(path, sender.sun_path, sizeof sender.sun_path);
        from.Set(path);
    }
    return received;
}
