// Binning: factors, sequences, tables and the mask.
#include "fields.h"

#include <algorithm>
#include <string>
#include <vector>

namespace {

constexpr int gnMostEntries = 16;
constexpr double gnMostFactor = 7;
constexpr uint32_t gnLastTable = 7;
constexpr int gnMostTableBytes = 2048;
constexpr size_t gnHalfRowBytes = 512; // room that a camera's answer needs

int ReadSimple(tcSession& session, uint32_t, tsSetting* setting)
{
    const int result = ReadInto(VXGetSimpleBinning, session.Handle(), setting);
    if (result == eVXOk) setting->numbers.resize(3);
    return result;
}

// The fourth number of the C interface does not travel.
int WriteSimple(tcSession& session, uint32_t, const tsSetting& setting)
{
    return VXSetSimpleBinning(session.Handle(), static_cast<int>(setting.numbers[0]),
                              static_cast<int>(setting.numbers[1]),
                              static_cast<float>(setting.numbers[2]), 0.0F);
}

int ReadSequence(tcSession& session, uint32_t, tsSetting* setting)
{
    unsigned char vertical[gnMostEntries] = {}, horizontal[gnMostEntries] = {}, count = 0;
    const int result = VXGetBinningSequence(session.Handle(), vertical, horizontal, &count);
    if (result != eVXOk) return result;
    for (int i = 0; i < std::min<int>(count, gnMostEntries); ++i) {
        setting->numbers.push_back(vertical[i]);
        setting->numbers.push_back(horizontal[i]);
    }
    return result;
}

int WriteSequence(tcSession& session, uint32_t, const tsSetting& setting)
{
    unsigned char factors[2][gnMostEntries] = {};
    for (size_t i = 0; i < setting.numbers.size(); ++i) {
        factors[i % 2][i / 2] = static_cast<unsigned char>(setting.numbers[i]);
    }
    return VXSetBinningSequence(session.Handle(), factors[0], factors[1],
                                static_cast<unsigned char>(setting.numbers.size() / 2));
}

// The library sends a byte for each row (or column), so the table is made as long.
std::vector<uint8_t> WholeTable(const tsSetting& setting, int length)
{
    std::vector<uint8_t> table = setting.bytes;
    table.resize(std::max<size_t>(table.size(), static_cast<size_t>(length)));
    return table;
}

std::string CheckTable(const tsSetting& setting, int length, const char* what)
{
    if (setting.bytes.size() <= static_cast<size_t>(length)) return "";
    return std::to_string(setting.bytes.size()) + " bytes, the sensor has " +
           std::to_string(length) + " " + what;
}

std::string CheckRowTable(tcSession& session, const tsSetting& setting)
{
    return CheckTable(setting, session.Sensor().rows, "rows");
}

std::string CheckColumnTable(tcSession& session, const tsSetting& setting)
{
    return CheckTable(setting, session.Sensor().columns, "columns");
}

int ReadTable(int (*get)(int, int, unsigned char*, int*), tcSession& session, uint32_t index,
              tsSetting* setting)
{
    int size = gnMostTableBytes;
    setting->bytes.resize(gnMostTableBytes);
    const int result = get(session.Handle(), static_cast<int>(index), setting->bytes.data(), &size);
    setting->bytes.resize(static_cast<size_t>(result == eVXOk ? size : 0));
    return result;
}

int ReadRowTable(tcSession& session, uint32_t index, tsSetting* setting)
{
    return ReadTable(VXGetBinParam, session, index, setting);
}

int WriteRowTable(tcSession& session, uint32_t index, const tsSetting& setting)
{
    std::vector<uint8_t> table = WholeTable(setting, session.Sensor().rows);
    return VXSetBinParam(session.Handle(), table.data(), static_cast<int>(index));
}

int ReadColumnTable(tcSession& session, uint32_t index, tsSetting* setting)
{
    return ReadTable(VXGetHorBinParam, session, index, setting);
}

int WriteColumnTable(tcSession& session, uint32_t index, const tsSetting& setting)
{
    std::vector<uint8_t> table = WholeTable(setting, session.Sensor().columns);
    return VXSetHorBinParam(session.Handle(), table.data(), static_cast<int>(index));
}

size_t Pixels(tcSession& session)
{
    return static_cast<size_t>(session.Sensor().rows) *
           static_cast<size_t>(session.Sensor().columns);
}

std::string CheckMask(tcSession& session, const tsSetting& setting)
{
    if (setting.bytes.size() == Pixels(session)) return "";
    return std::to_string(setting.bytes.size()) + " bytes, the sensor has " +
           std::to_string(Pixels(session)) + " pixels";
}

int ReadMask(tcSession& session, uint32_t, tsSetting* setting)
{
    setting->bytes.assign(Pixels(session) + gnHalfRowBytes, 0);
    const int result = VXGetBinMaskParam(session.Handle(), setting->bytes.data(), nullptr, nullptr);
    setting->bytes.resize(result == eVXOk ? Pixels(session) : 0);
    return result;
}

int WriteMask(tcSession& session, uint32_t, const tsSetting& setting)
{
    std::vector<uint8_t> mask = setting.bytes;
    return VXSetBinMaskParam(session.Handle(), mask.data(), 0);
}

tsProperty Table(const char* name, const char* summary,
                 int (*read)(tcSession&, uint32_t, tsSetting*),
                 int (*write)(tcSession&, uint32_t, const tsSetting&),
                 std::string (*check)(tcSession&, const tsSetting&))
{
    tsProperty property{name, summary, {{Bytes(1, gnMostTableBytes)}}, read, write};
    property.key = "INDEX";
    property.mostKey = gnLastTable;
    property.check = check;
    return property;
}

tsProperty Mask()
{
    constexpr double most = 65535.0 * 65535.0;
    tsProperty property{"bin-mask",
                        "the bin of each pixel, row by row; 2 ms a row to send",
                        {{Bytes(1, most)}},
                        ReadMask,
                        WriteMask};
    property.isListed = false;
    property.check = CheckMask;
    return property;
}

} // namespace

std::vector<tsProperty> BinningProperties()
{
    return {
        {"simple-binning",
         "rows and columns in a bin, and a factor for its sum",
         {{Whole("rows"), Whole("columns"), Or(Real("factor"), 0)}},
         ReadSimple,
         WriteSimple},
        {"binning-sequence",
         "factors of up to 16 frames in turn",
         {{Number("vertical", 0, gnMostFactor), Number("horizontal", 0, gnMostFactor)},
          gnMostEntries},
         ReadSequence,
         WriteSequence},
        Table("bin-table", "vertical binning table, a byte a row", ReadRowTable, WriteRowTable,
              CheckRowTable),
        Table("hor-bin-table", "horizontal binning table, a byte a column", ReadColumnTable,
              WriteColumnTable, CheckColumnTable),
        Mask(),
    };
}
