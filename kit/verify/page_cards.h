// What a page of a TIFF record says of its frame.
#ifndef VXCAMKIT_PAGE_CARDS_H
#define VXCAMKIT_PAGE_CARDS_H

#include "verify/record_reader.h"

#include <string>

namespace vxcam {

// Its description against the frame's line in the index.
void comparePageCards(const std::string& description, int64_t frame, ReadRecord* record);

} // namespace vxcam

#endif
