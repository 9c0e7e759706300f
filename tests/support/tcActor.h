// A scripted camera that answers by itself.
#ifndef TCACTOR_H
#define TCACTOR_H

#include "tcScriptedCamera.h"

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <thread>

// A camera that answers each message with the bytes laid down for its id, and is silent otherwise.
// Who connects later is served instead of who did before.
// Knows a sensor of 8 columns and 4 rows and an exposure of 5 ms from the start.
//
// Threads: answers on one of its own until it is destroyed; Saw on any.
class tcActor
{
public:
    explicit tcActor(std::map<uint32_t, std::string> answers = {})
    {
        maAnswers = {{0x34, HardwareAnswer(4, 8)}, {0x30, MessageBytes(0x60, LittleEndian(5, 4))}};
        for (auto& [id, bytes] : answers) {
            maAnswers[id] = bytes;
        }
        mThread = std::thread([this] { Act(); });
    }
    ~tcActor()
    {
        mbStop = true;
        mThread.join();
    }
    tcActor(const tcActor&) = delete;
    tcActor& operator=(const tcActor&) = delete;

    uint16_t Port() const { return mCamera.Port(); }
    std::string Target() const { return "127.0.0.1:" + std::to_string(mCamera.Port()); }
    bool Saw(uint32_t id) const { return maSeen[id & 0xFF]; }
    // Of the last message with that id, what follows its header.
    std::string Payload(uint32_t id)
    {
        std::lock_guard<std::mutex> lock(mLock);
        return maPayloads[id];
    }

private:
    void Act()
    {
        constexpr std::chrono::milliseconds step(20);
        while (!mbStop && !mCamera.Accept(step)) {
        }
        std::string bytes;
        while (!mbStop) {
            bytes += mCamera.Read(1, step);
            if (bytes.empty() && mCamera.Accept(std::chrono::milliseconds(0))) continue;
            if (bytes.empty() || !IsWhole(bytes)) continue;
            const uint32_t id = IdOf(bytes);
            {
                std::lock_guard<std::mutex> lock(mLock);
                maPayloads[id] = bytes.substr(12);
            }
            bytes.clear();
            maSeen[id & 0xFF] = true;
            auto answer = maAnswers.find(id);
            if (answer != maAnswers.end()) mCamera.Send(answer->second);
        }
    }
    static bool IsWhole(const std::string& bytes)
    {
        if (bytes.size() < 12) return false;
        const auto* raw = reinterpret_cast<const uint8_t*>(bytes.data());
        return bytes.size() == 12u + (raw[2] | raw[3] << 8);
    }

    tcScriptedCamera mCamera;
    std::map<uint32_t, std::string> maAnswers;
    std::atomic<bool> maSeen[256] = {};
    std::mutex mLock; // of maPayloads
    std::map<uint32_t, std::string> maPayloads;
    std::atomic<bool> mbStop{false};
    std::thread mThread;
};

#endif
