// From values to the fields of a shape, and back.
#include "values/decimals.h"
#include "values/escapes.h"
#include "values/field_values.h"

#include <vxcamkit/duration.h>
#include <vxcamkit/error.h>

#include <algorithm>
#include <cmath>

namespace vxcam {

namespace {

constexpr double kMilliseconds = 1000.0; // in a second

// ---- From fields ------------------------------------------------------------------------------

const char* wordOf(const Field& field, double number)
{
    for (const Choice& choice : field.choices) {
        if (number == static_cast<double>(choice.number)) return choice.word;
    }
    return nullptr; // the camera tells what nobody knows
}

Value fieldValue(const Field& field, double number)
{
    switch (field.kind) {
    case FieldKind::Time:
        return std::chrono::milliseconds(static_cast<int64_t>(number));
    case FieldKind::Switch:
        return number != 0;
    case FieldKind::Choice:
        if (const char* word = wordOf(field, number)) return word;
        return static_cast<int64_t>(number);
    case FieldKind::Real:
        return numberIn(numberText(number)); // 0.1, not 0.1000000015
    default:
        return static_cast<int64_t>(number);
    }
}

Value blockValue(const Field& field, const std::vector<uint8_t>& bytes)
{
    if (field.kind == FieldKind::Bytes) return bytes;
    return std::string(bytes.begin(), bytes.end());
}

// The group whose numbers begin at `*next`.
Value groupValue(const Shape& shape, const FieldValues& fields, size_t* next)
{
    const auto hasNext = [&] { return *next < fields.numbers.size(); };
    Value::List items;
    for (const Field& field : shape.fields) {
        if (field.isBlock()) {
            items.push_back(blockValue(field, fields.bytes));
        } else if (field.repeats > 1) {
            Value::List times;
            for (int i = 0; i < field.repeats && hasNext(); ++i) {
                times.push_back(fieldValue(field, fields.numbers[(*next)++]));
            }
            items.push_back(Value::list(std::move(times)));
        } else if (hasNext()) {
            items.push_back(fieldValue(field, fields.numbers[(*next)++]));
        }
    }
    return shape.fields.size() == 1 ? items.at(0) : Value::list(std::move(items));
}

bool isNothing(const Shape& shape, const FieldValues& fields)
{
    const bool isText = shape.fields[0].kind == FieldKind::Text; // which may be empty
    return fields.numbers.empty() && fields.bytes.empty() && !isText;
}

// ---- To fields --------------------------------------------------------------------------------

double plainNumber(const std::string& name, const Field& field, const Value& value)
{
    const bool isReal = field.kind == FieldKind::Real;
    const bool isNumber = value.kind() == Value::Kind::Whole || value.kind() == Value::Kind::Real;
    const double number = isNumber ? value.toDouble() : NAN;
    if (!std::isfinite(number) || (!isReal && number != std::trunc(number))) {
        refuseNumber(name, field, value.text());
    }
    if (number < field.least || number > field.most) refuseRange(name, field, value.text());
    return isReal ? static_cast<float>(number) : number;
}

double switchNumber(const std::string& name, const Value& value)
{
    const bool isBit = value == Value(0) || value == Value(1);
    if (!isBit) refuseValue(name, value.text(), "write on or off");
    return value == Value(1) ? 1 : 0;
}

double timeNumber(const std::string& name, const Value& value)
{
    if (value.kind() == Value::Kind::Switch) {
        refuseValue(name, value.text(), "write a time, like 500ms");
    }
    try {
        const double seconds = value.toDouble();
        return static_cast<double>(checkedDuration(seconds * kMilliseconds, value.text()).count());
    } catch (const Error& error) {
        throw Error(error.kind(), name + ": " + error.what());
    }
}

double choiceNumber(const std::string& name, const Field& field, const Value& value)
{
    const bool isNumber = value.kind() == Value::Kind::Whole;
    if (isNumber && wordOf(field, value.toDouble()) != nullptr) return value.toDouble();
    refuseValue(name, value.text(), "write one of " + choiceText(field));
}

std::vector<uint8_t> blockOf(const std::string& name, const Field& field, const Value& value)
{
    std::vector<uint8_t> bytes;
    if (value.kind() == Value::Kind::Bytes) {
        bytes = value.toBytes();
    } else if (field.kind == FieldKind::Text && value.kind() == Value::Kind::Text) {
        bytes.assign(value.toText().begin(), value.toText().end());
    } else if (value.kind() == Value::Kind::Text) {
        std::optional<std::vector<uint8_t>> known = bytesOfHex(value.toText());
        if (!known) refuseValue(name, value.toText(), "write two hexadecimal digits for each byte");
        bytes = std::move(*known);
    } else {
        refuseValue(name, value.text(),
                    field.kind == FieldKind::Text ? "write a text" : "write bytes");
    }
    requireLength(name, field, bytes.size(), value.text());
    return bytes;
}

void addRepeated(const std::string& name, const Field& field, const Value& value,
                 FieldValues* fields)
{
    if (value.size() > static_cast<size_t>(field.repeats)) {
        refuseValue(name, value.text(), "at most " + std::to_string(field.repeats) + " values");
    }
    for (size_t i = 0; i < value.size(); ++i) {
        fields->numbers.push_back(numberOf(name, field, value[i]));
    }
}

void addGroup(const std::string& name, const Shape& shape, const Value& value, FieldValues* fields)
{
    const bool isWhole = shape.fields.size() == 1 && shape.fields[0].repeats == 1;
    size_t next = 0;
    for (const Field& field : shape.fields) {
        const bool isThere = isWhole ? !value.isNothing() : next < value.size();
        if (!isThere && field.absent) {
            fields->numbers.push_back(*field.absent);
            continue;
        }
        if (!isThere && field.repeats > 1) continue;
        if (!isThere) refuseValue(name, value.text(), "write " + syntaxText(shape));
        const Value& item = isWhole ? value : value[next];
        ++next;
        if (field.isBlock()) {
            fields->bytes = blockOf(name, field, item);
        } else if (field.repeats > 1 && item.kind() == Value::Kind::List) {
            addRepeated(name, field, item, fields);
        } else if (field.repeats > 1) { // they stand behind the others
            Value::List rest;
            for (--next; next < value.size(); ++next) {
                rest.push_back(value[next]);
            }
            addRepeated(name, field, Value::list(std::move(rest)), fields);
        } else {
            fields->numbers.push_back(numberOf(name, field, item));
        }
    }
    if (next < value.size()) {
        refuseValue(name, value.text(), "too many parts, write " + syntaxText(shape));
    }
}

// One group may stand there without a list around it.
bool isOneGroup(const Shape& shape, const Value& value)
{
    return value.size() > 0 && value[0].kind() != Value::Kind::List && shape.fields.size() > 1;
}

} // namespace

double numberOf(const std::string& name, const Field& field, const Value& value)
{
    if (value.kind() == Value::Kind::Text) return numberOfText(name, field, value.toText());
    switch (field.kind) {
    case FieldKind::Time:
        return timeNumber(name, value);
    case FieldKind::Choice:
        return choiceNumber(name, field, value);
    case FieldKind::Switch:
        return switchNumber(name, value);
    default:
        return plainNumber(name, field, value);
    }
}

FieldValues fieldsOf(const std::string& name, const Shape& shape, const Value& value)
{
    const bool isPlainText = shape.isScalar() && shape.fields[0].kind == FieldKind::Text;
    if (value.kind() == Value::Kind::Text && !isPlainText) {
        return fieldsOfText(name, shape, value.toText());
    }
    FieldValues fields;
    if (shape.mayBeNone && value.size() == 0) return fields;
    if (shape.groups == 1 || isOneGroup(shape, value)) {
        addGroup(name, shape, value, &fields);
        return fields;
    }
    if (value.size() > static_cast<size_t>(shape.groups)) {
        refuseValue(name, value.text(), "at most " + std::to_string(shape.groups) + " groups");
    }
    for (size_t i = 0; i < value.size(); ++i) {
        addGroup(name, shape, value[i], &fields);
    }
    return fields;
}

Value valueOf(const Shape& shape, const FieldValues& fields)
{
    Value value;
    size_t next = 0;
    if (shape.groups > 1) {
        Value::List groups;
        while (next < fields.numbers.size()) {
            groups.push_back(groupValue(shape, fields, &next));
        }
        value = Value::list(std::move(groups));
    } else if (!isNothing(shape, fields)) {
        value = groupValue(shape, fields, &next);
    }
    value.shape_ = &shape;
    return value;
}

Value fitted(const std::string& name, const Shape& shape, const Value& value)
{
    return valueOf(shape, fieldsOf(name, shape, value));
}

} // namespace vxcam
