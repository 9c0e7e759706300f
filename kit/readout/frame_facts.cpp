#include "readout/frame_facts.h"

#include <algorithm>
#include <cstring>

namespace vxcam {

namespace {

constexpr uint32_t kBitsInByte = 8;

// How many pixels of the sensor are one of the frame, on one axis: as it is set, or the only number
// that makes such a frame. 0 where that is not known, or bins are uneven.
int factorOf(int sensor, int frame, int set)
{
    if (set > 0 && sensor / set == frame) return set;
    const int most = sensor / frame;
    const bool isOne = most > 0 && sensor / most == frame;
    const bool isOnly = most == 1 || (most > 1 && sensor / (most - 1) != frame);
    return isOne && isOnly ? most : 0;
}

// Of a row of the frame, in its buffer.
const uint8_t* rowIn(const tsFrameRecord& record, uint32_t row)
{
    const size_t element =
        (static_cast<size_t>(record.FirstRow) + row) * record.Stride + record.FirstColumn;
    return static_cast<const uint8_t*>(record.Buffer) + element * (record.Bits / kBitsInByte);
}

} // namespace

Moment momentOf(const tsMoment& moment)
{
    using std::chrono::nanoseconds;
    if (moment.Monotonic == 0) return {};
    return {UtcTime(nanoseconds(moment.Realtime)), SteadyTime(nanoseconds(moment.Monotonic)), true};
}

size_t frameBytes(const tsFrameRecord& record)
{
    return size_t{record.Rows} * record.Columns * (record.Bits / kBitsInByte);
}

void fillFacts(const tsFrameRecord& record, FrameFacts* facts)
{
    facts->number = static_cast<int>(record.Frame);
    facts->readout = record.Readout;
    facts->bits = static_cast<int>(record.Bits);
    facts->rows = static_cast<int>(record.Rows);
    facts->columns = static_cast<int>(record.Columns);
    if (facts->kind != ReadoutKind::Area) {
        const bool isGrid =
            facts->kind == ReadoutKind::Binned && record.Rows > 0 && record.Columns > 0;
        const auto factor = [&](int sensor, int frame, int set) {
            return isGrid ? factorOf(sensor, frame, set) : 0;
        };
        facts->binningX = factor(facts->sensor.columns, facts->columns, facts->binningX);
        facts->binningY = factor(facts->sensor.rows, facts->rows, facts->binningY);
    } else {
        facts->area = {record.Area[0], record.Area[1], record.Area[2], record.Area[3]};
        if (facts->area.empty()) facts->area = {0, 0, facts->columns, facts->rows};
    }
    facts->imageType = static_cast<int>(record.ImageType);
    facts->statistic = static_cast<int>(record.Statistic);
    facts->packetsExpected = record.PacketsExpected;
    facts->packetsMissing = record.PacketsMissing;
    facts->packetsMisplaced = record.PacketsMisplaced;
    facts->packetsDamaged = record.PacketsDamaged;
    if (record.MissingRows != nullptr) {
        facts->missingRows.assign(record.MissingRows, record.MissingRows + record.MissingRowCount);
    }
    facts->missingRowsKnown = facts->complete() || record.MissingRows != nullptr;
}

void arrangePixels(const tsFrameRecord& record, const std::vector<Area>& regions)
{
    auto* const pixels = static_cast<uint8_t*>(record.Buffer);
    const size_t pixelBytes = record.Bits / kBitsInByte;
    const size_t rowBytes = record.Columns * pixelBytes;
    for (uint32_t row = 0; row < record.Rows; ++row) {
        uint8_t* const place = pixels + row * rowBytes;
        const uint8_t* const now = rowIn(record, row);
        if (now != place) std::memmove(place, now, rowBytes);
    }
    for (uint32_t i = 0; record.MissingRows != nullptr && i < record.MissingRowCount; ++i) {
        std::memset(pixels + record.MissingRows[i] * rowBytes, 0, rowBytes);
    }
    size_t row = 0;
    for (const Area& region : regions) {
        const size_t used = std::min(static_cast<size_t>(region.columns) * pixelBytes, rowBytes);
        for (int i = 0; i < region.rows && row < record.Rows; ++i, ++row) {
            std::memset(pixels + row * rowBytes + used, 0, rowBytes - used);
        }
    }
}

std::string complaintText(const Complaint& complaint)
{
    return "the camera reports error " + std::to_string(complaint.code) + "-" +
           std::to_string(complaint.subCode) + ": " + complaint.text;
}

} // namespace vxcam
