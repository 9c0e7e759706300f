// What stands in a YAML file, with the lines where it stands.
#ifndef VXCAMKIT_SEQUENCE_VALUES_H
#define VXCAMKIT_SEQUENCE_VALUES_H

#include <vxcamkit/area.h>
#include <vxcamkit/sequence.h>

#include <yaml-cpp/yaml.h>

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace vxcam {

// The mistakes of a file, so that all of them are told at once.
//
// Threads: one.
class SequenceFaults
{
public:
    explicit SequenceFaults(std::string path) : path_(std::move(path)) {}

    void add(const YAML::Node& node, const std::string& text); // with the line of the node
    // Adds what the call throws as an Error.
    void guard(const YAML::Node& node, const std::string& what, const std::function<void()>& call);
    void throwIfAny() const; // SequenceError

private:
    const std::string path_;
    std::vector<SequenceMistake> mistakes_;
};

// Values of a node. Throw Error{Usage}.
std::string textIn(const YAML::Node& node);
int wholeIn(const YAML::Node& node, int least, int most);
double realIn(const YAML::Node& node, double least, double most);
bool switchIn(const YAML::Node& node);
std::chrono::milliseconds timeIn(const YAML::Node& node);
std::chrono::milliseconds limitIn(const YAML::Node& node);    // a time that is not 0
Area areaIn(const YAML::Node& node);                          // [x, y, width, height]
std::pair<int, int> pairIn(const YAML::Node& node, int most); // 2, or [2, 3]; from 1

// What is done with the value of a key.
using SequenceKeys = std::map<std::string, std::function<void(const YAML::Node& value)>>;

// Calls what the keys of a map stand for. Faults: keys that are unknown, missing, or there twice,
// what is no map, and what is thrown.
void readMap(const YAML::Node& node, const std::string& what, const SequenceKeys& keys,
             const std::vector<std::string>& required, SequenceFaults* faults);

} // namespace vxcam

#endif
