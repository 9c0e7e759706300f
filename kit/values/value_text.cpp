// From values to texts.
#include "values/escapes.h"

#include <vxcamkit/duration.h>
#include <vxcamkit/value.h>

#include <algorithm>
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

enum class TimeUnit { Second, Millisecond, Microsecond };

// The coarsest one in which all times of a value are whole: side by side they have one unit.
TimeUnit unitOf(const Value& value)
{
    TimeUnit unit = TimeUnit::Second;
    if (value.kind() == Value::Kind::Time) {
        const Value::Time time = value.toTime();
        if (time % std::chrono::seconds(1) != Value::Time(0)) unit = TimeUnit::Millisecond;
        if (time % std::chrono::milliseconds(1) != Value::Time(0)) unit = TimeUnit::Microsecond;
    } else if (value.kind() == Value::Kind::List) {
        for (size_t i = 0; i < value.size(); ++i) {
            unit = std::max(unit, unitOf(value[i]));
        }
    }
    return unit;
}

std::string timeText(Value::Time time, TimeUnit unit)
{
    if (unit == TimeUnit::Microsecond) {
        return numberText(std::chrono::duration<double, std::micro>(time).count()) + "us";
    }
    const auto whole = std::chrono::duration_cast<std::chrono::milliseconds>(time);
    return unit == TimeUnit::Second ? exactText(whole) : std::to_string(whole.count()) + "ms";
}

// One field, or what may be one.
std::string itemText(const Value& value, const Field* field, TimeUnit unit)
{
    const bool isHex = field != nullptr && field->kind == FieldKind::Hex;
    switch (value.kind()) {
    case Value::Kind::Nothing:
        return kNone;
    case Value::Kind::Switch:
        return value.toBool() ? "on" : "off";
    case Value::Kind::Time:
        return timeText(value.toTime(), unit);
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
std::string groupText(const Value& value, const Shape* shape, TimeUnit unit)
{
    std::string text;
    for (size_t i = 0; i < value.size(); ++i) {
        const Field* const field =
            shape != nullptr ? &shape->fields[std::min(i, shape->fields.size() - 1)] : nullptr;
        const Value& item = value[i];
        const size_t times = item.kind() == Value::Kind::List ? item.size() : 1;
        for (size_t time = 0; time < times; ++time) {
            if (!text.empty()) text += kFieldSeparator;
            text += itemText(item[time], field, unit);
        }
    }
    return text;
}

bool hasGroups(const Value& value, const Shape* shape)
{
    if (shape != nullptr) return shape->groups > 1;
    return value.size() > 0 && value[0].kind() == Value::Kind::List;
}

std::string groupsText(const Value& value, const Shape* shape, TimeUnit unit)
{
    std::string text;
    for (size_t i = 0; i < value.size(); ++i) {
        text += (i > 0 ? std::string(1, kGroupSeparator) : "") + groupText(value[i], shape, unit);
    }
    return text;
}

} // namespace

std::string Value::text() const
{
    const TimeUnit unit = unitOf(*this);
    if (kind() != Kind::List) return itemText(*this, shape_ ? &shape_->fields[0] : nullptr, unit);
    if (size() == 0) return kNone;
    return hasGroups(*this, shape_) ? groupsText(*this, shape_, unit)
                                    : groupText(*this, shape_, unit);
}

std::string Value::shown() const
{
    const bool isLong = kind() == Kind::Bytes && toBytes().size() > kShownBytes;
    if (!isLong) return text();
    return hexText(toBytes(), kShownBytes) + "... (" + std::to_string(toBytes().size()) + " bytes)";
}

} // namespace vxcam
