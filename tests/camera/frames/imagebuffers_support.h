// A readout into buffers of the application.
#ifndef IMAGEBUFFERS_SUPPORT_H
#define IMAGEBUFFERS_SUPPORT_H

#include "books.h"
#include "pixels.h"
#include "vxcamiface.h"

#include <gtest/gtest.h>

class ImageBuffers : public Readout
{
protected:
    static constexpr size_t gnBytes = 8 * 16 * 2; // a 16-bit image of the whole sensor

    ImageBuffers()
    {
        mCamera.TellGeometry(8, 16);
        for (tcImage& image : mImages) {
            maPointers.push_back(image.Pointer());
        }
        VXSetFrameCallback(Handle(), Keep, this);
    }
    static void Keep(int, const tsFrameRecord* frame, void* user)
    {
        auto& self = *static_cast<ImageBuffers*>(user);
        self.mTold.push_back(*frame);
        self.mRows.assign(frame->MissingRows, frame->MissingRows + frame->MissingRowCount);
        if (self.mbReturning) {
            EXPECT_EQ(VXReturnImageBuffer(self.Handle(), frame->Buffer), 0);
        }
    }
    int Handle() const { return mCamera.GetHandle(); }
    int Set(int count, size_t bytes = gnBytes)
    {
        return VXSetImageBuffers(Handle(), maPointers.data(), count, bytes);
    }
    // A frame of the area (2, 3) of 10 columns and 4 rows, whose packet n holds n00 and on.
    void FeedArea(bool isLast, const std::vector<unsigned>& leftOut = {}, unsigned base = 0)
    {
        for (unsigned i = 0; i < 4; ++i) {
            if (std::count(leftOut.begin(), leftOut.end(), i + 1) == 0) FeedRow(i, isLast, base);
        }
    }
    void FeedRow(unsigned i, bool isLast, unsigned base = 0)
    {
        tsPixels pixels{e16Bit, i + 1, 4, 3 + i, 2, 11, isLast};
        for (unsigned column = 0; column < 10; ++column) {
            pixels.values.push_back(base + 100 * (i + 1) + column);
        }
        Feed(mCamera, pixels);
    }
    // The image that FeedArea leaves, packed.
    static tcImage Packed(unsigned base = 0)
    {
        tcImage image(e16Bit, 128);
        for (unsigned i = 0; i < 40; ++i) {
            image.Set(i, base + 100 * (i / 10 + 1) + i % 10);
        }
        return image;
    }
    void SetArea() { mCamera.SetCCDArea(2, 3, 10, 4); }
    tsStatistics Figures()
    {
        tsStatistics figures{};
        VXGetStatistics(Handle(), &figures, sizeof figures);
        ExpectThatTheyAddUp(figures);
        return figures;
    }
    int Result() { return VXReadoutResult(Handle()); }

    tcImage mImages[4] = {{e16Bit, 128}, {e16Bit, 128}, {e16Bit, 128}, {e16Bit, 128}};
    std::vector<void*> maPointers;
    std::vector<tsFrameRecord> mTold;
    std::vector<uint32_t> mRows; // missing, of the last frame
    bool mbReturning = false;    // each buffer, in the callback
};

using tRows = std::vector<uint32_t>;

#endif
