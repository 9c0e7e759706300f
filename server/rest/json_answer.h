// Answers in JSON, and what can be wrong with a JSON body.
#ifndef VXCAMD_JSON_ANSWER_H
#define VXCAMD_JSON_ANSWER_H

#include "cameras/event_log.h"
#include "http/http_message.h"

#include <vxcamkit/error.h>

#include <string>

namespace vxcam {

HttpResponse jsonAnswer(const Json& json, int status = 200);

// {"error": {"kind": ..., "text": ..., "code": ..., "sub_code": ...}}, with the status that belongs
// to it; "mistakes" of plans, too.
HttpResponse errorAnswer(const Error& error);
HttpResponse errorAnswer(const Refusal& refusal);
Json errorJson(const Error& error); // what stands behind "error"

// The object in a body; an empty body is an empty one. Throws Refusal: 400 for what is none, 415
// for a body that says that it is something else.
Json bodyObject(const HttpRequest& request);

// The members of an object, each asked for by its name, so that one that nobody knows is told.
class Members
{
public:
    explicit Members(const Json& object) : left_(object) {}

    bool has(const std::string& name) const { return left_.contains(name); }
    // Take a member; null when it is not there. Throw Error{Usage} for one of another type.
    Json take(const std::string& name);
    std::string takeText(const std::string& name, const std::string& otherwise);
    int takeInt(const std::string& name, int otherwise);
    bool takeBool(const std::string& name, bool otherwise);

    void requireEmpty() const; // throws Error{Usage} for one that was not taken

private:
    Json left_;
};

int intOf(const std::string& name, const Json& json); // throws Error{Usage}

} // namespace vxcam

#endif
