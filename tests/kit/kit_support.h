// What the kit's tests share: a simulated camera, and a kit's camera that is connected to it.
#ifndef KIT_SUPPORT_H
#define KIT_SUPPORT_H

#include "tcSimServer.h"
#include "within.h"

#include <vxcamkit/camera.h>
#include <vxcamkit/error.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace vxcam {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

inline constexpr std::chrono::seconds kPatience = Within(30s);     // for what is expected to happen
inline constexpr std::chrono::milliseconds kPromptly = Within(1s); // no wait of 10 s

inline bool waitUntil(const std::function<bool()>& condition)
{
    const auto deadline = Clock::now() + kPatience;
    while (!condition()) {
        if (Clock::now() > deadline) return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

// The error that a call throws; a failure of the test when it throws none.
template <class Call>
Error errorOf(Call call)
{
    try {
        call();
    } catch (const Error& error) {
        return error;
    }
    ADD_FAILURE() << "nothing was thrown";
    return Error(ErrorKind::File, "nothing was thrown");
}

template <class Call>
Clock::duration timeOf(Call call)
{
    const auto start = Clock::now();
    call();
    return Clock::now() - start;
}

// A small camera whose pixels are row + column + 1 where the test wants that.
class KitCamera : public testing::Test
{
protected:
    static constexpr int kRows = 64, kColumns = 96;

    void SetUp() override
    {
        setenv("TCLOG_SUPPRESS_ERR_CONSOLE", "1", 1);
        setenv("CONFIGFILE_PATH", "/dev/null", 1);
        options_.rows = kRows;
        options_.columns = kColumns;
        options_.heartbeatSeconds = 0;
    }

    void start(const std::vector<std::string>& faults = {})
    {
        options_.faults = ParseSimFaults(faults);
        sim_ = std::make_unique<tcSimServer>(options_);
        port_ = sim_->Start();
    }

    std::string place() const { return "127.0.0.1:" + std::to_string(port_); }

    Camera& open(const std::vector<std::string>& faults = {})
    {
        start(faults);
        camera_.emplace(Camera::open(place()));
        return *camera_;
    }

    static Plan planOf(int frames, std::chrono::milliseconds exposure = 1ms)
    {
        Plan plan;
        plan.frames = frames;
        plan.exposure = exposure;
        return plan;
    }

    // The camera's own sum of a frame, which it may know only when that has arrived.
    std::optional<uint64_t> sumOf(uint32_t readout, uint32_t frame) const
    {
        std::optional<uint64_t> sum;
        waitUntil([&] {
            for (const tsSimFrame& known : sim_->Frames()) {
                const bool isIt = known.readout == readout && known.frame == frame;
                if (isIt && known.complete) sum = known.pixelSum;
            }
            return sum.has_value();
        });
        return sum;
    }

    tsSimOptions options_;
    std::unique_ptr<tcSimServer> sim_;
    uint16_t port_ = 0;
    std::optional<Camera> camera_;
};

} // namespace vxcam

#endif
