// Who may ask at all.
#ifndef VXCAMD_GUARD_H
#define VXCAMD_GUARD_H

#include "http/http_message.h"

#include <string>

namespace vxcam {

// Knows the server's token, and which pages may use it.
//
// Threads: any.
class Guard
{
public:
    // An empty token: none is needed.
    explicit Guard(std::string token) : token_(std::move(token)) {}

    // The token in a file, its first line. Throws Error: File when it cannot be read, Usage when it
    // is shorter than 16 characters, has others than visible ASCII, or when others than its owner
    // can read the file; to one in $CREDENTIALS_DIRECTORY its group may have rights.
    static std::string load(const std::string& path);

    // Throws Refusal: 401 without the right token, which comes as "Authorization: Bearer TOKEN", as
    // the password of "Basic", or as the cookie that cookie() makes; 403 for a request that changes
    // something, or a WebSocket, that a page of another site sends, and for a host name that is not
    // this host's own where no token protects the server (a name that an attacker's name server
    // answers for).
    void require(const HttpRequest& request, bool changes) const;
    // The part of it that is about sites, where no token is asked for: for what does no harm
    // without one, and for what does, where a host's name needs the token nevertheless.
    void requireSite(const HttpRequest& request, bool changes) const;
    void requireOpen(const HttpRequest& request, bool changes) const;

    bool isRight(const std::string& token) const;
    std::string cookie(bool isSecret) const; // for Set-Cookie

private:
    bool knows(const HttpRequest& request) const;
    static void requireHost(const HttpRequest& request);
    static void requireOrigin(const HttpRequest& request, bool changes);

    const std::string token_;
};

} // namespace vxcam

#endif
