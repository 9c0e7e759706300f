// The manual page and the shell's completion, made from the verbs, their options and the table of
// properties.
#ifndef PAGES_H
#define PAGES_H

#include <string>

// In the form of man(7).
std::string ManualPage();

// For bash.
std::string BashCompletion();

#endif
