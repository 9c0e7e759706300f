#include "graph.h"

#include "tcProgress.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

constexpr int gnHeight = 10;
constexpr int gnMargin = 9; // characters before the first value: "  12.34 |"

} // namespace

std::vector<std::string> GraphLines(const std::vector<double>& values, int width, int height)
{
    const size_t room = static_cast<size_t>(std::max(width - gnMargin, 1));
    const size_t first = values.size() > room ? values.size() - room : 0;
    double least = 0, most = 0;
    for (size_t i = first; i < values.size(); ++i) {
        if (values[i] <= 0) continue;
        least = least == 0 ? values[i] : std::min(least, values[i]);
        most = std::max(most, values[i]);
    }
    std::vector<std::string> lines;
    if (most == 0) return lines;
    for (int row = 0; row < height; ++row) {
        char margin[32] = "        |";
        if (row == 0) std::snprintf(margin, sizeof margin, "%7.2f |", most);
        if (row == height - 1) std::snprintf(margin, sizeof margin, "%7.2f |", least);
        lines.emplace_back(margin);
    }
    for (size_t i = first; i < values.size(); ++i) {
        const double part = most > least ? (most - values[i]) / (most - least) : 1;
        const long at = std::lround(part * (height - 1));
        for (int row = 0; row < height; ++row) {
            lines[static_cast<size_t>(row)] += values[i] > 0 && row == at ? '*' : ' ';
        }
    }
    return lines;
}

tcGraph::tcGraph(bool wanted) : mbDrawn(wanted && TerminalTakesEscapes()) {}

void tcGraph::Show(const std::string& title, const std::vector<double>& values)
{
    if (!mbDrawn) return;
    std::vector<std::string> lines = GraphLines(values, TerminalWidth() - 1, gnHeight);
    if (lines.empty()) return;
    lines.insert(lines.begin(), title);
    for (const std::string& line : lines) {
        std::fprintf(stderr, "%s\n", line.c_str());
    }
    std::fflush(stderr);
    mnLines = static_cast<int>(lines.size());
}

void tcGraph::Clear()
{
    if (mnLines == 0) return;
    std::fprintf(stderr, "\x1b[%dA\r\x1b[J", mnLines);
    std::fflush(stderr);
    mnLines = 0;
}
