// The camera's side of the host: messages in any order and form, for a camera whose application
// asks, sets, reads images, aborts and closes meanwhile, in callbacks too.
//
// Input: the sensor's size, then steps. There is no network: what the camera is sent is dropped,
// and while a request waits, the next steps' messages come in. Every buffer and result variable has
// exactly the size the interface asks for, and is freed as soon as the library may not touch it.
#include "tcFuzzInput.h"
#include "tcLogConsumer.h"
#include "tcVXCamera.h"

#include <memory>

namespace {

constexpr int nMostSteps = 60;
constexpr int nMostMessages = 4;          // while one request waits
constexpr int nEveryTimeout = 420;        // monitor steps after which nothing is pending any more
constexpr uint64_t nMostPixels = 1 << 18; // of an image buffer
constexpr uint16_t nUnknown = 65535;

// Takes records and forgets them; they are formatted all the same.
class tcSwallow : public tcLogConsumer
{
public:
    void Output(tcLogEvent const& event) override { mnBytes += std::strlen(event.message); }
    char const* TypeName() const override { return "SWALLOW"; }

private:
    size_t mnBytes = 0;
};

// Memory of exactly some bytes.
class tcExact
{
public:
    explicit tcExact(size_t bytes) : mpBytes(new uint8_t[bytes]()), mnBytes(bytes) {}

    template <class Value>
    Value* As()
    {
        return reinterpret_cast<Value*>(mpBytes.get());
    }
    void Fill(tcFuzzInput& input)
    {
        const std::vector<uint8_t> bytes = input.Bytes(mnBytes);
        std::copy(bytes.begin(), bytes.end(), mpBytes.get());
    }

private:
    std::unique_ptr<uint8_t[]> mpBytes;
    size_t mnBytes;
};

template <class Value>
class tcVariable
{
public:
    operator Value*() { return mExact.As<Value>(); }

private:
    tcExact mExact{sizeof(Value)};
};

class tcFuzzCamera : public tcVXCamera
{
public:
    explicit tcFuzzCamera(tcFuzzInput& input) : tcVXCamera(teMonitor::eManual), mInput(input)
    {
        static tcSwallow& swallow = *new tcSwallow;
        mLog.SetConsumer(&swallow);
        mLog.setDbgLevel(input.U8());
        spCurrent = this;
        mpParser->RegisterCallback(&tcFuzzCamera::Watch, this);
        mpParser->EnableChecksum((input.U8() & 1) != 0);
        SetImageDataCallback(&tcFuzzCamera::OnImage);
        SetHeartBeatCallback(&tcFuzzCamera::OnHeart);
        SetErrorCallback(&tcFuzzCamera::OnError);
        SetUserDefinedCallback(&tcFuzzCamera::OnUser);
    }
    ~tcFuzzCamera() override
    {
        spCurrent = nullptr;
        mLog.CloseLog();
    }
    void Run();

    int SendMessage(tsMsgHeader* frame) override;

private:
    // What the image and what the two requests of tables need to know.
    struct tsGeometry {
        uint32_t rows = 2, columns = 1024;
        bool known = false;
        uint64_t Pixels() const { return uint64_t{rows} * columns; }
    };

    static bool Watch(int status, void* message, int length, unsigned checksum, void* self);
    static void OnImage(int, tsImageData* image);
    static void OnHeart(int, tsHeartBeatData* heartbeat);
    static void OnError(int, unsigned char, unsigned char, char* text);
    static void OnUser(int, void* message, int length);

    bool IsPending(int item) { return InitReqStackItem(item, 0) != 0; }
    void Step();
    void Act();
    void Ask();
    void AskForTables();
    void Set();
    void SetTables();
    void Read();
    void TestLink();
    void Engineer();
    void Raw();
    void Receive();
    void ReceivePixels();
    void ReceiveBytes(const std::vector<uint8_t>& bytes);
    void ReceiveMessage(uint32_t id, const std::vector<uint8_t>& payload);
    void LetGo();

    static tcFuzzCamera* spCurrent;

    tcFuzzInput& mInput;
    tsGeometry mGeometry;
    std::unique_ptr<tcExact> mpImages[2], mpMaximum; // of 16 and 32 bits
    bool mbReceiving = false, mbOpening = false;
};

tcFuzzCamera* tcFuzzCamera::spCurrent = nullptr;

// ---- What comes in ------------------------------------------------------------------------------

bool tcFuzzCamera::Watch(int status, void* message, int length, unsigned checksum, void* user)
{
    auto& self = *static_cast<tcFuzzCamera*>(user);
    auto& frame = *static_cast<tuCameraMessages*>(message);
    const bool isTold = status == 0 && frame.header.MsgId == ansHardware.id &&
                        frame.header.IDD == gnInterfaceVersion && self.IsPending(eItemHardware);
    TVXCameraHardware info{};
    const size_t carried = std::min<size_t>(frame.header.Length, sizeof info);
    std::memcpy(&info, frame.bytes + gnHeaderBytes, carried);
    if (isTold && self.mbOpening) {
        // The camera gets a buffer of this size, which a sanitizer takes time to make.
        if (info.Rows != nUnknown) info.Rows &= 0xFF;
        if (info.Columns != nUnknown) info.Columns &= 0x3FF;
        std::memcpy(frame.bytes + gnHeaderBytes, &info, carried);
    }
    DispatchCallbackParser(status, message, length, checksum, &self);
    if (!isTold) return true;
    self.mGeometry = {info.Rows, info.Columns, info.Rows != nUnknown && info.Columns != nUnknown};
    return true;
}

void tcFuzzCamera::ReceiveBytes(const std::vector<uint8_t>& bytes)
{
    if (bytes.empty()) return;
    mbReceiving = true;
    const std::unique_ptr<uint8_t[]> copy(new uint8_t[bytes.size()]);
    std::copy(bytes.begin(), bytes.end(), copy.get());
    mpParser->AddData(copy.get(), static_cast<int>(bytes.size()));
    mbReceiving = false;
    LetGo();
}

void tcFuzzCamera::ReceiveMessage(uint32_t id, const std::vector<uint8_t>& payload)
{
    tsMsgHeader header{};
    header.Magic = gnMessageMagic;
    header.Length = static_cast<uint16_t>(payload.size());
    header.IDD = gnInterfaceVersion;
    header.MsgId = id & 0xFFFFFF;
    uint32_t sum = 0;
    for (const uint8_t byte : payload)
        sum += byte;
    header.Checksum = sum & 0xFFFFFF;
    std::vector<uint8_t> bytes(sizeof header);
    std::memcpy(bytes.data(), &header, sizeof header);
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    ReceiveBytes(bytes);
}

void tcFuzzCamera::ReceivePixels()
{
    constexpr uint32_t ids[] = {0x66, 0x67, 0x88};
    const uint32_t id = ids[mInput.U8() % 3];
    const unsigned flags = mInput.U8();
    std::vector<uint8_t> payload = mInput.Bytes(20);
    if ((flags & 1) != 0 && payload.size() >= 6) { // the last packet of its frame
        payload[4] = payload[2];
        payload[5] = payload[3];
    }
    if ((flags & 2) != 0 && payload.size() >= 2) payload[1] = 0x80; // of the last frame
    // More pixels than anybody would list one by one.
    payload.resize(payload.size() + mInput.U16() % 2100, 0xA5);
    ReceiveMessage(id, payload);
}

void tcFuzzCamera::Receive()
{
    const unsigned kind = mInput.U8() % 8;
    if (kind < 2) return ReceivePixels();
    if (kind == 2) return ReceiveBytes(mInput.Bytes(mInput.U8()));
    const uint32_t id =
        kind == 3 ? mInput.U32() : gaAnswers[mInput.U8() % std::size(gaAnswers)]->id;
    std::vector<uint8_t> payload = mInput.Bytes(mInput.U8() % 120);
    if (kind == 4) payload.resize(payload.size() + mInput.U16() % 16384, 0x5A);
    ReceiveMessage(id, payload);
}

// ---- What the application does ------------------------------------------------------------------

// A request waits for an answer: it comes, or it does not and time passes.
int tcFuzzCamera::SendMessage(tsMsgHeader* frame)
{
    mpParser->PrepareOutput(frame);
    const tsCommandRow* row = FindCommand(frame->MsgId);
    if (mbReceiving || row == nullptr || row->answer == nullptr) return 0;
    const int item = row->answer->item;
    if (!IsPending(item)) return 0;
    const unsigned what = mInput.U8();
    for (unsigned i = 0; i < what % nMostMessages; ++i)
        Receive();
    if (IsPending(item) && (what & 0x10) != 0) {
        std::vector<uint8_t> payload = mInput.Bytes(mInput.U8());
        ReceiveMessage(row->answer->id, payload);
    }
    if (!IsPending(item)) return 0;
    if ((what & 0xE0) != 0xE0) return -1; // seldom, since it takes its time
    for (int i = 0; i < nEveryTimeout && IsPending(item); ++i)
        MonitorStep();
    LetGo();
    return IsPending(item) ? -1 : 0;
}

// Buffers whose readout is over are gone at once.
void tcFuzzCamera::LetGo()
{
    if (!IsPending(eItemImage16)) mpImages[0].reset();
    if (IsPending(eItemImage32)) return;
    mpImages[1].reset();
    mpMaximum.reset();
}

void tcFuzzCamera::Read()
{
    const unsigned what = mInput.U8();
    const bool is32Bit = (what & 1) != 0;
    const auto frames = static_cast<short>(mInput.U8() % 4);
    if (IsPending(is32Bit ? eItemImage32 : eItemImage16)) {
        Require(ReadCCDArea(nullptr, 1, 0) == -1 || is32Bit, "one readout at a time");
        return;
    }
    // Without a known size the library trusts the camera; the camera's own buffer is safe.
    const bool isOwn = (what & 2) != 0 || !mGeometry.known || mGeometry.Pixels() > nMostPixels;
    std::unique_ptr<tcExact>& image = mpImages[is32Bit ? 1 : 0];
    image.reset(isOwn ? nullptr : new tcExact(mGeometry.Pixels() * (is32Bit ? 4 : 2)));
    if (!is32Bit) {
        ReadCCDArea(image ? image->As<unsigned short>() : nullptr, frames, what);
        return;
    }
    mpMaximum.reset((what & 4) != 0 ? new tcExact(2) : nullptr);
    auto* maximum = mpMaximum ? mpMaximum->As<unsigned short>() : nullptr;
    auto* buffer = image ? image->As<long>() : nullptr;
    if ((what & 8) != 0) {
        ReadCCDBinned(buffer, maximum, frames, 0);
    } else {
        ReadCCDMaskBinned(buffer, maximum, frames, 0);
    }
}

// What a callback may do as well.
void tcFuzzCamera::Act()
{
    switch (mInput.U8() % 12) {
    case 0:
        return Read();
    case 1:
        AbortRead();
        Require(!IsPending(eItemImage16) && !IsPending(eItemImage32), "an abort ends readouts");
        return LetGo();
    case 2:
        SetExposure(static_cast<int32_t>(mInput.U32()));
        return;
    case 3:
        SetCCDArea(mInput.U16(), mInput.U16(), mInput.U16(), mInput.U16());
        return;
    case 4: {
        tcVariable<unsigned> frame;
        PercentComplete(frame);
        return;
    }
    case 5:
        OverrideImageTimout(static_cast<int32_t>(mInput.U32()));
        return;
    case 6:
        EnableNoOps(mInput.U16(), mInput.U16());
        return;
    case 7:
        if (mbReceiving) Require(WaitCompletion(0) == -1, "nobody waits in a callback");
        return;
    case 8: {
        tcVariable<long> time;
        if (mbReceiving) Require(GetExposureTime(time) == -1, "nobody asks in a callback");
        return;
    }
    case 9:
        SetImageDataCallback((mInput.U8() & 1) != 0 ? nullptr : &tcFuzzCamera::OnImage);
        return;
    default:
        return;
    }
}

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

void tcFuzzCamera::Step()
{
    switch (mInput.U8() % 16) {
    case 0:
        return Ask();
    case 1:
        return AskForTables();
    case 2:
        return Set();
    case 3:
        return SetTables();
    case 4:
        return TestLink();
    case 5:
        return Engineer();
    case 6:
        return Raw();
    case 7:
        for (int i = mInput.U8(); i >= 0; --i)
            MonitorStep();
        return LetGo();
    case 8:
        return Read();
    case 9:
        return Act();
    default:
        return Receive();
    }
}

void tcFuzzCamera::Run()
{
    mGeometry = {};
    mbOpening = true;
    Initialize();
    mbOpening = false;
    for (int i = 0; i < nMostSteps && mInput.Left() > 0; ++i)
        Step();
    AbortRead();
    LetGo();
    if (numOpsPending() == 0) Require(WaitCompletion(0) == 0, "nothing is left to wait for");
}

// ---- Callbacks ----------------------------------------------------------------------------------

void tcFuzzCamera::OnImage(int, tsImageData* image)
{
    if (spCurrent == nullptr) return;
    volatile int32_t seen = image->Rows + image->FrameIndex;
    (void)seen;
    spCurrent->Act();
    if ((spCurrent->mInput.U8() & 3) == 0) spCurrent->Act();
}

void tcFuzzCamera::OnHeart(int, tsHeartBeatData* heartbeat)
{
    volatile uint16_t seen = heartbeat->BoardTemp;
    (void)seen;
    if (spCurrent != nullptr) spCurrent->Act();
}

void tcFuzzCamera::OnError(int, unsigned char, unsigned char, char* text)
{
    Require(std::strlen(text) < gnLargestMessage, "an error's text ends");
    if (spCurrent != nullptr) spCurrent->Act();
}

void tcFuzzCamera::OnUser(int, void* message, int length)
{
    const auto* bytes = static_cast<const uint8_t*>(message);
    volatile uint8_t seen = bytes[gnHeaderBytes + length - 1];
    (void)seen;
    if (spCurrent != nullptr) spCurrent->Act();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count)
{
    tcFuzzInput input(bytes, count);
    const auto camera = std::make_unique<tcFuzzCamera>(input);
    camera->Run();
    return 0;
}
