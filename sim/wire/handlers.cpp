// Which command does what. A function that takes a payload and returns a refusal is a setter; one
// that returns a payload is a getter, whose answer the command's row names.
#include "tcSimClient.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>

namespace {

struct tsHandler {
    uint32_t id;
    void (*call)(tcSimClient&, const tsSimRequest&);
};

// Missing bytes read as zero.
template <class Payload>
Payload PayloadOf(const tsSimRequest& request)
{
    Payload payload{};
    std::memcpy(&payload, request.payload, std::min<size_t>(request.length, sizeof payload));
    return payload;
}

template <class Command, class Payload>
void Apply(tcSimClient& client, const Command& command, const tsSimRequest& request,
           tsSimRefusal (tcSimCamera::*set)(const Payload&))
{
    tsSimRefusal refusal = (client.Camera().*set)(PayloadOf<Payload>(request));
    client.Judge(request, refusal);
    if (refusal.empty() && command.answer) client.Answer(*command.answer, nullptr, 0);
}

template <class Command, class Payload>
void Apply(tcSimClient& client, const Command&, const tsSimRequest& request,
           tsSimRefusal (tcSimCamera::*set)(const Payload&, uint16_t))
{
    client.Judge(request, (client.Camera().*set)(PayloadOf<Payload>(request), request.length));
}

template <class Command, class Answer>
void Apply(tcSimClient& client, const Command& command, const tsSimRequest&,
           Answer (tcSimCamera::*get)() const)
{
    const Answer answer = (client.Camera().*get)();
    client.Answer(*command.answer, &answer, sizeof answer);
}

template <class Command, class Payload, class Answer>
void Apply(tcSimClient& client, const Command& command, const tsSimRequest& request,
           Answer (tcSimCamera::*get)(const Payload&) const)
{
    const Answer answer = (client.Camera().*get)(PayloadOf<Payload>(request));
    client.Answer(*command.answer, &answer, sizeof answer);
}

template <class Command, class Payload, class Answer>
void Apply(tcSimClient& client, const Command& command, const tsSimRequest& request,
           std::optional<Answer> (tcSimCamera::*get)(const Payload&) const)
{
    const std::optional<Answer> answer = (client.Camera().*get)(PayloadOf<Payload>(request));
    if (answer)
        client.Answer(*command.answer, &*answer, sizeof *answer);
    else
        client.Judge(request, "there is no such table or row");
}

template <class Command, class Payload>
void Apply(tcSimClient& client, const Command& command, const tsSimRequest& request,
           std::vector<uint8_t> (tcSimCamera::*get)(const Payload&) const)
{
    const std::vector<uint8_t> answer = (client.Camera().*get)(PayloadOf<Payload>(request));
    client.Answer(*command.answer, answer.data(), answer.size());
}

template <class Command>
void Apply(tcSimClient& client, const Command&, const tsSimRequest& request,
           void (tcSimClient::*handle)(const tsSimRequest&))
{
    (client.*handle)(request);
}

template <const auto& Command, auto Function>
void Call(tcSimClient& client, const tsSimRequest& request)
{
    Apply(client, Command, request, Function);
}

template <const auto& Command, auto Function>
constexpr tsHandler On()
{
    return {Command.id, &Call<Command, Function>};
}

constexpr tsHandler gaHandlers[] = {
    On<cmdSetExposure, &tcSimCamera::SetExposure>(),
    On<cmdGetExposureTime, &tcSimCamera::GetExposure>(),
    On<cmdSetExposureEx, &tcSimCamera::SetExposure>(),
    On<cmdGetExposureTimeEx, &tcSimCamera::GetExposure>(),
    On<cmdSetShutterParams, &tcSimCamera::SetShutterParams>(),
    On<cmdGetShutterParams, &tcSimCamera::GetShutterParams>(),
    On<cmdSetShutterOverride, &tcSimCamera::SetShutterOverride>(),
    On<cmdSetCCDArea, &tcSimCamera::SetArea>(),
    On<cmdSetAreaEx, &tcSimCamera::SetRegions>(),
    On<cmdGetAreaEx, &tcSimCamera::GetRegions>(),
    On<cmdSetBinParam, &tcSimCamera::SetRowTable>(),
    On<cmdGetBinParam, &tcSimCamera::GetRowTable>(),
    On<cmdSetHorBinParam, &tcSimCamera::SetColumnTable>(),
    On<cmdGetHorBinParam, &tcSimCamera::GetColumnTable>(),
    On<cmdSetBinMaskParam, &tcSimCamera::SetMask>(),
    On<cmdGetBinMaskParam, &tcSimCamera::GetMask>(),
    On<cmdSetBinningSequence, &tcSimCamera::SetSequence>(),
    On<cmdGetBinningSequence, &tcSimCamera::GetSequence>(),
    On<cmdSetSimpleBinning, &tcSimCamera::SetSimpleBinning>(),
    On<cmdGetSimpleBinning, &tcSimCamera::GetSimpleBinning>(),
    On<cmdSetCooling, &tcSimCamera::SetCooling>(),
    On<cmdGetCoolParam, &tcSimCamera::GetCoolParam>(),
    On<cmdSetCCDTargetTemp, &tcSimCamera::SetTargetTemp>(),
    On<cmdGetCCDTargetTemp, &tcSimCamera::GetTargetTemp>(),
    On<cmdEnableFan, &tcSimCamera::EnableFan>(),
    On<cmdSetPID, &tcSimCamera::SetPID>(),
    On<cmdGetPID, &tcSimCamera::GetPID>(),
    On<cmdSetCCDOffset, &tcSimCamera::SetOffset>(),
    On<cmdWriteDAC, &tcSimCamera::WriteDAC>(),
    On<cmdWrite32Data, &tcSimCamera::WriteRegister>(),
    On<cmdRead32Data, &tcSimCamera::ReadRegister>(),
    On<cmdCameraReset, &tcSimClient::Reset>(),
    On<cmdClearCCD, &tcSimCamera::ClearSensor>(),
    On<cmdSetTrigger, &tcSimCamera::SetTrigger>(),
    On<cmdGetTrigger, &tcSimCamera::GetTrigger>(),
    On<cmdSetTriggerMode, &tcSimCamera::SetTriggerMode>(),
    On<cmdGetTriggerMode, &tcSimCamera::GetTriggerMode>(),
    On<cmdSetAutoTriggerReArm, &tcSimCamera::SetAutoReArm>(),
    On<cmdGetAutoTriggerReArm, &tcSimCamera::GetAutoReArm>(),
    On<cmdSetGPIO, &tcSimCamera::SetGPIO>(),
    On<cmdGetGPIO, &tcSimCamera::GetGPIO>(),
    On<cmdSetGain, &tcSimCamera::SetGain>(),
    On<cmdGetGainConfig, &tcSimCamera::GetGainConfig>(),
    On<cmdSetFilter, &tcSimCamera::SetFilter>(),
    On<cmdGetFilter, &tcSimCamera::GetFilter>(),
    On<cmdCISSetShutterMode, &tcSimCamera::SetShutterMode>(),
    On<cmdCISSelectChannel, &tcSimCamera::SelectChannel>(),
    On<cmdCISCalibrate, &tcSimCamera::Calibrate>(),
    On<cmdCISCalibrationState, &tcSimCamera::GetCalibrationState>(),
    On<cmdSetRecording, &tcSimCamera::SetRecording>(),
    On<cmdSetTestPattern, &tcSimCamera::SetTestPattern>(),
    On<cmdSetImageInterval, &tcSimCamera::SetImageInterval>(),
    On<cmdGetImageIntervals, &tcSimCamera::GetImageIntervals>(),
    On<cmdSetCCDImageMirroring, &tcSimCamera::SetMirroring>(),
    On<cmdGetCCDImageMirroring, &tcSimCamera::GetMirroring>(),
    On<cmdSetShearingParams, &tcSimCamera::SetShearing>(),
    On<cmdSetTimingData, &tcSimCamera::SetTimingData>(),
    On<cmdGetTimingFileData, &tcSimCamera::GetTimingData>(),
    On<cmdSetParameter, &tcSimCamera::SetParameter>(),
    On<cmdGetParameter, &tcSimCamera::GetParameter>(),
    On<cmdSetCameraHardwareInfo, &tcSimCamera::SetHardware>(),
    On<cmdGetCameraHardwareInfo, &tcSimCamera::GetHardware>(),
    On<cmdGetNetworkConfig, &tcSimCamera::GetNetworkConfig>(),
    On<cmdSetNetworkConfig, &tcSimCamera::SetNetworkConfig>(),
    On<cmdGetReadoutNoise, &tcSimCamera::GetReadoutNoise>(),
    On<cmdSendLinkTestData, &tcSimClient::TestLink>(),
    On<cmdEnableNoOps, &tcSimClient::EnableNoOps>(),
    On<cmdReadCCDArea, &tcSimClient::ReadArea>(),
    On<cmdReadCCDBinned, &tcSimClient::ReadBinned>(),
    On<cmdReadCCDMaskBinned, &tcSimClient::ReadMaskBinned>(),
    On<cmdAbortRead, &tcSimClient::AbortRead>(),
};

// By id: the handler's place in gaHandlers, -1 where there is none.
using tpIndex = std::array<int8_t, gnFirstUserDefinedId>;

constexpr tpIndex MakeIndex()
{
    tpIndex index{};
    for (int8_t& place : index) {
        place = -1;
    }
    int8_t place = 0;
    for (const tsHandler& handler : gaHandlers) {
        index[handler.id] = place++;
    }
    return index;
}
constexpr tpIndex gaIndex = MakeIndex();

constexpr bool EveryCommandOnce()
{
    for (const tsCommandRow& command : gaCommands) {
        if (gaIndex[command.id] < 0) return false;
    }
    return std::size(gaHandlers) == std::size(gaCommands);
}
static_assert(EveryCommandOnce(), "every command of the catalogue has one handler");

} // namespace

void HandleSimCommand(tcSimClient& client, const tsSimRequest& request)
{
    gaHandlers[gaIndex[request.id]].call(client, request);
}
