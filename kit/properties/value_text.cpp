// From values to texts.
#include "properties/escapes.h"

#include <vxcamkit/duration.h>
#include <vxcamkit/value.h>

#include <chrono>
#include <cstdio>

namespace vxcam {

namespace {

constexpr size_t kShownBytes = 32;

std::string hexNumber(double number)
{
    char text[32];
    std::snprintf(text, sizeof text, "0x%08llx", static_cast<unsigned long long>(number));
    return text;
}

std::string timeText(Value::Time time)
{
    const auto whole = std::chrono::duration_cast<std::chrono::milliseconds>(time);
    if (whole == time) return exactText(whole);
    return numberText(std::chrono::duration<double, std::micro>(time).count()) + "us";
}

// One field, or what may be one.
std::string itemText(const Value& value, const Field* field)
{
    const bool isHex = field != nullptr && field->kind == FieldKind::Hex;
    switch (value.kind()) {
    case Value::Kind::Nothing:
        return kNone;
    case Value::Kind::Switch:
        return value.toBool() ? "on" : "off";
    case Value::Kind::Time:
        return timeText(value.toTime());
    case Value::Kind::Text:
        return escaped(value.toText());
    case Value::Kind::Bytes:
        return hexText(value.toBytes(), value.toBytes().size());
    default:
        if (isHex) return hexNumber(value.toDouble());
        return numberText(value.toDouble()) + (field != nullptr ? field->unit : "");
    }
}

// Fields, one behind the other. The fields that a shape does not have are of the last one's kind.
std::string groupText(const Value& value, const Shape* shape)
{
    std::string text;
    for (size_t i = 0; i < value.size(); ++i) {
        const Field* const field =
            shape != nullptr ? &shape->fields[std::min(i, shape->fields.size() - 1)] : nullptr;
        const Value& item = value[i];
        const size_t times = item.kind() == Value::Kind::List ? item.size() : 1;
        for (size_t time = 0; time < times; ++time) {
            if (!text.empty()) text += kFieldSeparator;
            text += itemText(item[time], field);
        }
    }
    return text;
}

bool hasGroups(const Value& value, const Shape* shape)
{
    if (shape != nullptr) return shape->groups > 1;
    return value.size() > 0 && value[0].kind() == Value::Kind::List;
}

std::string groupsText(const Value& value, const Shape* shape)
{
    std::string text;
    for (size_t i = 0; i < value.size(); ++i) {
        text += (i > 0 ? std::string(1, kGroupSeparator) : "") + groupText(value[i], shape);
    }
    return text;
}

} // namespace

std::string Value::text() const
{
    if (kind() != Kind::List) return itemText(*this, shape_ ? &shape_->fields[0] : nullptr);
    if (size() == 0) return kNone;
    return hasGroups(*this, shape_) ? groupsText(*this, shape_) : groupText(*this, shape_);
}

std::string Value::shown() const
{
    const bool isLong = kind() == Kind::Bytes && toBytes().size() > kShownBytes;
    if (!isLong) return text();
    return hexText(toBytes(), kShownBytes) + "... (" + std::to_string(toBytes().size()) + " bytes)";
}

} // namespace vxcam
