// A camera that can lose its connection, and be slow or silent on the next one.
#ifndef BREAKING_CAMERA_H
#define BREAKING_CAMERA_H

#include "tcScriptedCamera.h"

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace vxcam {

inline constexpr uint32_t kSetExposure = 0x20, kGetExposure = 0x30, kExposure = 0x60;
inline constexpr uint32_t kGetHardware = 0x34, kGetCooling = 0x31;
inline constexpr uint8_t kFirstExposure = 10; // ms

inline std::string exposureAnswer(uint8_t milliseconds)
{
    return MessageBytes(kExposure, LittleEndian(milliseconds, 4));
}

// Has an exposure time, which is read and set. Its connection breaks when the test wants that.
//
// Threads: answers on one of its own until it is destroyed.
class BreakingCamera
{
public:
    // What it does with what it is asked on a connection that was made anew.
    struct Manners {
        size_t ignored = 0; // so many messages
        std::chrono::milliseconds pause{0};
        bool hangsUp = false; // at once
    };

    BreakingCamera() : thread_([this] { serve(); }) {}
    ~BreakingCamera()
    {
        isOver_ = true;
        thread_.join();
    }
    BreakingCamera(const BreakingCamera&) = delete;
    BreakingCamera& operator=(const BreakingCamera&) = delete;

    std::string place() const { return "127.0.0.1:" + std::to_string(wire_.Port()); }
    void breakOff(const std::string& lastBytes, const Manners& manners)
    {
        std::lock_guard<std::mutex> guard(lock_);
        manners_ = manners;
        lastBytes_ = lastBytes;
        asked_.clear();
        ignored_.clear();
        isBreakDue_ = true;
    }
    // Answers what it ignored, and ignores nothing any more.
    void wakeUp(std::chrono::milliseconds pause)
    {
        std::lock_guard<std::mutex> guard(lock_);
        manners_ = {0, pause, false};
        isAwake_ = true;
    }
    // The messages that came since then.
    std::vector<uint32_t> asked()
    {
        std::lock_guard<std::mutex> guard(lock_);
        return asked_;
    }

private:
    void serve()
    {
        constexpr std::chrono::milliseconds step(5);
        while (!isOver_) {
            if (isBreakDue_.exchange(false)) {
                wire_.SendPiece(lastBytes());
                wire_.Close();
                isNew_ = true;
            }
            if (isAwake_.exchange(false)) answerIgnored();
            const std::string message = wire_.ReadMessage(step);
            if (message.empty() && wire_.Accept(step) && hangsUp()) wire_.Close();
            if (!message.empty()) take(message);
        }
    }

    bool hangsUp()
    {
        std::lock_guard<std::mutex> guard(lock_);
        return isNew_ && manners_.hangsUp;
    }

    std::string lastBytes()
    {
        std::lock_guard<std::mutex> guard(lock_);
        return lastBytes_;
    }

    void take(const std::string& message)
    {
        std::unique_lock<std::mutex> guard(lock_);
        asked_.push_back(IdOf(message));
        const bool isIgnored = isNew_ && asked_.size() <= manners_.ignored;
        const auto pause = isNew_ ? manners_.pause : std::chrono::milliseconds(0);
        if (isIgnored) ignored_.push_back(message);
        guard.unlock();
        if (!isIgnored) answer(message, pause);
    }

    void answerIgnored()
    {
        std::unique_lock<std::mutex> guard(lock_);
        const std::vector<std::string> messages = std::move(ignored_);
        const auto pause = manners_.pause;
        guard.unlock();
        for (const std::string& message : messages) {
            answer(message, pause);
        }
    }

    void answer(const std::string& message, std::chrono::milliseconds pause)
    {
        std::this_thread::sleep_for(pause);
        if (IdOf(message) == kSetExposure) exposure_ = static_cast<uint8_t>(message.at(12));
        if (IdOf(message) == kGetExposure) wire_.Send(exposureAnswer(exposure_));
        if (IdOf(message) == kGetHardware) wire_.Send(HardwareAnswer(4, 8));
        if (IdOf(message) == kGetCooling) wire_.Send(MessageBytes(0x61, LittleEndian(1, 4)));
    }

    tcScriptedCamera wire_;
    uint8_t exposure_ = kFirstExposure;
    bool isNew_ = false; // the connection
    std::mutex lock_;
    std::vector<uint32_t> asked_;
    std::vector<std::string> ignored_;
    std::string lastBytes_;
    Manners manners_;
    std::atomic<bool> isBreakDue_{false}, isAwake_{false}, isOver_{false};
    std::thread thread_;
};

} // namespace vxcam

#endif
