// What a camera was set to at one moment.
#ifndef VXCAMKIT_SNAPSHOT_H
#define VXCAMKIT_SNAPSHOT_H

#include <vxcamkit/export.h>

#include <string>
#include <vector>

namespace vxcam {

// Properties with their values, in the order of the table, as they would be written to set them.
class VXCAMKIT_EXPORT Snapshot
{
public:
    struct Entry {
        std::string name; // "gain", "register:0x10"
        std::string text; // "2"

        bool operator==(const Entry& other) const
        {
            return name == other.name && text == other.text;
        }
    };

    bool empty() const { return entries_.empty(); }
    size_t size() const { return entries_.size(); }
    std::vector<Entry>::const_iterator begin() const { return entries_.begin(); }
    std::vector<Entry>::const_iterator end() const { return entries_.end(); }

    // The value of one; null when it is not in here.
    const std::string* find(const std::string& name) const;

    // Adds one behind the others, or replaces the value that it has.
    void set(const std::string& name, const std::string& text);

    bool operator==(const Snapshot& other) const { return entries_ == other.entries_; }

private:
    std::vector<Entry> entries_;
};

} // namespace vxcam

#endif
