// L1 to L3, I1 and I2: commands, an idle camera, opening and closing.
#include "receiver.h"
#include "rows.h"

#include "vxcamiface.h"
#include "vxmessages.h"

#include <atomic>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr int gnOwnCore = 0;
constexpr int gnSenderCore = 1;

// A sender on one core; everything of this process on the other, so that both sides of a comparison
// are placed alike.
class tcPlacedSender
{
public:
    explicit tcPlacedSender(tsStream stream) : mSender(Placed(stream)) { PinToCore(gnOwnCore); }
    ~tcPlacedSender() { PinToCore(-1); }
    tcPlacedSender(const tcPlacedSender&) = delete;
    tcPlacedSender& operator=(const tcPlacedSender&) = delete;
    operator const tcSender&() const { return mSender; }
    uint16_t Port() const { return mSender.Port(); }

private:
    static tsStream Placed(tsStream stream)
    {
        stream.cpu = gnSenderCore;
        return stream;
    }
    tcSender mSender;
};

// Frames of the trigger's question and answer over a plain socket; the answer is taken by a thread
// of its own, which wakes the asking one.
class tcBarePingPong
{
public:
    explicit tcBarePingPong(const tcSender& sender) : mnFD(ConnectTo(sender))
    {
        mThread = std::thread([this] { TakeAnswers(); });
    }
    ~tcBarePingPong()
    {
        shutdown(mnFD, SHUT_RDWR);
        mThread.join();
        close(mnFD);
    }
    tcBarePingPong(const tcBarePingPong&) = delete;
    tcBarePingPong& operator=(const tcBarePingPong&) = delete;

    void Ask()
    {
        SendCommand(cmdGetTrigger.id);
        std::unique_lock<std::mutex> lock(mMutex);
        ++mnAsked;
        mCondition.wait(lock, [this] { return mnAnswered >= mnAsked; });
    }

    void SendCommand(uint32_t id)
    {
        tsFramed<tsWordMsg> command{};
        command.header.Magic = gnMessageMagic;
        command.header.IDD = gnInterfaceVersion;
        command.header.MsgId = id;
        command.header.Length = id == cmdGetTrigger.id ? 0 : sizeof command.payload;
        const size_t length = gnHeaderBytes + command.header.Length;
        if (send(mnFD, &command, length, MSG_NOSIGNAL) != static_cast<ssize_t>(length)) abort();
    }

private:
    void TakeAnswers()
    {
        constexpr size_t answerBytes = gnHeaderBytes + sizeof(tsWordMsg);
        uint8_t bytes[4096];
        size_t have = 0;
        for (;;) {
            const ssize_t n = recv(mnFD, bytes, sizeof bytes, 0);
            if (n <= 0) return;
            have += static_cast<size_t>(n);
            if (have < answerBytes) continue;
            std::lock_guard<std::mutex> lock(mMutex);
            mnAnswered += have / answerBytes;
            have %= answerBytes;
            mCondition.notify_one();
        }
    }

    int mnFD;
    std::thread mThread;
    std::mutex mMutex;
    std::condition_variable mCondition;
    uint64_t mnAsked = 0, mnAnswered = 0;
};

// Microseconds of each of `count` calls.
template <class Call>
std::vector<double> TimeCalls(int count, Call call)
{
    std::vector<double> times;
    times.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
        const double start = WallSeconds();
        call();
        times.push_back((WallSeconds() - start) * 1e6);
    }
    return times;
}

void CompareRoundTrips(tcTable& table, const tsBenchOptions& options)
{
    tsStream stream;
    stream.rows = 16;
    const tcPlacedSender sender(stream);
    tcLibraryReceiver library(sender);
    tcBarePingPong bare(sender);
    const int calls = options.quick ? 200 : 3000;
    int trigger = 0;
    const auto ours = [&] { VXGetTrigger(library.Handle(), &trigger); };
    const auto reference = [&] { bare.Ask(); };
    for (double percent : {50.0, 99.0}) {
        table.Compare(
            "L1", "getter round trip p" + std::to_string(static_cast<int>(percent)), "us", false,
            options.repeats, [&] { return Percentile(TimeCalls(calls, ours), percent); },
            [&] { return Percentile(TimeCalls(calls, reference), percent); });
    }
}

void CompareSetters(tcTable& table, const tsBenchOptions& options)
{
    tsStream stream;
    stream.rows = 16;
    const tcPlacedSender sender(stream);
    tcLibraryReceiver library(sender);
    tcBarePingPong bare(sender);
    const int calls = options.quick ? 200 : 3000;
    table.Compare(
        "L2", "setter call p50, bare send", "us", false, options.repeats,
        [&] {
            return Percentile(TimeCalls(calls,
                                        [&] {
                                            if (VXSetGain(library.Handle(), 1) != 0) abort();
                                        }),
                              50);
        },
        [&] { return Percentile(TimeCalls(calls, [&] { bare.SendCommand(cmdSetGain.id); }), 50); });
}

// Round trips while 200 MB/s of pixels arrive on the same link, against the same without pixels.
void CompareLoadedRoundTrips(tcTable& table, const tsBenchOptions& options)
{
    tsStream stream;
    stream.megabytesPerSecond = 200;
    const tcPlacedSender sender(stream);
    tcLibraryReceiver library(sender);
    tcLibraryReceiver idle(sender);
    int trigger = 0;
    const int calls = options.quick ? 200 : 2000;
    const int frames = options.quick ? 3 : 15; // some 40 ms each
    for (double percent : {50.0, 99.0}) {
        table.Compare(
            "L3",
            "getter p" + std::to_string(static_cast<int>(percent)) +
                " under 200 MB/s, the same idle",
            "us", false, options.quick ? 1 : 3,
            [&] {
                library.Start(frames);
                const auto times =
                    TimeCalls(calls, [&] { VXGetTrigger(library.Handle(), &trigger); });
                library.Wait();
                return Percentile(times, percent);
            },
            [&] {
                return Percentile(TimeCalls(calls, [&] { VXGetTrigger(idle.Handle(), &trigger); }),
                                  percent);
            });
    }
}

void MeasureIdle(tcTable& table, const tsBenchOptions& options)
{
    tsStream stream;
    stream.rows = 16;
    const tcPlacedSender sender(stream);
    tcLibraryReceiver library(sender);
    library.Receive(1);
    std::vector<double> percent;
    for (int i = 0; i < (options.quick ? 1 : 3); ++i) {
        const tsCost cost = Measure([&] { usleep(options.quick ? 500000 : 2000000); });
        percent.push_back(100 * cost.cpuSeconds / cost.seconds);
    }
    table.Single("I1", "CPU of an idle open camera", "% core", percent);
}

void CompareOpenClose(tcTable& table, const tsBenchOptions& options)
{
    tsStream stream;
    stream.rows = 16;
    const tcPlacedSender sender(stream);
    const int cycles = options.quick ? 10 : 143; // 1000 over all samples
    table.Compare(
        "I2", "open and close, bare connect and close", "ms", false, options.repeats,
        [&] {
            const auto times = TimeCalls(
                cycles, [&] { VXCloseCamera(VXOpenENetCamera("127.0.0.1", sender.Port())); });
            return Percentile(times, 50) / 1000;
        },
        [&] {
            const auto times = TimeCalls(cycles, [&] { close(ConnectTo(sender)); });
            return Percentile(times, 50) / 1000;
        });
}

} // namespace

void MeasureLatencies(tcTable& table, const tsRowChoice& choice, const tsBenchOptions& options)
{
    if (choice.Wants("L1")) CompareRoundTrips(table, options);
    if (choice.Wants("L2")) CompareSetters(table, options);
    if (choice.Wants("L3")) CompareLoadedRoundTrips(table, options);
    if (choice.Wants("I1")) MeasureIdle(table, options);
    if (choice.Wants("I2")) CompareOpenClose(table, options);
}
