// Values to set: what an application made of a camera, or what a profile holds.
#ifndef VXCAMKIT_SETTINGS_H
#define VXCAMKIT_SETTINGS_H

#include <vxcamkit/export.h>
#include <vxcamkit/property.h>
#include <vxcamkit/value.h>

#include <string>
#include <vector>

namespace vxcam {

struct Setting {
    PropertyName name;
    Value value;
};

// What became of a setting that was to be restored.
struct Outcome {
    enum class How {
        Confirmed, // the camera tells it back
        Sent,      // the camera has taken it without a complaint; it cannot be asked
        Different, // the camera tells another value
        Refused,   // by the camera, or impossible on it
        Unanswered // the camera did not answer (any more)
    };
    std::string name;
    Value asked, told; // told: nothing when it could not be asked
    How how = How::Unanswered;
    std::string why; // of the last three

    bool isRestored() const { return how == How::Confirmed || how == How::Sent; }
};
VXCAMKIT_EXPORT const char* nameOf(Outcome::How how); // "confirmed", "sent", "different", ...

// Settings, in the order of the table. Of several that set the same thing (exposure and
// exposure-ex, area and area-regions, a parameter as this or that) the last one counts.
//
// Threads: a value.
class VXCAMKIT_EXPORT Settings
{
public:
    // Adds one or replaces its value, which has been fitted to the property. What is no setting of
    // the camera's (Nature) is left out: false.
    bool set(const PropertyName& name, const Value& value);
    void remove(const PropertyName& name);
    void clear() { settings_.clear(); }

    bool empty() const { return settings_.empty(); }
    size_t size() const { return settings_.size(); }
    std::vector<Setting>::const_iterator begin() const { return settings_.begin(); }
    std::vector<Setting>::const_iterator end() const { return settings_.end(); }
    const Setting* find(const std::string& name) const; // null: not in here
    bool has(const PropertyName& name) const;           // this, or another that sets the same thing

    // Has the camera take all of them, in order, and then asks it for each that can be read. One
    // outcome each, in order. Does not throw for what the camera says or leaves unsaid.
    std::vector<Outcome> applyTo(Access& access) const;

private:
    std::vector<Setting> settings_;
};

} // namespace vxcam

#endif
