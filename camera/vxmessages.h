// The messages between host and camera: one paragraph each, with its id, layout, length, answer and
// the request item that waits for the answer. Everything that builds, checks, delivers or simulates
// a message works from the rows at the end of this file.
//
// A message is a tsMsgHeader and `Length` payload bytes. All fields are little-endian and packed.
#ifndef VXMESSAGES_H
#define VXMESSAGES_H

#include "vxcamtypes.h"

#include <array>
#include <cstddef>
#include <cstdint>

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpedantic" // flexible arrays end the pixel packets
#pragma pack(push, 1)

// ---- Header -----------------------------------------------------------------------------------

struct tsMsgHeader {
    uint16_t Magic;         // gnMessageMagic
    uint16_t Length;        // payload bytes behind the header
    uint32_t SeqNo : 8;     // counts the sender's messages
    uint32_t Checksum : 24; // low 24 bits of the sum of the payload bytes, where checksums are on
    uint32_t IDD : 8;       // interface version: gnInterfaceVersion
    uint32_t MsgId : 24;
};
static_assert(sizeof(tsMsgHeader) == 12, "wire record");

inline constexpr uint16_t gnMessageMagic = 0xFA50;
inline constexpr uint8_t gnInterfaceVersion = 3;
inline constexpr int gnHeaderBytes = 12;
inline constexpr int gnLargestMessage = 16416; // header included
inline constexpr uint32_t gnFirstUserDefinedId = 0xC0;

// ---- Request items: one for each kind of answer that can be waited for ------------------------

enum teItem {
    eItemNone = -1,
    eItemExposure = 0,
    eItemCooling = 1,
    eItemUnused2 = 2,
    eItemBinTable = 3,
    eItemHardware = 4,
    eItemShort5 = 5,
    eItemImage16 = 6,
    eItemImage32 = 7,
    eItemRegister = 8,
    eItemUnused9 = 9,
    eItemShort10 = 10,
    eItemAcknowledge = 11,
    eItemNoise = 12,
    eItemLinkTest = 13,
    eItemNetwork = 14,
    eItemBinMask = 15,
    eItemShutter = 16,
    eItemIntervals = 17,
    eItemTargetTemp = 18,
    eItemMirroring = 19,
    eItemTimingData = 20,
    eItemGPIO = 21,
    eItemTrigger = 22,
    eItemHorBinTable = 23,
    eItemBinningSequence = 24,
    eItemGain = 25,
    eItemPID = 26,
    eItemFilter = 27,
    eItemTriggerMode = 28,
    eItemImage8 = 29,
    eItemCalibration = 30,
    eItemAreaEx = 31,
    eItemReArm = 32,
    eItemSimpleBinning = 33,
    eItemParameter = 34
};
inline constexpr int gnItems = 35;
inline constexpr int gnImageTimeout = 20000; // ms on top of the exposure, and between pixel packets

// How long each item waits, in ms; 0 stands for the images' own rule.
inline constexpr std::array<int, gnItems> gaItemTimeouts = {
    10000, 10000, 10000, 10000, 10000, 10000, 0,     0,     20000, 20000, 10000, 5000,
    5000,  3000,  10000, 10000, 20000, 20000, 20000, 10000, 10000, 10000, 10000, 10000,
    10000, 10000, 10000, 10000, 10000, 0,     10000, 10000, 10000, 10000, 10000};

// ---- What a row says --------------------------------------------------------------------------

// How an answer reaches whoever waits for it.
enum teDelivery : uint8_t {
    eCopy,     // `bytes` payload bytes to result 1
    eTwoWords, // payload word 0 to result 1, word 1 to result 2
    eWhole,    // the message, header included, to result 1: its first `bytes`, or all of it if 0
    eCount,    // nothing is stored, the answer only counts
    eHandled,  // a handler of its own in the dispatcher stores it, if somebody waits
    eEvent,    // a handler of its own does everything; no request is completed by the row
    eIgnored   // nothing at all happens
};

// Whether an answer resets its item's status, even when nobody waits for it.
enum teStatusRule : uint8_t { eMarkAnswered, eLeaveStatus };

struct tsAnswer {
    uint32_t id;
    const char* name;
    int item;
    teDelivery delivery;
    uint32_t bytes = 0;
    teStatusRule status = eMarkAnswered;
};

struct tsNoPayload {};
template <class Payload>
inline constexpr uint16_t gnPayloadBytes = static_cast<uint16_t>(sizeof(Payload));
template <>
inline constexpr uint16_t gnPayloadBytes<tsNoPayload> = 0;

// A command without regard to its payload's type. `shortest` differs from `longest` only where a
// message's length depends on what it carries.
struct tsCommandRow {
    uint32_t id;
    const char* name; // the camera operation that sends it
    const tsAnswer* answer;
    uint16_t shortest, longest;
};

template <class Payload>
struct tsCommand {
    uint32_t id;
    const char* name;
    const tsAnswer* answer = nullptr;
    uint16_t shortest = gnPayloadBytes<Payload>;

    constexpr tsCommandRow Row() const
    {
        return {id, name, answer, shortest, gnPayloadBytes<Payload>};
    }
};

constexpr uint32_t words(uint32_t count)
{
    return count * 4;
}

// One 32-bit number, the payload of many a message.
struct tsWordMsg {
    uint32_t Value;
};

// ---- Exposure ---------------------------------------------------------------------------------

inline constexpr tsAnswer ansExposure{0x60, "Exposure time", eItemExposure, eHandled, words(1)};
inline constexpr tsCommand<tsWordMsg> cmdSetExposure{0x20, "SetExposure"};
inline constexpr tsCommand<tsNoPayload> cmdGetExposureTime{0x30, "GetExposureTime", &ansExposure};
inline constexpr tsCommand<tsWordMsg> cmdSetExposureEx{0x12, "SetExposureEx"};
inline constexpr tsCommand<tsNoPayload> cmdGetExposureTimeEx{0x11, "GetExposureTimeEx",
                                                             &ansExposure};

// ---- Shutter ----------------------------------------------------------------------------------

struct tsShutterParamsMsg {
    uint32_t First, Second, Third; // the close delay is the first
};
inline constexpr tsAnswer ansShutterParams{0x79, "Shutter parameters", eItemShutter, eCopy,
                                           words(3)};
inline constexpr tsCommand<tsShutterParamsMsg> cmdSetShutterParams{0x46, "SetShutterParams"};
inline constexpr tsCommand<tsNoPayload> cmdGetShutterParams{0x47, "GetShutterParams",
                                                            &ansShutterParams};

struct tsShutterOverrideMsg {
    uint32_t First, Second;
};
inline constexpr tsCommand<tsShutterOverrideMsg> cmdSetShutterOverride{0x53, "SetShutterOverride"};

// ---- Area -------------------------------------------------------------------------------------

struct tsAreaMsg {
    uint16_t FirstColumn, FirstRow, Columns, Rows;
    uint32_t Reserved;
};
inline constexpr tsCommand<tsAreaMsg> cmdSetCCDArea{0x24, "SetCCDArea"};

inline constexpr int gnAreaRegions = 16;
struct tsAreaExMsg {
    uint8_t First; // 0 in the command
    uint8_t RegionCount;
    int32_t FirstRows[gnAreaRegions], FirstColumns[gnAreaRegions];
    int32_t Heights[gnAreaRegions], Widths[gnAreaRegions];
};
using tsSetAreaExMsg = tsAreaExMsg;
inline constexpr tsAnswer ansAreaEx{0x8A, "Area regions", eItemAreaEx, eWhole, 270, eLeaveStatus};
inline constexpr tsCommand<tsSetAreaExMsg> cmdSetAreaEx{0x1A, "SetAreaEx"};
inline constexpr tsCommand<tsNoPayload> cmdGetAreaEx{0x19, "GetAreaEx", &ansAreaEx};

// ---- Binning tables, masks and sequences ------------------------------------------------------

inline constexpr int gnBinTables = 8;
inline constexpr int gnBinTableBytes = 2048;
struct tsBinTableMsg {
    uint32_t Index;
    uint16_t Reserved;
    uint16_t TableLength;
    uint8_t Table[gnBinTableBytes];
};
inline constexpr tsAnswer ansBinTable{0x63, "Binning table", eItemBinTable, eWhole};
inline constexpr tsAnswer ansHorBinTable{0x80, "Horizontal binning table", eItemHorBinTable,
                                         eWhole};
inline constexpr tsCommand<tsBinTableMsg> cmdSetBinParam{0x25, "SetBinParam"};
inline constexpr tsCommand<tsWordMsg> cmdGetBinParam{0x33, "GetBinParam", &ansBinTable};
inline constexpr tsCommand<tsBinTableMsg> cmdSetHorBinParam{0x4F, "SetHorBinParam"};
inline constexpr tsCommand<tsWordMsg> cmdGetHorBinParam{0x5A, "GetHorBinParam", &ansHorBinTable};

inline constexpr int gnHalfMaskRowBytes = 512;
struct tsBinMaskMsg {
    uint8_t HalfRow[gnHalfMaskRowBytes]; // the first half of the columns of them are used
    uint16_t Row;
    uint16_t Half;     // 1 first, 2 second
    uint32_t Argument; // of an answer, the low 16 bits are read
};
struct tsBinMaskRequestMsg {
    uint16_t Row, Half;
};
inline constexpr tsAnswer ansBinMask{0x77, "Bin mask half-row", eItemBinMask, eHandled, 518};
inline constexpr tsCommand<tsBinMaskMsg> cmdSetBinMaskParam{0x43, "SetBinMaskParam"};
inline constexpr tsCommand<tsBinMaskRequestMsg> cmdGetBinMaskParam{0x44, "GetBinMaskParam",
                                                                   &ansBinMask};

inline constexpr int gnSequenceEntries = 16;
struct tsSetBinningSequenceMsg {
    uint32_t Entries;
    uint8_t Vertical[gnSequenceEntries], Horizontal[gnSequenceEntries];
};
struct tsBinningSequenceMsg {
    uint8_t Vertical[gnSequenceEntries], Horizontal[gnSequenceEntries];
    uint8_t Entries;
};
inline constexpr tsAnswer ansBinningSequence{0x83, "Binning sequence", eItemBinningSequence,
                                             eHandled, 33};
inline constexpr tsCommand<tsSetBinningSequenceMsg> cmdSetBinningSequence{0x50,
                                                                          "SetBinningSequence"};
inline constexpr tsCommand<tsNoPayload> cmdGetBinningSequence{0x29, "GetBinningSequence",
                                                              &ansBinningSequence};

struct tsSetSimpleBinningMsg {
    int32_t First, Second;
    float Third;
};
struct tsSimpleBinningMsg {
    int32_t First, Second;
    float Third, Fourth;
};
inline constexpr tsAnswer ansSimpleBinning{0x8C, "Simple binning", eItemSimpleBinning, eWhole,
                                           28,   eLeaveStatus};
inline constexpr tsCommand<tsSetSimpleBinningMsg> cmdSetSimpleBinning{0x15, "SetSimpleBinning"};
inline constexpr tsCommand<tsNoPayload> cmdGetSimpleBinning{0x16, "GetSimpleBinning",
                                                            &ansSimpleBinning};

// ---- Cooling and temperatures -----------------------------------------------------------------

inline constexpr tsAnswer ansCoolParam{0x61, "Cooling parameter", eItemCooling, eCopy, words(1)};
inline constexpr tsCommand<tsWordMsg> cmdSetCooling{0x21, "SetCooling"};
inline constexpr tsCommand<tsNoPayload> cmdGetCoolParam{0x31, "GetCoolParam", &ansCoolParam};

struct tsTargetTempMsg {
    int32_t TenthDegrees;
};
inline constexpr tsAnswer ansTargetTemp{0x7B, "CCD target temperature", eItemTargetTemp, eHandled,
                                        words(1)};
inline constexpr tsCommand<tsTargetTempMsg> cmdSetCCDTargetTemp{0x4D, "SetCCDTargetTemp"};
inline constexpr tsCommand<tsNoPayload> cmdGetCCDTargetTemp{0x4E, "GetCCDTargetTemp",
                                                            &ansTargetTemp};

inline constexpr tsCommand<tsWordMsg> cmdEnableFan{0x48, "EnableFan"};

inline constexpr tsAnswer ansPID{0x85, "PID", eItemPID, eCopy, words(3), eLeaveStatus};
inline constexpr tsCommand<tsSetPIDCmd> cmdSetPID{0x2C, "SetPID"};
inline constexpr tsCommand<tsNoPayload> cmdGetPID{0x2D, "GetPID", &ansPID};

// ---- Registers, converters and the camera itself ----------------------------------------------

struct tsOffsetMsg {
    uint16_t Offset, Flag;
};
inline constexpr tsAnswer ansAcknowledge{0x6A, "Acknowledgement", eItemAcknowledge, eCount};
inline constexpr tsCommand<tsOffsetMsg> cmdSetCCDOffset{0x3B, "SetCCDOffset", &ansAcknowledge};

struct tsWriteDACMsg {
    uint16_t Value;
    uint8_t Channel, Flag;
};
inline constexpr tsCommand<tsWriteDACMsg> cmdWriteDAC{0x28, "WriteDAC"};

struct tsRegisterMsg {
    uint32_t Address, Value;
};
inline constexpr tsAnswer ansRegister{0x70, "32-bit register value", eItemRegister, eCopy,
                                      words(1)};
inline constexpr tsCommand<tsRegisterMsg> cmdWrite32Data{0x27, "Write32Data"};
inline constexpr tsCommand<tsRegisterMsg> cmdRead32Data{0x38, "Read32Data", &ansRegister};

inline constexpr tsCommand<tsNoPayload> cmdCameraReset{0x22, "CameraReset"};
inline constexpr tsCommand<tsWordMsg> cmdClearCCD{0x23, "ClearCCD"};

// Answers that no command of this library asks for.
inline constexpr tsAnswer ansShort5{0x65, "16-bit value", eItemShort5, eCopy, 2};
inline constexpr tsAnswer ansShort10{0x71, "16-bit value", eItemShort10, eCopy, 2};
inline constexpr tsAnswer ansIgnored68{0x68, "Ignored", eItemNone, eIgnored};
inline constexpr tsAnswer ansIgnored82{0x82, "Ignored", eItemNone, eIgnored};

// ---- External trigger -------------------------------------------------------------------------

inline constexpr tsAnswer ansTrigger{0x7F, "Trigger", eItemTrigger, eCopy, words(1)};
inline constexpr tsCommand<tsWordMsg> cmdSetTrigger{0x58, "SetTrigger"};
inline constexpr tsCommand<tsNoPayload> cmdGetTrigger{0x59, "GetTrigger", &ansTrigger};

struct tsTriggerModeMsg {
    uint32_t Mode, First, Second; // Mode is a teExtTrigMode
};
inline constexpr tsAnswer ansTriggerMode{0x87, "Trigger mode", eItemTriggerMode, eCopy, words(3)};
inline constexpr tsCommand<tsTriggerModeMsg> cmdSetTriggerMode{0x5E, "SetTriggerMode"};
inline constexpr tsCommand<tsNoPayload> cmdGetTriggerMode{0x5F, "GetTriggerMode", &ansTriggerMode};

inline constexpr tsAnswer ansAutoTriggerReArm{0x8B,     "Auto trigger re-arm", eItemReArm, eCopy,
                                              words(1), eLeaveStatus};
inline constexpr tsCommand<tsWordMsg> cmdSetAutoTriggerReArm{0x17, "SetAutoTriggerReArm"};
inline constexpr tsCommand<tsNoPayload> cmdGetAutoTriggerReArm{0x18, "GetAutoTriggerReArm",
                                                               &ansAutoTriggerReArm};

// ---- Pins, gain, filters ----------------------------------------------------------------------

struct tsGPIOMsg {
    uint32_t Pin, State; // State is a tePinState
};
inline constexpr tsAnswer ansGPIO{0x7E, "GPIO state", eItemGPIO, eCopy, words(1), eLeaveStatus};
inline constexpr tsCommand<tsGPIOMsg> cmdSetGPIO{0x56, "SetGPIO"};
inline constexpr tsCommand<tsNoPayload> cmdGetGPIO{0x57, "GetGPIO", &ansGPIO};

struct tsGainConfigMsg {
    int32_t First;
    float Second;
    int32_t Third;
    uint32_t Reserved[3];
};
inline constexpr tsAnswer ansGainConfig{0x84, "Gain configuration", eItemGain, eWhole,
                                        36,   eLeaveStatus};
inline constexpr tsCommand<tsWordMsg> cmdSetGain{0x2A, "SetGain"};
inline constexpr tsCommand<tsNoPayload> cmdGetGainConfig{0x2B, "GetGainConfig", &ansGainConfig};

struct tsFilterMsg {
    uint32_t First, Second;
};
inline constexpr tsAnswer ansFilter{0x86, "Filter", eItemFilter, eHandled, words(2), eLeaveStatus};
inline constexpr tsCommand<tsFilterMsg> cmdSetFilter{0x2E, "SetFilter"};
inline constexpr tsCommand<tsNoPayload> cmdGetFilter{0x2F, "GetFilter", &ansFilter};

// ---- CIS sensors ------------------------------------------------------------------------------

inline constexpr tsAnswer ansCalibrationState{
    0x89, "CIS calibration state", eItemCalibration, eCopy, words(1), eLeaveStatus};
inline constexpr tsCommand<tsWordMsg> cmdCISSetShutterMode{0x1D, "CISSetShutterMode"};
inline constexpr tsCommand<tsWordMsg> cmdCISSelectChannel{0x1E, "CISSelectChannel"};
inline constexpr tsCommand<tsWordMsg> cmdCISCalibrate{0x1F, "CISCalibrate"};
inline constexpr tsCommand<tsNoPayload> cmdCISCalibrationState{0x1B, "CISCalibrationState",
                                                               &ansCalibrationState};

// ---- Recording, test pattern, intervals, mirroring, shearing ----------------------------------

inline constexpr tsCommand<tsRecordParams> cmdSetRecording{0x1C, "SetRecording"};

inline constexpr int gnTestPatternValues = 31;
struct tsTestPatternMsg {
    uint32_t Mode;
    uint16_t Values[gnTestPatternValues + 1];
};
inline constexpr tsCommand<tsTestPatternMsg> cmdSetTestPattern{0x5B, "SetTestPattern"};

struct tsImageIntervalsMsg {
    uint32_t Intervals[4];
};
inline constexpr tsAnswer ansImageIntervals{0x7A, "Image intervals", eItemIntervals, eCopy,
                                            words(4)};
inline constexpr tsCommand<tsWordMsg> cmdSetImageInterval{0x4A, "SetImageInterval"};
inline constexpr tsCommand<tsNoPayload> cmdGetImageIntervals{0x4B, "GetImageIntervals",
                                                             &ansImageIntervals};

struct tsMirroringMsg {
    uint32_t Horizontal, Vertical;
};
inline constexpr tsAnswer ansMirroring{0x7C, "Mirroring", eItemMirroring, eTwoWords, words(2)};
inline constexpr tsCommand<tsMirroringMsg> cmdSetCCDImageMirroring{0x51, "SetCCDImageMirroring"};
inline constexpr tsCommand<tsNoPayload> cmdGetCCDImageMirroring{0x52, "GetCCDImageMirroring",
                                                                &ansMirroring};

struct tsShearingMsg {
    uint32_t Words[4];
};
inline constexpr tsCommand<tsShearingMsg> cmdSetShearingParams{0x49, "SetShearingParams"};

// ---- Timing data, parameters ------------------------------------------------------------------

inline constexpr int gnTimingDataBytes = 4356;
struct tsTimingDataMsg {
    uint8_t Data[gnTimingDataBytes];
};
inline constexpr tsAnswer ansTimingData{0x7D, "Timing file", eItemTimingData, eCopy,
                                        gnTimingDataBytes};
inline constexpr tsCommand<tsTimingDataMsg> cmdSetTimingData{0x54, "SetTimingData"};
inline constexpr tsCommand<tsNoPayload> cmdGetTimingFileData{0x55, "GetTimingFileData",
                                                             &ansTimingData};

inline constexpr int gnParameterBytes = 2048;
struct tsSetParameterMsg {
    uint32_t Id;
    uint8_t Value[gnParameterBytes];
};
struct tsParameterMsg {
    uint32_t Id;
    int32_t Status;
    uint8_t Value[gnParameterBytes];
};
inline constexpr tsAnswer ansParameter{0x8D, "Parameter value", eItemParameter, eHandled,
                                       0,    eLeaveStatus};
inline constexpr tsCommand<tsSetParameterMsg> cmdSetParameter{0x13, "SetParameter", nullptr, 5};
inline constexpr tsCommand<tsWordMsg> cmdGetParameter{0x14, "GetParameter", &ansParameter};

// ---- Hardware and network information, noise, link test, no-ops -------------------------------

inline constexpr tsAnswer ansHardware{0x64, "Hardware info", eItemHardware, eHandled,
                                      sizeof(TVXCameraHardware)};
inline constexpr tsCommand<TVXCameraHardware> cmdSetCameraHardwareInfo{
    0x40, "SetCameraHardwareInfo", nullptr, 0};
inline constexpr tsCommand<tsNoPayload> cmdGetCameraHardwareInfo{0x34, "GetCameraHardwareInfo",
                                                                 &ansHardware};

struct tsNetworkConfigMsg {
    uint32_t Words[5];
    uint16_t Value;
    uint16_t Reserved;
};
inline constexpr tsAnswer ansNetworkConfig{0x76, "Network config", eItemNetwork, eCopy, 22};
inline constexpr tsCommand<tsNoPayload> cmdGetNetworkConfig{0x41, "GetNetworkConfig",
                                                            &ansNetworkConfig};
inline constexpr tsCommand<tsNetworkConfigMsg> cmdSetNetworkConfig{0x42, "SetNetworkConfig"};

struct tsNoiseMsg {
    float First, Second;
};
inline constexpr tsAnswer ansReadoutNoise{0x73, "Readout noise", eItemNoise, eTwoWords, words(2)};
inline constexpr tsCommand<tsNoPayload> cmdGetReadoutNoise{0x3E, "GetReadoutNoise",
                                                           &ansReadoutNoise};

inline constexpr int gnLinkTestBytes = 1024;
struct tsLinkTestMsg {
    uint16_t Answers; // wanted; of an answer: bytes received
    uint16_t DataLength;
    uint32_t Pattern;
    uint32_t Reserved;
    uint8_t Data[gnLinkTestBytes];
};
inline constexpr uint16_t gnLinkTestHeadBytes = 12;
inline constexpr tsAnswer ansLinkTest{0x74, "Link-test loopback", eItemLinkTest, eHandled};
inline constexpr tsCommand<tsLinkTestMsg> cmdSendLinkTestData{0x3F, "SendLinkTestData",
                                                              &ansLinkTest, gnLinkTestHeadBytes};

struct tsNoOpsMsg {
    uint32_t Count;
    uint32_t IntervalMs;
};
inline constexpr tsCommand<tsNoOpsMsg> cmdEnableNoOps{0x5D, "EnableNoOps"};

// ---- Readout ----------------------------------------------------------------------------------

struct tsReadAreaMsg {
    uint16_t FirstColumn, FirstRow, Columns, Rows, Frames, Flags;
};
struct tsReadBinnedMsg {
    uint16_t Frames, Mode;
    uint32_t Reserved[2];
};
struct tsReadMaskBinnedMsg {
    uint16_t Frames, Mode;
};

struct tsPixelData16Msg {
    tsMsgHeader header;
    uint8_t ImageType;
    uint8_t LastFrame; // non-zero on every packet of the readout's final frame
    uint16_t PacketNumber, TotalPackets;
    uint16_t Row, FirstColumn, LastColumn; // LastColumn is inclusive
    uint16_t Reserved;
    uint16_t Statistic;
    uint16_t Pixels[];
};
struct tsPixelData32Msg {
    tsMsgHeader header;
    uint8_t ImageType;
    uint8_t LastFrame;
    uint16_t PacketNumber, TotalPackets;
    uint16_t Row, FirstColumn, LastColumn;
    uint16_t Reserved;
    uint16_t Statistic; // the frame's maximum
    uint16_t Extra1, Extra2;
    uint32_t Pixels[];
};
struct tsPixelData8Msg {
    tsMsgHeader header;
    uint8_t ImageType;
    uint8_t LastFrame;
    uint16_t PacketNumber, TotalPackets;
    uint16_t Row, FirstColumn, LastColumn;
    uint16_t Reserved;
    uint16_t Statistic;
    uint8_t Pixels[];
};
static_assert(offsetof(tsPixelData16Msg, Statistic) == 26, "wire record");
static_assert(offsetof(tsPixelData16Msg, Pixels) == 28, "wire record");
static_assert(offsetof(tsPixelData8Msg, Pixels) == 28, "wire record");
static_assert(offsetof(tsPixelData32Msg, Extra1) == 28, "wire record");
static_assert(offsetof(tsPixelData32Msg, Pixels) == 32, "wire record");

// How many pixels of a size fit between an offset of the message and its end.
inline uint32_t PixelsCarried(const tsMsgHeader& header, uint32_t offset, uint32_t pixelBytes)
{
    const uint32_t bytes = header.Length + static_cast<uint32_t>(gnHeaderBytes);
    return bytes > offset ? (bytes - offset) / pixelBytes : 0;
}

inline constexpr tsAnswer ansPixels16{0x66, "16-bit pixel packet", eItemImage16, eEvent};
inline constexpr tsAnswer ansPixels32{0x67, "32-bit pixel packet", eItemImage32, eEvent};
inline constexpr tsAnswer ansPixels8{0x88, "8-bit pixel packet", eItemImage8, eEvent};
inline constexpr tsCommand<tsReadAreaMsg> cmdReadCCDArea{0x36, "ReadCCDArea", &ansPixels16};
inline constexpr tsCommand<tsReadBinnedMsg> cmdReadCCDBinned{0x37, "ReadCCDBinned", &ansPixels32};
inline constexpr tsCommand<tsReadMaskBinnedMsg> cmdReadCCDMaskBinned{0x45, "ReadCCDMaskBinned",
                                                                     &ansPixels32};
inline constexpr tsCommand<tsNoPayload> cmdAbortRead{0x4C, "AbortRead"};

// ---- Unasked messages -------------------------------------------------------------------------

struct tsCameraErrorMsg {
    uint8_t Code, SubCode; // a NUL-terminated text follows
};
inline constexpr tsAnswer ansHeartBeat{0x69, "Heartbeat", eItemNone, eEvent,
                                       sizeof(tsHeartBeatData)};
inline constexpr tsAnswer ansCameraError{0x75, "Camera error", eItemNone, eEvent};

// ---- A message of any kind --------------------------------------------------------------------

template <class Payload>
struct tsFramed {
    tsMsgHeader header;
    Payload payload;
};

// Room for the largest message, under the name of any payload.
union tuCameraMessages {
    tsMsgHeader header;
    uint8_t bytes[gnLargestMessage];
    tsPixelData16Msg Pixels16;
    tsPixelData32Msg Pixels32;
    tsPixelData8Msg Pixels8;
    tsFramed<tsWordMsg> Word;
    tsFramed<tsShutterParamsMsg> ShutterParams;
    tsFramed<tsShutterOverrideMsg> ShutterOverride;
    tsFramed<tsAreaMsg> Area;
    tsFramed<tsSetAreaExMsg> SetAreaEx;
    tsFramed<tsAreaExMsg> AreaEx;
    tsFramed<tsBinTableMsg> BinTable;
    tsFramed<tsBinMaskMsg> BinMask;
    tsFramed<tsBinMaskRequestMsg> BinMaskRequest;
    tsFramed<tsSetBinningSequenceMsg> SetBinningSequence;
    tsFramed<tsBinningSequenceMsg> BinningSequence;
    tsFramed<tsSetSimpleBinningMsg> SetSimpleBinning;
    tsFramed<tsSimpleBinningMsg> SimpleBinning;
    tsFramed<tsTargetTempMsg> TargetTemp;
    tsFramed<tsSetPIDCmd> PID;
    tsFramed<tsOffsetMsg> Offset;
    tsFramed<tsWriteDACMsg> WriteDAC;
    tsFramed<tsRegisterMsg> Register;
    tsFramed<tsTriggerModeMsg> TriggerMode;
    tsFramed<tsGPIOMsg> GPIO;
    tsFramed<tsGainConfigMsg> GainConfig;
    tsFramed<tsFilterMsg> Filter;
    tsFramed<tsRecordParams> Recording;
    tsFramed<tsTestPatternMsg> TestPattern;
    tsFramed<tsImageIntervalsMsg> ImageIntervals;
    tsFramed<tsMirroringMsg> Mirroring;
    tsFramed<tsShearingMsg> Shearing;
    tsFramed<tsTimingDataMsg> TimingData;
    tsFramed<tsSetParameterMsg> SetParameter;
    tsFramed<tsParameterMsg> Parameter;
    tsFramed<TVXCameraHardware> Hardware;
    tsFramed<tsNetworkConfigMsg> NetworkConfig;
    tsFramed<tsNoiseMsg> Noise;
    tsFramed<tsLinkTestMsg> LinkTest;
    tsFramed<tsNoOpsMsg> NoOps;
    tsFramed<tsReadAreaMsg> ReadArea;
    tsFramed<tsReadBinnedMsg> ReadBinned;
    tsFramed<tsReadMaskBinnedMsg> ReadMaskBinned;
    tsFramed<tsCameraErrorMsg> CameraError;
    tsFramed<tsHeartBeatData> HeartBeat;
};
static_assert(sizeof(tuCameraMessages) == gnLargestMessage, "wire record");

#pragma pack(pop)
#pragma GCC diagnostic pop

static_assert(sizeof(tsAreaExMsg) == 258, "wire record");
static_assert(offsetof(tsAreaExMsg, RegionCount) == 1, "wire record");
static_assert(sizeof(tsBinTableMsg) == 2056 && sizeof(tsBinMaskMsg) == 520, "wire record");
static_assert(sizeof(tsSetBinningSequenceMsg) == 36, "wire record");
static_assert(sizeof(tsTestPatternMsg) == 68 && sizeof(tsNetworkConfigMsg) == 24, "wire record");
static_assert(sizeof(tsReadBinnedMsg) == 12 && sizeof(tsGainConfigMsg) == 24, "wire record");

// ---- All rows ---------------------------------------------------------------------------------

inline constexpr tsCommandRow gaCommands[] = {cmdGetExposureTimeEx.Row(),
                                              cmdSetExposureEx.Row(),
                                              cmdSetParameter.Row(),
                                              cmdGetParameter.Row(),
                                              cmdSetSimpleBinning.Row(),
                                              cmdGetSimpleBinning.Row(),
                                              cmdSetAutoTriggerReArm.Row(),
                                              cmdGetAutoTriggerReArm.Row(),
                                              cmdGetAreaEx.Row(),
                                              cmdSetAreaEx.Row(),
                                              cmdCISCalibrationState.Row(),
                                              cmdSetRecording.Row(),
                                              cmdCISSetShutterMode.Row(),
                                              cmdCISSelectChannel.Row(),
                                              cmdCISCalibrate.Row(),
                                              cmdSetExposure.Row(),
                                              cmdSetCooling.Row(),
                                              cmdCameraReset.Row(),
                                              cmdClearCCD.Row(),
                                              cmdSetCCDArea.Row(),
                                              cmdSetBinParam.Row(),
                                              cmdWrite32Data.Row(),
                                              cmdWriteDAC.Row(),
                                              cmdGetBinningSequence.Row(),
                                              cmdSetGain.Row(),
                                              cmdGetGainConfig.Row(),
                                              cmdSetPID.Row(),
                                              cmdGetPID.Row(),
                                              cmdSetFilter.Row(),
                                              cmdGetFilter.Row(),
                                              cmdGetExposureTime.Row(),
                                              cmdGetCoolParam.Row(),
                                              cmdGetBinParam.Row(),
                                              cmdGetCameraHardwareInfo.Row(),
                                              cmdReadCCDArea.Row(),
                                              cmdReadCCDBinned.Row(),
                                              cmdRead32Data.Row(),
                                              cmdSetCCDOffset.Row(),
                                              cmdGetReadoutNoise.Row(),
                                              cmdSendLinkTestData.Row(),
                                              cmdSetCameraHardwareInfo.Row(),
                                              cmdGetNetworkConfig.Row(),
                                              cmdSetNetworkConfig.Row(),
                                              cmdSetBinMaskParam.Row(),
                                              cmdGetBinMaskParam.Row(),
                                              cmdReadCCDMaskBinned.Row(),
                                              cmdSetShutterParams.Row(),
                                              cmdGetShutterParams.Row(),
                                              cmdEnableFan.Row(),
                                              cmdSetShearingParams.Row(),
                                              cmdSetImageInterval.Row(),
                                              cmdGetImageIntervals.Row(),
                                              cmdAbortRead.Row(),
                                              cmdSetCCDTargetTemp.Row(),
                                              cmdGetCCDTargetTemp.Row(),
                                              cmdSetHorBinParam.Row(),
                                              cmdSetBinningSequence.Row(),
                                              cmdSetCCDImageMirroring.Row(),
                                              cmdGetCCDImageMirroring.Row(),
                                              cmdSetShutterOverride.Row(),
                                              cmdSetTimingData.Row(),
                                              cmdGetTimingFileData.Row(),
                                              cmdSetGPIO.Row(),
                                              cmdGetGPIO.Row(),
                                              cmdSetTrigger.Row(),
                                              cmdGetTrigger.Row(),
                                              cmdGetHorBinParam.Row(),
                                              cmdSetTestPattern.Row(),
                                              cmdEnableNoOps.Row(),
                                              cmdSetTriggerMode.Row(),
                                              cmdGetTriggerMode.Row()};

inline constexpr const tsAnswer* gaAnswers[] = {&ansExposure,
                                                &ansCoolParam,
                                                &ansBinTable,
                                                &ansHardware,
                                                &ansShort5,
                                                &ansPixels16,
                                                &ansPixels32,
                                                &ansIgnored68,
                                                &ansHeartBeat,
                                                &ansAcknowledge,
                                                &ansRegister,
                                                &ansShort10,
                                                &ansReadoutNoise,
                                                &ansLinkTest,
                                                &ansCameraError,
                                                &ansNetworkConfig,
                                                &ansBinMask,
                                                &ansShutterParams,
                                                &ansImageIntervals,
                                                &ansTargetTemp,
                                                &ansMirroring,
                                                &ansTimingData,
                                                &ansGPIO,
                                                &ansTrigger,
                                                &ansHorBinTable,
                                                &ansIgnored82,
                                                &ansBinningSequence,
                                                &ansGainConfig,
                                                &ansPID,
                                                &ansFilter,
                                                &ansTriggerMode,
                                                &ansPixels8,
                                                &ansCalibrationState,
                                                &ansAreaEx,
                                                &ansAutoTriggerReArm,
                                                &ansSimpleBinning,
                                                &ansParameter};

// Rows by id: -1 where no message has it. Every id of this catalogue is below gnFirstUserDefinedId.
struct tsMessageIndex {
    int8_t maCommands[gnFirstUserDefinedId];
    int8_t maAnswers[gnFirstUserDefinedId];
    bool mbDistinct; // no id stands twice, neither as command nor as answer
};

constexpr tsMessageIndex MakeMessageIndex()
{
    tsMessageIndex index{};
    index.mbDistinct = true;
    for (uint32_t id = 0; id < gnFirstUserDefinedId; ++id) {
        index.maCommands[id] = index.maAnswers[id] = -1;
    }
    int8_t row = 0;
    for (const tsCommandRow& command : gaCommands) {
        if (index.maCommands[command.id] != -1) index.mbDistinct = false;
        index.maCommands[command.id] = row++;
    }
    row = 0;
    for (const tsAnswer* answer : gaAnswers) {
        if (index.maAnswers[answer->id] != -1 || index.maCommands[answer->id] != -1) {
            index.mbDistinct = false;
        }
        index.maAnswers[answer->id] = row++;
    }
    return index;
}
inline constexpr tsMessageIndex gtMessageIndex = MakeMessageIndex();
static_assert(gtMessageIndex.mbDistinct, "every message id stands once");

// The row of an id, or null. O(1).
constexpr const tsCommandRow* FindCommand(uint32_t id)
{
    if (id >= gnFirstUserDefinedId || gtMessageIndex.maCommands[id] < 0) return nullptr;
    return &gaCommands[gtMessageIndex.maCommands[id]];
}
constexpr const tsAnswer* FindAnswer(uint32_t id)
{
    if (id >= gnFirstUserDefinedId || gtMessageIndex.maAnswers[id] < 0) return nullptr;
    return gaAnswers[gtMessageIndex.maAnswers[id]];
}

#endif
