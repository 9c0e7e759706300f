// What the tests of the link share: the log with times, and a camera opened against the scripted
// one.
#ifndef LINK_SUPPORT_H
#define LINK_SUPPORT_H

#include "tcLogConsumer.h"
#include "tcScriptedCamera.h"
#include "tcVXCamera_Ethernet.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

using std::chrono::milliseconds;
using std::chrono::steady_clock;

inline int ElapsedMs(steady_clock::time_point start)
{
    using std::chrono::duration_cast;
    return static_cast<int>(duration_cast<milliseconds>(steady_clock::now() - start).count());
}

inline int IntOption(int descriptor, int level, int name)
{
    int value = 0;
    socklen_t size = sizeof value;
    EXPECT_EQ(0, getsockopt(descriptor, level, name, &value, &size));
    return value;
}

// ms that closing a camera may take, in every state: half a second, and what a busy machine adds.
// What it may not wait for, an answer or a send, takes seconds.
inline constexpr int gnCloseLimit = Within(900);

// Keeps every record with the time at which it came.
// Threads: any. Locks: one of its own.
class tcTimedLog : public tcLogConsumer
{
public:
    struct tsRecord {
        tcLogEvent::teEventLogType type;
        int level;
        std::string text;
        steady_clock::time_point time;
    };

    void Output(tcLogEvent const& event) override
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mRecords.push_back({event.type, event.level, event.message, steady_clock::now()});
    }
    char const* TypeName() const override { return "tcTimedLog"; }

    void Clear()
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mRecords.clear();
    }

    // The records of a kind and level whose text begins so.
    std::vector<tsRecord> Find(tcLogEvent::teEventLogType type, int level,
                               const std::string& start) const
    {
        std::lock_guard<std::mutex> lock(mMutex);
        std::vector<tsRecord> found;
        std::copy_if(mRecords.begin(), mRecords.end(), std::back_inserter(found),
                     [&](const tsRecord& record) {
                         return record.type == type && record.level == level &&
                                record.text.compare(0, start.size(), start) == 0;
                     });
        return found;
    }
    std::vector<tsRecord> Errors(const std::string& start = "") const
    {
        return Find(tcLogEvent::eError, 0, start);
    }
    std::vector<tsRecord> Debug(int level, const std::string& start = "") const
    {
        return Find(tcLogEvent::eDebug, level, start);
    }
    // Waits until that many records of the kind have come.
    bool AwaitDebug(int level, const std::string& start, size_t count = 1) const
    {
        return WaitUntil([&] { return Debug(level, start).size() >= count; });
    }
    bool AwaitErrors(const std::string& start, size_t count = 1) const
    {
        return WaitUntil([&] { return Errors(start).size() >= count; });
    }

private:
    mutable std::mutex mMutex;
    std::vector<tsRecord> mRecords;
};

inline std::vector<std::string> Texts(const std::vector<tcTimedLog::tsRecord>& records)
{
    std::vector<std::string> texts;
    for (const auto& record : records)
        texts.push_back(record.text);
    return texts;
}

// The log of all cameras that are made after the first call, from their first record on. It is
// never destroyed, as loggers may still refer to it.
inline tcTimedLog& CameraLog(int level = 15)
{
    static tcTimedLog* log = new tcTimedLog;
    tcLog::mpDefaultConsumer = log;
    const std::string name = "VXCAM" + std::to_string(tcVXCamera::gnCameraCount + 1);
    setenv((name + "_DEBUGLEVEL").c_str(), std::to_string(level).c_str(), 1);
    return *log;
}

// The whole user-defined messages that cameras received.
class tcReceivedMessages
{
public:
    static void Callback(int, void* message, int length)
    {
        tcReceivedMessages& self = Instance();
        std::lock_guard<std::mutex> lock(self.mMutex);
        self.mMessages.emplace_back(static_cast<const char*>(message),
                                    static_cast<size_t>(length) + 12);
    }
    static std::vector<std::string> All()
    {
        std::lock_guard<std::mutex> lock(Instance().mMutex);
        return Instance().mMessages;
    }
    static bool Await(size_t count)
    {
        return WaitUntil([&] { return All().size() >= count; });
    }
    static void Clear()
    {
        std::lock_guard<std::mutex> lock(Instance().mMutex);
        Instance().mMessages.clear();
    }

private:
    static tcReceivedMessages& Instance()
    {
        static tcReceivedMessages instance;
        return instance;
    }
    std::mutex mMutex;
    std::vector<std::string> mMessages;
};

inline constexpr uint32_t gnUserId = 0xC5; // some user-defined message

// Plays the camera's part of the opening handshake.
inline bool ShakeHands(tcScriptedCamera& peer, uint16_t rows = 16, uint16_t columns = 32)
{
    return peer.Accept() && IdOf(peer.ReadMessage()) == 0x5D && IdOf(peer.ReadMessage()) == 0x34 &&
           peer.Send(HardwareAnswer(rows, columns));
}

// A camera against the scripted one.
class Link : public testing::Test
{
protected:
    Link() : log(CameraLog())
    {
        log.Clear();
        tcReceivedMessages::Clear();
        camera = std::make_unique<tcVXCamera_Ethernet>("127.0.0.1", peer.Port());
        camera->SetUserDefinedCallback(tcReceivedMessages::Callback);
    }

    void Open()
    {
        auto opened = std::async(std::launch::async, [this] { return camera->Initialize(); });
        ASSERT_TRUE(ShakeHands(peer));
        ASSERT_NE(0, opened.get());
    }

    // Sends a message and waits until the camera has dispatched it, and all that came before.
    void Synchronise()
    {
        const size_t before = tcReceivedMessages::All().size();
        ASSERT_TRUE(peer.Send(MessageBytes(gnUserId, "synchronise")));
        ASSERT_TRUE(tcReceivedMessages::Await(before + 1));
    }

    // Closes the camera and tells how many milliseconds that took.
    int CloseCamera()
    {
        const auto start = steady_clock::now();
        camera.reset();
        return ElapsedMs(start);
    }

    bool AwaitReconnecting(size_t count)
    {
        return log.AwaitDebug(1, "tcVXCamera_Ethernet::MonitorThread reconnecting", count);
    }

    tcTimedLog& log;
    tcScriptedCamera peer;
    std::unique_ptr<tcVXCamera_Ethernet> camera;
};

#endif
