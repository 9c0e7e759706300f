#include <vxcamkit/snapshot.h>

namespace vxcam {

const std::string* Snapshot::find(const std::string& name) const
{
    for (const Entry& entry : entries_) {
        if (entry.name == name) return &entry.text;
    }
    return nullptr;
}

void Snapshot::set(const std::string& name, const std::string& text)
{
    for (Entry& entry : entries_) {
        if (entry.name != name) continue;
        entry.text = text;
        return;
    }
    entries_.push_back({name, text});
}

} // namespace vxcam
