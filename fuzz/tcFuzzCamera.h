// A camera whose host side a fuzz target drives; see dispatch.cpp.
#ifndef TCFUZZCAMERA_H
#define TCFUZZCAMERA_H

#include "tcFuzzInput.h"
#include "tcLogConsumer.h"
#include "tcVXCamera.h"

#include <memory>

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
    bool mbAnsweredInBytes = false;                  // pixels of 8 bits have come
    std::unique_ptr<tcExact> mpImages[2], mpMaximum; // of 16 and 32 bits
    bool mbReceiving = false, mbOpening = false;
};

#endif
