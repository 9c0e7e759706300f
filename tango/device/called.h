// Attributes and commands that call a function, and failures as Tango tells them.
#ifndef VXCAMERA_CALLED_H
#define VXCAMERA_CALLED_H

#include "camera_device.h"

#include <vxcamkit/error.h>

#include <functional>
#include <utility>

namespace vxcam {

// Throws the Tango::DevFailed of an error: the reason of its row, and its text.
[[noreturn]] void throwFailed(const Error& error, const std::string& origin);

// What the work returns; its errors as above.
template <class Work>
auto told(const std::string& origin, Work&& work)
{
    try {
        return work();
    } catch (const Error& error) {
        throwFailed(error, origin);
    }
}

using AttributeReader = std::function<void(VxCamera&, Tango::Attribute&)>;
using AttributeWriter = std::function<void(VxCamera&, Tango::WAttribute&)>;

// Base: Tango::Attr, SpectrumAttr or ImageAttr.
template <class Base>
class CalledAttribute : public Base
{
public:
    template <class... Arguments>
    CalledAttribute(AttributeReader reader, AttributeWriter writer, Arguments&&... arguments)
        : Base(std::forward<Arguments>(arguments)...), reader_(std::move(reader)),
          writer_(std::move(writer))
    {}

    void read(Tango::DeviceImpl* device, Tango::Attribute& attribute) override
    {
        told(attribute.get_name(), [&] { reader_(static_cast<VxCamera&>(*device), attribute); });
    }
    void write(Tango::DeviceImpl* device, Tango::WAttribute& attribute) override
    {
        auto& camera = static_cast<VxCamera&>(*device);
        told(attribute.get_name(), [&] {
            try {
                writer_(camera, attribute);
            } catch (const Error& error) {
                camera.noteFailedWrite(error);
                throw;
            }
        });
    }

private:
    const AttributeReader reader_;
    const AttributeWriter writer_;
};

class CalledCommand : public Tango::Command
{
public:
    using Function = std::function<CORBA::Any*(CalledCommand&, VxCamera&, const CORBA::Any&)>;

    CalledCommand(const char* called, Tango::CmdArgType in, const char* inHelp,
                  Tango::CmdArgType out, const char* outHelp, Function function)
        : Tango::Command(called, in, out), function_(std::move(function))
    {
        set_in_type_desc(inHelp);
        set_out_type_desc(outHelp);
    }

    CORBA::Any* execute(Tango::DeviceImpl* device, const CORBA::Any& argument) override
    {
        return told(get_name(),
                    [&] { return function_(*this, static_cast<VxCamera&>(*device), argument); });
    }

    using Tango::Command::extract;
    using Tango::Command::insert;

private:
    const Function function_;
};

} // namespace vxcam

#endif
