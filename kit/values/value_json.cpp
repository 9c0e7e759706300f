// Values in JSON.
#include "values/escapes.h"
#include "values/field_values.h"

#include <vxcamkit/error.h>

#include <nlohmann/json.hpp>

#include <chrono>

namespace vxcam {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kBytes = "bytes"; // the key of a text that is none

// ---- To JSON ----------------------------------------------------------------------------------

Json textJson(const std::string& text)
{
    if (isUtf8(text)) return text;
    return {{kBytes, hexText({text.begin(), text.end()}, text.size())}};
}

Json plainJson(const Value& value)
{
    switch (value.kind()) {
    case Value::Kind::Nothing:
        return nullptr;
    case Value::Kind::Switch:
        return value.toBool();
    case Value::Kind::Whole:
        return value.toInt();
    case Value::Kind::Real:
        return value.toDouble();
    case Value::Kind::Time:
        return std::chrono::round<std::chrono::milliseconds>(value.toTime()).count();
    case Value::Kind::Text:
        return textJson(value.toText());
    case Value::Kind::Bytes:
        return hexText(value.toBytes(), value.toBytes().size());
    case Value::Kind::List:
        break;
    }
    Json array = Json::array();
    for (size_t i = 0; i < value.size(); ++i) {
        array.push_back(plainJson(value[i]));
    }
    return array;
}

Json groupJson(const Value& value, const Shape& shape)
{
    if (shape.fields.size() == 1 || value.kind() != Value::Kind::List) return plainJson(value);
    Json object = Json::object();
    for (size_t i = 0; i < value.size(); ++i) {
        object[shape.fields.at(i).name] = plainJson(value[i]);
    }
    return object;
}

Json jsonOf(const Value& value)
{
    if (value.shape() == nullptr) return plainJson(value);
    if (value.shape()->groups == 1) return groupJson(value, *value.shape());
    Json groups = Json::array();
    for (size_t i = 0; i < value.size(); ++i) {
        groups.push_back(groupJson(value[i], *value.shape()));
    }
    return groups;
}

// ---- From JSON --------------------------------------------------------------------------------

// What the parts of a value are parsed for.
struct Aim {
    const std::string& name;
    const Shape& shape;
    const std::string& text; // the whole

    [[noreturn]] void refuse(const std::string& why) const { refuseValue(name, text, why); }
};

Value fieldOf(const Aim& aim, const Field& field, const Json& json);

Value arrayOf(const Aim& aim, const Field& field, const Json& json)
{
    Value::List items;
    for (const Json& item : json) {
        if (item.is_array()) aim.refuse("write " + syntaxText(aim.shape));
        items.push_back(fieldOf(aim, field, item));
    }
    return Value::list(std::move(items));
}

// {"bytes": "0x80"}
Value bytesOf(const Aim& aim, const Json& json)
{
    const bool isBytes = json.size() == 1 && json.contains(kBytes) && json[kBytes].is_string();
    const auto bytes = isBytes ? bytesOfHex(json[kBytes].get<std::string>()) : std::nullopt;
    if (!bytes) aim.refuse("write " + syntaxText(aim.shape));
    return *bytes;
}

Value fieldOf(const Aim& aim, const Field& field, const Json& json)
{
    switch (json.type()) {
    case Json::value_t::null:
        return {};
    case Json::value_t::boolean:
        return json.get<bool>();
    case Json::value_t::string:
        return json.get<std::string>();
    case Json::value_t::array:
        return arrayOf(aim, field, json);
    case Json::value_t::object:
        return bytesOf(aim, json);
    default:
        break;
    }
    if (field.kind == FieldKind::Time) {
        return std::chrono::duration<double, std::milli>(json.get<double>());
    }
    if (json.is_number_unsigned()) return json.get<uint64_t>();
    if (json.is_number_integer()) return json.get<int64_t>();
    return json.get<double>();
}

Value objectOf(const Aim& aim, const Json& json)
{
    Value::List items;
    size_t used = 0;
    for (const Field& field : aim.shape.fields) {
        if (!json.contains(field.name)) break;
        items.push_back(fieldOf(aim, field, json[field.name]));
        ++used;
    }
    if (used < json.size()) aim.refuse("its fields are " + syntaxText(aim.shape));
    return Value::list(std::move(items));
}

Value groupOf(const Aim& aim, const Json& json)
{
    const std::vector<Field>& fields = aim.shape.fields;
    const bool isOneField = fields.size() == 1 && fields[0].repeats == 1;
    if (isOneField) return fieldOf(aim, fields[0], json);
    if (json.is_object()) return objectOf(aim, json);
    if (!json.is_array()) return fieldOf(aim, fields[0], json);
    Value::List items;
    for (size_t i = 0; i < json.size(); ++i) {
        items.push_back(fieldOf(aim, fields[std::min(i, fields.size() - 1)], json[i]));
    }
    return Value::list(std::move(items));
}

Value parsedOf(const Aim& aim, const Json& json)
{
    const bool isList = aim.shape.groups > 1 && json.is_array();
    const bool isOneGroup =
        isList && aim.shape.fields.size() > 1 && !json.empty() && !json[0].is_structured();
    if (!isList || isOneGroup) return groupOf(aim, json);
    Value::List groups;
    for (const Json& group : json) {
        groups.push_back(groupOf(aim, group));
    }
    return Value::list(std::move(groups));
}

} // namespace

std::string Value::json() const
{
    return jsonOf(*this).dump();
}

Value parsedJson(const std::string& name, const Shape& shape, const std::string& json)
{
    const Json parsed = Json::parse(json, nullptr, false);
    if (parsed.is_discarded()) refuseValue(name, json, "it is no JSON");
    return fitted(name, shape, parsedOf({name, shape, json}, parsed));
}

} // namespace vxcam
