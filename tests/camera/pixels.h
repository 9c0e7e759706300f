// Pixel packets for tests.
#ifndef PIXELS_H
#define PIXELS_H

#include "tcTestCamera.h"

#include <gtest/gtest.h>

#include <numeric>

enum teWidth { e16Bit, e32Bit, e8Bit };
inline constexpr teWidth gaWidths[] = {e16Bit, e32Bit, e8Bit};

inline uint32_t IdOf(teWidth width)
{
    return width == e16Bit ? 0x66 : width == e32Bit ? 0x67 : 0x88;
}
inline size_t BytesOf(teWidth width)
{
    return width == e16Bit ? 2 : width == e32Bit ? 4 : 1;
}
inline const char* NameOf(teWidth width)
{
    return width == e16Bit   ? "CompileMessage16"
           : width == e32Bit ? "CompileMessage"
                             : "CompileMessage8";
}

// The fields of one packet. Without `values` it carries a 1, 2, 3 ... that fits its columns.
struct tsPixels {
    teWidth width = e16Bit;
    unsigned number = 1, total = 1;
    unsigned row = 0, first = 0, last = 0;
    bool lastFrame = false;
    unsigned type = 0;
    unsigned statistic = 0, extra1 = 0, extra2 = 0;
    std::vector<uint32_t> values = {};

    tBytes Payload(bool hasExtras) const
    {
        tcPayload payload;
        payload.U8(type).U8(lastFrame ? 0x80 : 0).U16(number).U16(total).U16(row);
        payload.U16(first).U16(last).U16(0xDEAD).U16(statistic);
        if (hasExtras) payload.U16(extra1).U16(extra2);
        for (uint32_t value : Values()) {
            if (width == e16Bit) payload.U16(value);
            if (width == e32Bit) payload.U32(value);
            if (width == e8Bit) payload.U8(value);
        }
        return payload;
    }
    tcMessage Message(unsigned version = 3) const
    {
        tcMessage message(IdOf(width), Payload(width == e32Bit && version >= 2));
        message->header.IDD = version & 0xFF;
        return message;
    }
    std::vector<uint32_t> Values() const
    {
        if (!values.empty() || last < first) return values;
        std::vector<uint32_t> ramp(last - first + 1);
        std::iota(ramp.begin(), ramp.end(), 1);
        return ramp;
    }
};

inline void Feed(tcTestCamera& camera, const tsPixels& pixels)
{
    tcMessage message = pixels.Message();
    camera.Feed(message);
}

// An image buffer between guards, of elements as wide as the packets'.
class tcImage
{
public:
    tcImage(teWidth width, size_t elements)
        : mWidth(width), mnElements(elements),
          mBytes((elements + 2 * nGuard) * BytesOf(width), gnFill)
    {}
    void* Pointer() { return mBytes.data() + nGuard * BytesOf(mWidth); }
    unsigned short* Shorts() { return static_cast<unsigned short*>(Pointer()); }
    long* Longs() { return static_cast<long*>(Pointer()); }
    uint32_t At(size_t index) const
    {
        uint32_t value = 0;
        memcpy(&value, mBytes.data() + (nGuard + index) * BytesOf(mWidth), BytesOf(mWidth));
        return value;
    }
    void Set(size_t index, uint32_t value)
    {
        memcpy(mBytes.data() + (nGuard + index) * BytesOf(mWidth), &value, BytesOf(mWidth));
    }
    // Bytes that are no longer as they were made.
    size_t Touched() const
    {
        return mBytes.size() -
               static_cast<size_t>(std::count(mBytes.begin(), mBytes.end(), gnFill));
    }
    bool GuardsAreWhole() const
    {
        const auto front = mBytes.begin() + static_cast<long>(nGuard * BytesOf(mWidth));
        const auto back = front + static_cast<long>(mnElements * BytesOf(mWidth));
        auto isFill = [](uint8_t byte) { return byte == gnFill; };
        return std::all_of(mBytes.begin(), front, isFill) &&
               std::all_of(back, mBytes.end(), isFill);
    }
    bool operator==(const tcImage& other) const { return mBytes == other.mBytes; }

private:
    static constexpr uint8_t gnFill = 0xA5;
    static constexpr size_t nGuard = 4096;

    teWidth mWidth;
    size_t mnElements;
    tBytes mBytes;
};

// What the image callback saw.
inline std::vector<tsImageData> gaFrames;
inline int gnFrameHandle;

inline void KeepFrame(int handle, tsImageData* image)
{
    gnFrameHandle = handle;
    gaFrames.push_back(*image);
}

class Readout : public testing::Test
{
protected:
    Readout()
    {
        gaFrames.clear();
        mCamera.SetImageDataCallback(KeepFrame);
    }
    int Read(teWidth width, tcImage& image, short frames = 1)
    {
        if (width == e16Bit) return mCamera.ReadCCDArea(image.Shorts(), frames, 0);
        return mCamera.ReadCCDBinned(image.Longs(), nullptr, frames, 0);
    }
    // Into the camera's own buffer.
    int ReadOwn(teWidth width)
    {
        if (width == e16Bit) return mCamera.ReadCCDArea(nullptr, 1, 0);
        return mCamera.ReadCCDBinned(nullptr, nullptr, 1, 0);
    }
    // A frame of one packet.
    void FeedFrame(teWidth width, bool isLast)
    {
        tsPixels pixels;
        pixels.width = width;
        pixels.lastFrame = isLast;
        Feed(mCamera, pixels);
    }
    int Compile(tsPixels pixels, unsigned version, void* buffer)
    {
        tcMessage message = pixels.Message(version);
        if (pixels.width == e16Bit) {
            return mCamera.CompileMessage16(&message->Pixels16, static_cast<short*>(buffer));
        }
        if (pixels.width == e32Bit) {
            return mCamera.CompileMessage(&message->Pixels32, static_cast<long*>(buffer));
        }
        return mCamera.CompileMessage8(&message->Pixels8, static_cast<unsigned char*>(buffer));
    }
    int Initialize(uint16_t rows, uint16_t columns)
    {
        mCamera.AnswerTo(0x34, 0x64, tcTestCamera::HardwareBytes(rows, columns));
        return mCamera.Initialize();
    }

    tcTestCamera mCamera;
};

class Placement : public Readout
{};

#endif
