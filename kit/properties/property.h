// The properties of a camera: every value that a user can read or set. The one table from which the
// program, the bindings and the servers are made.
#ifndef VXCAMKIT_PROPERTY_H
#define VXCAMKIT_PROPERTY_H

#include <vxcamkit/export.h>
#include <vxcamkit/shape.h>
#include <vxcamkit/value.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vxcam {

class Access;
struct FieldValues;

// What belongs together, in the order of the table.
enum class Group { Exposure, Area, Image, Binning, Cooling, Trigger, Signal, Cis, Service };
VXCAMKIT_EXPORT const char* nameOf(Group group); // "exposure", "area", ...

// What kind of thing a property is.
enum class Nature {
    Setting, // stays as it was set: restored after a reconnect; part of a profile, if it can be
             // read
    Action,  // setting it does something, or may do
    State,   // changes by itself
    Derived, // follows from settings, or from what the camera is
    Identity // what this very camera is; never copied to another, nor restored
};
VXCAMKIT_EXPORT const char* nameOf(Nature nature); // "setting", "action", ...

// What it costs to read one.
enum class Cost {
    None,   // known already, nothing travels
    Answer, // one question and its answer
    Many    // many of them: seconds
};
VXCAMKIT_EXPORT const char* nameOf(Cost cost); // "none", "answer", "many"

// Names that are customary elsewhere, where they do not follow from the property's own; else empty.
struct Names {
    const char* python = "";
    const char* tango = "";
    const char* tangoAlias = ""; // a second one, that clients of detectors expect
    const char* indi = "";
    const char* fits = "";
    const char* alpaca = "";
};

// One row of the table.
struct VXCAMKIT_EXPORT Property {
    const char* name; // "target-temp"
    const char* help; // one line, without a stop: "temperature of the sensor"
    Shape shape;
    Group group = Group::Service;
    Nature nature = Nature::Setting;
    Cost cost = Cost::Answer;
    Names names = {};

    // What is called by a number, too: "register:16". The number's name for help, "ADDRESS", or
    // null.
    const char* key = nullptr;
    uint32_t mostKey = 0;
    bool hasFewKeys = false; // each of them is part of a profile

    // Among those that are read when none is named; not those with a key.
    bool isListed = true;
    // Another property that sets the same thing in another way, or null: of both, the one that was
    // set last counts.
    const char* sameAs = nullptr;

    // How it is read and written: results of the C interface. Null where it has no such function.
    int (*read)(Access& access, uint32_t key, FieldValues* values) = nullptr;
    int (*write)(Access& access, uint32_t key, const FieldValues& values) = nullptr;
    // Why this sensor cannot take the value; empty when it can.
    std::string (*check)(Access& access, const FieldValues& values) = nullptr;

    bool isReadable() const { return read != nullptr; }
    bool isWritable() const { return write != nullptr; }
    const Field& field() const { return shape.fields.front(); } // the first one, or the only one
    const char* unit() const { return field().unit; }

    std::string fullName() const;   // with its key: "register:ADDRESS"
    const char* accessText() const; // "read and set", "read only", "set only"

    // What it is called elsewhere.
    std::string pythonName() const; // "target_temp"
    std::string tangoName() const;  // "TargetTemp"
    std::string indiName() const;   // "CCD_TEMPERATURE"
    std::string fitsName() const;   // "SET-TEMP"; "HIERARCH VX TRIGGER-MODE" for what has no card
    std::string alpacaName() const; // "setccdtemperature"; empty where there is none
    std::string label() const;      // "Target temp", for forms
};

// All of them, in the order in which they are shown, saved and restored. Lives as long as the
// process.
VXCAMKIT_EXPORT const std::vector<Property>& properties();

// A property as a user names it: NAME, or NAME:KEY where there are several.
struct PropertyName {
    const Property* property = nullptr;
    uint32_t key = 0;
    std::string text; // "register:0x10", as it was written

    bool operator==(const PropertyName& other) const
    {
        return property == other.property && key == other.key;
    }
};

// Throws Error{Usage}, whose text lists names that are near.
VXCAMKIT_EXPORT PropertyName findProperty(const std::string& text);

// What the camera says. Throws what Access::require() throws, and Error{Camera} when the camera
// reports an error; Error{Usage} for what can only be set.
VXCAMKIT_EXPORT Value readProperty(Access& access, const PropertyName& name);

// The same, for one of many: nothing, and why in `*why`, when the camera reports an error or does
// not answer to this (`*isSilent`, which takes seconds to know), but goes on answering to other
// things.
VXCAMKIT_EXPORT std::optional<Value> tryProperty(Access& access, const PropertyName& name,
                                                 std::string* why, bool* isSilent = nullptr);

// The value in the form that the property has. Throws Error{Usage} for one that it, or this sensor,
// cannot take; nothing is sent.
VXCAMKIT_EXPORT Value checkedValue(Access& access, const PropertyName& name, const Value& value);

// Has the camera take the value and waits until it has. Throws as checkedValue() does before
// anything is sent, and then as readProperty(). Returns the value in the form that the property
// has.
VXCAMKIT_EXPORT Value sendProperty(Access& access, const PropertyName& name, const Value& value);

// The same, but returns what the camera tells then, where it can be asked.
VXCAMKIT_EXPORT Value writeProperty(Access& access, const PropertyName& name, const Value& value);

// Whether a camera that tells one value has taken the other: as they are shown; of bytes, as far as
// they were asked for.
VXCAMKIT_EXPORT bool isAsAsked(const Value& asked, const Value& told);

} // namespace vxcam

#endif
