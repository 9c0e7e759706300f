// Values of properties: what they consist of, how they are written on the command line, shown, and
// told in JSON.
#ifndef VALUES_H
#define VALUES_H

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

enum class teField {
    eNumber, // whole
    eHex,    // whole, shown with 0x
    eReal,   // a float of the camera
    eTime,   // whole milliseconds, written with a unit
    eSwitch, // on or off
    eChoice, // one of some words
    eText,   // the rest of the line
    eBytes   // hexadecimal digits, or @FILE
};

// One word of an eChoice, and what the camera is told for it.
struct tsChoice {
    const char* word;
    int64_t number;
};

// One part of a value. `least` and `most` bound numbers; of texts and bytes, how many there are.
struct tsField {
    const char* name; // in JSON, where a value has several fields
    teField kind;
    double least = 0, most = 0;
    const char* unit = "";
    std::vector<tsChoice> choices = {};
    std::optional<double> absent = {}; // what it is when it is left out at the end
    int repeats = 1;                   // the last field: 0 to so many times
};

// Fields with commas between them; when `groups` is above 1, 0 to so many such groups with slashes
// between them.
struct tsShape {
    std::vector<tsField> fields;
    int groups = 1;
};

// A value. Numbers of the camera, whole or not, are exact in a double. A value that the camera does
// not know (yet) has neither numbers nor bytes.
struct tsSetting {
    std::vector<double> numbers; // of all fields but eText and eBytes, in order
    std::vector<uint8_t> bytes;  // of the eText or eBytes field

    bool operator==(const tsSetting& other) const
    {
        return numbers == other.numbers && bytes == other.bytes;
    }
};

inline constexpr char gcField = ',', gcGroup = '/'; // stand between fields and between groups
inline constexpr double gnAnyReal = 3.4e38;         // a bound that says nothing
inline constexpr size_t gnShownBytes = 32;          // of a block of bytes, in ShownText

// The value that a text stands for. Throws tcFailure, whose text begins with `name`: eExitUsage,
// and eExitFile for a file that cannot be read.
tsSetting ParseSetting(const std::string& name, const tsShape& shape, const std::string& text);

// As it can be written on the command line.
std::string SettingText(const tsShape& shape, const tsSetting& setting);

// For people: the same, but only the beginning of many bytes.
std::string ShownText(const tsShape& shape, const tsSetting& setting);

// A scalar; an object where there are several fields; an array of them where there are groups.
nlohmann::ordered_json SettingJson(const tsShape& shape, const tsSetting& setting);

// How a value is written, for help: "TIME", "on|off", "COLUMN,ROW,...".
std::string SyntaxText(const tsShape& shape);

// What it may be: "0 to 7", "-273 to 273 C"; empty where the syntax says all, or anything goes that
// 32 bits hold.
std::string RangeText(const tsShape& shape);

// Of one field: whether it is an eText or eBytes; "0 to 7", nothing where all goes;
// "off|start|frame". A number as such.
bool IsBlock(const tsField& field);
std::string FieldRange(const tsField& field);
std::string ChoiceWords(const tsField& field);
std::string NumberText(double number);

// "0x01ff", of at most so many bytes.
std::string HexText(const std::vector<uint8_t>& bytes, size_t most);

#endif
