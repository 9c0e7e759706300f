// What the next acquisition is to be, what became of the latest one, and who the camera is.
#include "attributes.h"
#include "called.h"

namespace vxcam {

namespace {

std::string reasonOf(const LastError& error)
{
    return error.text.empty() ? "" : rowOf(error.kind).tango;
}

const char* nameOf(Progress::Phase phase)
{
    static const char* const names[] = {"waiting", "exposing", "exposed", "reading", "ended"};
    return names[static_cast<size_t>(phase)];
}

// ---- Settings -------------------------------------------------------------------------------

void add(Attributes* attributes, const std::string& name, long type, AttributeReader reader,
         AttributeWriter writer, const About& about)
{
    const auto access = writer ? Tango::READ_WRITE : Tango::READ;
    auto* const attribute = new CalledAttribute<Tango::Attr>(std::move(reader), std::move(writer),
                                                             name.c_str(), type, access);
    describe(*attribute, about);
    attributes->push_back(attribute);
}

template <class Number>
void giveSetting(Tango::Attribute& attribute, Number number)
{
    give(attribute, number);
    dynamic_cast<Tango::WAttribute&>(attribute).set_write_value(number);
}

About setting(const std::string& help, const std::string& unit = "", const std::string& least = "",
              const std::string& most = "")
{
    About about;
    about.help = help;
    about.unit = unit;
    about.least = least;
    about.most = most;
    about.isMemorised = true;
    return about;
}

// A whole number of the plan.
void addNumber(Attributes* attributes, const std::string& name, int Plan::*place,
               const About& about)
{
    add(
        attributes, name, Tango::DEV_LONG,
        [place](VxCamera& device, Tango::Attribute& attribute) {
            giveSetting(attribute, Tango::DevLong{device.settings().plan.*place});
        },
        [place](VxCamera& device, Tango::WAttribute& attribute) {
            device.settings().plan.*place = written<Tango::DevLong>(attribute);
        },
        about);
}

// One of the plan's enumerations, whose last one is given; labels are the kit's words.
template <class Enum>
void addEnum(Attributes* attributes, const std::string& name, Enum Plan::*place, Enum last,
             About about)
{
    for (int i = 0; i <= static_cast<int>(last); ++i) {
        about.labels.emplace_back(vxcam::nameOf(static_cast<Enum>(i)));
    }
    add(
        attributes, name, Tango::DEV_ENUM,
        [place](VxCamera& device, Tango::Attribute& attribute) {
            giveSetting(attribute, static_cast<Tango::DevShort>(device.settings().plan.*place));
        },
        [place](VxCamera& device, Tango::WAttribute& attribute) {
            device.settings().plan.*place = static_cast<Enum>(written<Tango::DevShort>(attribute));
        },
        about);
}

void addBits(Attributes* attributes)
{
    add(
        attributes, "Bits", Tango::DEV_LONG,
        [](VxCamera& device, Tango::Attribute& attribute) {
            giveSetting(attribute, Tango::DevLong{device.settings().plan.bits});
        },
        [](VxCamera& device, Tango::WAttribute& attribute) {
            const auto bits = written<Tango::DevLong>(attribute);
            if (bits != 8 && bits != 16) {
                throw Error(ErrorKind::Usage, "Bits " + std::to_string(bits) + ": write 8 or 16");
            }
            device.settings().plan.bits = bits;
        },
        setting("of a pixel: 8 or 16; binned ones have 32"));
}

void addTimeout(Attributes* attributes)
{
    add(
        attributes, "Timeout", Tango::DEV_DOUBLE,
        [](VxCamera& device, Tango::Attribute& attribute) {
            const auto& timeout = device.settings().plan.timeout;
            giveSetting(attribute,
                        Tango::DevDouble{timeout ? double(timeout->count()) / 1000 : 0.0});
        },
        [](VxCamera& device, Tango::WAttribute& attribute) {
            const std::chrono::milliseconds timeout(
                static_cast<int64_t>(1000 * written<Tango::DevDouble>(attribute)));
            device.settings().plan.timeout.reset();
            if (timeout.count() > 0) device.settings().plan.timeout = timeout;
        },
        setting("silence of the camera that is allowed beyond the moment when a frame is due; 0 is "
                "20 s, and as long as a trigger takes",
                "s", "0", "86400"));
}

void addSettings(Attributes* attributes)
{
    const char* const frames = "frames of an acquisition; 0 is until it is stopped";
    addNumber(attributes, "Frames", &Plan::frames, setting(frames, "", "0", "32767"));
    About alias = setting(frames, "", "0", "32767");
    alias.isMemorised = false;
    addNumber(attributes, "acq_nb_frames", &Plan::frames, alias);
    addBits(attributes);
    addNumber(attributes, "ReadoutMode", &Plan::mode,
              setting("of binned kinds the number of the binning table, else flags of the readout",
                      "", "0", "65535"));
    addEnum(attributes, "ReadoutKind", &Plan::kind, ReadoutKind::AsSet,
            setting("pixels of the sensor, or sums of bins"));
    addEnum(attributes, "FrameType", &Plan::type, FrameType::Flat,
            setting("darks and bias frames keep the shutter closed"));
    addTimeout(attributes);
    add(
        attributes, "CoolingRamp", Tango::DEV_DOUBLE,
        [](VxCamera& device, Tango::Attribute& attribute) {
            giveSetting(attribute, Tango::DevDouble{device.settings().coolingRamp});
        },
        [](VxCamera& device, Tango::WAttribute& attribute) {
            device.settings().coolingRamp = written<Tango::DevDouble>(attribute);
        },
        setting("speed at which Cool and WarmUp move the set point; 0 is at once", "C/min", "0",
                "1000"));
    add(
        attributes, "DeliverIncomplete", Tango::DEV_BOOLEAN,
        [](VxCamera& device, Tango::Attribute& attribute) {
            giveSetting(attribute, Tango::DevBoolean{device.settings().deliverIncomplete});
        },
        [](VxCamera& device, Tango::WAttribute& attribute) {
            device.settings().deliverIncomplete = written<Tango::DevBoolean>(attribute);
        },
        setting("whether images of which something is missing can be read; their quality is "
                "ALARM"));
}

// ---- What is so -----------------------------------------------------------------------------

template <class What>
void addReading(Attributes* attributes, const std::string& name, long type, const std::string& help,
                What (*read)(VxCamera&))
{
    About about;
    about.help = help;
    add(
        attributes, name, type,
        [read](VxCamera& device, Tango::Attribute& attribute) { give(attribute, read(device)); },
        nullptr, about);
}

// Something that only an open camera has.
template <class What>
void addOfCamera(Attributes* attributes, const std::string& name, long type,
                 const std::string& help, What (*read)(const Camera&))
{
    About about;
    about.help = help;
    add(
        attributes, name, type,
        [read](VxCamera& device, Tango::Attribute& attribute) {
            const auto camera = device.station().camera();
            if (!camera) return giveNothing(attribute);
            give(attribute, read(*camera));
        },
        nullptr, about);
}

void addBooks(Attributes* attributes)
{
    addReading<Tango::DevLong>(
        attributes, "last_image_ready", Tango::DEV_LONG,
        "index of the latest image, for readImage: 0 is the first of its acquisition; -1: none",
        [](VxCamera& device) { return device.station().ring().lastIndex(); });
    addReading<Tango::DevLong>(
        attributes, "FramesHeld", Tango::DEV_LONG, "images that readImage can give",
        [](VxCamera& device) { return Tango::DevLong(device.station().ring().size()); });
    addReading<Tango::DevULong64>(
        attributes, "FramesComplete", Tango::DEV_ULONG64,
        "frames of the acquisition that came with all their pixels",
        [](VxCamera& device) { return Tango::DevULong64(device.station().books().complete); });
    addReading<Tango::DevULong64>(
        attributes, "FramesIncomplete", Tango::DEV_ULONG64,
        "frames of the acquisition of which something is missing",
        [](VxCamera& device) { return Tango::DevULong64(device.station().books().incomplete); });
    addReading<std::string>(
        attributes, "Phase", Tango::DEV_STRING,
        "where the frame is that runs: waiting (for a trigger), exposing, exposed, reading, ended",
        [](VxCamera& device) { return std::string(nameOf(device.station().progress().phase)); });
    addReading<Tango::DevDouble>(
        attributes, "Progress", Tango::DEV_DOUBLE, "of this phase, 0 to 1",
        [](VxCamera& device) { return Tango::DevDouble{device.station().progress().done}; });
    addReading<std::string>(
        attributes, "AcquisitionEnd", Tango::DEV_STRING,
        "how the latest acquisition ended, or running; empty: there was none, or it did not begin",
        [](VxCamera& device) { return endText(device.station().report()); });
}

void addTroubles(Attributes* attributes)
{
    addReading<std::string>(attributes, "LastError", Tango::DEV_STRING,
                            "what went wrong last; Reset empties it",
                            [](VxCamera& device) { return device.station().lastError().text; });
    addReading<std::string>(
        attributes, "LastErrorReason", Tango::DEV_STRING,
        "what kind of failure that is, as failed requests have it: VxCamera_LinkLost",
        [](VxCamera& device) { return reasonOf(device.station().lastError()); });
    addReading<std::string>(attributes, "CoolingPhase", Tango::DEV_STRING,
                            "idle, ramping, settling, settled, warming-up, warm or failed",
                            [](VxCamera& device) {
                                return std::string(vxcam::nameOf(device.station().cooling().phase));
                            });
    addReading<std::string>(attributes, "CoolingText", Tango::DEV_STRING,
                            "how far that is, or why it failed",
                            [](VxCamera& device) { return device.station().cooling().text; });
}

void addIdentity(Attributes* attributes)
{
    addOfCamera<std::string>(attributes, "CameraName", Tango::DEV_STRING,
                             "what the camera calls itself",
                             [](const Camera& camera) { return camera.identity().name; });
    addOfCamera<std::string>(attributes, "CameraSerial", Tango::DEV_STRING, "its serial number",
                             [](const Camera& camera) { return camera.identity().serial; });
    addOfCamera<std::string>(attributes, "CameraVersion", Tango::DEV_STRING, "its version",
                             [](const Camera& camera) { return camera.identity().version; });
    addOfCamera<std::string>(attributes, "CameraAddress", Tango::DEV_STRING, "where it is",
                             [](const Camera& camera) { return camera.address(); });
    addOfCamera<Tango::DevLong>(
        attributes, "SensorColumns", Tango::DEV_LONG, "pixels of the sensor in a row",
        [](const Camera& camera) { return Tango::DevLong{camera.sensor().columns}; });
    addOfCamera<Tango::DevLong>(
        attributes, "SensorRows", Tango::DEV_LONG, "rows of the sensor",
        [](const Camera& camera) { return Tango::DevLong{camera.sensor().rows}; });
}

} // namespace

void addAcquisitionAttributes(Attributes* attributes)
{
    addSettings(attributes);
    addBooks(attributes);
    addTroubles(attributes);
    addIdentity(attributes);
}

} // namespace vxcam
