// Who has connected to an Alpaca device.
#ifndef VXCAMD_ALPACA_CLIENTS_H
#define VXCAMD_ALPACA_CLIENTS_H

#include <chrono>
#include <cstddef>
#include <map>
#include <string>

namespace vxcam {

// Clients by their names. Many vanish without a word: who has asked nothing for long is forgotten
// when another one leaves, or when there are too many.
class AlpacaClients
{
public:
    using Clock = std::chrono::steady_clock;

    static constexpr size_t kMost = 64; // in place of the one unheard for longest comes another
    static constexpr std::chrono::minutes kMostSilence{10};

    void join(const std::string& client, Clock::time_point now);
    void heard(const std::string& client, Clock::time_point now); // if it has joined
    bool leave(const std::string& client);                        // false: it had not joined
    void forgetSilent(Clock::time_point now);
    void clear() { heard_.clear(); }
    bool empty() const { return heard_.empty(); }

private:
    std::map<std::string, Clock::time_point> heard_;
};

} // namespace vxcam

#endif
