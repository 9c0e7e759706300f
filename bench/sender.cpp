#include "sender.h"

#include "vxmessages.h"

#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <netinet/tcp.h>
#include <poll.h>
#include <sched.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using tcBytes = std::vector<uint8_t>;
using std::chrono::steady_clock;

size_t PixelsOffset(int bits)
{
    return bits == 32 ? offsetof(tsPixelData32Msg, Pixels) : offsetof(tsPixelData16Msg, Pixels);
}

size_t PacketBytes(const tsStream& stream)
{
    return PixelsOffset(stream.bits) + static_cast<size_t>(stream.columns) * (stream.bits / 8);
}

tsMsgHeader HeaderOf(uint32_t id, size_t length)
{
    tsMsgHeader header{};
    header.Magic = gnMessageMagic;
    header.Length = static_cast<uint16_t>(length);
    header.IDD = gnInterfaceVersion;
    header.MsgId = id;
    return header;
}

// One frame as it goes over the wire, a packet a row.
tcBytes MakeFrame(const tsStream& stream, bool isLast)
{
    const size_t packetBytes = PacketBytes(stream);
    tcBytes frame(packetBytes * stream.rows);
    const uint32_t id = stream.bits == 32 ? ansPixels32.id : ansPixels16.id;
    for (uint16_t row = 0; row < stream.rows; ++row) {
        uint8_t* to = frame.data() + packetBytes * row;
        tsPixelData16Msg head{};
        head.header = HeaderOf(id, packetBytes - gnHeaderBytes);
        head.header.SeqNo = row % 256; // frame after frame where rows are a multiple of that
        head.LastFrame = isLast;
        head.PacketNumber = static_cast<uint16_t>(row + 1);
        head.TotalPackets = stream.rows;
        head.Row = row;
        head.LastColumn = static_cast<uint16_t>(stream.columns - 1);
        memcpy(to, &head, offsetof(tsPixelData16Msg, Pixels));
        for (size_t i = PixelsOffset(stream.bits); i < packetBytes; ++i) {
            to[i] = static_cast<uint8_t>(i * 31 + row);
        }
    }
    return frame;
}

bool SendAll(int fd, const void* data, size_t length)
{
    const auto* bytes = static_cast<const uint8_t*>(data);
    while (length > 0) {
        const ssize_t n = send(fd, bytes, length, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        bytes += n;
        length -= static_cast<size_t>(n);
    }
    return true;
}

// One connection of the child.
class tcConnection
{
public:
    tcConnection(int fd, const tsStream& stream, const tcBytes& frame, const tcBytes& lastFrame)
        : mnFD(fd), mtStream(stream), mFrame(frame), mLastFrame(lastFrame)
    {}
    ~tcConnection() { close(mnFD); }
    tcConnection(const tcConnection&) = delete;
    tcConnection& operator=(const tcConnection&) = delete;

    void Serve()
    {
        const int on = 1;
        setsockopt(mnFD, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        while (Take(true)) {
        }
    }

private:
    // Reads and answers what has come; false when the connection has ended.
    bool Take(bool wait)
    {
        uint8_t bytes[4096];
        const ssize_t n = recv(mnFD, bytes, sizeof bytes, wait ? 0 : MSG_DONTWAIT);
        if (n < 0) return errno == EAGAIN || errno == EINTR;
        if (n == 0) return false;
        mvInput.insert(mvInput.end(), bytes, bytes + n);
        while (mvInput.size() >= sizeof(tsMsgHeader)) {
            tsMsgHeader header;
            memcpy(&header, mvInput.data(), sizeof header);
            const size_t whole = sizeof header + header.Length;
            if (mvInput.size() < whole) break;
            const tcBytes message(mvInput.begin(), mvInput.begin() + static_cast<long>(whole));
            mvInput.erase(mvInput.begin(), mvInput.begin() + static_cast<long>(whole));
            if (!Answer(header.MsgId, message)) return false;
        }
        return true;
    }

    template <class Payload>
    bool Reply(uint32_t id, const Payload& payload)
    {
        tsFramed<Payload> answer{HeaderOf(id, sizeof payload), payload};
        answer.header.SeqNo = mnNumber++;
        mbAnswers = true;
        return SendAll(mnFD, &answer, sizeof answer);
    }

    bool Answer(uint32_t id, const tcBytes& message)
    {
        if (id == cmdGetCameraHardwareInfo.id) {
            TVXCameraHardware info{};
            info.Rows = mtStream.rows;
            info.Columns = mtStream.columns;
            return Reply(ansHardware.id, info);
        }
        if (id == cmdGetTrigger.id) return Reply(ansTrigger.id, tsWordMsg{1});
        if (id == cmdReadCCDArea.id) {
            tsReadAreaMsg read;
            memcpy(&read, message.data() + gnHeaderBytes, sizeof read);
            mnFrames = read.Frames;
        } else if (id == cmdReadCCDBinned.id) {
            tsReadBinnedMsg read;
            memcpy(&read, message.data() + gnHeaderBytes, sizeof read);
            mnFrames = read.Frames;
        } else {
            return ReplyNothing(id);
        }
        return mbStreaming || Stream();
    }

    // To all else that is asked: zeros, of the answer's length.
    bool ReplyNothing(uint32_t id)
    {
        const tsCommandRow* const command = FindCommand(id);
        if (command == nullptr || command->answer == nullptr) return true;
        tsMsgHeader header = HeaderOf(command->answer->id, command->answer->bytes);
        header.SeqNo = mnNumber++;
        tcBytes answer(sizeof header + command->answer->bytes);
        memcpy(answer.data(), &header, sizeof header);
        mbAnswers = true;
        return SendAll(mnFD, answer.data(), answer.size());
    }

    bool Stream()
    {
        mbStreaming = true;
        mtStart = steady_clock::now();
        mnSent = 0;
        if (!SendHeartBeats()) return false;
        while (mnFrames > 0) {
            if (!SendFrame(--mnFrames == 0 ? mLastFrame : mFrame)) return false;
        }
        mbStreaming = false;
        return true;
    }

    // The numbers of frames begin with 0, and are to be those behind the last message. A bare loop
    // asks nothing, and gets frames alone.
    bool SendHeartBeats()
    {
        if (!mbAnswers) return true;
        tcBytes bytes;
        while (mnNumber != 0 || !mbHadHeartBeat) {
            tsFramed<tsHeartBeatData> message{HeaderOf(ansHeartBeat.id, sizeof(tsHeartBeatData)),
                                              {}};
            message.header.SeqNo = mnNumber++;
            const auto* const from = reinterpret_cast<const uint8_t*>(&message);
            bytes.insert(bytes.end(), from, from + sizeof message);
            mbHadHeartBeat = true;
        }
        return SendAll(mnFD, bytes.data(), bytes.size());
    }

    bool SendFrame(const tcBytes& frame)
    {
        // Paced or answering meanwhile, the frame goes out in pieces of a few rows.
        const size_t packet = PacketBytes(mtStream);
        const bool isPaced = mtStream.megabytesPerSecond > 0;
        const size_t some = packet * std::max<size_t>(1, 65536 / packet);
        const size_t step = mtStream.byPacket ? packet : isPaced ? some : frame.size();
        for (size_t at = 0; at < frame.size(); at += step) {
            const size_t piece = std::min(step, frame.size() - at);
            if (!SendAll(mnFD, frame.data() + at, piece)) return false;
            mnSent += piece;
            if (isPaced) {
                if (!Take(false)) return false;
                Pace();
            }
        }
        return true;
    }

    void Pace()
    {
        const double due = static_cast<double>(mnSent) / (mtStream.megabytesPerSecond * 1e6);
        const auto until = mtStart + std::chrono::duration_cast<steady_clock::duration>(
                                         std::chrono::duration<double>(due));
        // Sleeping is coarse, so only when there is something to sleep for; meanwhile commands
        // are answered.
        for (auto now = steady_clock::now(); until - now > std::chrono::microseconds(200);
             now = steady_clock::now()) {
            const timespec left{0, std::chrono::nanoseconds(until - now).count() % 1000000000};
            pollfd ready{mnFD, POLLIN, 0};
            if (ppoll(&ready, 1, &left, nullptr) > 0 && !Take(false)) return;
        }
    }

    int mnFD;
    const tsStream& mtStream;
    const tcBytes& mFrame;
    const tcBytes& mLastFrame;
    tcBytes mvInput;
    int mnFrames = 0;
    uint8_t mnNumber = 0; // of the next message that is not of a frame
    bool mbStreaming = false, mbAnswers = false, mbHadHeartBeat = false;
    steady_clock::time_point mtStart;
    uint64_t mnSent = 0;
};

[[noreturn]] void RunChild(int listener, const tsStream& stream)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    PinToCore(stream.cpu);
    const tcBytes frame = MakeFrame(stream, false), lastFrame = MakeFrame(stream, true);
    for (;;) {
        const int fd = accept(listener, nullptr, nullptr);
        if (fd < 0) continue;
        std::thread([fd, &stream, &frame, &lastFrame] {
            tcConnection(fd, stream, frame, lastFrame).Serve();
        }).detach();
    }
}

} // namespace

uint64_t tsStream::FrameBytes() const
{
    return PacketBytes(*this) * rows;
}

void PinToCore(int cpu)
{
    cpu_set_t cores;
    CPU_ZERO(&cores);
    for (int i = 0; i < CPU_SETSIZE; ++i) {
        if (cpu < 0 || i == cpu) CPU_SET(i, &cores);
    }
    sched_setaffinity(0, sizeof cores, &cores);
}

tcSender::tcSender(const tsStream& stream) : mtStream(stream)
{
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = inet_addr(stream.address);
    socklen_t length = sizeof address;
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        listen(listener, 64) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        throw std::runtime_error("cannot listen");
    }
    mnPort = ntohs(address.sin_port);
    mnChild = fork();
    if (mnChild == 0) RunChild(listener, mtStream);
    close(listener);
    if (mnChild < 0) throw std::runtime_error("cannot start a sender");
}

tcSender::~tcSender()
{
    kill(mnChild, SIGKILL);
    waitpid(mnChild, nullptr, 0);
}
