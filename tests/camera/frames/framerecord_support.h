// Keeps what the application is told of frames and of the ends of readouts.
#ifndef FRAMERECORD_SUPPORT_H
#define FRAMERECORD_SUPPORT_H

#include "pixels.h"
#include "vxcamext.h"

#include <gtest/gtest.h>

#include <functional>

// A frame's record, and copies of what it points to.
struct tsTold {
    tsFrameRecord record;
    std::vector<uint8_t> bits;
    std::vector<uint32_t> rows;
    bool rowsTold;
};

class FrameRecord : public Readout
{
protected:
    FrameRecord()
    {
        mCamera.TellGeometry(8, 16);
        EXPECT_EQ(VXSetFrameCallback(mCamera.GetHandle(), Keep, this), 0);
    }
    static void Keep(int handle, const tsFrameRecord* frame, void* user)
    {
        auto& self = *static_cast<FrameRecord*>(user);
        EXPECT_EQ(handle, self.mCamera.GetHandle());
        EXPECT_EQ(frame->PacketsExpected, frame->PacketsReceived + frame->PacketsMissing);
        tsTold told{*frame, {}, {}, frame->MissingRows != nullptr};
        if (frame->MissingBits != nullptr) {
            told.bits.assign(frame->MissingBits,
                             frame->MissingBits + (frame->PacketsExpected + 7) / 8);
        }
        EXPECT_EQ(told.rowsTold, frame->MissingRowCount > 0);
        if (told.rowsTold) {
            told.rows.assign(frame->MissingRows, frame->MissingRows + frame->MissingRowCount);
        }
        self.mTold.push_back(told);
        if (self.mDo) self.mDo();
    }
    // Rows from `first` on, of `pieces` packets of `columns` columns each; without the packets that
    // are left out.
    void FeedRows(teWidth width, unsigned rows, const std::vector<unsigned>& leftOut,
                  bool isLast = true, unsigned first = 0, unsigned pieces = 1,
                  unsigned columns = 16, unsigned firstColumn = 0)
    {
        const unsigned total = rows * pieces;
        for (unsigned i = 0; i < total; ++i) {
            if (std::count(leftOut.begin(), leftOut.end(), i + 1) != 0) continue;
            const unsigned column = firstColumn + i % pieces * columns;
            Feed(mCamera,
                 {width, i + 1, total, first + i / pieces, column, column + columns - 1, isLast});
        }
    }
    const tsFrameRecord& Record() const { return mTold.back().record; }
    const std::vector<uint32_t>& Rows() const { return mTold.back().rows; }
    int Result() { return VXReadoutResult(mCamera.GetHandle()); }

    std::vector<tsTold> mTold;
    std::function<void()> mDo; // in the callback
};

using tRows = std::vector<uint32_t>;

#endif
