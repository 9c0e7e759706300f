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

        bool operator==(const Entry& other) const
        {
            return name == other.name && text == other.text && trouble == other.trouble;
        }
    };

    // All that is listed, as the camera tells it: a question and an answer each. What it refuses,
    // or does not answer, is noted; throws Error only when it answers nothing any more.
    static Snapshot of(Access& access);
    Snapshot() = default;

    // The same later. What did not come the first time is not asked for again.
    //   All: after something was set.
    //   Changing: only what changes by itself (temperatures, states).
    enum class Again { All, Changing };
    Snapshot again(Access& access, Again which) const;

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
    void put(Entry entry);

    std::shared_ptr<const std::vector<Entry>> entries_; // null: none
};

} // namespace vxcam

#endif
