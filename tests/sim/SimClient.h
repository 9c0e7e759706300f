// A small client of the simulated camera, for its tests: plain sockets, no code of the camera's.
#ifndef SIMCLIENT_H
#define SIMCLIENT_H

#include "vxmessages.h"
#include "within.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

inline constexpr int gnPatience = Within(20000); // ms

// True as soon as the condition holds; false when it does not in time.
inline bool Eventually(const std::function<bool()>& condition, int ms = gnPatience)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

struct tsReceived {
    uint32_t id = 0; // 0: the connection has ended, or nothing came in time
    uint8_t sequence = 0;
    uint8_t version = 0;
    std::vector<uint8_t> payload;

    template <class Payload>
    Payload As() const
    {
        Payload result{};
        std::memcpy(&result, payload.data(), std::min(payload.size(), sizeof result));
        return result;
    }
};

// One whole frame as it arrived.
struct tsArrivedFrame {
    bool complete = false;
    uint32_t packets = 0, total = 0, id = 0;
    uint32_t rows = 0, lastColumn = 0, firstColumn = 0, firstRow = 0, lastRow = 0;
    bool lastFlag = false, flagsAgree = true, numbersInOrder = true;
    uint16_t statistic = 0, extra1 = 0, extra2 = 0, imageType = 0;
    uint64_t sum = 0;
    std::vector<uint32_t> pixels; // in the order of arrival
};

class tcSimTestClient
{
public:
    explicit tcSimTestClient(uint16_t port)
    {
        mhSocket = socket(AF_INET, SOCK_STREAM, 0);
        const int on = 1;
        setsockopt(mhSocket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        mbConnected = connect(mhSocket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    }
    ~tcSimTestClient() { Close(); }
    tcSimTestClient(const tcSimTestClient&) = delete;
    tcSimTestClient& operator=(const tcSimTestClient&) = delete;

    bool Connected() const { return mbConnected; }
    int Descriptor() const { return mhSocket; }
    void Close()
    {
        if (mhSocket >= 0) close(mhSocket);
        mhSocket = -1;
    }

    void SendBytes(const void* bytes, size_t count)
    {
        auto next = static_cast<const uint8_t*>(bytes);
        while (count > 0) {
            ssize_t sent = send(mhSocket, next, count, MSG_NOSIGNAL);
            ASSERT_GT(sent, 0);
            next += sent;
            count -= static_cast<size_t>(sent);
        }
    }

    static std::vector<uint8_t> Frame(uint32_t id, const void* payload, size_t bytes,
                                      uint8_t version = 3)
    {
        std::vector<uint8_t> frame(12 + bytes);
        frame[0] = 0x50;
        frame[1] = 0xFA;
        frame[2] = static_cast<uint8_t>(bytes);
        frame[3] = static_cast<uint8_t>(bytes >> 8);
        frame[8] = version;
        frame[9] = static_cast<uint8_t>(id);
        frame[10] = static_cast<uint8_t>(id >> 8);
        frame[11] = static_cast<uint8_t>(id >> 16);
        if (bytes > 0) std::memcpy(frame.data() + 12, payload, bytes);
        return frame;
    }

    void Send(uint32_t id, const std::vector<uint8_t>& payload = {}, uint8_t version = 3)
    {
        std::vector<uint8_t> frame = Frame(id, payload.data(), payload.size(), version);
        SendBytes(frame.data(), frame.size());
    }

    template <class Payload>
    void SendCommand(const tsCommand<Payload>& command, const Payload& payload)
    {
        std::vector<uint8_t> frame = Frame(command.id, &payload, sizeof payload);
        SendBytes(frame.data(), frame.size());
    }
    void SendCommand(const tsCommand<tsNoPayload>& command) { Send(command.id); }

    // The next message of any kind.
    tsReceived Receive(int ms = gnPatience)
    {
        tsReceived message;
        uint8_t head[12];
        if (!Exactly(head, sizeof head, ms)) return message;
        EXPECT_EQ(head[0], 0x50);
        EXPECT_EQ(head[1], 0xFA);
        message.sequence = head[4];
        message.version = head[8];
        message.payload.resize(head[2] | head[3] << 8);
        if (!Exactly(message.payload.data(), message.payload.size(), ms)) return message;
        message.id = static_cast<uint32_t>(head[9] | head[10] << 8 | head[11] << 16);
        return message;
    }

    // The next message with this id; what comes before is dropped.
    tsReceived Await(uint32_t id)
    {
        for (;;) {
            tsReceived message = Receive();
            if (message.id == id || message.id == 0) return message;
        }
    }

    // All messages but heartbeats up to the echo of a user-defined one sent now: what the camera
    // says to the commands before.
    std::vector<tsReceived> Settle()
    {
        std::vector<tsReceived> messages;
        Send(gnEchoId, {1, 2, 3});
        for (;;) {
            tsReceived message = Receive();
            if (message.id == gnEchoId) return messages;
            EXPECT_NE(message.id, 0u) << "the echo did not come";
            if (message.id == 0) return messages;
            if (message.id != ansHeartBeat.id) messages.push_back(message);
        }
    }

    template <class Answer, class Payload>
    Answer Ask(const tsCommand<Payload>& command, const Payload& payload)
    {
        SendCommand(command, payload);
        return Await(command.answer->id).template As<Answer>();
    }
    template <class Answer>
    Answer Ask(const tsCommand<tsNoPayload>& command)
    {
        SendCommand(command);
        return Await(command.answer->id).template As<Answer>();
    }

    tsArrivedFrame ReceiveFrame()
    {
        tsArrivedFrame frame;
        while (!frame.complete) {
            tsReceived message = Receive();
            if (message.id == 0) return frame;
            if (message.id == ansPixels16.id || message.id == ansPixels32.id ||
                message.id == ansPixels8.id) {
                AddPacket(message, &frame);
            }
        }
        return frame;
    }

private:
    static constexpr uint32_t gnEchoId = 0x1234;

    static void AddPacket(const tsReceived& message, tsArrivedFrame* frame)
    {
        const uint8_t* bytes = message.payload.data();
        auto word = [bytes](size_t at) {
            return static_cast<uint16_t>(bytes[at] | bytes[at + 1] << 8);
        };
        const uint32_t number = word(2), row = word(6);
        if (frame->packets == 0) {
            frame->firstRow = row;
            frame->firstColumn = word(8);
            frame->lastFlag = bytes[1] != 0;
            frame->total = word(4);
        }
        if (frame->packets == 0 || row != frame->lastRow) ++frame->rows;
        frame->flagsAgree &= frame->lastFlag == (bytes[1] != 0) && frame->total == word(4);
        frame->numbersInOrder &= number == ++frame->packets;
        frame->id = message.id;
        frame->imageType = bytes[0];
        frame->lastRow = row;
        frame->lastColumn = word(10);
        frame->statistic = word(14);
        size_t start = 16, width = 2;
        if (message.id == ansPixels32.id) {
            frame->extra1 = word(16);
            frame->extra2 = word(18);
            start = 20;
            width = 4;
        } else if (message.id == ansPixels8.id) {
            width = 1;
        }
        EXPECT_EQ(message.payload.size() - start, width * (word(10) - word(8) + 1u));
        for (size_t at = start; at + width <= message.payload.size(); at += width) {
            uint32_t pixel = 0;
            std::memcpy(&pixel, bytes + at, width);
            frame->pixels.push_back(pixel);
            frame->sum += pixel;
        }
        frame->complete = number == word(4);
    }

    bool Exactly(uint8_t* bytes, size_t count, int ms)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
        while (count > 0) {
            auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            pollfd state{mhSocket, POLLIN, 0};
            if (left.count() <= 0 || poll(&state, 1, static_cast<int>(left.count())) <= 0) {
                return false;
            }
            ssize_t got = recv(mhSocket, bytes, count, 0);
            if (got <= 0) {
                mbEnded = got == 0;
                return false;
            }
            bytes += got;
            count -= static_cast<size_t>(got);
        }
        return true;
    }

    int mhSocket = -1;
    bool mbConnected = false;

public:
    bool mbEnded = false; // in order, not by a reset
};

#endif
