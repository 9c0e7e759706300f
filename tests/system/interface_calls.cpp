#include "interface_calls.h"

#include <algorithm>
#include <cstring>
#include <sstream>

const tcSimServer* gpSim = nullptr;

int Close(int handle)
{
    const int result = VXCloseCamera(handle);
    if (result == 0) {
        EXPECT_TRUE(WaitUntil([] { return !gpSim->Statistics().connected; }));
    }
    return result;
}

namespace {

template <class... Outputs>
std::string Told(int result, Outputs... outputs)
{
    std::ostringstream text;
    text << result << ":";
    ((text << ' ' << outputs), ...);
    return text.str();
}

// A call that is told by its result alone.
template <class... Parameters, class... Arguments>
std::function<std::string(int)> Set(int (*function)(int, Parameters...), Arguments... arguments)
{
    return [=](int handle) { return Told(function(handle, arguments...)); };
}

// Calls with outputs only.
template <class A>
std::function<std::string(int)> Get(int (*function)(int, A*))
{
    return [=](int handle) {
        A a{};
        const int result = function(handle, &a);
        return Told(result, a);
    };
}
template <class A, class B>
std::function<std::string(int)> Get(int (*function)(int, A*, B*))
{
    return [=](int handle) {
        A a{};
        B b{};
        const int result = function(handle, &a, &b);
        return Told(result, a, b);
    };
}
template <class A, class B, class D>
std::function<std::string(int)> Get(int (*function)(int, A*, B*, D*))
{
    return [=](int handle) {
        A a{};
        B b{};
        D d{};
        const int result = function(handle, &a, &b, &d);
        return Told(result, a, b, d);
    };
}
template <class A, class B, class D, class E>
std::function<std::string(int)> Get(int (*function)(int, A*, B*, D*, E*))
{
    return [=](int handle) {
        A a{};
        B b{};
        D d{};
        E e{};
        const int result = function(handle, &a, &b, &d, &e);
        return Told(result, a, b, d, e);
    };
}

// What the functions write to; large enough for each.
uint32_t gaImage[nRows * nColumns];
unsigned char gaBytes[nRows * nColumns + 512];

// Waits for the readout that a call started.
template <class... Parameters, class... Arguments>
std::function<std::string(int)> Read(int (*function)(int, Parameters...), Arguments... arguments)
{
    return [=](int handle) {
        memset(gaImage, 0, sizeof gaImage);
        const int result = function(handle, arguments...);
        const int completion = VXWaitCompletion(handle, gnPatienceMs);
        const bool isSeen = std::any_of(std::begin(gaImage), std::end(gaImage),
                                        [](uint32_t pixels) { return pixels != 0; });
        return Told(result, completion, isSeen);
    };
}

// Opens, asks something, closes.
std::string Opened(int handle)
{
    if (handle < 0) return Told(handle);
    const int result = VXSetTrigger(handle, 0);
    return Told(result, Close(handle));
}

std::vector<tsCall> Callbacks()
{
    return {
        {"VXSetImageDataCallback", Set(VXSetImageDataCallback, nullptr), "0:"},
        {"VXSetHeartBeatCallback", Set(VXSetHeartBeatCallback, nullptr), "0:"},
        {"VXSetErrorCallback", Set(VXSetErrorCallback, nullptr), "0:"},
        {"VXSetUserDefinedCallback", Set(VXSetUserDefinedCallback, nullptr), "0:"},
        {"VXSetFrameCallback", Set(VXSetFrameCallback, nullptr, nullptr), "0:"},
        {"VXSetTap", Set(VXSetTap, 0U, nullptr, nullptr), "0:"},
        {"VXSetLinkCallback", Set(VXSetLinkCallback, nullptr, nullptr), "0:"},
        {"VXSetHeartBeatRecordCallback", Set(VXSetHeartBeatRecordCallback, nullptr, nullptr), "0:"},
        {"VXSetCameraErrorCallback", Set(VXSetCameraErrorCallback, nullptr, nullptr), "0:"},
    };
}

std::vector<tsCall> ExposureAndArea()
{
    static int regions[4][16] = {{1, 2}, {3, 4}, {5, 6}, {7, 8}};
    return {
        {"VXSetExposureEx", Set(VXSetExposureEx, 7L), "0:"},
        {"VXGetExposureTime", Get(VXGetExposureTime), "0: 7"},
        {"VXSetExposure", Set(VXSetExposure, 3L), "0:"},
        {"VXGetExposureTimeEx", Get(VXGetExposureTimeEx), "0: 3"},
        {"VXSetShutterParams", Set(VXSetShutterParams, 1L, 2L, 3), "0:"},
        {"VXGetShutterParams", Get(VXGetShutterParams), "0: 1 2 3"},
        {"VXSetShutterOverride", Set(VXSetShutterOverride, 1, 0), "0:"},
        {"VXSetAreaEx", Set(VXSetAreaEx, 2, regions[0], regions[1], regions[2], regions[3]), "0:"},
        {"VXGetAreaEx",
         [](int handle) {
             int first = 77, count = 77, rows[16], columns[16], heights[16], widths[16];
             const int result = VXGetAreaEx(handle, &first, &count, rows, columns, heights, widths);
             if (result != 0) return Told(result);
             return Told(result, first, count, rows[1], columns[1], heights[1], widths[1]);
         },
         "0: 0 2 2 4 6 8"},
        {"VXSetCCDArea", Set(VXSetCCDArea, 1, 2, 30, 40), "0:"},
        {"VXGetCCDArea", Get(VXGetCCDArea), "0: 1 2 30 40"},
    };
}

// Tables and masks come back as they went out.
std::vector<tsCall> Binning()
{
    static unsigned char table[nColumns] = {1, 2, 3, 0};
    static unsigned char mask[nRows * nColumns] = {5, 6, 7};
    static unsigned char factors[2][16] = {{2}, {4}};
    const auto tableOf = [](int (*function)(int, int, unsigned char*, int*)) {
        return [=](int handle) {
            int size = sizeof gaBytes;
            const int result = function(handle, 2, gaBytes, &size);
            return Told(result, size, memcmp(gaBytes, table, sizeof table));
        };
    };
    return {
        {"VXSetBinParam", Set(VXSetBinParam, table, 2), "0:"},
        {"VXGetBinParam", tableOf(VXGetBinParam), "0: 64 0"},
        {"VXSetHorBinParam", Set(VXSetHorBinParam, table, 2), "0:"},
        {"VXGetHorBinParam", tableOf(VXGetHorBinParam), "0: 96 0"},
        {"VXSetBinMaskParam", Set(VXSetBinMaskParam, mask, 9), "0:"},
        {"VXGetBinMaskParam",
         [](int handle) {
             int unused = 77, argument = 77;
             const int result = VXGetBinMaskParam(handle, gaBytes, &unused, &argument);
             return Told(result, unused, argument, memcmp(gaBytes, mask, sizeof mask));
         },
         "0: 77 9 0"},
        {"VXSetSimpleBinning", Set(VXSetSimpleBinning, 1, 2, 1.5f, 9.f), "0:"},
        {"VXGetSimpleBinning", Get(VXGetSimpleBinning), "0: 1 2 1.5 0"},
        {"VXSetBinningSequence",
         Set(VXSetBinningSequence, factors[0], factors[1], static_cast<unsigned char>(1)), "0:"},
        {"VXGetBinningSequence",
         [](int handle) {
             unsigned char vertical[16], horizontal[16], count = 77;
             const int result = VXGetBinningSequence(handle, vertical, horizontal, &count);
             if (result != 0) return Told(result);
             return Told(result, +count, +vertical[0], +horizontal[0]);
         },
         "0: 1 2 4"},
    };
}

std::vector<tsCall> TemperaturesTriggersAndPins()
{
    return {
        {"VXSetCooling", Set(VXSetCooling, 1), "0:"},
        {"VXGetCooling", Get(VXGetCooling), "0: 1"},
        {"VXSetCCDTargetTemp", Set(VXSetCCDTargetTemp, -12.5f), "0:"},
        {"VXGetCCDTargetTemp", Get(VXGetCCDTargetTemp), "0: -12.5"},
        {"VXGetCCDTemp", Get(VXGetCCDTemp), "0: 0"}, // no heartbeat has come
        {"VXGetBoardTemp", Get(VXGetBoardTemp), "0: 0"},
        {"VXEnableFan", Set(VXEnableFan, 1), "0:"},
        {"VXSetTriggerMode", Set(VXSetTriggerMode, eExtTrigOff, 5, 6), "0:"},
        {"VXGetTriggerMode", Get(VXGetTriggerMode), "0: 0 5 6"},
        {"VXSetTrigger", Set(VXSetTrigger, 1), "0:"},
        {"VXGetTrigger", Get(VXGetTrigger), "0: 1"},
        {"VXSetAutoTriggerReArm", Set(VXSetAutoTriggerReArm, 3), "0:"},
        {"VXGetAutoTriggerReArm", Get(VXGetAutoTriggerReArm), "0: 1"},
        {"VXSetGPIO", Set(VXSetGPIO, 4, ePinHigh), "0:"},
        {"VXGetGPIO", Set(VXGetGPIO), "16:"},
        {"VXSetGain", Set(VXSetGain, 3), "0:"},
        {"VXGetGainConfig", Get(VXGetGainConfig), "0: 3 0.25 7"},
        {"VXSetCCDOffset", Set(VXSetCCDOffset, static_cast<unsigned short>(700), true), "0:"},
        {"VXGetReadoutNoise", Get(VXGetReadoutNoise), "0: 6 24"},
        {"VXCISSetShutterMode", Set(VXCISSetShutterMode, eCISShutterGlobal), "0:"},
        {"VXCISSelectChannel", Set(VXCISSelectChannel, eCISChannelLowGain), "0:"},
        {"VXCISCalibrate", Set(VXCISCalibrate, 0), "0:"},
        {"VXCISLoadCalibration", Set(VXCISLoadCalibration), "0:"},
        {"VXCISClearCalibration", Set(VXCISClearCalibration), "0:"},
        {"VXCISCalibrationState", Get(VXCISCalibrationState), "0: 1"},
    };
}

std::vector<tsCall> Images()
{
    static unsigned short values[] = {25600}; // 100 in 8 bits
    static tsRecordParams recording{{1, 2, 3}, "somewhere"};
    auto* pixels = reinterpret_cast<unsigned short*>(gaImage);
    auto* binned = reinterpret_cast<long*>(gaImage);
    return {
        {"VXSetImageInterval", Set(VXSetImageInterval, 8UL), "0:"},
        {"VXGetImageIntervals", Get(VXGetImageIntervals), "0: 8 0 0 0"},
        {"VXSetCCDImageMirroring", Set(VXSetCCDImageMirroring, 1U, 0U), "0:"},
        {"VXGetCCDImageMirroring", Get(VXGetCCDImageMirroring), "0: 1 0"},
        {"VXSetTestPattern", Set(VXSetTestPattern, 4, values, 1), "0:"},
        {"VXSetShearingParams", Set(VXSetShearingParams, 1, 2U, 3U, 4U), "0:"},
        {"VXSetRecording", Set(VXSetRecording, &recording, 0), "0:"},
        {"VXReadCCDArea", Read(VXReadCCDArea, pixels, short{1}, uint16_t{0}), "0: 0 1"},
        {"VXReadCCDArea8",
         Read(VXReadCCDArea8, reinterpret_cast<unsigned char*>(gaImage), short{1}, uint16_t{0}),
         "0: 0 1"},
        {"VXReadCCDBinned", Read(VXReadCCDBinned, binned, nullptr, short{1}, uint16_t{0}),
         "0: 0 1"},
        {"VXReadCCDMaskBinned", Read(VXReadCCDMaskBinned, binned, nullptr, short{1}, uint16_t{0}),
         "0: 0 1"},
        {"VXSetImageBuffers",
         [](int handle) {
             void* const buffers[] = {gaImage};
             const int result = VXSetImageBuffers(handle, buffers, 1, sizeof gaImage);
             return Told(result) + Read(VXReadCCDArea, nullptr, short{1}, uint16_t{0})(handle);
         },
         "0:0: 0 1"},
        {"VXReturnImageBuffer",
         [](int handle) {
             const int result = VXReturnImageBuffer(handle, gaImage);
             const std::string read = Read(VXReadCCDArea, nullptr, short{1}, uint16_t{0})(handle);
             return Told(result) + read + Told(VXSetImageBuffers(handle, nullptr, 0, 0));
         },
         "0:0: 0 10:"},
        {"VXReadoutResult", Set(VXReadoutResult), std::to_string(eReadoutComplete) + ":"},
        {"VXGetReadProgress", Get(VXGetReadProgress), "100: 1"},
        {"VXOverrideImageTimout", Set(VXOverrideImageTimout, 5000), "0:"},
        {"VXAbortRead", Set(VXAbortRead), "0:"},
        {"VXGiveUpReadout", Set(VXGiveUpReadout), "0:"},
        {"VXGiveUpQuestions", Set(VXGiveUpQuestions), "0:"},
        {"VXWaitCompletion", Set(VXWaitCompletion, 100), "0:"},
        {"VXisCameraReady", Set(VXisCameraReady), "0:"},
        {"VXGetStatistics",
         [](int handle) {
             tsStatistics figures{};
             const int result = VXGetStatistics(handle, &figures, sizeof figures);
             return Told(result, figures.FramesComplete, figures.FramesPending);
         },
         "0: 6 0"},
    };
}

std::vector<tsCall> DataAndEngineering()
{
    static unsigned char block[4356] = {9, 8, 7};
    static TVXNetworkConfig network{{1, 2, 3, 4, 5}, 6};
    static unsigned char message[] = {0, 0, 2, 0, 0, 0, 0, 0, 0, 0xC1, 0, 0, 'h', 'i'};
    static uint32_t reading[2] = {0x10, 77};
    return {
        {"VXSetTimingData", Set(VXSetTimingData, block, 4356), "0:"},
        {"VXGetTimingData",
         [](int handle) {
             int size = 77;
             const int result = VXGetTimingData(handle, gaBytes, &size);
             return Told(result, size, memcmp(gaBytes, block, sizeof block));
         },
         "0: 4356 0"},
        {"VXSetParameter", Set(VXSetParameter, 100U, block, 3), "0:"},
        {"VXGetParameter",
         [](int handle) {
             unsigned char value[3] = {};
             const int result = VXGetParameter(handle, 100, value, sizeof value);
             return Told(result, +value[0], +value[2]);
         },
         "0: 9 7"},
        {"VXSetCameraHardwareInfo",
         [](int handle) {
             TVXCameraHardware info{};
             info.Reserved48[0] = 55;
             int size = 150;
             const int result = VXSetCameraHardwareInfo(handle, &info, &size);
             return Told(result, size);
         },
         "0: 100"},
        {"VXGetCameraHardwareInfo",
         [](int handle) {
             TVXCameraHardware info{};
             int size = sizeof info;
             const int result = VXGetCameraHardwareInfo(handle, &info, &size);
             return Told(result, size, info.Rows, info.Columns, +info.Reserved48[0]);
         },
         "0: 100 64 96 55"},
        {"VXSetCameraNetworkConfig", Set(VXSetCameraNetworkConfig, &network), "0:"},
        {"VXGetCameraNetworkConfig",
         [](int handle) {
             TVXNetworkConfig config{};
             const int result = VXGetCameraNetworkConfig(handle, &config);
             return Told(result, config.Words[4], config.Value);
         },
         "0: 5 6"},
        {"VXSendUserDefined", Set(VXSendUserDefined, message), "0:"},
        {"VXEngineeringCommand",
         [](int handle) {
             const int result = VXEngineeringCommand(handle, 100, reading);
             return Told(result, reading[1]);
         },
         "0: 0"},
        {"VXClearCCD", Set(VXClearCCD, 1, 2), "0:"},
        {"VXCameraReset", Set(VXCameraReset), "0:"},
        {"VXCloseCamera", Set(Close), "0:"},
    };
}

} // namespace

std::vector<tsCall> Opening()
{
    return {
        {"VXGetDllVersion", [](int) { return Told(VXGetDllVersion()); }, "196615:"},
        {"VXGetTimingDataSize", [](int) { return Told(VXGetTimingDataSize()); }, "4356:"},
        {"VXSetOpeningTap", [](int) { return Told(VXSetOpeningTap(0, nullptr, nullptr)); }, "0:"},
        {"VXSetLogCallback", [](int) { return Told(VXSetLogCallback(nullptr, nullptr)); }, "0:"},
        {"VXSetPatience", [](int) { return Told(VXSetPatience(0)); }, "0:"},
        {"VXOpenENetCamera",
         [](int) { return Opened(VXOpenENetCamera("127.0.0.1", gpSim->Port())); }, "0: 0"},
        {"VXLocateEnetCameras",
         [](int) {
             tsEnetData found[3] = {};
             const int result = VXLocateEnetCameras(found, 3);
             return Told(result, found[0].SerialNumber, found[0].Port == gpSim->Port());
         },
         "1: 4711 1"},
        {"VXOpenCameraBySerialNumber",
         [](int) { return Opened(VXOpenCameraBySerialNumber(nSerial)); }, "0: 0"},
        {"VXOpenSerialCamera", [](int) { return Told(VXOpenSerialCamera()); }, "-1:"},
        {"VXOpenUSBSerialCamera", [](int) { return Told(VXOpenUSBSerialCamera()); }, "-1:"},
        {"VXOpenHSUSBCamera", [](int) { return Told(VXOpenHSUSBCamera(-1)); }, "-1:"},
        {"VXLocateHSUSBCameras", [](int) { return Told(VXLocateHSUSBCameras()); }, "-1:"},
    };
}

std::vector<tsCall> AllCalls()
{
    std::vector<tsCall> all;
    for (const auto& some :
         {Callbacks(), ExposureAndArea(), Binning(), TemperaturesTriggersAndPins(), Images(),
          DataAndEngineering(), Opening()})
        all.insert(all.end(), some.begin(), some.end());
    return all;
}
