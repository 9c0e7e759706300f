// What a camera was set to at one moment.
#ifndef VXCAMKIT_SNAPSHOT_H
#define VXCAMKIT_SNAPSHOT_H

#include <vxcamkit/export.h>
#include <vxcamkit/value.h>

#include <memory>
#include <string>
#include <vector>

namespace vxcam {

class Access;

// Properties with their values, in the order of the table. A value that is cheap to copy: copies
// share what they hold.
//
// Threads: different copies may be used on different threads.
class VXCAMKIT_EXPORT Snapshot
{
public:
    struct Entry {
        std::string name;    // "gain", "register:0x10"
        std::string text;    // "2", as it is written to set it; "none" for what is not known
        Value value;         // the same; nothing when it is not known
        std::string trouble; // why the camera did not tell it; mostly empty
        bool isAsked = true; // not yet: there is trouble, too

        bool operator==(const Entry& other) const
        {
            return name == other.name && text == other.text && trouble == other.trouble;
        }
    };

    // What is asked for.
    //   Listed: all that is listed.
    //   Settings: of that, what stays as it was set and is no block of bytes. Frames carry it.
    enum class Scope { Listed, Settings };

    // As the camera tells it: a question and an answer each. What it refuses, or does not answer,
    // is noted; throws Error only when it answers nothing any more.
    static Snapshot of(Access& access, Scope scope = Scope::Listed);
    Snapshot() = default;

    // The names alone: nothing is asked for yet.
    static Snapshot unasked(Scope scope);
    // The same names, nothing of which counts any more; what can only be set, and what the camera
    // did not tell, stays.
    Snapshot forgotten() const;

    // The same later. What did not come the first time is not asked for again.
    //   All: after something was set.
    //   Changing: only what changes by itself (temperatures, states).
    //   Missing: what was not asked for yet. An answer that does not come, which takes seconds to
    //     know, is waited for once; what is behind it stays missing.
    enum class Again { All, Changing, Missing };
    Snapshot again(Access& access, Again which) const;
    // One of them.
    Snapshot again(Access& access, const std::string& name) const;

    bool empty() const { return size() == 0; }
    size_t size() const;
    std::vector<Entry>::const_iterator begin() const;
    std::vector<Entry>::const_iterator end() const;

    // One of them, or its text; null when it is not in here.
    const Entry* entry(const std::string& name) const;
    const std::string* find(const std::string& name) const;
    // Its value; nothing when it is not in here.
    Value value(const std::string& name) const;

    // Adds one behind the others, or replaces the value that it has.
    void set(const std::string& name, const Value& value);

    // A line each: "gain=2", "pid: the camera does not answer".
    std::string text() const;
    // One object, by the names; null for what is not known.
    std::string json() const;

    bool operator==(const Snapshot& other) const;

private:
    explicit Snapshot(std::vector<Entry> entries);

    std::shared_ptr<const std::vector<Entry>> entries_; // null: none
};

} // namespace vxcam

#endif
