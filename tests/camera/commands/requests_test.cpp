// Requests: how they are armed and how they time out.
#include "requests_support.h"
#include "tcTestCamera.h"
#include "vxcamiface.h"

#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <thread>

namespace {

// Ticks until nothing is pending; how many that took.
int TicksUntilIdle(tcTestCamera& camera, int most)
{
    for (int ticks = 0; ticks < most; ++ticks) {
        if (camera.numOpsPending() == 0) return ticks;
        camera.Tick();
    }
    return most;
}

} // namespace

// ---- Arming

TEST(RequestItem, CanBeArmedOnceUntilItIsAnswered)
{
    tcTestCamera camera;
    EXPECT_EQ(camera.InitReqStackItem(eItemTrigger, 1), 0);
    EXPECT_EQ(camera.InitReqStackItem(eItemTrigger, 1), -1);
    camera.Feed(0x7F, tcPayload().U32(1));
    EXPECT_EQ(camera.InitReqStackItem(eItemTrigger, 1), 0);
}

TEST(RequestItem, CountsSeveralAnswers)
{
    tcTestCamera camera;
    EXPECT_EQ(camera.InitReqStackItem(eItemTrigger, 3), 0);
    EXPECT_EQ(camera.numOpsPending(), 3);
    camera.Feed(0x7F, tcPayload().U32(1));
    EXPECT_EQ(camera.numOpsPending(), 2);
    EXPECT_EQ(camera.InitReqStackItem(eItemTrigger, 1), -1);
}

TEST(RequestItem, OutsideTheStackIsRefused)
{
    tcTestCamera camera;
    EXPECT_EQ(camera.InitReqStackItem(-1, 1), -1);
    EXPECT_EQ(camera.InitReqStackItem(35, 1), -1);
    EXPECT_EQ(camera.InitReqStackItem(INT_MAX, 1), -1);
    EXPECT_EQ(camera.numOpsPending(), 0);
    auto message = TriggerRequest();
    EXPECT_EQ(camera.SendAndWait(message.get(), 35, nullptr, nullptr, 1), -1);
    EXPECT_EQ(camera.SentCount(), 0U);
}

TEST(RequestItem, EveryItemStartsIdleAndCanBeArmed)
{
    tcTestCamera camera;
    EXPECT_EQ(camera.numOpsPending(), 0);
    for (int item = 0; item < 35; ++item) {
        EXPECT_EQ(camera.InitReqStackItem(item, 1), 0) << item;
    }
    EXPECT_EQ(camera.numOpsPending(), 35);
}

TEST(RequestItem, PendingOnesAreLoggedWithTheirNumberAndCount)
{
    tcTestCamera camera;
    camera.InitReqStackItem(eItemTrigger, 2);
    camera.InitReqStackItem(eItemCooling, 1);
    camera.ForgetRecords();
    EXPECT_EQ(camera.numOpsPending(), 3);
    EXPECT_EQ(camera.Records(),
              (std::vector<tsLogRecord>{DebugRecord(21, "Command 1 has 1 requests pending"),
                                        DebugRecord(21, "Command 22 has 2 requests pending")}));
}

// ---- Time-outs

TEST(RequestTimeout, EveryItemEndsAfterItsTime)
{
    for (int item = 0; item < gnItems; ++item) {
        int want = 200; // ticks
        if (item <= 5 || item == 10 || item == 14 || item == 15 || (item >= 19 && item <= 28) ||
            item >= 30) {
            want = 100;
        }
        if (item == 11 || item == 12) want = 50;
        if (item == 13) want = 30;
        tcTestCamera camera;
        camera.InitReqStackItem(item, 1);
        EXPECT_EQ(TicksUntilIdle(camera, 1000), want) << item;
    }
}

TEST(RequestTimeout, OfImagesGrowsWithTheExposureHoweverItIsLearnt)
{
    for (int item : {6, 7, 29}) {
        tcTestCamera camera;
        camera.SetExposure(5000);
        camera.InitReqStackItem(item, 1);
        EXPECT_EQ(TicksUntilIdle(camera, 1000), 250) << item;
        camera.SetExposureEx(1000);
        camera.InitReqStackItem(item, 1);
        EXPECT_EQ(TicksUntilIdle(camera, 1000), 210) << item;
        camera.Feed(0x60, tcPayload().U32(3000));
        camera.InitReqStackItem(item, 1);
        EXPECT_EQ(TicksUntilIdle(camera, 1000), 230) << item;
    }
}

TEST(RequestTimeout, SurvivesAbsurdExposures)
{
    tcTestCamera camera;
    camera.SetExposure(LONG_MAX);
    camera.InitReqStackItem(6, 1);
    camera.Tick(2000);
    EXPECT_EQ(camera.numOpsPending(), 1);
    camera.AbortRead();
    camera.SetExposure(LONG_MIN);
    camera.InitReqStackItem(6, 1);
    EXPECT_EQ(TicksUntilIdle(camera, 1000), 200);
}

TEST(RequestTimeout, OfImagesIsTheOverrideWhenThereIsOne)
{
    for (int item : {6, 7, 29}) {
        tcTestCamera camera;
        camera.SetExposure(5000);
        EXPECT_EQ(camera.OverrideImageTimout(700), 0);
        camera.InitReqStackItem(item, 1);
        EXPECT_EQ(TicksUntilIdle(camera, 1000), 7) << item;
        camera.OverrideImageTimout(0);
        camera.InitReqStackItem(item, 1);
        EXPECT_EQ(TicksUntilIdle(camera, 1000), 250) << item;
    }
}

TEST(RequestTimeout, OfAnOverrideOf150TakesTwoTicks)
{
    tcTestCamera camera;
    camera.OverrideImageTimout(150);
    camera.InitReqStackItem(6, 1);
    camera.Tick();
    EXPECT_EQ(camera.numOpsPending(), 1);
    camera.Tick();
    EXPECT_EQ(camera.numOpsPending(), 0);
}

TEST(RequestTimeout, ANegativeOverrideMeansNone)
{
    for (int item : {6, 7, 29}) {
        tcTestCamera camera;
        camera.OverrideImageTimout(-1);
        camera.InitReqStackItem(item, 1);
        camera.Tick(36000); // one hour
        EXPECT_EQ(camera.numOpsPending(), 1) << item;
    }
}

TEST(RequestTimeout, OverrideDoesNotConcernOtherItems)
{
    tcTestCamera camera;
    camera.OverrideImageTimout(100);
    camera.InitReqStackItem(eItemTrigger, 1);
    EXPECT_EQ(TicksUntilIdle(camera, 1000), 100);
}

TEST(RequestTimeout, IsAnErrorRecordWithTheItemInHexadecimal)
{
    tcTestCamera camera;
    camera.InitReqStackItem(eItemTrigger, 1);
    camera.Tick(100);
    EXPECT_EQ(camera.Errors(),
              std::vector<std::string>{"tcVXCamera::MonitorStack Timing Out ID 16"});
    camera.Tick(100);
    EXPECT_EQ(camera.Errors().size(), 1U);
}

TEST(RequestTimeout, OfSeveralAnswersDrainsOneEveryTickWhileRealAnswersCountToo)
{
    tcTestCamera camera;
    camera.InitReqStackItem(eItemLinkTest, 10000);
    camera.Tick(29);
    EXPECT_EQ(camera.numOpsPending(), 10000);
    camera.Tick();
    EXPECT_EQ(camera.numOpsPending(), 9999);
    camera.Tick();
    EXPECT_EQ(camera.numOpsPending(), 9998);
    camera.Feed(0x74, tcPayload().Fill(12, 0));
    EXPECT_EQ(camera.numOpsPending(), 9997);
    camera.Tick(10);
    EXPECT_EQ(camera.numOpsPending(), 9987);
}

TEST(RequestTimeout, AnAnswerInTimeIsNotTimedOut)
{
    tcTestCamera camera;
    camera.InitReqStackItem(eItemTrigger, 1);
    camera.Tick(99);
    camera.Feed(0x7F, tcPayload().U32(1));
    camera.Tick(200);
    EXPECT_TRUE(camera.Errors().empty());
    EXPECT_EQ(camera.numOpsPending(), 0);
}

// ---- Everything at once

TEST(Requests, RunBesideEachOther)
{
    tcTestCamera camera(tcVXCamera::teMonitor::eRun);
    tcWorker receiver;
    camera.SetScript([&](const tsSentMessage& sent) {
        const tsCommandRow* row = FindCommand(sent.id);
        if (row == nullptr || row->answer == nullptr || row->answer->delivery == eEvent) return;
        const uint32_t id = row->answer->id;
        receiver.Post([&camera, id] { camera.Feed(id, tcPayload().Fill(2100, 1)); });
    });
    std::atomic<int> failures{0};
    auto repeat = [&](auto operation) {
        return std::thread([&failures, operation] {
            for (int i = 0; i < 150; ++i) {
                if (operation() != 0) ++failures;
            }
        });
    };
    std::vector<std::thread> threads;
    threads.push_back(repeat([&] {
        long value = 0;
        return camera.GetExposureTime(&value);
    }));
    threads.push_back(repeat([&] {
        int value = 0;
        return camera.GetTrigger(&value);
    }));
    threads.push_back(repeat([&] {
        unsigned char table[2048];
        int size = sizeof table;
        return camera.GetBinParam(1, table, &size);
    }));
    threads.push_back(repeat([&] { return camera.SetExposure(12); }));
    threads.push_back(repeat([&] { return camera.EnableNoOps(10, 10); }));
    threads.push_back(repeat([&] { return camera.numOpsPending() < 0; }));
    threads.push_back(repeat([&] {
        unsigned frame = 0;
        camera.PercentComplete(&frame);
        camera.OverrideImageTimout(30000);
        return camera.SetHeartBeatCallback(nullptr);
    }));
    for (int i = 0; i < 100; ++i) {
        camera.ReadCCDArea(nullptr, 1, 0);
        receiver.Post([&camera] {
            camera.Feed(0x66, tcPayload().U8(0).U8(1).U16(1).U16(1).Fill(10, 0));
            camera.Feed(0x69, tcPayload().Fill(6, 1));
        });
        camera.AbortRead();
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failures, 0);
}
