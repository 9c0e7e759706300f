// The commands of a device.
#include "called.h"
#include "device_class.h"
#include "encoded.h"

namespace vxcam {

namespace {

using Function = void (*)(VxCamera&);

void start(VxCamera& device)
{
    device.station().start(device.settings().plan);
}

void grab(VxCamera& device)
{
    Plan plan = device.settings().plan;
    plan.frames = 1;
    device.station().start(plan);
}

void warmUp(VxCamera& device)
{
    Warming warming;
    warming.ramp = device.settings().coolingRamp;
    device.station().warmUp(warming);
}

CORBA::Any* cool(CalledCommand& command, VxCamera& device, const CORBA::Any& argument)
{
    Tango::DevDouble target = 0;
    command.extract(argument, target);
    Cooling cooling;
    cooling.target = target;
    cooling.ramp = device.settings().coolingRamp;
    device.station().cool(cooling);
    return command.insert();
}

CORBA::Any* readImage(CalledCommand& command, VxCamera& device, const CORBA::Any& argument)
{
    Tango::DevLong index = 0;
    command.extract(argument, index);
    const FrameRing& ring = device.station().ring();
    const Frame frame = ring.at(index == -1 ? ring.lastIndex() : index);
    device.requireDeliverable(frame);
    return command.insert(encoded(frame, device.arrayVersion()).release());
}

CORBA::Any* getProperty(CalledCommand& command, VxCamera& device, const CORBA::Any& argument)
{
    const char* name = nullptr;
    command.extract(argument, name);
    return command.insert(device.station().get(name).text().c_str());
}

CORBA::Any* setProperty(CalledCommand& command, VxCamera& device, const CORBA::Any& argument)
{
    const Tango::DevVarStringArray* words = nullptr;
    command.extract(argument, words);
    if (words->length() != 2) throw Error(ErrorKind::Usage, "two texts: name and value");
    const Value value = device.station().set((*words)[0].in(), Value((*words)[1].in()));
    return command.insert(value.text().c_str());
}

Tango::Command* simple(const char* name, Function function)
{
    return new CalledCommand(
        name, Tango::DEV_VOID, "", Tango::DEV_VOID, "",
        [function](CalledCommand& command, VxCamera& device, const CORBA::Any&) {
            function(device);
            return command.insert();
        });
}

} // namespace

void VxCameraClass::command_factory()
{
    const Function stop = [](VxCamera& device) { device.station().stop(); };
    command_list.push_back(simple("Grab", grab));
    command_list.push_back(simple("Start", start));
    command_list.push_back(simple("Stop", stop));
    command_list.push_back(simple("Abort", [](VxCamera& device) { device.station().abort(); }));
    command_list.push_back(simple("Reset", [](VxCamera& device) { device.station().reset(); }));
    command_list.push_back(simple("WarmUp", warmUp));
    command_list.push_back(
        simple("prepareAcq", [](VxCamera& device) { device.station().prepare(); }));
    command_list.push_back(simple("startAcq", start));
    command_list.push_back(simple("stopAcq", stop));
    command_list.push_back(new CalledCommand("Cool", Tango::DEV_DOUBLE, "target, degrees Celsius",
                                             Tango::DEV_VOID, "", cool));
    command_list.push_back(
        new CalledCommand("readImage", Tango::DEV_LONG,
                          "index of the image, 0 is the first of the acquisition; -1: the latest",
                          Tango::DEV_ENCODED, "header and pixels", readImage));
    command_list.push_back(new CalledCommand("GetProperty", Tango::DEV_STRING,
                                             "name, with its key: register:0x10", Tango::DEV_STRING,
                                             "its value", getProperty));
    command_list.push_back(new CalledCommand("SetProperty", Tango::DEVVAR_STRINGARRAY,
                                             "name and value", Tango::DEV_STRING,
                                             "what the camera tells then", setProperty));
}

} // namespace vxcam
