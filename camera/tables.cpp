// Settings that loop or check: area, binning tables, masks and sequences, timing data, parameters.
#include "tcExtension.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>

// ---- Area -------------------------------------------------------------------------------------

static uint32_t Pixels(int32_t told)
{
    return static_cast<uint32_t>(std::clamp(told, 0, 65535));
}

void tcVXCamera::StoreArea(int firstColumn, int firstRow, int columns, int rows)
{
    std::lock_guard<std::mutex> lock(mAreaMutex);
    maArea[0] = firstColumn;
    maArea[1] = firstRow;
    maArea[2] = columns;
    maArea[3] = rows;
    mpExtension->regions.clear();
}

// Kept: the four figures go into the current area's fields as they stand, first rows into the first
// column and so on.
void tcVXCamera::StoreAreaOfRegions(const tsSetAreaExMsg& regions, int count)
{
    constexpr int none = 0x7FFFFFFF;
    int64_t area[4] = {none, none, 0, 0};
    for (int i = 0; i < count; ++i) {
        area[0] = std::min<int64_t>(area[0], regions.FirstRows[i]);
        area[1] = std::min<int64_t>(area[1], regions.FirstColumns[i]);
        area[2] += regions.Heights[i];
        area[3] = std::max<int64_t>(area[3], regions.Widths[i]);
    }
    StoreArea(static_cast<int>(area[0]), static_cast<int>(area[1]), static_cast<int>(area[2]),
              static_cast<int>(area[3]));
    std::lock_guard<std::mutex> lock(mAreaMutex);
    for (int i = 0; i < count; ++i) {
        mpExtension->regions.push_back({Pixels(regions.FirstRows[i]),
                                        Pixels(regions.FirstColumns[i]), Pixels(regions.Heights[i]),
                                        Pixels(regions.Widths[i])});
    }
}

// What an area readout asks for; nothing where that is left to the camera. `area` is how its
// command tells it.
std::vector<tsRegion> tcVXCamera::RegionsToRead(uint16_t (&area)[4])
{
    std::lock_guard<std::mutex> lock(mAreaMutex);
    std::transform(std::begin(maArea), std::end(maArea), std::begin(area),
                   [](int value) { return static_cast<uint16_t>(value); });
    std::vector<tsRegion> read = mpExtension->regions;
    if (read.empty()) read.push_back({area[1], area[0], area[3], area[2]});
    const auto isEmpty = [](const tsRegion& region) {
        return region.rows == 0 || region.columns == 0;
    };
    read.erase(std::remove_if(read.begin(), read.end(), isEmpty), read.end());
    return read;
}

int tcVXCamera::SetCCDArea(int firstColumn, int firstRow, int columns, int rows)
{
    LogEntered("SetCCDArea");
    StoreArea(firstColumn, firstRow, columns, rows);
    return Send(cmdSetCCDArea, {static_cast<uint16_t>(firstColumn), static_cast<uint16_t>(firstRow),
                                static_cast<uint16_t>(columns), static_cast<uint16_t>(rows), 0});
}

int tcVXCamera::GetCCDArea(int* firstColumn, int* firstRow, int* columns, int* rows)
{
    std::lock_guard<std::mutex> lock(mAreaMutex);
    if (firstColumn != nullptr) *firstColumn = maArea[0];
    if (firstRow != nullptr) *firstRow = maArea[1];
    if (columns != nullptr) *columns = maArea[2];
    if (rows != nullptr) *rows = maArea[3];
    return eVXOk;
}

int tcVXCamera::SetAreaEx(int count, int* rows, int* columns, int* heights, int* widths)
{
    LogEntered("SetAreaEx");
    if (count < 0 || count > gnAreaRegions) return eVXArgument;
    if (count > 0 && (!rows || !columns || !heights || !widths)) return eVXArgument;
    tsSetAreaExMsg regions{};
    regions.RegionCount = static_cast<uint8_t>(count);
    for (int i = 0; i < count; ++i) {
        regions.FirstRows[i] = rows[i];
        regions.FirstColumns[i] = columns[i];
        regions.Heights[i] = heights[i];
        regions.Widths[i] = widths[i];
    }
    StoreAreaOfRegions(regions, count);
    Send(cmdSetAreaEx, regions);
    return eVXOk;
}

int tcVXCamera::GetAreaEx(int* first, int* count, int* rows, int* columns, int* heights,
                          int* widths)
{
    LogEntered("GetExposure"); // Kept: names another operation
    tsFramed<tsAreaExMsg> answer{};
    const int result = Ask(cmdGetAreaEx, &answer);
    if (result != eVXOk) {
        StoreAreaOfRegions({}, 0);
        return result;
    }
    if (first != nullptr) *first = answer.payload.First;
    if (count != nullptr) *count = answer.payload.RegionCount;
    const tsAreaExMsg regions = answer.payload;
    if (rows != nullptr) memcpy(rows, regions.FirstRows, sizeof regions.FirstRows);
    if (columns != nullptr) memcpy(columns, regions.FirstColumns, sizeof regions.FirstColumns);
    if (heights != nullptr) memcpy(heights, regions.Heights, sizeof regions.Heights);
    if (widths != nullptr) memcpy(widths, regions.Widths, sizeof regions.Widths);
    StoreAreaOfRegions(regions, std::min<int>(answer.payload.RegionCount, gnAreaRegions));
    return result;
}

// ---- Binning tables ---------------------------------------------------------------------------

int tcVXCamera::SetTable(const tsCommand<tsBinTableMsg>& command, unsigned char* table, int index,
                         uint32_t length)
{
    if (index < 0 || index >= gnBinTables || table == nullptr) return eVXArgument;
    tsBinTableMsg message{};
    message.Index = static_cast<uint32_t>(index);
    message.TableLength = static_cast<uint16_t>(std::min<uint32_t>(length, gnBinTableBytes));
    memcpy(message.Table, table, message.TableLength);
    Send(command, message);
    return eVXOk;
}

int tcVXCamera::SetBinParam(unsigned char* table, int index)
{
    LogEntered("SetBinParam");
    return SetTable(cmdSetBinParam, table, index, mnRows);
}

int tcVXCamera::SetHorBinParam(unsigned char* table, int index)
{
    LogEntered("SetHorbinParam"); // Kept: the spelling
    return SetTable(cmdSetHorBinParam, table, index, mnColumns);
}

int tcVXCamera::GetTable(const tsCommand<tsWordMsg>& command, int index, unsigned char* table,
                         int* size)
{
    if (table == nullptr || size == nullptr) return eVXArgument;
    tuCameraMessages answer; // as large as any
    memset(&answer, 0, sizeof answer);
    const int result = Ask(command, {static_cast<uint32_t>(index)}, &answer);
    const int head = gnHeaderBytes + static_cast<int>(offsetof(tsBinTableMsg, Table));
    const int carried = std::max(0, answer.header.Length + gnHeaderBytes - head);
    const int length = std::min<int>(answer.BinTable.payload.TableLength, carried);
    const int room = *size;
    *size = length;
    if (result != eVXOk) return result;
    if (room < length) return eVXSize;
    memcpy(table, answer.bytes + head, static_cast<size_t>(length));
    return eVXOk;
}

int tcVXCamera::GetBinParam(int index, unsigned char* table, int* size)
{
    LogEntered("GetBinParam");
    return GetTable(cmdGetBinParam, index, table, size);
}

int tcVXCamera::GetHorBinParam(int index, unsigned char* table, int* size)
{
    LogEntered("GetHorBinParam");
    return GetTable(cmdGetHorBinParam, index, table, size);
}

// ---- Bin mask ---------------------------------------------------------------------------------

int tcVXCamera::SetBinMaskParam(unsigned char* mask, int argument)
{
    LogEntered("SetBinMaskParam");
    if (mask == nullptr) return eVXArgument;
    const uint32_t rows = mnRows, columns = mnColumns, half = columns / 2;
    for (uint32_t row = 0; row < rows; ++row) {
        for (uint16_t part : {1, 2}) {
            tsBinMaskMsg message{};
            const unsigned char* from = mask + static_cast<size_t>(row) * columns;
            if (part == 2) from += half;
            memcpy(message.HalfRow, from, std::min<size_t>(half, gnHalfMaskRowBytes));
            message.Row = static_cast<uint16_t>(row);
            message.Half = part;
            message.Argument = static_cast<uint32_t>(argument);
            // The camera takes the rows no faster.
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            if (mbClosing) return eVXFailed;
            Send(cmdSetBinMaskParam, message);
        }
    }
    return eVXOk;
}

int tcVXCamera::GetBinMaskParam(unsigned char* mask, int*, int* argument)
{
    LogEntered("GetBinParam"); // Kept: names another operation
    const uint32_t rows = mnRows, columns = mnColumns;
    uint16_t last = 0;
    int result = eVXOk;
    for (uint32_t row = 0; row < rows && result == eVXOk; ++row) {
        for (uint16_t part : {1, 2}) {
            unsigned char* to = nullptr;
            if (mask != nullptr) {
                to = mask + static_cast<size_t>(row) * columns + (part == 2 ? columns / 2 : 0);
            }
            result = Ask(cmdGetBinMaskParam, {static_cast<uint16_t>(row), part}, to, &last);
            if (result != eVXOk) break;
        }
    }
    if (result == eVXOk && argument != nullptr) *argument = last;
    return result;
}

// ---- Binning sequence -------------------------------------------------------------------------

int tcVXCamera::SetBinningSequence(unsigned char* vertical, unsigned char* horizontal,
                                   unsigned char count)
{
    LogEntered("SetBinningSequence");
    constexpr int largestFactor = 7;
    if (count > gnSequenceEntries) return eVXArgument;
    if (count > 0 && (vertical == nullptr || horizontal == nullptr)) return eVXArgument;
    tsSetBinningSequenceMsg sequence{};
    sequence.Entries = count;
    for (int i = 0; i < count; ++i) {
        if (vertical[i] > largestFactor || horizontal[i] > largestFactor) return eVXArgument;
        mLog.logDebug(0, "%d %d %d", i, vertical[i], horizontal[i]);
        sequence.Vertical[i] = vertical[i];
        sequence.Horizontal[i] = horizontal[i];
    }
    return Send(cmdSetBinningSequence, sequence);
}

int tcVXCamera::GetBinningSequence(unsigned char* vertical, unsigned char* horizontal,
                                   unsigned char* count)
{
    LogEntered("GetBinningSequence");
    tsBinningSequenceResults results{vertical, horizontal, count};
    return Ask(cmdGetBinningSequence, &results);
}

// ---- Timing data and parameters ---------------------------------------------------------------

int tcVXCamera::SetTimingData(void* data, int size)
{
    LogEntered("SetTimingData");
    if (size < 0 || size > gnTimingDataBytes) return eVXSize;
    if (data == nullptr && size > 0) return eVXArgument;
    tsTimingDataMsg message{};
    if (size > 0) memcpy(message.Data, data, static_cast<size_t>(size));
    return Send(cmdSetTimingData, message);
}

int tcVXCamera::GetTimingFileData(void* data, int* size)
{
    LogEntered("GetTimingFileData");
    const int result = Ask(cmdGetTimingFileData, data);
    if (result == eVXOk && size != nullptr) *size = gnTimingDataBytes;
    return result;
}

int tcVXCamera::SetParameter(unsigned int id, void* value, int size)
{
    LogEntered("SetParameter");
    if (value == nullptr || size < 1 || size > gnParameterBytes) return eVXArgument;
    tsSetParameterMsg message;
    message.Id = id;
    memcpy(message.Value, value, static_cast<size_t>(size));
    return SendRow(cmdSetParameter.Row(), &message,
                   static_cast<int>(offsetof(tsSetParameterMsg, Value)) + size);
}

int tcVXCamera::GetParameter(unsigned int id, void* value, int size)
{
    LogEntered("GetParameter");
    if (value == nullptr || size < 1 || size > gnParameterBytes) return eVXArgument;
    int status = size;
    const int result = Ask(cmdGetParameter, {id}, value, &status);
    return result != eVXOk ? result : status;
}
