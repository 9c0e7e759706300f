#include "conversations.h"

std::vector<tsConversation> FurtherConversations()
{
    return {
        // Trigger, pins, gain, filter
        {"SetTrigger", Set(&C::SetTrigger, 2), 0x58, P().U32(2), 0, {}, "0:"},
        {"GetTrigger", Get(&C::GetTrigger), 0x59, {}, 0x7F, P().U32(3), "0: 3"},
        {"SetTriggerMode",
         Set(&C::SetTriggerMode, eExtTrigFrame, 5, 6),
         0x5E,
         P().U32(2).U32(5).U32(6),
         0,
         {},
         "0:"},
        {"GetTriggerMode",
         Get(&C::GetTriggerMode),
         0x5F,
         {},
         0x87,
         P().U32(1).U32(5).U32(6),
         "0: 1 5 6"},
        {"SetAutoTriggerReArmSendsOne",
         Set(&C::SetAutoTriggerReArm, 17),
         0x17,
         P().U32(1),
         0,
         {},
         "0:"},
        {"SetAutoTriggerReArmSendsZero",
         Set(&C::SetAutoTriggerReArm, 0),
         0x17,
         P().U32(0),
         0,
         {},
         "0:"},
        {"GetAutoTriggerReArm", Get(&C::GetAutoTriggerReArm), 0x18, {}, 0x8B, P().U32(1), "0: 1"},
        {"SetGPIO", Set(&C::SetGPIO, 4, ePinHigh), 0x56, P().U32(4).U32(1), 0, {}, "0:"},
        {"GetGPIO", Set(&C::GetGPIO), 0x57, {}, 0x7E, P().U32(0x5A), "90:"},
        {"SetGain", Set(&C::SetGain, 12), 0x2A, P().U32(12), 0, {}, "0:"},
        {"GetGainConfig",
         Get(&C::GetGainConfig),
         0x2B,
         {},
         0x84,
         P().I32(-1).F32(2.5f).I32(3).Fill(12, 0),
         "0: -1 2.5 3"},
        {"SetFilter",
         [](C& camera) {
             tsSetFilterCmd filter{1, 200};
             return Told(camera.SetFilter(&filter));
         },
         0x2E,
         P().U32(1).U32(200),
         0,
         {},
         "0:"},
        {"GetFilter",
         [](C& camera) {
             tsSetFilterCmd filter{9, 9};
             const int result = camera.GetFilter(&filter);
             return Told(result, +filter.First, +filter.Second);
         },
         0x2F,
         {},
         0x86,
         P().U32(0).U32(0x100),
         "0: 0 1"},
        {"SetFilterRefusesNull", Set(&C::SetFilter, nullptr), 0, {}, 0, {}, "-5:"},

        // CIS sensors
        {"CISSetShutterMode",
         Set(&C::CISSetShutterMode, eCISShutterGlobal),
         0x1D,
         P().U32(1),
         0,
         {},
         "0:"},
        {"CISSelectChannel",
         Set(&C::CISSelectChannel, eCISChannelBoth),
         0x1E,
         P().U32(2),
         0,
         {},
         "0:"},
        {"CISCalibrate", Set(&C::CISCalibrate, 2), 0x1F, P().U32(2), 0, {}, "0:"},
        {"CISCalibrationState", Get(&C::CISCalibrationState), 0x1B, {}, 0x89, P().U32(6), "0: 6"},

        // Recording, test pattern, intervals, mirroring, shearing
        {"SetRecordingTerminatesTheText",
         [](C& camera) {
             tsRecordParams params{{1, 2, 3}, {}};
             memset(params.Text, 'x', sizeof params.Text);
             return Told(camera.SetRecording(&params, 99));
         },
         0x1C,
         P().U32(1).U32(2).U32(3).Fill(255, 'x').U8(0),
         0,
         {},
         "0:"},
        {"SetRecordingRefusesNull", Set(&C::SetRecording, nullptr, 0), 0, {}, 0, {}, "-5:"},
        {"SetTestPattern",
         [](C& camera) {
             unsigned short values[] = {10, 20};
             return Told(camera.SetTestPattern(6, values, 2));
         },
         0x5B,
         P().U32(6).U16(10).U16(20).Fill(60, 0),
         0,
         {},
         "0:"},
        {"SetTestPatternTakes31Values",
         [](C& camera) {
             unsigned short values[31] = {};
             values[30] = 31;
             return Told(camera.SetTestPattern(0, values, 31));
         },
         0x5B,
         P().U32(0).Fill(60, 0).U16(31).U16(0),
         0,
         {},
         "0:"},
        {"SetTestPatternRefuses32Values",
         [](C& camera) {
             unsigned short values[32] = {};
             return Told(camera.SetTestPattern(0, values, 32));
         },
         0,
         {},
         0,
         {},
         "-1:"},
        {"SetTestPatternRefusesMode7", Set(&C::SetTestPattern, 7, nullptr, 0), 0, {}, 0, {}, "-5:"},
        {"SetImageInterval",
         Set(&C::SetImageInterval, 0x100000005UL),
         0x4A,
         P().U32(5),
         0,
         {},
         "0:"},
        {"GetImageIntervals",
         [](C& camera) {
             unsigned long a = ~0UL, b = ~0UL, c = ~0UL, d = ~0UL;
             const int result = camera.GetImageIntervals(&a, &b, &c, &d);
             return Told(result, a, b, c, d);
         },
         0x4B,
         {},
         0x7A,
         P().U32(1).U32(2).U32(3).U32(0xFFFFFFFF),
         "0: 1 2 3 4294967295"},
        {"SetCCDImageMirroring",
         Set(&C::SetCCDImageMirroring, 1u, 0u),
         0x51,
         P().U32(1).U32(0),
         0,
         {},
         "0:"},
        {"GetCCDImageMirroring",
         Get(&C::GetCCDImageMirroring),
         0x52,
         {},
         0x7C,
         P().U32(0).U32(1),
         "0: 0 1"},
        {"SetShearingParams",
         Set(&C::SetShearingParams, -1, 2u, 3u, 4u),
         0x49,
         P().I32(-1).U32(2).U32(3).U32(4),
         0,
         {},
         "0:"},

        // Hardware, network, noise
        {"SetCameraHardwareInfoIsCutTo100",
         [](C& camera) {
             TVXCameraHardware info{};
             info.Rows = 0x0102;
             int size = 150;
             const int result = camera.SetCameraHardwareInfo(&info, &size);
             return Told(result, size);
         },
         0x40,
         P().Fill(42, 0).U16(0x0102).Fill(56, 0),
         0,
         {},
         "0: 100"},
        {"SetCameraHardwareInfoSendsASmallerPart",
         [](C& camera) {
             TVXCameraHardware info{};
             memset(&info, 5, sizeof info);
             int size = 3;
             const int result = camera.SetCameraHardwareInfo(&info, &size);
             return Told(result, size);
         },
         0x40,
         P().Fill(3, 5),
         0,
         {},
         "0: 3"},
        {"GetCameraHardwareInfo",
         [](C& camera) {
             TVXCameraHardware info{};
             int size = sizeof info;
             const int result = camera.GetCameraHardwareInfo(&info, &size);
             return Told(result, size, info.Rows, info.Columns);
         },
         0x34,
         {},
         0x64,
         P().Fill(42, 1).U16(600).U16(0).U16(800).Fill(52, 2),
         "0: 100 600 800"},
        {"GetCameraHardwareInfoOfSizeZero",
         [](C& camera) {
             TVXCameraHardware info{};
             int size = 0;
             const int result = camera.GetCameraHardwareInfo(&info, &size);
             return Told(result, size);
         },
         0,
         {},
         0,
         {},
         "-4: 100"},
        {"SetNetworkConfig",
         [](C& camera) {
             TVXNetworkConfig config{{1, 2, 3, 4, 5}, 6};
             return Told(camera.SetNetworkConfig(&config));
         },
         0x42,
         P().U32(1).U32(2).U32(3).U32(4).U32(5).U16(6).U16(0),
         0,
         {},
         "0:"},
        {"SetNetworkConfigRefusesNull", Set(&C::SetNetworkConfig, nullptr), 0, {}, 0, {}, "-5:"},
        {"GetNetworkConfig",
         [](C& camera) {
             TVXNetworkConfig config{};
             const int result = camera.GetNetworkConfig(&config);
             return Told(result, config.Words[0], config.Words[4], config.Value);
         },
         0x41,
         {},
         0x76,
         P().U32(1).U32(2).U32(3).U32(4).U32(5).U16(6).U16(0),
         "0: 1 5 6"},
        {"GetReadoutNoise",
         Get(&C::GetReadoutNoise),
         0x3E,
         {},
         0x73,
         P().F32(1.25f).F32(9),
         "0: 1.25 9"},
        {"EnableNoOps", Set(&C::EnableNoOps, 200, 10), 0x5D, P().U32(10).U32(200), 0, {}, "0:"},
    };
}
