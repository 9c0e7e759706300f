// The manual page and the completions of shells, made from the verbs, their options and the table
// of properties.
#ifndef PAGES_H
#define PAGES_H

#include <string>

// In the form of man(7).
std::string ManualPage();

std::string BashCompletion();
std::string ZshCompletion();
std::string FishCompletion();

#endif
