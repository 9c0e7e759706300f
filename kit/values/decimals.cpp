#include "values/decimals.h"

#include <charconv>

namespace vxcam {

namespace {

constexpr size_t kLongest = 400; // the largest number, with all its decimals

std::string textOf(double number, std::chars_format format, int precision)
{
    char text[kLongest];
    return {text, std::to_chars(text, text + kLongest, number, format, precision).ptr};
}

} // namespace

std::string fixedText(double number, int decimals)
{
    return textOf(number, std::chars_format::fixed, decimals);
}

std::string roundedText(double number, int digits)
{
    return textOf(number, std::chars_format::general, digits);
}

double numberIn(const std::string& text)
{
    double number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

} // namespace vxcam
