#include "document.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

namespace {

std::vector<std::string> LinesOf(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

// Of a heading, 0 for any other line.
size_t DepthOf(const std::string& line)
{
    const size_t depth = line.find_first_not_of('#');
    return depth != std::string::npos && line[depth] == ' ' ? depth : 0;
}

// "| a | b |"; a bar behind a backslash is one of the text.
std::vector<std::string> CellsOf(const std::string& line)
{
    std::vector<std::string> cells{""};
    for (size_t i = 1; i < line.size(); ++i) {
        if (line[i] == '\\' && i + 1 < line.size() && line[i + 1] == '|') {
            cells.back() += line[++i];
        } else if (line[i] == '|') {
            cells.emplace_back();
        } else {
            cells.back() += line[i];
        }
    }
    cells.pop_back();
    for (std::string& cell : cells) {
        cell.erase(0, cell.find_first_not_of(' '));
        cell.erase(cell.find_last_not_of(' ') + 1);
    }
    return cells;
}

bool IsRow(const std::string& line)
{
    return !line.empty() && line[0] == '|';
}

} // namespace

std::string SectionOf(const std::string& document, const std::string& heading)
{
    const std::vector<std::string> lines = LinesOf(document);
    const auto start = std::find(lines.begin(), lines.end(), heading);
    if (start == lines.end()) throw std::runtime_error("there is no heading " + heading);
    std::string section;
    for (auto line = start + 1; line != lines.end(); ++line) {
        const size_t depth = DepthOf(*line);
        if (depth > 0 && depth <= DepthOf(heading)) break;
        section += *line + "\n";
    }
    return section;
}

std::vector<std::pair<std::string, std::string>> RowsOf(const std::string& section,
                                                        const std::string& title)
{
    std::vector<std::pair<std::string, std::string>> rows;
    bool isInside = false, isTable = false;
    for (const std::string& line : LinesOf(section)) {
        const bool isFirst = IsRow(line) && !isTable;
        isTable = IsRow(line);
        if (!isTable) continue;
        const std::vector<std::string> cells = CellsOf(line);
        if (isFirst) {
            isInside = cells[0] == title;
        } else if (isInside && cells[0].rfind("---", 0) != 0) {
            rows.emplace_back(cells[0], cells.back());
        }
    }
    return rows;
}

std::vector<std::string> ParagraphsOf(const std::string& section)
{
    std::vector<std::string> paragraphs;
    bool isOpen = false, isCode = false;
    for (const std::string& line : LinesOf(section)) {
        const bool isFence = line.rfind("```", 0) == 0;
        if (isFence) isCode = !isCode;
        const bool isText = !isFence && !isCode && !line.empty() && !IsRow(line) &&
                            DepthOf(line) == 0 && line.rfind("    ", 0) != 0;
        if (isText && isOpen) paragraphs.back() += " " + line;
        if (isText && !isOpen) paragraphs.push_back(line);
        isOpen = isText;
    }
    return paragraphs;
}
