#include "cameras/event_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace vxcam {

using testing::ElementsAre;

namespace {

void post(EventLog* log, const std::string& kind, size_t count)
{
    for (size_t i = 0; i < count; ++i) {
        log->post(kind);
    }
}

// Kinds and ids of the first ones behind `id`.
std::vector<std::string> after(const EventLog& log, uint64_t id, size_t most)
{
    std::vector<std::string> list;
    for (const LoggedEvent& event : log.after(id, {})) {
        if (list.size() < most) list.push_back(event.kind + " " + std::to_string(event.id));
    }
    return list;
}

} // namespace

TEST(EventLog, HeartbeatsAndFramesPushNothingElseOut)
{
    EventLog log;
    log.post("link-lost");
    post(&log, "heartbeat", 2000);
    post(&log, "exposure", 1);
    EXPECT_THAT(after(log, 0, 3), ElementsAre("link-lost 1", "heartbeat 1992", "heartbeat 1993"));
    EXPECT_EQ(log.after(0, {}).size(), 12U);
    EXPECT_EQ(log.after(0, {}).back().kind, "exposure");

    post(&log, "frame", 1500); // 2003 to 3502
    EXPECT_THAT(after(log, 0, 2), ElementsAre("link-lost 1", "heartbeat 1992"));
    EXPECT_EQ(log.after(0, {}).back().id, 3502U);
}

TEST(EventLog, WhatIsNotKeptAnyMoreIsToldInItsPlace)
{
    EventLog log;
    post(&log, "property", 1000);
    EXPECT_THAT(after(log, 0, 1), ElementsAre("property 1"));
    post(&log, "property", 3); // 1 to 3 are gone
    EXPECT_THAT(after(log, 0, 2), ElementsAre("forgotten 3", "property 4"));
    EXPECT_THAT(after(log, 2, 2), ElementsAre("forgotten 3", "property 4"));
    EXPECT_THAT(after(log, 3, 2), ElementsAre("property 4", "property 5"));

    const Json told = Json::parse(log.after(0, {}).front().text);
    EXPECT_EQ(told["id"], 3);
    EXPECT_EQ(told["event"], "forgotten");
    EXPECT_EQ(told["oldest"], 4);
    EXPECT_TRUE(told.contains("utc"));
    EXPECT_TRUE(told.contains("text"));
}

TEST(EventLog, EachSortTellsWhatItForgot)
{
    EventLog log;
    post(&log, "property", 2);
    post(&log, "frame", 1002); // 3 and 4 are gone
    EXPECT_THAT(after(log, 0, 4),
                ElementsAre("property 1", "property 2", "forgotten 4", "frame 5"));
    EXPECT_THAT(after(log, 2, 1), ElementsAre("forgotten 4"));
    EXPECT_THAT(after(log, 4, 1), ElementsAre("frame 5"));
}

} // namespace vxcam
