// What the tests of records share.
#ifndef RECORDS_SUPPORT_H
#define RECORDS_SUPPORT_H

#include "fault_support.h"

#include "vxcamext.h"

// Keeps the records of frames with what they point to.
// Threads: any.
class tcRecords
{
public:
    struct tsKept {
        tsFrameRecord record;
        std::vector<int> rows;
        std::vector<int> packets; // missing, by number
        uint64_t sum;             // of the pixels
    };

    void Subscribe(int handle) { VXSetFrameCallback(handle, &tcRecords::Keep, this); }
    std::vector<tsKept> All() const
    {
        std::lock_guard<std::mutex> lock(mMutex);
        return mKept;
    }

private:
    static void Keep(int, const tsFrameRecord* frame, void* user)
    {
        tsKept kept{*frame, {}, {}, Sum(*frame)};
        kept.rows.assign(frame->MissingRows, frame->MissingRows + frame->MissingRowCount);
        for (uint32_t i = 0; frame->MissingBits != nullptr && i < frame->PacketsExpected; ++i) {
            if (frame->MissingBits[i / 8] >> i % 8 & 1) {
                kept.packets.push_back(static_cast<int>(i + 1));
            }
        }
        auto& self = *static_cast<tcRecords*>(user);
        std::lock_guard<std::mutex> lock(self.mMutex);
        self.mKept.push_back(std::move(kept));
    }
    static uint64_t Sum(const tsFrameRecord& frame)
    {
        uint64_t sum = 0;
        for (uint32_t row = 0; frame.Buffer != nullptr && row < frame.Rows; ++row) {
            for (uint32_t column = 0; column < frame.Columns; ++column) {
                const size_t at =
                    (size_t{frame.FirstRow} + row) * frame.Stride + frame.FirstColumn + column;
                sum += frame.Bits == 8    ? static_cast<const uint8_t*>(frame.Buffer)[at]
                       : frame.Bits == 16 ? static_cast<const uint16_t*>(frame.Buffer)[at]
                                          : static_cast<const uint32_t*>(frame.Buffer)[at];
            }
        }
        return sum;
    }

    mutable std::mutex mMutex;
    std::vector<tsKept> mKept;
};

// A frame with a fault.
struct tsCase {
    const char* name;
    const char* fault;
    std::vector<int> rows;    // that the record has to tell
    std::vector<int> packets; // missing
    uint32_t misplaced, damaged;
};

inline void PrintTo(const tsCase& one, std::ostream* out)
{
    *out << one.fault;
}

class FrameRecords : public Faults, public testing::WithParamInterface<tsCase>
{
protected:
    void Start(const std::vector<std::string>& faults, tsSimOptions options)
    {
        options.heartbeatSeconds = 0;
        options.faults = ParseSimFaults(faults);
        OpenWith(options);
        records.Subscribe(handle);
        EXPECT_EQ(0, VXSetCCDArea(handle, 0, 0, options.columns, options.rows));
    }
    void Start(const std::vector<std::string>& faults) { Start(faults, Options()); }

    tcRecords records;
};

#endif
