// All properties of the kit's table that INDI has no customary ones for.
#ifndef VXINDI_PROPERTY_TAB_H
#define VXINDI_PROPERTY_TAB_H

#include "tab_property.h"

#include <vxcamkit/snapshot.h>

#include <defaultdevice.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace vxcam {

// Threads: the main loop's.
class PropertyTab
{
public:
    void make(const char* device); // once
    void define(INDI::DefaultDevice& device);
    void remove(INDI::DefaultDevice& device);

    TabProperty* find(const std::string& indiName) const; // null: not one of these

    // What the camera told.
    void show(const Snapshot& snapshot);

    // Writes down what stays as it is set, as far as it is known.
    void save(std::FILE* file) const;

    // The names of what cannot be set, in the kit.
    std::vector<std::string> states() const;

private:
    std::vector<std::unique_ptr<TabProperty>> properties_;
};

} // namespace vxcam

#endif
