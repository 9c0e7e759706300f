#include <vxcamkit/sequence.h>

#include "sequence/sequence_report.h"
#include "sequence/sequence_run.h"

#include <algorithm>
#include <atomic>
#include <filesystem>

namespace vxcam {

namespace {

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
    SequenceWatch watch;
    std::atomic<SequenceHold> hold{SequenceHold::None};

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
    SequenceRun(camera, {body_->plan, body_->options, body_->watch, body_->hold}, body_->units,
                body_->journal)
        .run();
}

void Sequence::watch(SequenceWatch watch)
{
    body_->watch = std::move(watch);
}

void Sequence::stop(SequenceStop when)
{
    if (when == SequenceStop::Now) {
        body_->hold = SequenceHold::Now;
        return;
    }
    SequenceHold none = SequenceHold::None;
    body_->hold.compare_exchange_strong(none, SequenceHold::BehindFrame);
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
    return reportOf(body_->plan, body_->journal);
}

} // namespace vxcam
