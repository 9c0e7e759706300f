#include <vxcamkit/sequence.h>

#include <algorithm>

namespace vxcam {

namespace {

constexpr size_t kMostTold = 10;

std::string textOf(const std::string& path, const std::vector<SequenceMistake>& mistakes)
{
    std::string text;
    for (size_t i = 0; i < std::min(mistakes.size(), kMostTold); ++i) {
        const int line = mistakes[i].line;
        text += (i > 0 ? "; " : "") + path + (line > 0 ? ":" + std::to_string(line) : "") + ": " +
                mistakes[i].text;
    }
    if (mistakes.size() > kMostTold) {
        text += "; and " + std::to_string(mistakes.size() - kMostTold) + " more";
    }
    return text;
}

} // namespace

SequenceError::SequenceError(const std::string& path, std::vector<SequenceMistake> mistakes)
    : Error(ErrorKind::Usage, textOf(path, mistakes)), mistakes_(std::move(mistakes))
{}
SequenceError::~SequenceError() = default;

} // namespace vxcam
