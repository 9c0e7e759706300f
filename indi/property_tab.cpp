#include "property_tab.h"

#include <algorithm>

namespace vxcam {

void PropertyTab::make(const char* device)
{
    for (const Property& row : properties()) {
        const bool isCustomary = *row.names.indi != '\0';
        if (!isCustomary) properties_.push_back(std::make_unique<TabProperty>(row, device));
    }
}

void PropertyTab::define(INDI::DefaultDevice& device)
{
    for (const auto& property : properties_) {
        device.defineProperty(property->indi());
    }
}

void PropertyTab::remove(INDI::DefaultDevice& device)
{
    for (const auto& property : properties_) {
        device.deleteProperty(property->name().c_str());
    }
}

TabProperty* PropertyTab::find(const std::string& indiName) const
{
    const auto found =
        std::find_if(properties_.begin(), properties_.end(),
                     [&](const auto& property) { return property->name() == indiName; });
    return found == properties_.end() ? nullptr : found->get();
}

void PropertyTab::show(const Snapshot& snapshot)
{
    for (const Snapshot::Entry& entry : snapshot) {
        for (const auto& property : properties_) {
            if (entry.name == property->row().fullName()) property->show(entry.name, entry.value);
        }
    }
}

void PropertyTab::save(std::FILE* file) const
{
    for (const auto& property : properties_) {
        const Property& row = property->row();
        const bool isSaved = row.isWritable() && row.nature == Nature::Setting;
        if (isSaved && property->isKnown()) property->indi().save(file);
    }
}

std::vector<std::string> PropertyTab::states() const
{
    std::vector<std::string> names;
    for (const auto& property : properties_) {
        if (!property->row().isWritable()) names.emplace_back(property->row().name);
    }
    return names;
}

} // namespace vxcam
