// The camera itself: its settings, what it makes of them, and its readout. Knows no sockets and no
// clock: whoever drives it tells the time.
#ifndef TCSIMCAMERA_H
#define TCSIMCAMERA_H

#include "tcSimCooler.h"
#include "tcSimPicture.h"
#include "tcSimReadout.h"
#include "vxmessages.h"

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

inline constexpr uint32_t gnSimLongestExposure = 86400000; // ms
inline constexpr uint32_t gnSimHighestGain = 7;
inline constexpr double gnSimLowGainChannel = 0.25; // of the high gain
inline constexpr double gnSimCalibrationTime = 2.0; // seconds of camera time
inline constexpr uint32_t gnSimPins = 32;
inline constexpr size_t gnSimRegisters = 4096; // addresses, and parameters, that hold a value
inline constexpr uint32_t gnSimVersion = 0x00010000;
inline constexpr int32_t gnSimColdestTarget = -1200, gnSimWarmestTarget = 500; // tenths of a degree

// Flags of the area readout; other bits are ignored.
inline constexpr uint16_t gnSimReadDark = 0x0001;  // the shutter stays closed
inline constexpr uint16_t gnSimReadBytes = 0x0008; // 8-bit packets: the pixels' upper halves

// Why the camera will not do something; empty when it does.
using tsSimRefusal = std::string;

// Parameters with a meaning of their own; all other ids hold whatever was written.
enum teSimParameter : uint32_t {
    eSimParameterVersion = 1,     // u32, read only
    eSimParameterSerial = 2,      // u32, read only
    eSimParameterName = 3,        // 32 bytes of text, read only
    eSimParameterTemperature = 4, // float, degrees Celsius, read only
    eSimParameterAmbient = 5,     // float, degrees Celsius, read only
    eSimParameterReadouts = 6     // u32, readouts started, read only
};
inline constexpr int32_t gnSimUnknownParameter = 1; // status of an answer

enum teSimCalibration : uint32_t { eSimUncalibrated, eSimCalibrating, eSimCalibrated };

// Groups of rows and columns that become one pixel each.
struct tsSimGrouping {
    std::vector<uint32_t> rowEnds, columnEnds;
};

// A readout that was accepted.
struct tsSimPlan {
    tsSimJob job;
    tsSimTiming timing;
    std::vector<tsSimGrouping> groupings; // of a binned readout: one for each frame, over and over
};

struct tsSimBinTable {
    uint16_t length = 0; // 0: not set
    std::array<uint8_t, gnBinTableBytes> bytes{};
    bool Used() const; // set, and with an end of a group somewhere
};

// What a reset brings back to the values given here.
struct tsSimSettings {
    uint32_t exposure = 1000; // ms
    tsShutterParamsMsg shutter{};
    tsShutterOverrideMsg shutterOverride{};
    std::optional<tsSimRegion> area; // none: the whole sensor
    tsAreaExMsg regions{};
    std::array<tsSimBinTable, gnBinTables> rowTables, columnTables;
    std::vector<uint8_t> mask; // rows x columns bins; empty until set
    uint32_t maskArgument = 0;
    tsBinningSequenceMsg sequence{};
    tsSimpleBinningMsg simpleBinning{};
    uint32_t cooling = 0, fan = 1;
    tsSetPIDCmd pid{10.0f, 0.5f, 0.1f};
    tsOffsetMsg offset{gnSimOffset, 0};
    std::array<tsWriteDACMsg, 256> converters{};
    std::map<uint32_t, uint32_t> registers;
    uint32_t trigger = 0, autoReArm = 1;
    tsTriggerModeMsg triggerMode{};
    uint32_t pins = 0;
    uint32_t gain = 0;
    tsFilterMsg filter{};
    uint32_t shutterMode = 0, channel = 0;
    double calibrationDone = -1; // time; negative: never started
    tsRecordParams recording{};
    tsTestPatternMsg testPattern{};
    uint32_t interval = 0; // ms
    tsMirroringMsg mirroring{};
    tsShearingMsg shearing{};
    tsTimingDataMsg timingData{};
    std::map<uint32_t, std::vector<uint8_t>> parameters;
    tsNetworkConfigMsg network{{0x0100007F, 0x000000FF, 0, 0x00000002, 0}, 0, 0};
};

struct tsSimIdentity {
    uint16_t rows = 0, columns = 0;
    uint32_t serial = 0;
    std::string name;
    uint64_t seed = 0;
    double ambient = 20.0;
};

// Setters return why a value is refused, and then change nothing; getters that are asked for
// something that does not exist return nothing.
//
// Threads: one.
// Owns: the settings, the cooler and the readout.
class tcSimCamera
{
public:
    explicit tcSimCamera(const tsSimIdentity& identity);

    // Seconds of camera time; never runs backwards.
    void SetTime(double now);
    double Time() const { return mnNow; }

    // What comes next is as the values say. The ambient temperature becomes that of this moment.
    void Tune(const tsSimTunables& tunables);

    // Settings as at power-up; the sensor keeps its temperature, a readout ends.
    void Reset();

    void FailCooler() { mtCooler.Fail(mnNow); }
    void RepairCooler() { mtCooler.Repair(mnNow); }

    // As built, of another identity perhaps; the count of readouts goes on.
    void PowerUp(const tsSimIdentity& identity);

    // ---- readouts (plan.cpp)
    tsSimRefusal PlanArea(const tsReadAreaMsg& request, tsSimPlan* plan) const;
    tsSimRefusal PlanBinned(const tsReadBinnedMsg& request, tsSimPlan* plan) const;
    tsSimRefusal PlanMaskBinned(const tsReadMaskBinnedMsg& request, tsSimPlan* plan) const;
    // False while a readout is running.
    bool StartReadout(const tsSimPlan& plan);
    // The picture of a frame under the circumstances of this moment.
    tsSimJob JobOf(const tsSimPlan& plan, uint32_t frame) const;
    tcSimReadout& Readout() { return mtReadout; }
    uint32_t Readouts() const { return mnReadouts; }

    double Temperature() const { return mtCooler.Temperature(mnNow); }
    tsHeartBeatData HeartBeat() const;

    // ---- settings that are one message (settings.cpp), in catalogue order
    tsSimRefusal SetExposure(const tsWordMsg& message);
    tsWordMsg GetExposure() const { return {mtSettings.exposure}; }
    tsSimRefusal SetShutterParams(const tsShutterParamsMsg& message);
    tsShutterParamsMsg GetShutterParams() const { return mtSettings.shutter; }
    tsSimRefusal SetShutterOverride(const tsShutterOverrideMsg& message);
    tsSimRefusal SetCooling(const tsWordMsg& message);
    tsWordMsg GetCoolParam() const { return {mtSettings.cooling}; }
    tsSimRefusal SetTargetTemp(const tsTargetTempMsg& message);
    tsTargetTempMsg GetTargetTemp() const;
    tsSimRefusal EnableFan(const tsWordMsg& message);
    tsSimRefusal SetPID(const tsSetPIDCmd& message);
    tsSetPIDCmd GetPID() const { return mtSettings.pid; }
    tsSimRefusal SetOffset(const tsOffsetMsg& message);
    tsSimRefusal WriteDAC(const tsWriteDACMsg& message);
    tsSimRefusal WriteRegister(const tsRegisterMsg& message);
    tsWordMsg ReadRegister(const tsRegisterMsg& message) const;
    tsSimRefusal ClearSensor(const tsWordMsg& message);
    tsSimRefusal SetTrigger(const tsWordMsg& message);
    tsWordMsg GetTrigger() const { return {mtSettings.trigger}; }
    tsSimRefusal SetTriggerMode(const tsTriggerModeMsg& message);
    tsTriggerModeMsg GetTriggerMode() const { return mtSettings.triggerMode; }
    tsSimRefusal SetAutoReArm(const tsWordMsg& message);
    tsWordMsg GetAutoReArm() const { return {mtSettings.autoReArm}; }
    tsSimRefusal SetGPIO(const tsGPIOMsg& message);
    tsWordMsg GetGPIO() const { return {mtSettings.pins}; }
    tsSimRefusal SetGain(const tsWordMsg& message);
    tsGainConfigMsg GetGainConfig() const;
    tsSimRefusal SetFilter(const tsFilterMsg& message);
    tsFilterMsg GetFilter() const { return mtSettings.filter; }
    tsSimRefusal SetShutterMode(const tsWordMsg& message);
    tsSimRefusal SelectChannel(const tsWordMsg& message);
    tsSimRefusal Calibrate(const tsWordMsg& message);
    tsWordMsg GetCalibrationState() const;
    tsSimRefusal SetRecording(const tsRecordParams& message);
    tsSimRefusal SetTestPattern(const tsTestPatternMsg& message);
    tsSimRefusal SetImageInterval(const tsWordMsg& message);
    tsImageIntervalsMsg GetImageIntervals() const;
    tsSimRefusal SetMirroring(const tsMirroringMsg& message);
    tsMirroringMsg GetMirroring() const { return mtSettings.mirroring; }
    tsSimRefusal SetShearing(const tsShearingMsg& message);
    tsSimRefusal SetNetworkConfig(const tsNetworkConfigMsg& message);
    tsNetworkConfigMsg GetNetworkConfig() const { return mtSettings.network; }
    tsNoiseMsg GetReadoutNoise() const;

    // ---- settings of many bytes (tables.cpp)
    tsSimRefusal SetArea(const tsAreaMsg& message);
    tsSimRefusal SetRegions(const tsSetAreaExMsg& message);
    tsAreaExMsg GetRegions() const { return mtSettings.regions; }
    tsSimRefusal SetRowTable(const tsBinTableMsg& message);
    std::optional<tsBinTableMsg> GetRowTable(const tsWordMsg& message) const;
    tsSimRefusal SetColumnTable(const tsBinTableMsg& message);
    std::optional<tsBinTableMsg> GetColumnTable(const tsWordMsg& message) const;
    tsSimRefusal SetMask(const tsBinMaskMsg& message);
    std::optional<tsBinMaskMsg> GetMask(const tsBinMaskRequestMsg& message) const;
    tsSimRefusal SetSequence(const tsSetBinningSequenceMsg& message);
    tsBinningSequenceMsg GetSequence() const { return mtSettings.sequence; }
    tsSimRefusal SetSimpleBinning(const tsSetSimpleBinningMsg& message);
    tsSimpleBinningMsg GetSimpleBinning() const { return mtSettings.simpleBinning; }
    tsSimRefusal SetTimingData(const tsTimingDataMsg& message);
    tsTimingDataMsg GetTimingData() const { return mtSettings.timingData; }
    tsSimRefusal SetParameter(const tsSetParameterMsg& message, uint16_t length);
    std::vector<uint8_t> GetParameter(const tsWordMsg& message) const; // a whole payload
    tsSimRefusal SetHardware(const TVXCameraHardware& message, uint16_t length);
    TVXCameraHardware GetHardware() const { return mtHardware; }

private:
    struct tsHalfRow {
        size_t start, bytes;
    };

    // How far the stars have drifted at a time.
    struct tsField {
        double rows = 0, columns = 0, time = 0;
    };

    tsField FieldAt(double time) const;
    tsSimOptics OpticsOf(double exposure, uint64_t noiseKey) const;
    tsHalfRow HalfRow(uint32_t row, uint32_t half) const;
    tsSimRefusal Finish(tsSimPlan* plan, uint16_t frames) const;
    void SetConditions(tsSimConditions* conditions) const;
    std::vector<tsSimGrouping> Groupings(uint16_t table) const;
    bool Inside(const tsSimRegion& region) const;
    tsSimRefusal SetTable(const tsBinTableMsg& message, uint32_t limit,
                          std::array<tsSimBinTable, gnBinTables>* tables);
    std::optional<std::vector<uint8_t>> ParameterValue(uint32_t id) const;
    void Identify();

    tsSimIdentity mtIdentity;
    tsSimSettings mtSettings;
    TVXCameraHardware mtHardware{};
    tcSimCooler mtCooler;
    tcSimReadout mtReadout;
    tsSimTunables mtTunables;
    tsField mtField;
    double mnNow = 0;
    uint32_t mnReadouts = 0;
};

#endif
