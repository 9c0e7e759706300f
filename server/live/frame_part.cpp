#include "live/frame_part.h"

#include <algorithm>
#include <cstring>

namespace vxcam {

namespace {

constexpr int kMostSide = 65535;

// A member of the object, which may be absent; false where it is something else.
bool take(const nlohmann::ordered_json& json, const char* name, int least, int most, int* value)
{
    const auto member = json.find(name);
    if (member == json.end()) return true;
    if (!member->is_number_integer()) return false;
    const auto number = member->get<int64_t>();
    if (number < least || number > most) return false;
    *value = static_cast<int>(number);
    return true;
}

template <size_t bytes>
void copyRow(const std::byte* from, int step, int columns, std::byte* to)
{
    const size_t stride = bytes * static_cast<size_t>(step);
    for (int column = 0; column < columns; ++column, from += stride, to += bytes) {
        std::memcpy(to, from, bytes);
    }
}

} // namespace

std::optional<FramePart> FramePart::of(const nlohmann::ordered_json& json)
{
    FramePart part;
    const bool isGood = json.is_object() && take(json, "column", 0, kMostSide, &part.area.column) &&
                        take(json, "row", 0, kMostSide, &part.area.row) &&
                        take(json, "columns", 0, kMostSide, &part.area.columns) &&
                        take(json, "rows", 0, kMostSide, &part.area.rows) &&
                        take(json, "step", 1, kMostStep, &part.step);
    if (!isGood) return {};
    return part;
}

FramePart FramePart::within(Size frame) const
{
    FramePart part{{area.column, area.row, std::min(area.columns, frame.columns - area.column),
                    std::min(area.rows, frame.rows - area.row)},
                   step};
    if (part.area.empty()) part.area = {0, 0, frame.columns, frame.rows};
    return part;
}

Size FramePart::size() const
{
    return {(area.columns + step - 1) / step, (area.rows + step - 1) / step};
}

nlohmann::ordered_json jsonOf(const FramePart& part)
{
    const Size size = part.size();
    return {{"column", part.area.column},
            {"row", part.area.row},
            {"step", part.step},
            {"columns", size.columns},
            {"rows", size.rows}};
}

void copyPart(const Frame& frame, const FramePart& part, std::vector<std::byte>* pixels)
{
    const size_t bytes = static_cast<size_t>(frame.bits()) / 8;
    const size_t width = bytes * static_cast<size_t>(frame.columns());
    const Size size = part.size();
    pixels->resize(bytes * static_cast<size_t>(size.columns) * static_cast<size_t>(size.rows));
    const std::byte* from = static_cast<const std::byte*>(frame.data()) +
                            width * static_cast<size_t>(part.area.row) +
                            bytes * static_cast<size_t>(part.area.column);
    std::byte* to = pixels->data();
    const auto copy = bytes == 1 ? copyRow<1> : bytes == 2 ? copyRow<2> : copyRow<4>;
    for (int row = 0; row < size.rows; ++row) {
        copy(from, part.step, size.columns, to);
        from += width * static_cast<size_t>(part.step);
        to += bytes * static_cast<size_t>(size.columns);
    }
}

} // namespace vxcam
