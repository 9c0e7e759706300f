// What the debug daemon answers to LOG commands, and what it never does.
#include "logreplies.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

using testing::ElementsAre;
using testing::IsEmpty;

TEST(LogReplies, ListLoggersWithLevelConsumerAndDescription)
{
    const auto loggers = ParseLogList("CAM = 3 [200 Line Buffer] (Log object for CAM)\n"
                                      "a = b = -2 [UDP/txt to 1.2.3.4:5] (Log object for a = b)\n"
                                      "NONE = 0 (Log object for NONE)\n"
                                      "(x) [y] = 1 [logs/(a) [b].log] (Log object for (x) [y])\n");
    ASSERT_TRUE(loggers);
    ASSERT_EQ(loggers->size(), 4u);
    EXPECT_EQ((*loggers)[0].name, "CAM");
    EXPECT_EQ((*loggers)[0].level, 3);
    EXPECT_EQ((*loggers)[0].consumer, "200 Line Buffer");
    EXPECT_EQ((*loggers)[0].description, "Log object for CAM");
    EXPECT_EQ((*loggers)[1].name, "a = b");
    EXPECT_EQ((*loggers)[1].level, -2);
    EXPECT_EQ((*loggers)[2].name, "NONE");
    EXPECT_EQ((*loggers)[2].consumer, "");
    EXPECT_EQ((*loggers)[3].name, "(x) [y]");
    EXPECT_EQ((*loggers)[3].consumer, "logs/(a) [b].log");
}

TEST(LogReplies, AreRefusedWhenTheyAreNoLists)
{
    for (const char* reply :
         {"", "\n", "ERROR", "x\n", "CAM = 3 [x] (y)", "CAM = 3 [x]\n", "CAM = x [x] (y)\n",
          "CAM = 99999999999 [x] (y)\n", "HTTP/1.1 400 Bad Request\r\n\r\n", "CAM = 3x (y)\n"}) {
        EXPECT_FALSE(ParseLogList(reply)) << reply;
    }
}

TEST(LogReplies, TellTheLevelOfALogger)
{
    EXPECT_EQ(ParseLogLevel("CAM = -7 [NULL Log Device]\n")->level, -7);
    EXPECT_EQ(ParseLogLevel("CAM = -7 [NULL Log Device]\n")->consumer, "NULL Log Device");
    EXPECT_EQ(ParseLogLevel("CAM = 1\n")->consumer, "");
    for (const char* reply : {"", "ERROR", "CAM = 1", "CAM = \n", "CAM = 1 x\n", "CAM = 1 [\n"}) {
        EXPECT_FALSE(ParseLogLevel(reply)) << reply;
    }
}

TEST(LogReplies, TellTheSettingsOfAConsumer)
{
    const std::string reply = "CA,1,NULL (Log object for CA)\n"
                              "CAM,-1,UDP,10.0.0.5,10101,eth1 (Log object for CAM)\n"
                              "OTHER,1,UNK (Log object for OTHER)\n"
                              "SAME,1,FILE,a, b (Log object for SAME)\n";
    EXPECT_EQ(ParseLogConsumer(reply, "CAM")->kind, "UDP");
    EXPECT_THAT(ParseLogConsumer(reply, "CAM")->settings, ElementsAre("10.0.0.5", "10101", "eth1"));
    EXPECT_THAT(ParseLogConsumer(reply, "CA")->settings, IsEmpty());
    EXPECT_EQ(ParseLogConsumer(reply, "OTHER")->kind, "UNK");
    EXPECT_FALSE(ParseLogConsumer(reply, "C"));
    EXPECT_FALSE(ParseLogConsumer("CAM,x,UDP (Log object for CAM)\n", "CAM"));
    EXPECT_FALSE(ParseLogConsumer("", "CAM"));
}

TEST(LogReplies, TellErrorsOldestFirst)
{
    const std::string newer = "20240101-00:00:02.000:    TEST: ERR:newer",
                      older = "20240101-00:00:01.000:    TEST: ERR:older\nsecond line";
    EXPECT_THAT(*ParseLogErrors("    0\t" + newer + "\n\n    1\t" + older + "\n\n"),
                ElementsAre(older, newer));
    EXPECT_THAT(*ParseLogErrors("    0\t" + older + "\n\n    1\t" + newer + "\n\n"),
                ElementsAre(older, newer));
    EXPECT_THAT(*ParseLogErrors(""), IsEmpty());
    for (const char* reply : {"x", "    1\tsecond without a first\n", "\t\n", "ERROR", "0 x\n"}) {
        EXPECT_FALSE(ParseLogErrors(reply)) << reply;
    }
}

TEST(LogReplies, MayBeAnyBytes)
{
    std::mt19937 random(1);
    const std::string letters = " =[]()\n\t,-0123CAMx";
    for (int i = 0; i < 5000; ++i) {
        std::string reply(random() % 100, '\0');
        for (char& byte : reply) {
            byte = i % 2 == 0 ? letters[random() % letters.size()] : static_cast<char>(random());
        }
        ParseLogList(reply);
        ParseLogLevel(reply);
        ParseLogConsumer(reply, "C");
        ParseLogErrors(reply);
    }
}
