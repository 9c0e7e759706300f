#include "rest/sequence_json.h"

#include "http/http_message.h"
#include "rest/json_answer.h"

#include <filesystem>

namespace vxcam {

namespace {

double secondsOf(std::chrono::duration<double> time)
{
    return time.count();
}

std::string seenFile(const std::string& folder, const std::string& path)
{
    return folder + "/" + std::filesystem::path(path).filename().string();
}

Json failureJson(const SequenceFailure& failure)
{
    return {{"utc", failure.utc + "Z"}, {"text", failure.text}};
}

// Nothing where nothing has begun, or what has is of another plan.
Json journalJson(const SequencePlan& plan)
{
    try {
        const std::optional<SequenceReport> report = reportOf(plan);
        if (!report || report->runs == 0) return {};
        return {{"taken", report->files.size()},
                {"runs", report->runs},
                {"complete", report->complete},
                {"failures", report->failures.size()}};
    } catch (const Error& error) {
        return {{"error", errorJson(error)}};
    }
}

} // namespace

Json planFactsJson(const PlanFolder& plans, const std::string& name, const std::string& text)
{
    const SequencePlan plan = plans.checked(name, text);
    const SequenceNeeds needs = needsOf(plan);
    Json json{{"name", name}, {"bytes", text.size()}, {"good", true}};
    json["frames"] = needs.frames;
    json["hooks"] = needs.hooks;
    json["exposure"] = secondsOf(needs.exposure);
    json["duration"] = secondsOf(needs.duration);
    json["needs_bytes"] = needs.bytes ? Json(*needs.bytes) : Json();
    json["target"] = plan.target;
    json["folder"] = plans.seen(plan.folder);
    json["sensor"] = plan.sensor ? Json{plan.sensor->columns, plan.sensor->rows} : Json();
    json["journal"] = journalJson(plan);
    return json;
}

Json planFactsJson(const PlanFolder& plans, const std::string& name)
{
    std::string text;
    try {
        text = plans.text(name);
        return planFactsJson(plans, name, text);
    } catch (const Error& error) {
        return {
            {"name", name}, {"bytes", text.size()}, {"good", false}, {"error", errorJson(error)}};
    }
}

Json statusJson(const SequenceStatus& status)
{
    Json json{{"state", nameOf(status.state)}, {"over", isOver(status.state)}, {"available", true}};
    if (status.state == SequenceState::None) return json;
    const SequenceProgress& progress = status.progress;
    json["plan"] = status.order.name;
    json["folder"] = status.order.folder;
    json["begun"] = status.begun;
    json["ended"] = status.ended.empty() ? Json() : Json(status.ended);
    json["doing"] = progress.doing;
    json["line"] = status.line;
    json["frames"] = progress.frames;
    json["taken"] = progress.taken;
    json["before"] = status.before;
    json["done"] = progress.done;
    json["left"] = secondsOf(progress.left);
    json["file"] = status.file.empty() ? Json() : Json(status.file);
    json["failures"] = status.failures;
    json["last_failures"] = Json::array();
    for (const SequenceFailure& failure : status.last) {
        json["last_failures"].push_back(failureJson(failure));
    }
    json["error"] = status.error ? errorJson(*status.error) : Json();
    return json;
}

Json reportJson(const SequenceReport& report, const std::string& name, const std::string& folder)
{
    Json json{{"plan", name}, {"folder", folder}};
    json["runs"] = report.runs;
    json["frames"] = report.frames;
    json["taken"] = report.files.size();
    json["before"] = report.before;
    json["complete"] = report.complete;
    json["files"] = Json::array();
    for (const SequenceFile& file : report.files) {
        json["files"].push_back({{"file", seenFile(folder, file.path)}, {"bytes", file.bytes}});
    }
    json["failures"] = Json::array();
    for (const SequenceFailure& failure : report.failures) {
        json["failures"].push_back(failureJson(failure));
    }
    return json;
}

} // namespace vxcam
