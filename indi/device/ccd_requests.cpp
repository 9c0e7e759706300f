// What clients set. It is checked as a whole before anything of it counts: elements that there are
// not, numbers that are none, and ranges.
#include "ccd_device.h"

#include "message_text.h"

#include <vxcamkit/error.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace vxcam {

namespace {

constexpr size_t kLongestText = 30000; // bytes

std::string quoted(const std::string& name)
{
    return "'" + name + "'";
}

template <class Elements>
void requireElements(const Elements& property, char* const* names, int count)
{
    for (int i = 0; i < count; ++i) {
        if (property.findWidgetByName(names[i]) != nullptr) continue;
        throw Error(ErrorKind::Usage,
                    std::string(property.getName()) + " has no element " + quoted(names[i]));
    }
}

// Milliseconds of the longest exposures included.
std::string digitsOf(double number)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.10g", number);
    return text;
}

void requireNumber(const INDI::WidgetView<INumber>& element, double value)
{
    const std::string name = quoted(element.getName());
    if (!std::isfinite(value)) throw Error(ErrorKind::Usage, name + ": that is no number");
    const double least = element.getMin(), most = element.getMax();
    if (least >= most || (value >= least && value <= most)) return;
    throw Error(ErrorKind::Usage, name + ": " + digitsOf(value) + " is not within " +
                                      digitsOf(least) + " and " + digitsOf(most));
}

// What nobody has set, such as the size of a pixel of 0, comes back from a saved configuration, and
// from clients that send all elements.
bool isNotKnownYet(const INDI::WidgetView<INumber>& element, double value)
{
    return value == 0 && element.getValue() == 0 && element.getMin() > 0;
}

// The driver's own folder is no place that a client knows.
void requirePlace(const Given& given, const char* folder, const char* name)
{
    const auto givenFolder = given.find(folder), givenName = given.find(name);
    if (givenFolder != given.end() && givenFolder->second.toText().rfind('/', 0) != 0) {
        throw Error(ErrorKind::Usage, quoted(folder) + ": write the whole path, from '/' on");
    }
    if (givenName == given.end()) return;
    const std::string text = givenName->second.toText();
    if (text.empty()) throw Error(ErrorKind::Usage, quoted(name) + ": a file needs a name");
    if (("/" + text).find("/../") != std::string::npos) {
        throw Error(ErrorKind::Usage, quoted(name) + ": files stay in the folder, without '..'");
    }
}

// As those who read XML see it: each character in its shortest form, none of them half a pair.
bool isUnicode(const std::string& text)
{
    const auto byteAt = [&](size_t i) {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
    };
    for (size_t i = 0; i < text.size();) {
        const unsigned first = byteAt(i++);
        const int more = first < 0x80 ? 0 : first < 0xE0 ? 1 : first < 0xF0 ? 2 : 3;
        unsigned code = more == 0 ? first : first & (0x3FU >> unsigned(more));
        for (int k = 0; k < more; ++k) {
            if ((byteAt(i) & 0xC0U) != 0x80) return false;
            code = code << 6U | (byteAt(i++) & 0x3FU);
        }
        static constexpr unsigned least[] = {0, 0x80, 0x800, 0x10000};
        const bool isHalf = code >= 0xD800 && code < 0xE000;
        if (code < least[more] || code > 0x10FFFF || isHalf || first > 0xF4) return false;
        if (first >= 0x80 && first < 0xC2) return false;
    }
    return true;
}

// What no XML may hold would end the connections of those clients that look; longer texts than that
// run over what libindi has for them.
void requireText(const char* name, const std::string& text)
{
    const auto isNone = [](unsigned char c) {
        return c < ' ' && c != '\t' && c != '\n' && c != '\r';
    };
    if (std::any_of(text.begin(), text.end(), isNone)) {
        throw Error(ErrorKind::Usage, quoted(name) + ": a text has no control characters");
    }
    if (!isUnicode(text)) throw Error(ErrorKind::Usage, quoted(name) + ": that is no UTF-8");
    if (text.size() <= kLongestText) return;
    throw Error(ErrorKind::Usage,
                quoted(name) + ": a text has " + std::to_string(kLongestText) + " bytes at most");
}

} // namespace

// An exposure that runs goes on, and is told to.
void CcdDevice::refuse(INDI::Property property, const std::string& why)
{
    const bool isOfExposure = property.isNameMatch("CCD_EXPOSURE");
    const bool goesOn = isOfExposure && runner_.isRunning() && !isStream_;
    property.setState(goesOn ? IPS_BUSY : IPS_ALERT);
    property.apply("%s", messageText(why).c_str());
}

// The frames of a stream are of one size and depth.
void CcdDevice::requireNoStream(const std::string& name) const
{
    const bool isShape = name == "CCD_FRAME" || name == "CCD_FRAME_RESET" ||
                         name == "CCD_BINNING" || name == "CCD_CAPTURE_FORMAT" ||
                         name == "READOUT_MODE";
    if (isShape && isStream_) throw Error(ErrorKind::Usage, "A stream runs; stop it first.");
}

bool CcdDevice::ISNewNumber(const char* device, const char* name, double values[], char* names[],
                            int count)
{
    if (device == nullptr || std::string(device) != getDeviceName()) return false;
    INDI::PropertyNumber property = getNumber(name);
    if (!property.isValid()) return false;
    try {
        requireElements(property, names, count);
        requireNoStream(name);
        Numbers numbers;
        Given given;
        for (const auto& element : property) {
            numbers[element.getName()] = element.getValue();
        }
        bool isUnknown = false, isNew = false;
        for (int i = 0; i < count; ++i) {
            const auto& element = *property.findWidgetByName(names[i]);
            isNew = isNew || values[i] != element.getValue();
            const bool isEmpty = isNotKnownYet(element, values[i]);
            isUnknown = isUnknown || isEmpty;
            if (!isEmpty) requireNumber(element, values[i]);
            numbers[names[i]] = values[i];
            given[names[i]] = Value(values[i]);
        }
        if (isUnknown && !isNew) {
            property.apply();
            return true;
        }
        if (TabProperty* const tabbed = tab_.find(name)) return setFromTab(*tabbed, given);
        if (numbersGiven(name, numbers)) return true;
    } catch (const Error& error) {
        refuse(property, error.what());
        return false;
    }
    return INDI::CCD::ISNewNumber(device, name, values, names, count);
}

// False for what the base class deals with.
bool CcdDevice::numbersGiven(const std::string& name, const Numbers& numbers)
{
    const auto number = [&](const char* element) { return numbers.at(element); };
    if (name == "CCD_EXPOSURE") {
        expose(number("CCD_EXPOSURE_VALUE"));
    } else if (name == "CCD_FRAME") {
        frameGiven(numbers);
    } else if (name == "CCD_BINNING") {
        binningGiven(numbers);
    } else if (name == "CCD_INFO") {
        infoGiven(numbers);
    } else if (name == "CCD_TEMPERATURE") {
        temperatureGiven(number("CCD_TEMPERATURE_VALUE"));
    } else if (name == "CCD_GAIN") {
        askFor(gainNP_, "gain", number("GAIN"),
               [this](const Value& told) { gainNP_[0].setValue(told.toDouble()); });
    } else if (name == "CCD_OFFSET") {
        askFor(offsetNP_, "offset", number("OFFSET"),
               [this](const Value& told) { offsetNP_[0].setValue(told[0].toDouble()); });
    } else if (name == "READOUT_FLAGS") {
        flagsNP_[0].setValue(std::floor(number("FLAGS")));
        flagsNP_.setState(IPS_OK);
        flagsNP_.apply();
    } else {
        return false;
    }
    return true;
}

bool CcdDevice::ISNewSwitch(const char* device, const char* name, ISState* states, char* names[],
                            int count)
{
    if (device == nullptr || std::string(device) != getDeviceName()) return false;
    INDI::PropertySwitch property = getSwitch(name);
    if (!property.isValid()) return false;
    try {
        requireElements(property, names, count);
        requireNoStream(name);
        Given given;
        for (int i = 0; i < count; ++i) {
            given[names[i]] = Value(states[i] == ISS_ON);
        }
        if (TabProperty* const tabbed = tab_.find(name)) return setFromTab(*tabbed, given);
        const bool isAnyOn =
            std::any_of(states, states + count, [](ISState state) { return state == ISS_ON; });
        if (!isAnyOn && property.getRule() != ISR_NOFMANY) {
            throw Error(ErrorKind::Usage, std::string(name) + ": no element is on");
        }
        if (switchesGiven(name, given)) return true;
    } catch (const Error& error) {
        refuse(property, error.what());
        return false;
    }
    return INDI::CCD::ISNewSwitch(device, name, states, names, count);
}

bool CcdDevice::switchesGiven(const std::string& name, const Given& given)
{
    const auto isOn = [&](const char* element) {
        const auto found = given.find(element);
        return found != given.end() && found->second.toBool();
    };
    if (name == "CONNECTION") {
        if (isOn("CONNECT") != isOn("DISCONNECT")) connectionAsked(isOn("CONNECT"));
    } else if (name == "CCD_COOLER") {
        if (isOn("COOLER_ON") == isOn("COOLER_OFF")) {
            throw Error(ErrorKind::Usage, "switch one of COOLER_ON and COOLER_OFF on");
        }
        coolerGiven(isOn("COOLER_ON"));
    } else if (name == "READOUT_MODE") {
        for (auto& element : modeSP_) {
            if (!isOn(element.getName())) continue;
            modeSP_.reset();
            element.setState(ISS_ON);
        }
        modeSP_.setState(IPS_OK);
        modeSP_.apply();
        if (session_.camera()) showBits();
    } else if (name == "CCD_FAST_TOGGLE" && FastExposureToggleS[INDI_DISABLED].s == ISS_ON &&
               isOn("INDI_DISABLED")) {
        FastExposureToggleSP.s = IPS_OK; // INDI's own would end an exposure
        IDSetSwitch(&FastExposureToggleSP, nullptr);
    } else {
        return false;
    }
    return true;
}

bool CcdDevice::ISNewText(const char* device, const char* name, char* texts[], char* names[],
                          int count)
{
    if (device == nullptr || std::string(device) != getDeviceName()) return false;
    INDI::PropertyText property = getText(name);
    if (!property.isValid()) return false;
    try {
        requireElements(property, names, count);
        Given given;
        for (int i = 0; i < count; ++i) {
            requireText(names[i], texts[i]);
            given[names[i]] = Value(texts[i]);
        }
        if (TabProperty* const tabbed = tab_.find(name)) return setFromTab(*tabbed, given);
        if (addressTP_.isNameMatch(name)) {
            addressGiven(given);
            return true;
        }
        if (name == std::string("UPLOAD_SETTINGS")) {
            requirePlace(given, "UPLOAD_DIR", "UPLOAD_PREFIX");
        }
        if (name == std::string("RECORD_FILE")) {
            requirePlace(given, "RECORD_FILE_DIR", "RECORD_FILE_NAME");
        }
    } catch (const Error& error) {
        refuse(property, error.what());
        return false;
    }
    const bool isTaken = INDI::CCD::ISNewText(device, name, texts, names, count);
    noteRecordFolder();
    return isTaken;
}

bool CcdDevice::setFromTab(TabProperty& property, const Given& given)
{
    const Wish wish = property.wishOf(given);
    if (wish.value) session_.camera()->checked(wish.name, *wish.value);
    property.indi().setState(IPS_BUSY);
    property.indi().apply();
    session_.ask(
        [wish](Camera& camera) {
            return wish.value ? camera.set(wish.name, *wish.value) : camera.get(wish.name);
        },
        [this, wish, &property](const Value& told) {
            property.show(wish.name, told);
            if (property.row().nature == Nature::Action) askStates();
        },
        [this, &property](const Error& error) { refuse(property.indi(), error.what()); });
    return true;
}

bool CcdDevice::ISSnoopDevice(XMLEle* root)
{
    const bool isKnown = INDI::CCD::ISSnoopDevice(root);
    if (runner_.isRunning()) publishCards();
    return isKnown;
}

} // namespace vxcam
