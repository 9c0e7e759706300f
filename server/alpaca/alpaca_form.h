// Parameters of Alpaca requests.
#ifndef VXCAMD_ALPACA_FORM_H
#define VXCAMD_ALPACA_FORM_H

#include "http/http_message.h"

#include <cstdint>
#include <map>
#include <string>

namespace vxcam {

// The parameters of one request: names in any case in a GET's query, exactly as they are in a PUT's
// body.
//
// Errors: Refusal{400} for a form that is none, a parameter that is missing or there twice, or a
//   value that cannot be read.
class AlpacaForm
{
public:
    explicit AlpacaForm(const HttpRequest& request);

    const std::string& text(const std::string& name) const;
    bool boolean(const std::string& name) const; // true, false, in any case
    int32_t integer(const std::string& name) const;
    double number(const std::string& name) const; // "1.5", "1E-03"; finite

    uint32_t clientTransaction() const { return clientTransaction_; } // 0: none was sent
    // Who asks. Clients are told apart by their addresses alone: ClientID is required of none, and
    // one may give several.
    const std::string& client() const { return client_; }
    const std::string& name() const { return name_; } // of the client, for people

private:
    const std::string* find(const std::string& name) const;
    uint32_t optionalId(const std::string& name) const;

    bool isPut_;
    std::multimap<std::string, std::string> values_; // of a GET by small letters
    uint32_t clientTransaction_ = 0;
    std::string client_, name_;
};

} // namespace vxcam

#endif
