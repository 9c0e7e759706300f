// Callbacks hold no lock of any camera: what others may do with the camera while one runs, and
// cameras whose callbacks use each other.
#include "pixels.h"
#include "vxcamiface.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

double SecondsSince(steady_clock::time_point start)
{
    return std::chrono::duration<double>(steady_clock::now() - start).count();
}

// Where a callback is, and when it may leave.
class tcGate
{
public:
    void Enter()
    {
        mbInside = true;
        EXPECT_TRUE(Eventually([this] { return mbOpen.load(); }));
        mbInside = false;
    }
    void Open() { mbOpen = true; }
    void Close() { mbOpen = false; }
    bool IsInside() const { return mbInside; }
    bool AwaitEntry() const
    {
        return Eventually([this] { return IsInside(); });
    }

private:
    std::atomic<bool> mbInside{false};
    std::atomic<bool> mbOpen{false};
};

} // namespace

// A camera whose messages are dispatched on a thread of their own, and a gate for its callbacks.
class Callbacks : public testing::Test
{
protected:
    Callbacks()
    {
        sGate.Close();
        mCamera.SetImageDataCallback([](int, tsImageData*) { sGate.Enter(); });
        mCamera.SetHeartBeatCallback([](int, tsHeartBeatData*) { sGate.Enter(); });
        mCamera.SetErrorCallback([](int, unsigned char, unsigned char, char*) { sGate.Enter(); });
        mCamera.SetUserDefinedCallback([](int, void*, int) { sGate.Enter(); });
    }
    ~Callbacks() override { sGate.Open(); }

    void Receive(uint32_t id, const tBytes& payload)
    {
        mReceiver.Post([this, id, payload] { mCamera.Feed(id, payload); });
    }
    // A frame of one packet with one pixel of 16 bits.
    void ReceiveFrame(bool last)
    {
        mReceiver.Post([this, last] { Feed(mCamera, {e16Bit, 1, 1, 0, 0, 0, last}); });
    }

    static tcGate sGate;
    tcTestCamera mCamera;
    tcWorker mReceiver; // goes first
};

tcGate Callbacks::sGate;

TEST_F(Callbacks, LetOtherThreadsUseTheCamera)
{
    const auto use = [this] {
        EXPECT_EQ(mCamera.SetExposure(5), 0);
        EXPECT_EQ(mCamera.ReadCCDArea(nullptr, 1, 0), 0);
        EXPECT_EQ(mCamera.PercentComplete(nullptr), 0);
        EXPECT_EQ(mCamera.InitReqStackItem(eItemTrigger, 1), 0);
        mCamera.Tick(100);
        mCamera.AbortRead();
        EXPECT_EQ(mCamera.numOpsPending(), 0);
        EXPECT_EQ(mCamera.WaitCompletion(0), 0);
    };
    const std::pair<uint32_t, tBytes> messages[] = {
        {0x69, tcPayload().Fill(6, 0)}, {0x75, tcPayload().Fill(3, 0)}, {0xC0, {}}};
    for (const auto& [id, payload] : messages) {
        sGate.Close();
        Receive(id, payload);
        ASSERT_TRUE(sGate.AwaitEntry());
        use();
        EXPECT_TRUE(sGate.IsInside()) << "message " << id;
        sGate.Open();
        ASSERT_TRUE(Eventually([] { return !sGate.IsInside(); }));
    }
}

TEST_F(Callbacks, OfImagesLetOtherThreadsUseTheCamera)
{
    uint16_t image[2048] = {};
    mCamera.ReadCCDArea(nullptr, 1, 0);
    ReceiveFrame(true);
    ASSERT_TRUE(sGate.AwaitEntry());
    EXPECT_EQ(mCamera.SetExposure(5), 0);
    EXPECT_EQ(mCamera.ReadCCDArea(image, 1, 0), 0) << "the next readout";
    EXPECT_EQ(mCamera.numOpsPending(), 1);
    EXPECT_TRUE(sGate.IsInside());
    sGate.Open();
    ReceiveFrame(true);
    EXPECT_EQ(mCamera.WaitCompletion(20000), 0);
    EXPECT_EQ(image[0], 1);
}

TEST_F(Callbacks, DoNotHoldUpTimeouts)
{
    Receive(0xC0, {});
    ASSERT_TRUE(sGate.AwaitEntry());
    int value = 4711;
    auto asked = std::async(std::launch::async, [&] { return mCamera.GetTrigger(&value); });
    ASSERT_TRUE(Eventually([&] { return mCamera.SentCount() == 1; }));
    std::thread monitor([&] { mCamera.Tick(100); });
    EXPECT_EQ(asked.wait_for(Within(std::chrono::seconds(5))), std::future_status::ready);
    EXPECT_TRUE(sGate.IsInside());
    sGate.Open();
    monitor.join();
    EXPECT_EQ(asked.get(), -2);
    EXPECT_EQ(value, 4711);
}

TEST_F(Callbacks, RunInTheOrderOfTheMessagesAndOneAtATime)
{
    static std::vector<int> seen;
    static std::atomic<int> inside;
    seen.clear();
    inside = 0;
    static const auto note = [](int what) {
        EXPECT_EQ(++inside, 1);
        std::this_thread::yield();
        seen.push_back(what);
        --inside;
    };
    mCamera.SetImageDataCallback([](int, tsImageData*) { note(1); });
    mCamera.SetHeartBeatCallback([](int, tsHeartBeatData*) { note(2); });
    mCamera.SetErrorCallback([](int, unsigned char, unsigned char, char*) { note(3); });
    mCamera.SetUserDefinedCallback([](int, void*, int) { note(4); });
    tBytes stream;
    std::vector<int> expected;
    for (int i = 0; i < 50; ++i) {
        tcMessage messages[] = {tsPixels{e16Bit, 1, 1, 0, 0, 0, false}.Message(),
                                tcMessage(0x69, tcPayload().Fill(6, 0)),
                                tcMessage(0x75, tcPayload().Fill(3, 0)), tcMessage(0xC0, {})};
        for (int kind = 0; kind < 4; ++kind) {
            const int which = (kind + i) % 4;
            const tBytes bytes = messages[which].Bytes();
            stream.insert(stream.end(), bytes.begin(), bytes.end());
            expected.push_back(which + 1);
        }
    }
    mCamera.FeedParser(stream, 100);
    EXPECT_EQ(seen, expected);
}

// ---- Waiting for the end of a readout -----------------------------------------------------------

TEST_F(Callbacks, OfTheLastFrameKeepACompletionFromBeingTold)
{
    uint16_t image[2048] = {};
    mCamera.ReadCCDArea(image, 1, 0);
    ReceiveFrame(true);
    ASSERT_TRUE(sGate.AwaitEntry());
    for (int timeout : {0, 60}) {
        const auto start = steady_clock::now();
        EXPECT_EQ(mCamera.WaitCompletion(timeout), -2);
        EXPECT_GE(SecondsSince(start), timeout / 1000.0);
        EXPECT_LT(SecondsSince(start), Within(5.0));
    }
    EXPECT_TRUE(sGate.IsInside());
    EXPECT_EQ(mCamera.Errors(), (std::vector<std::string>{"WaitCompletion timeout event!",
                                                          "WaitCompletion timeout event!"}))
        << "nothing was given up";
    auto waiting = std::async(std::launch::async, [&] { return mCamera.WaitCompletion(20000); });
    EXPECT_EQ(waiting.wait_for(milliseconds(30)), std::future_status::timeout);
    sGate.Open();
    EXPECT_EQ(waiting.get(), 0);
    EXPECT_FALSE(sGate.IsInside());
    tsStatistics figures{};
    mCamera.GetStatistics(&figures, sizeof figures);
    EXPECT_EQ(figures.FramesComplete, 1U);
    EXPECT_EQ(figures.FramesFailed, 0U);
}

TEST_F(Callbacks, OfAnEarlierFrameDoNotKeepAReadoutFromBeingGivenUp)
{
    mCamera.ReadCCDArea(nullptr, 2, 0);
    ReceiveFrame(false);
    ASSERT_TRUE(sGate.AwaitEntry());
    const auto start = steady_clock::now();
    EXPECT_EQ(mCamera.WaitCompletion(20), -2);
    EXPECT_LT(SecondsSince(start), Within(5.0));
    EXPECT_TRUE(sGate.IsInside());
    EXPECT_EQ(mCamera.numOpsPending(), 0);
    EXPECT_EQ(mCamera.WaitCompletion(20), -2) << "the callback still has the buffer";
    sGate.Open();
    EXPECT_EQ(mCamera.WaitCompletion(20000), 0);
}

TEST_F(Callbacks, ThatBeginTheNextReadoutNeverLookLikeTheEnd)
{
    static tcTestCamera* camera;
    static std::atomic<int> left;
    camera = &mCamera;
    mCamera.SetImageDataCallback([](int, tsImageData*) {
        if (--left > 0) camera->ReadCCDArea(nullptr, 1, 0);
    });
    for (int round = 0; round < 300; ++round) {
        left = 4;
        mCamera.ReadCCDArea(nullptr, 1, 0);
        for (int i = 0; i < 4; ++i) {
            ReceiveFrame(true);
        }
        ASSERT_EQ(mCamera.WaitCompletion(20000), 0);
        ASSERT_EQ(left, 0) << round;
    }
}

// ---- Aborting -----------------------------------------------------------------------------------

TEST_F(Callbacks, ThatReturnSoonAreOverWhenAnAbortReturns)
{
    static std::atomic<int> begun, ended;
    begun = ended = 0;
    mCamera.SetImageDataCallback([](int, tsImageData*) {
        ++begun;
        std::this_thread::sleep_for(milliseconds(20));
        ++ended;
    });
    for (int round = 1; round <= 10; ++round) {
        mCamera.ReadCCDArea(nullptr, 2, 0);
        ReceiveFrame(false);
        ASSERT_TRUE(Eventually([round] { return begun == round; }));
        mCamera.AbortRead();
        ASSERT_EQ(ended, round);
    }
}

TEST_F(Callbacks, ThatDoNotReturnHoldAnAbortUpForMomentsOnly)
{
    uint16_t image[2048] = {};
    mCamera.ReadCCDArea(image, 2, 0);
    ReceiveFrame(false);
    ASSERT_TRUE(sGate.AwaitEntry());
    double shortest = 1000;
    for (int i = 0; i < 3; ++i) {
        const auto start = steady_clock::now();
        EXPECT_EQ(mCamera.AbortRead(), 0);
        shortest = std::min(shortest, SecondsSince(start));
    }
    EXPECT_LT(shortest, Within(0.5));
    EXPECT_TRUE(sGate.IsInside());
    std::fill(std::begin(image), std::end(image), uint16_t{7});
    ReceiveFrame(true);
    sGate.Open();
    EXPECT_EQ(mCamera.WaitCompletion(20000), 0);
    EXPECT_FALSE(sGate.IsInside());
    EXPECT_EQ(std::count(std::begin(image), std::end(image), 7), 2048);
}

// ---- Two cameras whose callbacks use each other -------------------------------------------------

namespace {

struct tsPair {
    std::unique_ptr<tcTestCamera> cameras[2];
    std::atomic<int> calls{0};

    tcTestCamera& Other(int handle) const
    {
        return *cameras[cameras[0]->GetHandle() == handle ? 1 : 0];
    }
};
tsPair* spPair;

// What a callback of one camera does with the other.
void UseOther(int handle)
{
    tcTestCamera& other = spPair->Other(handle);
    static thread_local unsigned turn = 0;
    int value = 0;
    switch (++turn % 5) {
    case 0:
        other.ReadCCDArea(nullptr, 2, 0);
        break;
    case 1:
        other.AbortRead();
        break;
    case 2:
        other.WaitCompletion(1);
        break;
    case 3:
        EXPECT_EQ(other.SetExposure(7), 0);
        break;
    default:
        other.GetTrigger(&value); // nobody answers: its time-out or the other's completion ends it
    }
    ++spPair->calls;
}

} // namespace

TEST(CallbacksOfTwoCameras, MayUseEachOther)
{
    tsPair pair;
    spPair = &pair;
    for (auto& camera : pair.cameras) {
        camera = std::make_unique<tcTestCamera>();
        camera->SetImageDataCallback([](int handle, tsImageData*) { UseOther(handle); });
        camera->SetHeartBeatCallback([](int handle, tsHeartBeatData*) { UseOther(handle); });
        camera->SetErrorCallback(
            [](int handle, unsigned char, unsigned char, char*) { UseOther(handle); });
        camera->SetUserDefinedCallback([](int handle, void*, int) { UseOther(handle); });
    }
    constexpr int rounds = 250;
    std::vector<std::thread> threads;
    std::atomic<bool> stop{false};
    for (auto& camera : pair.cameras) {
        threads.emplace_back([&camera] {
            for (int i = 0; i < rounds; ++i) {
                Feed(*camera, {e16Bit, 1, 1, 0, 0, 0, i % 2 == 0});
                camera->Feed(0x69, tcPayload().Fill(6, 0));
                camera->Feed(0x75, tcPayload().Fill(3, 0));
                camera->Feed(0xC0, {});
            }
        });
    }
    std::thread monitor([&] {
        while (!stop) {
            for (auto& camera : pair.cameras)
                camera->Tick();
        }
    });
    EXPECT_TRUE(Eventually([&] { return pair.calls == 8 * rounds; })) << pair.calls;
    for (std::thread& thread : threads) {
        thread.join();
    }
    stop = true;
    monitor.join();
}
