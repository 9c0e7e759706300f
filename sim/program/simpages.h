// The manual page and the shell's completion of vxcamsim, made from its options and the kinds of
// faults.
#ifndef SIMPAGES_H
#define SIMPAGES_H

#include <string>

// In the form of man(7).
std::string SimManualPage();

// For bash.
std::string SimCompletion();

#endif
