#include "rest/json_answer.h"

#include "http/json_object.h"
#include "plans/plan_folder.h"

#include <limits>
#include <utility>

namespace vxcam {

namespace {

Json errorOf(const std::string& kind, const std::string& text)
{
    return {{"kind", kind}, {"text", text}, {"code", 0}, {"sub_code", 0}};
}

bool isOfHooks(const Error& error)
{
    return dynamic_cast<const HooksRefused*>(&error) != nullptr;
}

} // namespace

HttpResponse jsonAnswer(const Json& json, int status)
{
    HttpResponse response;
    response.status = status;
    response.type = "application/json";
    response.body = textOf(json) + "\n";
    return response;
}

Json errorJson(const Error& error)
{
    Json json = errorOf(error.row().name, error.what());
    json["code"] = error.code();
    json["sub_code"] = error.subCode();
    const auto* const plan = dynamic_cast<const SequenceError*>(&error);
    if (plan == nullptr) return json;
    if (isOfHooks(error)) json["kind"] = "plan-hooks";
    json["mistakes"] = Json::array();
    for (const SequenceMistake& mistake : plan->mistakes()) {
        json["mistakes"].push_back({{"line", mistake.line}, {"text", mistake.text}});
    }
    return json;
}

HttpResponse errorAnswer(const Error& error)
{
    return jsonAnswer({{"error", errorJson(error)}}, isOfHooks(error) ? 403 : error.row().http);
}

HttpResponse errorAnswer(const Refusal& refusal)
{
    HttpResponse response =
        jsonAnswer({{"error", errorOf(refusal.kind(), refusal.what())}}, refusal.status());
    response.headers = refusal.headers();
    return response;
}

Json bodyObject(const HttpRequest& request)
{
    if (request.body.empty()) return Json::object();
    const std::string* const type = request.header("Content-Type");
    if (type != nullptr && type->rfind("application/json", 0) != 0) {
        throw Refusal(415, "media-type", "the body must be application/json");
    }
    return jsonObject(request.body, "the body");
}

int intOf(const std::string& name, const Json& json)
{
    if (json.is_number_integer()) {
        const auto number = json.get<int64_t>();
        const bool isHuge = json.is_number_unsigned() && number < 0;
        if (!isHuge && number >= std::numeric_limits<int>::min() &&
            number <= std::numeric_limits<int>::max()) {
            return static_cast<int>(number);
        }
    }
    throw Error(ErrorKind::Usage, name + ": a whole number is needed");
}

Json Members::take(const std::string& name)
{
    const auto found = left_.find(name);
    if (found == left_.end()) return nullptr;
    Json value = std::move(*found);
    left_.erase(found);
    return value;
}

std::string Members::takeText(const std::string& name, const std::string& otherwise)
{
    const Json value = take(name);
    if (value.is_null()) return otherwise;
    if (!value.is_string()) throw Error(ErrorKind::Usage, name + ": a text is needed");
    return value.get<std::string>();
}

int Members::takeInt(const std::string& name, int otherwise)
{
    const Json value = take(name);
    return value.is_null() ? otherwise : intOf(name, value);
}

bool Members::takeBool(const std::string& name, bool otherwise)
{
    const Json value = take(name);
    if (value.is_null()) return otherwise;
    if (!value.is_boolean()) throw Error(ErrorKind::Usage, name + ": true or false is needed");
    return value.get<bool>();
}

void Members::requireEmpty() const
{
    if (left_.empty()) return;
    throw Error(ErrorKind::Usage, "'" + left_.begin().key() + "' is unknown here");
}

} // namespace vxcam
