// What the cards of one frame say of it.
#ifndef VXCAMKIT_FRAME_CARDS_H
#define VXCAMKIT_FRAME_CARDS_H

#include "verify/fits_parts.h"
#include "verify/record_reader.h"

namespace vxcam {

// As a row of a record would have it; what has no card is not there.
ReadRow readFrameCards(const FitsPart& part);
// Times that are said in more than one way.
void checkTimeCards(const FitsPart& part, int64_t frame, ReadRecord* record);
// Cards of a frame against its row, which stands there: "the table FRAMES".
void compareFrameCards(const FitsPart& part, const ReadRow& row, const char* where, int64_t frame,
                       ReadRecord* record);

} // namespace vxcam

#endif
