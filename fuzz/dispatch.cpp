// The camera's side of the host: messages in any order and form, for a camera whose application
// asks, sets, reads images, aborts and closes meanwhile, in callbacks too.
//
// Input: the sensor's size, then steps. There is no network: what the camera is sent is dropped,
// and while a request waits, the next steps' messages come in. Every buffer and result variable has
// exactly the size the interface asks for, and is freed as soon as the library may not touch it.
#include "tcFuzzCamera.h"

namespace {

constexpr int nMostSteps = 60;
constexpr int nMostMessages = 4;          // while one request waits
constexpr int nEveryTimeout = 420;        // monitor steps after which nothing is pending any more
constexpr uint64_t nMostPixels = 1 << 18; // of an image buffer
constexpr uint16_t nUnknown = 65535;

} // namespace

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
    if (status == 0 && frame.header.MsgId == ansPixels8.id) self.mbAnsweredInBytes = true;
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
        // An area readout that was answered in 8 bits may be over with its item still open.
        const bool isBusy = ReadCCDArea(nullptr, 1, 0) == -1;
        Require(isBusy || is32Bit || mbAnsweredInBytes, "one readout at a time");
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

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count)
{
    tcFuzzInput input(bytes, count);
    const auto camera = std::make_unique<tcFuzzCamera>(input);
    camera->Run();
    return 0;
}
