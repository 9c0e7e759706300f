#include "attributes.h"

namespace vxcam {

void describe(Tango::Attr& attribute, const About& about)
{
    Tango::UserDefaultAttrProp properties;
    properties.set_description(about.help.c_str());
    if (!about.unit.empty()) properties.set_unit(about.unit.c_str());
    if (!about.format.empty()) properties.set_format(about.format.c_str());
    if (!about.least.empty()) properties.set_min_value(about.least.c_str());
    if (!about.most.empty()) properties.set_max_value(about.most.c_str());
    std::vector<std::string> labels = about.labels;
    if (!labels.empty()) properties.set_enum_labels(labels);
    attribute.set_default_properties(properties);
    attribute.set_disp_level(about.level);
    if (!about.isMemorised) return;
    attribute.set_memorized();
    attribute.set_memorized_init(true);
}

void give(Tango::Attribute& attribute, const std::string& text)
{
    attribute.set_value(new Tango::DevString(CORBA::string_dup(text.c_str())), 1, 0, true);
}

void giveNothing(Tango::Attribute& attribute)
{
    attribute.set_quality(Tango::ATTR_INVALID);
}

} // namespace vxcam
