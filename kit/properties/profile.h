// How a camera is set, in a file.
#ifndef VXCAMKIT_PROFILE_H
#define VXCAMKIT_PROFILE_H

#include <vxcamkit/export.h>
#include <vxcamkit/settings.h>

#include <string>
#include <utility>
#include <vector>

namespace vxcam {

// The settings of a camera, as JSON:
//
//     {
//       "format": "vxcam profile", "version": 1,
//       "camera": "192.168.1.20:2000", "saved": "2026-03-01T20:15:00Z",
//       "settings": {"exposure": 250, "mirroring": {"horizontal": true, "vertical": false}}
//     }
//
// Values are written as Value::json() does it; a person may write texts instead, "250ms".
//
// Threads: a value.
class VXCAMKIT_EXPORT Profile
{
public:
    // What is left out since the camera did not tell it, or nobody knows it; and why.
    struct Gap {
        std::string name, why;
    };

    Profile() = default;

    // All settings that the camera tells; of those that it does not tell, the ones that the
    // application has made. The mask of the bins, some seconds of questions, only `withMask`. What
    // it refuses to tell is a gap; throws Error when it answers nothing any more.
    static Profile of(Access& access, const Settings& made = {}, bool withMask = false);

    // Throw Error: Usage for what is no profile, File when it cannot be read. Properties that are
    // unknown here, and values that these cannot have, are gaps.
    static Profile parse(const std::string& json);
    static Profile load(const std::string& path);

    std::string json() const;
    // As writeNewFile() of <vxcamkit/new_file.h>: whole or not at all, and in place of a file that
    // exists only with `force`. Throws Error{File}.
    void save(const std::string& path, bool force = false) const;

    // Has a camera take it, as Settings::applyTo(). Gaps of a profile that was read are outcomes,
    // too: refused.
    std::vector<Outcome> applyTo(Access& access) const;

    const Settings& settings() const { return settings_; }
    const std::vector<Gap>& gaps() const { return gaps_; }

    // Whose settings they are, as it shall be told.
    const std::string& camera() const { return camera_; }
    void setCamera(const std::string& text) { camera_ = text; }

private:
    void add(const PropertyName& name, const Value& value);

    Settings settings_;
    std::vector<Gap> gaps_;
    std::string camera_;
};

} // namespace vxcam

#endif
