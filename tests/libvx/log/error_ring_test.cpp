#include "emit_support.h"
#include "log_support.h"
#include "record.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

// Starts with an empty ring, whichever tests ran before.
static void ClearRing()
{
    tcLog::CleanupClassScopeAllocation();
    tcLog::snErrorLogIndex = 0;
}

TEST(ErrorRing, KeepsLinesInSlots)
{
    const tcQuietErrors quiet;
    ClearRing();
    tcLog log("RING", 0);
    EXPECT_STREQ("", tcLog::LastErrorMessage());
    EXPECT_EQ("", tcLog::ErrorBuffer());
    log.logEvent("no error");
    EXPECT_STREQ("", tcLog::LastErrorMessage());

    log.logError("first");
    EXPECT_THAT(tcLog::LastErrorMessage(), EndsWith(":    RING: ERR:first\n"));
    log.logError("second");
    EXPECT_THAT(tcLog::LastErrorMessage(), EndsWith(":    RING: ERR:second\n"));
    EXPECT_EQ(2, tcLog::snErrorLogIndex);

    // Kept: the texts bring a newline of their own.
    const std::string expected =
        std::string("    0\t") + tcLog::saErrorMsgs[0] + "\n    1\t" + tcLog::saErrorMsgs[1] + "\n";
    EXPECT_EQ(expected, tcLog::ErrorBuffer());
    EXPECT_THAT(expected, EndsWith("ERR:second\n\n"));
}

TEST(ErrorRing, HasTheRecordBeforeItIsDelivered)
{
    class tcReader : public tcThrowing
    {
    public:
        void Output(tcLogEvent const& event) override
        {
            msSeen = tcLog::LastErrorMessage();
            tcThrowing::Output(event);
        }
        std::string msSeen;
    } reader;
    const tcQuietErrors quiet;
    tcLog log("BEFORE", 0);
    log.SetConsumer(&reader);
    CaptureStderr();
    log.logError("now");
    GetCapturedStderr();
    EXPECT_THAT(reader.msSeen, EndsWith(":  BEFORE: ERR:now\n"));
    log.SetConsumer(nullptr);
}

TEST(ErrorRing, CutsLinesAt255Characters)
{
    const tcQuietErrors quiet;
    tcLog log("RINGCUT", 0);
    log.logError("%s", std::string(400, 'x').c_str());
    EXPECT_EQ(255u, strlen(tcLog::LastErrorMessage()));
    EXPECT_THAT(tcLog::LastErrorMessage(), EndsWith("xxx"));
}

// Kept: right after going round the last message is that of slot 0.
TEST(ErrorRing, GoesRoundAfterAThousand)
{
    const tcQuietErrors quiet;
    ClearRing();
    tcLog log("ROUND", 0);
    for (int i = 0; i < 999; ++i)
        log.logError("n%d", i);
    EXPECT_THAT(tcLog::LastErrorMessage(), EndsWith("ERR:n998\n"));
    log.logError("n999");
    EXPECT_EQ(0, tcLog::snErrorLogIndex);
    EXPECT_THAT(tcLog::LastErrorMessage(), EndsWith("ERR:n0\n"));
    log.logError("n1000");
    EXPECT_THAT(tcLog::LastErrorMessage(), EndsWith("ERR:n1000\n"));
    EXPECT_THAT(tcLog::saErrorMsgs[0], EndsWith("ERR:n1000\n"));
    EXPECT_THAT(tcLog::ErrorBuffer(), HasSubstr("  999\t"));
}

TEST(ErrorRing, DumpsToFilesAndOtherwiseToStandardOutput)
{
    const tcQuietErrors quiet;
    tcLog log("DUMP", 0);
    log.logError("kept");
    const std::string path = testing::TempDir() + "ring" + std::to_string(getpid());
    for (int i = 0; i < 2; ++i) { // the second time truncates
        EXPECT_EQ(0, DumpErrorMsgs(path.c_str()));
        FILE* file = fopen(path.c_str(), "r");
        ASSERT_NE(nullptr, file);
        std::string text(100000, '\0');
        text.resize(fread(text.data(), 1, text.size(), file));
        fclose(file);
        EXPECT_EQ(tcLog::ErrorBuffer(), text);
    }
    remove(path.c_str());

    for (const char* bad : {static_cast<const char*>(nullptr), "/no/such/folder/file"}) {
        testing::internal::CaptureStdout();
        EXPECT_EQ(0, DumpErrorMsgs(bad));
        EXPECT_EQ(tcLog::ErrorBuffer(), testing::internal::GetCapturedStdout());
    }
}

TEST(ErrorRing, IsEmptyBeforeAnyLogger)
{
    tcLog::CleanupClassScopeAllocation();
    EXPECT_STREQ("", tcLog::LastErrorMessage());
    EXPECT_EQ("", tcLog::ErrorBuffer());
    testing::internal::CaptureStdout();
    DumpErrorMsgs(nullptr);
    EXPECT_EQ("", testing::internal::GetCapturedStdout());
}
