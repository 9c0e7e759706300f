// Faults as they stand on a command line.
#include "faultkinds.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <stdexcept>

namespace {

double ToNumber(const std::string& name, const std::string& text)
{
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end); // hexadecimal numbers, too
    const bool begins = !text.empty() && !std::isspace(static_cast<unsigned char>(text[0]));
    if (!begins || *end != '\0' || !std::isfinite(value)) {
        throw std::runtime_error("'" + text + "' for " + name + " is no number");
    }
    return value;
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
