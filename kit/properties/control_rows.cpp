// Cooling and temperatures, trigger, pins, gain, filters and CIS sensors.
#include "properties/rows.h"
#include "properties/target_temperature.h"

namespace vxcam {

namespace {

constexpr double kColdest = -273, kWarmest = 273, kTenth = 0.1; // degrees Celsius
constexpr uint32_t kLastPin = 31, kLastConverter = 255;
constexpr double kMostByte = 255;

// What the engineering command knows, see vxcamiface.h.
constexpr int kWriteConverter = 102, kSetPid = 105, kGetPid = 106, kSetFilter = 107;

// ---- Cooling ------------------------------------------------------------------------------------

int writeTarget(Access& access, uint32_t, const FieldValues& values)
{
    return setTargetTemperature(access.handle(), values.numbers[0]);
}

int readTarget(Access& access, uint32_t, FieldValues* values)
{
    double degrees = 0;
    const int result = getTargetTemperature(access.handle(), &degrees);
    if (result == eVXOk) values->numbers.push_back(degrees);
    return result;
}

// Without a heartbeat there is none.
template <auto Place>
int readTemperature(Access& access, uint32_t, FieldValues* values)
{
    const std::optional<Temperatures> known = access.temperatures();
    if (known) values->numbers.push_back((*known).*Place);
    return eVXOk;
}

int readPid(Access& access, uint32_t, FieldValues* values)
{
    tsSetPIDCmd pid{};
    const int result = VXEngineeringCommand(access.handle(), kGetPid, &pid);
    if (result == eVXOk) values->numbers = {pid.P, pid.I, pid.D};
    return result;
}

int writePid(Access& access, uint32_t, const FieldValues& values)
{
    const auto& numbers = values.numbers;
    tsSetPIDCmd pid{static_cast<float>(numbers[0]), static_cast<float>(numbers[1]),
                    static_cast<float>(numbers[2])};
    return VXEngineeringCommand(access.handle(), kSetPid, &pid);
}

std::vector<Property> coolingRows()
{
    const Field degrees = real("degrees", kColdest, kWarmest, "C", kTenth);
    return {
        Row("cooling", "whether the sensor is cooled", {onOff("cooling")})
            .reads(readBy<VXGetCooling>)
            .writes(writeBy<VXSetCooling>)
            .indi("CCD_COOLER")
            .alpaca("cooleron"),

        Row("target-temp", "temperature to cool the sensor to, in steps of 0.1", {degrees})
            .reads(readTarget)
            .writes(writeTarget)
            .indi("CCD_TEMPERATURE")
            .fits("SET-TEMP")
            .alpaca("setccdtemperature"),

        Row("ccd-temp", "temperature of the sensor", {degrees})
            .reads(readTemperature<&Temperatures::sensor>)
            .is(Nature::State)
            .costs(Cost::None)
            .indi("CCD_TEMPERATURE")
            .fits("CCD-TEMP")
            .alpaca("ccdtemperature"),

        Row("board-temp", "temperature of the board", {degrees})
            .reads(readTemperature<&Temperatures::board>)
            .is(Nature::State)
            .costs(Cost::None),

        Row("fan", "whether the fan runs", {onOff("fan")}).writes(writeBy<VXEnableFan>),

        Row("pid", "parameters of the cooler's controller", {real("p"), real("i"), real("d")})
            .reads(readPid)
            .writes(writePid),
    };
}

// ---- Trigger and pins ---------------------------------------------------------------------------

int readPins(Access& access, uint32_t, FieldValues* values)
{
    const int pins = VXGetGPIO(access.handle());
    if (pins == eVXTimeout) return pins;
    values->numbers.push_back(static_cast<uint32_t>(pins));
    return eVXOk;
}

int readPin(Access& access, uint32_t pin, FieldValues* values)
{
    const int pins = VXGetGPIO(access.handle());
    if (pins == eVXTimeout) return pins;
    values->numbers.push_back((static_cast<uint32_t>(pins) >> pin) & 1);
    return eVXOk;
}

int writePin(Access& access, uint32_t pin, const FieldValues& values)
{
    return VXSetGPIO(access.handle(), static_cast<int>(pin),
                     values.numbers[0] != 0 ? ePinHigh : ePinLow);
}

Field triggerMode()
{
    return choice("mode", {{"off", eExtTrigOff},
                           {"start", eExtTrigStart},
                           {"frame", eExtTrigFrame},
                           {"exposure", eExtTrigExposure}});
}

std::vector<Property> triggerRows()
{
    return {
        Row("trigger", "state of the software trigger; other than 0 is active", {whole("state")})
            .reads(readBy<VXGetTrigger>)
            .writes(writeBy<VXSetTrigger>)
            .is(Nature::Action),

        Row("trigger-mode", "what an external trigger does, and two parameters",
            {triggerMode(), orElse(whole("first"), 0), orElse(whole("second"), 0)})
            .reads(readBy<VXGetTriggerMode>)
            .writes(writeBy<VXSetTriggerMode>)
            .tangoAlias("acq_trigger_mode"),

        Row("auto-rearm", "whether the trigger is armed again by itself", {onOff("on")})
            .reads(readBy<VXGetAutoTriggerReArm>)
            .writes(writeBy<VXSetAutoTriggerReArm>),

        Row("gpio", "all pins, a bit each", {hex("pins")}).reads(readPins).is(Nature::State),

        Row("gpio", "one pin; setting drives it",
            {choice("state", {{"low", ePinLow}, {"high", ePinHigh}})})
            .keyed("PIN", kLastPin)
            .reads(readPin)
            .writes(writePin),
    };
}

// ---- Signal -------------------------------------------------------------------------------------

int writeFilter(Access& access, uint32_t, const FieldValues& values)
{
    tsSetFilterCmd filter{static_cast<unsigned char>(values.numbers[0]),
                          static_cast<unsigned char>(values.numbers[1])};
    return VXEngineeringCommand(access.handle(), kSetFilter, &filter);
}

int writeConverter(Access& access, uint32_t channel, const FieldValues& values)
{
    uint32_t data[3] = {channel, static_cast<uint32_t>(values.numbers[0]),
                        static_cast<uint32_t>(values.numbers[1])};
    return VXEngineeringCommand(access.handle(), kWriteConverter, data);
}

std::vector<Property> signalRows()
{
    return {
        Row("gain", "gain of the readout", {number("gain", 0, kMostInt)})
            .reads(readFirst<VXGetGainConfig, 1>)
            .writes(writeBy<VXSetGain>)
            .indi("CCD_GAIN")
            .fits("GAIN")
            .alpaca("gain"),

        Row("gain-config", "gain, and two more figures of the gain's configuration",
            {whole("gain"), real("second"), whole("third")})
            .reads(readBy<VXGetGainConfig>)
            .is(Nature::Derived),

        Row("filter", "two image filters", {onOff("first"), onOff("second")}).writes(writeFilter),

        Row("dac", "value of a converter, and a flag",
            {number("value", 0, kMost16), orElse(number("flag", 0, kMostByte), 0)})
            .keyed("CHANNEL", kLastConverter)
            .writes(writeConverter),
    };
}

// ---- CIS sensors --------------------------------------------------------------------------------

std::vector<Property> cisRows()
{
    return {
        Row("cis-shutter-mode", "shutter of a CIS sensor",
            {choice("mode", {{"rolling", eCISShutterRolling}, {"global", eCISShutterGlobal}})})
            .writes(writeBy<VXCISSetShutterMode>),

        Row("cis-channel", "gain channel that is read of a CIS sensor",
            {choice("channel", {{"high-gain", eCISChannelHighGain},
                                {"low-gain", eCISChannelLowGain},
                                {"both", eCISChannelBoth}})})
            .writes(writeBy<VXCISSelectChannel>),

        Row("cis-calibrate", "calibration of a CIS sensor: 1 loads, 2 clears it", {whole("action")})
            .writes(writeBy<VXCISCalibrate>)
            .is(Nature::Action),

        Row("cis-calibration-state", "how far that is", {whole("state")})
            .reads(readBy<VXCISCalibrationState>)
            .is(Nature::State),
    };
}

} // namespace

std::vector<Property> controlRows()
{
    return joined({grouped(Group::Cooling, coolingRows()), grouped(Group::Trigger, triggerRows()),
                   grouped(Group::Signal, signalRows()), grouped(Group::Cis, cisRows())});
}

} // namespace vxcam
