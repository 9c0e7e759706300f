// Whether a record is what it says.
#ifndef VXCAMKIT_VERIFY_H
#define VXCAMKIT_VERIFY_H

#include <vxcamkit/export.h>

#include <cstdint>
#include <string>
#include <vector>

namespace vxcam {

// Something that is not as it should be.
struct Finding {
    std::string check;  // "file", "ended", "index", "number", "times", "sum", "crc", "rows",
                        // "complete", "dropped", "header", "truth"
    int64_t frame = -1; // of the record; -1: not of one frame
    std::string text;   // "its pixels add up to 12, and not to 13"
};

struct Verdict {
    std::string path;
    std::string format; // "HDF5", "FITS", "TIFF", "SER", "raw"
    uint64_t frames = 0;
    std::string ended;             // "complete", as the record says; "running" when it does not
    std::vector<Finding> findings; // the first thousand
    uint64_t incomplete = 0;       // frames that say so themselves, which is no finding

    bool isGood() const { return findings.empty(); }
};

struct VerifyOptions {
    // What a simulated camera printed with --json; empty: not compared. The frames of the record
    // are those of the camera with the same number in the same readout.
    std::string truth;
};

// Looks at each frame of a file that a Recorder made, or at one FITS file of a frame: its pixels
// against its sum and check value, rows that are missing, that numbers and times go on, that cards
// say what the properties do, and that the file is whole. Throws Error{File} for what cannot be
// read at all, Error{Usage} for a name that says no format.
VXCAMKIT_EXPORT Verdict verifyRecord(const std::string& path, const VerifyOptions& options = {});

// What is wrong between two FITS files of a frame whose names differ in their last number alone,
// by one, such as a frame that is missing between them or that is there twice. Nothing for others,
// and for readouts that began anew.
VXCAMKIT_EXPORT std::vector<Finding> verifyOrder(const std::string& path,
                                                 const std::string& before);

} // namespace vxcam

#endif
