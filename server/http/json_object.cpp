#include "http/json_object.h"

#include "http/http_message.h"

#include <array>
#include <set>

namespace vxcam {

namespace {

using Json = nlohmann::ordered_json;

constexpr int kMostDepth = 16;

[[noreturn]] void refuse(const std::string& text)
{
    throw Refusal(400, "usage", text);
}

} // namespace

Json jsonObject(const std::string& text, const std::string& called)
{
    std::array<std::set<std::string>, kMostDepth + 2> names; // in the object of each depth
    const auto limit = [&](int depth, Json::parse_event_t event, Json& json) {
        if (depth > kMostDepth) refuse(called + " is nested too deeply");
        const auto place = static_cast<size_t>(depth);
        if (event == Json::parse_event_t::object_start) {
            names.at(place + 1).clear();
        } else if (event == Json::parse_event_t::key &&
                   !names.at(place).insert(json.get<std::string>()).second) {
            refuse("'" + json.get<std::string>() + "' is there twice");
        }
        return true;
    };
    try {
        Json json = Json::parse(text, limit);
        if (json.is_object()) return json;
    } catch (const Json::exception&) {
        // Told below.
    }
    refuse(called + " is no JSON object");
}

} // namespace vxcam
