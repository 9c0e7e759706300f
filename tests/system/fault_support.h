// What the tests of faults share: a camera with faults, the library's log and its books.
#ifndef FAULT_SUPPORT_H
#define FAULT_SUPPORT_H

#include "system_support.h"
#include "tcLogConsumer.h"

#include <future>

// Keeps the texts of error records.
// Threads: any. Locks: one of its own.
class tcErrorLog : public tcLogConsumer
{
public:
    void Output(tcLogEvent const& event) override
    {
        if (event.type != tcLogEvent::eError) return;
        std::lock_guard<std::mutex> lock(mMutex);
        mTexts.emplace_back(event.message);
    }
    char const* TypeName() const override { return "tcErrorLog"; }

    size_t Count(const std::string& part) const
    {
        std::lock_guard<std::mutex> lock(mMutex);
        return static_cast<size_t>(
            std::count_if(mTexts.begin(), mTexts.end(), [&](const std::string& text) {
                return text.find(part) != std::string::npos;
            }));
    }
    std::vector<std::string> Texts() const
    {
        std::lock_guard<std::mutex> lock(mMutex);
        return mTexts;
    }

    // The log of all cameras from now on; never destroyed, as loggers may still refer to it.
    static tcErrorLog& OfCameras()
    {
        static auto* log = new tcErrorLog;
        tcLog::mpDefaultConsumer = log;
        return *log;
    }

private:
    mutable std::mutex mMutex;
    std::vector<std::string> mTexts;
};

// The figures of a camera, which add up.
inline tsStatistics BooksOf(int handle)
{
    tsStatistics figures{};
    EXPECT_EQ(0, VXGetStatistics(handle, &figures, sizeof figures));
    ExpectThatTheyAddUp(figures);
    return figures;
}

// One camera with faults, opened. Pixels are row + column + 1, so that each can be told.
class Faults : public Camera
{
protected:
    static constexpr size_t nPacketPixels = nColumns;
    static constexpr int nImageTimeout = 1000; // ms, where a frame is to be lost

    static tsSimOptions With(const std::vector<std::string>& faults)
    {
        tsSimOptions options = Options();
        options.heartbeatSeconds = 0;
        options.faults = ParseSimFaults(faults);
        return options;
    }

    void OpenWith(const std::vector<std::string>& faults) { OpenWith(With(faults)); }
    void OpenWith(const tsSimOptions& options)
    {
        Open(options);
        ASSERT_GE(handle, 0);
        Prepare();
    }
    void Prepare()
    {
        unsigned short base = 1;
        EXPECT_EQ(0, VXSetTestPattern(handle, 4, &base, 1));
        EXPECT_EQ(0, VXSetExposure(handle, 0));
    }

    // The sum of requests, frames and packets holds at every end, too.
    void TearDown() override
    {
        if (handle >= 0) Books();
        const auto start = steady_clock::now();
        Camera::TearDown();
        EXPECT_LT(ElapsedMs(start), Within(1500)) << "closing takes no longer than 0.5 s";
    }

    tsStatistics Books() const { return BooksOf(handle); }

    // Reads frames of the whole sensor. Returns what waiting returned.
    int Read(tcImage<uint16_t>& image, short frames = 1)
    {
        EXPECT_EQ(0, VXReadCCDArea(handle, image.Data(), frames, 0));
        return VXWaitCompletion(handle, gnPatienceMs);
    }

    // Likewise, with little patience.
    int Lose(tcImage<uint16_t>& image)
    {
        EXPECT_EQ(0, VXOverrideImageTimout(handle, nImageTimeout));
        const int result = Read(image);
        EXPECT_EQ(0, VXOverrideImageTimout(handle, 0));
        return result;
    }

    // The rows of which a pixel is not what the camera made.
    static std::vector<int> WrongRows(const tcImage<uint16_t>& image)
    {
        std::vector<int> wrong;
        for (uint32_t row = 0; row < nRows; ++row) {
            bool isRight = true;
            for (uint32_t column = 0; column < nColumns; ++column) {
                isRight &= image.At(row, column) == row + column + 1;
            }
            if (!isRight) wrong.push_back(static_cast<int>(row));
        }
        EXPECT_TRUE(image.IsUntouchedOutside(0, 0, nRows, nColumns));
        return wrong;
    }

    // After a broken connection the library's parser may still wait for the rest of a message, as
    // the camera's own words make up. Returns when the two understand each other again.
    bool AwaitUnderstanding()
    {
        std::string message("\0\0\x40\0\0\0\0\0\0\xC7\0\0", 12);
        message.resize(12 + 0x40);
        return WaitUntil([&] {
            const size_t before = events.Messages().size();
            VXSendUserDefined(handle, message.data());
            const auto start = steady_clock::now();
            while (events.Messages().size() == before && ElapsedMs(start) < 20) {
                std::this_thread::sleep_for(milliseconds(1));
            }
            return events.Messages().size() > before;
        });
    }

    // The camera works: a frame comes whole. Returns the books thereafter.
    tsStatistics ExpectWhole()
    {
        const tsStatistics before = Books();
        tcImage<uint16_t> image(nRows, nColumns);
        EXPECT_EQ(0, Read(image));
        EXPECT_EQ(std::vector<int>(), WrongRows(image));
        const tsStatistics after = Books();
        EXPECT_EQ(before.FramesComplete + 1, after.FramesComplete);
        return after;
    }

    size_t Struck() const { return sim->Statistics().faults; }

    tcErrorLog& log = tcErrorLog::OfCameras();
};

// Runs it and tells how many milliseconds it took.
template <class Action>
int Timed(Action action)
{
    const auto start = steady_clock::now();
    action();
    return ElapsedMs(start);
}

#endif
