#include <vxcamkit/profile.h>

#include <vxcamkit/error.h>
#include <vxcamkit/frame_times.h>
#include <vxcamkit/new_file.h>

#include <nlohmann/json.hpp>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>

namespace vxcam {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kFormat = "vxcam profile";
constexpr int kVersion = 1;
constexpr size_t kMostBytes = size_t{64} << 20; // of a file

std::string utcNow()
{
    return utcText(std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()), 0) +
           "Z";
}

// The names under which the settings of one row stand in a profile.
std::vector<PropertyName> namesOf(const Property& property)
{
    if (property.key == nullptr) return {{&property, 0, property.name}};
    std::vector<PropertyName> names;
    for (uint32_t key = 0; property.hasFewKeys && key <= property.mostKey; ++key) {
        names.push_back({&property, key, std::string(property.name) + ":" + std::to_string(key)});
    }
    return names;
}

bool isSaved(const Property& property, bool withMask)
{
    const bool isSetting = property.nature == Nature::Setting && property.isReadable();
    return isSetting && (withMask || property.cost != Cost::Many);
}

std::string readFile(const std::string& path)
{
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rbe"),
                                                               std::fclose);
    std::string text;
    std::array<char, 65536> piece{};
    size_t count = 1;
    while (file && count > 0 && text.size() <= kMostBytes) {
        count = std::fread(piece.data(), 1, piece.size(), file.get());
        text.append(piece.data(), count);
    }
    if (!file || std::ferror(file.get()) != 0) {
        throw Error(ErrorKind::File, path + ": " + std::strerror(errno), errno);
    }
    if (text.size() > kMostBytes) throw Error(ErrorKind::Usage, path + ": too long for a profile");
    return text;
}

[[noreturn]] void refuse(const std::string& why)
{
    throw Error(ErrorKind::Usage, "profile: " + why);
}

} // namespace

void Profile::add(const PropertyName& name, const Value& value)
{
    if (value.isNothing()) return;
    try {
        settings_.set(name, fitted(name.text, name.property->shape, value));
    } catch (const Error& error) {
        gaps_.push_back({name.text, error.what()});
    }
}

Profile Profile::of(Access& access, const Settings& made, bool withMask)
{
    Profile profile;
    for (const Property& property : properties()) {
        if (!isSaved(property, withMask)) continue;
        for (const PropertyName& name : namesOf(property)) {
            if (profile.settings_.has(name)) continue; // in other words
            std::string why;
            const std::optional<Value> value = tryProperty(access, name, &why);
            if (value) profile.add(name, *value);
            if (!value) profile.gaps_.push_back({name.text, why});
        }
    }
    for (const Setting& setting : made) {
        const bool isTold =
            setting.name.property->isReadable() && setting.name.property->key == nullptr;
        if (!isTold && !profile.settings_.has(setting.name))
            profile.add(setting.name, setting.value);
    }
    return profile;
}

Profile Profile::parse(const std::string& json)
{
    const Json document = Json::parse(json, nullptr, false);
    if (document.is_discarded() || !document.is_object()) refuse("it is no JSON object");
    if (document.value("format", Json()) != kFormat) refuse("it is none of vxcam");
    if (document.value("version", Json()) != kVersion) refuse("its version is not known here");
    const Json settings = document.value("settings", Json());
    if (!settings.is_object()) refuse("it has no settings");
    Profile profile;
    const Json camera = document.value("camera", Json());
    if (camera.is_string()) profile.camera_ = camera.get<std::string>();
    for (const auto& [key, value] : settings.items()) {
        try {
            const PropertyName name = findProperty(key);
            const Value parsed = parsedJson(name.text, name.property->shape, value.dump());
            if (!profile.settings_.set(name, parsed)) {
                profile.gaps_.push_back({key, "it is no setting"});
            }
        } catch (const Error& error) {
            profile.gaps_.push_back({key, error.what()});
        }
    }
    return profile;
}

Profile Profile::load(const std::string& path)
{
    const std::string text = readFile(path);
    try {
        return parse(text);
    } catch (const Error& error) {
        throw Error(error.kind(), path + ": " + error.what());
    }
}

std::string Profile::json() const
{
    Json document;
    document["format"] = kFormat;
    document["version"] = kVersion;
    if (!camera_.empty()) document["camera"] = camera_;
    document["saved"] = utcNow();
    Json& settings = document["settings"] = Json::object();
    for (const Setting& setting : settings_) {
        settings[setting.name.text] = Json::parse(setting.value.json());
    }
    return document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

void Profile::save(const std::string& path, bool force) const
{
    const std::string text = json();
    writeNewFile(path, text.data(), text.size(), force);
}

std::vector<Outcome> Profile::applyTo(Access& access) const
{
    std::vector<Outcome> outcomes = settings_.applyTo(access);
    for (const Gap& gap : gaps_) {
        Outcome outcome;
        outcome.name = gap.name;
        outcome.how = Outcome::How::Refused;
        outcome.why = gap.why;
        outcomes.push_back(std::move(outcome));
    }
    return outcomes;
}

} // namespace vxcam
