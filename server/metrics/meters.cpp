#include "metrics/meters.h"

#include <algorithm>

namespace vxcam {

void TimeHistogram::add(std::chrono::nanoseconds time)
{
    const double seconds = std::chrono::duration<double>(time).count();
    const auto place = std::lower_bound(kBounds.begin(), kBounds.end(), seconds) - kBounds.begin();
    ++counts_.at(static_cast<size_t>(place));
    nanoseconds_ += static_cast<uint64_t>(std::max<int64_t>(time.count(), 0));
}

std::array<uint64_t, TimeHistogram::kBounds.size() + 1> TimeHistogram::counts() const
{
    std::array<uint64_t, kBounds.size() + 1> counts{};
    std::transform(counts_.begin(), counts_.end(), counts.begin(),
                   [](const std::atomic<uint64_t>& count) { return count.load(); });
    return counts;
}

double TimeHistogram::seconds() const
{
    return std::chrono::duration<double>(std::chrono::nanoseconds(nanoseconds_.load())).count();
}

void Meters::answered(const std::string& door, int status, std::chrono::nanoseconds time)
{
    requestTime.add(time);
    answered(door, status);
}

void Meters::answered(const std::string& door, int status)
{
    std::lock_guard<std::mutex> guard(mutex_);
    ++answers_[{door, status}];
}

std::map<std::pair<std::string, int>, uint64_t> Meters::answers() const
{
    std::lock_guard<std::mutex> guard(mutex_);
    return answers_;
}

} // namespace vxcam
