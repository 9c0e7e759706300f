#include "alpaca/alpaca_clients.h"

#include <algorithm>
#include <iterator>

namespace vxcam {

void AlpacaClients::join(const std::string& client, Clock::time_point now)
{
    heard_[client] = now;
    if (heard_.size() <= kMost) return;
    heard_.erase(std::min_element(heard_.begin(), heard_.end(), [](const auto& a, const auto& b) {
        return a.second < b.second;
    }));
}

void AlpacaClients::heard(const std::string& client, Clock::time_point now)
{
    const auto found = heard_.find(client);
    if (found != heard_.end()) found->second = now;
}

bool AlpacaClients::leave(const std::string& client)
{
    return heard_.erase(client) > 0;
}

void AlpacaClients::forgetSilent(Clock::time_point now)
{
    for (auto client = heard_.begin(); client != heard_.end();) {
        client = now - client->second > kMostSilence ? heard_.erase(client) : std::next(client);
    }
}

} // namespace vxcam
