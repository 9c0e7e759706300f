// What the rows of the table of properties are made of: fields, and functions that read and write
// them through the C interface.
#ifndef VXCAMKIT_ROWS_H
#define VXCAMKIT_ROWS_H

#include "values/field_values.h"

#include <vxcamkit/property.h>
#include <vxcamkit/property_access.h>

#include "vxcamiface.h"

#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace vxcam {

// The table's parts, in order.
std::vector<Property> imageRows();
std::vector<Property> binningRows();
std::vector<Property> controlRows();
std::vector<Property> serviceRows();

// ---- Fields -----------------------------------------------------------------------------------

inline constexpr double kMost16 = 65535, kMost32 = 4294967295.0;
inline constexpr double kLeastInt = -2147483648.0, kMostInt = 2147483647.0;

inline Field number(const char* name, double least, double most, const char* unit = "")
{
    return {name, FieldKind::Whole, least, most, unit};
}
inline Field whole(const char* name) // of an int
{
    return number(name, kLeastInt, kMostInt);
}
inline Field word(const char* name) // of 32 bits without a sign
{
    return number(name, 0, kMost32);
}
inline Field hex(const char* name)
{
    return {name, FieldKind::Hex, 0, kMost32};
}
inline Field real(const char* name, double least = -kAnyReal, double most = kAnyReal,
                  const char* unit = "", double step = 0)
{
    return {name, FieldKind::Real, least, most, unit, step};
}
inline Field time(const char* name)
{
    return {name, FieldKind::Time, 0, kMost32, "ms"};
}
inline Field onOff(const char* name)
{
    return {name, FieldKind::Switch, 0, 1};
}
inline Field choice(const char* name, std::vector<Choice> choices)
{
    return {name, FieldKind::Choice, 0, 0, "", 1, std::move(choices)};
}
inline Field text(const char* name, double least, double most)
{
    return {name, FieldKind::Text, least, most};
}
inline Field bytes(double least, double most)
{
    return {"bytes", FieldKind::Bytes, least, most};
}
// The field may be left out at the end, and is then so much.
inline Field orElse(Field field, double absent)
{
    field.absent = absent;
    return field;
}
// The field may stand there up to so many times, also not at all.
inline Field upTo(int times, Field field)
{
    field.repeats = times;
    return field;
}

// ---- Rows -------------------------------------------------------------------------------------

using Reader = int (*)(Access&, uint32_t, FieldValues*);
using Writer = int (*)(Access&, uint32_t, const FieldValues&);
using Checker = std::string (*)(Access&, const FieldValues&);

// A row, said piece by piece. What is not said stays as in Property.
class Row : public Property
{
public:
    Row(const char* ofName, const char* ofHelp, std::vector<Field> fields)
        : Property{ofName, ofHelp, {std::move(fields)}}
    {}

    Row& reads(Reader reader) { return with(&Property::read, reader); }
    Row& writes(Writer writer) { return with(&Property::write, writer); }
    Row& checks(Checker checker) { return with(&Property::check, checker); }
    Row& is(Nature what) { return with(&Property::nature, what); }
    Row& costs(Cost what) { return with(&Property::cost, what); }
    Row& unlisted() { return with(&Property::isListed, false); }
    Row& alias(const char* other) { return with(&Property::sameAs, other); }
    Row& indi(const char* other) { return called(&Names::indi, other); }
    Row& fits(const char* other) { return called(&Names::fits, other); }
    Row& alpaca(const char* other) { return called(&Names::alpaca, other); }
    Row& tangoAlias(const char* other) { return called(&Names::tangoAlias, other); }
    Row& keyed(const char* what, uint32_t most)
    {
        key = what;
        mostKey = most;
        return *this;
    }
    Row& allKeys() { return with(&Property::hasFewKeys, true); }
    Row& groups(int most)
    {
        shape.groups = most;
        shape.mayBeNone = most > 1;
        return *this;
    }
    Row& mayBeNone()
    {
        shape.mayBeNone = true;
        return *this;
    }

private:
    template <class Member, class What>
    Row& with(Member Property::*member, const What& what)
    {
        this->*member = what;
        return *this;
    }
    Row& called(const char* Names::*where, const char* other)
    {
        names.*where = other;
        return *this;
    }
};

// Rows of one group.
std::vector<Property> grouped(Group group, std::vector<Property> rows);
std::vector<Property> joined(std::vector<std::vector<Property>> parts);

// ---- Functions --------------------------------------------------------------------------------

template <class... Variables>
int readInto(int (*get)(int, Variables*...), int handle, FieldValues* values)
{
    std::tuple<Variables...> variables{};
    const int result =
        std::apply([&](auto&... variable) { return get(handle, &variable...); }, variables);
    if (result != eVXOk) return result;
    const auto add = [&](auto... variable) {
        (values->numbers.push_back(static_cast<double>(variable)), ...);
    };
    std::apply(add, variables);
    return result;
}

// Reads with a function of the C interface whose outputs are the fields.
template <auto Get>
int readBy(Access& access, uint32_t, FieldValues* values)
{
    return readInto(Get, access.handle(), values);
}

// The same, of which only the first outputs are.
template <auto Get, size_t Count>
int readFirst(Access& access, uint32_t, FieldValues* values)
{
    const int result = readInto(Get, access.handle(), values);
    if (result == eVXOk) values->numbers.resize(Count);
    return result;
}

// By way of int64_t, since a double may go into an enum only so.
template <class Argument>
Argument argumentOf(double number)
{
    if constexpr (std::is_enum_v<Argument>) {
        return static_cast<Argument>(static_cast<int64_t>(number));
    } else {
        return static_cast<Argument>(number);
    }
}

template <class... Arguments, size_t... Places>
int writeFrom(int (*set)(int, Arguments...), int handle, const FieldValues& values,
              std::index_sequence<Places...>)
{
    return set(handle, argumentOf<Arguments>(values.numbers[Places])...);
}
template <class... Arguments>
int writeFrom(int (*set)(int, Arguments...), int handle, const FieldValues& values)
{
    return writeFrom(set, handle, values, std::index_sequence_for<Arguments...>());
}

// Writes with a function of the C interface whose arguments are the fields.
template <auto Set>
int writeBy(Access& access, uint32_t, const FieldValues& values)
{
    return writeFrom(Set, access.handle(), values);
}

} // namespace vxcam

#endif
