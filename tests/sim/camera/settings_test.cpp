// Every command over a connection: what is set reads back, what is impossible is refused.
#include "SimClient.h"
#include "settings_support.h"

#include <algorithm>

namespace {

// A setter and a getter of one record each; the values are compared byte by byte.
template <class Set, class Get>
void ReadsBack(tcSimTestClient& client, const tsCommand<Set>& set, const Set& value,
               const tsCommand<tsNoPayload>& get)
{
    client.SendCommand(set, value);
    client.SendCommand(get);
    const tsReceived answer = client.Await(get.answer->id);
    const Get read = answer.template As<Get>();
    EXPECT_GE(answer.payload.size(), sizeof(Get)) << set.name;
    EXPECT_EQ(std::memcmp(&read, &value, std::min(sizeof(Get), sizeof(Set))), 0) << set.name;
}

std::vector<uint8_t> Counted(size_t size)
{
    std::vector<uint8_t> bytes(size);
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<uint8_t>(i * 7 + 1);
    }
    return bytes;
}

} // namespace

TEST_F(SimSettings, AcceptsEveryCommandWithItsLengthAndRefusesAllOthers)
{
    for (const tsCommandRow& row : gaCommands) {
        auto protocolErrors = [&](int length) {
            if (length < 0 || length > gnLargestMessage - gnHeaderBytes) return 1;
            mtClient.Send(row.id, std::vector<uint8_t>(static_cast<size_t>(length)));
            mtClient.Send(cmdCameraReset.id);
            int errors = 0;
            for (const tsReceived& message : mtClient.Settle()) {
                if (message.id != ansCameraError.id || message.payload[0] != 1) continue;
                EXPECT_EQ(message.payload[1], 2) << row.name;
                ++errors;
            }
            return errors;
        };
        EXPECT_EQ(protocolErrors(row.longest), 0) << row.name;
        EXPECT_EQ(protocolErrors(row.shortest), 0) << row.name;
        EXPECT_EQ(protocolErrors(row.longest + 1), 1) << row.name;
        EXPECT_EQ(protocolErrors(row.shortest - 1), 1) << row.name;
    }
    EXPECT_EQ(mtServer.Statistics().protocolErrors,
              2 * std::size(gaCommands) -
                  static_cast<size_t>(std::count_if(std::begin(gaCommands), std::end(gaCommands),
                                                    [](auto& row) { return row.shortest == 0; })));
}

TEST_F(SimSettings, AnswersEveryCommandThatHasAnAnswer)
{
    for (const tsCommandRow& row : gaCommands) {
        if (!row.answer || row.answer == &ansPixels16 || row.answer == &ansPixels32) continue;
        if (row.id == cmdSendLinkTestData.id) continue; // none wanted by zeros
        std::vector<uint8_t> payload(row.longest);
        if (row.id == cmdGetBinMaskParam.id) payload[2] = 1;
        mtClient.Send(row.id, payload);
        const std::vector<tsReceived> messages = mtClient.Settle();
        ASSERT_EQ(messages.size(), 1u) << row.name;
        EXPECT_EQ(messages[0].id, row.answer->id) << row.name;
        EXPECT_EQ(messages[0].version, 3);
    }
}

TEST_F(SimSettings, ReadBackWhatWasSet)
{
    ReadsBack<tsWordMsg, tsWordMsg>(mtClient, cmdSetExposure, {1234}, cmdGetExposureTime);
    ReadsBack<tsWordMsg, tsWordMsg>(mtClient, cmdSetExposureEx, {4321}, cmdGetExposureTimeEx);
    ReadsBack<tsWordMsg, tsWordMsg>(mtClient, cmdSetExposureEx, {99}, cmdGetExposureTime);
    ReadsBack<tsShutterParamsMsg, tsShutterParamsMsg>(mtClient, cmdSetShutterParams, {1, 2, 3},
                                                      cmdGetShutterParams);
    ReadsBack<tsWordMsg, tsWordMsg>(mtClient, cmdSetCooling, {1}, cmdGetCoolParam);
    ReadsBack<tsTargetTempMsg, tsTargetTempMsg>(mtClient, cmdSetCCDTargetTemp, {-405},
                                                cmdGetCCDTargetTemp);
    ReadsBack<tsSetPIDCmd, tsSetPIDCmd>(mtClient, cmdSetPID, {1.5f, -2.0f, 0.25f}, cmdGetPID);
    ReadsBack<tsWordMsg, tsWordMsg>(mtClient, cmdSetTrigger, {1}, cmdGetTrigger);
    ReadsBack<tsTriggerModeMsg, tsTriggerModeMsg>(mtClient, cmdSetTriggerMode, {2, 30, 40},
                                                  cmdGetTriggerMode);
    ReadsBack<tsWordMsg, tsWordMsg>(mtClient, cmdSetAutoTriggerReArm, {0}, cmdGetAutoTriggerReArm);
    ReadsBack<tsFilterMsg, tsFilterMsg>(mtClient, cmdSetFilter, {1, 0}, cmdGetFilter);
    ReadsBack<tsMirroringMsg, tsMirroringMsg>(mtClient, cmdSetCCDImageMirroring, {1, 1},
                                              cmdGetCCDImageMirroring);
    ReadsBack<tsNetworkConfigMsg, tsNetworkConfigMsg>(
        mtClient, cmdSetNetworkConfig, {{10, 20, 30, 40, 50}, 60, 0}, cmdGetNetworkConfig);
    ReadsBack<tsSetSimpleBinningMsg, tsSimpleBinningMsg>(mtClient, cmdSetSimpleBinning,
                                                         {2, 3, 0.5f}, cmdGetSimpleBinning);
    tsTimingDataMsg timing;
    const std::vector<uint8_t> bytes = Counted(sizeof timing);
    std::memcpy(&timing, bytes.data(), sizeof timing);
    ReadsBack<tsTimingDataMsg, tsTimingDataMsg>(mtClient, cmdSetTimingData, timing,
                                                cmdGetTimingFileData);
    EXPECT_TRUE(Errors().empty());
}

TEST_F(SimSettings, AcceptSettersThatHaveNoGetter)
{
    mtClient.SendCommand(cmdSetShutterOverride, {0, 0});
    mtClient.SendCommand(cmdEnableFan, {0});
    mtClient.SendCommand(cmdWriteDAC, {4000, 255, 1});
    mtClient.SendCommand(cmdSetShearingParams, {{1, 2, 3, 4}});
    mtClient.SendCommand(cmdClearCCD, {2});
    mtClient.SendCommand(cmdSetRecording, {});
    mtClient.SendCommand(cmdCISSetShutterMode, {eCISShutterGlobal});
    mtClient.SendCommand(cmdCISSelectChannel, {eCISChannelBoth});
    EXPECT_TRUE(Errors().empty());
}

TEST_F(SimSettings, KeepParametersUnderAnyFreeId)
{
    std::vector<uint8_t> value = Counted(gnParameterBytes);
    std::vector<uint8_t> message{0x00, 0x01, 0x00, 0x00};
    message.insert(message.end(), value.begin(), value.end());
    mtClient.Send(cmdSetParameter.id, message);
    mtClient.SendCommand(cmdGetParameter, {256});
    tsReceived answer = mtClient.Await(ansParameter.id);
    ASSERT_EQ(answer.payload.size(), 8 + value.size());
    EXPECT_EQ(answer.As<tsParameterMsg>().Id, 256u);
    EXPECT_EQ(answer.As<tsParameterMsg>().Status, 0);
    EXPECT_TRUE(std::equal(value.begin(), value.end(), answer.payload.begin() + 8));
    mtClient.Send(cmdSetParameter.id, {0x00, 0x01, 0x00, 0x00, 42});
    mtClient.SendCommand(cmdGetParameter, {256});
    EXPECT_EQ(mtClient.Await(ansParameter.id).payload.size(), 9u);
    mtClient.SendCommand(cmdGetParameter, {257});
    answer = mtClient.Await(ansParameter.id);
    EXPECT_EQ(answer.payload.size(), 8u);
    EXPECT_NE(answer.As<tsParameterMsg>().Status, 0);
}

TEST_F(SimSettings, TellTheDocumentedParameters)
{
    auto parameter = [&](uint32_t id) {
        mtClient.SendCommand(cmdGetParameter, {id});
        return mtClient.Await(ansParameter.id);
    };
    uint32_t serial = 0;
    std::memcpy(&serial, parameter(2).payload.data() + 8, 4);
    EXPECT_EQ(serial, 4711u);
    EXPECT_STREQ(reinterpret_cast<const char*>(parameter(3).payload.data() + 8), "vxcamsim");
    float ambient = 0;
    std::memcpy(&ambient, parameter(5).payload.data() + 8, 4);
    EXPECT_EQ(ambient, 20.0f);
    for (uint32_t id : {1u, 2u, 4u, 5u, 6u}) {
        EXPECT_EQ(parameter(id).payload.size(), 12u) << id;
    }
    mtClient.Send(cmdSetParameter.id, {2, 0, 0, 0, 9});
    EXPECT_EQ(Errors(), Refused(cmdSetParameter.id));
}

TEST_F(SimSettings, KeepRegistersPinsGainAndIntervals)
{
    mtClient.SendCommand(cmdWrite32Data, {0xFFFF0000, 0xDEADBEEF});
    EXPECT_EQ(mtClient.Ask<tsWordMsg>(cmdRead32Data, {0xFFFF0000, 0}).Value, 0xDEADBEEF);
    EXPECT_EQ(mtClient.Ask<tsWordMsg>(cmdRead32Data, {4, 0}).Value, 0u);
    mtClient.SendCommand(cmdSetGPIO, {31, ePinHigh});
    mtClient.SendCommand(cmdSetGPIO, {0, ePinHigh});
    mtClient.SendCommand(cmdSetGPIO, {31, ePinLow});
    EXPECT_EQ(mtClient.Ask<tsWordMsg>(cmdGetGPIO).Value, 1u);
    mtClient.SendCommand(cmdSetGPIO, {32, ePinHigh});
    EXPECT_EQ(Errors(), Refused(cmdSetGPIO.id));
    mtClient.SendCommand(cmdSetGain, {3});
    auto gain = mtClient.Ask<tsGainConfigMsg>(cmdGetGainConfig);
    EXPECT_EQ(gain.First, 3);
    EXPECT_EQ(gain.Second, 0.25f);
    EXPECT_EQ(gain.Third, 7);
    EXPECT_EQ(mtClient.Ask<tsNoiseMsg>(cmdGetReadoutNoise).Second, 24.0f);
    mtClient.SendCommand(cmdSetGain, {8});
    EXPECT_EQ(Errors(), Refused(cmdSetGain.id));
    mtClient.SendCommand(cmdSetImageInterval, {2500});
    auto intervals = mtClient.Ask<tsImageIntervalsMsg>(cmdGetImageIntervals);
    EXPECT_EQ(intervals.Intervals[0], 2500u);
    EXPECT_EQ(intervals.Intervals[1], 0u);
}

TEST_F(SimSettings, AcknowledgeTheOffset)
{
    mtClient.SendCommand(cmdSetCCDOffset, {500, 1});
    EXPECT_EQ(mtClient.Await(ansAcknowledge.id).payload.size(), 0u);
}

TEST_F(SimSettings, DescribeTheCamera)
{
    auto hardware = mtClient.Ask<TVXCameraHardware>(cmdGetCameraHardwareInfo);
    EXPECT_EQ(hardware.Rows, 40);
    EXPECT_EQ(hardware.Columns, 60);
    uint32_t serial = 0;
    std::memcpy(&serial, hardware.Reserved0, sizeof serial);
    EXPECT_EQ(serial, 4711u);
    EXPECT_STREQ(reinterpret_cast<const char*>(hardware.Reserved0 + 4), "vxcamsim");
    std::vector<uint8_t> bytes(100, 0xAB);
    mtClient.Send(cmdSetCameraHardwareInfo.id, bytes);
    hardware = mtClient.Ask<TVXCameraHardware>(cmdGetCameraHardwareInfo);
    EXPECT_EQ(hardware.Reserved48[51], 0xAB);
    EXPECT_EQ(hardware.Reserved0[4], 0xAB);
    EXPECT_EQ(hardware.Rows, 40) << "what the sensor is cannot be set";
    EXPECT_EQ(hardware.Columns, 60);
    mtClient.Send(cmdSetCameraHardwareInfo.id, {1, 2, 3, 4, 0xCD});
    hardware = mtClient.Ask<TVXCameraHardware>(cmdGetCameraHardwareInfo);
    EXPECT_EQ(hardware.Reserved0[4], 0xCD);
    EXPECT_EQ(hardware.Reserved0[5], 0xAB);
}

TEST_F(SimSettings, CalibrateInCameraTime)
{
    EXPECT_EQ(mtClient.Ask<tsWordMsg>(cmdCISCalibrationState).Value, 0u);
    mtClient.SendCommand(cmdCISCalibrate, {1});
    EXPECT_TRUE(
        Eventually([&] { return mtClient.Ask<tsWordMsg>(cmdCISCalibrationState).Value == 2; }));
    mtClient.SendCommand(cmdCISCalibrate, {0});
    EXPECT_EQ(mtClient.Ask<tsWordMsg>(cmdCISCalibrationState).Value, 0u);
}

TEST_F(SimSettings, RefuseWhatACameraCannotDo)
{
    mtClient.SendCommand(cmdSetExposure, {86400001});
    EXPECT_EQ(Errors(), Refused(cmdSetExposure.id));
    mtClient.SendCommand(cmdSetCCDTargetTemp, {-1201});
    EXPECT_EQ(Errors(), Refused(cmdSetCCDTargetTemp.id));
    mtClient.SendCommand(cmdSetTriggerMode, {4, 0, 0});
    EXPECT_EQ(Errors(), Refused(cmdSetTriggerMode.id));
    mtClient.SendCommand(cmdSetTestPattern, {7, {}});
    EXPECT_EQ(Errors(), Refused(cmdSetTestPattern.id));
    mtClient.SendCommand(cmdSetCCDArea, {0, 0, 61, 40, 0});
    EXPECT_EQ(Errors(), Refused(cmdSetCCDArea.id));
    mtClient.SendCommand(cmdSetSimpleBinning, {41, 1, 1.0f});
    EXPECT_EQ(Errors(), Refused(cmdSetSimpleBinning.id));
    mtClient.SendCommand(cmdCISSelectChannel, {3});
    EXPECT_EQ(Errors(), Refused(cmdCISSelectChannel.id));
    EXPECT_EQ(mtClient.Ask<tsWordMsg>(cmdGetExposureTime).Value, 1000u) << "and nothing changed";
}

TEST_F(SimSettings, AreBackAtTheirDefaultsAfterAReset)
{
    mtClient.SendCommand(cmdSetExposure, {5});
    mtClient.SendCommand(cmdSetGain, {5});
    mtClient.SendCommand(cmdSetSimpleBinning, {2, 2, 1.0f});
    mtClient.Send(cmdSetParameter.id, {0, 1, 0, 0, 1});
    mtClient.SendCommand(cmdCameraReset);
    EXPECT_EQ(mtClient.Ask<tsWordMsg>(cmdGetExposureTime).Value, 1000u);
    EXPECT_EQ(mtClient.Ask<tsGainConfigMsg>(cmdGetGainConfig).First, 0);
    EXPECT_EQ(mtClient.Ask<tsSimpleBinningMsg>(cmdGetSimpleBinning).First, 0);
    EXPECT_NE(mtClient.Ask<tsParameterMsg>(cmdGetParameter, {256}).Status, 0);
}

TEST_F(SimSettings, OutliveTheClientThatMadeThem)
{
    mtClient.SendCommand(cmdSetExposure, {777});
    mtClient.Close();
    tcSimTestClient next(mtServer.Port());
    EXPECT_EQ(next.Ask<tsWordMsg>(cmdGetExposureTime).Value, 777u);
}

TEST_F(SimSettings, LoopLinkTestsBackAsOftenAsAsked)
{
    tsLinkTestMsg test{};
    test.Answers = 5;
    test.DataLength = 100;
    test.Pattern = 3;
    const std::vector<uint8_t> data = Counted(100);
    std::copy(data.begin(), data.end(), test.Data);
    std::vector<uint8_t> payload(12 + 100);
    std::memcpy(payload.data(), &test, payload.size());
    mtClient.Send(cmdSendLinkTestData.id, payload);
    const auto answers = mtClient.Settle();
    ASSERT_EQ(answers.size(), 5u);
    for (const tsReceived& answer : answers) {
        EXPECT_EQ(answer.id, ansLinkTest.id);
        EXPECT_EQ(answer.payload.size(), 112u);
        EXPECT_EQ(answer.As<tsLinkTestMsg>().Answers, 100) << "bytes received";
        EXPECT_TRUE(std::equal(data.begin(), data.end(), answer.payload.begin() + 12));
    }
    payload[0] = 0;
    mtClient.Send(cmdSendLinkTestData.id, payload);
    EXPECT_TRUE(mtClient.Settle().empty()) << "no answer wanted";
    payload[2] = 99;
    mtClient.Send(cmdSendLinkTestData.id, payload);
    EXPECT_EQ(Errors(), Refused(cmdSendLinkTestData.id));
}

TEST_F(SimSettings, LoopTenThousandAnswersBack)
{
    std::vector<uint8_t> payload(12 + 1024);
    payload[0] = 0x10;
    payload[1] = 0x27;
    payload[3] = 4;
    mtClient.Send(cmdSendLinkTestData.id, payload);
    const auto answers = mtClient.Settle();
    ASSERT_EQ(answers.size(), 10000u);
    for (size_t i = 1; i < answers.size(); ++i) {
        ASSERT_EQ(answers[i].sequence, static_cast<uint8_t>(answers[i - 1].sequence + 1));
    }
}

TEST_F(SimSettings, EchoUserDefinedMessagesWhole)
{
    for (uint32_t id : {0xC0u, 0xFFu, 0x100u, 0xFFFFFFu}) {
        const std::vector<uint8_t> payload = Counted(id == 0xC0 ? 16404 : 17);
        mtClient.Send(id, payload);
        tsReceived echo = mtClient.Receive();
        EXPECT_EQ(echo.id, id);
        EXPECT_EQ(echo.payload, payload);
        EXPECT_EQ(echo.version, 3);
    }
}
