#include "properties/area_memory.h"

#include "properties/rows.h"

#include <algorithm>
#include <array>

namespace vxcam {

// What the library remembers, of one camera.
class AreaMemory
{
public:
    using Figures = std::array<int, 4>; // first column, first row, columns, rows

    explicit AreaMemory(Access& access) : access_(access) {}

    // The area that was set; nothing when none was, or regions were set later.
    std::optional<Figures> area() const
    {
        const Figures figures = remembered();
        if (figures[2] <= 0 || figures == access_.areaOfRegions_) return std::nullopt;
        return figures;
    }

    // What is remembered now was made from regions.
    void noteRegions() { access_.areaOfRegions_ = remembered(); }

    int set(const Figures& figures)
    {
        access_.areaOfRegions_ = {};
        return VXSetCCDArea(access_.handle(), figures[0], figures[1], figures[2], figures[3]);
    }

private:
    Figures remembered() const
    {
        Figures figures{};
        VXGetCCDArea(access_.handle(), &figures[0], &figures[1], &figures[2], &figures[3]);
        return figures;
    }

    Access& access_;
};

namespace {

// Runs what makes the library forget the area, and puts it back unless there are regions then.
template <class Operation>
int keepingArea(Access& access, const Operation& operation)
{
    AreaMemory memory(access);
    const std::optional<AreaMemory::Figures> area = memory.area();
    int regions = 0;
    const int result = operation(&regions);
    if (result == eVXOk && regions > 0) {
        memory.noteRegions();
    } else if (area) {
        memory.set(*area);
    }
    return result;
}

} // namespace

std::vector<Field> areaFields()
{
    return {number("column", 0, kMost16), number("row", 0, kMost16), number("columns", 1, kMost16),
            number("rows", 1, kMost16)};
}

std::string checkRegions(Access& access, const FieldValues& values)
{
    const Size sensor = access.sensor();
    for (size_t i = 0; i + 3 < values.numbers.size(); i += 4) {
        const double* const area = &values.numbers[i];
        if (area[0] + area[2] > sensor.columns || area[1] + area[3] > sensor.rows) {
            return "reaches beyond the sensor of " + std::to_string(sensor.columns) + " x " +
                   std::to_string(sensor.rows) + " pixels";
        }
    }
    return "";
}

int readArea(Access& access, uint32_t, FieldValues* values)
{
    const auto area = AreaMemory(access).area();
    if (area) values->numbers.assign(area->begin(), area->end());
    return eVXOk;
}

int writeArea(Access& access, uint32_t, const FieldValues& values)
{
    AreaMemory::Figures figures{0, 0, access.sensor().columns, access.sensor().rows};
    std::transform(values.numbers.begin(), values.numbers.end(), figures.begin(),
                   [](double number) { return static_cast<int>(number); });
    return AreaMemory(access).set(figures);
}

int readRegions(Access& access, uint32_t, FieldValues* values)
{
    return keepingArea(access, [&](int* count) {
        int first = 0;
        int rows[kMostRegions], columns[kMostRegions], heights[kMostRegions], widths[kMostRegions];
        const int result =
            VXGetAreaEx(access.handle(), &first, count, rows, columns, heights, widths);
        for (int i = 0; result == eVXOk && i < std::min(*count, kMostRegions); ++i) {
            for (const int figure : {columns[i], rows[i], widths[i], heights[i]}) {
                values->numbers.push_back(figure);
            }
        }
        return result;
    });
}

int writeRegions(Access& access, uint32_t, const FieldValues& values)
{
    return keepingArea(access, [&](int* count) {
        int parts[4][kMostRegions] = {};
        for (size_t i = 0; i < values.numbers.size(); ++i) {
            parts[i % 4][i / 4] = static_cast<int>(values.numbers[i]);
        }
        *count = static_cast<int>(values.numbers.size() / 4);
        return VXSetAreaEx(access.handle(), *count, parts[1], parts[0], parts[3], parts[2]);
    });
}

} // namespace vxcam
