// Values as the rows of the table read and write them.
#ifndef VXCAMKIT_FIELD_VALUES_H
#define VXCAMKIT_FIELD_VALUES_H

#include <vxcamkit/value.h>

#include <cstdint>
#include <string>
#include <vector>

namespace vxcam {

// The numbers of all fields but Text and Bytes, group by group and in order, exact in a double,
// times in ms; and the bytes of the Text or Bytes field. A value that the camera does not know has
// neither.
struct FieldValues {
    std::vector<double> numbers;
    std::vector<uint8_t> bytes;

    bool operator==(const FieldValues& other) const
    {
        return numbers == other.numbers && bytes == other.bytes;
    }
};

Value valueOf(const Shape& shape, const FieldValues& fields);

// Throw Error{Usage}, whose text begins with `name`, for what a property of that shape cannot be.
FieldValues fieldsOf(const std::string& name, const Shape& shape, const Value& value);
FieldValues fieldsOfText(const std::string& name, const Shape& shape, const std::string& text);

// One field, of whatever the application gave, or of its text.
double numberOf(const std::string& name, const Field& field, const Value& value);
double numberOfText(const std::string& name, const Field& field, const std::string& text);

// Throws when there are too few or too many; `shown` is what the user wrote.
void requireLength(const std::string& name, const Field& field, size_t bytes,
                   const std::string& shown);

// "name 'text': why", of a long text the beginning.
[[noreturn]] void refuseValue(const std::string& name, const std::string& text,
                              const std::string& why);
[[noreturn]] void refuseNumber(const std::string& name, const Field& field,
                               const std::string& text);
[[noreturn]] void refuseRange(const std::string& name, const Field& field, const std::string& text);

} // namespace vxcam

#endif
