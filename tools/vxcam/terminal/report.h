// What a run prints on standard output.
#ifndef REPORT_H
#define REPORT_H

#include "tcFrameWriter.h"

#include <nlohmann/json_fwd.hpp>

#include <chrono>
#include <string>

// What is known about a frame on disk.
nlohmann::ordered_json FrameDocument(const tsWrittenFrame& written);

// Whether packets of a frame are missing, and how many.
bool IsIncomplete(const tsFrame& frame);
std::string MissingText(const tsFrame& frame);

// The same for people, in some lines without the last line's end.
std::string FrameText(const tsWrittenFrame& written, std::chrono::milliseconds exposure);

// A document in one line, without a line end.
std::string LineText(const nlohmann::ordered_json& document);

// What is printed has no control characters but line ends: others are made visible ("\x1b"), in
// documents written as JSON does. Throw tcFailure with eExitFile when standard output takes no
// more.
void PrintDocument(const nlohmann::ordered_json& document);
void PrintLine(const std::string& text);

#endif
