#include <vxcamkit/property.h>

#include "properties/rows.h"
#include "values/field_values.h"

#include <vxcamkit/error.h>
#include <vxcamkit/property_access.h>

#include <algorithm>
#include <charconv>
#include <numeric>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace vxcam {

namespace {

constexpr size_t kNearNames = 5;

// How many characters must change to make one of the other.
size_t distance(const std::string& one, const std::string& other)
{
    std::vector<size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 1; i <= one.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= other.size(); ++j) {
            const size_t changed = diagonal + (one[i - 1] == other[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({changed, row[j] + 1, row[j - 1] + 1});
        }
    }
    return row.back();
}

// Names that are near: those that share a beginning or a part with it, or differ by little.
std::string nearNames(const std::string& name)
{
    std::vector<std::pair<size_t, std::string>> near;
    for (const Property& property : properties()) {
        const std::string known = property.name;
        size_t away = distance(name, known) + (name.substr(0, 1) == known.substr(0, 1) ? 0 : 1);
        if (name.size() >= 3 && known.find(name) != std::string::npos) away = 1;
        if (away <= std::max<size_t>(2, known.size() / 3)) near.emplace_back(away, known);
    }
    std::stable_sort(near.begin(), near.end(),
                     [](const auto& one, const auto& other) { return one.first < other.first; });
    std::string text;
    for (size_t i = 0; i < std::min(near.size(), kNearNames); ++i) {
        text += (i == 0 ? "" : ", ") + near[i].second;
    }
    return text;
}

using RowsByName = std::unordered_multimap<std::string_view, const Property*>;

const RowsByName& rowsByName()
{
    static const RowsByName& rows = [&]() -> const RowsByName& {
        auto* const made = new RowsByName; // as long as the process, like the table
        for (const Property& property : properties()) {
            made->emplace(property.name, &property);
        }
        return *made;
    }();
    return rows;
}

[[noreturn]] void refuseName(const std::string& name)
{
    constexpr size_t mostLength = 40; // of what may have been meant
    const std::string shown = name.size() > mostLength ? name.substr(0, mostLength) + "..." : name;
    const std::string near = name.size() > mostLength ? "" : nearNames(name);
    throw Error(ErrorKind::Usage, "unknown property '" + shown + "'" +
                                      (near.empty() ? " (vxcam get --help lists them)"
                                                    : ", did you mean " + near + "?"));
}

uint32_t parseKey(const Property& property, const std::string& text)
{
    const bool isHex = text.rfind("0x", 0) == 0;
    const char* const begin = text.data() + (isHex ? 2 : 0);
    const char* const end = text.data() + text.size();
    uint32_t key = 0;
    const auto [rest, error] = std::from_chars(begin, end, key, isHex ? 16 : 10);
    if (error != std::errc() || rest != end || key > property.mostKey) {
        throw Error(ErrorKind::Usage, std::string(property.name) + ":" + text + ": " +
                                          property.key + " is a number from 0 to " +
                                          std::to_string(property.mostKey));
    }
    return key;
}

void requireAccess(bool isThere, const PropertyName& name, const char* what)
{
    if (isThere) return;
    throw Error(ErrorKind::Usage, "property '" + name.text + "' can only be " + what);
}

FieldValues checkedFields(Access& access, const PropertyName& name, const Value& value)
{
    requireAccess(name.property->isWritable(), name, "read");
    FieldValues values = fieldsOf(name.text, name.property->shape, value);
    const auto check = name.property->check;
    const std::string complaint = check != nullptr ? check(access, values) : std::string();
    if (!complaint.empty()) throw Error(ErrorKind::Usage, name.text + ": " + complaint);
    return values;
}

} // namespace

const std::vector<Property>& properties()
{
    static const std::vector<Property>& rows = *new std::vector<Property>(
        joined({imageRows(), binningRows(), controlRows(), serviceRows()}));
    return rows;
}

PropertyName findProperty(const std::string& text)
{
    const size_t colon = text.find(':');
    const std::string name = text.substr(0, colon);
    const bool hasKey = colon != std::string::npos;
    const Property* same = nullptr; // has the name, but not the key
    const auto [begin, end] = rowsByName().equal_range(name);
    for (auto row = begin; row != end; ++row) {
        same = row->second;
        if (hasKey == (same->key != nullptr)) {
            return {same, hasKey ? parseKey(*same, text.substr(colon + 1)) : 0, text};
        }
    }
    if (same == nullptr) refuseName(name);
    throw Error(ErrorKind::Usage, "property '" + text + "': write " + same->fullName());
}

Value readProperty(Access& access, const PropertyName& name)
{
    requireAccess(name.property->isReadable(), name, "set");
    const uint64_t before = access.complaints();
    FieldValues values;
    const int result = name.property->read(access, name.key, &values);
    access.throwComplaint(before);
    access.require(result, name.text);
    return valueOf(name.property->shape, values);
}

std::optional<Value> tryProperty(Access& access, const PropertyName& name, std::string* why,
                                 bool* isSilent)
{
    try {
        return readProperty(access, name);
    } catch (const Error& error) {
        if (error.kind() == ErrorKind::LinkLost) throw;
        *why = error.what();
        if (isSilent != nullptr) *isSilent = error.kind() == ErrorKind::Timeout;
    }
    access.roundTrip();
    return std::nullopt;
}

Value checkedValue(Access& access, const PropertyName& name, const Value& value)
{
    return valueOf(name.property->shape, checkedFields(access, name, value));
}

Value sendProperty(Access& access, const PropertyName& name, const Value& value)
{
    const FieldValues asked = checkedFields(access, name, value);
    const uint64_t before = access.complaints();
    const int result = name.property->write(access, name.key, asked);
    access.throwComplaint(before);
    access.require(result, name.text);
    access.roundTrip();
    access.throwComplaint(before);
    return valueOf(name.property->shape, asked);
}

Value writeProperty(Access& access, const PropertyName& name, const Value& value)
{
    const Value asked = sendProperty(access, name, value);
    return name.property->isReadable() ? readProperty(access, name) : asked;
}

bool isAsAsked(const Value& asked, const Value& told)
{
    if (asked.kind() != Value::Kind::Bytes || told.kind() != Value::Kind::Bytes) {
        return asked.text() == told.text();
    }
    return asked.toBytes().size() <= told.toBytes().size() &&
           std::equal(asked.toBytes().begin(), asked.toBytes().end(), told.toBytes().begin());
}

} // namespace vxcam
