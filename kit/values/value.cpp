#include <vxcamkit/value.h>

#include <vxcamkit/error.h>

#include <cmath>
#include <limits>
#include <utility>

namespace vxcam {

namespace {

constexpr long double kNanoseconds = 1e9L; // in a second

[[noreturn]] void refuseKind(const Value& value, const char* what)
{
    throw Error(ErrorKind::Usage, "value '" + value.shown() + "': it is " + what);
}

bool isNumber(Value::Kind kind)
{
    return kind == Value::Kind::Switch || kind == Value::Kind::Whole || kind == Value::Kind::Real;
}

} // namespace

Value Value::list(List items)
{
    Value value;
    value.content_ = std::move(items);
    return value;
}

Value::Content Value::wholeOf(bool isNegative, uint64_t bits)
{
    if (isNegative || bits <= static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
        return static_cast<int64_t>(bits);
    }
    return static_cast<double>(bits);
}

// What is no time that nanoseconds can hold stays a number, which no property takes for a time.
Value::Content Value::timeOf(long double seconds)
{
    const long double count = std::round(seconds * kNanoseconds);
    constexpr int64_t half = std::numeric_limits<int64_t>::max() / 2;
    const auto most = static_cast<long double>(half);
    if (!(std::abs(count) <= most)) return static_cast<double>(seconds);
    return Time(static_cast<int64_t>(count));
}

bool Value::toBool() const
{
    if (const bool* on = std::get_if<bool>(&content_)) return *on;
    const bool isBit = kind() == Kind::Whole && (toInt() == 0 || toInt() == 1);
    if (!isBit) refuseKind(*this, "no switch");
    return toInt() != 0;
}

int64_t Value::toInt() const
{
    if (const auto* number = std::get_if<int64_t>(&content_)) return *number;
    if (const bool* on = std::get_if<bool>(&content_)) return *on ? 1 : 0;
    constexpr double most = 9007199254740992.0; // up to which a double holds every whole number
    const auto* real = std::get_if<double>(&content_);
    const bool isWhole = real != nullptr && *real == std::trunc(*real) && std::abs(*real) <= most;
    if (!isWhole) refuseKind(*this, "no whole number");
    return static_cast<int64_t>(*real);
}

double Value::toDouble() const
{
    if (const auto* real = std::get_if<double>(&content_)) return *real;
    if (const auto* time = std::get_if<Time>(&content_)) {
        return static_cast<double>(static_cast<long double>(time->count()) / kNanoseconds);
    }
    if (!isNumber(kind())) refuseKind(*this, "no number");
    return static_cast<double>(toInt());
}

Value::Time Value::toTime() const
{
    if (const auto* time = std::get_if<Time>(&content_)) return *time;
    if (!isNumber(kind())) refuseKind(*this, "no time");
    const Content content = timeOf(toDouble());
    const auto* time = std::get_if<Time>(&content);
    if (time == nullptr) refuseKind(*this, "no time");
    return *time;
}

const std::string& Value::toText() const
{
    const auto* text = std::get_if<std::string>(&content_);
    if (text == nullptr) refuseKind(*this, "no text");
    return *text;
}

const Value::Bytes& Value::toBytes() const
{
    const auto* bytes = std::get_if<Bytes>(&content_);
    if (bytes == nullptr) refuseKind(*this, "no block of bytes");
    return *bytes;
}

size_t Value::size() const
{
    const auto* items = std::get_if<List>(&content_);
    if (items != nullptr) return items->size();
    return isNothing() ? 0 : 1;
}

const Value& Value::operator[](size_t i) const
{
    const auto* items = std::get_if<List>(&content_);
    if (i >= size()) refuseKind(*this, "shorter than that");
    return items != nullptr ? (*items)[i] : *this;
}

const Value& Value::field(const char* name) const
{
    const bool isGroup = shape_ != nullptr && shape_->groups == 1;
    for (size_t i = 0; isGroup && i < shape_->fields.size(); ++i) {
        if (std::string(name) == shape_->fields[i].name) return (*this)[i];
    }
    refuseKind(*this, ("without a field '" + std::string(name) + "'").c_str());
}

bool Value::operator==(const Value& other) const
{
    if (isNumber(kind()) && isNumber(other.kind())) return toDouble() == other.toDouble();
    return content_ == other.content_;
}

} // namespace vxcam
