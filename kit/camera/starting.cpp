// From a plan to a readout that runs.
#include "camera/camera_core.h"
#include "readout/host_clock.h"
#include "readout/plan_check.h"

#include "vxcamiface.h"

#include <algorithm>
#include <utility>

namespace vxcam {

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using SteadyClock = std::chrono::steady_clock;

constexpr int kUsualBuffers = 8;
constexpr size_t kUsualBytes = size_t{256} << 20;
constexpr unsigned short kShutterStaysClosed = 0x0001; // flag of an area readout
constexpr int kUsualBits = 16;

bool isDark(const Plan& plan)
{
    return plan.type == FrameType::Dark || plan.type == FrameType::Bias;
}

std::optional<microseconds> exposureOf(const Plan& plan)
{
    if (!plan.exposure && plan.type == FrameType::Bias) return microseconds(0);
    return plan.exposure;
}

// As far as what is given decides it; as set, if that is for the camera to say.
ReadoutKind kindGiven(const Plan& plan)
{
    if (plan.kind != ReadoutKind::AsSet) return plan.kind;
    if (plan.binningX || plan.binningY) return ReadoutKind::Binned;
    const bool isOfArea =
        plan.area || !plan.regions.empty() || plan.bits != kUsualBits || plan.mode != 0;
    return isOfArea ? ReadoutKind::Area : ReadoutKind::AsSet;
}

Area areaOf(const Value& value)
{
    const auto at = [&](size_t i) { return static_cast<int>(value[i].toInt()); };
    return {at(0), at(1), at(2), at(3)};
}

Value valueOf(const std::vector<Area>& regions)
{
    Value::List groups;
    for (const Area& region : regions) {
        groups.push_back(Value::list({region.column, region.row, region.columns, region.rows}));
    }
    return Value::list(std::move(groups));
}

// Of the camera or the way to it, not of the application's will.
bool isFailure(ReadoutEnd end)
{
    return end == ReadoutEnd::Incomplete || end == ReadoutEnd::TimedOut ||
           end == ReadoutEnd::LinkLost || end == ReadoutEnd::CameraError;
}

std::string textOf(const Plan& plan)
{
    return std::string(nameOf(plan.kind)) + ", " + nameOf(plan.type) + ", frames " +
           std::to_string(plan.frames) + ", bits " + std::to_string(plan.bits) +
           (plan.exposure ? ", us " + std::to_string(plan.exposure->count()) : "");
}

// Of a frame as the library stores it: binned ones with the stride of the sensor, regions below
// each other.
size_t bufferBytes(const Plan& plan, const FrameFacts& facts)
{
    Size size = plan.kind == ReadoutKind::Area ? facts.area.size() : facts.sensor;
    if (!facts.regions.empty()) size = {};
    for (const Area& region : facts.regions) {
        size.columns = std::max(size.columns, region.columns);
        size.rows += region.rows;
    }
    const int bits = plan.kind == ReadoutKind::Area ? plan.bits : kBinnedBits;
    return size_t(size.columns) * size_t(size.rows) * size_t(bits) / 8;
}

} // namespace

void CameraCore::checkPlan(const Plan& plan) const
{
    if (const auto mistake = mistakeIn(plan, sensor())) fail(ErrorKind::Usage, *mistake);
}

// Sets a property for this readout, and remembers what it was before.
void CameraCore::apply(const std::string& name, const Value& value)
{
    const PropertyName property = findProperty(name);
    Value before = value;
    if (property.property->isReadable()) {
        before = readProperty(*this, property);
        if (before == checkedValue(*this, property, value)) return;
    }
    undo_.emplace_back(property, before);
    sendProperty(*this, property, value);
}

// An area takes the place of regions, which are all that has to be put back then.
void CameraCore::applyArea(const Area& area)
{
    const Value wanted = Value::list({area.column, area.row, area.columns, area.rows});
    const Value regions = learn("area-regions").value_or(Value());
    if (regions.size() == 0) return apply("area", wanted);
    undo_.emplace_back(findProperty("area-regions"), regions);
    sendProperty(*this, findProperty("area"), wanted);
}

void CameraCore::applyPlan(const Plan& plan)
{
    const bool isArea = plan.kind == ReadoutKind::Area;
    if (const auto exposure = exposureOf(plan)) apply("exposure", Value(*exposure));
    if (!plan.regions.empty()) {
        apply("area-regions", valueOf(plan.regions));
    } else if (plan.area) {
        applyArea(*plan.area);
    } else if (isArea && isNoAreaKnown() && learn("area-regions").value_or(Value()).size() == 0) {
        sendProperty(*this, findProperty("area"), Value());
    }
    if (plan.binningX || plan.binningY) {
        const Value before = learn("simple-binning").value_or(Value::list({0, 0, 0.0}));
        const auto factor = [](const std::optional<int>& wanted, const Value& set) {
            return Value(wanted ? int64_t{*wanted} : std::max<int64_t>(set.toInt(), 1));
        };
        apply("simple-binning", Value::list({factor(plan.binningY, before[0]),
                                             factor(plan.binningX, before[1]), before[2]}));
    }
    if (isDark(plan) && !isArea) {
        const PropertyName shutter = findProperty("shutter-override");
        const Setting* const made = made_.find(shutter.text);
        undo_.emplace_back(shutter, made != nullptr ? made->value : Value::list({0, 0}));
        sendProperty(*this, shutter, Value::list({1, 0}));
    }
}

ReadoutKind CameraCore::kindOf(const Plan& plan)
{
    const ReadoutKind given = kindGiven(plan);
    if (given != ReadoutKind::AsSet) return given;
    const Command command(*this, "readout");
    try {
        return kindSet();
    } catch (const Error& error) {
        throw named(error);
    }
}

// Bins of one pixel, and of none, are no bins.
ReadoutKind CameraCore::kindSet()
{
    const std::optional<Value> bins = learn("simple-binning");
    const bool isBinned =
        bins && !bins->isNothing() && std::max((*bins)[0].toInt(), (*bins)[1].toInt()) > 1;
    return isBinned ? ReadoutKind::Binned : ReadoutKind::Area;
}

// Neither an area nor regions were set on this connection.
bool CameraCore::isNoAreaKnown() const
{
    int column = 0, row = 0, columns = 0, rows = 0;
    VXGetCCDArea(handle_, &column, &row, &columns, &rows);
    return columns <= 0 || rows <= 0;
}

// Puts back what the plan changed, the last one first.
void CameraCore::undoPlan()
{
    while (!undo_.empty()) {
        const auto [name, value] = std::move(undo_.back());
        undo_.pop_back();
        sendProperty(*this, name, value);
    }
}

// The same where the readout does not come about: what went wrong then is told, not this.
void CameraCore::abandonPlan()
{
    try {
        undoPlan();
    } catch (const Error&) {
        undo_.clear();
    }
}

void CameraCore::fillFacts(const Plan& plan, FrameFacts* facts)
{
    facts->frames = plan.frames;
    facts->kind = plan.kind;
    facts->type = plan.type;
    facts->sensor = sensor();
    facts->area = {0, 0, facts->sensor.columns, facts->sensor.rows};
    facts->cameraName = identity().name;
    facts->serial = identity().serial;
    facts->target = target_.text();
    const Value exposure = readProperty(*this, findProperty("exposure"));
    facts->exposure = std::chrono::duration_cast<microseconds>(exposure.toTime());
    if (plan.kind == ReadoutKind::Area) {
        const Value area = readProperty(*this, findProperty("area"));
        const Value regions = area.isNothing() ? learn("area-regions").value_or(Value()) : Value();
        for (size_t i = 0; i < regions.size(); ++i) {
            facts->regions.push_back(areaOf(regions[i]));
        }
        if (!area.isNothing()) facts->area = areaOf(area);
    }
    if (plan.kind == ReadoutKind::Binned) {
        const Value bins = learn("simple-binning").value_or(Value::list({0, 0, 0.0}));
        facts->binningX = static_cast<int>(bins[1].toInt());
        facts->binningY = static_cast<int>(bins[0].toInt());
    }
    if (!plan.settings) return;
    survey(Snapshot::Again::Missing);
    facts->settings = settings_;
    facts->settings.set("exposure", exposure);
    const Value target = settings_.value("target-temp");
    if (!target.isNothing()) facts->targetTemperature = target.toDouble();
}

ExposurePlan CameraCore::exposurePlan(std::chrono::nanoseconds exposure)
{
    const auto onWall = [this](std::chrono::nanoseconds time) {
        return std::chrono::duration_cast<std::chrono::nanoseconds>(time / timeScale());
    };
    ExposurePlan plan;
    const auto asked = SteadyClock::now();
    roundTrip();
    plan.delay = SteadyClock::now() - asked;
    plan.exposure = onWall(exposure);
    if (const auto interval = learn("image-interval")) plan.interval = onWall(interval->toTime());
    const auto trigger = learn("trigger-mode");
    const std::string mode = trigger ? (*trigger)[0].toText() : "off";
    plan.firstIsTriggered = mode != "off";
    plan.eachIsTriggered = mode == "frame" || mode == "exposure";
    plan.lengthIsTriggered = mode == "exposure";
    return plan;
}

StreamSetup CameraCore::setUp(const Plan& plan)
{
    StreamSetup setup;
    setup.plan = plan;
    setup.handle = handle_;
    fillFacts(plan, &setup.facts);
    setup.exposures = exposurePlan(setup.facts.exposure);
    setup.pool = poolFor(plan, setup.facts);
    setup.onEnd = [weak = weak_from_this()](const StreamCore& stream) {
        if (const auto camera = weak.lock()) camera->readoutEnded(stream);
    };
    return setup;
}

std::shared_ptr<FramePool> CameraCore::poolFor(const Plan& plan, const FrameFacts& facts)
{
    const size_t bytes = bufferBytes(plan, facts);
    int count = plan.buffers;
    if (count == 0) {
        count = static_cast<int>(std::clamp<size_t>(kUsualBytes / bytes, 2, kUsualBuffers));
    }
    if (plan.whenFull == WhenFull::DropNewest) ++count; // where frames come in that are dropped
    const bool isGood = pool_ && pool_->bytes() == bytes && pool_->count() == count;
    return isGood && pool_->held() == 0 ? pool_ : std::make_shared<FramePool>(bytes, count);
}

int CameraCore::sendReadout(const StreamSetup& setup)
{
    const Plan& plan = setup.plan;
    const auto frames = static_cast<short>(plan.frames);
    const auto mode = static_cast<unsigned short>(plan.mode);
    const auto flags = static_cast<unsigned short>(mode | (isDark(plan) ? kShutterStaysClosed : 0));
    switch (plan.kind) {
    case ReadoutKind::Binned:
        return VXReadCCDBinned(handle_, nullptr, nullptr, frames, mode);
    case ReadoutKind::MaskBinned:
        return VXReadCCDMaskBinned(handle_, nullptr, nullptr, frames, mode);
    case ReadoutKind::Area:
    case ReadoutKind::AsSet:
        break;
    }
    return plan.bits == 8 ? VXReadCCDArea8(handle_, nullptr, frames, flags)
                          : VXReadCCDArea(handle_, nullptr, frames, flags);
}

std::shared_ptr<StreamCore> CameraCore::stream(Plan plan)
{
    plan.kind = kindGiven(plan);
    checkPlan(plan);
    Command command(*this, "readout");
    checkPlan(plan); // the sensor may be another one
    {
        const std::shared_ptr<StreamCore> last = present();
        if (last && last->isRunning())
            fail(ErrorKind::Usage, "a readout is running; stop it first");
    }
    clearAway();
    std::shared_ptr<StreamCore> next;
    try {
        if (isStopDue_ && waitForLink(milliseconds(0))) stopCamera();
        if (plan.kind == ReadoutKind::AsSet) plan.kind = kindSet();
        applyPlan(plan);
        const StreamSetup setup = setUp(plan);
        if (isStopDue_) stopCamera(); // the link came back meanwhile
        const auto& buffers = setup.pool->buffers();
        require(
            VXSetImageBuffers(handle_, buffers.data(), setup.pool->count(), setup.pool->bytes()),
            "buffers");
        pool_ = setup.pool; // the library's, from now on
        next = std::make_shared<StreamCore>(setup);
        {
            std::lock_guard<std::mutex> guard(state_);
            stream_ = next;
            isCleared_ = false;
            if (!complaintList_.empty()) refusal_ = complaintList_.back().text; // of an earlier one
            refusedAt_.reset();
            readoutOn_ = connection_;
        }
        flight_.note(FlightEntry::Kind::Started, textOf(plan));
        command.answered();
        next->begin(SteadyClock::now(), statistics().packetsReceived);
        require(sendReadout(next->setup()), "readout");
    } catch (const Error& error) {
        if (next) next->finish(ReadoutEnd::LinkLost, error.kind(), error.what());
        abandonPlan();
        throw named(error);
    }
    keeper_->wake();
    return next;
}

void CameraCore::readoutEnded(const StreamCore& stream)
{
    Event event;
    event.kind = EventKind::ReadoutEnded;
    event.time = presentMoment();
    event.readout = stream.readout();
    event.text = nameOf(stream.end());
    flight_.note(FlightEntry::Kind::Ended, event.text);
    if (isFailure(stream.end())) noteFailure(stream.endText());
    events_.post(std::move(event));
    keeper_->wake();
}

} // namespace vxcam
