// What the system tests share: an application with one camera, which is a simulated one.
#ifndef SYSTEM_SUPPORT_H
#define SYSTEM_SUPPORT_H

#include "books.h"
#include "tcSimServer.h"
#include "vxcamiface.h"
#include "within.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

using std::chrono::milliseconds;
using std::chrono::steady_clock;

inline constexpr int gnPatienceMs = Within(30000); // for what is expected to happen

inline int ElapsedMs(steady_clock::time_point start)
{
    using std::chrono::duration_cast;
    return static_cast<int>(duration_cast<milliseconds>(steady_clock::now() - start).count());
}

// Looks again every millisecond until the condition holds; false after the time expected for it.
inline bool WaitUntil(const std::function<bool()>& condition)
{
    const auto start = steady_clock::now();
    while (!condition()) {
        if (ElapsedMs(start) > gnPatienceMs) return false;
        std::this_thread::sleep_for(milliseconds(1));
    }
    return true;
}

// What an application is told, in the order in which it is told.
// Threads: any.
class tcEvents
{
public:
    struct tsShot {
        int handle;
        tsImageData data;
        std::vector<uint8_t> image; // the buffer as it was then
    };
    struct tsError {
        int handle, code, subCode;
        std::string text;
    };
    struct tsHeartBeat {
        int handle;
        tsHeartBeatData data;
    };
    struct tsMessage {
        int handle;
        std::string bytes;
    };

    static tcEvents& Instance()
    {
        static tcEvents instance;
        return instance;
    }

    void Clear()
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mvShots.clear();
        mvErrors.clear();
        mvHeartBeats.clear();
        mvMessages.clear();
    }
    // How many bytes of the image buffer each shot keeps.
    void SetImageBytes(size_t bytes) { mnImageBytes = bytes; }

    std::vector<tsShot> Shots() const { return Copy(mvShots); }
    std::vector<tsError> Errors() const { return Copy(mvErrors); }
    std::vector<tsHeartBeat> HeartBeats() const { return Copy(mvHeartBeats); }
    std::vector<tsMessage> Messages() const { return Copy(mvMessages); }

    void Subscribe(int handle)
    {
        VXSetImageDataCallback(handle, [](int camera, tsImageData* data) {
            tcEvents& self = Instance();
            const auto* image = static_cast<const uint8_t*>(data->ImageBuffer);
            std::vector<uint8_t> copy;
            if (image != nullptr) copy.assign(image, image + self.mnImageBytes);
            self.Add(self.mvShots, {camera, *data, std::move(copy)});
        });
        VXSetErrorCallback(handle,
                           [](int camera, unsigned char code, unsigned char subCode, char* text) {
                               Instance().Add(Instance().mvErrors, {camera, code, subCode, text});
                           });
        VXSetHeartBeatCallback(handle, [](int camera, tsHeartBeatData* data) {
            Instance().Add(Instance().mvHeartBeats, {camera, *data});
        });
        VXSetUserDefinedCallback(handle, [](int camera, void* message, int length) {
            const std::string bytes(static_cast<const char*>(message),
                                    static_cast<size_t>(length) + 12);
            Instance().Add(Instance().mvMessages, {camera, bytes});
        });
    }

private:
    template <class Event>
    void Add(std::vector<Event>& events, Event event)
    {
        std::lock_guard<std::mutex> lock(mMutex);
        events.push_back(std::move(event));
    }
    template <class Event>
    std::vector<Event> Copy(const std::vector<Event>& events) const
    {
        std::lock_guard<std::mutex> lock(mMutex);
        return events;
    }

    mutable std::mutex mMutex;
    size_t mnImageBytes = 0;
    std::vector<tsShot> mvShots;
    std::vector<tsError> mvErrors;
    std::vector<tsHeartBeat> mvHeartBeats;
    std::vector<tsMessage> mvMessages;
};

// An image buffer of the size the library asks for, between guards, filled with a value that marks
// what was not written.
template <class Pixel>
class tcImage
{
public:
    static constexpr uint8_t nMark = 0xA5;

    tcImage(uint32_t rows, uint32_t columns) : mnRows(rows), mnColumns(columns)
    {
        mvPixels.resize(Guard() * 2 + size_t{rows} * columns);
        Mark();
    }
    void Mark() { memset(mvPixels.data(), nMark, mvPixels.size() * sizeof(Pixel)); }

    Pixel* Data() { return mvPixels.data() + Guard(); }
    size_t Bytes() const { return size_t{mnRows} * mnColumns * sizeof(Pixel); }
    Pixel At(uint32_t row, uint32_t column) const
    {
        return mvPixels[Guard() + size_t{row} * mnColumns + column];
    }
    static Pixel Unwritten()
    {
        Pixel pixel;
        memset(&pixel, nMark, sizeof pixel);
        return pixel;
    }

    uint64_t Sum(uint32_t row, uint32_t column, uint32_t rows, uint32_t columns) const
    {
        uint64_t sum = 0;
        for (uint32_t r = row; r < row + rows; ++r) {
            for (uint32_t c = column; c < column + columns; ++c)
                sum += At(r, c);
        }
        return sum;
    }

    // Whether nothing but the given part was written, guards included.
    bool IsUntouchedOutside(uint32_t row, uint32_t column, uint32_t rows, uint32_t columns) const
    {
        for (size_t i = 0; i < mvPixels.size(); ++i) {
            const size_t pixel = i - Guard(); // wraps below the image
            const bool isImage = i >= Guard() && pixel < size_t{mnRows} * mnColumns;
            const size_t r = pixel / mnColumns, c = pixel % mnColumns;
            const bool isInside =
                isImage && r >= row && r < row + rows && c >= column && c < column + columns;
            if (!isInside && mvPixels[i] != Unwritten()) return false;
        }
        return true;
    }
    bool operator==(const tcImage& other) const { return mvPixels == other.mvPixels; }
    bool IsUntouched() const { return IsUntouchedOutside(0, 0, 0, 0); }

private:
    size_t Guard() const { return 2 * size_t{mnColumns}; }

    uint32_t mnRows, mnColumns;
    std::vector<Pixel> mvPixels;
};

// One camera, opened.
class Camera : public testing::Test
{
protected:
    static constexpr uint16_t nRows = 64, nColumns = 96;

    static tsSimOptions Options()
    {
        tsSimOptions options;
        options.rows = nRows;
        options.columns = nColumns;
        return options;
    }

    void Open(const tsSimOptions& options = Options())
    {
        setenv("TCLOG_SUPPRESS_ERR_CONSOLE", "1", 1);
        setenv("CONFIGFILE_PATH", "/dev/null", 1);
        sim = std::make_unique<tcSimServer>(options);
        port = sim->Start();
        handle = VXOpenENetCamera("127.0.0.1", port);
        ASSERT_GE(handle, 0);
        events.Clear();
        events.SetImageBytes(0);
        events.Subscribe(handle);
    }

    tsStatistics Figures() const
    {
        tsStatistics figures{};
        EXPECT_EQ(0, VXGetStatistics(handle, &figures, sizeof figures));
        return figures;
    }

    // Whatever happened, it adds up.
    void TearDown() override
    {
        if (handle >= 0) {
            ExpectThatTheyAddUp(Figures());
            EXPECT_EQ(0, VXCloseCamera(handle));
        }
        if (sim) sim->Stop();
    }

    // One frame of the whole sensor, in 16 bits.
    tcImage<uint16_t> Expose(int ms, unsigned short flags = 0)
    {
        tcImage<uint16_t> image(nRows, nColumns);
        EXPECT_EQ(0, VXSetExposure(handle, ms));
        EXPECT_EQ(0, VXSetCCDArea(handle, 0, 0, nColumns, nRows));
        EXPECT_EQ(0, VXReadCCDArea(handle, image.Data(), 1, flags));
        EXPECT_EQ(0, VXWaitCompletion(handle, gnPatienceMs));
        return image;
    }
    double Mean(const tcImage<uint16_t>& image) const
    {
        return static_cast<double>(image.Sum(0, 0, nRows, nColumns)) / (nRows * nColumns);
    }

    tcEvents& events = tcEvents::Instance();
    std::unique_ptr<tcSimServer> sim;
    uint16_t port = 0;
    int handle = -1;
};

#endif
