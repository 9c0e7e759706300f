// What the rows of the table of properties are made of: fields, and functions that read and write
// them through the C interface.
#ifndef FIELDS_H
#define FIELDS_H

#include "properties.h"
#include "tcSession.h"
#include "vxcamiface.h"

#include <tuple>
#include <type_traits>
#include <utility>

inline constexpr double gnMost16 = 65535, gnMost32 = 4294967295.0;
inline constexpr double gnLeastInt = -2147483648.0, gnMostInt = 2147483647.0;

inline tsField Number(const char* name, double least, double most, const char* unit = "")
{
    return {name, teField::eNumber, least, most, unit};
}
inline tsField Whole(const char* name) // of an int
{
    return Number(name, gnLeastInt, gnMostInt);
}
inline tsField Word(const char* name) // of 32 bits without a sign
{
    return Number(name, 0, gnMost32);
}
inline tsField Hex(const char* name)
{
    return {name, teField::eHex, 0, gnMost32};
}
inline tsField Real(const char* name, double least = -gnAnyReal, double most = gnAnyReal,
                    const char* unit = "")
{
    return {name, teField::eReal, least, most, unit};
}
inline tsField Time(const char* name)
{
    return {name, teField::eTime, 0, gnMost32, "ms"};
}
inline tsField Switch(const char* name)
{
    return {name, teField::eSwitch, 0, 1};
}
inline tsField Choice(const char* name, std::vector<tsChoice> choices)
{
    return {name, teField::eChoice, 0, 0, "", std::move(choices)};
}
inline tsField Bytes(double least, double most)
{
    return {"bytes", teField::eBytes, least, most};
}
// The field may be left out at the end, and is then so much.
inline tsField Or(tsField field, double absent)
{
    field.absent = absent;
    return field;
}
// The field may stand there up to so many times, also not at all.
inline tsField UpTo(int times, tsField field)
{
    field.repeats = times;
    return field;
}

template <class... Variables>
int ReadInto(int (*get)(int, Variables*...), int handle, tsSetting* setting)
{
    std::tuple<Variables...> variables{};
    const int result =
        std::apply([&](auto&... variable) { return get(handle, &variable...); }, variables);
    if (result != eVXOk) return result;
    const auto add = [&](auto... variable) {
        (setting->numbers.push_back(static_cast<double>(variable)), ...);
    };
    std::apply(add, variables);
    return result;
}

// Reads with a function of the C interface whose outputs are the fields.
template <auto Get>
int Read(tcSession& session, uint32_t, tsSetting* setting)
{
    return ReadInto(Get, session.Handle(), setting);
}

// By way of int64_t, since a double may go into an enum only so.
template <class Argument>
Argument ArgumentOf(double number)
{
    if constexpr (std::is_enum_v<Argument>) {
        return static_cast<Argument>(static_cast<int64_t>(number));
    } else {
        return static_cast<Argument>(number);
    }
}

template <class... Arguments, size_t... Places>
int WriteFrom(int (*set)(int, Arguments...), int handle, const tsSetting& setting,
              std::index_sequence<Places...>)
{
    return set(handle, ArgumentOf<Arguments>(setting.numbers[Places])...);
}
template <class... Arguments>
int WriteFrom(int (*set)(int, Arguments...), int handle, const tsSetting& setting)
{
    return WriteFrom(set, handle, setting, std::index_sequence_for<Arguments...>());
}

// Writes with a function of the C interface whose arguments are the fields.
template <auto Set>
int Write(tcSession& session, uint32_t, const tsSetting& setting)
{
    return WriteFrom(Set, session.Handle(), setting);
}

#endif
