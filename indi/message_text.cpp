#include "message_text.h"

#include <indiapi.h>

namespace vxcam {

std::string messageText(const std::string& text)
{
    constexpr size_t most = MAXINDIMESSAGE - 1, kept = (most - 5) / 2; // beside " ... "
    if (text.size() <= most) return text;
    return text.substr(0, kept) + " ... " + text.substr(text.size() - kept);
}

} // namespace vxcam
