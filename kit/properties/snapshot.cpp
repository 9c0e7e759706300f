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

Snapshot::Entry read(Access& access, const PropertyName& name)
{
    Snapshot::Entry entry;
    entry.name = name.text;
    entry.value = tryProperty(access, name, &entry.trouble).value_or(Value());
    entry.text = entry.value.text();
    return entry;
}

} // namespace

Snapshot::Snapshot(std::vector<Entry> entries)
    : entries_(std::make_shared<const std::vector<Entry>>(std::move(entries)))
{}

Snapshot Snapshot::of(Access& access)
{
    std::vector<Entry> entries;
    for (const Property& property : properties()) {
        const bool isAsked = property.isReadable() && property.isListed && property.key == nullptr;
        if (isAsked) entries.push_back(read(access, {&property, 0, property.name}));
    }
    return Snapshot(std::move(entries));
}

Snapshot Snapshot::again(Access& access, Again which) const
{
    std::vector<Entry> entries(begin(), end());
    for (Entry& entry : entries) {
        const PropertyName name = findProperty(entry.name);
        const bool isChanging = name.property->nature == Nature::State;
        const bool isAsked = entry.trouble.empty() && (which == Again::All || isChanging);
        if (isAsked) entry = read(access, name);
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

void Snapshot::put(Entry entry)
{
    std::vector<Entry> entries(begin(), end());
    const auto known = std::find_if(entries.begin(), entries.end(),
                                    [&](const Entry& one) { return one.name == entry.name; });
    if (known == entries.end()) {
        entries.push_back(std::move(entry));
    } else {
        *known = std::move(entry);
    }
    *this = Snapshot(std::move(entries));
}

void Snapshot::set(const std::string& name, const Value& value)
{
    put({name, value.text(), value, ""});
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
