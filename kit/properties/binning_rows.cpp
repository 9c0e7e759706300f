// Binning: factors, sequences, tables and the mask.
#include "properties/rows.h"

#include <algorithm>

namespace vxcam {

namespace {

constexpr int kMostEntries = 16;
constexpr double kMostFactor = 7;
constexpr uint32_t kLastTable = 7;
constexpr int kMostTableBytes = 2048;
constexpr size_t kHalfRowBytes = 512; // room that a camera's answer needs
constexpr double kMostPixels = 65535.0 * 65535.0;

// The fourth number of the C interface does not travel.
int writeSimple(Access& access, uint32_t, const FieldValues& values)
{
    return VXSetSimpleBinning(access.handle(), static_cast<int>(values.numbers[0]),
                              static_cast<int>(values.numbers[1]),
                              static_cast<float>(values.numbers[2]), 0.0F);
}

int readSequence(Access& access, uint32_t, FieldValues* values)
{
    unsigned char vertical[kMostEntries] = {}, horizontal[kMostEntries] = {}, count = 0;
    const int result = VXGetBinningSequence(access.handle(), vertical, horizontal, &count);
    if (result != eVXOk) return result;
    for (int i = 0; i < std::min<int>(count, kMostEntries); ++i) {
        values->numbers.push_back(vertical[i]);
        values->numbers.push_back(horizontal[i]);
    }
    return result;
}

int writeSequence(Access& access, uint32_t, const FieldValues& values)
{
    unsigned char factors[2][kMostEntries] = {};
    for (size_t i = 0; i < values.numbers.size(); ++i) {
        factors[i % 2][i / 2] = static_cast<unsigned char>(values.numbers[i]);
    }
    return VXSetBinningSequence(access.handle(), factors[0], factors[1],
                                static_cast<unsigned char>(values.numbers.size() / 2));
}

// ---- Tables: the library sends a byte for each row (or column), so the table is made as long ----

std::vector<uint8_t> wholeTable(const FieldValues& values, int length)
{
    std::vector<uint8_t> table = values.bytes;
    table.resize(std::max<size_t>(table.size(), static_cast<size_t>(length)));
    return table;
}

std::string checkTable(const FieldValues& values, int length, const char* what)
{
    if (values.bytes.size() <= static_cast<size_t>(length)) return "";
    return std::to_string(values.bytes.size()) + " bytes, the sensor has " +
           std::to_string(length) + " " + what;
}

std::string checkRowTable(Access& access, const FieldValues& values)
{
    return checkTable(values, access.sensor().rows, "rows");
}

std::string checkColumnTable(Access& access, const FieldValues& values)
{
    return checkTable(values, access.sensor().columns, "columns");
}

template <int (*Get)(int, int, unsigned char*, int*)>
int readTable(Access& access, uint32_t index, FieldValues* values)
{
    int size = kMostTableBytes;
    values->bytes.resize(kMostTableBytes);
    const int result = Get(access.handle(), static_cast<int>(index), values->bytes.data(), &size);
    values->bytes.resize(static_cast<size_t>(result == eVXOk ? size : 0));
    return result;
}

int writeRowTable(Access& access, uint32_t index, const FieldValues& values)
{
    std::vector<uint8_t> table = wholeTable(values, access.sensor().rows);
    return VXSetBinParam(access.handle(), table.data(), static_cast<int>(index));
}

int writeColumnTable(Access& access, uint32_t index, const FieldValues& values)
{
    std::vector<uint8_t> table = wholeTable(values, access.sensor().columns);
    return VXSetHorBinParam(access.handle(), table.data(), static_cast<int>(index));
}

// ---- The mask -----------------------------------------------------------------------------------

size_t pixels(Access& access)
{
    return static_cast<size_t>(access.sensor().rows) * static_cast<size_t>(access.sensor().columns);
}

std::string checkMask(Access& access, const FieldValues& values)
{
    if (values.bytes.size() == pixels(access)) return "";
    return std::to_string(values.bytes.size()) + " bytes, the sensor has " +
           std::to_string(pixels(access)) + " pixels";
}

int readMask(Access& access, uint32_t, FieldValues* values)
{
    values->bytes.assign(pixels(access) + kHalfRowBytes, 0);
    const int result = VXGetBinMaskParam(access.handle(), values->bytes.data(), nullptr, nullptr);
    values->bytes.resize(result == eVXOk ? pixels(access) : 0);
    return result;
}

int writeMask(Access& access, uint32_t, const FieldValues& values)
{
    std::vector<uint8_t> mask = values.bytes;
    return VXSetBinMaskParam(access.handle(), mask.data(), 0);
}

} // namespace

std::vector<Property> binningRows()
{
    return grouped(
        Group::Binning,
        {
            Row("simple-binning", "rows and columns in a bin, and a factor for its sum",
                {whole("rows"), whole("columns"), orElse(real("factor"), 0)})
                .reads(readFirst<VXGetSimpleBinning, 3>)
                .writes(writeSimple)
                .indi("CCD_BINNING"),

            Row("binning-sequence", "factors of up to 16 frames in turn",
                {number("vertical", 0, kMostFactor), number("horizontal", 0, kMostFactor)})
                .groups(kMostEntries)
                .reads(readSequence)
                .writes(writeSequence),

            Row("bin-table", "vertical binning table, a byte a row", {bytes(1, kMostTableBytes)})
                .keyed("INDEX", kLastTable)
                .allKeys()
                .reads(readTable<VXGetBinParam>)
                .writes(writeRowTable)
                .checks(checkRowTable),

            Row("hor-bin-table", "horizontal binning table, a byte a column",
                {bytes(1, kMostTableBytes)})
                .keyed("INDEX", kLastTable)
                .allKeys()
                .reads(readTable<VXGetHorBinParam>)
                .writes(writeColumnTable)
                .checks(checkColumnTable),

            Row("bin-mask", "the bin of each pixel, row by row; 2 ms a row to send",
                {bytes(1, kMostPixels)})
                .reads(readMask)
                .writes(writeMask)
                .checks(checkMask)
                .costs(Cost::Many)
                .unlisted(),
        });
}

} // namespace vxcam
