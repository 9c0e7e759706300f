// What an item server answers, and the numbers it takes. Knows no sockets; takes any text.
#ifndef ITEMREPLIES_H
#define ITEMREPLIES_H

#include <nlohmann/json_fwd.hpp>

#include <optional>
#include <string>
#include <vector>

struct tsItem {
    std::string name;
    std::string value; // a whole number, a number with a fraction, or a text when it has none
    std::string description;
};

// "NAME = VALUE [DESCRIPTION]", a line end and a zero byte, again and again. Nothing when the reply
// is something else.
std::optional<std::vector<tsItem>> ParseItems(const std::string& reply);

// Whether the whole text is a decimal number that an item can hold.
bool IsItemNumber(const std::string& text);

// Whether an item with that value now can take the new one: a fraction needs an item with one.
bool FitsItem(const std::string& now, const std::string& value);

// Whether the item's text is what the item makes of the value, to its six digits.
bool SameItemValue(const std::string& text, const std::string& value);

// A number, or else the text.
nlohmann::ordered_json ItemNumber(const std::string& value);

#endif
