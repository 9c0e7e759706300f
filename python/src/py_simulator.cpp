#include "py_simulator.h"

#include "py_process.h"
#include "py_values.h"
#include "py_waits.h"

#include <vxcamkit/discover.h>
#include <vxcamkit/error.h>
#include <vxcamkit/simulated_camera.h>

#include <pybind11/stl.h>

namespace vxcam::py {

namespace python = pybind11;

namespace {

class CoreSimulator
{
public:
    CoreSimulator(std::pair<int, int> sensor, std::vector<std::string> faults, uint64_t seed,
                  double scale, double heartbeat, uint64_t faultSeed)
        : camera_(make(sensor, std::move(faults), seed, scale, heartbeat, faultSeed))
    {}

    const std::shared_ptr<SimulatedCamera>& use() const
    {
        return camera_.use("the simulated camera", camera_.look().target());
    }
    bool isForeign() const { return camera_.isForeign(); }

private:
    static std::shared_ptr<SimulatedCamera> make(std::pair<int, int> sensor,
                                                 std::vector<std::string> faults, uint64_t seed,
                                                 double scale, double heartbeat, uint64_t faultSeed)
    {
        SimulatorOptions options;
        options.sensor = {sensor.first, sensor.second};
        options.faults = std::move(faults);
        options.seed = seed;
        options.timeScale = scale;
        options.heartbeatSeconds = heartbeat;
        options.faultSeed = faultSeed;
        return std::make_shared<SimulatedCamera>(options);
    }

    Owned<SimulatedCamera> camera_;
};

python::list framesOf(const CoreSimulator& self)
{
    python::list frames;
    for (const SentFrame& frame : self.use()->frames()) {
        frames.append(python::make_tuple(frame.readout, frame.frame, frame.rows, frame.columns,
                                         frame.bits, frame.sum, frame.crc, frame.sentSum,
                                         frame.sentCrc, frame.complete, frame.intact,
                                         nanoseconds(frame.begin), nanoseconds(frame.end)));
    }
    return frames;
}

python::list found()
{
    python::list cameras;
    for (const FoundCamera& camera : interruptible([] { return discover(); })) {
        python::list interfaces;
        for (const FoundPath& path : camera.paths) {
            interfaces.append(path.interface);
        }
        cameras.append(python::make_tuple(camera.paths.front().address, camera.port, camera.serial,
                                          python::tuple(interfaces)));
    }
    return cameras;
}

} // namespace

void addSimulator(python::module_& module)
{
    using Sensor = std::pair<int, int>;
    using Faults = std::vector<std::string>;
    python::class_<CoreSimulator, std::unique_ptr<CoreSimulator, LetGo>>(module, "Simulator")
        .def(python::init<Sensor, Faults, uint64_t, double, double, uint64_t>())
        .def("target", [](const CoreSimulator& self) { return self.use()->target(); })
        .def("inject",
             [](const CoreSimulator& self, const std::string& fault) {
                 interruptible([camera = self.use(), fault] { camera->inject(fault); });
             })
        .def("frames", &framesOf)
        .def("close", [](const CoreSimulator& self) {
            if (self.isForeign()) return;
            interruptible([camera = self.use()] { camera->close(); });
        });
    module.def("discover", &found);
}

} // namespace vxcam::py
