#include "plans/plan_folder.h"

#include "http/http_message.h"

#include <vxcamkit/new_file.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace vxcam {

namespace {

constexpr size_t kMostName = 64;
constexpr const char* kEnding = ".yaml";

bool isPlanName(const std::string& name)
{
    const std::string ending = kEnding;
    const bool isPlain = std::all_of(name.begin(), name.end(), [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
               c == '-' || c == '_' || c == '.';
    });
    return isPlain && name.size() > ending.size() && name.size() <= kMostName && name[0] != '.' &&
           name.compare(name.size() - ending.size(), ending.size(), ending) == 0;
}

void requireName(const std::string& name)
{
    if (isPlanName(name)) return;
    throw Error(ErrorKind::Usage,
                "'" + name +
                    "': plans are called by up to 64 letters, digits, ., _ and -, of which the "
                    "first is no dot, and end with .yaml");
}

[[noreturn]] void refuseUnknown(const std::string& name)
{
    throw Refusal(404, "unknown-plan", "there is no plan '" + name + "'");
}

void addHooks(const std::vector<SequenceStep>& steps, std::vector<SequenceMistake>* found)
{
    for (const SequenceStep& step : steps) {
        if (!step.hook.command.empty() || !step.dither.command.empty()) {
            found->push_back({step.line, "runs a command, which this server does only when it is "
                                         "started with --plan-hooks"});
        }
        addHooks(step.steps, found);
    }
}

} // namespace

PlanFolder::PlanFolder(const std::string& path, bool runsHooks) : path_(path), runsHooks_(runsHooks)
{
    const auto refuse = [&](int error) {
        throw Error(ErrorKind::File, "--plans " + path + ": " + std::strerror(error), error);
    };
    std::error_code error;
    const auto type = std::filesystem::status(path, error).type();
    if (error) refuse(error.value());
    if (type != std::filesystem::file_type::directory) refuse(ENOTDIR);
    if (::access(path.c_str(), R_OK | W_OK | X_OK) != 0) refuse(errno);
}

std::vector<std::string> PlanFolder::names() const
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(path_)) {
        const std::string name = entry.path().filename().string();
        if (isPlanName(name) && has(name)) names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

bool PlanFolder::has(const std::string& name) const
{
    std::error_code error;
    return std::filesystem::is_regular_file(pathOf(name), error);
}

std::string PlanFolder::text(const std::string& name) const
{
    requireName(name);
    if (!has(name)) refuseUnknown(name);
    std::ifstream file(pathOf(name), std::ios::binary);
    std::string text(kMostBytes + 1, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    if (!file && !file.eof()) {
        throw Error(ErrorKind::File, name + ": cannot be read: " + std::strerror(errno), errno);
    }
    text.resize(static_cast<size_t>(file.gcount()));
    return text;
}

// Of a folder that a client names. Links that stand in this one lead where who made them wanted.
std::string PlanFolder::placeOf(const std::string& folder) const
{
    const std::filesystem::path place = std::filesystem::path(folder).lexically_normal();
    const bool isInside = !place.empty() && place.is_relative() && *place.begin() != "..";
    const bool isVisible =
        std::all_of(folder.begin(), folder.end(), [](unsigned char c) { return c >= ' '; });
    if (!isInside || !isVisible) {
        throw Error(ErrorKind::Usage,
                    "folder: '" + folder + "' is not below the folder of the plans");
    }
    return pathOf(place.string());
}

SequencePlan PlanFolder::checked(const std::string& name, const std::string& text) const
{
    requireName(name);
    SequencePlan plan = parseSequence(text, name);
    std::vector<SequenceMistake> hooks;
    addHooks(plan.steps, &hooks);
    if (!hooks.empty() && !runsHooks_) throw HooksRefused(name, hooks);
    try {
        plan.folder = placeOf(plan.folder);
    } catch (const Error& error) {
        throw SequenceError(name, {{0, error.what()}});
    }
    plan.path = pathOf(name);
    return plan;
}

SequencePlan PlanFolder::plan(const std::string& name, const std::string& folder) const
{
    SequencePlan plan = checked(name, text(name));
    if (!folder.empty()) plan.folder = placeOf(folder);
    return plan;
}

bool PlanFolder::put(const std::string& name, const std::string& text)
{
    checked(name, text);
    std::lock_guard<std::mutex> guard(mutex_);
    const bool isNew = !has(name);
    if (isNew && names().size() >= kMostPlans) {
        throw Refusal(409, "too-many", "there are 1000 plans already");
    }
    writeNewFile(pathOf(name), text.data(), text.size(), true);
    return isNew;
}

void PlanFolder::remove(const std::string& name)
{
    requireName(name);
    std::lock_guard<std::mutex> guard(mutex_);
    if (!has(name)) refuseUnknown(name);
    if (::unlink(pathOf(name).c_str()) == 0) return;
    throw Error(ErrorKind::File, name + ": " + std::strerror(errno), errno);
}

std::string PlanFolder::seen(const std::string& path) const
{
    return std::filesystem::path(path).lexically_relative(path_).string();
}

} // namespace vxcam
