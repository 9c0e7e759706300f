// Conversations with a simulated camera as plain bytes, for cameras that send what is no message.
#ifndef RAWCLIENT_H
#define RAWCLIENT_H

#include "SimClient.h"
#include "tcSimServer.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <sys/ioctl.h>

using tpBytes = std::vector<uint8_t>;
using tpMessages = std::vector<tpBytes>;

inline tpBytes Joined(const tpMessages& messages)
{
    tpBytes bytes;
    for (const tpBytes& message : messages) {
        bytes.insert(bytes.end(), message.begin(), message.end());
    }
    return bytes;
}

// Cuts a healthy stream into its messages.
inline tpMessages Split(const tpBytes& bytes)
{
    tpMessages messages;
    for (size_t at = 0; at + 12 <= bytes.size();) {
        const size_t size = 12 + (bytes[at + 2] | bytes[at + 3] << 8);
        const size_t end = std::min(bytes.size(), at + size);
        messages.emplace_back(bytes.begin() + static_cast<ptrdiff_t>(at),
                              bytes.begin() + static_cast<ptrdiff_t>(end));
        at = end;
    }
    return messages;
}

inline uint16_t WordAt(const tpBytes& bytes, size_t at)
{
    return static_cast<uint16_t>(bytes.at(at) | bytes.at(at + 1) << 8);
}

inline void PutWord(tpBytes& bytes, size_t at, uint16_t word)
{
    bytes.at(at) = static_cast<uint8_t>(word);
    bytes.at(at + 1) = static_cast<uint8_t>(word >> 8);
}

enum class teEnd { eNothing, eClosed, eReset };

// Reads until it has so many bytes, the connection ends, or nothing comes for so long.
struct tsRead {
    tpBytes bytes;
    teEnd end = teEnd::eNothing;
};
inline tsRead ReadBytes(int descriptor, size_t count, int ms = gnPatience)
{
    tsRead result;
    uint8_t piece[4096];
    while (result.bytes.size() < count) {
        pollfd state{descriptor, POLLIN, 0};
        if (poll(&state, 1, ms) <= 0) return result;
        const ssize_t got =
            recv(descriptor, piece, std::min(sizeof piece, count - result.bytes.size()), 0);
        if (got == 0) result.end = teEnd::eClosed;
        if (got < 0) result.end = errno == ECONNRESET ? teEnd::eReset : teEnd::eClosed;
        if (got <= 0) return result;
        result.bytes.insert(result.bytes.end(), piece, piece + got);
    }
    return result;
}

// A camera of 8 x 4 pixels with faults, and a client of it.
class tcFaultyCamera
{
public:
    static constexpr size_t nRows = 4, nColumns = 8;

    static tsSimOptions Options(const std::vector<std::string>& faults = {}, uint64_t seed = 1)
    {
        tsSimOptions options;
        options.rows = nRows;
        options.columns = nColumns;
        options.heartbeatSeconds = 0;
        options.faults = ParseSimFaults(faults);
        options.faultSeed = seed;
        return options;
    }

    explicit tcFaultyCamera(const std::vector<std::string>& faults = {}, uint64_t seed = 1)
        : tcFaultyCamera(Options(faults, seed))
    {}
    explicit tcFaultyCamera(const tsSimOptions& options) : mServer(options)
    {
        mnPort = mServer.Start();
        Connect();
    }

    void Connect()
    {
        mpClient.reset(); // the camera serves one at a time
        mpClient = std::make_unique<tcSimTestClient>(mnPort);
    }
    tcSimTestClient& Client() { return *mpClient; }
    tcSimServer& Server() { return mServer; }
    uint16_t Port() const { return mnPort; }

    // Two questions and a frame, in one go. The answers are two messages, then a packet a row.
    void Ask(uint16_t frames = 1)
    {
        tpMessages commands;
        const tsWordMsg none{0};
        const tsReadAreaMsg read{0, 0, 0, 0, frames, 0};
        commands.push_back(tcSimTestClient::Frame(cmdSetExposure.id, &none, sizeof none));
        commands.push_back(tcSimTestClient::Frame(cmdGetExposureTime.id, nullptr, 0));
        commands.push_back(tcSimTestClient::Frame(cmdGetGPIO.id, nullptr, 0));
        commands.push_back(tcSimTestClient::Frame(cmdReadCCDArea.id, &read, sizeof read));
        const tpBytes bytes = Joined(commands);
        mpClient->SendBytes(bytes.data(), bytes.size());
    }
    static constexpr size_t nAnswers = 2;
    static constexpr size_t nAnswerBytes = nAnswers * 16;
    static constexpr size_t nPacketBytes = 28 + 2 * nColumns;
    static constexpr size_t nHealthyBytes = nAnswerBytes + nRows * nPacketBytes;

    tsRead Read(size_t bytes, int ms = gnPatience)
    {
        return ReadBytes(mpClient->Descriptor(), bytes, ms);
    }

    // Whether the next thing the camera says is the answer to this.
    bool Echoes()
    {
        mpClient->Send(0x1234, {'e', 'n', 'd'});
        const tsRead echo = Read(15);
        return echo.bytes.size() == 15 && echo.bytes[0] == 0x50 && echo.bytes[12] == 'e' &&
               echo.bytes[14] == 'd';
    }

    // What a camera without faults answers to Ask.
    static tpMessages Healthy()
    {
        tcFaultyCamera camera;
        camera.Ask();
        return Split(camera.Read(nHealthyBytes).bytes);
    }

private:
    tcSimServer mServer;
    uint16_t mnPort = 0;
    std::unique_ptr<tcSimTestClient> mpClient;
};

#endif
