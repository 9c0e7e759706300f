#include "rest/property_json.h"

#include <array>

namespace vxcam {

namespace {

const char* nameOf(FieldKind kind)
{
    static constexpr std::array<const char*, 8> names{"whole",  "hex",    "real", "time",
                                                      "switch", "choice", "text", "bytes"};
    return names.at(static_cast<size_t>(kind));
}

bool isNumber(FieldKind kind)
{
    return kind == FieldKind::Whole || kind == FieldKind::Real || kind == FieldKind::Time;
}

Json fieldJson(const Field& field)
{
    Json json;
    json["name"] = field.name;
    json["kind"] = nameOf(field.kind);
    if (field.unit[0] != '\0') json["unit"] = field.unit;
    if (isNumber(field.kind) && !rangeText(field).empty()) {
        json["least"] = field.least;
        json["most"] = field.most;
    }
    if (field.kind == FieldKind::Real && field.step > 0) json["step"] = field.step;
    for (const Choice& choice : field.choices) {
        json["choices"].push_back(choice.word);
    }
    if (field.absent) json["may_be_left_out"] = true;
    if (field.repeats > 1) json["repeats"] = field.repeats;
    return json;
}

Json fieldSchema(const Field& field)
{
    Json schema;
    switch (field.kind) {
    case FieldKind::Whole:
        schema["type"] = "integer";
        break;
    case FieldKind::Time: // in milliseconds
    case FieldKind::Real:
        schema["type"] = "number";
        break;
    case FieldKind::Switch:
        schema["type"] = "boolean";
        break;
    case FieldKind::Choice:
        schema["type"] = "string";
        break;
    case FieldKind::Bytes:
        return {{"type", {"string", "null"}}, {"description", "0x...; null: none are there"}};
    case FieldKind::Hex:
    case FieldKind::Text:
        return {{"type", {"string", "integer"}}};
    }
    if (isNumber(field.kind) && !rangeText(field).empty()) {
        schema["minimum"] = field.least;
        schema["maximum"] = field.most;
    }
    for (const Choice& choice : field.choices) {
        schema["enum"].push_back(choice.word);
    }
    if (field.unit[0] != '\0') schema["description"] = std::string("in ") + field.unit;
    return schema;
}

} // namespace

Json propertyJson(const Property& property)
{
    Json json;
    json["name"] = property.fullName();
    json["label"] = property.label();
    json["help"] = property.help;
    json["group"] = nameOf(property.group);
    json["nature"] = nameOf(property.nature);
    json["cost"] = nameOf(property.cost);
    json["readable"] = property.isReadable();
    json["writable"] = property.isWritable();
    json["listed"] = property.isListed;
    json["syntax"] = syntaxText(property.shape);
    json["range"] = rangeText(property.shape);
    if (property.key != nullptr) json["key"] = {{"name", property.key}, {"most", property.mostKey}};
    json["groups"] = property.shape.groups;
    json["may_be_none"] = property.shape.mayBeNone;
    for (const Field& field : property.shape.fields) {
        json["fields"].push_back(fieldJson(field));
    }
    return json;
}

Json valueJson(const std::string& name, const Value& value)
{
    return {{"name", name}, {"value", Json::parse(value.json())}, {"text", value.text()}};
}

Json schemaOf(const Property& property)
{
    const Shape& shape = property.shape;
    Json schema;
    if (shape.fields.size() == 1) {
        schema = fieldSchema(shape.fields.front());
    } else {
        schema["type"] = "object";
        for (const Field& field : shape.fields) {
            Json inner = fieldSchema(field);
            if (field.repeats > 1) inner = {{"type", "array"}, {"items", inner}};
            schema["properties"][field.name] = inner;
        }
    }
    if (shape.groups > 1) {
        schema = {{"type", "array"}, {"items", schema}, {"maxItems", shape.groups}};
    }
    Json text{{"type", "string"}, {"description", "as vxcam set takes it: " + syntaxText(shape)}};
    Json any{{"anyOf", {schema, text}}};
    if (shape.mayBeNone) any["anyOf"].push_back({{"type", "null"}});
    any["title"] = property.help;
    return any;
}

} // namespace vxcam
