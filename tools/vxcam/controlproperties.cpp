// Cooling and temperatures, trigger, pins, gain, filters and CIS sensors.
#include "fields.h"
#include "targettemp.h"

#include <vector>

namespace {

constexpr double gnColdest = -273, gnWarmest = 273; // degrees Celsius
constexpr double gnTenths = 10.0;
constexpr std::chrono::milliseconds gnHeartBeatWait(1500);
constexpr uint32_t gnLastPin = 31, gnLastConverter = 255;
constexpr double gnMostByte = 255;

// What the engineering command knows, see vxcamiface.h.
constexpr int gnWriteConverter = 102, gnSetPid = 105, gnGetPid = 106, gnSetFilter = 107;

int WriteTarget(tcSession& session, uint32_t, const tsSetting& setting)
{
    return SetTargetTemperature(session.Handle(), setting.numbers[0]);
}

int ReadTarget(tcSession& session, uint32_t, tsSetting* setting)
{
    double degrees = 0;
    const int result = GetTargetTemperature(session.Handle(), &degrees);
    if (result == eVXOk) setting->numbers.push_back(degrees);
    return result;
}

// Temperatures come with heartbeats; without one there is none.
template <auto Get>
int ReadTemperature(tcSession& session, uint32_t, tsSetting* setting)
{
    if (!session.Temperature(std::chrono::steady_clock::now() + gnHeartBeatWait)) return eVXOk;
    const int result = ReadInto(Get, session.Handle(), setting);
    for (double& degrees : setting->numbers) {
        degrees /= gnTenths;
    }
    return result;
}

int ReadPins(tcSession& session, uint32_t, tsSetting* setting)
{
    const int pins = VXGetGPIO(session.Handle());
    if (pins == eVXTimeout) return pins;
    setting->numbers.push_back(static_cast<uint32_t>(pins));
    return eVXOk;
}

int ReadPin(tcSession& session, uint32_t pin, tsSetting* setting)
{
    const int pins = VXGetGPIO(session.Handle());
    if (pins == eVXTimeout) return pins;
    setting->numbers.push_back((static_cast<uint32_t>(pins) >> pin) & 1);
    return eVXOk;
}

int WritePin(tcSession& session, uint32_t pin, const tsSetting& setting)
{
    return VXSetGPIO(session.Handle(), static_cast<int>(pin),
                     setting.numbers[0] != 0 ? ePinHigh : ePinLow);
}

int ReadGain(tcSession& session, uint32_t, tsSetting* setting)
{
    const int result = ReadInto(VXGetGainConfig, session.Handle(), setting);
    if (result == eVXOk) setting->numbers.resize(1);
    return result;
}

int ReadPid(tcSession& session, uint32_t, tsSetting* setting)
{
    tsSetPIDCmd pid{};
    const int result = VXEngineeringCommand(session.Handle(), gnGetPid, &pid);
    if (result == eVXOk) setting->numbers = {pid.P, pid.I, pid.D};
    return result;
}

int WritePid(tcSession& session, uint32_t, const tsSetting& setting)
{
    const auto& numbers = setting.numbers;
    tsSetPIDCmd pid{static_cast<float>(numbers[0]), static_cast<float>(numbers[1]),
                    static_cast<float>(numbers[2])};
    return VXEngineeringCommand(session.Handle(), gnSetPid, &pid);
}

int WriteFilter(tcSession& session, uint32_t, const tsSetting& setting)
{
    tsSetFilterCmd filter{static_cast<unsigned char>(setting.numbers[0]),
                          static_cast<unsigned char>(setting.numbers[1])};
    return VXEngineeringCommand(session.Handle(), gnSetFilter, &filter);
}

int WriteConverter(tcSession& session, uint32_t channel, const tsSetting& setting)
{
    uint32_t data[3] = {channel, static_cast<uint32_t>(setting.numbers[0]),
                        static_cast<uint32_t>(setting.numbers[1])};
    return VXEngineeringCommand(session.Handle(), gnWriteConverter, data);
}

tsShape ModeShape()
{
    return {{Choice("mode", {{"off", eExtTrigOff},
                             {"start", eExtTrigStart},
                             {"frame", eExtTrigFrame},
                             {"exposure", eExtTrigExposure}}),
             Or(Whole("first"), 0), Or(Whole("second"), 0)}};
}

tsProperty Pin()
{
    tsProperty property{"gpio",
                        "one pin; setting drives it",
                        {{Choice("state", {{"low", ePinLow}, {"high", ePinHigh}})}},
                        ReadPin,
                        WritePin};
    property.key = "PIN";
    property.mostKey = gnLastPin;
    return property;
}

tsProperty Converter()
{
    tsProperty property{"dac",
                        "value of a converter, and a flag",
                        {{Number("value", 0, gnMost16), Or(Number("flag", 0, gnMostByte), 0)}},
                        nullptr,
                        WriteConverter};
    property.key = "CHANNEL";
    property.mostKey = gnLastConverter;
    return property;
}

std::vector<tsProperty> TemperatureProperties()
{
    const tsShape degrees{{Real("degrees", gnColdest, gnWarmest, "C")}};
    return {
        {"cooling",
         "whether the sensor is cooled",
         {{Switch("cooling")}},
         Read<VXGetCooling>,
         Write<VXSetCooling>},
        {"target-temp", "temperature to cool the sensor to, in steps of 0.1", degrees, ReadTarget,
         WriteTarget},
        {"ccd-temp", "temperature of the sensor", degrees, ReadTemperature<VXGetCCDTemp>, nullptr},
        {"board-temp", "temperature of the board", degrees, ReadTemperature<VXGetBoardTemp>,
         nullptr},
        {"fan", "whether the fan runs", {{Switch("fan")}}, nullptr, Write<VXEnableFan>},
        {"pid",
         "parameters of the cooler's controller",
         {{Real("p"), Real("i"), Real("d")}},
         ReadPid,
         WritePid},
    };
}

} // namespace

std::vector<tsProperty> ControlProperties()
{
    std::vector<tsProperty> properties = TemperatureProperties();
    const std::vector<tsProperty> rest{
        {"trigger",
         "state of the software trigger; other than 0 is active",
         {{Whole("state")}},
         Read<VXGetTrigger>,
         Write<VXSetTrigger>},
        {"trigger-mode", "what an external trigger does, and two parameters", ModeShape(),
         Read<VXGetTriggerMode>, Write<VXSetTriggerMode>},
        {"auto-rearm",
         "whether the trigger is armed again by itself",
         {{Switch("on")}},
         Read<VXGetAutoTriggerReArm>,
         Write<VXSetAutoTriggerReArm>},
        {"gpio", "all pins, a bit each", {{Hex("pins")}}, ReadPins, nullptr},
        Pin(),
        {"gain", "gain of the readout", {{Whole("gain")}}, ReadGain, Write<VXSetGain>},
        {"gain-config",
         "gain, and two more figures of the gain's configuration",
         {{Whole("gain"), Real("second"), Whole("third")}},
         Read<VXGetGainConfig>,
         nullptr},
        {"filter",
         "two image filters",
         {{Switch("first"), Switch("second")}},
         nullptr,
         WriteFilter},
        Converter(),
        {"cis-shutter-mode",
         "shutter of a CIS sensor",
         {{Choice("mode", {{"rolling", eCISShutterRolling}, {"global", eCISShutterGlobal}})}},
         nullptr,
         Write<VXCISSetShutterMode>},
        {"cis-channel",
         "gain channel that is read of a CIS sensor",
         {{Choice("channel", {{"high-gain", eCISChannelHighGain},
                              {"low-gain", eCISChannelLowGain},
                              {"both", eCISChannelBoth}})}},
         nullptr,
         Write<VXCISSelectChannel>},
        {"cis-calibrate",
         "calibration of a CIS sensor: 1 loads, 2 clears it",
         {{Whole("action")}},
         nullptr,
         Write<VXCISCalibrate>},
        {"cis-calibration-state",
         "how far that is",
         {{Whole("state")}},
         Read<VXCISCalibrationState>,
         nullptr},
    };
    properties.insert(properties.end(), rest.begin(), rest.end());
    return properties;
}
