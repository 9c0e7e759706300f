#include <vxcamkit/sequence.h>

#include "sequence/sequence_run.h"

#include <algorithm>
#include <filesystem>

namespace vxcam {

namespace {

std::string journalOf(const SequencePlan& plan)
{
    return plan.folder + "/" + std::filesystem::path(plan.path).stem().string() + ".journal";
}

const SequencePlan& withFolder(const SequencePlan& plan)
{
    std::error_code error;
    std::filesystem::create_directories(plan.folder, error);
    if (error) throw Error(ErrorKind::File, plan.folder + ": " + error.message(), error.value());
    return plan;
}

} // namespace

struct Sequence::Body {
    SequencePlan plan;
    SequenceOptions options;
    std::vector<SequenceUnit> units;
    SequenceJournal journal;

    Body(SequencePlan given, SequenceOptions how)
        : plan(std::move(given)), options(std::move(how)), units(unitsOf(plan)),
          journal(journalOf(withFolder(plan)), plan.mark)
    {}
};

Sequence::Sequence(SequencePlan plan, SequenceOptions options)
    : body_(std::make_unique<Body>(std::move(plan), std::move(options)))
{}
Sequence::~Sequence() = default;

void Sequence::run(Camera& camera)
{
    SequenceRun(camera, body_->plan, body_->options, body_->units, body_->journal).run();
}

bool Sequence::isComplete() const
{
    const auto& frames = body_->journal.frames();
    const auto isThere = [&](const auto& one) {
        std::error_code error;
        const std::string path = body_->plan.folder + "/" + one.second.file;
        return std::filesystem::file_size(path, error) == one.second.bytes && !error;
    };
    return body_->journal.hasEnded() && std::all_of(frames.begin(), frames.end(), isThere);
}

SequenceReport Sequence::report() const
{
    const SequenceJournal& journal = body_->journal;
    SequenceReport report;
    report.journal = journal.path();
    report.runs = static_cast<int>(journal.processes().size());
    report.before = static_cast<int>(journal.frames().size()) - journal.framesNow();
    report.complete = journal.hasEnded();
    for (const SequenceUnit& unit : body_->units) {
        report.frames += unit.kind == SequenceUnit::Kind::Frame;
    }
    for (const auto& [unit, frame] : journal.frames()) {
        report.files.push_back({body_->plan.folder + "/" + frame.file, frame.bytes});
    }
    report.failures = journal.failures();
    return report;
}

} // namespace vxcam
