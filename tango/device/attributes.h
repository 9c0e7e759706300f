// The attributes of a device.
#ifndef VXCAMERA_ATTRIBUTES_H
#define VXCAMERA_ATTRIBUTES_H

#include <tango.h>

#include <string>
#include <vector>

namespace vxcam {

using Attributes = std::vector<Tango::Attr*>; // which whoever gets them owns

// Of each row of the table of properties; its alias behind it.
void addPropertyAttributes(Attributes* attributes);
// What the next acquisition is to be, and what became of the latest one.
void addAcquisitionAttributes(Attributes* attributes);
// The latest frame.
void addFrameAttributes(Attributes* attributes);

// All that one attribute is called and said to be; empty: nothing said.
struct About {
    std::string help, unit, format, least, most;
    std::vector<std::string> labels; // of an enumeration
    Tango::DispLevel level = Tango::OPERATOR;
    bool isMemorised = false;
};
void describe(Tango::Attr& attribute, const About& about);

// ---- Values ---------------------------------------------------------------------------------

// Hands Tango a copy, which it lets go. Of a list, any number.
template <class Number>
void give(Tango::Attribute& attribute, Number number)
{
    attribute.set_value(new Number(number), 1, 0, true);
}
void give(Tango::Attribute& attribute, const std::string& text);

template <class Number, class List>
void giveList(Tango::Attribute& attribute, const List& list)
{
    auto* const numbers = new Number[list.size() + 1];
    std::copy(list.begin(), list.end(), numbers);
    attribute.set_value(numbers, static_cast<long>(list.size()), 0, true);
}

// There is no value now.
void giveNothing(Tango::Attribute& attribute);

template <class Number>
Number written(Tango::WAttribute& attribute)
{
    Number number{};
    attribute.get_write_value(number);
    return number;
}

} // namespace vxcam

#endif
