// Scenarios in JSON.
#include "faultkinds.h"

#include <nlohmann/json.hpp>

#include <fstream>
#include <iterator>
#include <set>
#include <stdexcept>

namespace {

using nlohmann::json;

[[noreturn]] void Fail(const std::string& text)
{
    throw std::runtime_error(text);
}

// Reads the text; a key that stands twice in one object is an error, too.
json ParseStrictly(const std::string& text)
{
    std::vector<std::set<std::string>> keys;
    auto watch = [&keys](int, json::parse_event_t event, json& value) {
        if (event == json::parse_event_t::object_start) keys.emplace_back();
        if (event == json::parse_event_t::object_end) keys.pop_back();
        if (event == json::parse_event_t::key) {
            const auto key = value.get<std::string>();
            if (!keys.back().insert(key).second) Fail("the key '" + key + "' stands twice");
        }
        return true;
    };
    try {
        return json::parse(text, watch);
    } catch (const json::parse_error& error) {
        const std::string what = error.what(); // "[json.exception...] parse error at line ..."
        const size_t bracket = what.find("] ");
        Fail(bracket == std::string::npos ? what : what.substr(bracket + 2));
    }
}

double NumberOf(const std::string& key, const json& value)
{
    if (value.is_boolean()) return value.get<bool>() ? 1 : 0;
    if (!value.is_number()) Fail("'" + key + "' must be a number");
    return value.get<double>();
}

tsSimFault FaultOf(const json& object)
{
    if (!object.is_object()) Fail("a fault must be an object");
    const auto kind = object.find("kind");
    if (kind == object.end()) Fail("'kind' is missing");
    if (!kind->is_string()) Fail("'kind' must be a text");
    tsSimFault fault = MakeSimFault(kind->get<std::string>());
    for (const auto& [key, value] : object.items()) {
        if (key != "kind") SetSimFault(&fault, key, NumberOf(key, value));
    }
    CheckSimFault(fault);
    return fault;
}

uint64_t SeedOf(const json& value)
{
    if (!value.is_number_unsigned()) Fail("'seed' must be a whole number from 0");
    return value.get<uint64_t>();
}

std::vector<tsSimFault> FaultsOf(const json& list)
{
    if (!list.is_array()) Fail("'faults' must be a list");
    std::vector<tsSimFault> faults;
    for (const json& object : list) {
        try {
            faults.push_back(FaultOf(object));
        } catch (const std::runtime_error& error) {
            Fail("faults[" + std::to_string(faults.size()) + "]: " + error.what());
        }
    }
    return faults;
}

} // namespace

tsSimScenario ParseSimScenario(const std::string& text)
{
    const json document = ParseStrictly(text);
    if (!document.is_object()) Fail("a scenario must be an object");
    tsSimScenario scenario;
    for (const auto& [key, value] : document.items()) {
        if (key == "seed")
            scenario.seed = SeedOf(value);
        else if (key == "faults")
            scenario.faults = FaultsOf(value);
        else
            Fail("there is no key '" + key + "'");
    }
    return scenario;
}

tsSimScenario LoadSimScenario(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) Fail("cannot read the scenario " + path);
    const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    try {
        return ParseSimScenario(text);
    } catch (const std::runtime_error& error) {
        Fail(path + ": " + error.what());
    }
}
