#include "py_camera.h"
#include "py_values.h"
#include "py_waits.h"

#include <vxcamkit/cooler.h>
#include <vxcamkit/error.h>

#include <pybind11/stl.h>

namespace vxcam::py {

namespace python = pybind11;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

python::tuple stateOf(const CoolingState& state)
{
    return python::make_tuple(nameOf(state.phase), state.temperature, state.setPoint, state.target,
                              state.done, textToPython(state.text), state.isOver());
}

milliseconds durationOf(const char* name, const python::object& value)
{
    return std::chrono::duration_cast<milliseconds>(timeFromPython(name, value));
}

void cool(const CoreCamera& self, double target, double rate, double tolerance,
          const python::object& settle, const python::object& patience)
{
    Cooling cooling;
    cooling.target = target;
    cooling.ramp = rate;
    cooling.tolerance = tolerance;
    cooling.settle = durationOf("settle", settle);
    cooling.patience = durationOf("patience", patience);
    interruptible([camera = self.use(), cooling] { camera->cooler().cool(cooling); });
}

void warmUp(const CoreCamera& self, double target, double rate, const python::object& patience)
{
    Warming warming;
    warming.target = target;
    warming.ramp = rate;
    warming.patience = durationOf("patience", patience);
    interruptible([camera = self.use(), warming] { camera->cooler().warmUp(warming); });
}

// Nothing when the time was over before.
std::optional<python::tuple> wait(const CoreCamera& self, const python::object& timeout)
{
    const std::shared_ptr<Camera>& camera = self.use();
    const std::optional<milliseconds> most = patienceFromPython("timeout", timeout);
    const auto start = steady_clock::now();
    for (;;) {
        std::optional<CoolingState> state;
        {
            const python::gil_scoped_release released;
            state = camera->cooler().wait(kSlice);
        }
        if (state) return stateOf(*state);
        checkSignals();
        if (most && steady_clock::now() - start >= *most) return std::nullopt;
    }
}

} // namespace

void addCooler(CameraClass& camera)
{
    camera.def("cool", &cool)
        .def("warm_up", &warmUp)
        .def("stop_cooler",
             [](const CoreCamera& self) {
                 interruptible([camera = self.use()] { camera->cooler().stop(); });
             })
        .def("cooling_state",
             [](const CoreCamera& self) { return stateOf(self.use()->cooler().state()); })
        .def("wait_for_cooler", &wait);
}

} // namespace vxcam::py
