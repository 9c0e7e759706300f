// Texts as INDI's messages hold them.
#ifndef VXINDI_MESSAGE_TEXT_H
#define VXINDI_MESSAGE_TEXT_H

#include <string>

namespace vxcam {

// INDI cuts what is longer than its messages are, and with it the reason, which stands at the end:
// here the middle is left out.
std::string messageText(const std::string& text);

} // namespace vxcam

#endif
