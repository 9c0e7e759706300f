#include "properties.h"

#include "failure.h"
#include "tcSession.h"
#include "vxcamiface.h"

#include <algorithm>
#include <charconv>
#include <numeric>
#include <utility>

namespace {

constexpr size_t gnNearNames = 5;
constexpr size_t gnNameWidth = 22;

// How many characters must change to make one of the other.
size_t Distance(const std::string& one, const std::string& other)
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
std::string NearNames(const std::string& name)
{
    std::vector<std::pair<size_t, std::string>> near;
    for (const tsProperty& property : Properties()) {
        const std::string known = property.name;
        size_t away = Distance(name, known) + (name.substr(0, 1) == known.substr(0, 1) ? 0 : 1);
        if (name.size() >= 3 && known.find(name) != std::string::npos) away = 1;
        if (away <= std::max<size_t>(2, known.size() / 3)) near.emplace_back(away, known);
    }
    std::stable_sort(near.begin(), near.end(),
                     [](const auto& one, const auto& other) { return one.first < other.first; });
    std::string text;
    for (size_t i = 0; i < std::min(near.size(), gnNearNames); ++i) {
        text += (i == 0 ? "" : ", ") + near[i].second;
    }
    return text;
}

[[noreturn]] void RefuseName(const std::string& name)
{
    const std::string near = NearNames(name);
    throw tcFailure(eExitUsage, "unknown property '" + name + "'" +
                                    (near.empty() ? " (vxcam get --help lists them)"
                                                  : ", did you mean " + near + "?"));
}

uint32_t ParseKey(const tsProperty& property, const std::string& text)
{
    const bool isHex = text.rfind("0x", 0) == 0;
    const char* const begin = text.data() + (isHex ? 2 : 0);
    const char* const end = text.data() + text.size();
    uint32_t key = 0;
    auto [rest, error] = std::from_chars(begin, end, key, isHex ? 16 : 10);
    if (error != std::errc() || rest != end || key > property.mostKey) {
        throw tcFailure(eExitUsage, std::string(property.name) + ":" + text + ": " + property.key +
                                        " is a number from 0 to " +
                                        std::to_string(property.mostKey));
    }
    return key;
}

} // namespace

const std::vector<tsProperty>& Properties()
{
    static const std::vector<tsProperty>& properties = *[] {
        auto* all = new std::vector<tsProperty>;
        for (auto part : {ImageProperties, BinningProperties, ControlProperties, BlockProperties}) {
            const std::vector<tsProperty> rows = part();
            all->insert(all->end(), rows.begin(), rows.end());
        }
        return all;
    }();
    return properties;
}

tsNamed FindProperty(const std::string& text)
{
    const size_t colon = text.find(':');
    const std::string name = text.substr(0, colon);
    const bool hasKey = colon != std::string::npos;
    const tsProperty* same = nullptr; // has the name, but not the key
    for (const tsProperty& property : Properties()) {
        if (name != property.name) continue;
        same = &property;
        if (hasKey == (property.key != nullptr)) {
            return {&property, hasKey ? ParseKey(property, text.substr(colon + 1)) : 0, text};
        }
    }
    if (same == nullptr) RefuseName(name);
    throw tcFailure(eExitUsage, "property '" + text + "': write " + NameText(*same));
}

tsSetting ReadProperty(tcSession& session, const tsNamed& named)
{
    tsSetting setting;
    session.Require(named.property->read(session, named.key, &setting), named.text.c_str());
    session.ThrowCameraError();
    return setting;
}

std::optional<tsSetting> TryProperty(tcSession& session, const tsNamed& named, std::string* why)
{
    try {
        return ReadProperty(session, named);
    } catch (const tcFailure& failure) {
        *why = failure.what();
    }
    session.ForgetCameraError();
    session.RoundTrip();
    return std::nullopt;
}

tsSetting WriteProperty(tcSession& session, const tsNamed& named, const tsSetting& setting)
{
    session.Require(named.property->write(session, named.key, setting), named.text.c_str());
    session.RoundTrip();
    return named.property->read != nullptr ? ReadProperty(session, named) : setting;
}

std::string NameText(const tsProperty& property)
{
    const std::string name = property.name;
    return property.key != nullptr ? name + ":" + property.key : name;
}

const char* AccessText(const tsProperty& property)
{
    if (property.write == nullptr) return "read only";
    return property.read == nullptr ? "set only" : "read and set";
}

std::string PropertyHelp()
{
    std::string text;
    for (const tsProperty& property : Properties()) {
        const std::string name = NameText(property);
        text +=
            "  " + name + std::string(gnNameWidth - std::min(gnNameWidth - 1, name.size()), ' ');
        if (property.write != nullptr) text += SyntaxText(property.shape);
        const std::string range = RangeText(property.shape);
        text +=
            std::string(property.write != nullptr ? "\n" + std::string(gnNameWidth + 4, ' ') : "") +
            property.summary;
        if (!range.empty() && property.write != nullptr) text += "; " + range;
        if (property.write == nullptr || property.read == nullptr) {
            text += std::string(" (") + AccessText(property) + ")";
        }
        text += "\n";
    }
    return text;
}
