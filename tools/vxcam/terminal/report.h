// What a run prints on standard output.
#ifndef REPORT_H
#define REPORT_H

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <string>

// A document in one line, without a line end.
std::string LineText(const nlohmann::ordered_json& document);

// What is printed has no control characters but line ends: others are made visible ("\x1b"), in
// documents written as JSON does. Throw tcFailure with eExitFile when standard output takes no
// more.
void PrintDocument(const nlohmann::ordered_json& document);
void PrintLine(const std::string& text);

// As they are. Does not wait for a reader behind a signal: throws tcFailure then, too.
void PrintBytes(const char* bytes, size_t count);

// On standard error.
void PrintError(const std::string& text);
void PrintWarning(const std::string& text);

#endif
