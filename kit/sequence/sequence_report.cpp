#include "sequence/sequence_report.h"

#include <algorithm>
#include <filesystem>

namespace vxcam {

std::string journalOf(const SequencePlan& plan)
{
    return plan.folder + "/" + std::filesystem::path(plan.path).stem().string() + ".journal";
}

SequenceReport reportOf(const SequencePlan& plan, const std::vector<SequenceUnit>& units,
                        const SequenceJournal& journal)
{
    SequenceReport report;
    report.journal = journal.path();
    report.runs = static_cast<int>(journal.processes().size());
    report.before = static_cast<int>(journal.frames().size()) - journal.framesNow();
    report.complete = journal.hasEnded();
    report.frames =
        static_cast<int>(std::count_if(units.begin(), units.end(), [](const SequenceUnit& unit) {
            return unit.kind == SequenceUnit::Kind::Frame;
        }));
    for (const auto& [unit, frame] : journal.frames()) {
        report.files.push_back({plan.folder + "/" + frame.file, frame.bytes});
    }
    report.failures = journal.failures();
    return report;
}

std::optional<SequenceReport> reportOf(const SequencePlan& plan)
{
    const auto journal = SequenceJournal::look(journalOf(plan), plan.mark);
    if (!journal) return {};
    return reportOf(plan, unitsOf(plan), *journal);
}

} // namespace vxcam
