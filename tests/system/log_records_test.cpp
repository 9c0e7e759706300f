// The library's errors, told to the application in place of standard error.
#include "tcLog.h"
#include "vxcamext.h"
#include "vxcamiface.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

struct tsTold {
    std::string logger, text;
    int handle, number;
};

class tcTold
{
public:
    explicit tcTold(int answer) : mnAnswer(answer) {}

    static int Keep(const tsLoggedError* record, void* user)
    {
        EXPECT_EQ(sizeof *record, record->Size);
        EXPECT_GT(record->Time.Realtime, 0);
        EXPECT_GT(record->Time.Monotonic, 0);
        auto& self = *static_cast<tcTold*>(user);
        self.mvTold.push_back({record->Logger, record->Text, record->Handle, record->ErrorNumber});
        return self.mnAnswer;
    }
    const std::vector<tsTold>& Told() const { return mvTold; }
    std::vector<std::string> Texts() const
    {
        std::vector<std::string> texts;
        for (const tsTold& told : mvTold)
            texts.push_back(told.text);
        return texts;
    }

private:
    int mnAnswer;
    std::vector<tsTold> mvTold;
};

class LogRecords : public testing::Test
{
protected:
    LogRecords() { unsetenv("TCLOG_SUPPRESS_ERR_CONSOLE"); }
    ~LogRecords() override { VXSetLogCallback(nullptr, nullptr); }

    // A port that is taken, and on which nobody listens.
    static std::string OpenNothing()
    {
        const int taken = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in place{};
        place.sin_family = AF_INET;
        place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof place;
        EXPECT_EQ(0, bind(taken, reinterpret_cast<sockaddr*>(&place), size));
        EXPECT_EQ(0, getsockname(taken, reinterpret_cast<sockaddr*>(&place), &size));
        CaptureStderr();
        EXPECT_EQ(-1, VXOpenENetCamera("127.0.0.1", ntohs(place.sin_port)));
        close(taken);
        return GetCapturedStderr();
    }
};

} // namespace

TEST_F(LogRecords, TellWhatAFailingOpenLogsAndWhichCameraItIs)
{
    tcTold told(1);
    ASSERT_EQ(0, VXSetLogCallback(&tcTold::Keep, &told));
    EXPECT_EQ("", OpenNothing());
    EXPECT_THAT(told.Texts(), Contains(HasSubstr("could not connect")));
    for (const tsTold& one : told.Told()) {
        EXPECT_GE(one.handle, 0);
        EXPECT_EQ("VXCAM" + std::to_string(one.handle + 1), one.logger);
    }
}

TEST_F(LogRecords, HaveTheNumberOfTheSystemsError)
{
    tcTold told(1);
    ASSERT_EQ(0, VXSetLogCallback(&tcTold::Keep, &told));
    tcLog log("VXOTHER", 0);
    errno = ENOENT;
    log.logSystemError("looking for it");
    ASSERT_EQ(1u, told.Told().size());
    EXPECT_EQ(ENOENT, told.Told()[0].number);
    EXPECT_EQ(-1, told.Told()[0].handle);
    EXPECT_EQ("VXOTHER", told.Told()[0].logger);
    EXPECT_THAT(told.Told()[0].text, StartsWith("looking for it:"));
}

TEST_F(LogRecords, ArePrintedWhereTheCallbackDoesNotTakeThem)
{
    tcTold told(0);
    ASSERT_EQ(0, VXSetLogCallback(&tcTold::Keep, &told));
    EXPECT_THAT(OpenNothing(), HasSubstr("could not connect"));
    EXPECT_THAT(told.Texts(), Contains(HasSubstr("could not connect")));
}

TEST_F(LogRecords, ArePrintedAgainWithoutACallback)
{
    tcTold told(1);
    ASSERT_EQ(0, VXSetLogCallback(&tcTold::Keep, &told));
    ASSERT_EQ(0, VXSetLogCallback(nullptr, nullptr));
    EXPECT_THAT(OpenNothing(), HasSubstr("could not connect"));
    EXPECT_THAT(told.Told(), IsEmpty());
}

TEST_F(LogRecords, OfTheCallbackItselfArePrinted)
{
    const auto logs = [](const tsLoggedError*, void*) {
        tcLog("VXINNER", 0).logError("within");
        return VXSetLogCallback(nullptr, nullptr) + 1; // ends itself
    };
    ASSERT_EQ(0, VXSetLogCallback(logs, nullptr));
    tcLog log("VXOUTER", 0);
    CaptureStderr();
    log.logError("around");
    const std::string first = GetCapturedStderr();
    EXPECT_THAT(first, HasSubstr("within"));
    EXPECT_THAT(first, testing::Not(HasSubstr("around")));
    CaptureStderr();
    log.logError("behind");
    EXPECT_THAT(GetCapturedStderr(), HasSubstr("behind"));
}

TEST_F(LogRecords, ComeNoMoreWhenTheCallbackHasBeenReplaced)
{
    struct tsSide {
        std::atomic<bool> isCurrent{false};
        std::atomic<int> calls{0};
    } sides[2];
    const auto take = [](const tsLoggedError*, void* user) {
        tsSide& side = *static_cast<tsSide*>(user);
        EXPECT_TRUE(side.isCurrent);
        std::this_thread::yield();
        EXPECT_TRUE(side.isCurrent);
        ++side.calls;
        return 1;
    };
    std::atomic<bool> isOver{false};
    sides[0].isCurrent = true;
    ASSERT_EQ(0, VXSetLogCallback(take, &sides[0]));
    std::thread logging([&] {
        tcLog log("VXBUSY", 0);
        while (!isOver)
            log.logError("busy");
    });
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    const auto isEnough = [&] { return sides[0].calls > 200 && sides[1].calls > 200; };
    for (int i = 1; !isEnough() && std::chrono::steady_clock::now() < end; ++i) {
        sides[i % 2].isCurrent = true;
        EXPECT_EQ(0, VXSetLogCallback(take, &sides[i % 2]));
        sides[1 - i % 2].isCurrent = false;
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    isOver = true;
    logging.join();
    EXPECT_TRUE(isEnough());
}
