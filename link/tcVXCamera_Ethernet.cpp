#include "tcVXCamera_Ethernet.h"

#include "tcFrameAccount.h"
#include "tcHost.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>

using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

constexpr int gnReceiveBytes = 65536; // asked of the kernel at once
constexpr int gnPieceBytes = 4096;    // logged, dumped and parsed at once
constexpr int gnReceiveTimeout = 100; // ms
constexpr int gnSendStep = 50;        // ms between two looks at the stop flag
constexpr milliseconds gShortestDelay{10};
constexpr milliseconds gLongestDelay{1000};
constexpr int gnReconnectLimit = 1000;  // ms that one attempt may take
constexpr milliseconds gLastWords{500}; // that the end of a failed opening may take to arrive

// A camera that vanished without a word is asked by the kernel from the third second of silence on,
// and given up after three questions. While something that was sent is not confirmed, the kernel
// asks nothing: then its silence is told by when it was heard last.
constexpr int gnSilentSeconds = 3;
constexpr int gnQuestionSeconds = 1;
constexpr int gnQuestions = 3;
constexpr unsigned gnSilentMs = 6000;
constexpr milliseconds gUnanswered{1500}; // that this must last

template <class Value>
void SetOption(int descriptor, int level, int name, const Value& value)
{
    setsockopt(descriptor, level, name, &value, sizeof value);
}

} // namespace

// At the beginning of a page: the kernel copies to there at its fastest.
struct tcVXCamera_Ethernet::tsReceiveBuffer {
    alignas(4096) char bytes[gnReceiveBytes];
};

tcVXCamera_Ethernet::tcVXCamera_Ethernet(const char* address, unsigned short port)
    : mnPort(port), mpHost(std::make_unique<tcHost>(address != nullptr ? address : ""))
{
    SetLink("ethernet", mpHost->Text() + ":" + std::to_string(mnPort));
    SetLinkState(false);
    mLog.logDebug(1, "tcVXCamera_Ethernet::tcVXCamera_Ethernet Addr %s, Port %d",
                  mpHost->Text().c_str(), mnPort);
}

tcVXCamera_Ethernet::~tcVXCamera_Ethernet()
{
    mbStopMonitor = true; // also ends a send of the monitor that is under way
    StopMonitor();
    StopReceiving();
}

int tcVXCamera_Ethernet::Initialize()
try {
    return Open();
} catch (const std::exception& reason) { // out of memory or threads
    mLog.logError("tcVXCamera_Ethernet::Initialize %s", reason.what());
    StopReceiving();
    Disconnect();
    return 0;
}

int tcVXCamera_Ethernet::Open()
{
    mLog.logDebug(1, "tcVXCamera_Ethernet::Initialize Entered");
    mbStopMonitor = false;
    const bool isAcceptable = mpHost->IsAcceptable();
    if (!isAcceptable) {
        mLog.logError("tcVXCamera_Ethernet::Initialize '%s' is no host name and no IPv4 address",
                      mpHost->Text().c_str());
    }
    const bool isConnected =
        isAcceptable && mSocket.Connect(mpHost->Text().c_str(), mnPort, mbStopMonitor) != 0;
    mSocket.DisableNagle(1);
    if (!isConnected) {
        mLog.logError("tcVXCamera_Ethernet::Initialize could not connect");
        return 0;
    }
    HInetAddr peer;
    peer.GetPeerName(mSocket);
    mpHost->SetAddress(peer.GetIPAddr());
    SetConnected();
    if (!mpReceived) mpReceived.reset(new tsReceiveBuffer); // memory only as it is used
    BeginHandshake();
    mMonitorThread = std::thread(DispatchMonitorThread, this);
    EnableNoOps(0, 0);

    const int result = tcVXCamera::Initialize();
    if (result == 0) {
        AwaitLastWords();
        StopReceiving();
    }
    return result;
}

// Has the receive thread read what a camera said before it ended the connection.
void tcVXCamera_Ethernet::AwaitLastWords()
{
    const auto isEnding = [this] { // the receive thread closes the socket when it has read all
        const std::lock_guard<std::mutex> lock(mSocketMutex);
        pollfd state{mSocket.GetFD(), POLLRDHUP, 0};
        return mbConnected && poll(&state, 1, 0) > 0;
    };
    const auto limit = steady_clock::now() + gLastWords;
    while (isEnding() && steady_clock::now() < limit)
        PauseUntil(steady_clock::now() + milliseconds(1));
}

int tcVXCamera_Ethernet::SendMessage(tsMsgHeader* frame)
{
    std::lock_guard<std::mutex> lock(mSendMutex);
    return Transmit(frame, mSendLimit, true);
}

int tcVXCamera_Ethernet::SendMessageWithin(tsMsgHeader* frame, int limitMs)
{
    const auto deadline = steady_clock::now() + milliseconds(limitMs);
    std::unique_lock<std::mutex> lock(mSendMutex, std::try_to_lock);
    while (!lock.owns_lock()) {
        if (steady_clock::now() >= deadline) return eVXFailed;
        std::this_thread::sleep_for(milliseconds(1));
        lock.try_lock(); // NOLINT: looked at above
    }
    const auto left = deadline - steady_clock::now();
    return Transmit(frame, std::chrono::duration_cast<milliseconds>(left), false);
}

// Called with mSendMutex held.
int tcVXCamera_Ethernet::Transmit(tsMsgHeader* frame, milliseconds limit, bool endsLink)
{
    mpParser->PrepareOutput(frame);
    if (!mbConnected || mbStopMonitor) return eVXFailed;
    const auto start = steady_clock::now();
    const tsMoment begun = ThisMoment();
    const int length = frame->Length + gnHeaderBytes;
    const auto* const bytes = reinterpret_cast<const char*>(frame);
    int sent = endsLink || AwaitRoom(limit) ? SendBytes(bytes, length, limit) : 0;
    if (sent > 0 && !endsLink) sent += SendBytes(bytes + sent, length - sent, mSendLimit);
    CountSent(frame, sent, sent == length, begun);
    if (sent == length) return eVXOk;
    if (sent == 0 && !endsLink) return eVXFailed;
    if (steady_clock::now() - start >= limit) {
        mLog.logError(
            "tcVXCamera_Ethernet::SendMessage the camera takes nothing, the connection is "
            "given up");
    }
    // A message may have gone out in part, so the connection is of no use any more. The receive
    // thread sees its end and makes a new one.
    mSocket.Shutdown(SHUT_RDWR);
    return eVXFailed;
}

// Whether a message may be begun within the limit without going out in part only.
bool tcVXCamera_Ethernet::AwaitRoom(milliseconds limit)
{
    const auto deadline = steady_clock::now() + limit;
    const int step = std::clamp<int>(static_cast<int>(limit.count()), 0, gnSendStep);
    do {
        pollfd ready{mSocket.GetFD(), POLLOUT, 0};
        if (poll(&ready, 1, step) > 0) return true;
    } while (!mbStopMonitor && steady_clock::now() < deadline);
    return false;
}

// Returns the bytes sent: fewer than asked for when the connection broke or stalled.
int tcVXCamera_Ethernet::SendBytes(const char* bytes, int length, milliseconds limit)
{
    auto deadline = steady_clock::now() + limit;
    int sent = 0;
    while (sent < length) {
        const ssize_t n = send(mSocket.GetFD(), bytes + sent, static_cast<size_t>(length - sent),
                               MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n > 0) {
            sent += static_cast<int>(n);
            deadline = steady_clock::now() + limit;
            continue;
        }
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK) break;
        if (mbStopMonitor || steady_clock::now() >= deadline) break;
        pollfd ready{mSocket.GetFD(), POLLOUT, 0};
        poll(&ready, 1, std::min<int>(gnSendStep, static_cast<int>(limit.count())));
    }
    return sent;
}

void tcVXCamera_Ethernet::Interrupt()
{
    {
        std::lock_guard<std::mutex> lock(mPauseMutex);
        mbStopMonitor = true;
    }
    mPauseCondition.notify_all();
    std::lock_guard<std::mutex> lock(mSocketMutex);
    if (mbConnected) mSocket.Shutdown(SHUT_RDWR); // ends a receive or a send that is waiting
}

void tcVXCamera_Ethernet::StopReceiving()
{
    if (!mMonitorThread.joinable()) return;
    tcVXCamera_Ethernet::Interrupt();
    mMonitorThread.join();
}

void* tcVXCamera_Ethernet::DispatchMonitorThread(void* self)
{
    static_cast<tcVXCamera_Ethernet*>(self)->MonitorThread();
    return nullptr;
}

void tcVXCamera_Ethernet::MonitorThread()
{
    char* buffer = mpReceived->bytes;
    mLog.logDebug(10, "tcVXCamera_Ethernet::MonitorThread Entered");
    while (!mbStopMonitor) {
        const int n = Receive(buffer, gnReceiveBytes);
        if (n > 0) {
            for (int at = 0; at < n && !mbStopMonitor; at += gnPieceBytes) {
                TakePiece(buffer + at, std::min(gnPieceBytes, n - at));
            }
        } else if (n == -2) {
            if (HasVanished()) mSocket.Shutdown(SHUT_RDWR);
        } else if (n == -1) {
            // An error that lasts must not take the whole core.
            PauseUntil(steady_clock::now() + gShortestDelay);
        } else if (n == 0 && !mbStopMonitor) {
            mLog.logError(
                "tcVXCamera_Ethernet::MonitorThread socket has been closed on remote end");
            Disconnect();
            LinkLost();
            if (IsShakingHands()) break; // which fails at once
            Reconnect();
        }
    }
    Disconnect();
    mLog.logDebug(1, "tcVXCamera_Ethernet::MonitorThread Exit");
}

// As HSocket::Receive with the time-out that the socket carries: one call of the kernel waits and
// reads. How much is left is asked only where all that was left has been read.
int tcVXCamera_Ethernet::Receive(char* buffer, int size)
{
    const int64_t begun = MonotonicTime();
    const int n = mSocket.Receive(buffer, size);
    if (NoteRead(begun, n, n < size)) {
        const int64_t now = MonotonicTime();
        int left = 0;
        if (ioctl(mSocket.GetFD(), FIONREAD, &left) == 0) NoteWaiting(now, left);
    }
    return n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) ? -2 : n;
}

// Whether nothing is heard of the camera although something is to be confirmed. One that reads
// nothing for a while confirms the kernel's questions whether it may be sent more, and is there.
bool tcVXCamera_Ethernet::HasVanished()
{
    tcp_info info{};
    socklen_t size = sizeof info;
    if (getsockopt(mSocket.GetFD(), IPPROTO_TCP, TCP_INFO, &info, &size) != 0) return false;
    const bool isUnconfirmed = info.tcpi_unacked > 0 || info.tcpi_probes > 0;
    const auto now = steady_clock::now();
    if (!isUnconfirmed || info.tcpi_last_ack_recv < gnSilentMs) mUnansweredSince = now;
    return now - mUnansweredSince >= gUnanswered;
}

void tcVXCamera_Ethernet::TakePiece(char* bytes, int length)
{
    mLog.logDebug(1, "tcVXCamera_Ethernet::MonitorThread received %d bytes", length);
    if (mbByteDump) DumpBytes(bytes, length);
    CountReceived(bytes, length);
    mpParser->AddData(bytes, length);
    CountParsed();
    mLog.logDebug(10, "tcVXCamera_Ethernet::MonitorThread finished parsing %d bytes", length);
}

void tcVXCamera_Ethernet::SetConnected()
{
    const timeval timeout{gnReceiveTimeout / 1000, gnReceiveTimeout % 1000 * 1000};
    SetOption(mSocket.GetFD(), SOL_SOCKET, SO_RCVTIMEO, timeout);
    mSocket.SetAsKeepAlive();
    SetOption(mSocket.GetFD(), IPPROTO_TCP, TCP_KEEPIDLE, gnSilentSeconds);
    SetOption(mSocket.GetFD(), IPPROTO_TCP, TCP_KEEPINTVL, gnQuestionSeconds);
    SetOption(mSocket.GetFD(), IPPROTO_TCP, TCP_KEEPCNT, gnQuestions);
    mConnectedSince = mUnansweredSince = steady_clock::now();
    const std::scoped_lock lock(mSendMutex, mSocketMutex);
    mbConnected = true;
    SetLinkState(true);
    if (mbStopMonitor) mSocket.Shutdown(SHUT_RDWR);
}

// Called on the receive thread, to which the parser belongs, or while there is none.
void tcVXCamera_Ethernet::Disconnect()
{
    const std::scoped_lock lock(mSendMutex, mSocketMutex);
    mbConnected = false;
    SetLinkState(false);
    mSocket.Close();
    mpParser->MarkBreak();
}

// Tries until it succeeds or the thread is to stop. The time that an attempt takes is part of the
// pause behind it. A connection that lasted less than a second does not count as success for the
// pace.
void tcVXCamera_Ethernet::Reconnect()
{
    if (steady_clock::now() - mConnectedSince > gLongestDelay) mReconnectDelay = milliseconds(0);
    auto due = steady_clock::now() + mReconnectDelay;
    while (!PauseUntil(due)) {
        mReconnectDelay = std::clamp(2 * mReconnectDelay, gShortestDelay, gLongestDelay);
        due = steady_clock::now() + mReconnectDelay;
        mLog.logDebug(1, "tcVXCamera_Ethernet::MonitorThread reconnecting to %s, %d....",
                      mpHost->Text().c_str(), mnPort);
        if (!mSocket.Connect(mpHost->Address().c_str(), mnPort, mbStopMonitor, gnReconnectLimit)) {
            mpHost->LookUp();
            continue;
        }
        mSocket.DisableNagle(1);
        SetConnected();
        LinkRestored();
        return;
    }
}

// Waits, and tells whether the thread is to stop.
bool tcVXCamera_Ethernet::PauseUntil(steady_clock::time_point time)
{
    std::unique_lock<std::mutex> lock(mPauseMutex);
    return mPauseCondition.wait_until(lock, time, [this] { return mbStopMonitor.load(); });
}

// Kept: the last byte always starts a line of its own, and the line under construction at the end
// is not logged, so the last byte of a chunk is never shown.
void tcVXCamera_Ethernet::DumpBytes(const char* bytes, int length)
{
    constexpr int bytesPerLine = 16;
    char line[128];
    int end = 0; // of the text in it
    for (int i = 0; i < length; ++i) {
        if (i % bytesPerLine == 0 || i == length - 1) {
            if (i != 0) mLog.logDebug(15, "%s", line);
            end = snprintf(line, sizeof line, "0x%08X -", static_cast<unsigned>(i));
        }
        end += snprintf(line + end, sizeof line - static_cast<size_t>(end), "[%2X]",
                        static_cast<unsigned char>(bytes[i]));
    }
}
