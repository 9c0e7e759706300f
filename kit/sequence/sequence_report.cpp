#include "sequence/sequence_report.h"

#include <filesystem>

namespace vxcam {

std::string journalOf(const SequencePlan& plan)
{
    return plan.folder + "/" + std::filesystem::path(plan.path).stem().string() + ".journal";
}

SequenceReport reportOf(const SequencePlan& plan, const SequenceJournal& journal)
{
    SequenceReport report;
    report.journal = journal.path();
    report.runs = static_cast<int>(journal.processes().size());
    report.before = static_cast<int>(journal.frames().size()) - journal.framesNow();
    report.complete = journal.hasEnded();
    report.frames = framesOf(plan);
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
    return reportOf(plan, *journal);
}

} // namespace vxcam
