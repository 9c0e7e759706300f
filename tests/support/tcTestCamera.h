// A camera without a network, for tests: what it sends is recorded, what it receives is fed in.
#ifndef TCTESTCAMERA_H
#define TCTESTCAMERA_H

#include "tcLogConsumer.h"
#include "tcVXCamera.h"
#include "within.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using tBytes = std::vector<uint8_t>;

// Builds the bytes of a payload: tcPayload().U32(7).F32(1.5f).Take()
class tcPayload
{
public:
    tcPayload& U8(unsigned value) { return Raw(static_cast<uint8_t>(value)); }
    tcPayload& U16(unsigned value) { return Raw(static_cast<uint16_t>(value)); }
    tcPayload& U32(uint32_t value) { return Raw(value); }
    tcPayload& I32(int32_t value) { return Raw(value); }
    tcPayload& F32(float value) { return Raw(value); }
    tcPayload& Text(const std::string& text) // without a NUL
    {
        mBytes.insert(mBytes.end(), text.begin(), text.end());
        return *this;
    }
    tcPayload& Fill(size_t count, unsigned value)
    {
        mBytes.insert(mBytes.end(), count, static_cast<uint8_t>(value));
        return *this;
    }
    // `count` bytes that differ from their neighbours.
    tcPayload& Ramp(size_t count, unsigned first = 1)
    {
        for (size_t i = 0; i < count; ++i) {
            mBytes.push_back(static_cast<uint8_t>(first + i * 7));
        }
        return *this;
    }
    tBytes Take() const { return mBytes; }
    operator tBytes() const { return mBytes; }

private:
    template <class Value>
    tcPayload& Raw(Value value)
    {
        uint8_t bytes[sizeof value];
        memcpy(bytes, &value, sizeof value);
        mBytes.insert(mBytes.end(), bytes, bytes + sizeof value);
        return *this;
    }

    tBytes mBytes;
};

// One message as the camera sent it.
struct tsSentMessage {
    uint32_t id = 0;
    tsMsgHeader header{};
    tBytes payload;

    // A number at an offset of the payload; what the payload lacks reads as 0.
    template <class Value>
    Value At(size_t offset) const
    {
        Value value{};
        if (offset < payload.size()) {
            memcpy(&value, payload.data() + offset,
                   std::min(sizeof value, payload.size() - offset));
        }
        return value;
    }
    uint32_t Word(size_t index) const { return At<uint32_t>(index * 4); }
    uint16_t Short(size_t index) const { return At<uint16_t>(index * 2); }
};

// One record of the camera's logger.
struct tsLogRecord {
    tcLogEvent::teEventLogType type;
    int level; // of debug records
    std::string text;

    bool operator==(const tsLogRecord& other) const
    {
        return type == other.type && level == other.level && text == other.text;
    }
    friend std::ostream& operator<<(std::ostream& os, const tsLogRecord& record)
    {
        return os << (record.type == tcLogEvent::eError ? "error" : "debug") << record.level
                  << " \"" << record.text << '"';
    }
};
inline tsLogRecord ErrorRecord(const std::string& text)
{
    return {tcLogEvent::eError, 0, text};
}
inline tsLogRecord DebugRecord(int level, const std::string& text)
{
    return {tcLogEvent::eDebug, level, text};
}

// Keeps every record.
// Threads: any. Locks: one of its own.
class tcRecorder : public tcLogConsumer
{
public:
    void Output(tcLogEvent const& event) override
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mRecords.push_back({event.type, event.level, event.message});
    }
    char const* TypeName() const override { return "tcRecorder"; }

    std::vector<tsLogRecord> Records() const
    {
        std::lock_guard<std::mutex> lock(mMutex);
        return mRecords;
    }
    void Clear()
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mRecords.clear();
    }

private:
    mutable std::mutex mMutex;
    std::vector<tsLogRecord> mRecords;
};

// Bytes laid out as the parser hands them over: a header, the payload, and in the rest of the
// parser's buffer what earlier messages left there.
class tcMessage
{
public:
    tcMessage(uint32_t id, const tBytes& payload, uint8_t sequence = 1)
        : mpMessage(std::make_unique<tuCameraMessages>())
    {
        memset(mpMessage->bytes, 0xEE, sizeof mpMessage->bytes);
        tsMsgHeader& header = mpMessage->header;
        header = {};
        header.Magic = gnMessageMagic;
        header.Length = static_cast<uint16_t>(payload.size());
        header.SeqNo = sequence;
        header.IDD = gnInterfaceVersion;
        header.MsgId = id & 0xFFFFFF;
        if (!payload.empty()) {
            memcpy(mpMessage->bytes + gnHeaderBytes, payload.data(), payload.size());
        }
    }
    tuCameraMessages* operator->() { return mpMessage.get(); }
    tuCameraMessages* get() { return mpMessage.get(); }
    // Header and payload.
    tBytes Bytes() const
    {
        return {mpMessage->bytes, mpMessage->bytes + gnHeaderBytes + mpMessage->header.Length};
    }

private:
    std::unique_ptr<tuCameraMessages> mpMessage;
};

// The camera. Unless told otherwise it has no monitor thread: tests call MonitorStep().
//
// By default nothing answers. AnswerTo() answers one kind of command always alike; SetScript()
// runs code for each message sent. Both run inside SendMessage, so on the sending thread.
//
// Threads: every operation may be called from any thread.
class tcTestCamera : public tcVXCamera
{
public:
    using tScript = std::function<void(const tsSentMessage& sent)>;

    explicit tcTestCamera(teMonitor monitor = teMonitor::eManual) : tcVXCamera(Quietly(monitor))
    {
        mLog.SetConsumer(&mRecorder);
        mLog.setDbgLevel(1000);
    }
    ~tcTestCamera() override
    {
        StopMonitor();
        mLog.CloseLog();
    }

    // ---- What the camera sends ---------------------------------------------------------------
    int SendMessage(tsMsgHeader* frame) override
    {
        tsSentMessage sent;
        tScript script;
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mpParser->PrepareOutput(frame);
            const auto* bytes = reinterpret_cast<const uint8_t*>(frame) + gnHeaderBytes;
            sent = {frame->MsgId, *frame, tBytes(bytes, bytes + frame->Length)};
            ++mnAttempts;
            if (mbRefusing) return -1;
            mSent.push_back(sent);
            script = mScript;
        }
        if (script) script(sent);
        Reply(sent.id);
        return 0;
    }
    // From now on every send fails with -1 and is not recorded.
    void RefuseToSend(bool refuse)
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mbRefusing = refuse;
    }
    // Called for every message sent, before AnswerTo's answer. Null for none.
    void SetScript(tScript script)
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mScript = std::move(script);
    }
    // Every command `id` is answered with this message.
    void AnswerTo(uint32_t id, uint32_t answerId, const tBytes& payload)
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mAnswers[id] = {answerId, payload};
    }
    std::vector<tsSentMessage> Sent() const
    {
        std::lock_guard<std::mutex> lock(mMutex);
        return mSent;
    }
    size_t SentCount() const { return Sent().size(); }
    // Also counts the sends refused.
    size_t SendAttempts() const
    {
        std::lock_guard<std::mutex> lock(mMutex);
        return mnAttempts;
    }
    // The last message; id 0 when there is none.
    tsSentMessage LastSent() const
    {
        std::lock_guard<std::mutex> lock(mMutex);
        return mSent.empty() ? tsSentMessage() : mSent.back();
    }
    void ForgetSent()
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mSent.clear();
    }

    // ---- What the camera receives ------------------------------------------------------------
    // One message, dispatched on the calling thread, which for so long is the receive thread.
    void Feed(uint32_t id, const tBytes& payload)
    {
        tcMessage message(id, payload, NextSequence());
        Feed(message);
    }
    void Feed(tcMessage& message) { CallBackParser(message.get(), true, true); }
    // The same bytes through the parser, in pieces of `piece` bytes.
    void FeedParser(const tBytes& bytes, size_t piece)
    {
        tBytes copy = bytes;
        for (size_t at = 0; at < copy.size(); at += piece) {
            mpParser->AddData(copy.data() + at,
                              static_cast<int>(std::min(piece, copy.size() - at)));
        }
    }
    // As the handshake does it, without a message sent: sensor rows and columns.
    void TellGeometry(uint16_t rows, uint16_t columns)
    {
        InitReqStackItem(eItemHardware, 1);
        Feed(ansHardware.id, HardwareBytes(rows, columns));
    }
    static tBytes HardwareBytes(uint16_t rows, uint16_t columns)
    {
        TVXCameraHardware info{};
        info.Rows = rows;
        info.Columns = columns;
        const auto* bytes = reinterpret_cast<const uint8_t*>(&info);
        return {bytes, bytes + sizeof info};
    }
    // `steps` ticks of the monitor, 100 ms each in the camera's eyes.
    void Tick(int steps = 1)
    {
        for (int i = 0; i < steps; ++i) {
            MonitorStep();
        }
    }

    // ---- What the camera logs ----------------------------------------------------------------
    std::vector<tsLogRecord> Records() const { return mRecorder.Records(); }
    void ForgetRecords() { mRecorder.Clear(); }
    size_t Count(const tsLogRecord& record) const
    {
        const auto records = Records();
        return static_cast<size_t>(std::count(records.begin(), records.end(), record));
    }
    bool Logged(const tsLogRecord& record) const { return Count(record) != 0; }
    std::vector<std::string> Errors() const
    {
        std::vector<std::string> errors;
        for (const tsLogRecord& record : Records()) {
            if (record.type == tcLogEvent::eError) errors.push_back(record.text);
        }
        return errors;
    }
    tcLog& Log() { return mLog; }

private:
    // Error records belong in the recorder, not between the tests' own output.
    static teMonitor Quietly(teMonitor monitor)
    {
        setenv("TCLOG_SUPPRESS_ERR_CONSOLE", "1", 1);
        return monitor;
    }
    uint8_t NextSequence()
    {
        std::lock_guard<std::mutex> lock(mMutex);
        return mnSequence++;
    }
    void Reply(uint32_t id)
    {
        std::pair<uint32_t, tBytes> answer;
        {
            std::lock_guard<std::mutex> lock(mMutex);
            auto found = mAnswers.find(id);
            if (found == mAnswers.end()) return;
            answer = found->second;
        }
        Feed(answer.first, answer.second);
    }

    tcRecorder mRecorder;
    mutable std::mutex mMutex; // guards everything below; not held while answering
    std::vector<tsSentMessage> mSent;
    std::map<uint32_t, std::pair<uint32_t, tBytes>> mAnswers;
    tScript mScript;
    size_t mnAttempts = 0;
    bool mbRefusing = false;
    uint8_t mnSequence = 0;
};

// True as soon as `condition` holds; false when it does not within the limit.
template <class Condition>
bool Eventually(Condition condition,
                std::chrono::milliseconds limit = Within(std::chrono::seconds(20)))
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// A thread that runs what it is given, in order: in tests, the camera's receive thread.
class tcWorker
{
public:
    tcWorker() : mThread([this] { Run(); }) {}
    // Runs what is left first.
    ~tcWorker()
    {
        Post(nullptr);
        mThread.join();
    }
    tcWorker(const tcWorker&) = delete;
    tcWorker& operator=(const tcWorker&) = delete;

    void Post(std::function<void()> work)
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mWork.push_back(std::move(work));
        mCondition.notify_one();
    }

private:
    void Run()
    {
        for (;;) {
            std::function<void()> work;
            {
                std::unique_lock<std::mutex> lock(mMutex);
                mCondition.wait(lock, [this] { return !mWork.empty(); });
                work = std::move(mWork.front());
                mWork.pop_front();
            }
            if (!work) return;
            work();
        }
    }

    std::mutex mMutex;
    std::condition_variable mCondition;
    std::deque<std::function<void()>> mWork;
    std::thread mThread;
};

#endif
