// Sixteen cameras at once, with faults of all kinds, for as long as VX_SOAK_SECONDS says. The seed
// VX_SOAK_SEED decides what goes wrong and what the application asks.
#include "counts.h"
#include "fault_support.h"

#include <array>
#include <fstream>
#include <malloc.h>
#include <random>

namespace {

constexpr int gnCameras = 16;
constexpr uint16_t gnRows = 48, gnColumns = 80;
constexpr int gnImpatience = 300; // ms after which a waiting question is given up

double Setting(const char* name, double fallback)
{
    const char* text = getenv(name);
    return text != nullptr ? atof(text) : fallback;
}

// Frames delivered, by handle; handles are never used again.
std::array<std::atomic<uint64_t>, 1 << 20> gaDelivered;

struct tsResources {
    size_t descriptors, threads, bytes;

    static tsResources Now()
    {
        return {static_cast<size_t>(CountDescriptors()), static_cast<size_t>(CountThreads()),
                mallinfo2().uordblks};
    }
};

// Faults that leave nothing but damage to a frame, so that all depends on the seed only.
std::vector<std::string> PacketFaults()
{
    return {"missing-packet:packet=5,chance=0.2,times=0",
            "duplicate-packet:packet=9,chance=0.2,times=0,count=2",
            "reorder:packet=13,chance=0.2,times=0,count=3",
            "truncate:packet=17,chance=0.1,times=0",
            "over-long:packet=21,chance=0.1,times=0",
            "flip-payload:packet=25,chance=0.2,times=0,count=3",
            "wrong-version:packet=29,chance=0.1,times=0",
            "garbage:packet=33,chance=0.2,times=0,bytes=333",
            "changed-total:packet=37,chance=0.1,times=0",
            "outside:packet=41,chance=0.1,times=0"};
}

// And the others.
std::vector<std::string> LinkFaults()
{
    return {"close:chance=0.0005,times=0",
            "close-header:chance=0.0005,times=0",
            "close-payload:chance=0.0005,times=0",
            "reset:chance=0.0005,times=0",
            "stall:chance=0.001,times=0,seconds=0.1",
            "stall:chance=0.0003,times=0,seconds=0.6",
            "drip:chance=0.0003,times=0,seconds=0.3,rate=20000",
            "half-open:chance=0.0001,times=0",
            "stop-reading:chance=0.0003,times=0,seconds=0.2",
            "flip-header:chance=0.001,times=0",
            "zero-length:chance=0.0005,times=0",
            "unknown-id:chance=0.001,times=0",
            "duplicate-answer:chance=0.05,times=0",
            "late-answer:chance=0.02,times=0,seconds=0.5",
            "wrong-answer:chance=0.02,times=0",
            "short-answer:chance=0.02,times=0,bytes=2",
            "no-answer:chance=0.02,times=0",
            "missing-packet:chance=0.002,times=0",
            "no-last-frame:chance=0.002",
            "endless:chance=0.01,times=0",
            "reboot:chance=0.0002,times=0,seconds=0.3",
            "error-storm:chance=0.0005,times=0,count=30",
            "heartbeat-stop:id=0x69,chance=0.05,times=0,seconds=0.5",
            "cooler-failure:chance=0.001",
            "refuse:connection=2",
            "refuse:connection=4,silent=1"};
}

tsSimOptions OptionsOf(uint64_t seed, const std::vector<std::string>& faults)
{
    tsSimOptions options;
    options.rows = gnRows;
    options.columns = gnColumns;
    options.faults = ParseSimFaults(faults);
    options.faultSeed = seed;
    options.seed = seed;
    options.heartbeatSeconds = 0;
    return options;
}

struct tsTotals {
    uint64_t readouts = 0, questions = 0, unanswered = 0, openings = 0, faults = 0;
    tsStatistics books{};

    void Add(const tsStatistics& more)
    {
        const auto* from = reinterpret_cast<const uint64_t*>(&more);
        auto* to = reinterpret_cast<uint64_t*>(&books);
        for (size_t i = 0; i < sizeof books / sizeof *to; ++i) {
            to[i] += from[i];
        }
    }
};

// An application with one camera, in a thread of its own.
class tcSoaker
{
public:
    tcSoaker(uint64_t seed, std::chrono::steady_clock::time_point end)
        : mRandom(seed), mImage(gnRows, gnColumns), mEnd(end)
    {
        std::vector<std::string> faults;
        for (const auto& list : {PacketFaults(), LinkFaults()}) {
            for (const std::string& fault : list) {
                if (Chance(0.4)) faults.push_back(fault);
            }
        }
        tsSimOptions options = OptionsOf(seed, faults);
        options.heartbeatSeconds = 0.1;
        mpSim = std::make_unique<tcSimServer>(options);
        mnPort = mpSim->Start();
        mThread = std::thread([this] { Run(); });
    }

    // Gives up what has waited long enough; called every now and then.
    void LosePatience()
    {
        std::unique_lock<std::mutex> lock(mMutex, std::try_to_lock);
        const int64_t since = mnAskingSince;
        if (!lock || since == 0 || Now() - since < gnImpatience) return;
        VXWaitCompletion(mnHandle, 20);
    }

    tsTotals Finish()
    {
        mThread.join();
        mTotals.faults = mpSim->Statistics().faults;
        mpSim->Stop();
        return mTotals;
    }
    bool Ended() const { return mbEnded; }

private:
    static int64_t Now()
    {
        return std::chrono::duration_cast<milliseconds>(steady_clock::now().time_since_epoch())
            .count();
    }
    bool Chance(double chance)
    {
        return std::uniform_real_distribution<double>(0, 1)(mRandom) < chance;
    }
    int Draw(int most) { return std::uniform_int_distribution<int>(1, most)(mRandom); }

    void Run()
    {
        while (steady_clock::now() < mEnd) {
            if (mnHandle < 0 && !Open()) continue;
            if (Chance(0.5))
                ReadOut();
            else if (Chance(0.95))
                Ask();
            else
                Close();
        }
        if (mnHandle >= 0) Close();
        mbEnded = true;
    }

    bool Open()
    {
        const int handle = VXOpenENetCamera("127.0.0.1", mnPort);
        std::lock_guard<std::mutex> lock(mMutex);
        if (handle < 0) return false;
        mnHandle = handle;
        ++mTotals.openings;
        VXSetImageDataCallback(
            handle, [](int camera, tsImageData*) { ++gaDelivered[static_cast<size_t>(camera)]; });
        VXOverrideImageTimout(handle, 300);
        VXSetExposure(handle, Draw(20));
        mnRequested = 0;
        return true;
    }

    // Everything that was asked for has become something, and every delivery was counted.
    void Close()
    {
        VXAbortRead(mnHandle);
        std::atomic<uint64_t>& delivered = gaDelivered[static_cast<size_t>(mnHandle)];
        const uint64_t deliveredBefore = delivered;
        const tsStatistics books = BooksOf(mnHandle);
        EXPECT_EQ(0u, books.FramesPending);
        EXPECT_EQ(0u, books.RequestsPending);
        EXPECT_GE(books.FramesRequested, mnRequested);
        // Frames may go on coming after an abort; they are booked before they are delivered.
        const uint64_t booked = books.FramesComplete + books.FramesIncomplete + books.FramesUnasked;
        EXPECT_LE(deliveredBefore, booked);
        EXPECT_TRUE(WaitUntil([&] { return delivered >= booked; }));
        std::lock_guard<std::mutex> lock(mMutex);
        const auto start = steady_clock::now();
        EXPECT_EQ(0, VXCloseCamera(mnHandle));
        EXPECT_LT(ElapsedMs(start), Within(5000));
        mTotals.Add(books);
        mnHandle = -1;
    }

    void ReadOut()
    {
        const auto frames = static_cast<short>(Draw(3));
        mImage.Mark();
        if (VXReadCCDArea(mnHandle, mImage.Data(), frames, 0) != 0) return;
        ++mTotals.readouts;
        mnRequested += static_cast<uint64_t>(frames);
        if (Chance(0.1)) {
            std::this_thread::sleep_for(milliseconds(Draw(20)));
            VXAbortRead(mnHandle);
        } else if (VXWaitCompletion(mnHandle, 2000) != 0) {
            VXAbortRead(mnHandle);
        }
        EXPECT_TRUE(mImage.IsUntouchedOutside(0, 0, gnRows, gnColumns));
        std::this_thread::sleep_for(milliseconds(5));
    }

    void Ask()
    {
        ++mTotals.questions;
        mnAskingSince = Now();
        long exposure = 0;
        float target = 0;
        const int result = Chance(0.5) ? VXGetExposureTime(mnHandle, &exposure)
                                       : VXGetCCDTargetTemp(mnHandle, &target);
        mnAskingSince = 0;
        if (result != 0) ++mTotals.unanswered;
        std::this_thread::sleep_for(milliseconds(5));
    }

    std::mt19937_64 mRandom;
    tcImage<uint16_t> mImage;
    const steady_clock::time_point mEnd;
    std::unique_ptr<tcSimServer> mpSim;
    uint16_t mnPort = 0;
    std::mutex mMutex; // of the handle, for those who give up
    std::atomic<int> mnHandle{-1};
    std::atomic<int64_t> mnAskingSince{0};
    std::atomic<bool> mbEnded{false};
    uint64_t mnRequested = 0;
    tsTotals mTotals;
    std::thread mThread;
};

tsTotals Soak(uint64_t seed, double seconds)
{
    const auto end = steady_clock::now() + std::chrono::duration_cast<steady_clock::duration>(
                                               std::chrono::duration<double>(seconds));
    std::vector<std::unique_ptr<tcSoaker>> soakers;
    for (uint64_t i = 0; i < gnCameras; ++i) {
        soakers.push_back(std::make_unique<tcSoaker>(seed * gnCameras + i, end));
    }
    auto ended = [&] {
        return std::all_of(soakers.begin(), soakers.end(),
                           [](const auto& soaker) { return soaker->Ended(); });
    };
    while (!ended()) {
        std::this_thread::sleep_for(milliseconds(50));
        for (const auto& soaker : soakers) {
            soaker->LosePatience();
        }
    }
    tsTotals all;
    for (const auto& soaker : soakers) {
        const tsTotals one = soaker->Finish();
        all.readouts += one.readouts;
        all.questions += one.questions;
        all.unanswered += one.unanswered;
        all.openings += one.openings;
        all.faults += one.faults;
        all.Add(one.books);
    }
    return all;
}

void Print(const tsTotals& totals)
{
    const tsStatistics& s = totals.books;
    auto n = [](uint64_t value) { return static_cast<unsigned long long>(value); };
    std::printf("readouts %llu, questions %llu (%llu unanswered), openings %llu, faults %llu\n",
                n(totals.readouts), n(totals.questions), n(totals.unanswered), n(totals.openings),
                n(totals.faults));
    std::printf(
        "frames: requested %llu, complete %llu, incomplete %llu, failed %llu, aborted %llu, "
        "unasked %llu\n",
        n(s.FramesRequested), n(s.FramesComplete), n(s.FramesIncomplete), n(s.FramesFailed),
        n(s.FramesAborted), n(s.FramesUnasked));
    std::printf("packets: received %llu, missing %llu, duplicate %llu, stray %llu, short %llu\n",
                n(s.PacketsReceived), n(s.PacketsMissing), n(s.PacketsDuplicate), n(s.PacketsStray),
                n(s.PacketsShort));
    std::printf("requests: sent %llu, answered %llu, timed out %llu, failed %llu; connections lost "
                "%llu, made anew %llu\n",
                n(s.RequestsSent), n(s.RequestsAnswered), n(s.RequestsTimedOut),
                n(s.RequestsFailed), n(s.ConnectionsLost), n(s.Reconnects));
}

class Soak16 : public testing::Test
{
protected:
    Soak16()
    {
        setenv("TCLOG_SUPPRESS_ERR_CONSOLE", "1", 1);
        setenv("CONFIGFILE_PATH", "/dev/null", 1);
    }

    const double seconds = Setting("VX_SOAK_SECONDS", 60);
    const uint64_t seed = static_cast<uint64_t>(Setting("VX_SOAK_SEED", 1));
};

} // namespace

TEST_F(Soak16, LosesNothingThatIsNotAccountedFor)
{
    Soak(seed + 1, seconds / 6); // what is made once is made
    const tsResources before = tsResources::Now();
    const tsTotals totals = Soak(seed, seconds * 5 / 6);
    const tsResources after = tsResources::Now();
    Print(totals);
    std::printf("before: %zu descriptors, %zu threads, %zu bytes; after: %zu, %zu, %zu\n",
                before.descriptors, before.threads, before.bytes, after.descriptors, after.threads,
                after.bytes);
    EXPECT_GT(totals.books.FramesComplete, 0u);
    EXPECT_GT(totals.books.FramesIncomplete, 0u);
    EXPECT_GT(totals.books.ConnectionsLost, 0u);
    EXPECT_EQ(before.descriptors, after.descriptors);
    EXPECT_EQ(before.threads, after.threads);
    EXPECT_LT(after.bytes, before.bytes + 512 * 1024);
}

// What depends on nothing but the seed comes out the same.
TEST_F(Soak16, RepeatsItself)
{
    auto run = [](uint64_t faultSeed) {
        std::vector<std::unique_ptr<tcSimServer>> sims;
        std::vector<std::future<tsStatistics>> books;
        for (uint64_t i = 0; i < gnCameras; ++i) {
            sims.push_back(std::make_unique<tcSimServer>(OptionsOf(faultSeed + i, PacketFaults())));
            const int handle = VXOpenENetCamera("127.0.0.1", sims.back()->Start());
            EXPECT_GE(handle, 0);
            books.push_back(std::async(std::launch::async, [handle] {
                tcImage<uint16_t> image(gnRows, gnColumns);
                VXSetExposure(handle, 0);
                for (int readout = 0; readout < 10; ++readout) {
                    EXPECT_EQ(0, VXReadCCDArea(handle, image.Data(), 3, 0));
                    EXPECT_EQ(0, VXWaitCompletion(handle, gnPatienceMs));
                }
                const tsStatistics result = BooksOf(handle);
                EXPECT_EQ(0, VXCloseCamera(handle));
                return result;
            }));
        }
        std::string text;
        for (auto& one : books) {
            const tsStatistics result = one.get();
            text.append(reinterpret_cast<const char*>(&result), sizeof result);
        }
        return text;
    };
    const std::string first = run(1);
    EXPECT_TRUE(first == run(1));
    EXPECT_TRUE(first != run(1000));
}
