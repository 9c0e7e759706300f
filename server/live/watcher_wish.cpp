#include "live/watcher_wish.h"

#include "http/http_message.h"
#include "http/json_object.h"

#include <vxcamkit/error.h>

#include <algorithm>

namespace vxcam {

namespace {

using Json = nlohmann::ordered_json;

[[noreturn]] void refuse(const std::string& text)
{
    throw Error(ErrorKind::Usage, text);
}

// More than can be is as much as can be.
double rateOf(const Json& json)
{
    if (!json.is_number() || !(json.get<double>() >= 0)) refuse("rate: frames a second, from 0");
    return std::min(json.get<double>(), WatcherWish::kMostRate);
}

int64_t moreOf(const Json& json)
{
    if (!json.is_number_integer() || (!json.is_number_unsigned() && json.get<int64_t>() < 0)) {
        refuse("more: a number of frames, from 0");
    }
    return static_cast<int64_t>(std::min<uint64_t>(json.get<uint64_t>(), WatcherWish::kMostMore));
}

double beatOf(const Json& json)
{
    const double beat = json.is_number() ? json.get<double>() : -1;
    const bool isSpan = beat >= WatcherWish::kLeastBeat && beat <= WatcherWish::kMostBeat;
    if (beat != 0 && !isSpan) refuse("beat: 0.1 to 60 s; 0: none");
    return beat;
}

FramePart partOf(const Json& json)
{
    const std::optional<FramePart> part = FramePart::of(json);
    if (!part)
        refuse("part: column, row, columns and rows, 0 to 65535; step, 1 to 64; nothing else");
    return *part;
}

Json objectOf(const std::string& text)
{
    try {
        Json json = jsonObject(text, "the message");
        if (!json.empty()) return json;
    } catch (const Refusal& refusal) {
        refuse(refusal.what());
    }
    refuse("a message is a JSON object with rate, more, part or beat");
}

} // namespace

WatcherWish WatcherWish::of(const std::string& text)
{
    const Json json = objectOf(text);
    WatcherWish wish;
    for (const auto& [name, value] : json.items()) {
        if (name == "rate") {
            wish.rate = rateOf(value);
        } else if (name == "more") {
            wish.more = moreOf(value);
        } else if (name == "part") {
            wish.part = partOf(value);
        } else if (name == "beat") {
            wish.beat = beatOf(value);
        } else {
            refuse("'" + name + "' is unknown here");
        }
    }
    return wish;
}

} // namespace vxcam
