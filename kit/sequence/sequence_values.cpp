#include "sequence/sequence_values.h"

#include <vxcamkit/duration.h>
#include <vxcamkit/error.h>
#include <vxcamkit/shape.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <set>

namespace vxcam {

namespace {

constexpr int kMostPixel = 65535;

[[noreturn]] void refuse(const std::string& why)
{
    throw Error(ErrorKind::Usage, why);
}

template <class Number>
Number numberIn(const YAML::Node& node, Number least, Number most, const char* what)
{
    const std::string text = textIn(node);
    Number number{};
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    const std::string range =
        numberText(static_cast<double>(least)) + " to " + numberText(static_cast<double>(most));
    if (error != std::errc() || rest != end) refuse("'" + text + "' is no " + what);
    if (!(number >= least && number <= most)) refuse("'" + text + "': " + range);
    return number;
}

std::string listOf(const SequenceKeys& keys)
{
    std::string text;
    for (const auto& [name, call] : keys) {
        text += (text.empty() ? "" : ", ") + name;
    }
    return text;
}

std::string toldOf(const std::string& what, const char* before, const std::string& key,
                   const std::string& behind)
{
    return what + ": " + before + "'" + key + "'" + behind;
}

} // namespace

void SequenceFaults::add(const YAML::Node& node, const std::string& text)
{
    mistakes_.push_back({node.Mark().is_null() ? 0 : node.Mark().line + 1, text});
}

void SequenceFaults::guard(const YAML::Node& node, const std::string& what,
                           const std::function<void()>& call)
{
    try {
        call();
    } catch (const Error& error) {
        add(node, what + ": " + error.what());
    }
}

void SequenceFaults::throwIfAny() const
{
    if (!mistakes_.empty()) throw SequenceError(path_, mistakes_);
}

std::string textIn(const YAML::Node& node)
{
    if (node.IsMap() || node.IsSequence()) refuse("write one value here");
    if (!node.IsScalar() || node.Scalar().empty()) refuse("a value is missing here");
    return node.Scalar();
}

int wholeIn(const YAML::Node& node, int least, int most)
{
    return numberIn<int>(node, least, most, "whole number");
}

double realIn(const YAML::Node& node, double least, double most)
{
    return numberIn<double>(node, least, most, "number");
}

bool switchIn(const YAML::Node& node)
{
    const std::string text = textIn(node);
    if (text == "true" || text == "yes" || text == "on") return true;
    if (text == "false" || text == "no" || text == "off") return false;
    refuse("'" + text + "': true or false");
}

std::chrono::milliseconds timeIn(const YAML::Node& node)
{
    return parsedDuration(textIn(node));
}

std::chrono::milliseconds limitIn(const YAML::Node& node)
{
    const std::chrono::milliseconds time = timeIn(node);
    if (time.count() == 0) refuse("'" + textIn(node) + "' leaves no time; give more than 0");
    return time;
}

Area areaIn(const YAML::Node& node)
{
    if (!node.IsSequence() || node.size() != 4) refuse("write [x, y, width, height]");
    const auto at = [&](size_t i) { return wholeIn(node[i], i < 2 ? 0 : 1, kMostPixel); };
    return {at(0), at(1), at(2), at(3)};
}

std::pair<int, int> pairIn(const YAML::Node& node, int most)
{
    if (!node.IsSequence()) {
        const int both = wholeIn(node, 1, most);
        return {both, both};
    }
    if (node.size() != 2) refuse("write one number, or [x, y]");
    return {wholeIn(node[0], 1, most), wholeIn(node[1], 1, most)};
}

void readMap(const YAML::Node& node, const std::string& what, const SequenceKeys& keys,
             const std::vector<std::string>& required, SequenceFaults* faults)
{
    if (!node.IsMap()) return faults->add(node, what + ": write 'KEY: VALUE' lines here");
    std::set<std::string> seen;
    for (const auto& entry : node) {
        const std::string key = entry.first.IsScalar() ? entry.first.Scalar() : "?";
        const auto known = keys.find(key);
        if (!seen.insert(key).second) {
            faults->add(entry.first, toldOf(what, "", key, " is there twice"));
        } else if (known == keys.end()) {
            faults->add(entry.first,
                        toldOf(what, "unknown key ", key, "; there are " + listOf(keys)));
        } else {
            faults->guard(entry.second, key, [&] { known->second(entry.second); });
        }
    }
    for (const std::string& key : required) {
        if (seen.count(key) == 0) faults->add(node, toldOf(what, "", key, " is missing"));
    }
}

} // namespace vxcam
