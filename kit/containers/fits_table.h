// Tables of FITS files.
#ifndef VXCAMKIT_FITS_TABLE_H
#define VXCAMKIT_FITS_TABLE_H

#include "containers/record_columns.h"
#include "fits/fits_header.h"

#include <cstdint>
#include <string>

namespace vxcam {

inline constexpr size_t kRowsText = 256; // characters of the rows that are missing

// The table FRAMES: a row for each frame, with the columns of records, the rows that are missing,
// and what is measured, if it is.
std::string frameTableHeader(uint64_t rows, bool isMeasured, uint32_t dataSum);
std::string frameTableRow(const RecordedFrame& frame);

// The table EVENTS, whole: what the camera told.
std::string eventTable(const std::vector<Event>& events);

// The cards of a whole record: how it ended, and how many frames it has. As many whatever they say.
void addRecordCards(const RecordEnd& end, uint64_t frames, FitsHeader* header);

} // namespace vxcam

#endif
