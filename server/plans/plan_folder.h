// The folder with the plans of sequences.
#ifndef VXCAMD_PLAN_FOLDER_H
#define VXCAMD_PLAN_FOLDER_H

#include <vxcamkit/sequence.h>

#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace vxcam {

// A plan has commands, and this server runs none. Its mistakes are the lines that have one.
class HooksRefused : public SequenceError
{
public:
    using SequenceError::SequenceError;
};

// Plans by their names; frames and journals go below their folder, too. Errors call a plan by its
// name alone.
//
// Threads: any. Locks: its own, while a plan is written.
class PlanFolder
{
public:
    static constexpr size_t kMostPlans = 1000;
    static constexpr size_t kMostBytes = size_t{1} << 20U; // of a plan

    // Throws Error{File} when that is no folder that can be written to. Without `runsHooks` plans
    // with commands are refused.
    PlanFolder(const std::string& path, bool runsHooks);

    bool runsHooks() const { return runsHooks_; }
    std::vector<std::string> names() const;          // in their order
    std::string text(const std::string& name) const; // throws Refusal{404}

    // A text as the plan of that name, with its places in this folder. Throws Error{Usage} for
    // names that no plan has; SequenceError, also when its frames were to go elsewhere;
    // HooksRefused.
    SequencePlan checked(const std::string& name, const std::string& text) const;
    // The plan as it is stored; its frames go to `folder`, if that is not empty.
    SequencePlan plan(const std::string& name, const std::string& folder = {}) const;

    // Checks it and stores it as a whole, instead of what was there; false when there was
    // something. Throws likewise; Refusal{409} when there are too many.
    bool put(const std::string& name, const std::string& text);
    void remove(const std::string& name); // throws Refusal{404}

    // A path of frames or folders, as it is seen from here.
    std::string seen(const std::string& path) const;

private:
    std::string pathOf(const std::string& name) const { return path_ + "/" + name; }
    std::string placeOf(const std::string& folder) const;
    bool has(const std::string& name) const;

    const std::string path_;
    const bool runsHooks_;
    std::mutex mutex_;
};

} // namespace vxcam

#endif
