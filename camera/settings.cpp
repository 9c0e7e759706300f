// Getters and setters that are one message, in the catalogue's order: what every camera has.
#include "words.h"

#include <algorithm>
#include <climits>
#include <cmath>

void tcVXCamera::LogEntered(const char* operation)
{
    mLog.logDebug(4, "tcVXCamera::%s Entered", operation);
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
