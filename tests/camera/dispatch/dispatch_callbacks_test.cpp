// What goes to callbacks.
#include "dispatch_support.h"
#include "tcTestCamera.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

TEST_F(Dispatch, HeartbeatStoresTheTemperaturesAndGoesToTheCallback)
{
    static int handle;
    static tBytes seen;
    EXPECT_EQ(mCamera.SetHeartBeatCallback([](int camera, tsHeartBeatData* data) {
        handle = camera;
        const auto* bytes = reinterpret_cast<const uint8_t*>(data);
        seen.assign(bytes, bytes + 20);
    }),
              0);
    const tBytes payload = tcPayload().U16(1).U16(250).U16(65486).Ramp(14).Take();
    mCamera.Feed(0x69, payload);
    EXPECT_EQ(handle, mCamera.GetHandle());
    EXPECT_EQ(seen, payload) << "all that the camera sends is there";
    short ccd = 0, board = 0;
    EXPECT_EQ(mCamera.GetCCDTemp(&ccd), 0);
    EXPECT_EQ(mCamera.GetBoardTemp(&board), 0);
    EXPECT_EQ(ccd, -50);
    EXPECT_EQ(board, 250);
    EXPECT_EQ(mCamera.SentCount(), 0U);
}

TEST_F(Dispatch, HeartbeatThatIsTooShortReadsAsZero)
{
    static tsHeartBeatData seen;
    mCamera.SetHeartBeatCallback([](int, tsHeartBeatData* data) { seen = *data; });
    for (size_t length = 0; length < 6; ++length) {
        mCamera.Feed(0x69, tcPayload().Fill(6, 0x11));
        tcMessage message(0x69, tcPayload().Fill(length, 0x11));
        mCamera.Feed(message);
        tBytes expected(6, 0);
        std::fill_n(expected.begin(), length, 0x11);
        EXPECT_EQ(memcmp(&seen, expected.data(), 6), 0) << length;
        short ccd = 1;
        mCamera.GetCCDTemp(&ccd);
        EXPECT_EQ(ccd, length == 5 ? 0x11 : 0);
    }
}

TEST_F(Dispatch, TemperaturesAreZeroBeforeTheFirstHeartbeatAndMayBeSkipped)
{
    short value = 1;
    EXPECT_EQ(mCamera.GetCCDTemp(&value), 0);
    EXPECT_EQ(value, 0);
    EXPECT_EQ(mCamera.GetCCDTemp(nullptr), 0);
    EXPECT_EQ(mCamera.GetBoardTemp(nullptr), 0);
}

TEST_F(Dispatch, CameraErrorIsLoggedAndGoesToTheCallback)
{
    static int handle, code, subCode;
    static std::string text;
    EXPECT_EQ(mCamera.SetErrorCallback(
                  [](int camera, unsigned char error, unsigned char detail, char* words) {
                      handle = camera;
                      code = error;
                      subCode = detail;
                      text = words;
                  }),
              0);
    mCamera.Feed(0x75, tcPayload().U8(200).U8(255).Text("shutter %s %n stuck").U8(0).Text("rest"));
    EXPECT_EQ(handle, mCamera.GetHandle());
    EXPECT_EQ(code, 200);
    EXPECT_EQ(subCode, 255);
    EXPECT_EQ(text, "shutter %s %n stuck");
    EXPECT_EQ(mCamera.Errors(), std::vector<std::string>{"VXCAMERA: 200-255 shutter %s %n stuck"});
}

TEST_F(Dispatch, CameraErrorIsLoggedWithControlCharactersMadeVisibleAndToldAsItCame)
{
    static std::string text;
    mCamera.SetErrorCallback([](int, unsigned char, unsigned char, char* words) { text = words; });
    const std::string words = "late\n20260101-00:00:00.000:  OTHER: ERR:forged\x1b[31m\r";
    mCamera.Feed(0x75, tcPayload().U8(1).U8(2).Text(words));
    EXPECT_EQ(text, words);
    EXPECT_EQ(mCamera.Errors(),
              std::vector<std::string>{"VXCAMERA: 1-2 late\\n20260101-00:00:00.000:  OTHER: "
                                       "ERR:forged\\x1b[31m\\r"});
}

TEST_F(Dispatch, CameraErrorTextEndsWithTheMessage)
{
    static size_t length;
    mCamera.SetErrorCallback(
        [](int, unsigned char, unsigned char, char* words) { length = strlen(words); });
    for (size_t text : {0, 1, 200, 16402}) {
        mCamera.ForgetRecords();
        mCamera.Feed(0x75, tcPayload().U8(1).U8(2).Fill(text, 'x'));
        EXPECT_EQ(length, text);
        ASSERT_EQ(mCamera.Errors().size(), 1U);
        const std::string whole = "VXCAMERA: 1-2 " + std::string(text, 'x');
        EXPECT_EQ(mCamera.Errors()[0], whole.substr(0, 255));
    }
    for (size_t bytes : {0, 1}) {
        mCamera.ForgetRecords();
        mCamera.Feed(0x75, tcPayload().Fill(bytes, 9));
        EXPECT_EQ(length, 0U);
        EXPECT_EQ(mCamera.Errors()[0], bytes == 0 ? "VXCAMERA: 0-0 " : "VXCAMERA: 9-0 ");
    }
}

TEST_F(Dispatch, UserDefinedMessagesGoToTheirCallbackWhole)
{
    static int handle, length;
    static tBytes seen;
    EXPECT_EQ(mCamera.SetUserDefinedCallback([](int camera, void* message, int bytes) {
        handle = camera;
        length = bytes;
        const auto* begin = static_cast<const uint8_t*>(message);
        seen.assign(begin, begin + gnHeaderBytes + bytes);
    }),
              0);
    for (uint32_t id : {0xC0U, 0xC1U, 0xFFU, 0x100U, 0x160U, 0xFFFFFFU}) {
        seen.clear();
        tcMessage message(id, tcPayload().Ramp(33, id));
        mCamera.Feed(message);
        EXPECT_EQ(handle, mCamera.GetHandle());
        EXPECT_EQ(length, 33);
        EXPECT_EQ(seen, message.Bytes());
    }
    EXPECT_TRUE(mCamera.Errors().empty());
}

TEST_F(Dispatch, WithoutCallbacksEverythingIsStillHandled)
{
    for (uint32_t id : {0x66U, 0x67U, 0x88U, 0x69U, 0x75U, 0xC0U, 0xFFFFFFU}) {
        mCamera.Feed(id, tcPayload().U8(0).U8(1).U16(1).U16(1).Fill(20, 0));
    }
    static int calls;
    calls = 0;
    mCamera.SetUserDefinedCallback([](int, void*, int) { ++calls; });
    EXPECT_EQ(mCamera.SetUserDefinedCallback(nullptr), 0);
    EXPECT_EQ(mCamera.SetHeartBeatCallback(nullptr), 0);
    EXPECT_EQ(mCamera.SetErrorCallback(nullptr), 0);
    EXPECT_EQ(mCamera.SetImageDataCallback(nullptr), 0);
    mCamera.Feed(0xC0, {});
    EXPECT_EQ(calls, 0);
}

TEST_F(Dispatch, CallbacksRunOnTheThreadThatFeedsTheMessage)
{
    static std::thread::id seen;
    mCamera.SetUserDefinedCallback([](int, void*, int) { seen = std::this_thread::get_id(); });
    std::thread::id receiver;
    std::thread thread([&] {
        receiver = std::this_thread::get_id();
        mCamera.Feed(0xC0, {});
    });
    thread.join();
    EXPECT_EQ(seen, receiver);
}

TEST_F(Dispatch, CameraWorksAfterACallbackThatThrows)
{
    mCamera.SetUserDefinedCallback([](int, void*, int) { throw std::runtime_error("test"); });
    EXPECT_THROW(mCamera.Feed(0xC0, {}), std::runtime_error);
    std::thread([&] { EXPECT_EQ(mCamera.InitReqStackItem(eItemTrigger, 1), 0); }).join();
    mCamera.Feed(0x7F, tcPayload().U32(1));

    mCamera.SetImageDataCallback([](int, tsImageData*) { throw std::runtime_error("test"); });
    mCamera.ReadCCDArea(nullptr, 1, 0);
    EXPECT_THROW(mCamera.Feed(0x66, tcPayload().U8(0).U8(1).U16(1).U16(1).Fill(10, 0)),
                 std::runtime_error);
    std::thread([&] {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(mCamera.WaitCompletion(20000), 0);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    }).join();
    mCamera.AnswerTo(0x59, 0x7F, tcPayload().U32(3));
    int value = 0;
    EXPECT_EQ(mCamera.GetTrigger(&value), 0) << "this thread is no receive thread any more";
}
