#include "receiver.h"

#include "vxcamiface.h"
#include "vxmessages.h"

#include <arpa/inet.h>
#include <atomic>
#include <cstring>
#include <ctime>
#include <netinet/tcp.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// Frames that callbacks have seen, by handle; handles that far apart are never open together.
constexpr size_t gnCounters = 4096;
std::atomic<uint64_t> gaFramesSeen[gnCounters];

std::atomic<uint64_t>& FramesSeen(int handle)
{
    return gaFramesSeen[static_cast<size_t>(handle) % gnCounters];
}

// Where copies go, by handle.
uint8_t* gaCopies[gnCounters][tcLibraryReceiver::nKept];
size_t gaCopyBytes[gnCounters];

void OnImage(int handle, tsImageData*)
{
    ++FramesSeen(handle);
}

void OnImageToCopy(int handle, tsImageData* image)
{
    const size_t camera = static_cast<size_t>(handle) % gnCounters;
    const size_t next = FramesSeen(handle)++ % tcLibraryReceiver::nKept;
    memcpy(gaCopies[camera][next], image->ImageBuffer, gaCopyBytes[camera]);
}

void OnFrameInTurn(int handle, const tsFrameRecord* frame, void*)
{
    if (frame->Outcome == eFrameComplete) ++FramesSeen(handle);
    VXReturnImageBuffer(handle, frame->Buffer);
}

double Clock(clockid_t id)
{
    timespec now;
    clock_gettime(id, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

} // namespace

double WallSeconds()
{
    return Clock(CLOCK_MONOTONIC);
}
double CpuSeconds()
{
    return Clock(CLOCK_PROCESS_CPUTIME_ID);
}

tcLibraryReceiver::tcLibraryReceiver(const tcSender& sender, teKeeping keeping)
    : mSender(sender), meKeeping(keeping),
      mnHandle(VXOpenENetCamera(sender.Stream().address, sender.Port())),
      mvImage(static_cast<size_t>(sender.Stream().rows) * sender.Stream().columns)
{
    if (mnHandle < 0) throw std::runtime_error("cannot open the benchmark's camera");
    FramesSeen(mnHandle) = 0;
    VXSetImageDataCallback(mnHandle, OnImage);
    VXSetCCDArea(mnHandle, 0, 0, sender.Stream().columns, sender.Stream().rows);
    if (keeping == teKeeping::eOneBuffer) return;
    mvKept.assign(nKept, std::vector<uint8_t>(sender.Stream().PixelBytes()));
    if (keeping == teKeeping::eCopied) KeepCopies();
    if (keeping == teKeeping::eInTurn) KeepInTurn();
}

void tcLibraryReceiver::KeepCopies()
{
    const size_t camera = static_cast<size_t>(mnHandle) % gnCounters;
    for (size_t i = 0; i < nKept; ++i) {
        gaCopies[camera][i] = mvKept[i].data();
    }
    gaCopyBytes[camera] = mSender.Stream().PixelBytes();
    VXSetImageDataCallback(mnHandle, OnImageToCopy);
}

void tcLibraryReceiver::KeepInTurn()
{
    void* buffers[nKept];
    for (size_t i = 0; i < nKept; ++i) {
        buffers[i] = mvKept[i].data();
    }
    VXSetImageDataCallback(mnHandle, nullptr);
    VXSetFrameCallback(mnHandle, OnFrameInTurn, nullptr);
    const int result = VXSetImageBuffers(mnHandle, buffers, nKept, mSender.Stream().PixelBytes());
    if (result != 0) throw std::runtime_error("cannot set the buffers");
}

tcLibraryReceiver::~tcLibraryReceiver()
{
    VXCloseCamera(mnHandle);
}

void tcLibraryReceiver::Start(int frames)
{
    const auto count = static_cast<short>(frames);
    void* image = meKeeping == teKeeping::eInTurn ? nullptr : mvImage.data();
    const int result = mSender.Stream().bits == 32
                           ? VXReadCCDBinned(mnHandle, static_cast<long*>(image), nullptr, count, 0)
                           : VXReadCCDArea(mnHandle, static_cast<unsigned short*>(image), count, 0);
    if (result != 0) throw std::runtime_error("cannot start a readout");
    mnFramesExpected += static_cast<uint64_t>(frames);
}

void tcLibraryReceiver::Wait()
{
    if (VXWaitCompletion(mnHandle, 60000) != 0) throw std::runtime_error("readout timed out");
    if (FramesSeen(mnHandle) != mnFramesExpected) throw std::runtime_error("frames were lost");
}

tsCost tcLibraryReceiver::Receive(int frames)
{
    return Measure([&] {
        Start(frames);
        Wait();
    });
}

int ConnectTo(const tcSender& sender, teBuffer buffer)
{
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    const int bytes = 0x200000, on = 1;
    if (buffer == teBuffer::eFixed) {
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(sender.Port());
    address.sin_addr.s_addr = inet_addr(sender.Stream().address);
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        close(fd);
        throw std::runtime_error("cannot connect to the sender");
    }
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return fd;
}

tcBareReceiver::tcBareReceiver(const tcSender& sender, size_t chunk, teBuffer buffer)
    : mSender(sender), mnFD(ConnectTo(sender, buffer)), mvChunk(chunk),
      mvImage(sender.Stream().PixelBytes())
{}

tcBareReceiver::~tcBareReceiver()
{
    close(mnFD);
}

void tcBareReceiver::Start(int frames)
{
    const bool isBinned = mSender.Stream().bits == 32;
    tuCameraMessages message{};
    message.header.Magic = gnMessageMagic;
    message.header.IDD = gnInterfaceVersion;
    message.header.MsgId = isBinned ? cmdReadCCDBinned.id : cmdReadCCDArea.id;
    message.header.Length = sizeof(tsReadAreaMsg);
    if (isBinned) {
        message.ReadBinned.payload.Frames = static_cast<uint16_t>(frames);
    } else {
        message.ReadArea.payload.Frames = static_cast<uint16_t>(frames);
    }
    const size_t length = gnHeaderBytes + sizeof(tsReadAreaMsg);
    if (send(mnFD, &message, length, MSG_NOSIGNAL) != static_cast<ssize_t>(length)) {
        throw std::runtime_error("cannot start a bare readout");
    }
    mnLeft = mSender.Stream().FrameBytes() * static_cast<uint64_t>(frames);
}

// The least work: skips the packets' heads by their known length.
void tcBareReceiver::Take(const uint8_t* data, size_t length)
{
    const tsStream& stream = mSender.Stream();
    const size_t packet = stream.FrameBytes() / stream.rows;
    const size_t pixels = static_cast<size_t>(stream.columns) * (stream.bits / 8);
    const size_t head = packet - pixels;
    while (length > 0) {
        size_t n;
        if (mnInPacket < head) {
            n = std::min(length, head - mnInPacket);
        } else {
            n = std::min(length, packet - mnInPacket);
            memcpy(mvImage.data() + mnAt, data, n);
            mnAt += n;
            if (mnAt == mvImage.size()) mnAt = 0;
        }
        data += n;
        length -= n;
        mnInPacket += n;
        if (mnInPacket == packet) mnInPacket = 0;
    }
}

void tcBareReceiver::Wait()
{
    while (mnLeft > 0) {
        const ssize_t n = recv(mnFD, mvChunk.data(), mvChunk.size(), 0);
        if (n <= 0) throw std::runtime_error("bare readout broke off");
        Take(mvChunk.data(), static_cast<size_t>(n));
        mnLeft -= static_cast<uint64_t>(n);
    }
}

tsCost tcBareReceiver::Receive(int frames)
{
    return Measure([&] {
        Start(frames);
        Wait();
    });
}
