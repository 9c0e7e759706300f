// Answers: where each goes, and to whom.
#include "dispatch_support.h"
#include "tcTestCamera.h"

#include <gtest/gtest.h>

#include <climits>

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
