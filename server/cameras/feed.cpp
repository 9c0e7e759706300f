#include "cameras/feed.h"

namespace vxcam {

void Feed::put(const Frame& frame, uint64_t exposure)
{
    {
        std::lock_guard<std::mutex> guard(mutex_);
        newest_ = FedFrame{frame, ++last_, exposure};
    }
    changed_.notify_all();
}

std::optional<FedFrame> Feed::newer(uint64_t than, std::chrono::milliseconds most) const
{
    std::unique_lock<std::mutex> guard(mutex_);
    const auto isNewer = [&] { return newest_ && newest_->number > than; };
    if (!changed_.wait_for(guard, most, isNewer)) return {};
    return newest_;
}

uint64_t Feed::last() const
{
    std::lock_guard<std::mutex> guard(mutex_);
    return last_;
}

} // namespace vxcam
