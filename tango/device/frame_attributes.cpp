// The latest frame: its pixels, and what it knows of itself.
#include "attributes.h"
#include "called.h"
#include "encoded.h"

#include <vxcamkit/header.h>

#include <algorithm>

namespace vxcam {

namespace {

constexpr long kMostColumns = 65535, kMostRows = 65535;

double secondsOf(UtcTime time)
{
    return std::chrono::duration<double>(time.time_since_epoch()).count();
}

double secondsOf(std::chrono::nanoseconds time)
{
    return std::chrono::duration<double>(time).count();
}

// ---- Facts ----------------------------------------------------------------------------------

template <class Base = Tango::Attr, class... Arguments>
void add(Attributes* attributes, const std::string& name, long type, About about,
         std::function<void(const Frame&, Tango::Attribute&)> read, Arguments... arguments)
{
    const AttributeReader reader = [read](VxCamera& device, Tango::Attribute& attribute) {
        if (!device.frame()) return giveNothing(attribute);
        read(*device.frame(), attribute);
    };
    auto* const attribute =
        new CalledAttribute<Base>(reader, nullptr, name.c_str(), type, arguments...);
    describe(*attribute, about);
    attributes->push_back(attribute);
}

template <class What>
void addFact(Attributes* attributes, const std::string& name, long type, const std::string& help,
             What (*read)(const Frame&), const std::string& unit = "",
             const std::string& format = "")
{
    About about;
    about.help = help;
    about.unit = unit;
    about.format = format;
    add(attributes, name, type, about,
        [read](const Frame& frame, Tango::Attribute& attribute) { give(attribute, read(frame)); });
}

void addTruth(Attributes* attributes)
{
    addFact<Tango::DevLong>(
        attributes, "FrameNumber", Tango::DEV_LONG,
        "number of the latest frame in its acquisition, from 1; index and number differ by 1",
        [](const Frame& frame) { return Tango::DevLong{frame.facts().number}; });
    addFact<Tango::DevULong64>(attributes, "FrameSum", Tango::DEV_ULONG64, "sum of all its pixels",
                               [](const Frame& frame) { return Tango::DevULong64(frame.sum()); });
    addFact<Tango::DevBoolean>(
        attributes, "FrameComplete", Tango::DEV_BOOLEAN,
        "nothing of it is missing, misplaced or damaged",
        [](const Frame& frame) -> Tango::DevBoolean { return frame.complete(); });
    addFact<Tango::DevLong>(attributes, "FrameMissing", Tango::DEV_LONG, "packets that are missing",
                            [](const Frame& frame) { return Tango::DevLong{frame.missing()}; });
    addFact<std::string>(attributes, "FrameMissingRows", Tango::DEV_STRING,
                         "rows that are not whole, and all 0, from 0: 7,20-31",
                         [](const Frame& frame) {
                             return frame.facts().missingRowsKnown
                                        ? rangesText(frame.facts().missingRows)
                                        : std::string("unknown");
                         });
    addFact<std::string>(attributes, "FrameHeader", Tango::DEV_STRING,
                         "all that is known of it, by the words of FITS headers: a JSON object",
                         [](const Frame& frame) { return headerJson(makeHeader(frame)); });
}

void addShape(Attributes* attributes)
{
    addFact<Tango::DevLong>(attributes, "FrameColumns", Tango::DEV_LONG, "its width in pixels",
                            [](const Frame& frame) { return Tango::DevLong{frame.columns()}; });
    addFact<Tango::DevLong>(attributes, "FrameRows", Tango::DEV_LONG, "its height in pixels",
                            [](const Frame& frame) { return Tango::DevLong{frame.rows()}; });
    addFact<Tango::DevLong>(attributes, "FrameBits", Tango::DEV_LONG, "of a pixel: 8, 16 or 32",
                            [](const Frame& frame) { return Tango::DevLong{frame.bits()}; });
    About about;
    about.help = "temperature of the sensor when it came";
    about.unit = "C";
    about.format = "%.1f";
    add(attributes, "FrameTemperature", Tango::DEV_DOUBLE, about,
        [](const Frame& frame, Tango::Attribute& attribute) {
            const auto& temperature = frame.facts().sensorTemperature;
            if (!temperature) return giveNothing(attribute);
            give(attribute, Tango::DevDouble{*temperature});
        });
}

void addTimes(Attributes* attributes)
{
    const auto addTime = [attributes](const char* name, const char* help,
                                      double (*read)(const Frame&)) {
        addFact<double>(attributes, name, Tango::DEV_DOUBLE, help, read, "s", "%.6f");
    };
    addTime("FrameExposure", "exposure time", [](const Frame& frame) {
        return secondsOf(std::chrono::nanoseconds(frame.facts().exposure));
    });
    addTime("FrameBegin", "begin of the exposure, UTC since 1970",
            [](const Frame& frame) { return secondsOf(frame.times().begin); });
    addTime("FrameMiddle", "middle of the exposure, UTC since 1970",
            [](const Frame& frame) { return secondsOf(frame.times().middle); });
    addTime("FrameEnd", "end of the exposure, UTC since 1970",
            [](const Frame& frame) { return secondsOf(frame.times().end); });
    addTime("FrameUncertainty", "the true begin is within so much of the begin",
            [](const Frame& frame) { return secondsOf(frame.times().uncertainty); });
    addFact<std::string>(attributes, "FrameTimesFrom", Tango::DEV_STRING,
                         "how these were found: commanded, interval, triggered, bounded",
                         [](const Frame& frame) { return std::string(nameOf(frame.times().how)); });
    addFact<Tango::DevBoolean>(
        attributes, "FrameClockSynchronised", Tango::DEV_BOOLEAN,
        "whether the clock of the server's host was",
        [](const Frame& frame) -> Tango::DevBoolean { return frame.times().clock.synchronised; });
}

// ---- Pixels ---------------------------------------------------------------------------------

template <class From, class To>
void copyPixels(const Frame& frame, To* to)
{
    const PixelView<From> pixels = frame.pixels<From>();
    std::copy(pixels.begin(), pixels.end(), to);
}

// Pixels are widened where the attribute has more bits.
template <class Pixel>
void givePixels(const Frame& frame, Tango::Attribute& attribute)
{
    auto* const pixels =
        new Pixel[static_cast<size_t>(frame.rows()) * static_cast<size_t>(frame.columns())];
    if (frame.bits() == 8) copyPixels<uint8_t>(frame, pixels);
    if (frame.bits() == 16) copyPixels<uint16_t>(frame, pixels);
    if (frame.bits() == 32) copyPixels<uint32_t>(frame, pixels);
    attribute.set_value(pixels, frame.columns(), frame.rows(), true);
}

// The quality says that something is missing, to those who want such images at all.
template <class Base, class... Arguments>
void addPixels(Attributes* attributes, const std::string& name, long type, const std::string& help,
               void (*give)(VxCamera&, const Frame&, Tango::Attribute&), Arguments... arguments)
{
    const AttributeReader reader = [give](VxCamera& device, Tango::Attribute& attribute) {
        if (!device.frame()) return giveNothing(attribute);
        device.requireDeliverable(*device.frame());
        give(device, *device.frame(), attribute);
        if (!device.frame()->complete()) attribute.set_quality(Tango::ATTR_ALARM);
    };
    auto* const attribute =
        new CalledAttribute<Base>(reader, nullptr, name.c_str(), type, arguments...);
    About about;
    about.help = help;
    describe(*attribute, about);
    attributes->push_back(attribute);
}

void give16(VxCamera&, const Frame& frame, Tango::Attribute& attribute)
{
    if (frame.bits() == 32) {
        throw Error(ErrorKind::Usage, "the frame has 32 bits a pixel: image32 and imageEncoded "
                                      "have room for them");
    }
    givePixels<Tango::DevUShort>(frame, attribute);
}

void give32(VxCamera&, const Frame& frame, Tango::Attribute& attribute)
{
    givePixels<Tango::DevULong>(frame, attribute);
}

void giveEncoded(VxCamera& device, const Frame& frame, Tango::Attribute& attribute)
{
    attribute.set_value(encoded(frame, device.arrayVersion()).release(), 1, 0, true);
}

} // namespace

std::unique_ptr<Tango::DevEncoded> encoded(const Frame& frame, int arrayVersion)
{
    const ArrayHeader header = arrayHeader(frame, arrayVersion);
    const auto* const pixels = static_cast<const uint8_t*>(frame.data());
    auto result = std::make_unique<Tango::DevEncoded>();
    result->encoded_format = CORBA::string_dup(kArrayFormat);
    result->encoded_data.length(static_cast<CORBA::ULong>(header.size() + frame.bytes()));
    CORBA::Octet* const bytes = result->encoded_data.get_buffer();
    std::copy(header.begin(), header.end(), bytes);
    std::copy(pixels, pixels + frame.bytes(), bytes + header.size());
    return result;
}

void addFrameAttributes(Attributes* attributes)
{
    addTruth(attributes);
    addShape(attributes);
    addTimes(attributes);
    addPixels<Tango::ImageAttr>(attributes, "image", Tango::DEV_USHORT,
                                "the latest frame, of up to 16 bits", give16, kMostColumns,
                                kMostRows);
    addPixels<Tango::ImageAttr>(attributes, "image32", Tango::DEV_ULONG,
                                "the latest frame, of any bits", give32, kMostColumns, kMostRows);
    addPixels<Tango::Attr>(attributes, "imageEncoded", Tango::DEV_ENCODED,
                           "the latest frame as it is, behind a header of 64 bytes", giveEncoded);
}

} // namespace vxcam
