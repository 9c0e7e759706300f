// What the application asks of the camera: every operation, with arguments from the input.
#include "tcFuzzCamera.h"

void tcFuzzCamera::Ask()
{
    switch (mInput.U8() % 20) {
    case 0: {
        tcVariable<long> a;
        GetExposureTime(a);
        return;
    }
    case 1: {
        tcVariable<long> a;
        GetExposureTimeEx(a);
        return;
    }
    case 2: {
        tcVariable<long> a, b;
        tcVariable<int> c;
        GetShutterParams(a, b, c);
        return;
    }
    case 3: {
        tcVariable<long> a;
        GetShutterCloseDelay(a);
        return;
    }
    case 4: {
        tcVariable<int> a, b;
        tcVariable<float> c, d;
        GetSimpleBinning(a, b, c, d);
        return;
    }
    case 5: {
        tcVariable<int> a;
        GetCoolParam(a);
        return;
    }
    case 6: {
        tcVariable<float> a;
        GetCCDTargetTemp(a);
        return;
    }
    case 7: {
        tcVariable<tsSetPIDCmd> a;
        GetPID(a);
        return;
    }
    case 8: {
        tcVariable<unsigned long> a;
        Read32Data(mInput.U32(), a);
        return;
    }
    case 9: {
        tcVariable<int> a;
        GetTrigger(a);
        return;
    }
    case 10: {
        tcVariable<teExtTrigMode> a;
        tcVariable<int> b, c;
        GetTriggerMode(a, b, c);
        return;
    }
    case 11: {
        tcVariable<int> a;
        GetAutoTriggerReArm(a);
        return;
    }
    case 12:
        GetGPIO();
        return;
    case 13: {
        tcVariable<int> a, c;
        tcVariable<float> b;
        GetGainConfig(a, b, c);
        return;
    }
    case 14: {
        tcVariable<tsSetFilterCmd> a;
        GetFilter(a);
        return;
    }
    case 15: {
        tcVariable<int> a;
        CISCalibrationState(a);
        return;
    }
    case 16: {
        tcVariable<unsigned long> a, b, c, d;
        GetImageIntervals(a, b, c, d);
        return;
    }
    case 17: {
        tcVariable<unsigned> a, b;
        GetCCDImageMirroring(a, b);
        return;
    }
    case 18: {
        tcVariable<TVXNetworkConfig> a;
        GetNetworkConfig(a);
        return;
    }
    default: {
        tcVariable<float> a, b;
        GetReadoutNoise(a, b);
        return;
    }
    }
}

void tcFuzzCamera::AskForTables()
{
    switch (mInput.U8() % 8) {
    case 0: {
        const int room = mInput.U8() % 200;
        tcExact info(static_cast<size_t>(room == 0 ? 100 : room));
        tcVariable<int> size;
        *size = room;
        GetCameraHardwareInfo(info.As<TVXCameraHardware>(), size);
        return;
    }
    case 1: {
        const int room = mInput.U16() % 2100;
        tcExact table(static_cast<size_t>(room));
        tcVariable<int> size;
        *size = room;
        if ((mInput.U8() & 1) != 0) {
            GetBinParam(mInput.U8() % 9, table.As<unsigned char>(), size);
        } else {
            GetHorBinParam(mInput.U8() % 9, table.As<unsigned char>(), size);
        }
        return;
    }
    case 2: {
        tcExact a(16), b(16);
        tcVariable<unsigned char> entries;
        GetBinningSequence(a.As<unsigned char>(), b.As<unsigned char>(), entries);
        return;
    }
    case 3: {
        tcVariable<int> first, number;
        tcExact a(64), b(64), c(64), d(64);
        GetAreaEx(first, number, a.As<int>(), b.As<int>(), c.As<int>(), d.As<int>());
        return;
    }
    case 4: {
        tcExact data(4356);
        tcVariable<int> size;
        GetTimingFileData(data.As<void>(), size);
        return;
    }
    case 5: {
        const int size = mInput.U16() % 2060;
        tcExact value(static_cast<size_t>(size));
        GetParameter(mInput.U32(), value.As<void>(), size);
        return;
    }
    case 6: {
        // The size may change with each half row's answer: that of the beginning is asked for.
        if (mGeometry.rows == 0 || mGeometry.rows > 8 || mGeometry.columns > 4096) return;
        tcExact mask(mGeometry.Pixels() + 512);
        tcVariable<int> argument;
        GetBinMaskParam(mask.As<unsigned char>(), nullptr, argument);
        return;
    }
    default:
        SetCCDOffset(mInput.U16(), true);
    }
}

void tcFuzzCamera::Set()
{
    switch (mInput.U8() % 12) {
    case 0:
        SetShutterParams(mInput.U32(), mInput.U32(), 1);
        return;
    case 1:
        SetSimpleBinning(mInput.U16(), mInput.U16(), mInput.F32(), 1);
        return;
    case 2:
        SetCCDTargetTemp(mInput.F32());
        return;
    case 3:
        SetPID(mInput.F32(), mInput.F32(), 1);
        return;
    case 4:
        SetGain(static_cast<int32_t>(mInput.U32()));
        return;
    case 5:
        ClearCCD(static_cast<int32_t>(mInput.U32()), mInput.U8());
        return;
    case 6:
        SetTriggerMode(eExtTrigFrame, mInput.U16(), mInput.U16());
        return;
    case 7:
        SetGPIO(static_cast<int32_t>(mInput.U32()), ePinHigh);
        return;
    case 8: {
        tcVariable<tsSetFilterCmd> filter;
        SetFilter(filter);
        return;
    }
    case 9: {
        tcVariable<tsRecordParams> params;
        SetRecording(params, 0);
        return;
    }
    case 10: {
        tcVariable<TVXNetworkConfig> config;
        SetNetworkConfig(config);
        return;
    }
    default:
        CameraReset();
    }
}

void tcFuzzCamera::SetTables()
{
    switch (mInput.U8() % 8) {
    case 0:
    case 1: {
        const bool isRows = (mInput.U8() & 1) != 0;
        tcExact table(isRows ? mGeometry.rows : mGeometry.columns);
        const int index = mInput.U8() % 10 - 1;
        if (isRows) {
            SetBinParam(table.As<unsigned char>(), index);
        } else {
            SetHorBinParam(table.As<unsigned char>(), index);
        }
        return;
    }
    case 2: {
        const unsigned entries = mInput.U8() % 18;
        tcExact a(entries), b(entries);
        a.Fill(mInput);
        SetBinningSequence(a.As<unsigned char>(), b.As<unsigned char>(), entries);
        return;
    }
    case 3: {
        const int regions = mInput.U8() % 18;
        const size_t bytes = static_cast<size_t>(regions) * 4;
        tcExact a(bytes), b(bytes), c(bytes), d(bytes);
        for (tcExact* array : {&a, &b, &c, &d})
            array->Fill(mInput);
        SetAreaEx(regions, a.As<int>(), b.As<int>(), c.As<int>(), d.As<int>());
        return;
    }
    case 4: {
        const int values = mInput.U8() % 33;
        tcExact pattern(static_cast<size_t>(values) * 2);
        SetTestPattern(mInput.U8() % 8, pattern.As<unsigned short>(), values);
        return;
    }
    case 5: {
        const int size = mInput.U16() % 4400;
        tcExact data(static_cast<size_t>(size));
        SetTimingData(data.As<void>(), size);
        return;
    }
    case 6: {
        const int size = mInput.U16() % 2060;
        tcExact value(static_cast<size_t>(size));
        SetParameter(mInput.U32(), value.As<void>(), size);
        return;
    }
    default: {
        const int room = mInput.U8() % 110;
        tcExact info(static_cast<size_t>(room));
        tcVariable<int> size;
        *size = room;
        SetCameraHardwareInfo(info.As<TVXCameraHardware>(), size);
    }
    }
}

void tcFuzzCamera::TestLink()
{
    tsLinkTestCmd test{};
    test.Mode = mInput.U8() % 4;
    test.Pattern = mInput.U8() % 5;
    test.Count = 1 + mInput.U8() % 4;
    const size_t room = mInput.U16() % 1300;
    tcExact sent(room), received(room);
    test.DataLength = static_cast<uint32_t>(room);
    if ((mInput.U8() & 1) != 0) test.DataLength = 0x80000000u | mInput.U16();
    test.SendData = sent.As<void>();
    test.ReceiveBuffer = received.As<void>();
    SendLinkTestData(&test);
}

void tcFuzzCamera::Engineer()
{
    const int command = 99 + mInput.U8() % 10;
    if (command == 103) return TestLink();
    tcExact data(sizeof(TVXCameraHardware));
    data.Fill(mInput);
    EngineeringCommand(command, data.As<void>());
}

// Any item, for an answer that may be another one's; no image buffer is one's own to give.
void tcFuzzCamera::Raw()
{
    const int item = mInput.U8() % gnItems;
    if (item == eItemImage8 || item == eItemImage16 || item == eItemImage32) return;
    for (const tsCommandRow& row : gaCommands) {
        if (row.answer == nullptr || row.answer->item != item) continue;
        // Handlers of their own store what the operations hand them; those are asked above.
        if (row.answer->delivery == eHandled) return;
        tuCameraMessages message{};
        message.header.MsgId = row.id;
        message.header.Length = row.shortest;
        tcExact first(sizeof(tuCameraMessages)), second(8);
        SendAndWait(&message, item, first.As<long>(), second.As<long>(), 1 + mInput.U8() % 3);
        return;
    }
}
