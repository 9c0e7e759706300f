// Plans of sequences, read from YAML.
#include "sequence/sequence_units.h"
#include "sequence/sequence_values.h"

#include <vxcamkit/duration.h>
#include <vxcamkit/property.h>
#include <vxcamkit/target.h>

#include <yaml-cpp/eventhandler.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

namespace vxcam {

namespace {

using std::chrono::milliseconds;

constexpr int kMostCount = kMostUnits, kMostSteps = 100000, kMostFactor = 65535, kMostDepth = 8;
constexpr double kColdest = -273, kWarmest = 100; // degrees Celsius
constexpr double kMostRamp = 1000;                // degrees a minute
constexpr double kMostMean = 4294967295.0;
constexpr milliseconds kFirst(1000); // exposure of flats with a level
constexpr size_t kMostName = 64, kMostBytes = size_t{1} << 20U;

[[noreturn]] void refuse(const std::string& why)
{
    throw Error(ErrorKind::Usage, why);
}

// FNV-1a, of what the file says however it is written.
std::string markOf(const YAML::Node& document)
{
    uint64_t mark = 14695981039346656037U;
    for (const char byte : YAML::Dump(document)) {
        mark = (mark ^ static_cast<unsigned char>(byte)) * 1099511628211U;
    }
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(mark));
    return text;
}

std::string nameIn(const YAML::Node& node)
{
    std::string name = textIn(node);
    const bool isPlain = std::all_of(name.begin(), name.end(), [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
               c == '-' || c == '_' || c == '.' || c == '+';
    });
    if (!isPlain || name[0] == '.' || name.size() > kMostName) {
        refuse("'" + name + "': up to 64 letters, digits, -, _, + and ., which is not the first");
    }
    return name;
}

class Reader
{
public:
    explicit Reader(const std::string& path) : faults_(path) { plan_.path = path; }

    SequencePlan read(const YAML::Node& document)
    {
        const SequenceKeys keys = {
            {"target",
             [&](const YAML::Node& value) {
                 plan_.target = textIn(value);
                 Target::parse(plan_.target); // throws what is wrong with it
             }},
            {"folder",
             [&](const YAML::Node& value) {
                 plan_.folder = textIn(value);
                 const auto isControl = [](unsigned char c) { return c < ' '; };
                 if (std::any_of(plan_.folder.begin(), plan_.folder.end(), isControl)) {
                     refuse("control characters are in it");
                 }
             }},
            {"sensor",
             [&](const YAML::Node& value) {
                 const auto [columns, rows] = pairIn(value, kMostFactor);
                 plan_.sensor = Size{columns, rows};
             }},
            {"header", [&](const YAML::Node& value) { readCards(value); }},
            {"retries", [&](const YAML::Node& value) { plan_.retries = wholeIn(value, 0, 1000); }},
            {"link", [&](const YAML::Node& value) { plan_.link = timeIn(value); }},
            {"steps", [&](const YAML::Node& value) { plan_.steps = stepsIn(value, 1); }}};
        readMap(document, "plan", keys, {"steps"}, &faults_);
        faults_.throwIfAny();
        plan_.mark = markOf(document);
        const std::filesystem::path beside = std::filesystem::path(plan_.path).parent_path();
        const std::filesystem::path folder =
            plan_.folder.empty() ? std::filesystem::path(plan_.path).stem() : plan_.folder.c_str();
        plan_.folder = (beside / folder).string();
        needsOf(plan_);
        return plan_;
    }

private:
    void readCards(const YAML::Node& node)
    {
        if (!node.IsSequence()) refuse("write a list of KEY=VALUE or KEY=VALUE/COMMENT");
        std::set<std::string> words = {kSequenceCard, kSequenceNumberCard};
        for (const auto& one : node) {
            faults_.guard(one, "header", [&] {
                plan_.cards.push_back(parseCard(textIn(one)));
                const std::string& word = plan_.cards.back().keyword;
                if (!words.insert(word).second) refuse("the word " + word + " is there already");
            });
        }
    }

    std::vector<SequenceStep> stepsIn(const YAML::Node& node, int depth)
    {
        std::vector<SequenceStep> steps;
        if (depth > kMostDepth) refuse("repeats are too deep in each other");
        if (!node.IsSequence() || node.size() == 0) refuse("write a list: '- lights: ...'");
        for (const auto& one : node) {
            // Written in few bytes where lists stand for lists.
            if (++steps_ > kMostSteps) refuse("a plan has at most 100000 steps");
            SequenceStep step;
            step.line = one.Mark().line + 1;
            if (!one.IsMap() || one.size() != 1) {
                faults_.add(one, "each step is one of lights, darks, bias, flats, temperature, "
                                 "warm-up, set, wait, run, repeat");
                continue;
            }
            readMap(one, "step", stepKeys(&step, depth), {}, &faults_);
            steps.push_back(std::move(step));
        }
        return steps;
    }

    SequenceKeys stepKeys(SequenceStep* step, int depth)
    {
        const auto frames = [this, step](FrameType type, const char* key, const char* name) {
            return [=](const YAML::Node& value) {
                step->name = name;
                readFrames(value, type, key, step);
            };
        };
        return {{"lights", frames(FrameType::Light, "lights", "light")},
                {"darks", frames(FrameType::Dark, "darks", "dark")},
                {"bias", frames(FrameType::Bias, "bias", "bias")},
                {"flats", frames(FrameType::Flat, "flats", "flat")},
                {"temperature", [=](const YAML::Node& value) { readCooling(value, step); }},
                {"warm-up", [=](const YAML::Node& value) { readWarmUp(value, step); }},
                {"set",
                 [=](const YAML::Node& value) {
                     step->kind = SequenceStep::Kind::Set;
                     readSettings(value, step);
                 }},
                {"wait",
                 [=](const YAML::Node& value) {
                     step->kind = SequenceStep::Kind::Delay;
                     step->delay = timeIn(value);
                 }},
                {"run",
                 [=](const YAML::Node& value) {
                     step->kind = SequenceStep::Kind::Hook;
                     readHook(value, &step->hook);
                 }},
                {"repeat", [=](const YAML::Node& value) { readRepeat(value, step, depth); }}};
    }

    void readFrames(const YAML::Node& node, FrameType type, const char* key, SequenceStep* step)
    {
        step->kind = SequenceStep::Kind::Frames;
        Plan& plan = step->plan;
        plan.kind = ReadoutKind::Area;
        plan.type = type;
        if (type == FrameType::Bias) plan.exposure = milliseconds(0);
        SequenceKeys keys = {
            {"count",
             [&](const YAML::Node& value) { step->count = wholeIn(value, 1, kMostCount); }},
            {"name", [&](const YAML::Node& value) { step->name = nameIn(value); }},
            {"exposure", [&](const YAML::Node& value) { plan.exposure = timeIn(value); }},
            {"bits",
             [&](const YAML::Node& value) {
                 plan.bits = wholeIn(value, 8, 16);
                 if (plan.bits != 8 && plan.bits != 16) refuse("8 or 16");
             }},
            {"area", [&](const YAML::Node& value) { plan.area = areaIn(value); }},
            {"binning", [&](const YAML::Node& value) { readBinning(value, &plan); }},
            {"timeout", [&](const YAML::Node& value) { plan.timeout = timeIn(value); }},
            {"gain", [&](const YAML::Node& value) { readSetting("gain", value, step); }},
            {"set", [&](const YAML::Node& value) { readSettings(value, step); }},
            {"dither", [&](const YAML::Node& value) { readDither(value, step); }}};
        if (type == FrameType::Flat) addLevel(&keys, step);
        readMap(node, key, keys, {"count"}, &faults_);
        if (!node.IsMap()) return;
        const bool isBinned = plan.kind == ReadoutKind::Binned;
        if (isBinned && plan.area) refuse("area and binning exclude each other");
        if (isBinned && node["bits"]) refuse("binned frames have 32 bits");
        const SequenceLevel& level = step->level;
        const double fullScale = std::ldexp(1.0, plan.bits) - 1;
        if (!isBinned && level.mean >= fullScale) {
            refuse("level: 'mean' is less than " + std::to_string(std::lround(fullScale)) + " of " +
                   std::to_string(plan.bits) + " bits");
        }
        if (plan.exposure) return;
        if (!node["exposure"] && !node["level"]) refuse("'exposure' is missing");
        plan.exposure = std::max(level.least, std::min<milliseconds>(kFirst, level.most));
    }

    void addLevel(SequenceKeys* keys, SequenceStep* step)
    {
        (*keys)["level"] = [this, step](const YAML::Node& value) {
            SequenceLevel& level = step->level;
            readMap(
                value, "level",
                {{"mean", [&](const YAML::Node& v) { level.mean = realIn(v, 1, kMostMean); }},
                 {"tolerance", [&](const YAML::Node& v) { level.tolerance = realIn(v, 0.001, 1); }},
                 {"least", [&](const YAML::Node& v) { level.least = timeIn(v); }},
                 {"most", [&](const YAML::Node& v) { level.most = timeIn(v); }}},
                {"mean"}, &faults_);
            if (level.least > level.most) refuse("'least' is longer than 'most'");
        };
    }

    static void readBinning(const YAML::Node& node, Plan* plan)
    {
        const auto [x, y] = pairIn(node, kMostFactor);
        if (x == 1 && y == 1) return;
        plan->kind = ReadoutKind::Binned;
        plan->binningX = x;
        plan->binningY = y;
    }

    static void readSetting(const std::string& name, const YAML::Node& node, SequenceStep* step)
    {
        const PropertyName found = findProperty(name);
        if (!found.property->isWritable()) refuse("'" + name + "' can only be read");
        step->settings.emplace_back(name, parsedText(name, found.property->shape, textIn(node)));
    }

    void readSettings(const YAML::Node& node, SequenceStep* step)
    {
        if (!node.IsMap()) refuse("write 'PROPERTY: VALUE' lines");
        std::set<std::string> seen;
        for (const auto& entry : node) {
            faults_.guard(entry.first, "set", [&] {
                const std::string name = textIn(entry.first);
                if (!seen.insert(name).second) refuse("'" + name + "' is there twice");
                readSetting(name, entry.second, step);
            });
        }
    }

    void readDither(const YAML::Node& node, SequenceStep* step)
    {
        SequenceKeys keys = hookKeys(&step->dither);
        keys["every"] = [&](const YAML::Node& value) {
            step->ditherEvery = wholeIn(value, 1, kMostCount);
        };
        readMap(node, "dither", keys, {"command"}, &faults_);
    }

    static SequenceKeys hookKeys(SequenceHook* hook)
    {
        return {{"command", [=](const YAML::Node& value) { hook->command = textIn(value); }},
                {"timeout", [=](const YAML::Node& value) { hook->patience = limitIn(value); }},
                {"may-fail", [=](const YAML::Node& value) { hook->mayFail = switchIn(value); }}};
    }

    void readHook(const YAML::Node& node, SequenceHook* hook)
    {
        if (node.IsScalar()) {
            hook->command = textIn(node);
        } else {
            readMap(node, "run", hookKeys(hook), {"command"}, &faults_);
        }
    }

    static SequenceKeys coolingKeys(SequenceStep* step)
    {
        Cooling* const cooling = &step->cooling;
        return {
            {"to", [=](const YAML::Node& v) { cooling->target = realIn(v, kColdest, kWarmest); }},
            {"ramp", [=](const YAML::Node& v) { cooling->ramp = realIn(v, 0, kMostRamp); }},
            {"wait", [=](const YAML::Node& v) { step->waits = switchIn(v); }},
            {"timeout", [=](const YAML::Node& v) { step->patience = timeIn(v); }}};
    }

    void readCooling(const YAML::Node& node, SequenceStep* step)
    {
        step->kind = SequenceStep::Kind::Cool;
        Cooling& cooling = step->cooling;
        SequenceKeys keys = coolingKeys(step);
        keys["tolerance"] = [&](const YAML::Node& v) { cooling.tolerance = realIn(v, 0.1, 100); };
        keys["settle"] = [&](const YAML::Node& v) { cooling.settle = timeIn(v); };
        readMap(node, "temperature", keys, {"to"}, &faults_);
    }

    void readWarmUp(const YAML::Node& node, SequenceStep* step)
    {
        step->kind = SequenceStep::Kind::WarmUp;
        step->cooling.target = Warming().target;
        readMap(node, "warm-up", coolingKeys(step), {}, &faults_);
    }

    void readRepeat(const YAML::Node& node, SequenceStep* step, int depth)
    {
        step->kind = SequenceStep::Kind::Repeat;
        readMap(node, "repeat",
                {{"times", [&](const YAML::Node& v) { step->count = wholeIn(v, 1, kMostCount); }},
                 {"steps", [&](const YAML::Node& v) { step->steps = stepsIn(v, depth + 1); }}},
                {"times", "steps"}, &faults_);
    }

    SequencePlan plan_;
    SequenceFaults faults_;
    int steps_ = 0; // read so far
};

std::string contentOf(const std::string& path)
{
    std::error_code error;
    const auto type = std::filesystem::status(path, error).type();
    // Opening a named pipe would wait for its writer.
    if (!error && type != std::filesystem::file_type::regular) {
        throw Error(ErrorKind::File, path + ": is no regular file", EINVAL);
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) throw Error(ErrorKind::File, path + ": " + std::strerror(errno), errno);
    std::string text(kMostBytes + 1, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    if (file.bad() || (file.gcount() == 0 && !file.eof())) {
        throw Error(ErrorKind::File, path + ": cannot be read", EIO);
    }
    text.resize(static_cast<size_t>(file.gcount()));
    return text;
}

// Of the documents in a text it is only known that there is a next one, without an end where the
// parser does not get past a character: so no more than two are looked at.
class DocumentCount : public YAML::EventHandler
{
public:
    void OnDocumentStart(const YAML::Mark&) override { ++count_; }
    void OnDocumentEnd() override {}
    void OnNull(const YAML::Mark&, YAML::anchor_t) override {}
    void OnAlias(const YAML::Mark&, YAML::anchor_t) override {}
    void OnScalar(const YAML::Mark&, const std::string&, YAML::anchor_t,
                  const std::string&) override
    {}
    void OnSequenceStart(const YAML::Mark&, const std::string&, YAML::anchor_t,
                         YAML::EmitterStyle::value) override
    {}
    void OnSequenceEnd() override {}
    void OnMapStart(const YAML::Mark&, const std::string&, YAML::anchor_t,
                    YAML::EmitterStyle::value) override
    {}
    void OnMapEnd() override {}

    int count() const { return count_; }

private:
    int count_ = 0;
};

bool hasOneDocument(const std::string& text)
{
    std::istringstream stream(text);
    YAML::Parser parser(stream);
    DocumentCount documents;
    for (int i = 0; i < 2 && parser.HandleNextDocument(documents); ++i) {
    }
    return documents.count() == 1;
}

} // namespace

SequencePlan parseSequence(const std::string& text, const std::string& path)
{
    const auto refuseAt = [&](int line, const std::string& why) {
        throw SequenceError(path, {{line, why}});
    };
    if (text.size() > kMostBytes) refuseAt(0, "a plan has at most 1 MiB");
    try {
        if (!hasOneDocument(text)) refuseAt(0, "one plan is expected in it");
        return Reader(path).read(YAML::Load(text));
    } catch (const YAML::Exception& error) {
        throw SequenceError(path, {{error.mark.line + 1, error.msg}});
    }
}

SequencePlan readSequence(const std::string& path)
{
    return parseSequence(contentOf(path), path);
}

} // namespace vxcam
