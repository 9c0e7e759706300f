// Good records, and what is found in others.
#ifndef TESTS_VERIFY_SUPPORT_H
#define TESTS_VERIFY_SUPPORT_H

#include "record_support.h"

#include <vxcamkit/verify.h>

namespace vxcam {

inline constexpr int kFrames = 6, kRows = 12, kColumns = 20;

inline Frame goodFrame(int number)
{
    FrameFacts facts;
    facts.exposure = std::chrono::milliseconds(10);
    facts.readout = 1;
    facts.packetsExpected = kRows;
    return numbered<uint16_t>(number, kRows, kColumns, facts);
}

inline void makeRecord(const std::string& path, const RecordOptions& options = {})
{
    Recorder recorder(path, options);
    for (int i = 1; i <= kFrames; ++i) {
        ASSERT_TRUE(recorder.write(goodFrame(i)));
    }
    recorder.finish();
}

inline std::string findingsOf(const Verdict& verdict)
{
    std::string text;
    for (const Finding& finding : verdict.findings) {
        text += finding.check + " " + std::to_string(finding.frame) + " " + finding.text + "\n";
    }
    return text;
}

} // namespace vxcam

#endif
