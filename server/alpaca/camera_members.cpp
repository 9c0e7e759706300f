// Members that only cameras have.
#include "alpaca/alpaca_error.h"
#include "alpaca/alpaca_members.h"

#include <vxcamkit/property.h>

namespace vxcam {

namespace {

using C = AlpacaCamera;
using F = AlpacaForm;
using Geometry = AlpacaCamera::Geometry;

template <int kValue>
Json always(C&)
{
    return kValue;
}

template <bool kValue>
Json is(C&)
{
    return kValue;
}

// What no camera of this kind has, or tells.
enum class Absent { Bayer, CoolerPower, Scale, FullWell, FastReadout, HeatSink, Stacking, List };

const char* nameOf(Absent what)
{
    switch (what) {
    case Absent::Bayer:
        return "colour filters";
    case Absent::CoolerPower:
        return "figure for the cooler's power";
    case Absent::Scale:
        return "figure for electrons per count";
    case Absent::FullWell:
        return "figure for its full well";
    case Absent::FastReadout:
        return "fast readout; see ReadoutModes";
    case Absent::HeatSink:
        return "temperature of a heat sink";
    case Absent::Stacking:
        return "stacking of its own";
    case Absent::List:
        break;
    }
    return "list of these: they are numbers";
}

template <Absent kWhat>
Json absent(C&)
{
    refuseMember(nameOf(kWhat));
}

template <int Geometry::*kWhich>
Json geometry(C& camera)
{
    return camera.geometry().*kWhich;
}

// A number that is read by its name and then given to a function.
AlpacaAction withInt(const F& form, const char* name, const std::function<void(int)>& set)
{
    const int value = form.integer(name);
    return [value, set] {
        set(value);
        return Json();
    };
}

AlpacaAction withFlag(const F& form, const char* name, const std::function<void(bool)>& set)
{
    const bool value = form.boolean(name);
    return [value, set] {
        set(value);
        return Json();
    };
}

AlpacaAction withNumber(const F& form, const char* name, const std::function<void(double)>& set)
{
    const double value = form.number(name);
    return [value, set] {
        set(value);
        return Json();
    };
}

AlpacaAction does(const std::function<void()>& what)
{
    return [what] {
        what();
        return Json();
    };
}

void requireRange(const char* name, double value, double least, double most)
{
    if (value >= least && value <= most) return;
    refuseAlpacaValue(std::string(name) + ": " + numberText(least) + " to " + numberText(most));
}

// What the camera itself refuses of a value is the value's fault.
void setOn(C& camera, const char* name, const Value& value)
{
    try {
        camera.shared().set(name, value);
    } catch (const Error& error) {
        if (error.kind() != ErrorKind::Camera) throw;
        refuseAlpacaValue(error.what());
    }
}

Json temperature(C& camera)
{
    const auto told = camera.shared().temperatures();
    if (told) return told->sensor;
    throw Error(ErrorKind::Usage, "the camera has not told a temperature yet");
}

const Field& offsetRange()
{
    return findProperty("offset").property->field();
}

// It can be set, but the camera does not tell it.
Json offset(C& camera)
{
    const auto told = camera.shared().told("offset");
    if (told) return (*told)[0].toInt();
    throw AlpacaError(AlpacaNumber::ValueNotSet,
                      "the camera does not tell its offset, and nobody has set it yet");
}

Json pixelSize(C& camera)
{
    if (camera.options().pixelSize) return *camera.options().pixelSize;
    throw AlpacaError(AlpacaNumber::ValueNotSet,
                      "the camera does not tell the size of its pixels; vxcamd --pixel-size does");
}

Json duration(C& camera)
{
    return std::chrono::duration<double>(camera.lastFrame().facts().exposure).count();
}

std::vector<AlpacaMember> sensorMembers()
{
    return {
        {"bayeroffsetx", absent<Absent::Bayer>},
        {"bayeroffsety", absent<Absent::Bayer>},
        {"cameraxsize", [](C& c) { return Json(c.sensor().columns); }},
        {"cameraysize", [](C& c) { return Json(c.sensor().rows); }},
        {"electronsperadu", absent<Absent::Scale>},
        {"exposuremax", [](C&) { return Json(C::kMaxExposure); }},
        {"exposuremin", [](C&) { return Json(0.0); }},
        {"exposureresolution", [](C&) { return Json(C::kExposureStep); }},
        {"fullwellcapacity", absent<Absent::FullWell>},
        {"hasshutter", is<true>},
        {"maxadu", [](C& c) { return Json(c.maxAdu()); }},
        {"maxbinx", always<C::kMaxBin>},
        {"maxbiny", always<C::kMaxBin>},
        {"pixelsizex", pixelSize},
        {"pixelsizey", pixelSize},
        {"sensorname", [](C&) { return Json(""); }},
        {"sensortype", always<0>},
        {"canabortexposure", is<true>},
        {"canasymmetricbin", is<true>},
        {"canfastreadout", is<false>},
        {"cangetcoolerpower", is<false>},
        {"canpulseguide", is<false>},
        {"cansetccdtemperature", is<true>},
        {"canstopexposure", is<false>},
    };
}

template <int Geometry::*kWhich>
AlpacaAction setGeometry(C& camera, const F& form, const char* name)
{
    return withInt(form, name, [&camera](int value) { camera.setGeometry(kWhich, value); });
}

template <int Geometry::*kWhich>
AlpacaAction setBin(C& camera, const F& form, const char* name)
{
    return withInt(form, name, [&camera](int value) { camera.setBin(kWhich, value); });
}

std::vector<AlpacaMember> geometryMembers()
{
    return {
        {"binx", geometry<&Geometry::binX>,
         [](C& c, const F& f) { return setBin<&Geometry::binX>(c, f, "BinX"); }, true, 3, true},
        {"biny", geometry<&Geometry::binY>,
         [](C& c, const F& f) { return setBin<&Geometry::binY>(c, f, "BinY"); }, true, 3, true},
        {"startx", geometry<&Geometry::startX>,
         [](C& c, const F& f) { return setGeometry<&Geometry::startX>(c, f, "StartX"); }, true, 3,
         true},
        {"starty", geometry<&Geometry::startY>,
         [](C& c, const F& f) { return setGeometry<&Geometry::startY>(c, f, "StartY"); }, true, 3,
         true},
        {"numx", geometry<&Geometry::numX>,
         [](C& c, const F& f) { return setGeometry<&Geometry::numX>(c, f, "NumX"); }, true, 3,
         true},
        {"numy", geometry<&Geometry::numY>,
         [](C& c, const F& f) { return setGeometry<&Geometry::numY>(c, f, "NumY"); }, true, 3,
         true},
    };
}

std::vector<AlpacaMember> settingMembers()
{
    return {
        {"ccdtemperature", temperature},
        {"cooleron", [](C& c) { return Json(c.shared().known("cooling").toBool()); },
         [](C& c, const F& f) {
             return withFlag(f, "CoolerOn", [&c](bool on) { c.shared().set("cooling", on); });
         },
         true, 3, true},
        {"coolerpower", absent<Absent::CoolerPower>},
        {"fastreadout", absent<Absent::FastReadout>,
         [](C&, const F& f) {
             return withFlag(f, "FastReadout",
                             [](bool) { refuseMember(nameOf(Absent::FastReadout)); });
         }},
        {"gain", [](C& c) { return Json(c.shared().known("gain").toInt()); },
         [](C& c, const F& f) {
             return withInt(f, "Gain", [&c](int gain) {
                 requireRange("Gain", gain, 0, c.gainMax());
                 setOn(c, "gain", gain);
             });
         },
         true, 3, true},
        {"gainmin", always<0>},
        {"gainmax", [](C& c) { return Json(c.gainMax()); }},
        {"gains", absent<Absent::List>},
        {"offset", offset,
         [](C& c, const F& f) {
             return withInt(f, "Offset", [&c](int counts) {
                 requireRange("Offset", counts, offsetRange().least, offsetRange().most);
                 setOn(c, "offset", counts);
             });
         },
         true, 3, true},
        {"offsetmin", [](C&) { return Json(static_cast<int>(offsetRange().least)); }},
        {"offsetmax", [](C&) { return Json(static_cast<int>(offsetRange().most)); }},
        {"offsets", absent<Absent::List>},
        {"heatsinktemperature", absent<Absent::HeatSink>},
        {"readoutmode", [](C& c) { return Json(c.readoutMode()); },
         [](C& c, const F& f) {
             return withInt(f, "ReadoutMode", [&c](int mode) { c.setReadoutMode(mode); });
         },
         true, 3, true},
        {"readoutmodes",
         [](C&) {
             return Json(Json::array({"16 bits", "8 bits"}));
         }},
        {"setccdtemperature", [](C& c) { return Json(c.shared().known("target-temp").toDouble()); },
         [](C& c, const F& f) {
             return withNumber(f, "SetCCDTemperature", [&c](double degrees) {
                 requireRange("SetCCDTemperature", degrees, C::kColdest, C::kWarmest);
                 setOn(c, "target-temp", degrees);
             });
         },
         true, 3, true},
        {"subexposureduration", absent<Absent::Stacking>,
         [](C&, const F& f) {
             return withNumber(f, "SubExposureDuration",
                               [](double) { refuseMember(nameOf(Absent::Stacking)); });
         }},
    };
}

std::vector<AlpacaMember> exposureMembers()
{
    return {
        {"camerastate", [](C& c) { return Json(static_cast<int>(c.state())); }},
        {"imageready", [](C& c) { return Json(c.imageReady()); }, nullptr, true, 3, false, true},
        {"ispulseguiding", is<false>},
        {"lastexposureduration", duration, nullptr, true, 3, false, true},
        {"lastexposurestarttime", [](C& c) { return Json(utcText(c.lastFrame().times().begin)); },
         nullptr, true, 3, false, true},
        {"percentcompleted", [](C& c) { return Json(c.percentCompleted()); }, nullptr, true, 3,
         false, true},
        {"abortexposure", nullptr, [](C& c, const F&) { return does([&c] { c.abortExposure(); }); },
         true, 3, true},
        {"stopexposure", nullptr,
         [](C&, const F&) {
             return does([] { refuseMember("way to end an exposure early and keep it"); });
         }},
        {"pulseguide", nullptr,
         [](C&, const F& f) {
             f.integer("Direction");
             f.integer("Duration");
             return does([] { refuseMember("guide port"); });
         }},
        {"startexposure", nullptr,
         [](C& c, const F& f) {
             const double seconds = f.number("Duration");
             const bool isLight = f.boolean("Light");
             return does([&c, seconds, isLight] { c.startExposure(seconds, isLight); });
         },
         true, 3, true},
    };
}

} // namespace

std::vector<AlpacaMember> alpacaCameraMembers()
{
    std::vector<AlpacaMember> all;
    for (const auto& some :
         {sensorMembers(), geometryMembers(), settingMembers(), exposureMembers()}) {
        all.insert(all.end(), some.begin(), some.end());
    }
    return all;
}

} // namespace vxcam
