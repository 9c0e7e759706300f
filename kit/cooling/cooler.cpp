#include <vxcamkit/cooler.h>

#include "camera/camera_core.h"
#include "camera/keeper.h"
#include "cooling/ramp.h"

#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <mutex>
#include <utility>

namespace vxcam {

namespace {

using std::chrono::duration;
using std::chrono::duration_cast;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kStep(500), kShortestStep(10); // between two looks at the sensor
constexpr milliseconds kTold(200);                    // between two calls of a closing's progress
constexpr duration<double> kSilence(5);               // such a one may come with any camera
constexpr double kColdest = -273, kWarmest = 273;     // degrees Celsius
constexpr double kMostRamp = 1000, kMostTolerance = 100;

void require(bool isRight, const char* text)
{
    if (!isRight) throw Error(ErrorKind::Usage, std::string("cooling: ") + text);
}

void checkTarget(double target)
{
    require(target >= kColdest && target <= kWarmest, "a target is -273 to 273 degrees Celsius");
}

void checkRamp(double ramp)
{
    require(ramp >= 0 && ramp <= kMostRamp, "a ramp is 0 to 1000 degrees a minute");
}

void check(const Warming& warming)
{
    checkTarget(warming.target);
    checkRamp(warming.ramp);
    require(warming.patience > milliseconds(0), "times are not negative");
}

// What is to be done before the camera is closed.
struct Farewell {
    Warming warming;
    milliseconds most;
    Cooler::Progress progress;

    // Whoever closes a camera, maybe in a destructor, is not to meet what it throws.
    void tell(const CoolingState& state) const noexcept
    {
        try {
            if (progress) progress(state);
        } catch (...) {
        }
    }
};

} // namespace

// Threads: the orders are given on the keeper's, the first ones on the caller's.
// Locks: its own, never held while the camera is told something; `turn` by whoever does that.
struct Cooler::Work {
    CameraCore& camera;
    std::mutex turn;
    mutable std::mutex lock;
    mutable std::condition_variable changed;
    std::optional<Ramp> ramp;
    Ramp::Orders orders; // that could not be given yet
    SteadyTime told;     // the last temperature that was looked at; with `turn`
    bool isClosed = false;
    std::optional<Farewell> farewell;
    std::optional<Keeper> keeper;

    explicit Work(CameraCore& owner) : camera(owner) {}

    Ramp::Time now() const
    {
        return duration<double>(steady_clock::now().time_since_epoch()) * camera.timeScale();
    }

    Ramp::Time silence() const { return kSilence * camera.timeScale(); }

    void start(Ramp next)
    {
        camera.temperatures(); // the first one may still be on its way
        std::lock_guard<std::mutex> myTurn(turn);
        std::optional<Ramp> before;
        Ramp::Orders ordersBefore;
        {
            std::lock_guard<std::mutex> guard(lock);
            if (isClosed) throw Error(ErrorKind::Aborted, "cooling: the camera is closed");
            if (ramp) before.emplace(*ramp);
            ramp.emplace(std::move(next));
            ordersBefore = std::exchange(orders, {});
            if (!keeper) keeper.emplace([this] { return look(); });
        }
        try {
            step();
        } catch (const Error& error) {
            if (!isTriedAgain(error)) goBackTo(before, ordersBefore);
            keeper->wake();
            throw;
        }
        keeper->wake();
    }

    // What was refused counts for nothing: what was under way before goes on, unless somebody
    // stopped it meanwhile.
    void goBackTo(const std::optional<Ramp>& before, const Ramp::Orders& ordersBefore)
    {
        std::lock_guard<std::mutex> guard(lock);
        const bool isStopped = !ramp;
        const bool isSetPointTaken = !orders.setPoint;
        orders = {};
        ramp.reset();
        if (before && !isStopped && !isClosed) {
            ramp.emplace(*before);
            orders = ordersBefore;
            if (ramp->isWatching() && isSetPointTaken) orders.setPoint = ramp->state().setPoint;
        }
        changed.notify_all();
    }

    // One look at the sensor, and the orders that follow, by whoever has the turn. Throws what the
    // camera does.
    void step()
    {
        SteadyTime when;
        const auto temperatures = camera.lastTemperatures(&when);
        const bool isNew = std::exchange(told, when) != when;
        Ramp::Orders next;
        {
            std::lock_guard<std::mutex> guard(lock);
            if (!ramp) return;
            const Ramp::Orders fresh = ramp->step(
                now(), temperatures ? std::optional<double>(temperatures->sensor) : std::nullopt,
                isNew);
            if (fresh.setPoint) orders.setPoint = fresh.setPoint;
            if (fresh.cooling) orders.cooling = fresh.cooling;
            next = orders;
        }
        if (next.setPoint) {
            camera.set("target-temp", *next.setPoint);
            std::lock_guard<std::mutex> guard(lock);
            orders.setPoint.reset();
        }
        if (next.cooling) camera.set("cooling", *next.cooling);
        std::lock_guard<std::mutex> guard(lock);
        orders = {};
        changed.notify_all();
    }

    // What the link or a slow camera prevents. What cannot be sent, since the link is just being
    // lost, is an error without a code of the camera's.
    static bool isTriedAgain(const Error& error)
    {
        const bool isUnsent = error.kind() == ErrorKind::Camera && error.code() == 0;
        return isUnsent || error.kind() == ErrorKind::LinkLost ||
               error.kind() == ErrorKind::Timeout;
    }

    std::optional<SteadyTime> look()
    {
        try {
            std::lock_guard<std::mutex> myTurn(turn);
            step();
        } catch (const Error& error) {
            if (!isTriedAgain(error)) {
                std::lock_guard<std::mutex> guard(lock);
                if (ramp) ramp->fail(error.what());
                orders = {};
                changed.notify_all();
            }
        }
        std::lock_guard<std::mutex> guard(lock);
        const bool isWatching = ramp && (ramp->isWatching() || orders.setPoint || orders.cooling);
        if (isClosed || !isWatching) return std::nullopt;
        const auto pause = duration_cast<milliseconds>(kStep / camera.timeScale());
        return steady_clock::now() + std::max(pause, kShortestStep);
    }
};

Cooler::Cooler(CameraCore& camera) : work_(std::make_unique<Work>(camera)) {}

Cooler::~Cooler()
{
    close();
}

void Cooler::cool(const Cooling& cooling)
{
    checkTarget(cooling.target);
    checkRamp(cooling.ramp);
    require(cooling.tolerance > 0 && cooling.tolerance <= kMostTolerance,
            "a tolerance is more than 0 and at most 100 degrees");
    require(cooling.settle >= milliseconds(0) && cooling.patience > milliseconds(0),
            "times are not negative");
    work_->start(Ramp(cooling, work_->silence()));
}

void Cooler::warmUp(const Warming& warming)
{
    check(warming);
    work_->start(Ramp(warming, work_->silence()));
}

void Cooler::stop()
{
    std::lock_guard<std::mutex> guard(work_->lock);
    work_->ramp.reset();
    work_->orders = {};
    work_->changed.notify_all();
}

void Cooler::warmUpBeforeClose(const std::optional<Warming>& warming, milliseconds most,
                               Progress progress)
{
    if (warming) check(*warming);
    require(most >= milliseconds(0), "times are not negative");
    std::lock_guard<std::mutex> guard(work_->lock);
    work_->farewell.reset();
    if (warming) work_->farewell = Farewell{*warming, most, std::move(progress)};
}

void Cooler::warmUpFirst() noexcept
{
    std::optional<Farewell> farewell;
    {
        std::lock_guard<std::mutex> guard(work_->lock);
        farewell = std::exchange(work_->farewell, std::nullopt);
    }
    if (!farewell) return;
    const auto end = steady_clock::now() + farewell->most;
    try {
        if (!work_->camera.get("cooling").toBool()) return;
        warmUp(farewell->warming);
        std::optional<CoolingState> over;
        while (!over && steady_clock::now() < end) {
            farewell->tell(state());
            const auto left = duration_cast<milliseconds>(end - steady_clock::now());
            over = wait(std::clamp(left, milliseconds(0), kTold));
        }
        farewell->tell(over.value_or(state()));
    } catch (const std::exception& error) {
        CoolingState failed = state();
        failed.phase = CoolingPhase::Failed;
        failed.text = error.what();
        farewell->tell(failed);
    }
}

// The camera is closed: no order can be given any more.
void Cooler::close()
{
    {
        std::lock_guard<std::mutex> guard(work_->lock);
        work_->isClosed = true;
        work_->ramp.reset();
        work_->changed.notify_all();
    }
    if (work_->keeper) work_->keeper->stop();
}

CoolingState Cooler::state() const
{
    std::lock_guard<std::mutex> guard(work_->lock);
    return work_->ramp ? work_->ramp->state() : CoolingState();
}

std::optional<CoolingState> Cooler::wait(milliseconds most) const
{
    std::unique_lock<std::mutex> guard(work_->lock);
    const auto isOver = [this] {
        return !work_->ramp || (work_->ramp->state().isOver() && !work_->orders.cooling);
    };
    if (!work_->changed.wait_until(guard, steady_clock::now() + most, isOver)) return std::nullopt;
    if (!work_->ramp) throw Error(ErrorKind::Aborted, "cooling was stopped");
    return work_->ramp->state();
}

} // namespace vxcam
