// When messages can have come that were read together, or late.
#include "tcArrivals.h"

#include <gtest/gtest.h>

namespace {

// A connection that is read from position 1000 on.
class Arrivals : public testing::Test
{
protected:
    // Reads what there is at `begun`, `bytes` of it, all or not; `left` is what is still there.
    void Read(uint32_t bytes, int64_t begun, uint32_t left = 0, uint32_t pending = 0)
    {
        mArrivals.BeginRead(mAt, pending);
        mAt += bytes;
        if (left == 0) {
            mArrivals.Mark(mAt, begun, true);
        } else if (mArrivals.IsPassed(mAt)) {
            mArrivals.Mark(mAt + left, begun, false);
        }
    }
    int64_t After(uint32_t position) const { return mArrivals.After(position); }

    tcArrivals mArrivals;
    uint32_t mAt = 1000;
};

} // namespace

TEST_F(Arrivals, TellNothingWhereNothingIsKnown)
{
    EXPECT_EQ(After(0), 0);
    Read(100, 10);
    EXPECT_EQ(After(1000), 0);
    EXPECT_EQ(After(1050), 0) << "it may have come before anybody looked";
}

TEST_F(Arrivals, OfWhatWasWaitedForAreKnown)
{
    Read(100, 10);
    Read(100, 20);
    EXPECT_EQ(After(1100), 0);
    Read(0, 30); // in vain
    Read(100, 40);
    EXPECT_EQ(After(1200), 0);
}

TEST_F(Arrivals, OfWhatStoodBehindOthersAreAfterNothingWasThere)
{
    Read(100, 10);
    Read(100, 20);
    EXPECT_EQ(After(1101), 10);
    EXPECT_EQ(After(1199), 10);
    Read(0, 30);
    Read(100, 40);
    EXPECT_EQ(After(1250), 30);
}

TEST_F(Arrivals, OfWhatWaitedThroughSeveralReadsAreAfterNothingWasThere)
{
    Read(100, 10);
    for (int i = 0; i < 5; ++i) {
        Read(100, 500 + i, 500 - 100 * i);
        EXPECT_EQ(After(mAt - 50), 10);
    }
    Read(150, 600); // the last that was there at the first of these reads, and more
    EXPECT_EQ(After(1650), 10);
    EXPECT_EQ(After(1720), 500);
}

TEST_F(Arrivals, OfAStreamThatNeverCeasesAreAfterTheReadThatDidNotReachThem)
{
    Read(100, 10);
    for (int i = 1; i < 1000; ++i) {
        Read(100, 100 * i, 250);
        EXPECT_GE(After(mAt - 1), 100 * (i - 7));
        EXPECT_LE(After(mAt - 1), i < 4 ? 10 : 100 * (i - 2)) << i;
    }
}

TEST_F(Arrivals, OfAMessageThatCameInPartsAreThoseOfItsBeginning)
{
    Read(100, 10);
    Read(60, 20);          // a message of 200 begins at 1100
    Read(60, 30, 0, 60);   // and goes on
    Read(120, 40, 0, 120); // and ends; the next one begins at 1300, of which 40 have not come
    EXPECT_EQ(After(1100), 0) << "it was waited for";
    EXPECT_EQ(After(1300), 30);
    for (uint32_t part = 0; part < 8; ++part) {
        Read(5, 50 + part, 0, mAt - 1300);
        EXPECT_GT(After(1300), 0);
        EXPECT_LE(After(1300), 30) << "in however many";
    }
}

TEST_F(Arrivals, AreKnownWhereThePositionsBeginAgain)
{
    mAt = UINT32_MAX - 149;
    Read(100, 10);
    Read(100, 20);
    EXPECT_EQ(After(UINT32_MAX - 49), 0);
    EXPECT_EQ(After(10), 10);
    Read(100, 30, 100);
    EXPECT_EQ(After(100), 20);
}
