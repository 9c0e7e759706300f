// The manual page and the completions of shells, made from the verbs, their options and the table
// of properties.
#ifndef PAGES_H
#define PAGES_H

#include <string>

// In the form of man(7). What the verbs themselves do not tell comes from docs/vxcam.md. Throws
// std::runtime_error when that lacks a section.
std::string ManualPage(const std::string& document);

std::string BashCompletion();
std::string ZshCompletion();
std::string FishCompletion();

#endif
