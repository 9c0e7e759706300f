// What a camera tells unasked, with the application's own pointer.
#include "pixels.h"
#include "tcCallbackSlot.h"
#include "vxcamiface.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace {

// A camera whose link breaks when the test says so.
class tcBreakingCamera : public tcTestCamera
{
public:
    using tcVXCamera::CountReceived;
    using tcVXCamera::LinkLost;
    using tcVXCamera::LinkRestored;
};

class Extension : public testing::Test
{
protected:
    int Handle() const { return mCamera.GetHandle(); }
    void FeedError(unsigned code, unsigned subCode, const std::string& text)
    {
        mCamera.Feed(0x75, tcPayload().U8(code).U8(subCode).Text(text).U8(0));
    }
    // Has the receive thread call the frame callback, which stays inside until it is let go.
    void EnterCallback()
    {
        const auto stay = [](int, const tsFrameRecord*, void* user) {
            auto& self = *static_cast<Extension*>(user);
            ++self.mCalls;
            self.mInside = true;
            while (!self.mLetGo) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            self.mInside = false;
        };
        VXSetFrameCallback(Handle(), stay, this);
        mCamera.ReadCCDArea(nullptr, 0, 0);
        mReceiver.Post([this] { Feed(mCamera, {e16Bit}); });
        ASSERT_TRUE(Eventually([this] { return mInside.load(); }));
    }

    tcBreakingCamera mCamera;
    std::atomic<bool> mInside{false}, mLetGo{false};
    std::atomic<int> mCalls{0};
    tcWorker mReceiver;
};

void OtherCallback(int, const tsFrameRecord*, void*) {}

} // namespace

// ---- Records

TEST_F(Extension, TellsHeartbeatsAsTheyCame)
{
    static tBytes payload;
    static tsHeartBeatRecord seen;
    payload = {};
    int user = 0;
    VXSetHeartBeatRecordCallback(
        Handle(),
        [](int, const tsHeartBeatRecord* record, void* pointer) {
            seen = *record;
            payload.assign(record->Payload, record->Payload + record->Bytes);
            ++*static_cast<int*>(pointer);
        },
        &user);
    const tBytes sent = tcPayload().U16(1).U16(250).U16(0xFFCE).U32(77);
    mCamera.Feed(0x69, sent);
    EXPECT_EQ(user, 1);
    EXPECT_EQ(payload, sent);
    EXPECT_EQ(seen.Size, sizeof seen);
    EXPECT_EQ(seen.BoardTemp, 250);
    EXPECT_EQ(seen.CCDTemp, -50);
    EXPECT_GT(seen.Time.Monotonic, 0);
    EXPECT_GT(seen.Time.Realtime, 0);
    mCamera.Feed(0x69, {});
    EXPECT_EQ(seen.Bytes, 0U);
    VXSetHeartBeatRecordCallback(Handle(), nullptr, nullptr);
    mCamera.Feed(0x69, sent);
    EXPECT_EQ(user, 2);
}

TEST_F(Extension, TellsCameraErrorsWithTheReadoutThatRuns)
{
    struct tsSeen {
        tsCameraErrorRecord record;
        std::string text;
    };
    std::vector<tsSeen> seen;
    VXSetCameraErrorCallback(
        Handle(),
        [](int, const tsCameraErrorRecord* record, void* user) {
            static_cast<std::vector<tsSeen>*>(user)->push_back({*record, record->Text});
        },
        &seen);
    FeedError(7, 200, "no reason");
    mCamera.ReadCCDArea(nullptr, 1, 0);
    FeedError(8, 1, "");
    mCamera.AbortRead();
    FeedError(9, 1, "x");
    ASSERT_EQ(seen.size(), 3U);
    EXPECT_EQ(seen[0].record.Size, sizeof(tsCameraErrorRecord));
    EXPECT_EQ(seen[0].record.Code, 7U);
    EXPECT_EQ(seen[0].record.SubCode, 200U);
    EXPECT_EQ(seen[0].text, "no reason");
    EXPECT_EQ(seen[0].record.Readout, 0U);
    EXPECT_GT(seen[0].record.Time.Monotonic, 0);
    EXPECT_EQ(seen[1].record.Readout, 1U);
    EXPECT_EQ(seen[1].text, "");
    EXPECT_EQ(seen[2].record.Readout, 0U);
}

TEST_F(Extension, TellsLinkEventsWithTheCamerasLastWords)
{
    struct tsSeen {
        tsLinkRecord record;
        std::string words;
        int asked;
    };
    std::vector<tsSeen> seen;
    VXSetLinkCallback(
        Handle(),
        [](int handle, const tsLinkRecord* record, void* user) {
            int value = 0;
            static_cast<std::vector<tsSeen>*>(user)->push_back(
                {*record, record->LastWords, VXGetTrigger(handle, &value)});
        },
        &seen);
    FeedError(1, 2, "first");
    FeedError(1, 2, "power failed");
    mCamera.ReadCCDArea(nullptr, 1, 0);
    mCamera.LinkLost();
    EXPECT_EQ(VXReadoutResult(Handle()), eReadoutLinkLost);
    EXPECT_EQ(VXisCameraReady(Handle()), -1) << "pending all the same";
    mCamera.LinkRestored();
    mCamera.LinkLost();
    ASSERT_EQ(seen.size(), 3U);
    EXPECT_EQ(seen[0].record.Size, sizeof(tsLinkRecord));
    EXPECT_EQ(seen[0].record.Event, eLinkLost);
    EXPECT_EQ(seen[0].record.ConnectionsLost, 1U);
    EXPECT_EQ(seen[0].words, "power failed");
    EXPECT_EQ(seen[0].asked, -1) << "it is the receive thread";
    EXPECT_EQ(seen[1].record.Event, eLinkRestored);
    EXPECT_EQ(seen[1].words, "");
    EXPECT_EQ(seen[2].record.ConnectionsLost, 2U);
    EXPECT_EQ(seen[2].words, "") << "said on another connection";
    mCamera.AbortRead();
    EXPECT_EQ(VXReadoutResult(Handle()), eReadoutLinkLost);
    mCamera.ReadCCDArea(nullptr, 1, 0);
    EXPECT_EQ(VXReadoutResult(Handle()), eReadoutRunning);
}

// What comes over another connection is no rest of what came over the one before.
TEST_F(Extension, TakesFramesOfANewConnectionForTheirOwn)
{
    mCamera.TellGeometry(8, 16);
    std::vector<tsFrameRecord> told;
    VXSetFrameCallback(
        Handle(),
        [](int, const tsFrameRecord* frame, void* user) {
            static_cast<std::vector<tsFrameRecord>*>(user)->push_back(*frame);
        },
        &told);
    mCamera.ReadCCDArea(nullptr, 1, 0);
    Feed(mCamera, {e16Bit, 1, 4, 0, 0, 15, true});
    mCamera.LinkLost();
    mCamera.AbortRead();
    mCamera.LinkRestored();
    mCamera.ReadCCDArea(nullptr, 1, 0);
    for (unsigned i : {2, 3, 4}) {
        Feed(mCamera, {e16Bit, i, 4, i - 1, 0, 15, true});
    }
    ASSERT_EQ(told.size(), 1U);
    EXPECT_EQ(told[0].PacketsMissing, 1U);
}

// ---- Setting callbacks

TEST_F(Extension, RefusesHandlesThatAreNotOpen)
{
    const int none = Handle() + 100;
    EXPECT_EQ(VXSetFrameCallback(none, nullptr, nullptr), -3);
    EXPECT_EQ(VXSetLinkCallback(none, nullptr, nullptr), -3);
    EXPECT_EQ(VXSetHeartBeatRecordCallback(none, nullptr, nullptr), -3);
    EXPECT_EQ(VXSetCameraErrorCallback(none, nullptr, nullptr), -3);
    EXPECT_EQ(VXReadCCDArea8(none, nullptr, 1, 0), -3);
}

TEST_F(Extension, WaitsForTheCallbackThatIsReplaced)
{
    EnterCallback();
    std::atomic<bool> isSet{false};
    std::thread other([&] {
        EXPECT_EQ(VXSetFrameCallback(Handle(), OtherCallback, nullptr), 0);
        EXPECT_FALSE(mInside);
        isSet = true;
    });
    EXPECT_FALSE(Eventually([&] { return isSet.load(); }, std::chrono::milliseconds(50)));
    mLetGo = true;
    other.join();
    mReceiver.Post([this] { Feed(mCamera, {e16Bit}); });
    EXPECT_TRUE(Eventually([this] { return mCamera.PercentComplete(nullptr) == 0; }));
    EXPECT_EQ(mCalls, 1);
}

TEST_F(Extension, DoesNotWaitInACallback)
{
    static int handle;
    handle = Handle();
    std::atomic<int> calls{0};
    VXSetFrameCallback(
        Handle(),
        [](int, const tsFrameRecord*, void* user) {
            ++*static_cast<std::atomic<int>*>(user);
            EXPECT_EQ(VXSetFrameCallback(handle, OtherCallback, nullptr), 0);
        },
        &calls);
    mCamera.ReadCCDArea(nullptr, 0, 0);
    Feed(mCamera, {e16Bit});
    Feed(mCamera, {e16Bit});
    EXPECT_EQ(calls, 1);
}

// Two cameras whose callbacks set each other's, both inside at the same time.
TEST_F(Extension, DoesNotWaitForTheCallbackOfAnotherCamera)
{
    EnterCallback();
    tcTestCamera other;
    static int first;
    first = Handle();
    VXSetFrameCallback(
        other.GetHandle(),
        [](int, const tsFrameRecord*, void*) {
            EXPECT_EQ(VXSetFrameCallback(first, OtherCallback, nullptr), 0);
        },
        nullptr);
    other.ReadCCDArea(nullptr, 1, 0);
    Feed(other, {e16Bit});
    EXPECT_TRUE(mInside);
    mLetGo = true;
}

// Bytes come all the while, and each tap is replaced by one that asks for nothing of them.
TEST_F(Extension, TapsAreNotToldWhatOnlyTheOneBeforeAskedFor)
{
    constexpr int replaced = 20'000, leastBytes = 1000;
    std::atomic<bool> isOver{false};
    std::atomic<int> bytes{0}, wrong{0};
    std::thread receiver([&] {
        while (!isOver) {
            mCamera.CountReceived("1", 1);
        }
    });
    const auto ofBytes = [](int, const tsTapRecord*, void* user) {
        ++*static_cast<std::atomic<int>*>(user);
    };
    for (int i = 0; i < replaced || bytes < leastBytes; ++i) {
        VXSetTap(Handle(), eTapBytesReceived, ofBytes, &bytes);
        VXSetTap(Handle(), eTapLink, ofBytes, &wrong);
    }
    isOver = true;
    receiver.join();
    EXPECT_EQ(wrong, 0);
}

TEST(CallbackSlot, LooksWithTheCallbackWhatItIsFor)
{
    tcCallbackSlot<void (*)(void*)> slot;
    int calls = 0;
    slot.Set([](void* user) { ++*static_cast<int*>(user); }, &calls, true, eTapLink);
    slot.CallFor(eTapBytesReceived);
    EXPECT_EQ(calls, 0);
    slot.CallFor(eTapLink);
    EXPECT_EQ(calls, 1);
    slot.Call();
    EXPECT_EQ(calls, 2);
}
