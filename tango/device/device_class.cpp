#include "device_class.h"

#include "attributes.h"
#include "camera_device.h"

namespace vxcam {

VxCameraClass::VxCameraClass(std::string ofName) : Tango::DeviceClass(ofName) {}

void VxCameraClass::attribute_factory(std::vector<Tango::Attr*>& attributes)
{
    addPropertyAttributes(&attributes);
    addAcquisitionAttributes(&attributes);
    addFrameAttributes(&attributes);
}

void VxCameraClass::device_factory(const Tango::DevVarStringArray* names)
{
    for (CORBA::ULong i = 0; i < names->length(); ++i) {
        auto* const device = new VxCamera(this, (*names)[i].in(), static_cast<int>(i));
        device_list.push_back(device);
        if (Tango::Util::_UseDb && !Tango::Util::_FileDb) {
            export_device(device);
        } else {
            export_device(device, (*names)[i]);
        }
    }
}

} // namespace vxcam
