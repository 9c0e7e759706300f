#include "cameras/lease.h"

#include "cameras/time_text.h"
#include "http/http_message.h"

#include <random>

namespace vxcam {

namespace {

using SteadyClock = std::chrono::steady_clock;

std::string makeKey()
{
    static const char* const digits = "0123456789abcdef";
    std::random_device chance;
    std::string key;
    for (int i = 0; i < 32; ++i) {
        key += digits[chance() % 16];
    }
    return key;
}

} // namespace

bool Lease::isHeld() const
{
    return !key_.empty() && (isKept_ || SteadyClock::now() - used_ < time_);
}

// Tells that it was not used for its time, if so.
void Lease::dropIfUnused()
{
    if (key_.empty() || isHeld()) return;
    key_.clear();
    events_.post("lease", {{"state", "run-out"}, {"holder", nullptr}, {"from", holder_}});
}

void Lease::refuse() const
{
    throw Refusal(423, "lease-held",
                  "'" + holder_ + "' controls this camera; take the lease over to do so yourself");
}

std::string Lease::take(const std::string& holder, const std::string& key, bool fromOthers)
{
    std::string before;
    {
        std::lock_guard<std::mutex> guard(mutex_);
        dropIfUnused();
        if (isHeld()) {
            if (key == key_) {
                used_ = SteadyClock::now();
                return key_;
            }
            if (!fromOthers) refuse();
            before = holder_;
        }
        key_ = makeKey();
        isKept_ = false;
        holder_ = holder;
        since_ = presentText();
        used_ = SteadyClock::now();
        Json facts;
        facts["state"] = before.empty() ? "taken" : "taken-over";
        facts["holder"] = holder;
        if (!before.empty()) facts["from"] = before;
        events_.post("lease", facts);
        return key_;
    }
}

void Lease::giveBack(const std::string& key)
{
    std::lock_guard<std::mutex> guard(mutex_);
    if (!isHeld()) return;
    if (key != key_) refuse();
    key_.clear();
    isKept_ = false;
    events_.post("lease", {{"state", "given-back"}, {"holder", nullptr}, {"from", holder_}});
}

void Lease::require(const std::string& key)
{
    std::lock_guard<std::mutex> guard(mutex_);
    dropIfUnused();
    if (!isHeld() && !key.empty()) {
        throw Refusal(423, "lease-over",
                      "the lease of this key is over, and nobody has one; take it anew");
    }
    if (!isHeld()) return;
    if (key != key_) refuse();
    used_ = SteadyClock::now();
}

void Lease::renew(const std::string& key)
{
    std::lock_guard<std::mutex> guard(mutex_);
    if (isHeld() && key == key_) used_ = SteadyClock::now();
}

void Lease::keep(const std::string& key)
{
    std::lock_guard<std::mutex> guard(mutex_);
    if (isHeld() && key == key_) isKept_ = true;
}

void Lease::keepNoMore(const std::string& key)
{
    std::lock_guard<std::mutex> guard(mutex_);
    if (!isKept_ || key != key_) return;
    isKept_ = false;
    used_ = SteadyClock::now();
}

Lease::State Lease::state()
{
    std::lock_guard<std::mutex> guard(mutex_);
    dropIfUnused();
    if (!isHeld()) return {};
    const SteadyClock::duration used =
        isKept_ ? SteadyClock::duration(0) : SteadyClock::now() - used_;
    const auto left = time_ - used;
    return {true, holder_, since_, std::chrono::duration_cast<std::chrono::milliseconds>(left)};
}

} // namespace vxcam
