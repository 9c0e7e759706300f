#include "live/frame_part.h"

#include <algorithm>
#include <cstring>

namespace vxcam {

namespace {

constexpr int kMostSide = 65535;

// False: there is no such member, or it is something else.
bool take(const std::string& name, const nlohmann::ordered_json& json, FramePart* part)
{
    const bool isStep = name == "step";
    int* const value = name == "column"    ? &part->area.column
                       : name == "row"     ? &part->area.row
                       : name == "columns" ? &part->area.columns
                       : name == "rows"    ? &part->area.rows
                       : isStep            ? &part->step
                                           : nullptr;
    if (value == nullptr || !json.is_number_integer()) return false;
    const auto number = json.get<int64_t>();
    if (number < (isStep ? 1 : 0) || number > (isStep ? FramePart::kMostStep : kMostSide)) {
        return false;
    }
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
    if (!json.is_object()) return {};
    FramePart part;
    for (const auto& member : json.items()) {
        if (!take(member.key(), member.value(), &part)) return {};
    }
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
