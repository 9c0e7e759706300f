// Sixteen cameras at once, with faults of all kinds, each used through the kit: every frame that
// was asked for ends in one way, and one that is told complete is what the camera sent.
// VX_SOAK_SECONDS says for how long, VX_SOAK_SEED what goes wrong and what the application asks.
#include "counts.h"
#include "kit_support.h"

#include <zlib.h>

#include <array>
#include <atomic>
#include <mutex>
#include <random>
#include <set>

using namespace vxcam;

namespace {

constexpr int kCameras = 16;
constexpr int kRows = 48, kColumns = 80;

double setting(const char* name, double fallback)
{
    const char* text = getenv(name);
    return text != nullptr ? atof(text) : fallback;
}

const std::array<const char*, 38> kFaults = {
    "missing-packet:packet=5,chance=0.2,times=0",
    "duplicate-packet:packet=9,chance=0.2,times=0,count=2",
    "reorder:packet=13,chance=0.2,times=0,count=3",
    "truncate:packet=17,chance=0.1,times=0",
    "over-long:packet=21,chance=0.1,times=0",
    "flip-payload:packet=25,chance=0.2,times=0,count=3",
    "wrong-version:packet=29,chance=0.1,times=0",
    "garbage:packet=33,chance=0.2,times=0,bytes=333",
    "changed-total:packet=37,chance=0.1,times=0",
    "outside:packet=41,chance=0.1,times=0",
    "close:chance=0.0005,times=0",
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
    "late-answer:chance=0.01,times=0,seconds=0.5",
    "wrong-answer:chance=0.01,times=0",
    "short-answer:chance=0.01,times=0,bytes=2",
    "no-answer:chance=0.002,times=0",
    "missing-packet:chance=0.002,times=0",
    "no-last-frame:chance=0.002",
    "endless:chance=0.01,times=0",
    "reboot:chance=0.0002,times=0,seconds=0.3",
    "reboot-resized:chance=0.0002,times=0,seconds=0.2,rows=64,columns=56",
    "reboot-resized:chance=0.0001,times=0,seconds=0.2,rows=40,columns=96",
    "error-storm:chance=0.0005,times=0,count=30",
    "heartbeat-stop:id=0x69,chance=0.05,times=0,seconds=0.5",
    "cooler-failure:chance=0.001",
    "refuse:connection=2",
    "refuse:connection=4,silent=1",
};

struct Totals {
    uint64_t openings = 0, readouts = 0, questions = 0, unanswered = 0, faults = 0;
    uint64_t asked = 0, complete = 0, incomplete = 0, never = 0; // frames
    uint64_t resized = 0;             // complete ones of another sensor than the first one
    std::array<uint64_t, 8> ends{};   // of readouts, by ReadoutEnd
    std::array<uint64_t, 9> errors{}; // by ErrorKind

    void add(const Totals& more)
    {
        const auto* from = reinterpret_cast<const uint64_t*>(&more);
        auto* to = reinterpret_cast<uint64_t*>(this);
        for (size_t i = 0; i < sizeof more / sizeof *from; ++i) {
            to[i] += from[i];
        }
    }
};

// The frames that the camera meant to send, and those that went out with all of their pixels, by
// check value. A packet whose header was changed may still bring its pixels to their place.
class SentFrames
{
public:
    void add(const tsSimFrame& frame)
    {
        const std::lock_guard<std::mutex> guard(lock_);
        if (frame.complete) checks_.insert(frame.crc);
        if (frame.sent.lost == 0) checks_.insert(frame.sent.crc);
    }
    void forget()
    {
        const std::lock_guard<std::mutex> guard(lock_);
        checks_.clear();
    }
    bool has(uint32_t check) const
    {
        const std::lock_guard<std::mutex> guard(lock_);
        return checks_.count(check) != 0;
    }

private:
    mutable std::mutex lock_;
    std::set<uint32_t> checks_;
};

// An application with one camera.
class Soaker
{
public:
    Soaker(uint64_t seed, Clock::time_point end) : random_(seed), end_(end)
    {
        tsSimOptions options;
        options.rows = kRows;
        options.columns = kColumns;
        options.seed = options.faultSeed = seed;
        options.heartbeatSeconds = 0.1;
        options.faults = ParseSimFaults(someFaults());
        options.events = [this](const tsSimEvent& event) {
            if (event.event == teSimEvent::eFrame) sent_.add(event.frame);
        };
        sim_ = std::make_unique<tcSimServer>(options);
        place_ = "127.0.0.1:" + std::to_string(sim_->Start());
        thread_ = std::thread([this] { run(); });
    }

    Totals finish()
    {
        thread_.join();
        totals_.faults = sim_->Statistics().faults;
        sim_->Stop();
        return totals_;
    }

private:
    bool chance(double chance)
    {
        return std::uniform_real_distribution<double>(0, 1)(random_) < chance;
    }
    int draw(int most) { return std::uniform_int_distribution<int>(1, most)(random_); }

    std::vector<std::string> someFaults()
    {
        std::vector<std::string> faults;
        for (const char* fault : kFaults) {
            if (chance(0.4)) faults.emplace_back(fault);
        }
        return faults;
    }

    void run()
    {
        while (Clock::now() < end_) {
            try {
                step();
            } catch (const Error& error) {
                ++totals_.errors[static_cast<size_t>(error.kind())];
                EXPECT_NE(error.kind(), ErrorKind::Usage) << error.what();
                EXPECT_NE(error.kind(), ErrorKind::File) << error.what();
            }
        }
        camera_.reset();
    }

    void step()
    {
        if (!camera_) {
            camera_.emplace(Camera::open(place_));
            ++totals_.openings;
        }
        if (!camera_->waitForLink(3s) || chance(0.03)) {
            const auto time = timeOf([this] { camera_.reset(); });
            EXPECT_LT(time, Within(5s));
        } else if (chance(0.7)) {
            readOut();
        } else {
            ask();
        }
    }

    void readOut()
    {
        Plan plan;
        plan.frames = draw(3);
        plan.exposure = std::chrono::milliseconds(draw(20));
        plan.bits = chance(0.3) ? 8 : 16;
        plan.timeout = 300ms;
        plan.settings = false;
        plan.whenFull = chance(0.5) ? WhenFull::Wait : WhenFull::DropNewest;
        sent_.forget();
        Stream stream = camera_->stream(plan);
        ++totals_.readouts;
        totals_.asked += static_cast<uint64_t>(plan.frames);
        const bool isAborted = chance(0.1);
        uint64_t taken = 0, complete = 0;
        std::optional<Error> failure;
        try {
            while (std::optional<Frame> frame = stream.next(kPatience)) {
                ++taken;
                if (isRight(*frame)) ++complete;
                if (isAborted) camera_->abort();
            }
        } catch (const Error& error) {
            failure = error;
        }
        judge(plan, stream, failure, taken, complete);
        totals_.complete += complete;
        totals_.incomplete += taken - complete;
        totals_.never += static_cast<uint64_t>(plan.frames) - taken;
    }

    // Whether it is told complete, which only what the camera sent may be.
    bool isRight(const Frame& frame)
    {
        if (!frame.complete()) {
            EXPECT_TRUE(frame.missing() > 0 || frame.facts().packetsMisplaced > 0 ||
                        frame.facts().packetsDamaged > 0);
            return false;
        }
        const auto* bytes = static_cast<const Bytef*>(frame.data());
        const auto check = static_cast<uint32_t>(crc32(0, bytes, static_cast<uInt>(frame.bytes())));
        if (frame.facts().sensor != Size{kColumns, kRows}) ++totals_.resized;
        EXPECT_EQ(frame.facts().area.size(), frame.facts().sensor);
        EXPECT_EQ(frame.bytes(),
                  size_t(frame.rows()) * size_t(frame.columns()) * size_t(frame.bits() / 8));
        EXPECT_TRUE(waitUntil([&] { return sent_.has(check); }))
            << "frame " << frame.facts().number << " of readout " << frame.facts().readout;
        return true;
    }

    void judge(const Plan& plan, const Stream& stream, const std::optional<Error>& failure,
               uint64_t taken, uint64_t complete)
    {
        const ReadoutEnd end = stream.end();
        ++totals_.ends[static_cast<size_t>(end)];
        const auto asked = static_cast<uint64_t>(plan.frames);
        const StreamBooks books = stream.books();
        EXPECT_NE(end, ReadoutEnd::Running);
        EXPECT_EQ(books.taken, taken);
        EXPECT_LE(taken, asked);
        EXPECT_EQ(end == ReadoutEnd::Complete, complete == asked) << nameOf(end);
        // A failure is told, but for frames that came marked or were counted as dropped.
        const bool isTold = failure || (end == ReadoutEnd::Complete) ||
                            (end == ReadoutEnd::Incomplete && books.complete < asked);
        EXPECT_TRUE(isTold) << nameOf(end) << ": " << stream.endText();
        if (failure) ++totals_.errors[static_cast<size_t>(failure->kind())];
    }

    void ask()
    {
        ++totals_.questions;
        std::string why;
        if (!camera_->tryGet(chance(0.5) ? "exposure" : "target-temp", &why)) ++totals_.unanswered;
    }

    std::mt19937_64 random_;
    const Clock::time_point end_;
    SentFrames sent_;
    std::unique_ptr<tcSimServer> sim_;
    std::string place_;
    std::optional<Camera> camera_;
    Totals totals_;
    std::thread thread_;
};

Totals soak(uint64_t seed, double seconds)
{
    const auto end = Clock::now() + std::chrono::milliseconds(static_cast<int>(seconds * 1000));
    std::vector<std::unique_ptr<Soaker>> soakers;
    for (uint64_t i = 0; i < kCameras; ++i) {
        soakers.push_back(std::make_unique<Soaker>(seed * kCameras + i, end));
    }
    Totals all;
    for (const auto& soaker : soakers) {
        all.add(soaker->finish());
    }
    return all;
}

void print(const Totals& totals)
{
    auto n = [](uint64_t value) { return static_cast<unsigned long long>(value); };
    std::printf("openings %llu, readouts %llu, questions %llu (%llu unanswered), faults %llu\n",
                n(totals.openings), n(totals.readouts), n(totals.questions), n(totals.unanswered),
                n(totals.faults));
    std::printf("frames: asked %llu, complete %llu (%llu of another sensor), incomplete %llu, "
                "never came %llu\n",
                n(totals.asked), n(totals.complete), n(totals.resized), n(totals.incomplete),
                n(totals.never));
    for (size_t i = 0; i < totals.ends.size(); ++i) {
        std::printf("%s %llu, ", nameOf(static_cast<ReadoutEnd>(i)), n(totals.ends[i]));
    }
    std::printf("\nerrors:");
    for (size_t i = 0; i < totals.errors.size(); ++i) {
        std::printf(" %s %llu", rowOf(static_cast<ErrorKind>(i)).name, n(totals.errors[i]));
    }
    std::printf("\n");
}

} // namespace

TEST(KitSoak, EveryFrameEndsInOneWayAndIsWhatWasSentOrMarked)
{
    setenv("TCLOG_SUPPRESS_ERR_CONSOLE", "1", 1);
    setenv("CONFIGFILE_PATH", "/dev/null", 1);
    const double seconds = setting("VX_SOAK_SECONDS", 24);
    const auto seed = static_cast<uint64_t>(setting("VX_SOAK_SEED", 1));
    soak(seed + 1, seconds / 6); // what is made once is made
    const int descriptors = CountDescriptors(), threads = CountThreads();
    const Totals totals = soak(seed, seconds * 5 / 6);
    print(totals);
    EXPECT_EQ(totals.asked, totals.complete + totals.incomplete + totals.never);
    EXPECT_GT(totals.complete, 0u);
    EXPECT_GT(totals.incomplete, 0u);
    EXPECT_GT(totals.resized, 0u);
    EXPECT_GT(totals.ends[static_cast<size_t>(ReadoutEnd::LinkLost)], 0u);
    EXPECT_GT(totals.ends[static_cast<size_t>(ReadoutEnd::TimedOut)], 0u);
    EXPECT_EQ(CountDescriptors(), descriptors);
    EXPECT_EQ(CountThreads(), threads);
}
