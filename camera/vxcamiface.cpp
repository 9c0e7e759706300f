// The forwarding C functions, in the header's order.
#include "vxcamiface.h"

#include "forward.h"

extern "C" int VXSetImageDataCallback(int handle, tpImageDataCallback callback)
{
    return Forward(handle, &tcVXCamera::SetImageDataCallback, callback);
}

extern "C" int VXSetHeartBeatCallback(int handle, tpHeartBeatCallback callback)
{
    return Forward(handle, &tcVXCamera::SetHeartBeatCallback, callback);
}

extern "C" int VXSetUserDefinedCallback(int handle, tpUserDefinedCallback callback)
{
    return Forward(handle, &tcVXCamera::SetUserDefinedCallback, callback);
}

extern "C" int VXReadCCDArea(int handle, unsigned short* buffer, short frames, unsigned short flags)
{
    return Forward(handle, &tcVXCamera::ReadCCDArea, buffer, frames, flags);
}

extern "C" int VXReadCCDBinned(int handle, long* buffer, unsigned short* maximum, short frames,
                               unsigned short mode)
{
    return Forward(handle, &tcVXCamera::ReadCCDBinned, buffer, maximum, frames, mode);
}

extern "C" int VXReadCCDMaskBinned(int handle, long* buffer, unsigned short* maximum, short frames,
                                   unsigned short mode)
{
    return Forward(handle, &tcVXCamera::ReadCCDMaskBinned, buffer, maximum, frames, mode);
}

extern "C" int VXWaitCompletion(int handle, int timeoutMs)
{
    return Forward(handle, &tcVXCamera::WaitCompletion, timeoutMs);
}

extern "C" int VXGetReadProgress(int handle, unsigned int* frame)
{
    return Forward(handle, &tcVXCamera::PercentComplete, frame);
}

extern "C" int VXAbortRead(int handle)
{
    return Forward(handle, &tcVXCamera::AbortRead);
}

extern "C" int VXOverrideImageTimout(int handle, int ms)
{
    return Forward(handle, &tcVXCamera::OverrideImageTimout, ms);
}

extern "C" int VXSetExposure(int handle, long ms)
{
    return Forward(handle, &tcVXCamera::SetExposure, ms);
}

extern "C" int VXGetExposureTime(int handle, long* ms)
{
    return Forward(handle, &tcVXCamera::GetExposureTime, ms);
}

extern "C" int VXSetExposureEx(int handle, long exposure)
{
    return Forward(handle, &tcVXCamera::SetExposureEx, exposure);
}

int VXGetExposureTimeEx(int handle, long* exposure)
{
    return Forward(handle, &tcVXCamera::GetExposureTimeEx, exposure);
}

extern "C" int VXSetShutterParams(int handle, long first, long second, int third)
{
    return Forward(handle, &tcVXCamera::SetShutterParams, first, second, third);
}

extern "C" int VXGetShutterParams(int handle, long* first, long* second, int* third)
{
    return Forward(handle, &tcVXCamera::GetShutterParams, first, second, third);
}

extern "C" int VXSetShutterOverride(int handle, int first, int second)
{
    return Forward(handle, &tcVXCamera::SetShutterOverride, first, second);
}

extern "C" int VXSetCCDArea(int handle, int firstColumn, int firstRow, int columns, int rows)
{
    return Forward(handle, &tcVXCamera::SetCCDArea, firstColumn, firstRow, columns, rows);
}

extern "C" int VXGetCCDArea(int handle, int* firstColumn, int* firstRow, int* columns, int* rows)
{
    return Forward(handle, &tcVXCamera::GetCCDArea, firstColumn, firstRow, columns, rows);
}

extern "C" int VXSetAreaEx(int handle, int count, int* rows, int* columns, int* heights,
                           int* widths)
{
    return Forward(handle, &tcVXCamera::SetAreaEx, count, rows, columns, heights, widths);
}

extern "C" int VXGetAreaEx(int handle, int* first, int* count, int* rows, int* columns,
                           int* heights, int* widths)
{
    return Forward(handle, &tcVXCamera::GetAreaEx, first, count, rows, columns, heights, widths);
}

extern "C" int VXSetBinParam(int handle, unsigned char* table, int index)
{
    return Forward(handle, &tcVXCamera::SetBinParam, table, index);
}

extern "C" int VXSetHorBinParam(int handle, unsigned char* table, int index)
{
    return Forward(handle, &tcVXCamera::SetHorBinParam, table, index);
}

extern "C" int VXGetBinParam(int handle, int index, unsigned char* table, int* size)
{
    return Forward(handle, &tcVXCamera::GetBinParam, index, table, size);
}

extern "C" int VXGetHorBinParam(int handle, int index, unsigned char* table, int* size)
{
    return Forward(handle, &tcVXCamera::GetHorBinParam, index, table, size);
}

extern "C" int VXSetBinMaskParam(int handle, unsigned char* mask, int argument)
{
    return Forward(handle, &tcVXCamera::SetBinMaskParam, mask, argument);
}

extern "C" int VXGetBinMaskParam(int handle, unsigned char* mask, int* unused, int* argument)
{
    return Forward(handle, &tcVXCamera::GetBinMaskParam, mask, unused, argument);
}

extern "C" int VXSetBinningSequence(int handle, unsigned char* vertical, unsigned char* horizontal,
                                    unsigned char count)
{
    return Forward(handle, &tcVXCamera::SetBinningSequence, vertical, horizontal, count);
}

extern "C" int VXGetBinningSequence(int handle, unsigned char* vertical, unsigned char* horizontal,
                                    unsigned char* count)
{
    return Forward(handle, &tcVXCamera::GetBinningSequence, vertical, horizontal, count);
}

extern "C" int VXSetSimpleBinning(int handle, int first, int second, float third, float fourth)
{
    return Forward(handle, &tcVXCamera::SetSimpleBinning, first, second, third, fourth);
}

extern "C" int VXGetSimpleBinning(int handle, int* first, int* second, float* third, float* fourth)
{
    return Forward(handle, &tcVXCamera::GetSimpleBinning, first, second, third, fourth);
}

extern "C" int VXSetCooling(int handle, int on)
{
    return Forward(handle, &tcVXCamera::SetCooling, on);
}

extern "C" int VXGetCooling(int handle, int* on)
{
    return Forward(handle, &tcVXCamera::GetCoolParam, on);
}

extern "C" int VXSetCCDTargetTemp(int handle, float degrees)
{
    return Forward(handle, &tcVXCamera::SetCCDTargetTemp, degrees);
}

extern "C" int VXGetCCDTargetTemp(int handle, float* degrees)
{
    return Forward(handle, &tcVXCamera::GetCCDTargetTemp, degrees);
}

extern "C" int VXGetCCDTemp(int handle, short* temperature)
{
    return Forward(handle, &tcVXCamera::GetCCDTemp, temperature);
}

extern "C" int VXGetBoardTemp(int handle, short* temperature)
{
    return Forward(handle, &tcVXCamera::GetBoardTemp, temperature);
}

extern "C" int VXEnableFan(int handle, int on)
{
    return Forward(handle, &tcVXCamera::EnableFan, on);
}

extern "C" int VXSetTrigger(int handle, int trigger)
{
    return Forward(handle, &tcVXCamera::SetTrigger, trigger);
}

extern "C" int VXGetTrigger(int handle, int* trigger)
{
    return Forward(handle, &tcVXCamera::GetTrigger, trigger);
}

extern "C" int VXSetTriggerMode(int handle, teExtTrigMode mode, int first, int second)
{
    return Forward(handle, &tcVXCamera::SetTriggerMode, mode, first, second);
}

extern "C" int VXGetTriggerMode(int handle, teExtTrigMode* mode, int* first, int* second)
{
    return Forward(handle, &tcVXCamera::GetTriggerMode, mode, first, second);
}

extern "C" int VXSetAutoTriggerReArm(int handle, int on)
{
    return Forward(handle, &tcVXCamera::SetAutoTriggerReArm, on);
}

extern "C" int VXGetAutoTriggerReArm(int handle, int* on)
{
    return Forward(handle, &tcVXCamera::GetAutoTriggerReArm, on);
}

extern "C" int VXSetGPIO(int handle, int pin, tePinState state)
{
    return Forward(handle, &tcVXCamera::SetGPIO, pin, state);
}

extern "C" int VXGetGPIO(int handle)
{
    return Forward(handle, &tcVXCamera::GetGPIO);
}

extern "C" int VXSetGain(int handle, int gain)
{
    return Forward(handle, &tcVXCamera::SetGain, gain);
}

extern "C" int VXGetGainConfig(int handle, int* first, float* second, int* third)
{
    return Forward(handle, &tcVXCamera::GetGainConfig, first, second, third);
}

extern "C" int VXSetCCDOffset(int handle, unsigned short offset, bool flag)
{
    return Forward(handle, &tcVXCamera::SetCCDOffset, offset, flag);
}

extern "C" int VXGetReadoutNoise(int handle, float* first, float* second)
{
    return Forward(handle, &tcVXCamera::GetReadoutNoise, first, second);
}

extern "C" int VXCISSetShutterMode(int handle, teCISShutterMode mode)
{
    return Forward(handle, &tcVXCamera::CISSetShutterMode, mode);
}

extern "C" int VXCISSelectChannel(int handle, teCISChannelConfig channel)
{
    return Forward(handle, &tcVXCamera::CISSelectChannel, channel);
}

extern "C" int VXCISCalibrate(int handle, int action)
{
    return Forward(handle, &tcVXCamera::CISCalibrate, action);
}

extern "C" int VXCISLoadCalibration(int handle)
{
    return Forward(handle, &tcVXCamera::CISCalibrate, 1);
}

extern "C" int VXCISClearCalibration(int handle)
{
    return Forward(handle, &tcVXCamera::CISCalibrate, 2);
}

extern "C" int VXCISCalibrationState(int handle, int* state)
{
    return Forward(handle, &tcVXCamera::CISCalibrationState, state);
}

extern "C" int VXSetImageInterval(int handle, unsigned long interval)
{
    return Forward(handle, &tcVXCamera::SetImageInterval, interval);
}

extern "C" int VXGetImageIntervals(int handle, unsigned long* first, unsigned long* second,
                                   unsigned long* third, unsigned long* fourth)
{
    return Forward(handle, &tcVXCamera::GetImageIntervals, first, second, third, fourth);
}

extern "C" int VXSetCCDImageMirroring(int handle, unsigned int horizontal, unsigned int vertical)
{
    return Forward(handle, &tcVXCamera::SetCCDImageMirroring, horizontal, vertical);
}

extern "C" int VXGetCCDImageMirroring(int handle, unsigned int* horizontal, unsigned int* vertical)
{
    return Forward(handle, &tcVXCamera::GetCCDImageMirroring, horizontal, vertical);
}

extern "C" int VXSetTestPattern(int handle, int mode, unsigned short* values, int count)
{
    return Forward(handle, &tcVXCamera::SetTestPattern, mode, values, count);
}

extern "C" int VXSetShearingParams(int handle, int first, unsigned int second, unsigned int third,
                                   unsigned int fourth)
{
    return Forward(handle, &tcVXCamera::SetShearingParams, first, second, third, fourth);
}

extern "C" int VXSetRecording(int handle, tsRecordParams* params, int unused)
{
    return Forward(handle, &tcVXCamera::SetRecording, params, unused);
}

extern "C" int VXSetTimingData(int handle, void* data, int size)
{
    return Forward(handle, &tcVXCamera::SetTimingData, data, size);
}

extern "C" int VXGetTimingData(int handle, void* data, int* size)
{
    return Forward(handle, &tcVXCamera::GetTimingFileData, data, size);
}

extern "C" int VXSetParameter(int handle, unsigned int id, void* value, int size)
{
    return Forward(handle, &tcVXCamera::SetParameter, id, value, size);
}

extern "C" int VXGetParameter(int handle, unsigned int id, void* value, int size)
{
    return Forward(handle, &tcVXCamera::GetParameter, id, value, size);
}

extern "C" int VXGetCameraHardwareInfo(int handle, TVXCameraHardware* info, int* size)
{
    return Forward(handle, &tcVXCamera::GetCameraHardwareInfo, info, size);
}

extern "C" int VXSetCameraHardwareInfo(int handle, TVXCameraHardware* info, int* size)
{
    return Forward(handle, &tcVXCamera::SetCameraHardwareInfo, info, size);
}

extern "C" int VXGetCameraNetworkConfig(int handle, TVXNetworkConfig* config)
{
    return Forward(handle, &tcVXCamera::GetNetworkConfig, config);
}

extern "C" int VXSetCameraNetworkConfig(int handle, TVXNetworkConfig* config)
{
    return Forward(handle, &tcVXCamera::SetNetworkConfig, config);
}

extern "C" int VXClearCCD(int handle, int first, int second)
{
    return Forward(handle, &tcVXCamera::ClearCCD, first, second);
}

extern "C" int VXCameraReset(int handle)
{
    return Forward(handle, &tcVXCamera::CameraReset);
}

extern "C" int VXSendUserDefined(int handle, void* message)
{
    return Forward(handle, &tcVXCamera::SendUserDefined, message);
}

extern "C" int VXEngineeringCommand(int handle, int command, void* data)
{
    return Forward(handle, &tcVXCamera::EngineeringCommand, command, data);
}
