// What all devices of the class VxCamera have: their commands and attributes.
#ifndef VXCAMERA_DEVICE_CLASS_H
#define VXCAMERA_DEVICE_CLASS_H

#include <tango.h>

#include <string>
#include <vector>

namespace vxcam {

class VxCameraClass : public Tango::DeviceClass
{
public:
    explicit VxCameraClass(std::string ofName);

    void command_factory() override; // in commands.cpp
    void attribute_factory(std::vector<Tango::Attr*>& attributes) override;
    void device_factory(const Tango::DevVarStringArray* names) override;
};

} // namespace vxcam

#endif
