#include <vxcamkit/snapshot.h>

#include <vxcamkit/property.h>

#include <nlohmann/json.hpp>

#include <algorithm>

namespace vxcam {

namespace {

const std::vector<Snapshot::Entry>& noEntries()
{
    static const std::vector<Snapshot::Entry>& none = *new std::vector<Snapshot::Entry>;
    return none;
}

bool isWithin(const Property& property, Snapshot::Scope scope)
{
    const bool isListed = property.isReadable() && property.isListed && property.key == nullptr;
    if (scope == Snapshot::Scope::Listed) return isListed;
    return isListed && property.nature == Nature::Setting && property.cost != Cost::Many &&
           property.field().kind != FieldKind::Bytes;
}

Snapshot::Entry unread(const std::string& name)
{
    return {name, Value().text(), Value(), "not asked for yet", false};
}

// Whether the camera may be asked for it: it did not leave it unanswered before.
bool mayBeAsked(const Snapshot::Entry& entry, const PropertyName& name)
{
    return name.property->isReadable() && (entry.trouble.empty() || !entry.isAsked);
}

// False when the camera leaves it unanswered.
bool read(Access& access, const PropertyName& name, Snapshot::Entry* entry)
{
    bool isSilent = false;
    *entry = {name.text, "", Value(), "", true};
    entry->value = tryProperty(access, name, &entry->trouble, &isSilent).value_or(Value());
    entry->text = entry->value.text();
    return !isSilent;
}

} // namespace

Snapshot::Snapshot(std::vector<Entry> entries)
    : entries_(std::make_shared<const std::vector<Entry>>(std::move(entries)))
{}

Snapshot Snapshot::of(Access& access, Scope scope)
{
    return unasked(scope).again(access, Again::All);
}

Snapshot Snapshot::unasked(Scope scope)
{
    std::vector<Entry> entries;
    for (const Property& property : properties()) {
        if (isWithin(property, scope)) entries.push_back(unread(property.name));
    }
    return Snapshot(std::move(entries));
}

Snapshot Snapshot::forgotten() const
{
    std::vector<Entry> entries(begin(), end());
    for (Entry& entry : entries) {
        if (mayBeAsked(entry, findProperty(entry.name))) entry = unread(entry.name);
    }
    return Snapshot(std::move(entries));
}

Snapshot Snapshot::again(Access& access, Again which) const
{
    std::vector<Entry> entries(begin(), end());
    for (Entry& entry : entries) {
        const PropertyName name = findProperty(entry.name);
        const bool isWanted = which == Again::Missing    ? !entry.isAsked
                              : which == Again::Changing ? name.property->nature == Nature::State
                                                         : true;
        if (!isWanted || !mayBeAsked(entry, name)) continue;
        if (!read(access, name, &entry) && which == Again::Missing) break;
    }
    return Snapshot(std::move(entries));
}

Snapshot Snapshot::again(Access& access, const std::string& name) const
{
    std::vector<Entry> entries(begin(), end());
    for (Entry& entry : entries) {
        const PropertyName found = findProperty(entry.name);
        if (entry.name == name && mayBeAsked(entry, found)) read(access, found, &entry);
    }
    return Snapshot(std::move(entries));
}

size_t Snapshot::size() const
{
    return entries_ ? entries_->size() : 0;
}

std::vector<Snapshot::Entry>::const_iterator Snapshot::begin() const
{
    return (entries_ ? *entries_ : noEntries()).begin();
}

std::vector<Snapshot::Entry>::const_iterator Snapshot::end() const
{
    return (entries_ ? *entries_ : noEntries()).end();
}

const Snapshot::Entry* Snapshot::entry(const std::string& name) const
{
    const auto found =
        std::find_if(begin(), end(), [&](const Entry& entry) { return entry.name == name; });
    return found != end() ? &*found : nullptr;
}

const std::string* Snapshot::find(const std::string& name) const
{
    const Entry* const found = entry(name);
    return found != nullptr ? &found->text : nullptr;
}

Value Snapshot::value(const std::string& name) const
{
    const Entry* const found = entry(name);
    return found != nullptr ? found->value : Value();
}

void Snapshot::set(const std::string& name, const Value& value)
{
    std::vector<Entry> entries(begin(), end());
    auto known = std::find_if(entries.begin(), entries.end(),
                              [&](const Entry& one) { return one.name == name; });
    if (known == entries.end()) known = entries.emplace(entries.end());
    *known = {name, value.text(), value, "", true};
    *this = Snapshot(std::move(entries));
}

std::string Snapshot::text() const
{
    std::string lines;
    for (const Entry& entry : *this) {
        const bool isKnown = entry.trouble.empty();
        lines += entry.name + (isKnown ? "=" + entry.value.shown() : ": " + entry.trouble) + "\n";
    }
    return lines;
}

std::string Snapshot::json() const
{
    nlohmann::ordered_json object = nlohmann::ordered_json::object();
    for (const Entry& entry : *this) {
        object[entry.name] = nlohmann::ordered_json::parse(entry.value.json());
    }
    return object.dump();
}

bool Snapshot::operator==(const Snapshot& other) const
{
    return size() == other.size() && std::equal(begin(), end(), other.begin());
}

} // namespace vxcam
