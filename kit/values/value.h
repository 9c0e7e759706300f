// Values of properties.
#ifndef VXCAMKIT_VALUE_H
#define VXCAMKIT_VALUE_H

#include <vxcamkit/export.h>
#include <vxcamkit/shape.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

namespace vxcam {

// A value: a number, a switch, a time, a text, bytes, or a list of such; or nothing, which is what
// a camera does not know (yet).
//
// An application makes one of whatever is at hand; what it means is found out when it is given to a
// property:
//
//     camera.set("gain", 2);
//     camera.set("exposure", 500ms);                      // 0.5 and "500ms" are the same
//     camera.set("trigger-mode", "frame,3,-4");           // as texts are written
//     camera.set("trigger-mode", Value::list({"frame", 3, -4}));
//
// One that was read knows its shape, and so its text, its JSON and its fields by their names.
//
// Conversions throw Error{Usage} where the value is nothing of that kind. Shapes are those of the
// table, which lives as long as the process, or must outlive the value.
class VXCAMKIT_EXPORT Value
{
public:
    using Bytes = std::vector<uint8_t>;
    using List = std::vector<Value>;
    using Time = std::chrono::nanoseconds;
    enum class Kind { Nothing, Switch, Whole, Real, Time, Text, Bytes, List };

    Value() = default;
    template <class Number, std::enable_if_t<std::is_arithmetic_v<Number>, int> = 0>
    Value(Number number) : content_(contentOf(number))
    {}
    template <class Rep, class Period>
    Value(std::chrono::duration<Rep, Period> time)
        : content_(timeOf(std::chrono::duration<long double>(time).count()))
    {}
    Value(const char* text) : content_(std::string(text)) {}
    Value(std::string_view text) : content_(std::string(text)) {}
    Value(std::string text) : content_(std::move(text)) {}
    Value(Bytes bytes) : content_(std::move(bytes)) {}
    // The fields of one value, or a value's groups.
    static Value list(List items);

    Kind kind() const { return static_cast<Kind>(content_.index()); }
    bool isNothing() const { return kind() == Kind::Nothing; }

    bool toBool() const;               // a switch
    int64_t toInt() const;             // a whole number, or a switch: 0 or 1
    double toDouble() const;           // any number; a time in seconds
    Time toTime() const;               // a time; a number counts as seconds
    const std::string& toText() const; // a text, or the word of a choice
    const Bytes& toBytes() const;

    // Fields or groups: 0 of nothing, 1 of what is no list.
    size_t size() const;
    const Value& operator[](size_t i) const;
    const Value& field(const char* name) const; // of one that knows its shape

    // As it is written to set a property, which reads it again as the same value: "250ms", "-20C",
    // "frame,3,-4", "none". Control characters are written as in C ("\n", "\x1b"), a backslash
    // twice.
    std::string text() const;
    // For people: the same, but of a block of bytes the beginning and how many they are.
    std::string shown() const;
    // A scalar, with times in whole milliseconds; an object by the fields' names where there are
    // several; an array of those where there are several groups; null for nothing.
    std::string json() const;

    const Shape* shape() const { return shape_; } // null: nobody read it or fitted it to one

    // Whether both mean the same, whatever they know of their shapes: 2 and 2.0 do, 2 and "2" do
    // not.
    bool operator==(const Value& other) const;
    bool operator!=(const Value& other) const { return !(*this == other); }

private:
    friend Value valueOf(const Shape& shape, const struct FieldValues& fields);
    using Content =
        std::variant<std::monostate, bool, int64_t, double, Time, std::string, Bytes, List>;

    template <class Number>
    static Content contentOf(Number number)
    {
        if constexpr (std::is_same_v<Number, bool>) {
            return number;
        } else if constexpr (std::is_integral_v<Number>) {
            return wholeOf(number < 0, static_cast<uint64_t>(number));
        } else {
            return static_cast<double>(number);
        }
    }
    static Content wholeOf(bool isNegative, uint64_t bits);
    static Content timeOf(long double seconds);

    Content content_;
    const Shape* shape_ = nullptr;
};

// The value in the form that a property of that shape has. Throws Error{Usage} for one that is
// none: its text begins with `name`, and says what is possible.
VXCAMKIT_EXPORT Value fitted(const std::string& name, const Shape& shape, const Value& value);

// The value that a text stands for, as Value::text() writes it: "0.5", "500ms", "on". Throws
// likewise.
VXCAMKIT_EXPORT Value parsedText(const std::string& name, const Shape& shape,
                                 const std::string& text);

// The value that a JSON text stands for, as Value::json() writes it; a string stands for the value
// that has this text. Throws likewise, also for what is no JSON.
VXCAMKIT_EXPORT Value parsedJson(const std::string& name, const Shape& shape,
                                 const std::string& json);

} // namespace vxcam

#endif
