// Settings of many bytes: areas, binning tables, masks, sequences, parameters, records.
#include "tcSimCamera.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

constexpr const char* gsAccepted = "";
constexpr size_t gnHardwareName = 32;
constexpr uint8_t gnLargestFactor = 7;

template <class Value>
std::vector<uint8_t> BytesOf(const Value& value)
{
    std::vector<uint8_t> bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

std::vector<uint8_t> TextBytes(const std::string& text)
{
    std::vector<uint8_t> bytes(gnHardwareName);
    std::memcpy(bytes.data(), text.data(), std::min(text.size(), bytes.size() - 1));
    return bytes;
}

} // namespace

bool tsSimBinTable::Used() const
{
    return std::any_of(bytes.begin(), bytes.begin() + length, [](uint8_t end) { return end != 0; });
}

bool tcSimCamera::Inside(const tsSimRegion& region) const
{
    return region.rows >= 1 && region.columns >= 1 && region.row < mtIdentity.rows &&
           region.column < mtIdentity.columns && region.rows <= mtIdentity.rows - region.row &&
           region.columns <= mtIdentity.columns - region.column;
}

tsSimRefusal tcSimCamera::SetArea(const tsAreaMsg& message)
{
    const tsSimRegion area{message.FirstRow, message.FirstColumn, message.Rows, message.Columns};
    if (!Inside(area)) return "area outside the sensor";
    mtSettings.area = area;
    mtSettings.regions = tsAreaExMsg();
    return gsAccepted;
}

tsSimRefusal tcSimCamera::SetRegions(const tsSetAreaExMsg& message)
{
    if (message.RegionCount > gnAreaRegions) return "more than 16 regions";
    for (int i = 0; i < message.RegionCount; ++i) {
        const tsSimRegion region{static_cast<uint32_t>(message.FirstRows[i]),
                                 static_cast<uint32_t>(message.FirstColumns[i]),
                                 static_cast<uint32_t>(message.Heights[i]),
                                 static_cast<uint32_t>(message.Widths[i])};
        if (!Inside(region)) return "region " + std::to_string(i) + " outside the sensor";
    }
    mtSettings.regions = message;
    mtSettings.regions.First = 0;
    return gsAccepted;
}

tsSimRefusal tcSimCamera::SetTable(const tsBinTableMsg& message, uint32_t limit,
                                   std::array<tsSimBinTable, gnBinTables>* tables)
{
    if (message.Index >= gnBinTables) return "no such binning table";
    if (message.TableLength > limit || message.TableLength > gnBinTableBytes) {
        return "binning table longer than the sensor";
    }
    tsSimBinTable& table = (*tables)[message.Index];
    table.length = message.TableLength;
    std::copy(std::begin(message.Table), std::end(message.Table), table.bytes.begin());
    return gsAccepted;
}

namespace {

std::optional<tsBinTableMsg> TableMessage(const std::array<tsSimBinTable, gnBinTables>& tables,
                                          uint32_t index)
{
    if (index >= gnBinTables) return std::nullopt;
    tsBinTableMsg message{};
    message.Index = index;
    message.TableLength = tables[index].length;
    std::copy(tables[index].bytes.begin(), tables[index].bytes.end(), message.Table);
    return message;
}

} // namespace

tsSimRefusal tcSimCamera::SetRowTable(const tsBinTableMsg& message)
{
    return SetTable(message, mtIdentity.rows, &mtSettings.rowTables);
}

std::optional<tsBinTableMsg> tcSimCamera::GetRowTable(const tsWordMsg& message) const
{
    return TableMessage(mtSettings.rowTables, message.Value);
}

tsSimRefusal tcSimCamera::SetColumnTable(const tsBinTableMsg& message)
{
    return SetTable(message, mtIdentity.columns, &mtSettings.columnTables);
}

std::optional<tsBinTableMsg> tcSimCamera::GetColumnTable(const tsWordMsg& message) const
{
    return TableMessage(mtSettings.columnTables, message.Value);
}

// Where half a row begins in the mask, and how many bytes of it a message carries.
tcSimCamera::tsHalfRow tcSimCamera::HalfRow(uint32_t row, uint32_t half) const
{
    const size_t columns = mtIdentity.columns / 2;
    return {size_t{row} * mtIdentity.columns + (half - 1) * columns,
            std::min<size_t>(columns, gnHalfMaskRowBytes)};
}

tsSimRefusal tcSimCamera::SetMask(const tsBinMaskMsg& message)
{
    if (message.Row >= mtIdentity.rows) return "mask row outside the sensor";
    if (message.Half != 1 && message.Half != 2) return "half of a mask row must be 1 or 2";
    mtSettings.mask.resize(size_t{mtIdentity.rows} * mtIdentity.columns);
    const tsHalfRow half = HalfRow(message.Row, message.Half);
    std::memcpy(mtSettings.mask.data() + half.start, message.HalfRow, half.bytes);
    mtSettings.maskArgument = message.Argument;
    return gsAccepted;
}

std::optional<tsBinMaskMsg> tcSimCamera::GetMask(const tsBinMaskRequestMsg& message) const
{
    if (message.Row >= mtIdentity.rows || message.Half < 1 || message.Half > 2) return std::nullopt;
    tsBinMaskMsg answer{};
    answer.Row = message.Row;
    answer.Half = message.Half;
    answer.Argument = mtSettings.maskArgument;
    const tsHalfRow half = HalfRow(message.Row, message.Half);
    if (!mtSettings.mask.empty()) {
        std::memcpy(answer.HalfRow, mtSettings.mask.data() + half.start, half.bytes);
    }
    return answer;
}

tsSimRefusal tcSimCamera::SetSequence(const tsSetBinningSequenceMsg& message)
{
    if (message.Entries > gnSequenceEntries) return "more than 16 entries in a binning sequence";
    for (uint32_t i = 0; i < message.Entries; ++i) {
        if (message.Vertical[i] > gnLargestFactor || message.Horizontal[i] > gnLargestFactor) {
            return "binning factor above 7";
        }
        if (message.Vertical[i] > mtIdentity.rows || message.Horizontal[i] > mtIdentity.columns) {
            return "binning factor above the sensor's size";
        }
    }
    tsBinningSequenceMsg& sequence = mtSettings.sequence;
    std::memcpy(sequence.Vertical, message.Vertical, sizeof sequence.Vertical);
    std::memcpy(sequence.Horizontal, message.Horizontal, sizeof sequence.Horizontal);
    sequence.Entries = static_cast<uint8_t>(message.Entries);
    return gsAccepted;
}

tsSimRefusal tcSimCamera::SetSimpleBinning(const tsSetSimpleBinningMsg& message)
{
    if (message.First < 0 || message.First > mtIdentity.rows || message.Second < 0 ||
        message.Second > mtIdentity.columns) {
        return "binning factor outside the sensor";
    }
    if (!std::isfinite(message.Third) || message.Third < 0) return "binning scale out of range";
    mtSettings.simpleBinning = {message.First, message.Second, message.Third, 0.0f};
    return gsAccepted;
}

tsSimRefusal tcSimCamera::SetTimingData(const tsTimingDataMsg& message)
{
    mtSettings.timingData = message;
    return gsAccepted;
}

tsSimRefusal tcSimCamera::SetParameter(const tsSetParameterMsg& message, uint16_t length)
{
    const uint32_t id = message.Id;
    if (id >= eSimParameterVersion && id <= eSimParameterReadouts) {
        return "parameter " + std::to_string(id) + " is read only";
    }
    if (mtSettings.parameters.count(id) == 0 && mtSettings.parameters.size() >= gnSimRegisters) {
        return "no room for the parameter";
    }
    mtSettings.parameters[id].assign(message.Value, message.Value + (length - sizeof message.Id));
    return gsAccepted;
}

std::optional<std::vector<uint8_t>> tcSimCamera::ParameterValue(uint32_t id) const
{
    using tpReader = std::vector<uint8_t> (*)(const tcSimCamera&);
    static constexpr tpReader readers[] = {
        nullptr,
        [](const tcSimCamera&) { return BytesOf(gnSimVersion); },
        [](const tcSimCamera& camera) { return BytesOf(camera.mtIdentity.serial); },
        [](const tcSimCamera& camera) { return TextBytes(camera.mtIdentity.name); },
        [](const tcSimCamera& camera) { return BytesOf(static_cast<float>(camera.Temperature())); },
        [](const tcSimCamera& camera) {
            return BytesOf(static_cast<float>(camera.mtCooler.Ambient()));
        },
        [](const tcSimCamera& camera) { return BytesOf(camera.mnReadouts); }};
    if (id < std::size(readers) && readers[id]) return readers[id](*this);
    auto found = mtSettings.parameters.find(id);
    if (found == mtSettings.parameters.end()) return std::nullopt;
    return found->second;
}

std::vector<uint8_t> tcSimCamera::GetParameter(const tsWordMsg& message) const
{
    const auto value = ParameterValue(message.Value);
    const int32_t status = value ? 0 : gnSimUnknownParameter;
    std::vector<uint8_t> payload(offsetof(tsParameterMsg, Value) + (value ? value->size() : 0));
    std::memcpy(payload.data() + offsetof(tsParameterMsg, Id), &message.Value, sizeof(uint32_t));
    std::memcpy(payload.data() + offsetof(tsParameterMsg, Status), &status, sizeof status);
    if (value)
        std::copy(value->begin(), value->end(), payload.begin() + offsetof(tsParameterMsg, Value));
    return payload;
}

// The sensor's size and the serial number are facts and stay as they are.
tsSimRefusal tcSimCamera::SetHardware(const TVXCameraHardware& message, uint16_t length)
{
    std::memcpy(&mtHardware, &message, std::min<size_t>(length, sizeof mtHardware));
    mtHardware.Rows = mtIdentity.rows;
    mtHardware.Columns = mtIdentity.columns;
    std::memcpy(mtHardware.Reserved0, &mtIdentity.serial, sizeof mtIdentity.serial);
    return gsAccepted;
}

// Bytes 0..3 serial number, 4..35 name, 36..39 version, 40..41 bits a pixel.
void tcSimCamera::Identify()
{
    mtHardware = TVXCameraHardware();
    const uint16_t bits = 16;
    const std::vector<uint8_t> name = TextBytes(mtIdentity.name);
    std::memcpy(mtHardware.Reserved0, &mtIdentity.serial, sizeof mtIdentity.serial);
    std::memcpy(mtHardware.Reserved0 + 4, name.data(), name.size());
    std::memcpy(mtHardware.Reserved0 + 36, &gnSimVersion, sizeof gnSimVersion);
    std::memcpy(mtHardware.Reserved0 + 40, &bits, sizeof bits);
    mtHardware.Rows = mtIdentity.rows;
    mtHardware.Columns = mtIdentity.columns;
}
