// What frames show, in figures: of one, of pairs, and of a camera under a steady light.
#include "py_camera.h"
#include "py_values.h"
#include "py_waits.h"

#include <vxcamkit/error.h>
#include <vxcamkit/figures.h>
#include <vxcamkit/measures.h>
#include <vxcamkit/stars.h>
#include <vxcamkit/steady_light.h>

#include <pybind11/stl.h>

namespace vxcam::py {

namespace python = pybind11;
using std::chrono::milliseconds;

namespace {

using Pair = std::pair<const CoreFrame*, const CoreFrame*>;

python::tuple figuresOfFrame(const CoreFrame& self)
{
    const FrameFigures figures = interruptible([frame = self] { return figuresOf(frame.frame()); });
    return python::make_tuple(figures.mean, figures.deviation, figures.least, figures.most,
                              figures.saturated);
}

python::tuple starsOfFrame(const CoreFrame& self)
{
    const StarField field = interruptible([frame = self] { return findStars(frame.frame()); });
    python::list stars;
    for (const Star& star : field.stars) {
        stars.append(python::make_tuple(star.column, star.row, star.flux, star.hfd, star.fwhm,
                                        star.isSaturated, star.elongation, star.peak));
    }
    return python::tuple(stars);
}

// None where no star was measured.
python::tuple measuresOfFrame(const CoreFrame& self)
{
    const Measures found = interruptible([frame = self] { return measuresOf(frame.frame()); });
    const auto ofStars = [&](double value) {
        return found.hfd > 0 ? python::object(python::float_(value)) : python::none();
    };
    return python::make_tuple(found.least, found.most, found.mean, found.median, found.noise,
                              found.saturated, found.stars, ofStars(found.hfd), ofStars(found.fwhm),
                              ofStars(found.elongation));
}

double secondsOf(milliseconds time)
{
    return std::chrono::duration<double>(time).count();
}

milliseconds durationOf(const char* name, const python::object& value)
{
    return std::chrono::duration_cast<milliseconds>(timeFromPython(name, value));
}

// Takes frames for the kit, which runs without the interpreter lock.
class Shots
{
public:
    Shots(const CoreCamera& camera, const python::object& timeout, python::object listener)
        : camera_(camera), patience_(patienceFromPython("timeout", timeout)),
          listener_(std::move(listener))
    {}

    std::vector<Frame> operator()(const Plan& plan, const std::string& what) const
    {
        const python::gil_scoped_acquire held;
        if (!listener_.is_none()) listener_(what);
        const auto stream = startReadout(camera_, plan, patience_);
        std::vector<Frame> frames;
        while (const std::optional<CoreFrame> frame = stream->next(patience_)) {
            if (!frame->facts().complete()) throw IncompleteFrame(frame->frame());
            frames.push_back(frame->frame());
        }
        return frames;
    }

private:
    const CoreCamera& camera_;
    const std::optional<milliseconds> patience_;
    const python::object listener_;
};

// What the kit throws of the light, and not of a readout, does not say of which camera.
template <class Work>
auto named(const CoreCamera& camera, const std::string& advice, Work work) -> decltype(work())
{
    try {
        const python::gil_scoped_release released;
        return work();
    } catch (const IncompleteFrame&) {
        throw;
    } catch (const Error& error) {
        const std::string text = error.what();
        if (text.rfind(camera.target(), 0) == 0) throw;
        const bool isLight = error.kind() == ErrorKind::Camera && error.code() == 0;
        throw Error(error.kind(), camera.target() + ": " + text + (isLight ? advice : ""),
                    error.code(), error.subCode());
    }
}

// Exposure in seconds, and of each try exposure and median.
python::tuple flatExposure(const CoreCamera& self, const python::dict& given, double level,
                           double tolerance, const python::object& first,
                           const python::object& longest, const python::object& timeout)
{
    Plan plan = planOf(self, given);
    plan.kind = ReadoutKind::Area;
    plan.type = FrameType::Flat;
    ExposureGoal goal;
    goal.level = level;
    goal.tolerance = tolerance;
    goal.fullScale = plan.bits == 8 ? UINT8_MAX : UINT16_MAX;
    goal.first = durationOf("first", first);
    goal.most = durationOf("longest", longest);
    const Shots shots(self, timeout, python::none());
    std::vector<std::pair<double, double>> tries;
    const auto told = [&](milliseconds exposure, double median) {
        tries.emplace_back(secondsOf(exposure), median);
    };
    const milliseconds exposure =
        named(self, "; change the light, or give another level or longest=", [&] {
            return exposureFor(plan, goal, std::cref(shots), told);
        });
    return python::make_tuple(secondsOf(exposure), python::tuple(python::cast(tries)));
}

python::tuple resultOf(const TransferSeries& series)
{
    const PhotonTransfer found = photonTransferOf(series.dark, series.flats);
    python::list pairs;
    for (size_t i = 0; i < series.flats.size(); ++i) {
        const FramePair& flat = series.flats[i];
        const auto ofNoise = [&](double value) {
            return flat.used > 0 ? python::object(python::float_(value)) : python::none();
        };
        pairs.append(python::make_tuple(
            flat.exposure, flat.level, ofNoise(flat.mean - found.offset), ofNoise(flat.variance),
            flat.used, flat.saturated, static_cast<bool>(found.isFitted[i])));
    }
    const char* const limit = found.endsAtFullScale ? "converter" : "pixel";
    return python::make_tuple(found.gain, gainUncertainty(found, series.dark, series.flats),
                              found.readNoise, found.fullWell,
                              found.fullWell ? python::object(python::str(limit)) : python::none(),
                              found.offset, python::tuple(pairs));
}

python::tuple takePairs(const CoreCamera& self, const python::dict& given, int pairs,
                        const python::object& shortest, const python::object& longest,
                        const python::object& limit, const python::object& timeout,
                        const python::object& listener)
{
    TransferOptions options;
    options.plan = planOf(self, given);
    options.pairs = pairs;
    options.from = durationOf("exposures", shortest);
    options.to = durationOf("exposures", longest);
    options.longest = durationOf("longest", limit);
    const Shots shots(self, timeout, listener);
    const char* const advice = "; a steady light before the sensor is needed, that fills the scale "
                               "within the longest exposure";
    const TransferSeries series =
        named(self, advice, [&] { return takeTransfer(options, std::cref(shots)); });
    try {
        return resultOf(series);
    } catch (const Error& error) {
        throw Error(ErrorKind::Camera, self.target() + ": " + error.what() + advice);
    }
}

FramePair pairFrom(const Pair& pair)
{
    return interruptible([first = *pair.first, second = *pair.second] {
        return pairOf(first.frame(), second.frame());
    });
}

python::tuple pairsOf(const Pair& bias, const std::vector<Pair>& flats)
{
    TransferSeries series;
    series.dark = pairFrom(bias);
    for (const Pair& flat : flats) {
        series.flats.push_back(pairFrom(flat));
    }
    return resultOf(series);
}

} // namespace

void addFigures(python::module_& module, python::class_<CoreFrame>& frame)
{
    frame.def("figures", &figuresOfFrame)
        .def("measures", &measuresOfFrame)
        .def("stars", &starsOfFrame);
    module.def("photon_transfer", &pairsOf);
}

void addMeasures(CameraClass& camera)
{
    camera.def("flat_exposure", &flatExposure).def("photon_transfer", &takePairs);
}

} // namespace vxcam::py
