// Faults as they stand on a command line.
#include "faultkinds.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <stdexcept>

namespace {

double ToNumber(const std::string& name, const std::string& text)
{
    // With a point whatever the locale of the application; hexadecimal numbers, too.
    const bool isNegative = text.rfind('-', 0) == 0;
    const std::string digits = text.substr(isNegative || text.rfind('+', 0) == 0 ? 1 : 0);
    const bool isHex = digits.rfind("0x", 0) == 0 || digits.rfind("0X", 0) == 0;
    const char* const begin = digits.data() + (isHex ? 2 : 0);
    const char* const end = digits.data() + digits.size();
    double value = 0;
    const auto [rest, error] = std::from_chars(
        begin, end, value, isHex ? std::chars_format::hex : std::chars_format::general);
    const bool begins = begin != end && *begin != '-';
    if (!begins || error != std::errc() || rest != end || !std::isfinite(value)) {
        throw std::runtime_error("'" + text + "' for " + name + " is no number");
    }
    return isNegative ? -value : value;
}

} // namespace

tsSimFault ParseSimFault(const std::string& text)
{
    const size_t colon = text.find(':');
    tsSimFault fault = MakeSimFault(text.substr(0, colon));
    std::vector<std::string> given;
    for (size_t at = colon; at != std::string::npos;) {
        const size_t comma = text.find(',', at + 1);
        const std::string part = text.substr(at + 1, comma - at - 1); // to the end without a comma
        at = comma;
        const size_t equals = part.find('=');
        if (equals == std::string::npos) {
            throw std::runtime_error("'" + part + "' is not written NAME=VALUE");
        }
        const std::string name = part.substr(0, equals);
        if (std::find(given.begin(), given.end(), name) != given.end()) {
            throw std::runtime_error("'" + name + "' is given twice");
        }
        given.push_back(name);
        SetSimFault(&fault, name, ToNumber(name, part.substr(equals + 1)));
    }
    CheckSimFault(fault);
    return fault;
}

std::vector<tsSimFault> ParseSimFaults(const std::vector<std::string>& texts)
{
    std::vector<tsSimFault> faults;
    faults.reserve(texts.size());
    for (const std::string& text : texts) {
        faults.push_back(ParseSimFault(text));
    }
    return faults;
}
