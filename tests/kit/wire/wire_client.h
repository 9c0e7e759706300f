// An application with one camera after another, that notes all that it is told: what it does
// depends on a seed and on what it was told before, not on the clock.
#ifndef WIRE_CLIENT_H
#define WIRE_CLIENT_H

#include "wire/capture_body.h"

#include "vxcamiface.h"

#include <zlib.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace vxcam {

// What a client noted of one camera, from its opening to its closing.
struct Notes {
    uint8_t camera = 0;             // of the recording
    std::vector<std::string> done;  // what the client did, and what came of it
    std::vector<std::string> told;  // frames, errors, heartbeats, the link, in their order
    std::vector<std::string> error; // that were logged, sorted: threads log them
    tsStatistics books{};

    std::string text() const
    {
        std::string text;
        for (const auto* list : {&done, &told, &error}) {
            for (const std::string& line : *list) {
                text += line + "\n";
            }
        }
        const auto* figures = reinterpret_cast<const uint64_t*>(&books);
        for (size_t i = 0; i < sizeof books / sizeof *figures; ++i) {
            text += "figure " + std::to_string(i) + ": " + std::to_string(figures[i]) + "\n";
        }
        return text;
    }
};

class WireClient
{
public:
    // Where the next camera is; its number in the recording.
    using Places = std::function<uint16_t(uint8_t number)>;

    // One whose cameras are recorded, or, without a recording, are such as `before` tells.
    WireClient(uint64_t seed, int steps, Places places, WireCapture::Body* capture,
               const std::vector<Notes>* before)
        : random_(seed), steps_(steps), places_(std::move(places)), capture_(capture),
          before_(before), image_(kMostPixels)
    {}

    std::vector<Notes> run()
    {
        std::thread patience([this] { losePatience(); });
        for (int i = 0; i < steps_; ++i) {
            if (handle_ < 0 && !open()) break;
            step();
        }
        if (handle_ >= 0) close();
        isOver_ = true;
        patience.join();
        return notes_;
    }

    // Of VXSetLogCallback; for all clients of the process.
    static int log(const tsLoggedError* record, void*)
    {
        const std::lock_guard<std::mutex> guard(logged().lock);
        if (record->Handle >= 0) logged().texts[record->Handle].emplace_back(record->Text);
        return 1;
    }

private:
    using Clock = std::chrono::steady_clock;
    using Milliseconds = std::chrono::milliseconds;
    static constexpr size_t kMostPixels = size_t{128} * 128;
    static constexpr int kTries = 3;
    static constexpr uint32_t kMostFrames = 8; // of a readout that does not end by itself
    // After which a question, or an image that does not go on, is given up: longer than a machine
    // that is busy elsewhere takes for what the camera does at once. What then comes, never came.
    static constexpr Milliseconds kImpatience{4000};
    static constexpr Milliseconds kPatience{60000}, kSilence{10000}, kTick{1};

    // What was logged of each camera; a handle is given once.
    struct Logged {
        std::mutex lock;
        std::map<int, std::vector<std::string>> texts;
    };
    static Logged& logged()
    {
        static auto* const logged = new Logged;
        return *logged;
    }
    static std::vector<std::string> takeLogged(int handle)
    {
        const std::lock_guard<std::mutex> guard(logged().lock);
        std::vector<std::string> texts = std::move(logged().texts[handle]);
        logged().texts.erase(handle);
        std::sort(texts.begin(), texts.end());
        return texts;
    }
    static int64_t now() { return Clock::now().time_since_epoch() / Milliseconds(1); }
    static WireClient& of(void* user) { return *static_cast<WireClient*>(user); }
    static bool await(Milliseconds most, const std::function<bool()>& condition)
    {
        const auto deadline = Clock::now() + most;
        while (!condition()) {
            if (Clock::now() > deadline) return false;
            std::this_thread::sleep_for(kTick);
        }
        return true;
    }
    bool chance(double chance)
    {
        return std::uniform_real_distribution<double>(0, 1)(random_) < chance;
    }
    int draw(int most) { return std::uniform_int_distribution<int>(1, most)(random_); }
    Notes& notes() { return notes_.back(); }
    void note(const std::string& line) { notes().done.push_back(line); }
    static tsStatistics booksOf(int handle)
    {
        tsStatistics books{};
        VXGetStatistics(handle, &books, sizeof books);
        return books;
    }

    // ---- What it is told

    static void frame(int handle, const tsFrameRecord* record, void* user)
    {
        WireClient& client = of(user);
        const auto check = crc32(0, reinterpret_cast<const Bytef*>(client.image_.data()),
                                 static_cast<uInt>(client.image_.size() * sizeof client.image_[0]));
        std::string line = "frame";
        for (const uint64_t figure :
             {uint64_t{record->Readout}, uint64_t{record->Frame}, uint64_t{record->Kind},
              uint64_t{record->Bits}, uint64_t{record->Outcome}, uint64_t{record->IsLast},
              uint64_t{record->Rows}, uint64_t{record->Columns}, uint64_t{record->PacketsExpected},
              uint64_t{record->PacketsReceived}, uint64_t{record->PacketsMisplaced},
              uint64_t{record->PacketsDamaged}, uint64_t{record->MissingRowCount},
              uint64_t{record->Statistic}, uint64_t{check}}) {
            line += " " + std::to_string(figure);
        }
        for (uint32_t i = 0; record->MissingRows != nullptr && i < record->MissingRowCount; ++i) {
            line += " -" + std::to_string(record->MissingRows[i]);
        }
        client.tell(line);
        if (record->Frame == client.abortAt_ || record->Frame == kMostFrames) VXAbortRead(handle);
    }
    static void link(int, const tsLinkRecord* record, void* user)
    {
        WireClient& client = of(user);
        const bool isLost = record->Event == eLinkLost;
        client.tell((isLost ? "lost " : "restored ") + std::string(record->LastWords));
        client.isLinkUp_ = !isLost;
    }
    static void error(int, const tsCameraErrorRecord* record, void* user)
    {
        of(user).tell("error " + std::to_string(record->Code) + " " +
                      std::to_string(record->SubCode) + " " + record->Text);
    }
    static void heartbeat(int, const tsHeartBeatRecord* record, void* user)
    {
        of(user).tell("heartbeat " + std::to_string(record->CCDTemp) + " " +
                      std::to_string(record->BoardTemp));
    }
    // A recording ends in front of bytes: all that is recorded has been told, and is in the books.
    static void tap(int handle, const tsTapRecord* record, void* user)
    {
        WireClient& client = of(user);
        const bool isNext = record->What == eTapBytesReceived && client.isEnding_;
        if (isNext && !client.isRecorded_) client.endNotes(handle);
        if (!client.isRecorded_) client.capture_->take(client.notes().camera, *record);
    }
    void tell(const std::string& line)
    {
        if (!isRecorded_) notes().told.push_back(line);
    }
    void endNotes(int handle)
    {
        notes().books = booksOf(handle);
        notes().error = takeLogged(handle);
        isRecorded_ = true;
    }

    // ---- What it does

    bool open()
    {
        const size_t number = notes_.size();
        if (before_ != nullptr && number >= before_->size()) return false;
        notes_.emplace_back();
        notes().camera =
            before_ != nullptr ? (*before_)[number].camera : capture_->addCamera("soaked");
        isEnding_ = isRecorded_ = false;
        isLinkUp_ = true;
        constexpr unsigned all = eTapBytesReceived | eTapBytesSent | eTapLink;
        const uint16_t port = places_(notes().camera);
        if (capture_ != nullptr) VXSetOpeningTap(all, tap, this);
        handle_ = VXOpenENetCamera("127.0.0.1", port);
        VXSetOpeningTap(0, nullptr, nullptr);
        note("opened " + std::to_string(handle_ >= 0));
        if (handle_ < 0) return false;
        VXSetFrameCallback(handle_, frame, this);
        VXSetLinkCallback(handle_, link, this);
        VXSetCameraErrorCallback(handle_, error, this);
        VXSetHeartBeatRecordCallback(handle_, heartbeat, this);
        VXOverrideImageTimout(handle_, static_cast<int>(kImpatience.count()));
        VXSetExposure(handle_, 0);
        return true;
    }

    void step()
    {
        const bool isGood = chance(0.7) ? readOut() : ask();
        if (!isGood && !settle()) return close();
        if (chance(0.03)) close();
    }

    bool readOut()
    {
        const auto frames = static_cast<short>(draw(4));
        const int kind = draw(4);
        std::fill(image_.begin(), image_.end(), 0);
        abortAt_ = chance(0.15) ? static_cast<uint32_t>(1 + draw(2)) : 0;
        if (chance(0.2)) VXSetCCDArea(handle_, 0, 0, 8 * draw(10), draw(48));
        auto* const longs = reinterpret_cast<long*>(image_.data());
        auto* const shorts = reinterpret_cast<unsigned short*>(image_.data());
        auto* const bytes = reinterpret_cast<unsigned char*>(image_.data());
        const int started = kind == 1   ? VXReadCCDArea8(handle_, bytes, frames, 0)
                            : kind == 2 ? VXReadCCDBinned(handle_, longs, nullptr, frames, 0)
                                        : VXReadCCDArea(handle_, shorts, frames, 0);
        const int result = VXWaitCompletion(handle_, static_cast<unsigned>(kPatience.count()));
        const int end = VXReadoutResult(handle_);
        note("readout " + std::to_string(kind) + " of " + std::to_string(frames) + ": " +
             std::to_string(started) + " " + std::to_string(result) + " " + std::to_string(end));
        return result == 0 && end == eReadoutComplete;
    }

    bool ask()
    {
        long exposure = -1;
        const int result = within([&] { return VXGetExposureTime(handle_, &exposure); });
        note("exposure " + std::to_string(result) + " " + std::to_string(exposure));
        return settle(); // an answer that comes twice is not to meet the same question
    }

    // A question that is given up before the library does.
    int within(const std::function<int()>& question)
    {
        setAsking(now());
        const int result = question();
        setAsking(0);
        return result;
    }
    void setAsking(int64_t since)
    {
        const std::lock_guard<std::mutex> guard(asking_);
        askingSince_ = since;
    }

    // Whatever is pending is given up, which is the question and nothing that comes behind it.
    void losePatience()
    {
        while (!isOver_) {
            std::this_thread::sleep_for(Milliseconds(10));
            const std::lock_guard<std::mutex> guard(asking_);
            if (askingSince_ == 0 || now() - askingSince_ <= kImpatience.count()) continue;
            VXWaitCompletion(handle_, 20);
            askingSince_ = 0;
        }
    }

    // Whatever was under way has come when an answer comes behind it.
    bool settle()
    {
        for (int i = 0; i < kTries; ++i) {
            const bool isUp = await(kPatience, [this] { return isLinkUp_.load(); });
            note("link " + std::to_string(isUp));
            if (!isUp) return false;
            // What is still on its way is not to meet a second abort.
            const int end = VXReadoutResult(handle_);
            const bool isOpen = end == eReadoutTimedOut || end == eReadoutLinkLost;
            if (i == 0 && isOpen) note("aborted " + std::to_string(VXAbortRead(handle_)));
            unsigned long interval[4] = {};
            const int result = within([&] {
                return VXGetImageIntervals(handle_, &interval[0], &interval[1], &interval[2],
                                           &interval[3]);
            });
            note("settled " + std::to_string(result));
            if (result == 0) return VXSetExposure(handle_, 0) == 0; // it may have been switched off
        }
        return false;
    }

    // Of a camera that is silent, the recording ends by itself.
    void endRecording()
    {
        isEnding_ = true;
        if (await(kSilence, [this] { return isRecorded_.load(); })) return;
        VXSetTap(handle_, 0, nullptr, nullptr);
        if (!isRecorded_) endNotes(handle_);
    }

    void close()
    {
        settle();
        const int handle = handle_;
        if (capture_ != nullptr) {
            endRecording();
        } else {
            const tsStatistics& before = (*before_)[notes_.size() - 1].books;
            await(kPatience, [&] {
                const tsStatistics books = booksOf(handle);
                return std::memcmp(&books, &before, sizeof books) == 0;
            });
            notes().books = booksOf(handle);
        }
        handle_ = -1;
        VXCloseCamera(handle);
        if (capture_ == nullptr) notes().error = takeLogged(handle);
    }

    std::mt19937_64 random_;
    const int steps_;
    const Places places_;
    WireCapture::Body* const capture_;
    const std::vector<Notes>* const before_;
    std::vector<int64_t> image_;
    std::vector<Notes> notes_;
    std::atomic<int> handle_{-1};
    std::atomic<uint32_t> abortAt_{0};
    std::atomic<bool> isEnding_{false}, isRecorded_{false}; // the recording of a camera
    std::atomic<bool> isLinkUp_{true}, isOver_{false};
    std::mutex asking_;
    int64_t askingSince_ = 0; // with the lock; 0: nothing
};

} // namespace vxcam

#endif
