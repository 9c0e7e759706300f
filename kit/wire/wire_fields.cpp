// What stands where in the payloads of messages.
#include "wire/wire_messages.h"

#include "wire/wire_format.h"

#include "vxvisible.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace vxcam {

namespace {

enum class As : uint8_t {
    U8,
    U16,
    U32,
    I16,
    I32,
    F32,
    Text, // to its first NUL, or its end
    Bytes // only how many
};

constexpr uint16_t kRest = 0; // as long as the message is

struct Field {
    const char* name;
    As as;
    uint16_t at;
    uint16_t count; // of numbers, or of bytes; kRest: all that are left
};

struct Layout {
    uint32_t id;
    std::vector<Field> fields;
};

using Layouts = std::vector<Layout>;

std::vector<Field> word(const char* name, As as = As::U32)
{
    return {{name, as, 0, 1}};
}

std::vector<Field> pixels(bool hasExtras)
{
    std::vector<Field> fields{{"image_type", As::U8, 0, 1},    {"last_frame", As::U8, 1, 1},
                              {"packet", As::U16, 2, 1},       {"packets", As::U16, 4, 1},
                              {"row", As::U16, 6, 1},          {"first_column", As::U16, 8, 1},
                              {"last_column", As::U16, 10, 1}, {"statistic", As::U16, 14, 1}};
    if (hasExtras) fields.push_back({"extra", As::U16, 16, 2});
    fields.push_back({"pixel_bytes", As::Bytes, uint16_t(hasExtras ? 20 : 16), kRest});
    return fields;
}

const std::vector<Field>& regions()
{
    static const std::vector<Field>& fields =
        *new std::vector<Field>{{"first", As::U8, 0, 1},        {"regions", As::U8, 1, 1},
                                {"first_rows", As::I32, 2, 16}, {"first_columns", As::I32, 66, 16},
                                {"heights", As::I32, 130, 16},  {"widths", As::I32, 194, 16}};
    return fields;
}

const std::vector<Field>& table()
{
    static const std::vector<Field>& fields = *new std::vector<Field>{
        {"table", As::U32, 0, 1}, {"length", As::U16, 6, 1}, {"bytes", As::Bytes, 8, 2048}};
    return fields;
}

const std::vector<Field>& binMask()
{
    static const std::vector<Field>& fields =
        *new std::vector<Field>{{"bytes", As::Bytes, 0, 512},
                                {"row", As::U16, 512, 1},
                                {"half", As::U16, 514, 1},
                                {"argument", As::U32, 516, 1}};
    return fields;
}

const std::vector<Field>& hardware()
{
    static const std::vector<Field>& fields =
        *new std::vector<Field>{{"rows", As::U16, 42, 1}, {"columns", As::U16, 46, 1}};
    return fields;
}

std::vector<Field> network()
{
    return {{"words", As::U32, 0, 5}, {"value", As::U16, 20, 1}};
}

// Of what the host sends.
Layouts commandLayouts()
{
    return {
        {0x12, word("exposure_ms")},
        {0x13, {{"parameter", As::U32, 0, 1}, {"value", As::Bytes, 4, kRest}}},
        {0x14, word("parameter")},
        {0x15, {{"first", As::I32, 0, 1}, {"second", As::I32, 4, 1}, {"third", As::F32, 8, 1}}},
        {0x17, word("on")},
        {0x1A, regions()},
        {0x1C, {{"words", As::U32, 0, 3}, {"text", As::Text, 12, 256}}},
        {0x1D, word("mode")},
        {0x1E, word("channel")},
        {0x1F, word("action")},
        {0x20, word("exposure_ms")},
        {0x21, word("on")},
        {0x23, word("value")},
        {0x24,
         {{"first_column", As::U16, 0, 1},
          {"first_row", As::U16, 2, 1},
          {"columns", As::U16, 4, 1},
          {"rows", As::U16, 6, 1}}},
        {0x25, table()},
        {0x27, {{"address", As::U32, 0, 1}, {"value", As::U32, 4, 1}}},
        {0x28, {{"value", As::U16, 0, 1}, {"channel", As::U8, 2, 1}, {"flag", As::U8, 3, 1}}},
        {0x2A, word("gain")},
        {0x2C, {{"p", As::F32, 0, 1}, {"i", As::F32, 4, 1}, {"d", As::F32, 8, 1}}},
        {0x2E, {{"first", As::U32, 0, 1}, {"second", As::U32, 4, 1}}},
        {0x33, word("table")},
        {0x36,
         {{"first_column", As::U16, 0, 1},
          {"first_row", As::U16, 2, 1},
          {"columns", As::U16, 4, 1},
          {"rows", As::U16, 6, 1},
          {"frames", As::U16, 8, 1},
          {"flags", As::U16, 10, 1}}},
        {0x37, {{"frames", As::U16, 0, 1}, {"mode", As::U16, 2, 1}}},
        {0x38, {{"address", As::U32, 0, 1}}},
        {0x3B, {{"offset", As::U16, 0, 1}, {"flag", As::U16, 2, 1}}},
        {0x3F,
         {{"answers", As::U16, 0, 1},
          {"data_length", As::U16, 2, 1},
          {"pattern", As::U32, 4, 1},
          {"data", As::Bytes, 12, kRest}}},
        {0x40, hardware()},
        {0x42, network()},
        {0x43, binMask()},
        {0x44, {{"row", As::U16, 0, 1}, {"half", As::U16, 2, 1}}},
        {0x45, {{"frames", As::U16, 0, 1}, {"mode", As::U16, 2, 1}}},
        {0x46, {{"close_delay", As::U32, 0, 1}, {"words", As::U32, 4, 2}}},
        {0x48, word("on")},
        {0x49, {{"words", As::U32, 0, 4}}},
        {0x4A, word("interval_ms")},
        {0x4D, word("tenth_degrees", As::I32)},
        {0x4F, table()},
        {0x50,
         {{"entries", As::U32, 0, 1}, {"vertical", As::U8, 4, 16}, {"horizontal", As::U8, 20, 16}}},
        {0x51, {{"horizontal", As::U32, 0, 1}, {"vertical", As::U32, 4, 1}}},
        {0x53, {{"first", As::U32, 0, 1}, {"second", As::U32, 4, 1}}},
        {0x54, {{"bytes", As::Bytes, 0, kRest}}},
        {0x56, {{"pin", As::U32, 0, 1}, {"state", As::U32, 4, 1}}},
        {0x58, word("value")},
        {0x5A, word("table")},
        {0x5B, {{"mode", As::U32, 0, 1}, {"values", As::U16, 4, 31}}},
        {0x5D, {{"messages", As::U32, 0, 1}, {"interval_ms", As::U32, 4, 1}}},
        {0x5E, {{"mode", As::U32, 0, 1}, {"first", As::U32, 4, 1}, {"second", As::U32, 8, 1}}},
    };
}

// Of what the camera sends.
Layouts answerLayouts()
{
    return {
        {0x60, word("exposure_ms")},
        {0x61, word("value")},
        {0x63, table()},
        {0x64, hardware()},
        {0x65, word("value", As::U16)},
        {0x66, pixels(false)},
        {0x67, pixels(true)},
        {0x69, {{"board_temperature", As::I16, 2, 1}, {"ccd_temperature", As::I16, 4, 1}}},
        {0x70, word("value")},
        {0x71, word("value", As::U16)},
        {0x73, {{"first", As::F32, 0, 1}, {"second", As::F32, 4, 1}}},
        {0x74, {{"received", As::U16, 0, 1}, {"data", As::Bytes, 12, kRest}}},
        {0x75, {{"code", As::U8, 0, 1}, {"sub_code", As::U8, 1, 1}, {"text", As::Text, 2, kRest}}},
        {0x76, network()},
        {0x77, {{"bytes", As::Bytes, 0, 512}, {"argument", As::U16, 516, 1}}},
        {0x79, {{"close_delay", As::U32, 0, 1}, {"words", As::U32, 4, 2}}},
        {0x7A, {{"intervals_ms", As::U32, 0, 4}}},
        {0x7B, word("tenth_degrees", As::I32)},
        {0x7C, {{"horizontal", As::U32, 0, 1}, {"vertical", As::U32, 4, 1}}},
        {0x7D, {{"bytes", As::Bytes, 0, kRest}}},
        {0x7E, word("state")},
        {0x7F, word("value")},
        {0x80, table()},
        {0x83,
         {{"vertical", As::U8, 0, 16}, {"horizontal", As::U8, 16, 16}, {"entries", As::U8, 32, 1}}},
        {0x84,
         {{"first", As::I32, 0, 1},
          {"second", As::F32, 4, 1},
          {"third", As::I32, 8, 1},
          {"words", As::U32, 12, 3}}},
        {0x85, {{"p", As::F32, 0, 1}, {"i", As::F32, 4, 1}, {"d", As::F32, 8, 1}}},
        {0x86, {{"first", As::U32, 0, 1}, {"second", As::U32, 4, 1}}},
        {0x87, {{"mode", As::U32, 0, 1}, {"first", As::U32, 4, 1}, {"second", As::U32, 8, 1}}},
        {0x88, pixels(false)},
        {0x89, word("value")},
        {0x8A, regions()},
        {0x8B, word("on")},
        {0x8C,
         {{"first", As::I32, 0, 1},
          {"second", As::I32, 4, 1},
          {"third", As::F32, 8, 1},
          {"fourth", As::F32, 12, 1}}},
        {0x8D,
         {{"parameter", As::U32, 0, 1}, {"status", As::I32, 4, 1}, {"value", As::Bytes, 8, kRest}}},
    };
}

size_t bytesOf(As as)
{
    switch (as) {
    case As::U16:
    case As::I16:
        return 2;
    case As::U32:
    case As::I32:
    case As::F32:
        return 4;
    case As::U8:
    case As::Text:
    case As::Bytes:
        break;
    }
    return 1;
}

std::string decimalText(float number)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.9g", static_cast<double>(number));
    std::replace(text, text + std::strlen(text), ',', '.'); // whatever the locale says
    return text;
}

std::string numberText(As as, const char* from)
{
    switch (as) {
    case As::U16:
        return std::to_string(numberAt<uint16_t>(from));
    case As::I16:
        return std::to_string(numberAt<int16_t>(from));
    case As::U32:
        return std::to_string(numberAt<uint32_t>(from));
    case As::I32:
        return std::to_string(numberAt<int32_t>(from));
    case As::F32: {
        float number = 0;
        const auto bits = numberAt<uint32_t>(from);
        std::memcpy(&number, &bits, sizeof number);
        return decimalText(number);
    }
    case As::U8:
    case As::Text:
    case As::Bytes:
        break;
    }
    return std::to_string(numberAt<uint8_t>(from));
}

// Nothing when the message ends before it.
std::string valueText(const Field& field, std::string_view payload)
{
    if (payload.size() <= field.at) return "";
    const std::string_view rest = payload.substr(field.at);
    const size_t most = field.count == kRest ? rest.size() : field.count;
    if (field.as == As::Bytes) return std::to_string(std::min(most, rest.size()));
    if (field.as == As::Text) {
        const std::string_view text = rest.substr(0, most);
        return "\"" + vx::Visible(std::string(text.substr(0, text.find('\0')))) + "\"";
    }
    std::string text;
    const size_t step = bytesOf(field.as);
    for (size_t i = 0; i < most && (i + 1) * step <= rest.size(); ++i) {
        text += (i > 0 ? "," : "") + numberText(field.as, rest.data() + i * step);
    }
    return text;
}

} // namespace

WireFields wireFields(const WirePiece& message)
{
    static const Layouts& commands = *new Layouts(commandLayouts());
    static const Layouts& answers = *new Layouts(answerLayouts());
    const Layouts& layouts = message.isSent ? commands : answers;
    const auto layout = std::find_if(layouts.begin(), layouts.end(),
                                     [&](const Layout& one) { return one.id == message.id(); });
    WireFields fields;
    if (!message.isMessage || layout == layouts.end()) return fields;
    for (const Field& field : layout->fields) {
        std::string text = valueText(field, message.payload());
        if (!text.empty()) fields.emplace_back(field.name, std::move(text));
    }
    return fields;
}

} // namespace vxcam
