// What a record keeps of each frame beside its pixels: one table, for all kinds of files.
#ifndef VXCAMKIT_RECORD_COLUMNS_H
#define VXCAMKIT_RECORD_COLUMNS_H

#include "containers/record_file.h"

#include <string>
#include <variant>
#include <vector>

namespace vxcam {

// A number of each frame.
struct RecordColumn {
    using Whole = int64_t (*)(const RecordedFrame& frame); // -1: not known
    using Real = double (*)(const RecordedFrame& frame);   // no number: not known

    const char* name; // "begin_ns"
    const char* unit; // "ns", or ""
    const char* meaning;
    std::variant<Whole, Real> value;

    bool isWhole() const { return std::holds_alternative<Whole>(value); }
};

const std::vector<RecordColumn>& recordColumns();
// Of frames that are measured, besides.
const std::vector<RecordColumn>& measureColumns();
// All of those that a frame has.
std::vector<RecordColumn> columnsOf(const RecordedFrame& frame);

// The numbers of one frame, measured ones too, and its rows that are missing: a JSON object in a
// line, without its end.
std::string recordRowJson(const RecordedFrame& frame);

// What the camera told, likewise.
std::string recordNoteJson(const Event& event);

// With the cards of what is measured of the frame.
HeaderOptions headerOf(const RecordedFrame& frame, const HeaderOptions& options);

// The cards of a frame that hold for all frames of its record.
std::vector<HeaderCard> recordHeader(const Frame& first, const HeaderOptions& options);

int64_t nanosecondsOf(UtcTime time); // since 1970

} // namespace vxcam

#endif
