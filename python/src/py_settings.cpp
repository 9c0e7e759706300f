#include "py_camera.h"
#include "py_values.h"
#include "py_waits.h"

#include <vxcamkit/error.h>
#include <vxcamkit/profile.h>
#include <vxcamkit/property.h>

#include <pybind11/stl.h>

namespace vxcam::py {

namespace python = pybind11;

namespace {

// What takes many questions takes its time.
std::optional<std::chrono::milliseconds> patienceFor(const std::string& name)
{
    if (findProperty(name).property->cost == Cost::Many) return std::nullopt;
    return kUsualPatience;
}

std::string silenceText(const CoreCamera& self, const char* what, const std::string& name)
{
    return self.target() + ": " + what + " '" + name +
           "': the camera does not answer. Is it still there?";
}

// On the calling thread, as far as no signal has to wait for that.
std::optional<Value> getAtOnce(const CoreCamera& self, const std::string& name)
{
    const auto ask = [camera = self.use(), &name] { // which another thread may close meanwhile
        const python::gil_scoped_release released;
        return camera->getWithin(name, kSlice);
    };
    return ask();
}

python::object get(const CoreCamera& self, const std::string& name)
{
    if (const std::optional<Value> told = getAtOnce(self, name)) return valueToPython(*told);
    checkSignals();
    const Limit limit{patienceFor(name), [&] { return silenceText(self, "reading", name); }};
    return valueToPython(
        interruptible([camera = self.use(), name] { return camera->get(name); }, limit));
}

python::object set(const CoreCamera& self, const std::string& name, const python::object& given)
{
    const std::shared_ptr<Camera>& camera = self.use();
    const Value value = valueFromPython(name, given);
    const Limit limit{patienceFor(name), [&] { return silenceText(self, "setting", name); }};
    return valueToPython(
        interruptible([camera, name, value] { return camera->set(name, value); }, limit));
}

python::object checked(const CoreCamera& self, const std::string& name, const python::object& given)
{
    const std::shared_ptr<Camera>& camera = self.use();
    const Value value = valueFromPython(name, given);
    return valueToPython(
        interruptible([camera, name, value] { return camera->checked(name, value); }));
}

python::tuple snapshot(const CoreCamera& self)
{
    const Snapshot snapshot = interruptible([camera = self.use()] { return camera->snapshot(); });
    python::list entries;
    for (const Snapshot::Entry& entry : snapshot) {
        entries.append(python::make_tuple(entry.name, valueToPython(entry.value),
                                          textToPython(entry.text), textToPython(entry.trouble)));
    }
    return python::tuple(entries);
}

python::tuple apply(const CoreCamera& self, const std::string& json)
{
    const Profile profile = Profile::parse(json);
    const std::vector<Outcome> outcomes =
        interruptible([camera = self.use(), profile] { return camera->apply(profile); });
    python::list result;
    for (const Outcome& outcome : outcomes) {
        result.append(python::make_tuple(outcome.name, nameOf(outcome.how),
                                         valueToPython(outcome.asked), valueToPython(outcome.told),
                                         textToPython(outcome.why), outcome.isRestored()));
    }
    return python::tuple(result);
}

} // namespace

void addSettings(CameraClass& camera)
{
    camera.def("get", &get)
        .def("set", &set)
        .def("checked", &checked)
        .def("snapshot", &snapshot)
        .def("profile",
             [](const CoreCamera& self, bool withMask) {
                 return textToPython(interruptible(
                     [camera = self.use(), withMask] { return camera->profile(withMask).json(); }));
             })
        .def("apply", &apply)
        .def("restore", [](const CoreCamera& self) {
            return textToPython(interruptible([camera = self.use()] { return camera->restore(); }));
        });
}

} // namespace vxcam::py
