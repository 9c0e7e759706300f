// All that scripts may ask for: what is taken, and what the document tells, stands here once.
#ifndef VXCAMD_ROUTES_H
#define VXCAMD_ROUTES_H

#include "http/http_message.h"

#include <string>
#include <vector>

namespace vxcam {

struct QueryParameter {
    const char* name;
    const char* schema; // as JSON
    const char* help;
};

// A body or an answer is the name of a schema, for JSON, or a media type; a space stands between
// several.
struct Operation {
    const char* method; // "GET"
    const char* summary;
    const char* answer;
    std::vector<int> statuses; // when all is well
    std::vector<int> refusals; // beside those that any request may get
    std::vector<QueryParameter> query = {};
    const char* body = nullptr; // null: none
    bool isChange = false;      // refused without the key of the lease that somebody else holds
    const char* more = "";      // what else is to be known
};

struct Route {
    const char* path; // "/api/v1/cameras/{camera}"
    bool isOpen;      // needs no token
    std::vector<Operation> operations;
};

const std::vector<Route>& routes();

// In its place the document has a path for each property, with what can be done with that.
inline constexpr const char* kPropertyPath = "/api/v1/cameras/{camera}/properties/{property}";

// Throws Refusal: 404 for a path that no route has, 405 for a method that it does not take; 400 for
// anything in the query that it does not know, or that is there twice.
void requireRoute(const HttpRequest& request);
[[noreturn]] void refusePath(const std::string& path); // throws Refusal{404}

} // namespace vxcam

#endif
