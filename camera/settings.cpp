// Getters and setters that are one message, in the catalogue's order.
#include "tcVXCamera.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>

namespace {

// Stores a result where the caller wants it, in the variable's whole width.
template <class Variable, class Value>
void Give(Variable* variable, Value value)
{
    if (variable != nullptr) *variable = static_cast<Variable>(value);
}

// The wire's 32 bits of a caller's number.
template <class Number>
uint32_t Word(Number number)
{
    return static_cast<uint32_t>(number);
}

} // namespace

void tcVXCamera::LogEntered(const char* operation)
{
    mLog.logDebug(4, "tcVXCamera::%s Entered", operation);
}

// Asks for one 32-bit word and hands it out at the width of the caller's variable.
template <class Variable>
int tcVXCamera::AskWord(const tsCommand<tsNoPayload>& command, Variable* variable)
{
    uint32_t word = 0;
    const int result = Ask(command, &word);
    if (result == eVXOk) Give(variable, word);
    return result;
}

// ---- Exposure and shutter ---------------------------------------------------------------------

int tcVXCamera::SetExposure(long ms)
{
    LogEntered("SetExposure");
    mnExposure = ms;
    Send(cmdSetExposure, {Word(ms)});
    return eVXOk;
}

int tcVXCamera::GetExposureTime(long* ms)
{
    LogEntered("GetExposureTime");
    return AskWord(cmdGetExposureTime, ms);
}

int tcVXCamera::SetExposureEx(long exposure)
{
    LogEntered("SetExposureEx");
    mnExposure = exposure;
    Send(cmdSetExposureEx, {Word(exposure)});
    return eVXOk;
}

int tcVXCamera::GetExposureTimeEx(long* exposure)
{
    LogEntered("GetExposureTimeEx");
    return AskWord(cmdGetExposureTimeEx, exposure);
}

int tcVXCamera::SetShutterParams(long first, long second, int third)
{
    LogEntered("SetShutterCloseDelay"); // Kept: names another operation
    Send(cmdSetShutterParams, {Word(first), Word(second), Word(third)});
    return eVXOk;
}

int tcVXCamera::GetShutterParams(long* first, long* second, int* third)
{
    LogEntered("GetShutterDelay"); // Kept: names another operation
    tsShutterParamsMsg answer{};
    const int result = Ask(cmdGetShutterParams, &answer);
    if (result == eVXOk) {
        Give(first, answer.First);
        Give(second, answer.Second);
        Give(third, answer.Third);
    }
    return result;
}

int tcVXCamera::GetShutterCloseDelay(long* delay)
{
    LogEntered("GetShutterCloseDelay");
    tsShutterParamsMsg answer{};
    const int result = Ask(cmdGetShutterParams, &answer);
    if (result == eVXOk) Give(delay, answer.First);
    return result;
}

int tcVXCamera::SetShutterOverride(int first, int second)
{
    LogEntered("SetShutterOverride");
    return Send(cmdSetShutterOverride, {Word(first), Word(second)});
}

// ---- Simple binning ---------------------------------------------------------------------------

// Kept: the fourth number does not travel.
int tcVXCamera::SetSimpleBinning(int first, int second, float third, float)
{
    LogEntered("SetSimpleBinning");
    return Send(cmdSetSimpleBinning, {first, second, third});
}

int tcVXCamera::GetSimpleBinning(int* first, int* second, float* third, float* fourth)
{
    LogEntered("GetSimpleBinning");
    tsFramed<tsSimpleBinningMsg> answer{};
    const int result = Ask(cmdGetSimpleBinning, &answer);
    if (result == eVXOk) {
        Give(first, answer.payload.First);
        Give(second, answer.payload.Second);
        Give(third, answer.payload.Third);
        Give(fourth, answer.payload.Fourth);
    }
    return result;
}

// ---- Cooling and temperatures -----------------------------------------------------------------

int tcVXCamera::SetCooling(int on)
{
    LogEntered("SetCooling");
    Send(cmdSetCooling, {Word(on)});
    return eVXOk;
}

int tcVXCamera::GetCoolParam(int* cooling)
{
    LogEntered("GetCoolParam");
    return AskWord(cmdGetCoolParam, cooling);
}

int tcVXCamera::SetCCDTargetTemp(float degrees)
{
    LogEntered("SetCCDTargetTemp");
    if (std::isnan(degrees)) return eVXArgument;
    const double tenths = std::clamp<double>(degrees * 10.0, INT_MIN, INT_MAX);
    return Send(cmdSetCCDTargetTemp, {static_cast<int32_t>(tenths)});
}

int tcVXCamera::GetCCDTargetTemp(float* degrees)
{
    LogEntered("GetCCDTargetTemp");
    float answer = 0;
    const int result = Ask(cmdGetCCDTargetTemp, &answer);
    if (result == eVXOk) Give(degrees, answer);
    return result;
}

int tcVXCamera::GetCCDTemp(short* temperature)
{
    Give(temperature, mnCCDTemp.load());
    return eVXOk;
}

int tcVXCamera::GetBoardTemp(short* temperature)
{
    Give(temperature, mnBoardTemp.load());
    return eVXOk;
}

int tcVXCamera::EnableFan(int on)
{
    LogEntered("SetCCDOffset"); // Kept: names another operation
    return Send(cmdEnableFan, {Word(on)});
}

int tcVXCamera::SetPID(float p, float i, float d)
{
    LogEntered("SetPID");
    return Send(cmdSetPID, {p, i, d});
}

int tcVXCamera::GetPID(tsSetPIDCmd* pid)
{
    LogEntered("GetPID");
    tsSetPIDCmd answer{};
    const int result = Ask(cmdGetPID, &answer);
    if (result == eVXOk) Give(pid, answer);
    return result;
}

// ---- Registers, converters and the camera itself ----------------------------------------------

int tcVXCamera::SetCCDOffset(unsigned short offset, bool flag)
{
    LogEntered("SetCCDOffset");
    return Ask(cmdSetCCDOffset, {offset, flag}, nullptr);
}

int tcVXCamera::WriteDAC(unsigned char channel, unsigned short value, bool flag)
{
    LogEntered("WriteDAC");
    Send(cmdWriteDAC, {value, channel, flag});
    return eVXOk;
}

int tcVXCamera::Write32Data(unsigned long address, unsigned long value)
{
    LogEntered("Write32Data");
    Send(cmdWrite32Data, {Word(address), Word(value)});
    return eVXOk;
}

int tcVXCamera::Read32Data(unsigned long address, unsigned long* value)
{
    LogEntered("Read32Data");
    uint32_t answer = 0;
    const int result = Ask(cmdRead32Data, {Word(address), 0}, &answer);
    if (result == eVXOk) Give(value, answer);
    return result;
}

int tcVXCamera::CameraReset()
{
    LogEntered("CameraReset");
    Send(cmdCameraReset);
    return eVXOk;
}

int tcVXCamera::ClearCCD(int first, int second)
{
    LogEntered("ClearCCD");
    if (first < 0 || second < 0) return eVXArgument;
    Send(cmdClearCCD, {Word(first)});
    return eVXOk;
}

// ---- Trigger, pins, gain, filter --------------------------------------------------------------

int tcVXCamera::SetTrigger(int trigger)
{
    LogEntered("SetTrigger");
    return Send(cmdSetTrigger, {Word(trigger)});
}

int tcVXCamera::GetTrigger(int* trigger)
{
    LogEntered("GetTrigger");
    return AskWord(cmdGetTrigger, trigger);
}

int tcVXCamera::SetTriggerMode(teExtTrigMode mode, int first, int second)
{
    LogEntered("SetTriggerMode");
    return Send(cmdSetTriggerMode, {Word(mode), Word(first), Word(second)});
}

int tcVXCamera::GetTriggerMode(teExtTrigMode* mode, int* first, int* second)
{
    LogEntered("GetTriggerMode");
    tsTriggerModeMsg answer{};
    const int result = Ask(cmdGetTriggerMode, &answer);
    if (result == eVXOk) {
        Give(mode, answer.Mode);
        Give(first, answer.First);
        Give(second, answer.Second);
    }
    return result;
}

int tcVXCamera::SetAutoTriggerReArm(int on)
{
    LogEntered("SetAutoTriggerReArm");
    return Send(cmdSetAutoTriggerReArm, {Word(on != 0)});
}

int tcVXCamera::GetAutoTriggerReArm(int* on)
{
    LogEntered("GetAutoTriggerReArm");
    return AskWord(cmdGetAutoTriggerReArm, on);
}

int tcVXCamera::SetGPIO(int pin, tePinState state)
{
    LogEntered("SetGPIO");
    return Send(cmdSetGPIO, {Word(pin), Word(state)});
}

int tcVXCamera::GetGPIO()
{
    LogEntered("GetGPIO");
    int pins = 0;
    return AskWord(cmdGetGPIO, &pins) == eVXOk ? pins : eVXTimeout;
}

int tcVXCamera::SetGain(int gain)
{
    LogEntered("SetGain");
    return Send(cmdSetGain, {Word(gain)});
}

int tcVXCamera::GetGainConfig(int* first, float* second, int* third)
{
    LogEntered("GetGainConfig");
    tsFramed<tsGainConfigMsg> answer{};
    const int result = Ask(cmdGetGainConfig, &answer);
    if (result == eVXOk) {
        Give(first, answer.payload.First);
        Give(second, answer.payload.Second);
        Give(third, answer.payload.Third);
    }
    return result;
}

int tcVXCamera::SetFilter(tsSetFilterCmd* filter)
{
    LogEntered("SetFilter");
    if (filter == nullptr) return eVXArgument;
    return Send(cmdSetFilter, {filter->First, filter->Second});
}

int tcVXCamera::GetFilter(tsSetFilterCmd* filter)
{
    LogEntered("GetFilter");
    tsSetFilterCmd answer{};
    const int result = Ask(cmdGetFilter, &answer);
    if (result == eVXOk) Give(filter, answer);
    return result;
}

// ---- CIS sensors ------------------------------------------------------------------------------

int tcVXCamera::CISSetShutterMode(teCISShutterMode mode)
{
    LogEntered("CISSetShutterMode");
    return Send(cmdCISSetShutterMode, {Word(mode)});
}

int tcVXCamera::CISSelectChannel(teCISChannelConfig channel)
{
    LogEntered("CISSelectChannel");
    return Send(cmdCISSelectChannel, {Word(channel)});
}

int tcVXCamera::CISCalibrate(int action)
{
    LogEntered("CISCalibrate");
    return Send(cmdCISCalibrate, {Word(action)});
}

int tcVXCamera::CISCalibrationState(int* state)
{
    LogEntered("CISCalibrationState");
    return AskWord(cmdCISCalibrationState, state);
}

// ---- Recording, test pattern, intervals, mirroring, shearing ----------------------------------

int tcVXCamera::SetRecording(tsRecordParams* params, int)
{
    LogEntered("SetRecording");
    if (params == nullptr) return eVXArgument;
    tsRecordParams terminated = *params;
    terminated.Text[sizeof terminated.Text - 1] = 0;
    return Send(cmdSetRecording, terminated);
}

int tcVXCamera::SetTestPattern(int mode, unsigned short* values, int count)
{
    LogEntered("SetTestPattern");
    if (count < 0 || count > gnTestPatternValues) return eVXFailed;
    if (mode < 0 || mode > 6) return eVXArgument;
    if (values == nullptr && count > 0) return eVXArgument;
    tsTestPatternMsg pattern{};
    pattern.Mode = Word(mode);
    for (int i = 0; i < count; ++i) {
        pattern.Values[i] = values[i];
    }
    return Send(cmdSetTestPattern, pattern);
}

int tcVXCamera::SetImageInterval(unsigned long interval)
{
    LogEntered("SetImageInterval");
    return Send(cmdSetImageInterval, {Word(interval)});
}

int tcVXCamera::GetImageIntervals(unsigned long* first, unsigned long* second, unsigned long* third,
                                  unsigned long* fourth)
{
    LogEntered("GetImageIntervals");
    tsImageIntervalsMsg answer{};
    const int result = Ask(cmdGetImageIntervals, &answer);
    if (result == eVXOk) {
        Give(first, answer.Intervals[0]);
        Give(second, answer.Intervals[1]);
        Give(third, answer.Intervals[2]);
        Give(fourth, answer.Intervals[3]);
    }
    return result;
}

int tcVXCamera::SetCCDImageMirroring(unsigned int horizontal, unsigned int vertical)
{
    LogEntered("SetCCDImageMirroring");
    return Send(cmdSetCCDImageMirroring, {horizontal, vertical});
}

int tcVXCamera::GetCCDImageMirroring(unsigned int* horizontal, unsigned int* vertical)
{
    LogEntered("GetCCDImageMirroring");
    tsMirroringMsg answer{};
    const int result = Ask(cmdGetCCDImageMirroring, &answer.Horizontal, &answer.Vertical);
    if (result == eVXOk) {
        Give(horizontal, answer.Horizontal);
        Give(vertical, answer.Vertical);
    }
    return result;
}

int tcVXCamera::SetShearingParams(int first, unsigned int second, unsigned int third,
                                  unsigned int fourth)
{
    LogEntered("SetShearingParams");
    return Send(cmdSetShearingParams, {{Word(first), second, third, fourth}});
}

// ---- Hardware, network, noise -----------------------------------------------------------------

int tcVXCamera::SetCameraHardwareInfo(TVXCameraHardware* info, int* size)
{
    LogEntered("SetCameraHardwareInfo");
    if (info == nullptr || size == nullptr || *size < 0) return eVXArgument;
    *size = std::min(*size, static_cast<int>(sizeof *info));
    SendRow(cmdSetCameraHardwareInfo.Row(), info, *size);
    return eVXOk;
}

int tcVXCamera::GetCameraHardwareInfo(TVXCameraHardware* info, int* size)
{
    LogEntered("GetCameraHardwareInfo");
    int whole = sizeof *info;
    if (size == nullptr) size = &whole;
    if (*size <= 0) {
        *size = sizeof *info;
        return eVXSize;
    }
    return Ask(cmdGetCameraHardwareInfo, info, size);
}

int tcVXCamera::SetNetworkConfig(TVXNetworkConfig* config)
{
    LogEntered("SetNetworkConfig");
    if (config == nullptr) return eVXArgument;
    tsNetworkConfigMsg message{};
    memcpy(message.Words, config->Words, sizeof message.Words);
    message.Value = config->Value;
    Send(cmdSetNetworkConfig, message);
    return eVXOk;
}

int tcVXCamera::GetNetworkConfig(TVXNetworkConfig* config)
{
    LogEntered("GetNetworkConfig");
    tsNetworkConfigMsg answer{};
    const int result = Ask(cmdGetNetworkConfig, &answer);
    if (result == eVXOk && config != nullptr) {
        memcpy(config->Words, answer.Words, sizeof config->Words);
        config->Value = answer.Value;
    }
    return result;
}

int tcVXCamera::GetReadoutNoise(float* first, float* second)
{
    LogEntered("GetReadoutNoise");
    float answers[2] = {};
    const int result = Ask(cmdGetReadoutNoise, &answers[0], &answers[1]);
    if (result == eVXOk) {
        Give(first, answers[0]);
        Give(second, answers[1]);
    }
    return result;
}
