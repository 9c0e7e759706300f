// LOG over TCP: whose the consumers are that it replaces, and what lives on.
#include "debug_support.h"
#include "log_handler_support.h"

namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;

// Tells when it is deleted.
class tcMortal : public tcLogConsumer
{
public:
    explicit tcMortal(bool* deleted) : mpDeleted(deleted) { msDescription = "Mortal"; }
    ~tcMortal() override { *mpDeleted = true; }
    void Output(tcLogEvent const&) override {}
    char const* TypeName() const override { return "MORTAL"; }

private:
    bool* mpDeleted;
};

} // namespace

TEST_F(LogCommand, LeavesAnotherLoggerOfTheNameAlone)
{
    Tell("LOG:SET CAM 1 10");
    auto* kept = new char[sizeof(tcLog)]; // so that the next one gets another place
    delete &mLogger;
    tcLog second("CAM", 1);
    delete[] kept;
    ASSERT_NE(&second, DbgdWB_logPtr->FindLogInfoPtr("CAM")->log);
    tcLogBuffer own(33);
    second.SetConsumer(&own);
    Tell("LOG:SET CAM 5 20");
    EXPECT_EQ("CAM = 5 [33 Line Buffer]\n", Ask("LOG:GET CAM"));
    Tell("LOG:URI CAM buff://30");
    EXPECT_EQ("CAM = 5 [33 Line Buffer]\n", Ask("LOG:GET CAM"));
    Tell("LOG:URI CAM");
    EXPECT_EQ("CAM = 5 [33 Line Buffer]\n", Ask("LOG:GET CAM"));
    Tell("LOG:SET CAM 6");
    EXPECT_EQ("CAM = 6 [33 Line Buffer]\n", Ask("LOG:GET CAM"));
    second.SetConsumer(nullptr);
    Keep(new tcLog("CAM2", 1));
    Tell("LOG:SET CAM2 1 20");
    EXPECT_EQ("CAM2 = 1 [20 Line Buffer]\n", Ask("LOG:GET CAM2"));
}

TEST_F(LogCommand, NeverDeletesConsumersOfTheApplication)
{
    bool deleted = false;
    tcMortal own(&deleted);
    mLogger.SetConsumer(&own);
    Tell("LOG:SET CAM 1 10");
    Tell("LOG:URI CAM buff://10"); // forgets what the first one saved
    Tell("LOG:URI CAM");
    Tell("LOG:SET CAM 1");
    EXPECT_FALSE(deleted);
    mLogger.SetConsumer(nullptr);
}

// The application may do that: its logger refers to another one.
TEST_F(LogCommand, ForgetsASavedConsumerThatTheApplicationDestroys)
{
    for (const char* redirection : {"LOG:SET CAM 1 100", "LOG:URI CAM buff:100"}) {
        auto own = std::make_unique<tcLogBuffer>(7);
        mLogger.SetConsumer(own.get());
        Tell(redirection);
        EXPECT_EQ("100 Line Buffer", Description());
        own.reset();
        EXPECT_EQ(nullptr, DbgdWB_logPtr->FindLogInfoPtr("CAM")->savedConsumer);
        mLogger.logError("captured");
        EXPECT_THAT(Ask("LOG:DUMP CAM"), HasSubstr("captured"));
        Tell("LOG:SET CAM 1");
        EXPECT_EQ(tcLog::NullConsumer(), mLogger.GetConsumer());
        mLogger.logError("to nobody");
    }
}

TEST_F(LogCommand, ASecondRedirectionOverADestroyedConsumerEndsAtTheDefaultOne)
{
    auto own = std::make_unique<tcLogBuffer>(7);
    mLogger.SetConsumer(own.get());
    Tell("LOG:URI CAM buff:100");
    own.reset();
    Tell("LOG:URI CAM buff:200");
    Tell("LOG:SET CAM 1 300");
    EXPECT_EQ("300 Line Buffer", Description());
    Tell("LOG:SET CAM 1");
    EXPECT_EQ("200 Line Buffer", Description()); // what the file word replaced
    mLogger.SetConsumer(nullptr);
}

// Nothing of the destroyed one is left behind to keep a later one at its address in use.
TEST_F(LogCommand, KeepsNothingInUseForADestroyedConsumer)
{
    for (int i = 0; i < 50; ++i) {
        bool deleted = false;
        auto* own = new tcMortal(&deleted);
        mLogger.SetConsumer(own);
        Tell("LOG:SET CAM 1 100");
        if (i % 2 == 0) {
            delete own;
            Tell("LOG:SET CAM 1");
        } else {
            Tell("LOG:SET CAM 1");
            mLogger.SetConsumer(nullptr);
            tcLog::RetireConsumer(own);
            EXPECT_TRUE(deleted) << i;
        }
    }
}

TEST_F(LogCommand, ClosesConsumersOfTheLibraryThatItReplacesForGood)
{
    setenv("OWNED_LOGURI", "file://owned.log", 1);
    tcLog logger("OWNED", 1);
    EXPECT_EQ(1, OpenCount(Path("owned.log")));
    Tell("LOG:SET OWNED 1 10");
    EXPECT_EQ(1, OpenCount(Path("owned.log"))); // saved
    Tell("LOG:SET OWNED 1");
    logger.logDebug(1, "still here");
    EXPECT_THAT(ContentOf(Path("owned.log")), EndsWith("still here\n"));
    Tell("LOG:SET OWNED 1 10");
    Tell("LOG:URI OWNED buff://10"); // saves the buffer in its place
    EXPECT_EQ(0, OpenCount(Path("owned.log")));
}

TEST_F(LogCommand, KeepsAConsumerThatAnotherLoggerUses)
{
    tcLog other("OTHER", 1);
    Tell("LOG:SET CAM 1 " + Path("shared.log"));
    other.SetConsumer(mLogger.GetConsumer());
    Tell("LOG:SET CAM 1");
    other.logDebug(1, "still open");
    EXPECT_THAT(ContentOf(Path("shared.log")), EndsWith("still open\n"));
    other.SetConsumer(nullptr);
    EXPECT_EQ(0, OpenCount(Path("shared.log")));
}

TEST_F(LogCommand, SurvivesTheRedirectionOfAllLoggers)
{
    Tell("LOG:SET CAM 1 " + Path("file.log"));
    tcLog::RedirectAllLogs("buff://99");
    EXPECT_EQ("99 Line Buffer", Description());
    Tell("LOG:SET CAM 1 " + Path("again.log"));
    EXPECT_EQ(0, OpenCount(Path("file.log")));
    Tell("LOG:SET CAM 1");
    EXPECT_EQ("99 Line Buffer", Description());
    tcLog::RedirectAllLogs("null");
    EXPECT_EQ(0, OpenCount(Path("again.log")));
}
