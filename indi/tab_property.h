// A row of the kit's table of properties, as a property of INDI.
#ifndef VXINDI_TAB_PROPERTY_H
#define VXINDI_TAB_PROPERTY_H

#include <vxcamkit/property.h>
#include <vxcamkit/value.h>

#include <indiproperty.h>

#include <map>
#include <optional>
#include <string>

namespace vxcam {

// What a client sent, by the names of the elements: numbers, switches or texts.
using Given = std::map<std::string, Value>;

// What is to be asked of the camera: that it takes a value, or, without one, what it tells.
struct Wish {
    std::string name; // "gain", "register:16"
    std::optional<Value> value;
};

// Numbers have an element a field, switches one a word or two for on and off; what has fields of
// several kinds, or none of these, is a text, written as everywhere else ("frame,3,-4"). What is
// called by a number, too, has an element for it: given alone, it is a question.
//
// Threads: the main loop's.
class TabProperty
{
public:
    // Of a row that can be set, or, read only, of one that cannot.
    TabProperty(const Property& row, const char* device);

    const Property& row() const { return row_; }
    std::string name() const; // in INDI
    INDI::Property& indi() { return indi_; }

    // What a client wants. Elements that were not given stay as they are shown. Throws Error{Usage}
    // for what means nothing.
    Wish wishOf(const Given& given) const;

    // What the camera told, or took; nothing: it does not tell.
    void show(const std::string& name, const Value& value);
    bool isKnown() const { return isKnown_; }

private:
    enum class Form { Numbers, OnOff, Flags, Words, Text, Keyed };
    static Form formOf(const Property& row);
    void makeNumbers();
    void makeSwitches();
    void makeTexts();
    void showNumbers(const Value& value);
    void showSwitches(const Value& value);

    const Property& row_;
    const std::string device_;
    const Form form_;
    INDI::Property indi_;
    bool isKnown_ = false;
};

} // namespace vxcam

#endif
