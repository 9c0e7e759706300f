#include "rest/rest_sequences.h"

#include "rest/json_answer.h"
#include "rest/rest_door.h"
#include "rest/sequence_json.h"

namespace vxcam {

namespace {

constexpr std::chrono::seconds kMostStarting{10};

PlanFolder& requirePlans(PlanFolder* plans)
{
    if (plans != nullptr) return *plans;
    throw Refusal(404, "no-plans", "this server has no plans; start it with --plans FOLDER");
}

void requireIdle(const std::vector<std::unique_ptr<SharedCamera>>& cameras, const std::string& name)
{
    for (const auto& camera : cameras) {
        const SequenceStatus status = camera->sequences().status();
        if (!isOver(status.state) && status.order.name == name) {
            throw Refusal(409, "sequence",
                          "camera " + std::to_string(camera->number()) + " is at '" + name + "'");
        }
    }
}

HttpResponse textAnswer(const std::string& text)
{
    HttpResponse response;
    response.type = "application/yaml";
    response.body = text;
    return response;
}

HttpResponse answerList(const PlanFolder& plans)
{
    Json list = Json::array();
    for (const std::string& name : plans.names()) {
        list.push_back(planFactsJson(plans, name));
    }
    return jsonAnswer({{"hooks", plans.runsHooks()}, {"plans", list}});
}

HttpResponse put(const HttpRequest& request, PlanFolder& plans,
                 const std::vector<std::unique_ptr<SharedCamera>>& cameras, const std::string& name)
{
    const std::string check = queryValue(request, "check").value_or("no");
    if (check != "yes" && check != "no") throw Error(ErrorKind::Usage, "check: yes or no");
    const Json facts = planFactsJson(plans, name, request.body);
    if (check == "yes") return jsonAnswer(facts);
    requireIdle(cameras, name);
    const bool isNew = plans.put(name, request.body);
    return jsonAnswer(facts, isNew ? 201 : 200);
}

// Of the plan in that folder, as its journal tells.
HttpResponse answerReport(const PlanFolder& plans, const SequencePlan& plan,
                          const std::string& name)
{
    const std::optional<SequenceReport> report = reportOf(plan);
    if (!report) {
        throw Refusal(404, "unknown-sequence", "nothing of '" + name + "' has begun there");
    }
    return jsonAnswer(reportJson(*report, name, plans.seen(plan.folder)));
}

HttpResponse start(const HttpRequest& request, const PlanFolder& plans, SharedCamera& camera,
                   const std::string& version)
{
    const std::string key = leaseKeyOf(request);
    camera.lease().require(key);
    Members members(bodyObject(request));
    const std::string name = members.takeText("plan", "");
    const std::string folder = members.takeText("folder", "");
    members.requireEmpty();
    if (name.empty()) throw Error(ErrorKind::Usage, "the body needs a \"plan\"");
    SequencePlan plan = plans.plan(name, folder);
    const std::string place = plans.seen(plan.folder);
    camera.sequences().start({std::move(plan), name, place, key, version}, kMostStarting);
    return jsonAnswer(statusJson(camera.sequences().status()), 202);
}

HttpResponse stop(const HttpRequest& request, SharedCamera& camera)
{
    camera.lease().require(leaseKeyOf(request));
    const std::string when = queryValue(request, "when").value_or("now");
    if (when != "now" && when != "frame") throw Error(ErrorKind::Usage, "when: now or frame");
    camera.sequences().stop(when == "now" ? SequenceStop::Now : SequenceStop::BehindFrame);
    return jsonAnswer(statusJson(camera.sequences().status()));
}

} // namespace

HttpResponse answerPlans(const HttpRequest& request, PlanFolder* folder,
                         const std::vector<std::unique_ptr<SharedCamera>>& cameras,
                         const std::vector<std::string>& rest)
{
    PlanFolder& plans = requirePlans(folder);
    if (rest.empty()) return answerList(plans);
    const std::string& name = rest[0];
    if (rest.size() == 2 && rest[1] == "report") {
        const std::string place = queryValue(request, "folder").value_or("");
        return answerReport(plans, plans.plan(name, place), name);
    }
    if (request.method == "PUT") return put(request, plans, cameras, name);
    if (request.method == "GET") return textAnswer(plans.text(name));
    requireIdle(cameras, name);
    plans.remove(name);
    return jsonAnswer(Json::object());
}

HttpResponse answerSequence(const HttpRequest& request, PlanFolder* plans, SharedCamera& camera,
                            const std::vector<std::string>& rest, const std::string& version)
{
    const bool isReport = !rest.empty();
    if (request.method == "GET" && !isReport && plans == nullptr) {
        return jsonAnswer({{"state", "none"}, {"over", true}, {"available", false}});
    }
    requirePlans(plans);
    if (isReport) {
        const SequenceStatus status = camera.sequences().status();
        if (status.state == SequenceState::None) {
            throw Refusal(404, "unknown-sequence", "this camera has had no sequence yet");
        }
        return answerReport(*plans, status.order.plan, status.order.name);
    }
    if (request.method == "POST") return start(request, *plans, camera, version);
    if (request.method == "DELETE") return stop(request, camera);
    const auto isOver = [&camera](auto most) { return camera.sequences().wait(most); };
    if (auto wait = waitAsAsked(request, camera, isOver)) return *wait;
    return jsonAnswer(statusJson(camera.sequences().status()));
}

} // namespace vxcam
