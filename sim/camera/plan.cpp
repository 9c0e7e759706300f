// From a readout command to the pictures it asks for.
#include "random.h"
#include "tcSimCamera.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr const char* gsAccepted = "";
constexpr uint64_t gnMostPackets = 0xFFFF;
constexpr double gnSeeingChange = 0.1; // from frame to frame, of itself
constexpr uint32_t gnUsualFactor = 2;  // of a binned readout when nothing else is set

// Whole groups of `factor`; what is left over at the end is not read.
std::vector<uint32_t> EvenGroups(uint32_t size, uint32_t factor)
{
    factor = std::clamp<uint32_t>(factor, 1, size);
    std::vector<uint32_t> ends;
    for (uint32_t end = factor; end <= size; end += factor) {
        ends.push_back(end);
    }
    return ends;
}

// A byte other than 0 ends a group. What follows the last end is a group, too.
std::vector<uint32_t> TableGroups(uint32_t size, const tsSimBinTable& table)
{
    if (!table.Used()) return EvenGroups(size, 1);
    std::vector<uint32_t> ends;
    for (uint32_t i = 0; i < table.length && i < size; ++i) {
        if (table.bytes[i] != 0) ends.push_back(i + 1);
    }
    if (ends.empty() || ends.back() < size) ends.push_back(size);
    return ends;
}

} // namespace

void tcSimCamera::SetConditions(tsSimConditions* conditions) const
{
    const tsSimSettings& settings = mtSettings;
    conditions->exposure = settings.exposure / 1000.0;
    conditions->gain = 1.0 + settings.gain;
    if (settings.channel == eCISChannelLowGain) conditions->gain *= gnSimLowGainChannel;
    conditions->offset = settings.offset.Offset;
    conditions->shutterOpen =
        settings.shutterOverride.First == 0 || settings.shutterOverride.Second != 0;
    conditions->hotPixels = settings.filter.First == 0;
    conditions->mirrorHorizontal = settings.mirroring.Horizontal != 0;
    conditions->mirrorVertical = settings.mirroring.Vertical != 0;
    conditions->pattern = settings.testPattern.Mode;
    std::copy(std::begin(settings.testPattern.Values), std::end(settings.testPattern.Values),
              conditions->patternValues.begin());
}

tsSimRefusal tcSimCamera::Finish(tsSimPlan* plan, uint16_t frames) const
{
    if (tcSimPicture::Packets(plan->job) > gnMostPackets) return "too many packets for one frame";
    plan->timing.frames = frames;
    plan->timing.exposure = plan->job.conditions.exposure;
    plan->timing.interval = mtSettings.interval / 1000.0;
    plan->timing.trigger = static_cast<teExtTrigMode>(mtSettings.triggerMode.Mode);
    return gsAccepted;
}

tsSimRefusal tcSimCamera::PlanArea(const tsReadAreaMsg& request, tsSimPlan* plan) const
{
    SetConditions(&plan->job.conditions);
    if (request.Flags & gnSimReadDark) plan->job.conditions.shutterOpen = false;
    plan->job.kind = request.Flags & gnSimReadBytes ? teSimKind::eArea8 : teSimKind::eArea16;
    const tsAreaExMsg& regions = mtSettings.regions;
    for (int i = 0; i < regions.RegionCount; ++i) {
        plan->job.regions.push_back({static_cast<uint32_t>(regions.FirstRows[i]),
                                     static_cast<uint32_t>(regions.FirstColumns[i]),
                                     static_cast<uint32_t>(regions.Heights[i]),
                                     static_cast<uint32_t>(regions.Widths[i])});
    }
    if (plan->job.regions.empty()) {
        tsSimRegion area{request.FirstRow, request.FirstColumn, request.Rows, request.Columns};
        if (area.rows == 0 || area.columns == 0) {
            area = mtSettings.area.value_or(tsSimRegion{0, 0, mtIdentity.rows, mtIdentity.columns});
        }
        if (!Inside(area)) return "area outside the sensor";
        plan->job.regions.push_back(area);
    }
    return Finish(plan, request.Frames);
}

// The table asked for, else the sequence, else the simple factors, else 2 x 2.
std::vector<tsSimGrouping> tcSimCamera::Groupings(uint16_t table) const
{
    const uint32_t rows = mtIdentity.rows, columns = mtIdentity.columns;
    const tsSimBinTable &rowTable = mtSettings.rowTables[table],
                        &columnTable = mtSettings.columnTables[table];
    if (rowTable.Used() || columnTable.Used()) {
        return {{TableGroups(rows, rowTable), TableGroups(columns, columnTable)}};
    }
    std::vector<tsSimGrouping> groupings;
    groupings.reserve(mtSettings.sequence.Entries);
    for (int i = 0; i < mtSettings.sequence.Entries; ++i) {
        groupings.push_back({EvenGroups(rows, mtSettings.sequence.Vertical[i]),
                             EvenGroups(columns, mtSettings.sequence.Horizontal[i])});
    }
    if (!groupings.empty()) return groupings;
    const tsSimpleBinningMsg& simple = mtSettings.simpleBinning;
    if (simple.First > 0 || simple.Second > 0) {
        return {{EvenGroups(rows, static_cast<uint32_t>(simple.First)),
                 EvenGroups(columns, static_cast<uint32_t>(simple.Second))}};
    }
    return {{EvenGroups(rows, gnUsualFactor), EvenGroups(columns, gnUsualFactor)}};
}

tsSimRefusal tcSimCamera::PlanBinned(const tsReadBinnedMsg& request, tsSimPlan* plan) const
{
    if (request.Mode >= gnBinTables) return "no such binning table";
    SetConditions(&plan->job.conditions);
    plan->job.kind = teSimKind::eBinned;
    plan->groupings = Groupings(request.Mode);
    if (mtSettings.simpleBinning.Third > 0) plan->job.scale = mtSettings.simpleBinning.Third;
    for (const tsSimGrouping& grouping : plan->groupings) {
        plan->job.rowEnds = grouping.rowEnds;
        plan->job.columnEnds = grouping.columnEnds;
        tsSimRefusal refusal = Finish(plan, request.Frames);
        if (!refusal.empty()) return refusal;
    }
    return gsAccepted;
}

tsSimRefusal tcSimCamera::PlanMaskBinned(const tsReadMaskBinnedMsg& request, tsSimPlan* plan) const
{
    const std::vector<uint8_t>& mask = mtSettings.mask;
    if (std::all_of(mask.begin(), mask.end(), [](uint8_t bin) { return bin == 0; })) {
        return "no binning mask is set";
    }
    SetConditions(&plan->job.conditions);
    plan->job.kind = teSimKind::eMaskBinned;
    plan->job.mask = std::make_shared<const std::vector<uint8_t>>(mask);
    return Finish(plan, request.Frames);
}

bool tcSimCamera::StartReadout(const tsSimPlan& plan)
{
    if (!mtReadout.Start(plan.timing, mnNow)) return false;
    ++mnReadouts;
    return true;
}

// In tenths of a degree, so that the same frames come again when the temperature is steady.
tsSimJob tcSimCamera::JobOf(const tsSimPlan& plan, uint32_t frame) const
{
    tsSimJob job = plan.job;
    if (!plan.groupings.empty()) {
        const tsSimGrouping& grouping = plan.groupings[(frame - 1) % plan.groupings.size()];
        job.rowEnds = grouping.rowEnds;
        job.columnEnds = grouping.columnEnds;
    }
    job.readout = mnReadouts;
    job.frame = frame;
    if (mtReadout.ExposureKnown()) job.conditions.exposure = mtReadout.Exposure();
    job.conditions.temperature = std::round(Temperature() * 10.0) / 10.0;
    job.conditions.hotPixels = job.conditions.hotPixels && mtTunables.hotPixels;
    job.conditions.readNoise = mtTunables.readNoise;
    job.conditions.sky = mtTunables.sky;
    job.conditions.stars = mtTunables.stars;
    job.conditions.noiseKey = MixBits(MixBits(mtIdentity.seed, mnReadouts), frame);
    job.conditions.optics = OpticsOf(job.conditions.exposure, job.conditions.noiseKey);
    return job;
}

// The air is never quite the same.
tsSimOptics tcSimCamera::OpticsOf(double exposure, uint64_t noiseKey) const
{
    tsSimOptics optics;
    optics.defocus = mtTunables.defocus;
    if (mtTunables.seeing > 0) {
        const double change = gnSeeingChange * tcSimRandom(MixBits(noiseKey, 1)).Normal();
        optics.seeing = mtTunables.seeing * (1 + std::clamp(change, -0.5, 0.5));
    }
    const bool begun =
        mtReadout.Phase() == teSimPhase::eExposing || mtReadout.Phase() == teSimPhase::eExposed;
    const tsField field = FieldAt(begun ? mtReadout.ExposureStart() : mnNow);
    optics.rows = field.rows;
    optics.columns = field.columns;
    optics.trailRows = mtTunables.driftRows * exposure;
    optics.trailColumns = mtTunables.driftColumns * exposure;
    return optics;
}
