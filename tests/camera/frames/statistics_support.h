// What the tests of statistics share.
#ifndef STATISTICS_SUPPORT_H
#define STATISTICS_SUPPORT_H

#include "books.h"
#include "pixels.h"
#include "vxcamiface.h"

inline tsStatistics Figures(const tcVXCamera& camera)
{
    tsStatistics figures{};
    EXPECT_EQ(camera.GetStatistics(&figures, sizeof figures), 0);
    return figures;
}

class Statistics : public Readout
{
protected:
    Statistics() { mCamera.TellGeometry(4, 8); }
    void TearDown() override { ExpectThatTheyAddUp(Figures(mCamera)); }

    // The packets of one frame, in this order.
    void FeedPackets(teWidth width, unsigned total, const std::vector<unsigned>& numbers,
                     bool isLast = false)
    {
        for (unsigned number : numbers) {
            Feed(mCamera, {width, number, total, number % 4, 0, 7, isLast});
            ExpectThatTheyAddUp(Figures(mCamera));
        }
    }
    // How the frames ended: complete, incomplete, failed, aborted, pending, unasked.
    std::vector<uint64_t> Ends() const
    {
        const tsStatistics f = Figures(mCamera);
        return {f.FramesComplete, f.FramesIncomplete, f.FramesFailed,
                f.FramesAborted,  f.FramesPending,    f.FramesUnasked};
    }
    // Packets received, expected, missing, duplicate, stray, short.
    std::vector<uint64_t> Packets() const
    {
        const tsStatistics f = Figures(mCamera);
        return {f.PacketsReceived,  f.PacketsExpected, f.PacketsMissing,
                f.PacketsDuplicate, f.PacketsStray,    f.PacketsShort};
    }
    std::vector<std::string> Incomplete(int frame, int missing, int total) const
    {
        return {"tcVXCamera::FinishFrame frame " + std::to_string(frame) + " is incomplete: " +
                std::to_string(missing) + " of " + std::to_string(total) + " packets are missing"};
    }

    tcImage mImage{e32Bit, 32};
};

using tFigures = std::vector<uint64_t>;

#endif
