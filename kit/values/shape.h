// What a value consists of: its fields, with their units and bounds.
#ifndef VXCAMKIT_SHAPE_H
#define VXCAMKIT_SHAPE_H

#include <vxcamkit/export.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vxcam {

enum class FieldKind {
    Whole,  // a whole number
    Hex,    // the same, written with 0x
    Real,   // a float of the camera
    Time,   // whole milliseconds, written with a unit
    Switch, // on or off
    Choice, // one of some words
    Text,   // bytes that mean characters; the last field
    Bytes   // bytes, written as hexadecimal digits; the only field
};

// One word of a Choice, and what the camera is told for it.
struct Choice {
    const char* word;
    int64_t number;
};

// One part of a value. `least` and `most` bound numbers (of a Time, milliseconds); of Text and
// Bytes, how many bytes there are.
struct Field {
    const char* name; // "degrees": in small letters, for JSON, where a value has several fields
    FieldKind kind;
    double least = 0, most = 0;
    const char* unit = "";             // "C", "ms"
    double step = 1;                   // 0: as fine as a float
    std::vector<Choice> choices = {};  // of a Choice
    std::optional<double> absent = {}; // what it is when it is left out at the end
    int repeats = 1;                   // the last field: 0 to so many times

    bool isBlock() const { return kind == FieldKind::Text || kind == FieldKind::Bytes; }
    bool isBounded() const; // by less than the numbers that the camera's words hold anyway
};

// Fields, and how many such groups of them there may be; a value of several groups is a list of 0
// to so many, of one group it is that group.
struct Shape {
    std::vector<Field> fields;
    int groups = 1;
    // What no group at all is called, where the absence of a value means something: "none".
    bool mayBeNone = groups > 1;

    bool isScalar() const { return groups == 1 && fields.size() == 1; }
};

inline constexpr char kFieldSeparator = ',', kGroupSeparator = '/'; // in texts
inline constexpr double kAnyReal = 3.4e38;                          // a bound that says nothing
inline constexpr const char* kNone = "none";

// How a value is written, for help: "TIME", "on|off", "COLUMN,ROW,...".
VXCAMKIT_EXPORT std::string syntaxText(const Shape& shape);

// What it may be, for help: "0 to 7", "-273 to 273 C"; empty where the syntax says all, or anything
// goes that 32 bits hold.
VXCAMKIT_EXPORT std::string rangeText(const Shape& shape);

// Of one field: "0 to 7", empty where all goes; "off|start|frame".
VXCAMKIT_EXPORT std::string rangeText(const Field& field);
VXCAMKIT_EXPORT std::string choiceText(const Field& field);

// A number of the camera in as few digits as say which float it is.
VXCAMKIT_EXPORT std::string numberText(double number);

} // namespace vxcam

#endif
