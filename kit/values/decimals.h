// Fractions as text and back, with a point whatever the locale of the application.
#ifndef VXCAMKIT_DECIMALS_H
#define VXCAMKIT_DECIMALS_H

#include <string>

namespace vxcam {

std::string fixedText(double number, int decimals); // "12.50"
std::string roundedText(double number, int digits); // "12.5", "1e+20": so many digits at most
double numberIn(const std::string& text);           // of such a text, in whole

} // namespace vxcam

#endif
