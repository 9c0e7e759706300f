// Applications whose cameras fail in all ways that the wire shows are recorded, and played back as
// fast as can be: each is told the same once more, and its books are the same.
// VX_SOAK_SECONDS lets it go on with other seeds, VX_SOAK_SEED says with which one it begins.
#include "record_support.h"
#include "tcSimServer.h"
#include "wire_client.h"

#include <vxcamkit/wire_player.h>

#include <sstream>

using namespace vxcam;

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kClients = 4, kSteps = 20;

// Those that close the connection strike where the client waits, and frames that it aborts are
// later ones: else it could be told of that before or after what it does next.
const std::vector<const char*> kFaults = {
    "missing-packet:packet=5,chance=0.2,times=0",
    "duplicate-packet:packet=9,chance=0.2,times=0,count=2",
    "reorder:packet=13,chance=0.2,times=0,count=3",
    "truncate:packet=17,chance=0.1,times=0",
    "over-long:packet=21,chance=0.05,times=0",
    "flip-header:packet=4,chance=0.1,times=0",
    "flip-payload:packet=25,chance=0.2,times=0,count=3",
    "zero-length:packet=6,chance=0.05,times=0",
    "unknown-id:packet=7,chance=0.05,times=0",
    "wrong-version:packet=29,chance=0.1,times=0",
    "garbage:packet=33,chance=0.2,times=0,bytes=333",
    "changed-total:packet=37,chance=0.1,times=0",
    "outside:packet=11,chance=0.1,times=0",
    "no-last-frame:chance=0.002",
    "endless:chance=0.01,times=0",
    "close:frame=1,packet=15,chance=0.1,times=0",
    "close-header:frame=1,packet=16,chance=0.06,times=0",
    "close-payload:frame=1,packet=17,chance=0.06,times=0",
    "close:id=0x60,chance=0.1,times=0",
    "reset:frame=1,packet=19,chance=0.1,times=0",
    "reset:id=0x60,chance=0.1,times=0,bytes=5",
    "reboot:frame=1,packet=20,chance=0.06,times=0,seconds=0.2",
    "reboot-resized:frame=1,packet=22,chance=0.06,times=0,seconds=0.2,rows=40,columns=72",
    "half-open:packet=23,chance=0.01,times=0",
    "stall:packet=3,chance=0.05,times=0,seconds=0.1",
    "stall:packet=8,chance=0.02,times=0,seconds=0.4",
    "drip:packet=10,chance=0.03,times=0,seconds=0.1,rate=20000",
    "stop-reading:packet=12,chance=0.02,times=0,seconds=0.1",
    "error-storm:packet=14,chance=0.05,times=0,count=30",
    "heartbeat-stop:id=0x69,chance=0.05,times=0,seconds=0.3",
    "cooler-failure:packet=2,chance=0.05",
    "duplicate-answer:id=0x60,chance=0.1,times=0",
    "late-answer:id=0x60,chance=0.05,times=0,seconds=0.4",
    "wrong-answer:id=0x60,chance=0.05,times=0",
    "short-answer:id=0x60,chance=0.05,times=0,bytes=2",
    "no-answer:id=0x60,chance=0.1,times=0",
};

double setting(const char* name, double fallback)
{
    const char* text = getenv(name);
    return text != nullptr ? atof(text) : fallback;
}

tsSimOptions cameraOf(uint64_t seed)
{
    std::mt19937_64 random(seed);
    std::vector<std::string> faults;
    for (const char* fault : kFaults) {
        if (random() % 2 == 0) faults.emplace_back(fault);
    }
    tsSimOptions options;
    options.rows = 48;
    options.columns = 80;
    options.seed = options.faultSeed = seed;
    options.heartbeatSeconds = 0.1;
    options.faults = ParseSimFaults(faults);
    return options;
}

// The first line that is another one, and what stands before it; empty when there is none.
std::string difference(const std::string& first, const std::string& second)
{
    std::istringstream ones(first), others(second);
    std::string before, one, other;
    while (one == other && (ones || others)) {
        before = before.substr(before.size() - std::min<size_t>(before.size(), 2000)) + one + "\n";
        one.clear();
        other.clear();
        std::getline(ones, one);
        std::getline(others, other);
    }
    return one == other ? "" : before + "recorded: " + one + "\n  played: " + other;
}

std::string textOf(const std::vector<Notes>& notes)
{
    std::string text;
    for (const Notes& camera : notes) {
        text += "camera " + std::to_string(camera.camera) + "\n" + camera.text();
    }
    return text;
}

using AllNotes = std::vector<std::vector<Notes>>; // by client

// Several at once: `run` is called with the number of each.
AllNotes atOnce(const std::function<std::vector<Notes>(size_t)>& run)
{
    AllNotes all(kClients);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < all.size(); ++i) {
        threads.emplace_back([&all, &run, i] { all[i] = run(i); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    return all;
}

struct Totals {
    uint64_t cameras = 0, frames = 0, incomplete = 0, failed = 0, lost = 0, errors = 0,
             unanswered = 0, faults = 0, bytes = 0;
};

AllNotes recorded(uint64_t seed, const std::string& path, Totals* totals)
{
    WireCapture capture(path);
    std::vector<std::unique_ptr<tcSimServer>> cameras;
    for (uint64_t i = 0; i < kClients; ++i) {
        cameras.push_back(std::make_unique<tcSimServer>(cameraOf(seed * kClients + i)));
        cameras.back()->Start();
    }
    const AllNotes all = atOnce([&](size_t i) {
        const auto place = [&](uint8_t) { return cameras[i]->Port(); };
        return WireClient(seed * kClients + i, kSteps, place, capture.body().get(), nullptr).run();
    });
    for (const auto& camera : cameras) {
        totals->faults += camera->Statistics().faults;
    }
    capture.finish();
    totals->bytes += capture.books().received;
    return all;
}

// A recording of one camera that is played to one client.
class Playing
{
public:
    Playing(const std::string& path, uint8_t camera)
        : player_(path, optionsFor(camera)),
          thread_([this] { books_ = player_.play([this] { return isStopped_.load(); }); })
    {}
    ~Playing()
    {
        isStopped_ = true;
        thread_.join();
    }
    uint16_t port() const { return player_.port(); }

private:
    static PlayOptions optionsFor(uint8_t camera)
    {
        PlayOptions options;
        options.speed = 0;
        options.camera = camera;
        options.patience = std::chrono::minutes(5); // threads that send may be late
        return options;
    }

    WirePlayer player_;
    std::atomic<bool> isStopped_{false};
    PlayBooks books_;
    std::thread thread_;
};

AllNotes played(uint64_t seed, const std::string& path, const AllNotes& before)
{
    return atOnce([&](size_t i) {
        std::unique_ptr<Playing> playing;
        const auto place = [&](uint8_t camera) {
            playing = std::make_unique<Playing>(path, camera);
            return playing->port();
        };
        return WireClient(seed * kClients + i, kSteps, place, nullptr, &before[i]).run();
    });
}

void add(const AllNotes& all, Totals* totals)
{
    for (const auto& notes : all) {
        for (const Notes& camera : notes) {
            const tsStatistics& books = camera.books;
            ++totals->cameras;
            totals->frames += books.FramesComplete;
            totals->incomplete += books.FramesIncomplete;
            totals->failed += books.FramesFailed + books.FramesAborted;
            totals->lost += books.ConnectionsLost;
            totals->errors += camera.error.size();
            totals->unanswered += books.RequestsTimedOut + books.RequestsFailed;
        }
    }
}

} // namespace

TEST(WireSoak, IsTheSameWhenItIsPlayedBack)
{
    setenv("CONFIGFILE_PATH", "/dev/null", 1);
    VXSetLogCallback(WireClient::log, nullptr);
    const auto end = Clock::now() + std::chrono::duration<double>(setting("VX_SOAK_SECONDS", 0));
    auto seed = static_cast<uint64_t>(setting("VX_SOAK_SEED", 1));
    Totals totals;
    int rounds = 0;
    do {
        const Folder folder;
        const std::string path = folder.path("run.vxw");
        const AllNotes first = recorded(seed, path, &totals);
        const AllNotes second = played(seed, path, first);
        add(first, &totals);
        for (size_t i = 0; i < first.size(); ++i) {
            ASSERT_EQ(difference(textOf(first[i]), textOf(second[i])), "")
                << "seed " << seed << ", client " << i;
        }
        ++seed;
        ++rounds;
    } while (Clock::now() < end);
    const auto n = [](uint64_t value) { return static_cast<unsigned long long>(value); };
    std::printf(
        "rounds %d, cameras %llu, faults %llu, connections lost %llu, bytes %llu\n"
        "frames complete %llu, incomplete %llu, failed %llu; questions in vain %llu, errors "
        "logged %llu\n",
        rounds, n(totals.cameras), n(totals.faults), n(totals.lost), n(totals.bytes),
        n(totals.frames), n(totals.incomplete), n(totals.failed), n(totals.unanswered),
        n(totals.errors));
    EXPECT_GT(totals.frames, 0u);
    EXPECT_GT(totals.incomplete, 0u);
    EXPECT_GT(totals.lost, 0u);
    EXPECT_GT(totals.unanswered, 0u);
}
