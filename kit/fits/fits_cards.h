// Lines of a FITS header.
#ifndef VXCAMKIT_FITS_CARDS_H
#define VXCAMKIT_FITS_CARDS_H

#include <vxcamkit/header.h>

#include <string>
#include <vector>

namespace vxcam {

inline constexpr size_t kFitsCard = 80;    // characters of a line
inline constexpr size_t kFitsBlock = 2880; // bytes that a file consists of

// The lines of a card: one, or several (CONTINUE) for a text that is too long for it. Comments are
// cut where there is no room for them. What is not written as it stands is told in `warnings`, if
// that is not null.
std::vector<std::string> fitsCards(const HeaderCard& card, std::vector<std::string>* warnings);

// "1.500", "1.0E+20"; empty for what is no number.
std::string fitsNumber(double value, int decimals);

} // namespace vxcam

#endif
