// What a journal says of its sequence.
#ifndef VXCAMKIT_SEQUENCE_REPORT_H
#define VXCAMKIT_SEQUENCE_REPORT_H

#include "sequence/sequence_journal.h"
#include "sequence/sequence_units.h"

#include <string>
#include <vector>

namespace vxcam {

std::string journalOf(const SequencePlan& plan); // its path
SequenceReport reportOf(const SequencePlan& plan, const SequenceJournal& journal);

} // namespace vxcam

#endif
