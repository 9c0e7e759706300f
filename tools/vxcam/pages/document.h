// What docs/vxcam.md says, for the manual page: its sections, tables and paragraphs.
#ifndef DOCUMENT_H
#define DOCUMENT_H

#include <string>
#include <utility>
#include <vector>

// The lines below a heading ("## Files"), up to the next one that is not below it. Throws
// std::runtime_error when there is no such heading.
std::string SectionOf(const std::string& document, const std::string& heading);

// The first and the last cell of each row of the tables whose first column has this title.
std::vector<std::pair<std::string, std::string>> RowsOf(const std::string& section,
                                                        const std::string& title);

// Running text, each in one line: neither tables nor headings nor code.
std::vector<std::string> ParagraphsOf(const std::string& section);

#endif
