// Settings that are one message.
#include "tcSimCamera.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

constexpr const char* gsAccepted = "";

uint16_t Tenths(double celsius)
{
    double tenths = std::clamp(std::round(celsius * 10.0), -32768.0, 32767.0);
    return static_cast<uint16_t>(static_cast<int16_t>(tenths));
}

tsSimRefusal Above(uint32_t value, uint32_t highest, const char* what)
{
    if (value <= highest) return gsAccepted;
    return std::string(what) + " " + std::to_string(value) + " is above " + std::to_string(highest);
}

} // namespace

tcSimCamera::tcSimCamera(const tsSimIdentity& identity)
    : mtIdentity(identity), mtCooler(identity.ambient)
{
    mtTunables.ambient = identity.ambient;
    Identify();
}

void tcSimCamera::Tune(const tsSimTunables& tunables)
{
    if (tunables.driftRows != mtTunables.driftRows ||
        tunables.driftColumns != mtTunables.driftColumns) {
        mtField = FieldAt(mnNow);
    }
    mtTunables = tunables;
    mtCooler.SetAmbient(tunables.ambient, mnNow);
}

tcSimCamera::tsField tcSimCamera::FieldAt(double time) const
{
    return {mtField.rows + mtTunables.driftRows * (time - mtField.time),
            mtField.columns + mtTunables.driftColumns * (time - mtField.time), time};
}

void tcSimCamera::SetTime(double now)
{
    mnNow = std::max(mnNow, now);
    mtReadout.Step(mnNow);
}

void tcSimCamera::PowerUp(const tsSimIdentity& identity)
{
    const uint32_t readouts = mnReadouts;
    const double now = mnNow;
    *this = tcSimCamera(identity);
    mnReadouts = readouts;
    SetTime(now);
}

void tcSimCamera::Reset()
{
    mtReadout.Abort();
    mtReadout.SetAutoReArm(true);
    mtReadout.SetTrigger(false, mnNow);
    mtSettings = tsSimSettings();
    mtCooler.SetCooling(false, mnNow);
    mtCooler.SetFan(true, mnNow);
    mtCooler.SetTarget(mtCooler.Ambient(), mnNow);
    Identify();
}

tsHeartBeatData tcSimCamera::HeartBeat() const
{
    return {0, Tenths(mtCooler.BoardTemperature(mnNow)), Tenths(Temperature())};
}

tsSimRefusal tcSimCamera::SetExposure(const tsWordMsg& message)
{
    tsSimRefusal refusal = Above(message.Value, gnSimLongestExposure, "exposure");
    if (refusal.empty()) mtSettings.exposure = message.Value;
    return refusal;
}

tsSimRefusal tcSimCamera::SetShutterParams(const tsShutterParamsMsg& message)
{
    mtSettings.shutter = message;
    return gsAccepted;
}

tsSimRefusal tcSimCamera::SetShutterOverride(const tsShutterOverrideMsg& message)
{
    mtSettings.shutterOverride = message;
    return gsAccepted;
}

tsSimRefusal tcSimCamera::SetCooling(const tsWordMsg& message)
{
    mtSettings.cooling = message.Value;
    mtCooler.SetCooling(message.Value != 0, mnNow);
    return gsAccepted;
}

tsSimRefusal tcSimCamera::SetTargetTemp(const tsTargetTempMsg& message)
{
    if (message.TenthDegrees < gnSimColdestTarget || message.TenthDegrees > gnSimWarmestTarget) {
        return "target temperature out of range";
    }
    mtCooler.SetTarget(message.TenthDegrees / 10.0, mnNow);
    return gsAccepted;
}

tsTargetTempMsg tcSimCamera::GetTargetTemp() const
{
    return {static_cast<int32_t>(std::lround(mtCooler.Target() * 10.0))};
}

tsSimRefusal tcSimCamera::EnableFan(const tsWordMsg& message)
{
    mtSettings.fan = message.Value;
    mtCooler.SetFan(message.Value != 0, mnNow);
    return gsAccepted;
}

tsSimRefusal tcSimCamera::SetPID(const tsSetPIDCmd& message)
{
    if (!std::isfinite(message.P) || !std::isfinite(message.I) || !std::isfinite(message.D)) {
        return "PID value is not a number";
    }
    mtSettings.pid = message;
    return gsAccepted;
}

tsSimRefusal tcSimCamera::SetOffset(const tsOffsetMsg& message)
{
    mtSettings.offset = message;
    return gsAccepted;
}

tsSimRefusal tcSimCamera::WriteDAC(const tsWriteDACMsg& message)
{
    mtSettings.converters[message.Channel] = message;
    return gsAccepted;
}

tsSimRefusal tcSimCamera::WriteRegister(const tsRegisterMsg& message)
{
    const bool known = mtSettings.registers.count(message.Address) != 0;
    if (!known && mtSettings.registers.size() >= gnSimRegisters) return "no room for the register";
    mtSettings.registers[message.Address] = message.Value;
    return gsAccepted;
}

tsWordMsg tcSimCamera::ReadRegister(const tsRegisterMsg& message) const
{
    auto found = mtSettings.registers.find(message.Address);
    return {found == mtSettings.registers.end() ? 0 : found->second};
}

tsSimRefusal tcSimCamera::ClearSensor(const tsWordMsg&)
{
    return mtReadout.Running() ? "the sensor is being read" : gsAccepted;
}

tsSimRefusal tcSimCamera::SetTrigger(const tsWordMsg& message)
{
    mtSettings.trigger = message.Value;
    mtReadout.SetTrigger(message.Value != 0, mnNow);
    return gsAccepted;
}

tsSimRefusal tcSimCamera::SetTriggerMode(const tsTriggerModeMsg& message)
{
    tsSimRefusal refusal = Above(message.Mode, eExtTrigExposure, "trigger mode");
    if (refusal.empty()) mtSettings.triggerMode = message;
    return refusal;
}

tsSimRefusal tcSimCamera::SetAutoReArm(const tsWordMsg& message)
{
    mtSettings.autoReArm = message.Value;
    mtReadout.SetAutoReArm(message.Value != 0);
    return gsAccepted;
}

tsSimRefusal tcSimCamera::SetGPIO(const tsGPIOMsg& message)
{
    tsSimRefusal refusal = Above(message.Pin, gnSimPins - 1, "pin");
    if (refusal.empty()) refusal = Above(message.State, ePinHigh, "pin state");
    if (!refusal.empty()) return refusal;
    const uint32_t bit = uint32_t{1} << message.Pin;
    mtSettings.pins = message.State == ePinHigh ? mtSettings.pins | bit : mtSettings.pins & ~bit;
    return gsAccepted;
}

tsSimRefusal tcSimCamera::SetGain(const tsWordMsg& message)
{
    tsSimRefusal refusal = Above(message.Value, gnSimHighestGain, "gain");
    if (refusal.empty()) mtSettings.gain = message.Value;
    return refusal;
}

tsGainConfigMsg tcSimCamera::GetGainConfig() const
{
    tsGainConfigMsg message{};
    message.First = static_cast<int32_t>(mtSettings.gain);
    message.Second = 1.0f / static_cast<float>(1 + mtSettings.gain);
    message.Third = gnSimHighestGain;
    return message;
}

tsSimRefusal tcSimCamera::SetFilter(const tsFilterMsg& message)
{
    mtSettings.filter = message;
    return gsAccepted;
}

tsSimRefusal tcSimCamera::SetShutterMode(const tsWordMsg& message)
{
    tsSimRefusal refusal = Above(message.Value, eCISShutterGlobal, "shutter mode");
    if (refusal.empty()) mtSettings.shutterMode = message.Value;
    return refusal;
}

tsSimRefusal tcSimCamera::SelectChannel(const tsWordMsg& message)
{
    tsSimRefusal refusal = Above(message.Value, eCISChannelBoth, "channel");
    if (refusal.empty()) mtSettings.channel = message.Value;
    return refusal;
}

tsSimRefusal tcSimCamera::Calibrate(const tsWordMsg& message)
{
    mtSettings.calibrationDone = message.Value != 0 ? mnNow + gnSimCalibrationTime : -1;
    return gsAccepted;
}

tsWordMsg tcSimCamera::GetCalibrationState() const
{
    if (mtSettings.calibrationDone < 0) return {eSimUncalibrated};
    return {static_cast<uint32_t>(mnNow < mtSettings.calibrationDone ? eSimCalibrating
                                                                     : eSimCalibrated)};
}

tsSimRefusal tcSimCamera::SetRecording(const tsRecordParams& message)
{
    mtSettings.recording = message;
    return gsAccepted;
}

tsSimRefusal tcSimCamera::SetTestPattern(const tsTestPatternMsg& message)
{
    tsSimRefusal refusal = Above(message.Mode, gnSimPatterns, "test pattern");
    if (refusal.empty()) mtSettings.testPattern = message;
    return refusal;
}

tsSimRefusal tcSimCamera::SetImageInterval(const tsWordMsg& message)
{
    tsSimRefusal refusal = Above(message.Value, gnSimLongestExposure, "image interval");
    if (refusal.empty()) mtSettings.interval = message.Value;
    return refusal;
}

tsImageIntervalsMsg tcSimCamera::GetImageIntervals() const
{
    auto ms = [](double seconds) { return static_cast<uint32_t>(std::lround(seconds * 1000.0)); };
    return {{mtSettings.interval, ms(mtReadout.LastInterval()), ms(mtReadout.ShortestInterval()),
             ms(mtReadout.LongestInterval())}};
}

tsSimRefusal tcSimCamera::SetMirroring(const tsMirroringMsg& message)
{
    mtSettings.mirroring = message;
    return gsAccepted;
}

tsSimRefusal tcSimCamera::SetShearing(const tsShearingMsg& message)
{
    mtSettings.shearing = message;
    return gsAccepted;
}

tsSimRefusal tcSimCamera::SetNetworkConfig(const tsNetworkConfigMsg& message)
{
    mtSettings.network = message;
    return gsAccepted;
}

tsNoiseMsg tcSimCamera::GetReadoutNoise() const
{
    const double gain = 1.0 + mtSettings.gain;
    const double noise = mtTunables.readNoise;
    return {static_cast<float>(noise), static_cast<float>(noise * gain)};
}
