// Getters and setters that are one message, in the catalogue's order: what only some cameras have,
// and what is set once when a camera is made.
#include "words.h"

#include <algorithm>
#include <cstring>

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
