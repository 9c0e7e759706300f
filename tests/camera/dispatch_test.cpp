#include "tcTestCamera.h"

#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <future>
#include <stdexcept>
#include <thread>

namespace {

constexpr size_t gnWhole = SIZE_MAX; // the message from its header to its end
constexpr uint8_t gnGuard = 0xA5;

// Where the bytes of an answer go: `from` is an offset in the message.
struct tsSlice {
    size_t from, bytes;
};
struct tsRowCase {
    uint32_t id;
    int item;
    tsSlice first, second; // for result 1 and 2
    bool marks;            // resets the status of its item
};
constexpr tsSlice gtNothing{0, 0};

// Every answer that is plain data.
const tsRowCase gaDataRows[] = {
    {0x60, 0, {12, 4}, gtNothing, true},      {0x61, 1, {12, 4}, gtNothing, true},
    {0x63, 3, {0, gnWhole}, gtNothing, true}, {0x65, 5, {12, 2}, gtNothing, true},
    {0x6A, 11, gtNothing, gtNothing, true},   {0x70, 8, {12, 4}, gtNothing, true},
    {0x71, 10, {12, 2}, gtNothing, true},     {0x73, 12, {12, 4}, {16, 4}, true},
    {0x74, 13, gtNothing, gtNothing, true},   {0x76, 14, {12, 22}, gtNothing, true},
    {0x77, 15, {12, 512}, {528, 2}, true},    {0x79, 16, {12, 12}, gtNothing, true},
    {0x7A, 17, {12, 16}, gtNothing, true},    {0x7C, 19, {12, 4}, {16, 4}, true},
    {0x7D, 20, {12, 4356}, gtNothing, true},  {0x7E, 21, {12, 4}, gtNothing, false},
    {0x7F, 22, {12, 4}, gtNothing, true},     {0x80, 23, {0, gnWhole}, gtNothing, true},
    {0x84, 25, {0, 36}, gtNothing, false},    {0x85, 26, {12, 12}, gtNothing, false},
    {0x87, 28, {12, 12}, gtNothing, true},    {0x89, 30, {12, 4}, gtNothing, false},
    {0x8A, 31, {0, 270}, gtNothing, false},   {0x8B, 32, {12, 4}, gtNothing, false},
    {0x8C, 33, {0, 28}, gtNothing, false},
};
// The others, which have tests of their own.
const std::pair<uint32_t, int> gaHandledRows[] = {
    {0x64, 4}, {0x7B, 18}, {0x83, 24}, {0x86, 27}, {0x8D, 34}};
const uint32_t gaEvents[] = {0x66, 0x67, 0x68, 0x69, 0x75, 0x82, 0x88};

// A result between guards.
class tcResult
{
public:
    tcResult() : mBytes(40000, gnGuard) {}
    long* Pointer() { return reinterpret_cast<long*>(mBytes.data() + nFront); }
    const tBytes& Bytes() const { return mBytes; }
    // What the slice of a message leaves here; what the message lacks reads as zero.
    static tBytes Expected(const tBytes& message, const tsSlice& slice)
    {
        tBytes expected(40000, gnGuard);
        const size_t bytes = slice.bytes == gnWhole ? message.size() : slice.bytes;
        for (size_t i = 0; i < bytes; ++i) {
            const size_t from = slice.from + i;
            expected[nFront + i] = from < message.size() ? message[from] : 0;
        }
        return expected;
    }

private:
    static constexpr size_t nFront = 4096;
    tBytes mBytes;
};

// Sends a request for an item and feeds the answer before the caller waits for it.
int Exchange(tcTestCamera& camera, int item, tcMessage& answer, long* first, long* second)
{
    camera.SetScript([&](const tsSentMessage&) { camera.Feed(answer); });
    tcMessage request(0x59, {});
    const int result = camera.SendAndWait(request.get(), item, first, second, 1);
    camera.SetScript(nullptr);
    return result;
}

bool IsKnown(uint32_t id)
{
    for (const tsRowCase& row : gaDataRows) {
        if (row.id == id) return true;
    }
    for (const auto& row : gaHandledRows) {
        if (row.first == id) return true;
    }
    return std::count(std::begin(gaEvents), std::end(gaEvents), id) != 0;
}

std::string Format(const char* format, unsigned a, unsigned b = 0, unsigned c = 0, unsigned d = 0,
                   unsigned e = 0)
{
    char text[256];
    snprintf(text, sizeof text, format, a, b, c, d, e);
    return text;
}

class Dispatch : public testing::Test
{
protected:
    tcTestCamera mCamera;
};

} // namespace

// ---- Rows

TEST_F(Dispatch, TheTablesOfThisFileCoverTheCatalogue)
{
    size_t known = 0;
    for (uint32_t id = 0; id < gnFirstUserDefinedId; ++id) {
        EXPECT_EQ(IsKnown(id), FindAnswer(id) != nullptr) << std::hex << id;
        known += IsKnown(id);
    }
    EXPECT_EQ(known, std::size(gaAnswers));
}

TEST_F(Dispatch, StoresEveryRowAtAnyLengthAndNothingElse)
{
    for (const tsRowCase& row : gaDataRows) {
        for (size_t length :
             {0,  1,   2,   3,   4,   7,   11,  12,  15,  16,   21,   22,   23,   24,   35,
              36, 257, 258, 259, 511, 516, 517, 518, 520, 2056, 4355, 4356, 4357, 9000, 16404}) {
            SCOPED_TRACE(testing::Message() << std::hex << row.id << " of " << std::dec << length);
            tcMessage answer(row.id, tcPayload().Ramp(length, row.id));
            tcResult first, second;
            ASSERT_EQ(Exchange(mCamera, row.item, answer, first.Pointer(), second.Pointer()), 0);
            ASSERT_EQ(first.Bytes(), tcResult::Expected(answer.Bytes(), row.first));
            ASSERT_EQ(second.Bytes(), tcResult::Expected(answer.Bytes(), row.second));
            ASSERT_EQ(mCamera.numOpsPending(), 0);
        }
    }
}

TEST_F(Dispatch, SkipsNullResults)
{
    for (const tsRowCase& row : gaDataRows) {
        SCOPED_TRACE(testing::Message() << std::hex << row.id);
        tcMessage answer(row.id, tcPayload().Ramp(5000));
        EXPECT_EQ(Exchange(mCamera, row.item, answer, nullptr, nullptr), 0);
        tcResult first, second;
        EXPECT_EQ(Exchange(mCamera, row.item, answer, first.Pointer(), nullptr), 0);
        EXPECT_EQ(first.Bytes(), tcResult::Expected(answer.Bytes(), row.first));
        EXPECT_EQ(Exchange(mCamera, row.item, answer, nullptr, second.Pointer()), 0);
        EXPECT_EQ(second.Bytes(), tcResult::Expected(answer.Bytes(), row.second));
    }
    for (const auto& [id, item] : gaHandledRows) {
        SCOPED_TRACE(testing::Message() << std::hex << id);
        tcMessage answer(id, tcPayload().Ramp(5000));
        EXPECT_EQ(Exchange(mCamera, item, answer, nullptr, nullptr), 0);
    }
    EXPECT_EQ(mCamera.numOpsPending(), 0);
}

TEST_F(Dispatch, DropsASurplusAnswerWithoutAWord)
{
    for (const tsRowCase& row : gaDataRows) {
        SCOPED_TRACE(testing::Message() << std::hex << row.id);
        tcMessage answer(row.id, tcPayload().Ramp(5000)),
            surplus(row.id, tcPayload().Fill(5000, 9));
        tcResult first, second;
        EXPECT_EQ(Exchange(mCamera, row.item, answer, first.Pointer(), second.Pointer()), 0);
        mCamera.ForgetRecords();
        mCamera.Feed(surplus);
        EXPECT_EQ(first.Bytes(), tcResult::Expected(answer.Bytes(), row.first));
        EXPECT_EQ(second.Bytes(), tcResult::Expected(answer.Bytes(), row.second));
        EXPECT_EQ(mCamera.numOpsPending(), 0);
        const bool isRogue = row.id == 0x74;
        EXPECT_EQ(mCamera.Records().size(), isRogue ? 3U : 2U);
    }
}

TEST_F(Dispatch, AnAnswerBehindItsTimeoutLeavesTheCallersStorageUntouched)
{
    for (const tsRowCase& row : gaDataRows) {
        SCOPED_TRACE(testing::Message() << std::hex << row.id);
        tcResult first, second;
        mCamera.SetScript([&](const tsSentMessage&) {
            mCamera.Tick(200);
            mCamera.Feed(row.id, tcPayload().Ramp(5000));
        });
        tcMessage request(0x59, {});
        EXPECT_EQ(
            mCamera.SendAndWait(request.get(), row.item, first.Pointer(), second.Pointer(), 1), -2);
        mCamera.Feed(row.id, tcPayload().Ramp(5000));
        EXPECT_EQ(first.Bytes(), tcResult().Bytes());
        EXPECT_EQ(second.Bytes(), tcResult().Bytes());
    }
}

TEST_F(Dispatch, CompletesNoOtherItem)
{
    for (const tsRowCase& row : gaDataRows) {
        tcTestCamera camera;
        for (int item = 0; item < gnItems; ++item) {
            camera.InitReqStackItem(item, 1);
        }
        camera.Feed(row.id, tcPayload().Ramp(600));
        EXPECT_EQ(camera.numOpsPending(), gnItems - 1) << std::hex << row.id;
        EXPECT_EQ(camera.InitReqStackItem(row.item, 1), 0) << std::hex << row.id;
    }
    for (const auto& [id, item] : gaHandledRows) {
        tcTestCamera camera;
        for (int other = 0; other < gnItems; ++other) {
            camera.InitReqStackItem(other, 1);
        }
        camera.Feed(id, tcPayload().Ramp(600));
        EXPECT_EQ(camera.numOpsPending(), gnItems - 1) << std::hex << id;
        EXPECT_EQ(camera.InitReqStackItem(item, 1), 0) << std::hex << id;
    }
}

TEST_F(Dispatch, MarksTheItemAsAnsweredWhereTheRowSaysSo)
{
    auto check = [&](uint32_t id, int item, bool marks) {
        mCamera.SetScript([&](const tsSentMessage&) {
            while (mCamera.numOpsPending() == 2) {
                mCamera.Tick(); // one of the two answers is given up
            }
            mCamera.Feed(id, tcPayload().Ramp(600));
        });
        tcMessage request(0x59, {});
        EXPECT_EQ(mCamera.SendAndWait(request.get(), item, nullptr, nullptr, 2), marks ? 0 : -2)
            << std::hex << id;
        EXPECT_EQ(mCamera.numOpsPending(), 0);
    };
    for (const tsRowCase& row : gaDataRows) {
        check(row.id, row.item, row.marks);
    }
    for (const auto& [id, item] : gaHandledRows) {
        check(id, item, id != 0x86 && id != 0x8D);
    }
}

TEST_F(Dispatch, NeverReadsBeyondTheMessage)
{
    // The message ends where its memory ends; the sanitizers watch.
    for (uint32_t id = 0x60; id < 0xC1; ++id) {
        for (size_t length : {0, 1, 5, 19, 40}) {
            const size_t bytes = gnHeaderBytes + length;
            auto memory = std::make_unique<uint8_t[]>(bytes);
            tcMessage message(id, tcPayload().Ramp(length));
            memcpy(memory.get(), message.get(), bytes);
            tcResult first, second;
            for (int item = 0; item < gnItems; ++item) {
                if (item != eItemHardware && item != eItemParameter) {
                    mCamera.InitReqStackItem(item, 1);
                }
            }
            mCamera.CallBackParser(reinterpret_cast<tuCameraMessages*>(memory.get()), true, true);
        }
    }
}

TEST_F(Dispatch, ExposureIsCachedEvenWhenNobodyAsked)
{
    mCamera.SetExposure(1000);
    mCamera.Feed(0x60, tcPayload().U32(7000));
    mCamera.InitReqStackItem(eItemImage16, 1);
    mCamera.Tick(269);
    EXPECT_EQ(mCamera.numOpsPending(), 1);
    mCamera.Tick();
    EXPECT_EQ(mCamera.numOpsPending(), 0);
}

TEST_F(Dispatch, TargetTemperatureComesInTenths)
{
    const std::pair<int32_t, float> cases[] = {
        {-125, -12.5f}, {0, 0.0f}, {3, 0.3f}, {INT_MIN, -214748364.8f}};
    for (const auto& [tenths, degrees] : cases) {
        tcMessage answer(0x7B, tcPayload().I32(tenths));
        tcResult first;
        EXPECT_EQ(Exchange(mCamera, eItemTargetTemp, answer, first.Pointer(), nullptr), 0);
        float stored = 0;
        memcpy(&stored, first.Pointer(), sizeof stored);
        EXPECT_EQ(stored, degrees);
        tcResult untouched;
        EXPECT_EQ(memcmp(reinterpret_cast<char*>(first.Pointer()) + 4, untouched.Pointer(), 100),
                  0);
    }
    tcMessage empty(0x7B, {});
    float stored = 1;
    EXPECT_EQ(Exchange(mCamera, eItemTargetTemp, empty, reinterpret_cast<long*>(&stored), nullptr),
              0);
    EXPECT_EQ(stored, 0.0f);
}

TEST_F(Dispatch, FilterIsStoredAsTwoBooleans)
{
    for (const auto& [first, second] : {std::pair<uint32_t, uint32_t>{0, 1}, {256, 0}, {7, ~0U}}) {
        tcMessage answer(0x86, tcPayload().U32(first).U32(second));
        unsigned char filter[4] = {9, 9, 9, 9};
        EXPECT_EQ(Exchange(mCamera, eItemFilter, answer, reinterpret_cast<long*>(filter), nullptr),
                  0);
        EXPECT_EQ(filter[0], first != 0);
        EXPECT_EQ(filter[1], second != 0);
        EXPECT_EQ(filter[2], 9);
    }
}

TEST_F(Dispatch, BinningSequenceGoesThroughThreePointers)
{
    unsigned char vertical[17], horizontal[17], count[2];
    auto ask = [&](tsBinningSequenceResults results, const tBytes& payload) {
        memset(vertical, 99, sizeof vertical);
        memset(horizontal, 99, sizeof horizontal);
        memset(count, 99, sizeof count);
        tcMessage answer(0x83, payload);
        return Exchange(mCamera, eItemBinningSequence, answer, reinterpret_cast<long*>(&results),
                        nullptr);
    };
    const tBytes payload = tcPayload().Ramp(33).Take();
    EXPECT_EQ(ask({vertical, horizontal, count}, payload), 0);
    EXPECT_EQ(memcmp(vertical, payload.data(), 16), 0);
    EXPECT_EQ(memcmp(horizontal, payload.data() + 16, 16), 0);
    EXPECT_EQ(count[0], payload[32]);
    EXPECT_EQ(vertical[16], 99);
    EXPECT_EQ(horizontal[16], 99);
    EXPECT_EQ(count[1], 99);

    EXPECT_EQ(ask({nullptr, nullptr, nullptr}, payload), 0);
    EXPECT_EQ(ask({nullptr, horizontal, nullptr}, payload), 0);
    EXPECT_EQ(horizontal[0], payload[16]);

    EXPECT_EQ(ask({vertical, horizontal, count}, tcPayload().Fill(20, 5)), 0);
    EXPECT_EQ(vertical[15], 5);
    EXPECT_EQ(horizontal[3], 5);
    EXPECT_EQ(horizontal[4], 0);
    EXPECT_EQ(count[0], 0);
}

// ---- Hardware information

TEST_F(Dispatch, HardwareAnswerIsCutToTheCallersSizeAndLowersIt)
{
    const tBytes record = tcTestCamera::HardwareBytes(30, 40);
    struct {
        int room, length, size;
    } const cases[] = {{100, 100, 100}, {50, 100, 50},   {100, 60, 60},
                       {100, 0, 0},     {100, 200, 100}, {1, 100, 1}};
    for (const auto& want : cases) {
        tBytes payload = record;
        payload.resize(static_cast<size_t>(want.length), 3);
        mCamera.AnswerTo(0x34, 0x64, payload);
        std::vector<uint8_t> info(300, gnGuard);
        int size = want.room;
        EXPECT_EQ(
            mCamera.GetCameraHardwareInfo(reinterpret_cast<TVXCameraHardware*>(info.data()), &size),
            0);
        EXPECT_EQ(size, want.size);
        std::vector<uint8_t> expected(300, gnGuard);
        std::copy(payload.begin(), payload.begin() + want.size, expected.begin());
        EXPECT_EQ(info, expected);
    }
}

TEST_F(Dispatch, HardwareAnswerSurvivesOddResults)
{
    tcMessage answer(0x64, tcTestCamera::HardwareBytes(30, 40));
    tcResult first;
    int size = -5;
    EXPECT_EQ(
        Exchange(mCamera, eItemHardware, answer, first.Pointer(), reinterpret_cast<long*>(&size)),
        0);
    EXPECT_EQ(first.Bytes(), tcResult().Bytes());
    EXPECT_EQ(Exchange(mCamera, eItemHardware, answer, first.Pointer(), nullptr), 0);
    EXPECT_EQ(first.Bytes(), tcResult().Bytes());
    size = 100;
    EXPECT_EQ(Exchange(mCamera, eItemHardware, answer, nullptr, reinterpret_cast<long*>(&size)), 0);
}

TEST_F(Dispatch, HardwareAnswerTeachesTheGeometryOnlyToWhoeverAsked)
{
    static tsImageData image;
    mCamera.SetImageDataCallback([](int, tsImageData* data) { image = *data; });
    const tBytes frame = tcPayload().U8(0).U8(0).U16(1).U16(1).Fill(10, 0);
    mCamera.Feed(0x88, frame);
    EXPECT_EQ(image.SensorRows, 2);
    EXPECT_EQ(image.SensorColumns, 1024);
    mCamera.Feed(0x64, tcTestCamera::HardwareBytes(30, 40));
    mCamera.Feed(0x88, frame);
    EXPECT_EQ(image.SensorRows, 2);
    mCamera.TellGeometry(30, 40);
    mCamera.Feed(0x88, frame);
    EXPECT_EQ(image.SensorRows, 30);
    EXPECT_EQ(image.SensorColumns, 40);
}

// ---- Parameters

TEST_F(Dispatch, ParameterAnswerGivesTheValueOrWhyThereIsNone)
{
    struct {
        int size;
        tBytes payload;
        int result;
    } const cases[] = {
        {4, tcPayload().U32(1).I32(0).U32(0x01020304), 0},
        {4, tcPayload().U32(1).I32(-7).U32(0x01020304), -7},
        {4, tcPayload().U32(1).I32(12).U32(0x01020304), 12},
        {4, tcPayload().U32(1).I32(0).U16(1), -5},
        {4, tcPayload().U32(1).I32(0).U32(1).U8(1), -5},
        {4, tcPayload().U32(1).I32(0), -5},
        {4, tcPayload().U32(1), -5},
        {4, {}, -5},
        {1, tcPayload().U32(1).I32(0).U8(4), 0},
        {2048, tcPayload().U32(1).I32(0).Ramp(2048), 0},
        {2048, tcPayload().U32(1).I32(0).Ramp(16396), -5},
    };
    for (const auto& want : cases) {
        SCOPED_TRACE(testing::Message() << want.size << " of " << want.payload.size());
        mCamera.AnswerTo(0x14, 0x8D, want.payload);
        tBytes value(3000, gnGuard), expected(3000, gnGuard);
        if (want.result == 0)
            std::copy(want.payload.begin() + 8, want.payload.end(), expected.begin());
        EXPECT_EQ(mCamera.GetParameter(1, value.data(), want.size), want.result);
        EXPECT_EQ(value, expected);
        EXPECT_EQ(mCamera.numOpsPending(), 0);
    }
}

TEST_F(Dispatch, ParameterAnswerCountsWithoutResults)
{
    tcMessage answer(0x8D, tcPayload().U32(1).I32(0).U32(5));
    int size = 4;
    uint32_t value = 77;
    EXPECT_EQ(Exchange(mCamera, 34, answer, nullptr, reinterpret_cast<long*>(&size)), 0);
    EXPECT_EQ(size, 4);
    EXPECT_EQ(Exchange(mCamera, 34, answer, reinterpret_cast<long*>(&value), nullptr), 0);
    EXPECT_EQ(value, 77U);
    size = -1;
    EXPECT_EQ(Exchange(mCamera, 34, answer, reinterpret_cast<long*>(&value),
                       reinterpret_cast<long*>(&size)),
              0);
    EXPECT_EQ(size, -5);
    EXPECT_EQ(value, 77U);
    // One byte short of its head, so that a size of -1 seems to fit.
    tcMessage cut(0x8D, tcPayload().U32(1).Fill(3, 0));
    size = -1;
    EXPECT_EQ(
        Exchange(mCamera, 34, cut, reinterpret_cast<long*>(&value), reinterpret_cast<long*>(&size)),
        0);
    EXPECT_EQ(size, -5);
    EXPECT_EQ(value, 77U);
}

// ---- Link test

TEST_F(Dispatch, RogueLoopbackIsReported)
{
    mCamera.Feed(0x74, tcPayload().Fill(20, 1));
    EXPECT_EQ(mCamera.Errors(),
              std::vector<std::string>{"CallBackParser rogue loopback message found, length = 20"});
}

TEST_F(Dispatch, LoopbackWithoutARecordOnlyCounts)
{
    tcMessage answer(0x74, tcPayload().Fill(2000, 1));
    EXPECT_EQ(Exchange(mCamera, eItemLinkTest, answer, nullptr, nullptr), 0);
    EXPECT_TRUE(mCamera.Errors().empty());
}

TEST_F(Dispatch, LoopbackFillsTheRecord)
{
    struct {
        uint32_t room;
        size_t data;   // carried
        size_t copied; // bytes
    } const cases[] = {{16, 16, 16}, {16, 40, 16},       {16, 5, 5},
                       {0, 16, 0},   {5000, 3000, 3000}, {static_cast<uint32_t>(-1), 16, 0},
                       {1024, 0, 0}};
    for (const auto& want : cases) {
        SCOPED_TRACE(testing::Message() << want.room << " for " << want.data);
        const tBytes payload = tcPayload().U16(4660).Fill(10, 0).Ramp(want.data).Take();
        mCamera.AnswerTo(0x3F, 0x74, payload);
        tBytes received(6000, gnGuard), expected(6000, gnGuard);
        std::copy_n(payload.begin() + 12, want.copied, expected.begin());
        tsLinkTestCmd test{};
        test.Count = 1;
        test.DataLength = want.room;
        test.ReceiveBuffer = received.data();
        test.ReceivedBytes = 100;
        EXPECT_EQ(mCamera.SendLinkTestData(&test), 0);
        EXPECT_EQ(received, expected);
        EXPECT_EQ(test.AnswersReceived, 1U);
        EXPECT_EQ(test.ReceivedBytes, 4760U);
    }
}

TEST_F(Dispatch, LoopbackShorterThanItsHeadCopiesNothing)
{
    for (size_t length : {0, 1, 2, 11, 12}) {
        mCamera.AnswerTo(0x3F, 0x74, tcPayload().Fill(length, 1));
        uint8_t received[16];
        memset(received, gnGuard, sizeof received);
        tsLinkTestCmd test{};
        test.Count = 1;
        test.DataLength = sizeof received;
        test.ReceiveBuffer = received;
        EXPECT_EQ(mCamera.SendLinkTestData(&test), 0);
        EXPECT_EQ(received[0], gnGuard);
        EXPECT_EQ(test.ReceivedBytes, length == 0 ? 0U : length == 1 ? 1U : 257U);
    }
}

TEST_F(Dispatch, LoopbackNeedsNoReceiveBuffer)
{
    mCamera.AnswerTo(0x3F, 0x74, tcPayload().U16(3).Fill(30, 1));
    tsLinkTestCmd test{};
    test.Count = 1;
    test.DataLength = 10;
    EXPECT_EQ(mCamera.SendLinkTestData(&test), 0);
    EXPECT_EQ(test.AnswersReceived, 1U);
}

// ---- Log lines and checks

TEST_F(Dispatch, LogsEveryMessageAtItsLevel)
{
    for (uint32_t id = 0; id < 0x200; ++id) {
        SCOPED_TRACE(testing::Message() << std::hex << id);
        mCamera.ForgetRecords();
        tcMessage message(id, tcPayload().Fill(40, 0), 17);
        mCamera.Feed(message);
        const auto records = mCamera.Records();
        ASSERT_FALSE(records.empty());
        const bool highRate = id == 0x66 || id == 0x67 || id == 0x82;
        EXPECT_EQ(records.front(),
                  DebugRecord(
                      highRate ? 15 : 4,
                      Format("tcVXCamera::CallBackParser found msg id = %X, Seq_No = %d", id, 17)));
        const auto done = DebugRecord(1, Format("CallBackParser Done Handling Message %d", id));
        EXPECT_EQ(mCamera.Count(done), highRate ? 0U : 1U);
        EXPECT_EQ(records.back() == done, !highRate);
        const auto unknown =
            ErrorRecord(Format("CallBackParser unknown message id received - 0x%X (%d)", id, id));
        EXPECT_EQ(mCamera.Count(unknown), id < 0xC0 && !IsKnown(id) ? 1U : 0U);
    }
}

TEST_F(Dispatch, AcceptsTheIgnoredOnesSilently)
{
    for (uint32_t id : {0x68U, 0x82U}) {
        mCamera.Feed(id, tcPayload().Ramp(100));
    }
    EXPECT_TRUE(mCamera.Errors().empty());
    EXPECT_EQ(mCamera.SentCount(), 0U);
}

TEST_F(Dispatch, ReportsIdsOfNoMessage)
{
    const uint32_t ids[] = {0x62, 0x6B, 0x6C, 0x6D, 0x6E, 0x6F, 0x72, 0x78, 0x81, 0x8E, 0xBF, 0};
    static int calls;
    calls = 0;
    mCamera.SetUserDefinedCallback([](int, void*, int) { ++calls; });
    for (uint32_t id : ids) {
        mCamera.Feed(id, {});
    }
    EXPECT_EQ(calls, 0);
    ASSERT_EQ(mCamera.Errors().size(), std::size(ids));
    EXPECT_EQ(mCamera.Errors()[0], "CallBackParser unknown message id received - 0x62 (98)");
    EXPECT_EQ(mCamera.Errors()[9], "CallBackParser unknown message id received - 0x8E (142)");
}

TEST_F(Dispatch, ReportsABadSequenceNumberAndGoesOn)
{
    tcMessage first(0x68, {}, 200);
    mCamera.Feed(first);
    mCamera.InitReqStackItem(eItemTrigger, 1);
    tcMessage message(0x7F, tcPayload().U32(1), 7);
    message->header.Checksum = 0xABCDEF;
    mCamera.CallBackParser(message.get(), false, true);
    EXPECT_EQ(mCamera.Errors(),
              std::vector<std::string>{"CallBackParser BAD SEQNO - ID = 7F, Seq_No = 7, last_no = "
                                       "200, cksum = 0xABCDEF, length=4"});
    EXPECT_EQ(mCamera.numOpsPending(), 0);
}

TEST_F(Dispatch, ReportsABadChecksumAndDropsTheMessage)
{
    mCamera.InitReqStackItem(eItemTrigger, 1);
    tcMessage message(0x7F, tcPayload().U32(1), 7);
    message->header.Checksum = 0x00000A;
    mCamera.ForgetRecords();
    mCamera.CallBackParser(message.get(), true, false);
    EXPECT_EQ(mCamera.Records(),
              (std::vector<tsLogRecord>{
                  DebugRecord(4, "tcVXCamera::CallBackParser found msg id = 7F, Seq_No = 7"),
                  ErrorRecord(
                      "CallBackParser BAD CHKSUM - ID = 127, Seq_No = 7, cksum = 0xA, length=4")}));
    EXPECT_EQ(mCamera.numOpsPending(), 1);
}

TEST_F(Dispatch, ReportsBothSequenceAndChecksum)
{
    tcMessage message(0xC5, tcPayload().U32(1), 7);
    mCamera.CallBackParser(message.get(), false, false);
    ASSERT_EQ(mCamera.Errors().size(), 2U);
    EXPECT_EQ(mCamera.Errors()[0], "CallBackParser BAD SEQNO - ID = C5, Seq_No = 7, last_no = 0, "
                                   "cksum = 0x0, length=4");
}

TEST_F(Dispatch, DropsMessagesOfOtherInterfaceVersions)
{
    for (unsigned version : {0, 1, 2, 4, 255}) {
        mCamera.ForgetRecords();
        mCamera.InitReqStackItem(eItemTrigger, 1);
        tcMessage message(0x7F, tcPayload().U32(1));
        message->header.IDD = version & 0xFF;
        mCamera.Feed(message);
        EXPECT_EQ(mCamera.numOpsPending(), 1);
        EXPECT_EQ(mCamera.Errors(),
                  std::vector<std::string>{Format("CallbackParser IDD Error - Received 0x%02X, "
                                                  "Expected 0x%02X, Dropping Message.",
                                                  version, 3)});
        mCamera.WaitCompletion(0);
    }
}

TEST_F(Dispatch, KeepsTheSequenceNumberOfHandledMessagesOnly)
{
    tcMessage handled(0x66, tcPayload().Fill(16, 0), 50), badChecksum(0x68, {}, 51),
        badVersion(0x68, {}, 52), probe(0x68, {}, 53);
    mCamera.Feed(handled);
    mCamera.CallBackParser(badChecksum.get(), true, false);
    badVersion->header.IDD = 2;
    mCamera.Feed(badVersion);
    mCamera.ForgetRecords();
    mCamera.CallBackParser(probe.get(), false, true);
    ASSERT_EQ(mCamera.Errors().size(), 1U);
    EXPECT_NE(mCamera.Errors()[0].find("last_no = 50,"), std::string::npos);
}

TEST_F(Dispatch, ParserCallbackTakesGoodAndBadFramesAndIgnoresTheRest)
{
    tcMessage message(0x7F, tcPayload().U32(1));
    for (int status : {-4, -2, 1, 2}) {
        EXPECT_TRUE(tcVXCamera::DispatchCallbackParser(status, message.get(), 16, 0, &mCamera));
    }
    EXPECT_TRUE(mCamera.Records().empty());
    EXPECT_TRUE(tcVXCamera::DispatchCallbackParser(0, message.get(), 16, 0, &mCamera));
    EXPECT_EQ(mCamera.Records().size(), 2U);
    EXPECT_TRUE(mCamera.Errors().empty());
    EXPECT_TRUE(tcVXCamera::DispatchCallbackParser(-1, message.get(), 16, 0, &mCamera));
    ASSERT_EQ(mCamera.Errors().size(), 1U);
    EXPECT_EQ(mCamera.Errors()[0].rfind("CallBackParser BAD CHKSUM", 0), 0U);
}

TEST_F(Dispatch, FramesReachItThroughTheCamerasParserInAnyPieces)
{
    for (size_t piece : {1, 5, 12, 1000}) {
        mCamera.ForgetRecords();
        mCamera.InitReqStackItem(eItemTrigger, 1);
        mCamera.InitReqStackItem(eItemGPIO, 1);
        tBytes stream = tcMessage(0x7F, tcPayload().U32(1)).Bytes();
        const tBytes second = tcMessage(0x7E, tcPayload().U32(1)).Bytes();
        stream.insert(stream.end(), second.begin(), second.end());
        mCamera.FeedParser(stream, piece);
        EXPECT_EQ(mCamera.numOpsPending(), 0);
        EXPECT_TRUE(mCamera.Errors().empty());
    }
}

TEST_F(Dispatch, LargestFrameOfTheParserIsTaken)
{
    static int length;
    mCamera.SetUserDefinedCallback([](int, void*, int bytes) { length = bytes; });
    tBytes frame = tcMessage(0xC0, tcPayload().Ramp(16404)).Bytes();
    mCamera.FeedParser(frame, 4096);
    EXPECT_EQ(length, 16404);
    length = 0;
    const uint16_t longer = 16405;
    memcpy(frame.data() + 2, &longer, sizeof longer);
    frame.push_back(1);
    mCamera.FeedParser(frame, 4096);
    EXPECT_EQ(length, 0) << "a longer one is not";
}

// ---- Callbacks

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
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    }).join();
    mCamera.AnswerTo(0x59, 0x7F, tcPayload().U32(3));
    int value = 0;
    EXPECT_EQ(mCamera.GetTrigger(&value), 0) << "this thread is no receive thread any more";
}
