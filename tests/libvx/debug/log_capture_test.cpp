// LOG over TCP: records that go into buffers, files and URIs, and back.
#include "debug_support.h"
#include "log_handler_support.h"

#include <sstream>

namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;

} // namespace

TEST_F(LogCommand, CapturesIntoABufferAndDumpsIt)
{
    mLogger.logDebug(1, "too early");
    Tell("LOG:SET CAM 3 200");
    EXPECT_EQ("CAM = 3 [200 Line Buffer]\n", Ask("LOG:GET CAM"));
    EXPECT_EQ("", Ask("LOG:DUMP CAM"));
    mLogger.logDebug(3, "first");
    mLogger.logDebug(4, "not of this level");
    mLogger.logError("second");
    const char* line = "[0-9]+-[0-9]+:[0-9]+:[0-9]+\\.[0-9]+:     CAM:";
    EXPECT_THAT(Ask("LOG:DUMP CAM"),
                MatchesRegex(std::string(line) + "DBG3:first\n" + line + " ERR:second\n"));
    Tell("LOG:SET CAM 3");
    EXPECT_EQ("CAM = 3 [NULL Log Device]\n", Ask("LOG:GET CAM"));
    EXPECT_NE(nullptr, DbgdWB_logPtr->FindLogInfoPtr("CAM"));
    EXPECT_EQ("ERROR", Ask("LOG:DUMP CAM"));
}

TEST_F(LogCommand, DumpsOnlyWhatItRedirectedItself)
{
    tcDbgd::GetLog().setDbgLevel(5);
    tcLogBuffer buffer(10);
    mLogger.SetConsumer(&buffer);
    mLogger.logDebug(1, "text");
    EXPECT_EQ("ERROR", Ask("LOG:DUMP CAM"));
    EXPECT_TRUE(mLog.Has("5 tcDbgdWB_Log::Looking for log name CAM (3)"));
    EXPECT_EQ("ERROR", Ask("LOG:DUMP NOPE"));
    EXPECT_EQ("ERROR", Ask("LOG:DUMP"));
    EXPECT_EQ(nullptr, DbgdWB_logPtr->FindLogInfoPtr("CAM"));
    Tell("LOG:SET CAM 1 .");
    EXPECT_NE(nullptr, DbgdWB_logPtr->FindLogInfoPtr("CAM"));
    EXPECT_EQ("ERROR", Ask("LOG:DUMP CAM")); // a record without a consumer
    Tell("LOG:SET CAM 1 file.log");
    mLogger.logDebug(1, "text");
    EXPECT_EQ("", Ask("LOG:DUMP CAM")); // a consumer that stores nothing
    mLogger.SetConsumer(nullptr);
}

TEST_F(LogCommand, WritesToAFileAndClosesIt)
{
    tcLogBuffer buffer(10);
    mLogger.SetConsumer(&buffer);
    Tell("LOG:SET CAM 2 " + Path("cam.log") + " ignored");
    EXPECT_EQ(Path("cam.log"), Description());
    mLogger.logDebug(2, "into the file");
    EXPECT_EQ(1, OpenCount(Path("cam.log")));
    Tell("LOG:SET CAM 4");
    EXPECT_EQ(0, OpenCount(Path("cam.log")));
    EXPECT_EQ(4, mLogger.getDbgLevel());
    mLogger.logDebug(2, "into the buffer");
    EXPECT_THAT(ContentOf(Path("cam.log")), EndsWith(":     CAM:DBG2:into the file\n"));
    std::ostringstream text;
    text << buffer;
    EXPECT_THAT(text.str(), EndsWith("into the buffer\n"));
    Tell("LOG:SET CAM 5"); // nothing left to undo
    EXPECT_EQ("10 Line Buffer", Description());
    mLogger.SetConsumer(nullptr);
}

TEST_F(LogCommand, ShowsControlCharactersOfFileNames)
{
    const std::string name = Path("\x1b[2Jcam.log"), shown = Path("\\x1b[2Jcam.log");
    Tell("LOG:SET CAM 2 " + name);
    EXPECT_EQ("CAM = 2 [" + shown + "]\n", Ask("LOG:GET CAM"));
    EXPECT_THAT(Ask("LOG:DIR"), HasSubstr(shown));
    EXPECT_THAT(Ask("LOG:DIR"), Not(HasSubstr("\x1b")));
    Tell("LOG:SET CAM 2");
}

TEST_F(LogCommand, WritesToStandardOutput)
{
    Tell("LOG:SET CAM 2 -");
    EXPECT_THAT(Ask("LOG:DIR"), HasSubstr("CAM,2,STREAM,cout (Log object for CAM)\n"));
    ::testing::internal::CaptureStdout();
    mLogger.logDebug(2, "hello");
    EXPECT_THAT(::testing::internal::GetCapturedStdout(), EndsWith(":     CAM:DBG2:hello\n"));
    Tell("LOG:SET CAM 7 .");
    EXPECT_EQ("CAM = 7 [Log to a stream]\n", Ask("LOG:GET CAM"));
    Tell("LOG:SET CAM 7");
    EXPECT_EQ("NULL Log Device", Description());
}

TEST_F(LogCommand, ReadsAFileWordThatStartsWithANumberAsACount)
{
    Tell("LOG:SET CAM 1 200abc");
    EXPECT_EQ("200 Line Buffer", Description());
    Tell("LOG:SET CAM 1 0"); // a file of that name
    EXPECT_EQ("0", Description());
    Tell("LOG:SET CAM 1 x5");
    EXPECT_EQ("x5", Description());
    Tell("LOG:SET CAM 1 229824"); // of 292 bytes each: 64 MiB
    EXPECT_EQ("229824 Line Buffer", Description());
}

TEST_F(LogCommand, BuffersTakeMemoryAsRecordsCome)
{
    const long before = ResidentKiB();
    Tell("LOG:SET CAM 1 229824");
    EXPECT_LT(ResidentKiB() - before, 2000);
    const std::string text(250, 'x');
    for (int i = 0; i < 100000; ++i)
        mLogger.logDebug(1, "%s", text.c_str());
    EXPECT_GT(ResidentKiB() - before, 25000);
#if !defined(__SANITIZE_THREAD__) // which takes memory for each byte that is touched
    EXPECT_LT(ResidentKiB() - before, 45000);
#endif
}

TEST_F(LogCommand, RefusesBuffersOfNoOrTooManyLines)
{
    tcDbgd::GetLog().setDbgLevel(5);
    for (const char* count : {"229825", "1000000", "-1", "-200", "99999999999999999999"}) {
        Tell(std::string("LOG:SET CAM 6 ") + count);
        EXPECT_EQ("CAM = 6 [NULL Log Device]\n", Ask("LOG:GET CAM")) << count;
        EXPECT_TRUE(mLog.Has(std::string("5 tcDbgdWB_log::Set cannot make a buffer of ") + count +
                             " lines"));
    }
    EXPECT_THAT(std::filesystem::directory_iterator(msFolder) ==
                    std::filesystem::directory_iterator(),
                true);
    Tell("LOG:URI CAM buff://229825");
    EXPECT_EQ("NULL Log Device", Description());
}

TEST_F(LogCommand, ASecondFileTakesThePlaceOfTheFirst)
{
    tcLogBuffer original(10);
    mLogger.SetConsumer(&original);
    Tell("LOG:SET CAM 2 " + Path("first.log"));
    Tell("LOG:SET CAM 2 " + Path("second.log"));
    EXPECT_EQ(0, OpenCount(Path("first.log")));
    EXPECT_EQ(1, OpenCount(Path("second.log")));
    Tell("LOG:SET CAM 2 50");
    EXPECT_EQ(0, OpenCount(Path("second.log")));
    Tell("LOG:SET CAM 2");
    EXPECT_EQ(&original, mLogger.GetConsumer());
    mLogger.SetConsumer(nullptr);
}

TEST_F(LogCommand, RedirectsToAnyUri)
{
    tcDbgd::GetLog().setDbgLevel(5);
    tcLogBuffer original(10);
    mLogger.SetConsumer(&original);
    tcBound sink(SOCK_DGRAM);
    const std::string uri = "udp://127.0.0.1:" + std::to_string(sink.Port());
    ::testing::internal::CaptureStdout(); // datagram sockets say where they are bound
    Tell("LOG:URI CAM \t " + uri);
    ::testing::internal::GetCapturedStdout();
    EXPECT_TRUE(mLog.Has("5 tcDbgdWB_Log::Looking for log name CAM (3)"));
    EXPECT_TRUE(mLog.Has("5 tcDbgdWB_log::Set URI for CAM to " + uri));
    mLogger.logDebug(1, "by air");
    EXPECT_THAT(sink.Receive(), EndsWith(":     CAM:DBG1:by air\n"));
    Tell("LOG:URI CAM");
    EXPECT_EQ(&original, mLogger.GetConsumer());
    Tell("LOG:URI CAM  \t"); // nothing left to undo
    EXPECT_EQ(&original, mLogger.GetConsumer());
    EXPECT_EQ("ERROR", Ask("LOG:DUMP CAM"));
    Tell("LOG:URI NOPE buff://10");
    EXPECT_TRUE(mLog.Has("5 Log NOPE not found!"));
    Tell("LOG:URI");
    EXPECT_TRUE(mLog.Has("5 Log  not found!"));
    mLogger.SetConsumer(nullptr);
}

TEST_F(LogCommand, DumpsWhatAUriCaptured)
{
    Tell("LOG:URI CAM buff://3");
    for (int i = 1; i <= 5; ++i)
        mLogger.logDebug(1, "line %d", i);
    EXPECT_THAT(Ask("LOG:DUMP CAM"), MatchesRegex("[^\n]*:line 4\n[^\n]*:line 5\n[^\n]*:line 3\n"));
}

TEST_F(LogCommand, ASecondUriTakesThePlaceOfTheFirst)
{
    tcLogBuffer original(10);
    mLogger.SetConsumer(&original);
    Tell("LOG:URI CAM file://first.log");
    EXPECT_EQ(1, OpenCount(Path("first.log")));
    Tell("LOG:URI CAM file://second.log");
    EXPECT_EQ(0, OpenCount(Path("first.log")));
    EXPECT_EQ(1, OpenCount(Path("second.log")));
    Tell("LOG:URI CAM null");
    EXPECT_EQ(0, OpenCount(Path("second.log")));
    Tell("LOG:URI CAM nonsense");
    EXPECT_EQ("NULL Log Device", Description());
    Tell("LOG:URI CAM");
    EXPECT_EQ(&original, mLogger.GetConsumer());
    mLogger.SetConsumer(nullptr);
}

TEST_F(LogCommand, ClosesWhatAUriOpenedWhenThatIsUndone)
{
    Tell("LOG:URI CAM file://uri.log");
    EXPECT_EQ(1, OpenCount(Path("uri.log")));
    Tell("LOG:URI CAM");
    EXPECT_EQ(0, OpenCount(Path("uri.log")));
    Tell("LOG:URI CAM file://uri.log");
    Tell("LOG:SET CAM 1");
    EXPECT_EQ(0, OpenCount(Path("uri.log")));
}

TEST_F(LogCommand, AUriOverAFileSavesTheFile)
{
    Tell("LOG:SET CAM 1 " + Path("file.log"));
    Tell("LOG:URI CAM buff://10");
    EXPECT_EQ(1, OpenCount(Path("file.log")));
    Tell("LOG:URI CAM");
    EXPECT_EQ(Path("file.log"), Description());
    mLogger.logDebug(1, "text");
    EXPECT_THAT(ContentOf(Path("file.log")), EndsWith("text\n"));
}

TEST_F(LogCommand, AFileOverAUriSavesTheUri)
{
    Tell("LOG:URI CAM file://uri.log");
    Tell("LOG:SET CAM 1 " + Path("file.log"));
    EXPECT_EQ(1, OpenCount(Path("uri.log")));
    Tell("LOG:SET CAM 1");
    EXPECT_EQ(0, OpenCount(Path("file.log")));
    EXPECT_EQ("uri.log", Description());
    Tell("LOG:URI CAM buff://5"); // the second in a row
    EXPECT_EQ(0, OpenCount(Path("uri.log")));
    Tell("LOG:URI CAM");
    EXPECT_EQ("NULL Log Device", Description());
}
